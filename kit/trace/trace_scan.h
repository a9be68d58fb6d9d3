// A trace read call by call, for files that are too large to be held: also while it is written.
#ifndef VORN_KIT_TRACE_TRACE_SCAN_H_
#define VORN_KIT_TRACE_TRACE_SCAN_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kit/common/owned_file.h"

namespace vorn::kit {

struct ScannedCall {
  uint64_t number = 0;
  std::string_view operation;  ///< lives as long as the scan
  uint64_t beganNs = 0;
  std::optional<uint64_t> endedNs;  ///< empty: it has not come back
};

/// Owns the descriptor. Times are of CLOCK_MONOTONIC.
class TraceScan {
 public:
  /// Throws a Fault of kInput if this is no trace.
  explicit TraceScan(const std::string& path);

  /// The next whole call, in the order in which they began; empty behind the last one.
  [[nodiscard]] std::optional<ScannedCall> Next();

  /// Goes on with the last `count` calls.
  void SkipToLast(uint64_t count);

  /// The same moment by CLOCK_REALTIME.
  [[nodiscard]] uint64_t Realtime(uint64_t monotonicNs) const;

  [[nodiscard]] uint64_t Dropped() const { return dropped_; }
  [[nodiscard]] const std::string& Host() const { return host_; }
  [[nodiscard]] const std::string& Runtime() const { return runtime_; }
  [[nodiscard]] uint64_t LoadedNs() const { return monotonicNs_; }  ///< when the layer was loaded
  [[nodiscard]] std::optional<uint64_t> EndedNs() const { return endedNs_; }

 private:
  bool Fill();

  OwnedFile file_;
  uint64_t at_ = 0;  // the slot that is read next
  uint64_t slots_ = 0;
  uint64_t slotsAt_ = 0;
  uint64_t dropped_ = 0;
  uint64_t monotonicNs_ = 0;
  uint64_t realtimeNs_ = 0;
  std::optional<uint64_t> endedNs_;
  std::string host_;
  std::string runtime_;
  std::vector<std::string> operations_;
  std::vector<char> piece_;
  size_t pieceAt_ = 0;
};

}  // namespace vorn::kit

#endif  // VORN_KIT_TRACE_TRACE_SCAN_H_
