/* A program into which nothing can be preloaded. */
int main(void) { return 0; }
