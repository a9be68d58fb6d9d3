// A process and not a thread: what is started under the layer is made by fork, which threads and
// their locks do not bear.
#include "kit/trace/watchdog.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <utility>

#include "kit/common/fault.h"
#include "kit/common/owned_file.h"
#include "kit/common/printable.h"
#include "kit/trace/under_layer.h"
#include "shared/trace/trace_format.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostSlots = uint64_t{1} << 24;  // as many as a layer makes room for

bool CanRead(const OwnedFile& file, uint64_t at, void* bytes, size_t size) {
  return pread(file.Get(), bytes, size, static_cast<off_t>(at)) == static_cast<ssize_t>(size);
}

bool IsKnown(const trace::Header& header) {
  return std::memcmp(header.magic, trace::kMagic, sizeof(trace::kMagic)) == 0 &&
         header.version == trace::kVersion && header.slotBytes == sizeof(trace::Slot) &&
         header.nameBytes == trace::kNameBytes && header.slots <= kMostSlots;
}

std::string NameOf(const OwnedFile& file, const trace::Header& header, uint16_t operation) {
  char name[trace::kNameBytes] = "";
  const uint64_t at = header.headerBytes + uint64_t{operation} * trace::kNameBytes;
  if (operation >= header.names || !CanRead(file, at, name, sizeof(name))) return "?";
  return {name, strnlen(name, sizeof(name))};
}

uint64_t MonotonicNs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000000000U + static_cast<uint64_t>(now.tv_nsec);
}

void Tell(const StuckCall& call) {
  char line[256];
  const int length = std::snprintf(
      line, sizeof(line),
      "vorn trace: thread %u of process %u has been inside call %llu, %s, for %.1f s\n",
      call.thread, call.pid, static_cast<unsigned long long>(call.number),
      Printable(call.operation).c_str(), static_cast<double>(call.insideNs) / 1e9);
  [[maybe_unused]] const auto written =
      write(STDERR_FILENO, line, std::min(static_cast<size_t>(length), sizeof(line) - 1));
}

[[noreturn]] void Watch(const std::string& output, pid_t launcher, uint64_t limitNs) {
  StuckFinder finder(limitNs);
  // Often enough that the line comes soon, seldom enough to cost nothing.
  const uint64_t pauseNs = std::clamp<uint64_t>(limitNs / 10, 20'000'000, 1'000'000'000);
  const timespec pause{static_cast<time_t>(pauseNs / 1000000000U),
                       static_cast<long>(pauseNs % 1000000000U)};
  while (true) {
    nanosleep(&pause, nullptr);
    for (const std::string& path : GrowingTraces(output, launcher)) {
      for (const StuckCall& call : finder.Look(path, MonotonicNs())) {
        if (kill(static_cast<pid_t>(call.pid), 0) == 0 || errno == EPERM) Tell(call);
      }
    }
  }
}

}  // namespace

std::vector<StuckCall> StuckFinder::Look(const std::string& path, uint64_t nowNs) {
  std::vector<StuckCall> stuck;
  const OwnedFile file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  trace::Header header;
  if (!CanRead(file, 0, &header, sizeof(header)) || !IsKnown(header)) return stuck;
  Seen& seen = seen_[path];
  const uint64_t count = std::min(header.calls, header.slots);
  for (; seen.next < count; ++seen.next) seen.open.push_back(seen.next);
  std::vector<uint64_t> stillOpen;
  for (const uint64_t at : seen.open) {
    trace::Slot slot;
    if (!CanRead(file, header.slotsAt + at * sizeof(slot), &slot, sizeof(slot))) continue;
    if (slot.behind.number != 0) continue;
    const bool hasBegun = slot.before.number != 0;
    if (hasBegun && slot.before.timeNs + limitNs_ <= nowNs) {
      stuck.push_back({.pid = header.pid,
                       .thread = slot.before.thread,
                       .number = slot.before.number,
                       .operation = NameOf(file, header, slot.before.operation),
                       .insideNs = nowNs - slot.before.timeNs});
    } else {
      stillOpen.push_back(at);
    }
  }
  seen.open = std::move(stillOpen);
  return stuck;
}

Watchdog::Watchdog(const std::string& output, uint64_t limitNs) {
  const pid_t parent = getpid();
  process_ = fork();
  if (process_ < 0) {
    throw Fault(ExitStatus::kLimit, "cannot start a process: " + SystemReason(errno));
  }
  if (process_ > 0) return;
  // The keys of the terminal are the program's.
  for (const int number : {SIGINT, SIGQUIT, SIGTERM}) signal(number, SIG_IGN);
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(0);  // it ended before that was asked for
  try {
    Watch(output, parent, limitNs);
  } catch (...) {
    _exit(1);
  }
}

Watchdog::~Watchdog() {
  kill(process_, SIGKILL);
  while (waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
  }
}

}  // namespace vorn::kit
