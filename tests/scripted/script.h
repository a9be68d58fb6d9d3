// What the scripted runtime is told to be and to do: the model that it pretends to have loaded, and
// where its answers leave the ordinary path. Read from the text file that the environment variable
// VORN_SCRIPT names; without one the model has no inputs and no outputs.
//
// The text. One statement per line; words are separated by blanks; `#` starts a comment where a
// word could start. A part of a word in double quotes may hold blanks and the escapes \\ \" \n \t
// \xHH. Numbers are decimal, with an optional sign, or hexadecimal behind 0x; a negative number
// stands for its two's complement where an unsigned one is wanted. A line that cannot be read ends
// the process with status 99 at the first runtime call.
//
//   The model
//     net N                 net type (0)
//     model-id N            id of the first model that is loaded (1); the next ones count on
//     run-mode N            what vorn_rt_get_run_mode answers (0)
//     bits CODE BITS        bits of one element of a data type code
//     input  KEY=VALUE...   one model input, in index order; the keys are name, dims=1,3,4,5,
//     output KEY=VALUE...   type, stride, size and format. One model output likewise.
//
//   What a tensor leaves out is empty or 0, and nothing is checked for sense. `dims=` alone is rank
//   0. A name of 128 characters or more fills the record's field without a terminating zero. Two
//   more keys: rank overrides the count of dimensions, full-name the name that the query by index
//   gives.
//
//   Memory
//     limit BYTES           a larger block is refused (4 GiB)
//     fill BYTE             what a fresh block is filled with (0xA5)
//
//   Answers. CALLS counts from 1 and is `always`, `3`, `3-7` or `3-`. The last rule that fits wins.
//     answer OPERATION CALLS VALUE [effect]
//     answer OPERATION index=I CALLS VALUE [effect]
//     fail CALLS [STATUS]
//
//   `answer` is about the calls of one operation (those with index I, counted among themselves).
//   The value is a status, a count, `null` for a handle, name or address, or a quoted text for a
//   name. With a status other than 0 the operation does nothing, unless `effect` follows: then it
//   does its work and reports a failure all the same. With the status 0 it succeeds where it would
//   not have. `fail` counts all runtime calls together; they fail with STATUS (1), null or 0, by
//   what the operation returns. Types, formats and names have no way to fail: they are counted and
//   answer as usual.
//
//   pause OPERATION MILLISECONDS   every call of the operation takes at least that long
//
//   What an execution writes into its output blocks. AT is any of `execute=CALLS` (every execution
//   without it), `at=BYTES` (0) and `frame=ROW,STRIDE`. What does not fit is cut off.
//     write I [AT] bytes HH HH ...   these bytes; blanks between them are optional
//     write I [AT] floats F F ...    32-bit floats; 0x7fc00000 is a bit pattern
//     write I [AT] fill HH           every byte up to the end of the block
//     write I [AT] counter N         bytes N, N+1, ... modulo 256 up to the end
//     write I [AT] file PATH         the bytes of a file
//     write I [AT] copy J            the bytes of input block J
//
//   With a frame the bytes are cut into rows of ROW bytes, and each row is written STRIDE bytes
//   behind the one before: a dense list lands in a strided block.
//
//   What the record tells of each execution, before it writes anything
//     see inputs|outputs hex|hash    the whole block behind each data buffer
//     dump DIRECTORY                 the same bytes of the inputs, as files
//                                    DIRECTORY/execute<E>.input<I>.bin
//     dump-image PATH                the bytes of the model image, when it is loaded
#ifndef VORN_TESTS_SCRIPTED_SCRIPT_H_
#define VORN_TESTS_SCRIPTED_SCRIPT_H_

#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace scripted {

/// One model input or output.
struct Tensor {
  std::string name;
  std::optional<std::string> fullName;
  std::vector<int64_t> dims;  // at most 128
  std::optional<uint64_t> rank;
  uint32_t type = 0;
  uint64_t stride = 0;
  uint64_t size = 0;
  int32_t format = 0;
};

/// A range of call numbers, counted from 1, both ends included.
struct Calls {
  uint64_t first = 1;
  uint64_t last = std::numeric_limits<uint64_t>::max();

  [[nodiscard]] bool Has(uint64_t n) const { return n >= first && n <= last; }
};

enum class AnswerKind { kNumber, kNull, kText };

struct AnswerRule {
  std::string operation;
  std::optional<uint64_t> index;
  Calls calls;
  AnswerKind kind = AnswerKind::kNumber;
  uint64_t number = 0;
  std::string text;
  bool effect = false;
};

struct FailRule {
  Calls calls;
  int32_t status = 1;
};

enum class WriteSource { kBytes, kFill, kCounter, kFile, kCopy };

struct WriteRule {
  uint64_t output = 0;
  Calls executions;
  uint64_t offset = 0;
  uint64_t rowBytes = 0;  // 0: written in one piece
  uint64_t strideBytes = 0;
  WriteSource source = WriteSource::kBytes;
  std::string bytes;    // of kBytes; the path of kFile
  uint64_t number = 0;  // of kFill and kCounter; the input of kCopy
};

enum class Sight { kNothing, kHex, kHash };

struct Script {
  int32_t netType = 0;
  uint32_t firstModelId = 1;
  int32_t runMode = 0;
  std::vector<Tensor> inputs;
  std::vector<Tensor> outputs;
  std::vector<std::pair<uint32_t, uint64_t>> bits;  // a later pair of a code wins
  uint64_t limitBytes = uint64_t{4} << 30;
  unsigned char fill = 0xA5;
  std::vector<AnswerRule> answers;
  std::vector<FailRule> failures;
  std::map<std::string, uint64_t> pauses;  // milliseconds
  std::vector<WriteRule> writes;
  Sight inputSight = Sight::kNothing;
  Sight outputSight = Sight::kNothing;
  std::string dumpDirectory;
  std::string imageFile;

  /// Bits of one element of a data type code, by the script or by the interface; 0 if unknown.
  [[nodiscard]] uint64_t BitsOf(uint32_t code) const;
};

/// Reads a script. Returns an empty text and fills `script`, or returns what is wrong with which
/// line and leaves `script` alone.
[[nodiscard]] std::string ParseScript(const std::string& text, Script* script);

}  // namespace scripted

#endif  // VORN_TESTS_SCRIPTED_SCRIPT_H_
