// A time by which something has to be done.
#ifndef VORN_RUNTIME_HOST_STATE_DEADLINE_H_
#define VORN_RUNTIME_HOST_STATE_DEADLINE_H_

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>

namespace vorn::host {

/// Belongs to one thread, but for what it calls.
class Deadline {
 public:
  /// Calls `onExpiry`, which must not throw, from a thread of its own after that many seconds,
  /// unless `Lift` comes first. Fails with VORN_ERROR_INTERNAL where there is no thread to be had.
  Deadline(uint32_t seconds, std::function<void()> onExpiry);
  Deadline(const Deadline&) = delete;
  Deadline& operator=(const Deadline&) = delete;
  ~Deadline() { Lift(); }

  /// From here on nothing is called any more. Returns whether it was.
  bool Lift();

 private:
  std::jthread Start(uint32_t seconds);
  void Wait(const std::stop_token& stop, uint32_t seconds);

  std::function<void()> onExpiry_;
  std::mutex mutex_;
  std::condition_variable_any wake_;
  bool hasExpired_ = false;  // written by the thread, read when it is gone
  std::jthread thread_;      // last: it uses the others
};

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_STATE_DEADLINE_H_
