// The record of everything that happens at the scripted runtime: a text file, named by the
// environment variable VORN_RECORD, to which each line is written at once, so that it is complete
// up to the moment of a crash. Without the variable nothing is kept.
#ifndef VORN_TESTS_SCRIPTED_RECORD_H_
#define VORN_TESTS_SCRIPTED_RECORD_H_

#include <string>
#include <string_view>

namespace scripted {

class Record {
 public:
  /// Appends to the file at `path`; null or empty keeps nothing.
  explicit Record(const char* path);
  ~Record();
  Record(const Record&) = delete;
  Record& operator=(const Record&) = delete;

  /// Appends one line; line ends in it are escaped.
  void Write(std::string_view line);

 private:
  int file_ = -1;
};

/// A text in double quotes, with everything outside printable ASCII as \xHH.
[[nodiscard]] std::string Quote(std::string_view text);

}  // namespace scripted

#endif  // VORN_TESTS_SCRIPTED_RECORD_H_
