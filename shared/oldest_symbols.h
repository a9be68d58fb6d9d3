/*
 * How the oldest versions of the C library's symbols are called on this machine, for what stands in
 * for newer ones.
 */
#ifndef VORN_SHARED_OLDEST_SYMBOLS_H_
#define VORN_SHARED_OLDEST_SYMBOLS_H_

#if defined(__x86_64__)
#define OLDEST "GLIBC_2.2.5"
#elif defined(__aarch64__)
#define OLDEST "GLIBC_2.17"
#else
#error "which version do this machine's oldest symbols have?"
#endif

/* A runtime in the same process keeps the C library's own. */
#define HIDDEN __attribute__((visibility("hidden")))

#endif
