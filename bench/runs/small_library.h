// A shared library for the floor of starting, since vorn-run loads one too.
#ifndef VORN_BENCH_RUNS_SMALL_LIBRARY_H_
#define VORN_BENCH_RUNS_SMALL_LIBRARY_H_

/// A line without its end.
const char* Greeting();

#endif  // VORN_BENCH_RUNS_SMALL_LIBRARY_H_
