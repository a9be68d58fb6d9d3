// Waiting for a time to come, or for the call that it is not wanted any more.
#include "host/state/deadline.h"

#include <chrono>
#include <system_error>
#include <utility>

#include "host/common/failure.h"

namespace vorn::host {

Deadline::Deadline(uint32_t seconds, std::function<void()> onExpiry)
    : onExpiry_(std::move(onExpiry)), thread_(Start(seconds)) {}

bool Deadline::Lift() {
  if (thread_.joinable()) {
    thread_.request_stop();
    thread_.join();
  }
  return hasExpired_;
}

std::jthread Deadline::Start(uint32_t seconds) {
  try {
    return std::jthread([this, seconds](const std::stop_token& stop) { Wait(stop, seconds); });
  } catch (const std::system_error& e) {
    throw Failure(VORN_ERROR_INTERNAL, "there is no thread to watch the time-out of ", seconds,
                  " s (", e.code().message(), ")");
  }
}

void Deadline::Wait(const std::stop_token& stop, uint32_t seconds) {
  std::unique_lock lock(mutex_);
  wake_.wait_for(lock, stop, std::chrono::seconds(seconds), [] { return false; });
  if (stop.stop_requested()) return;
  hasExpired_ = true;
  onExpiry_();
}

}  // namespace vorn::host
