// The descriptor is shared with whoever else has it open, so that it is asked first and is not made
// one that never blocks.
#include "kit/launch/lifeline.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "kit/common/printable.h"

namespace vorn::kit {
namespace {

constexpr int kMostPieces = 16;  // a flood is no reason to stay
constexpr size_t kThrownAwayBytes = 4096;

bool HasSomething(int descriptor) {
  pollfd asked{.fd = descriptor, .events = POLLIN, .revents = 0};
  return poll(&asked, 1, 0) > 0;
}

}  // namespace

std::string WhyNoLifeline(int descriptor) {
  if (fcntl(descriptor, F_GETFD) < 0) return "standard input is closed";
  if (isatty(descriptor) != 0) return "standard input is a terminal, where Ctrl-C ends the run";
  return "";
}

bool Lifeline::IsGone(Time now) {
  if (!why_.empty()) return true;
  if (Hear()) heard_ = now;
  if (why_.empty() && now - heard_ > longestSilence_) {
    why_ = "nothing came on standard input for " + std::to_string(longestSilence_.count()) +
           " s (--lifeline)";
  }
  return !why_.empty();
}

bool Lifeline::Hear() {
  bool isHeard = false;
  std::array<char, kThrownAwayBytes> piece{};
  for (int i = 0; i < kMostPieces && HasSomething(descriptor_); ++i) {
    const ssize_t got = read(descriptor_, piece.data(), piece.size());
    if (got > 0) {
      isHeard = true;
      continue;
    }
    const int error = errno;
    if (got == 0) {
      why_ = "standard input came to its end (--lifeline)";
    } else if (error != EINTR && error != EAGAIN) {
      why_ = "standard input cannot be read any more: " + SystemReason(error) + " (--lifeline)";
    }
    break;
  }
  return isHeard;
}

}  // namespace vorn::kit
