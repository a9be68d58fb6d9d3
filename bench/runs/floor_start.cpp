// The floor of starting: a program in C++ that prints one line.
#include <iostream>

#include "runs/small_library.h"

int main() { std::cout << Greeting() << '\n'; }
