// Reads the record that the scripted runtime leaves (scripted/scripted.h).
#ifndef VORN_TESTS_SUPPORT_CALL_RECORD_H_
#define VORN_TESTS_SUPPORT_CALL_RECORD_H_

#include <cstdint>
#include <string>
#include <vector>

namespace support {

/// One line of a call: `operation(arguments) = answer shown [scripted]`.
struct RecordedCall {
  std::string operation;
  std::vector<std::string> arguments;
  std::string answer;
  std::string shown;
  bool scripted = false;
};

/// A block as an execution saw it.
struct Sight {
  uint64_t execution = 0;  // counted from 1
  bool isInput = false;
  uint64_t index = 0;
  uint64_t bufferSize = 0;  // as the data buffer was created; the block may be longer
  std::string bytes;        // of the whole block; empty if only the hash was recorded
  std::string hash;
};

class CallRecord {
 public:
  CallRecord() = default;
  explicit CallRecord(std::vector<std::string> lines);

  [[nodiscard]] const std::vector<std::string>& Lines() const { return lines_; }

  /// The lines of calls, in order.
  [[nodiscard]] std::vector<std::string> Calls() const;

  /// The same without the calls that only ask: descriptions, type sizes, the net type, and what
  /// lies in a dataset or a data buffer. Nothing hangs on how often and when these are made.
  [[nodiscard]] std::vector<std::string> CallsWithoutQueries() const;

  /// The calls of one operation.
  [[nodiscard]] std::vector<std::string> CallsOf(const std::string& operation) const;

  [[nodiscard]] std::vector<std::string> Violations() const;
  [[nodiscard]] std::vector<std::string> Notes() const;
  [[nodiscard]] std::vector<Sight> Sights() const;

  /// What was last said to be live, without `live: ` and the moment; empty if nothing was.
  [[nodiscard]] std::string Live() const;

  /// True if any answer was ordered by the script.
  [[nodiscard]] bool HasScripted() const;

 private:
  std::vector<std::string> lines_;
};

/// What `Live` says of a run that returned everything.
inline constexpr char kNothingLive[] =
    "blocks=0 buffers=0 datasets=0 descs=0 contexts=0 streams=0 models=0";

[[nodiscard]] RecordedCall ParseCall(const std::string& line);
[[nodiscard]] bool IsCall(const std::string& line);
[[nodiscard]] bool IsQuery(const std::string& operation);

}  // namespace support

#endif  // VORN_TESTS_SUPPORT_CALL_RECORD_H_
