/*
 * Lets a program for the board start where the C library is older than the one that it is linked
 * with, down to 2.31: a device's system is rarely as new as a desk's. See docs/board-baseline.md.
 *
 * The linker takes the newest version of a symbol and writes it down, and the older system then
 * refuses the program. What the program and its C++ library use of such symbols is few, and defined
 * here on top of older ones. All of it is hidden: a runtime in the same process keeps the C
 * library's own.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <link.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "oldest_symbols.h"

/* ---- 2.34: the start ------------------------------------------------------------------------ */

/*
 * The newer start-up code leaves the constructors to the C library; the older library leaves them
 * to the program, which hands over a function that runs them. Every library still takes that
 * function.
 */
typedef int Main(int, char**, char**);
typedef void Constructor(int, char**, char**);

extern int StartMain(Main*, int, char**, Constructor*, void (*)(void), void (*)(void), void*);
__asm__(".symver StartMain, __libc_start_main@" OLDEST);

extern HIDDEN void _init(void);
extern HIDDEN Constructor* __init_array_start[];
extern HIDDEN Constructor* __init_array_end[];

/* All but those of .preinit_array, which the loader runs in every version. */
static void RunConstructors(int argc, char** argv, char** env) {
  _init();
  for (Constructor** next = __init_array_start; next != __init_array_end; ++next) {
    (*next)(argc, argv, env);
  }
}

HIDDEN int __libc_start_main(Main* program, int argc, char** argv, Constructor* none,
                             void (*noDestructors)(void), void (*endOfLoader)(void), void* stack) {
  (void)none;
  return StartMain(program, argc, argv, RunConstructors, noDestructors, endOfLoader, stack);
}

/* ---- 2.32 and 2.34: threads ----------------------------------------------------------------- */

/* A runtime may have threads, so that no count goes without its lock. */
HIDDEN char __libc_single_threaded = 0;

/* Behind another name: the process's mask is the thread's. */
HIDDEN int pthread_sigmask(int how, const sigset_t* set, sigset_t* old) {
  return sigprocmask(how, set, old) == 0 ? 0 : errno;
}

/* For the C++ library's own; what it runs neither throws nor is cancelled. */
HIDDEN int pthread_once(pthread_once_t* once, void (*run)(void)) {
  enum { kNew = PTHREAD_ONCE_INIT, kRunning, kDone };
  int expected = kNew;
  if (__atomic_compare_exchange_n(once, &expected, kRunning, 0, __ATOMIC_ACQUIRE,
                                  __ATOMIC_ACQUIRE)) {
    run();
    __atomic_store_n(once, kDone, __ATOMIC_RELEASE);
  }
  while (__atomic_load_n(once, __ATOMIC_ACQUIRE) != kDone) sched_yield();
  return 0;
}

/* Never called: that there is one says to the unwinder that there may be threads. */
HIDDEN int __pthread_key_create(pthread_key_t* key, void (*destructor)(void*)) {
  (void)key;
  (void)destructor;
  return EAGAIN;
}

/* ---- 2.33: what a file is ------------------------------------------------------------------- */

/* On 64-bit machines the kernel's record is the C library's, with 64-bit sizes and without. */
static int StatAt(int folder, const char* path, struct stat* result, int flags) {
  return (int)syscall(SYS_newfstatat, folder, path, result, flags);
}

HIDDEN int stat(const char* path, struct stat* result) { return StatAt(AT_FDCWD, path, result, 0); }

HIDDEN int lstat(const char* path, struct stat* result) {
  return StatAt(AT_FDCWD, path, result, AT_SYMLINK_NOFOLLOW);
}

HIDDEN int fstat(int fd, struct stat* result) { return (int)syscall(SYS_fstat, fd, result); }

HIDDEN int fstat64(int fd, struct stat64* result) { return (int)syscall(SYS_fstat, fd, result); }

/* ---- 2.35: the unwinder's table of the code at an address -------------------------------------
 */

#ifdef DLFO_STRUCT_HAS_EH_DBASE
typedef struct {
  uintptr_t address;
  struct dl_find_object* result;
} Search;

static int HoldsAddress(struct dl_phdr_info* info, size_t size, void* data) {
  (void)size;
  const Search* search = data;
  uintptr_t unwindTable = 0;
  int isHere = 0;
  for (int i = 0; i < info->dlpi_phnum; ++i) {
    const ElfW(Phdr)* part = &info->dlpi_phdr[i];
    const uintptr_t start = info->dlpi_addr + part->p_vaddr;
    if (part->p_type == PT_GNU_EH_FRAME) unwindTable = start;
    if (part->p_type == PT_LOAD && search->address - start < part->p_memsz) {
      isHere = 1;
      search->result->dlfo_map_start = (void*)start;
      search->result->dlfo_map_end = (void*)(start + part->p_memsz);
    }
  }
  if (isHere) search->result->dlfo_eh_frame = (void*)unwindTable;
  return isHere;
}

HIDDEN int _dl_find_object(void* address, struct dl_find_object* result) {
  *result = (struct dl_find_object){0};
  Search search = {(uintptr_t)address, result};
  return dl_iterate_phdr(HoldsAddress, &search) && result->dlfo_eh_frame != NULL ? 0 : -1;
}
#endif

/* ---- 2.36: random numbers, which the C++ library brings along unasked --------------------------
 */

HIDDEN uint32_t arc4random(void) {
  uint32_t number = 0;
  if (getentropy(&number, sizeof number) != 0) abort();
  return number;
}
