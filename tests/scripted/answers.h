// Counts the runtime's calls and tells which of them the script answers in its own way.
#ifndef VORN_TESTS_SCRIPTED_ANSWERS_H_
#define VORN_TESTS_SCRIPTED_ANSWERS_H_

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "scripted/script.h"

namespace scripted {

/// What the script says about one call. Neither: the call goes its ordinary way.
struct Verdict {
  std::optional<int32_t> failure;    // a `fail` statement's status
  const AnswerRule* rule = nullptr;  // an `answer` statement
};

class Answers {
 public:
  /// `script` must outlive this.
  explicit Answers(const Script& script) : script_(script), seen_(script.answers.size(), 0) {}

  /// Counts one call; `index` is the call's index argument if the operation has one.
  [[nodiscard]] Verdict Next(std::string_view operation, std::optional<uint64_t> index);

 private:
  const Script& script_;
  std::vector<uint64_t> seen_;  // per rule, the calls so far that it is about
  uint64_t calls_ = 0;
};

}  // namespace scripted

#endif  // VORN_TESTS_SCRIPTED_ANSWERS_H_
