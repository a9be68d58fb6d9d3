// How many threads a process has, and a process that gets no more than a few.
#ifndef VORN_TESTS_RUNTIME_HOST_FEW_THREADS_H_
#define VORN_TESTS_RUNTIME_HOST_FEW_THREADS_H_

#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <string>

namespace vorn::host {

/// Of this process, as the system counts them.
inline int ThreadCount() {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    int count = 0;
    if (word == "Threads:" && status >> count) return count;
  }
  return 0;
}

/// False under a sanitizer, which needs the address space that is to be limited.
inline bool CanLimitThreads() {
#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
  return false;
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  return false;
#else
  return true;
#endif
}

inline constexpr char kWhyThreadsAreNotLimited[] =
    "the sanitizer needs the address space that is to be limited";

/// Leaves room for the stacks of that many threads that are yet to come, and for nothing else of
/// that size; for a child process that ends soon. A limit of processes would not hold for root.
inline void LimitThreadsTo(uint64_t count) {
  constexpr uint64_t kStackBytes = uint64_t{1} << 30;
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0 ||
      pthread_attr_setstacksize(&attributes, kStackBytes) != 0 ||
      pthread_setattr_default_np(&attributes) != 0) {
    _exit(2);
  }
  uint64_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  const uint64_t taken = pages * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
  const uint64_t most = taken + count * kStackBytes + kStackBytes / 2;
  const rlimit limit{most, most};
  if (setrlimit(RLIMIT_AS, &limit) != 0) _exit(2);
}

}  // namespace vorn::host

#endif  // VORN_TESTS_RUNTIME_HOST_FEW_THREADS_H_
