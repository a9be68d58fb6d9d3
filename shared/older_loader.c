/*
 * The functions that open libraries, for a program for the board: version 2.34 of the C library has
 * them anew, older ones in libdl.so.2. The older versions of their names are in both, and the
 * program is linked with libdl.so.2, which newer systems still have. See docs/board-baseline.md.
 */
#define _GNU_SOURCE
#include <dlfcn.h>

#include "oldest_symbols.h"

extern void* OpenLibrary(const char*, int);
extern void* FindSymbol(void*, const char*);
extern int FindAddress(const void*, Dl_info*);
extern char* TellError(void);
__asm__(".symver OpenLibrary, dlopen@" OLDEST);
__asm__(".symver FindSymbol, dlsym@" OLDEST);
__asm__(".symver FindAddress, dladdr@" OLDEST);
__asm__(".symver TellError, dlerror@" OLDEST);

/* The caller's folders to search are the program's, and this is within it. */
HIDDEN void* dlopen(const char* path, int mode) { return OpenLibrary(path, mode); }
HIDDEN void* dlsym(void* library, const char* name) { return FindSymbol(library, name); }
HIDDEN int dladdr(const void* address, Dl_info* info) { return FindAddress(address, info); }
HIDDEN char* dlerror(void) { return TellError(); }
