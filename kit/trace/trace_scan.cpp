// Reads instead of mapping: a file that is cut meanwhile then ends, and does not end the process.
#include "kit/trace/trace_scan.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "kit/common/fault.h"
#include "kit/common/printable.h"
#include "kit/trace/trace_file.h"
#include "shared/trace/trace_format.h"

namespace vorn::kit {
namespace {

constexpr size_t kSlotsAtOnce = 512;
constexpr uint64_t kMostFrontBytes = 8 << 20;

std::string ReadAt(int fd, uint64_t offset, size_t size) {
  std::string bytes(size, '\0');
  size_t done = 0;
  while (done < size) {
    const ssize_t got =
        pread(fd, bytes.data() + done, size - done, static_cast<off_t>(offset + done));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    done += static_cast<size_t>(got);
  }
  bytes.resize(done);
  return bytes;
}

}  // namespace

TraceScan::TraceScan(const std::string& path) {
  file_ = OwnedFile(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));  // of a pipe, too
  if (!file_.IsOpen()) {
    throw Fault(ExitStatus::kInput,
                "the trace '" + Printable(path) + "' cannot be opened: " + SystemReason(errno));
  }
  // What stands before the calls is read, and doubted, by the one reader of the format.
  const std::string header = ReadAt(file_.Get(), 0, sizeof(trace::Header));
  trace::Header known{};
  std::memcpy(&known, header.data(), std::min(header.size(), sizeof(known)));
  const std::string front = ReadAt(file_.Get(), 0, std::min(known.slotsAt, kMostFrontBytes));
  TraceFile file = ParseTrace(front);
  dropped_ = file.dropped;
  monotonicNs_ = file.monotonicNs;
  realtimeNs_ = file.realtimeNs;
  endedNs_ = file.endedNs;
  host_ = std::move(file.host);
  runtime_ = std::move(file.runtime);
  operations_ = std::move(file.operations);
  slots_ = std::min(known.calls, known.slots);
  slotsAt_ = known.slotsAt;
}

void TraceScan::SkipToLast(uint64_t count) {
  at_ = std::max(at_, slots_ - std::min(count, slots_));
  piece_.clear();
  pieceAt_ = 0;
}

uint64_t TraceScan::Realtime(uint64_t monotonicNs) const {
  return realtimeNs_ + monotonicNs - monotonicNs_;
}

bool TraceScan::Fill() {
  if (pieceAt_ < piece_.size()) return true;
  const size_t slots = std::min<uint64_t>(kSlotsAtOnce, slots_ - at_);
  const std::string bytes =
      ReadAt(file_.Get(), slotsAt_ + at_ * sizeof(trace::Slot), slots * sizeof(trace::Slot));
  piece_.assign(bytes.begin(), bytes.end());
  piece_.resize(piece_.size() / sizeof(trace::Slot) * sizeof(trace::Slot));
  pieceAt_ = 0;
  return !piece_.empty();
}

std::optional<ScannedCall> TraceScan::Next() {
  while (at_ < slots_ && Fill()) {
    trace::Slot slot;
    std::memcpy(&slot, piece_.data() + pieceAt_, sizeof(slot));
    pieceAt_ += sizeof(slot);
    ++at_;
    const bool hasBegun = slot.before.number != 0 && slot.before.side == trace::Side::kBefore &&
                          slot.before.operation < operations_.size();
    if (!hasBegun) continue;  // its thread had the number and had not come further
    ScannedCall call{.number = slot.before.number,
                     .operation = operations_[slot.before.operation],
                     .beganNs = slot.before.timeNs,
                     .endedNs = {}};
    const bool hasEnded = slot.behind.number != 0 && slot.behind.side == trace::Side::kBehind;
    if (hasEnded) call.endedNs = std::max(slot.behind.timeNs, slot.before.timeNs);
    return call;
  }
  return std::nullopt;
}

}  // namespace vorn::kit
