#include "scripted/state.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

#include "scripted/operations.h"

namespace scripted {
namespace {

constexpr int kBadScript = 99;

std::recursive_mutex mutex;
State* current = nullptr;  // never destroyed, so that no order of destruction matters

Script ReadScript() {
  Script script;
  const char* path = std::getenv("VORN_SCRIPT");
  if (path == nullptr) return script;
  std::ifstream file(path);
  const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  const std::string problem = file.is_open() ? ParseScript(text, &script) : "cannot be opened";
  if (!problem.empty()) {
    std::fprintf(stderr, "scripted runtime: %s: %s\n", path, problem.c_str());
    _exit(kBadScript);
  }
  return script;
}

State& Current() {
  if (current == nullptr) current = new State(ReadScript(), std::getenv("VORN_RECORD"));
  return *current;
}

__attribute__((destructor)) void WriteAtExit() {
  if (current != nullptr) current->WriteLive("exit");
}

}  // namespace

void State::WriteLive(const char* moment) {
  for (const std::string& complaint : blocks.CheckGuards()) record.Write("violation: " + complaint);
  const auto live = [this](Kind kind) { return std::to_string(handles.LiveCount(kind)); };
  record.Write("live: blocks=" + std::to_string(blocks.LiveCount()) +
               " buffers=" + live(Kind::kBuffer) + " datasets=" + live(Kind::kDataset) +
               " descs=" + live(Kind::kDesc) + " contexts=" + live(Kind::kContext) + " streams=" +
               live(Kind::kStream) + " models=" + std::to_string(models.size()) + " at=" + moment);
}

void Restart() {
  const std::lock_guard<std::recursive_mutex> lock(mutex);
  WriteAtExit();
  delete current;
  current = nullptr;
}

Call::Call(const char* operation, std::optional<uint64_t> index)
    : lock_(mutex),
      state_(Current()),
      operation_(operation),
      verdict_(state_.answers.Next(operation, index)) {
  const Needs needs = FindOperation(operation)->needs;
  if (needs != Needs::kNothing && !state_.initialised) Complain("the runtime is not initialised");
  if (needs == Needs::kContext && state_.initialised) {
    bool found = false;
    for (const auto& [context, thread] : state_.contexts) {
      found |= thread == std::this_thread::get_id();
    }
    if (!found) Complain("no context is current on this thread");
  }
}

Call& Call::Number(uint64_t value) {
  AddArgument(std::to_string(value));
  return *this;
}

Call& Call::Signed(int64_t value) {
  AddArgument(std::to_string(value));
  return *this;
}

Call& Call::Text(const char* value) {
  AddArgument(value == nullptr ? "null" : Quote(value));
  return *this;
}

Call& Call::Address(const void* value) {
  AddArgument(state_.blocks.Find(value).Name());
  return *this;
}

Call& Call::AnyHandle(const void* value) {
  const Handle* handle = state_.handles.Find(value);
  AddArgument(value == nullptr ? "null" : handle == nullptr ? "foreign" : handle->Name());
  return *this;
}

Handle* Call::Want(const void* value, Kind kind) {
  Handle* handle = state_.handles.Find(value);
  if (value == nullptr) {
    Complain(std::string("null is no ") + KindName(kind));
  } else if (handle == nullptr) {
    Complain(std::string("a foreign address is no ") + KindName(kind));
  } else if (handle->kind != kind) {
    Complain(handle->Name() + " is no " + KindName(kind));
  } else if (!handle->live) {
    Complain(handle->Name() + " is used");
  } else {
    return handle;
  }
  return nullptr;
}

bool Call::HasPlace(const void* place) {
  if (place == nullptr) Complain("the place for the result is null");
  return place != nullptr;
}

uint64_t Call::Count(uint64_t natural) {
  uint64_t answer = natural;
  if (verdict_.failure) {
    answer = 0;
  } else if (verdict_.rule != nullptr) {
    answer = verdict_.rule->number;
  }
  Finish(std::to_string(answer), verdict_.failure || verdict_.rule != nullptr);
  return answer;
}

uint64_t Call::Code(uint64_t natural, bool isSigned) {
  const uint64_t answer = verdict_.rule != nullptr ? verdict_.rule->number : natural;
  Finish(isSigned ? std::to_string(static_cast<int64_t>(answer)) : std::to_string(answer),
         verdict_.rule != nullptr);
  return answer;
}

const char* Call::NameText(Handle* desc, uint64_t index, const std::string* natural) {
  const AnswerRule* rule = verdict_.rule;
  if (rule != nullptr) natural = rule->kind == AnswerKind::kText ? &rule->text : nullptr;
  const char* answer = nullptr;
  if (desc != nullptr && natural != nullptr) {
    // Exactly the bytes of the name, so that reading on is noticed; freed with the description.
    auto& kept = desc->names[index];
    if (kept == nullptr || *natural != kept.get()) {
      kept = std::make_unique<char[]>(natural->size() + 1);
      std::memcpy(kept.get(), natural->c_str(), natural->size() + 1);
    }
    answer = kept.get();
  }
  Finish(answer == nullptr ? "null" : Quote(answer), rule != nullptr);
  return answer;
}

std::optional<vorn_status> Call::Refusal() const {
  if (verdict_.failure) return *verdict_.failure;
  if (verdict_.rule != nullptr && !verdict_.rule->effect && StatusOfRule() != 0) {
    return StatusOfRule();
  }
  return {};
}

vorn_status Call::StatusOfRule() const {
  return verdict_.rule->kind == AnswerKind::kNumber
             ? static_cast<vorn_status>(verdict_.rule->number)
             : VORN_ERROR_INTERNAL;
}

std::string Call::NameOf(const void* pointer) const {
  if (const Handle* handle = state_.handles.Find(pointer)) return handle->Name();
  return state_.blocks.Find(pointer).Name();
}

void Call::AddArgument(const std::string& text) {
  arguments_ += (arguments_.empty() ? "" : ", ") + text;
}

vorn_status Call::Answer(vorn_status status, bool scripted) {
  Finish(std::to_string(status), scripted);
  return status;
}

void Call::Finish(const std::string& answer, bool scripted) {
  if (const auto pause = state_.script.pauses.find(operation_);
      pause != state_.script.pauses.end()) {
    std::this_thread::sleep_for(std::chrono::milliseconds(pause->second));
  }
  state_.record.Write(operation_ + "(" + arguments_ + ") = " + answer + shown_ +
                      (scripted ? " [scripted]" : ""));
  for (const std::string& line : lines_) state_.record.Write(line);
  lines_.clear();
}

}  // namespace scripted
