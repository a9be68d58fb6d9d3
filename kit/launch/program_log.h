// The lines of vorn-run while they come: how far it is, and what it complained of.
#ifndef VORN_KIT_LAUNCH_PROGRAM_LOG_H_
#define VORN_KIT_LAUNCH_PROGRAM_LOG_H_

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "kit/launch/explanations.h"

namespace vorn::kit {

/// The files of a list, in their order: two lists of other files have another one.
class FilesTrace {
 public:
  void Add(std::string_view file);
  [[nodiscard]] uint64_t Files() const { return files_; }

  bool operator==(const FilesTrace&) const = default;

 private:
  uint64_t files_ = 0;
  uint64_t hash_ = 14695981039346656037U;  // FNV-1a's
};

/// Takes a log in pieces, cut anywhere. Copyable plain data but for the table it looks into.
class ProgramLog {
 public:
  void Take(std::string_view piece);

  /// Inferences of which the first file was begun.
  [[nodiscard]] uint64_t Begun(uint64_t inputsAnInference) const;
  /// The files of its list, which it names before it begins the first one.
  [[nodiscard]] const FilesTrace& Listed() const { return listed_; }
  [[nodiscard]] uint64_t Executed() const { return executed_; }
  [[nodiscard]] uint64_t Dumped() const { return dumped_; }
  [[nodiscard]] bool IsModelLoaded() const { return isModelLoaded_; }

  /// Lines [ERROR] and [WARN] that are not ordinary, by the id of their explanation; "unknown"
  /// where the table has none.
  struct Complaint {
    uint64_t count = 0;
    std::string firstLine;
    const Explanation* explanation = nullptr;
  };
  [[nodiscard]] const std::map<std::string, Complaint, std::less<>>& Complaints() const {
    return complaints_;
  }
  [[nodiscard]] uint64_t Faults() const { return faults_; }  ///< of those lines that tell a cause

  /// The first line that tells a cause behind the last inference that was dumped; empty: none.
  [[nodiscard]] const std::string& Cause() const { return cause_; }

  /// The last whole line that is not part of taking the runtime down.
  [[nodiscard]] const std::string& LastLine() const { return lastLine_; }

 private:
  void TakeLine(std::string_view line);
  void Complain(std::string_view line);

  FilesTrace listed_;
  std::string cut_;  // the beginning of a line whose end has not come
  uint64_t files_ = 0;
  uint64_t executed_ = 0;
  uint64_t dumped_ = 0;
  uint64_t faults_ = 0;
  bool isModelLoaded_ = false;
  std::map<std::string, Complaint, std::less<>> complaints_;
  std::string cause_;
  std::string lastLine_;
};

}  // namespace vorn::kit

#endif  // VORN_KIT_LAUNCH_PROGRAM_LOG_H_
