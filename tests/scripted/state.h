// Everything that the scripted runtime knows, and the course of one call through it.
#ifndef VORN_TESTS_SCRIPTED_STATE_H_
#define VORN_TESTS_SCRIPTED_STATE_H_

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "scripted/answers.h"
#include "scripted/blocks.h"
#include "scripted/handles.h"
#include "scripted/record.h"
#include "scripted/script.h"
#include "vorn/vorn.h"

namespace scripted {

/// A model that was loaded.
struct Model {
  uint64_t imageBlock = 0;  // number of the block, 0 if the image lies elsewhere
};

struct State {
  State(const Script& theScript, const char* recordPath)
      : script(theScript), answers(script), record(recordPath), nextModelId(script.firstModelId) {}

  const Script script;
  Answers answers;
  Record record;
  Blocks blocks;
  Handles handles;
  std::map<uint32_t, Model> models;
  uint32_t nextModelId;
  uint64_t executions = 0;
  bool initialised = false;
  bool deviceSet = false;
  std::map<const Handle*, std::thread::id>
      contexts;  // the live ones, by the thread they are current on

  /// Writes the complaints about guards and the line of what is still live.
  void WriteLive(const char* moment);
};

/// One call of one operation, from its first line to its return; the library is locked in between.
/// An operation names its arguments in order, then returns what `Status`, `NewHandle` or `Count`
/// make of the ordinary course and the script's wishes.
class Call {
 public:
  /// `operation` is the name of one of vorn.h's; `index` is what its answers may depend on.
  explicit Call(const char* operation, std::optional<uint64_t> index = {});
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  [[nodiscard]] State& state() const { return state_; }

  Call& Number(uint64_t value);
  Call& Signed(int64_t value);
  Call& Text(const char* value);
  Call& Address(const void* value);
  Call& AnyHandle(const void* value);

  /// The live handle of the kind behind `value`; complains and returns null if it is anything else.
  [[nodiscard]] Handle* Want(const void* value, Kind kind);

  /// Complains and returns false if the place for a result is null.
  [[nodiscard]] bool HasPlace(const void* place);

  void Complain(const std::string& what) {
    lines_.push_back("violation: " + operation_ + ": " + what);
  }
  void Note(const std::string& what) { lines_.push_back("note: " + what); }
  void Tell(const std::string& line) { lines_.push_back(line); }

  /// What the record shows behind the answer, such as the block that was handed out.
  void Show(const std::string& what) { shown_ = " " + what; }

  /// True while `work` runs only because the script wants success: refuse nothing then.
  [[nodiscard]] bool MustSucceed() const { return mustSucceed_; }

  /// Ends an operation that answers with a status; `work()` does it and returns its status.
  template <typename Work>
  vorn_status Status(Work work) {
    if (const auto refusal = Refusal()) return Answer(*refusal, true);
    mustSucceed_ = verdict_.rule != nullptr && StatusOfRule() == 0;
    const vorn_status natural = work();
    if (verdict_.rule != nullptr) return Answer(StatusOfRule(), true);
    return Answer(natural, false);
  }

  /// Ends an operation that answers with a handle or an address; `work()` returns it or null.
  template <typename Work>
  void* Pointer(Work work) {
    const bool refused = verdict_.failure || verdict_.rule != nullptr;
    void* answer = refused ? nullptr : work();
    Finish(NameOf(answer), refused);
    return answer;
  }

  /// Ends an operation that answers with a count or a size; a failure reads 0.
  uint64_t Count(uint64_t natural);

  /// Ends an operation that answers with a code and has no way to fail.
  uint64_t Code(uint64_t natural, bool isSigned = false);

  /// Ends the query of a name; `natural` or the rule's text, kept by the description.
  const char* NameText(Handle* desc, uint64_t index, const std::string* natural);

 private:
  [[nodiscard]] std::optional<vorn_status> Refusal() const;
  [[nodiscard]] vorn_status StatusOfRule() const;
  [[nodiscard]] std::string NameOf(const void* pointer) const;
  void AddArgument(const std::string& text);
  vorn_status Answer(vorn_status status, bool scripted);
  void Finish(const std::string& answer, bool scripted);

  std::lock_guard<std::recursive_mutex> lock_;
  State& state_;
  const std::string operation_;
  Verdict verdict_;
  std::string arguments_;
  std::string shown_;
  std::vector<std::string> lines_;  // what follows the call's own line
  bool mustSucceed_ = false;
};

/// Ends the present state; the next call begins a new one.
void Restart();

}  // namespace scripted

#endif  // VORN_TESTS_SCRIPTED_STATE_H_
