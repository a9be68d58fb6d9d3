#include "scripted/answers.h"

namespace scripted {

Verdict Answers::Next(std::string_view operation, std::optional<uint64_t> index) {
  Verdict verdict;
  ++calls_;
  for (const FailRule& failure : script_.failures) {
    if (failure.calls.Has(calls_)) verdict.failure = failure.status;
  }
  for (size_t r = 0; r < script_.answers.size(); ++r) {
    const AnswerRule& rule = script_.answers[r];
    if (rule.operation != operation || (rule.index && rule.index != index)) continue;
    if (rule.calls.Has(++seen_[r])) verdict.rule = &rule;
  }
  return verdict;
}

}  // namespace scripted
