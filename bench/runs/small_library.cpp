// One function, so that the library has to be loaded.
#include "runs/small_library.h"

const char* Greeting() { return "[INFO]  execute sample success"; }
