/* A program in C that brings the runtime up and down with an empty configuration. */
#include <stdio.h>
#include <vorn/vorn.h>

int main(int argc, char** argv) {
  if (argc != 2 || vorn_init(argv[1]) != VORN_SUCCESS) return 1;
  printf("%d bits\n", (int)vorn_data_type_size(VORN_INT16));
  return vorn_finalize() == VORN_SUCCESS ? 0 : 1;
}
