#include "kit/launch/run_report.h"

#include <algorithm>

#include "kit/common/printable.h"
#include "kit/launch/explanations.h"
#include "kit/launch/run_folder.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostNamed = 5;  // inferences that lines tell of

bool IsOfTraces(const RunWarning& warning) {
  return warning.id == kNotTracedWarning || warning.id == kDroppedWarning;
}

const Explanation* FindById(const std::string& id) {
  for (const Explanation& explanation : AllExplanations()) {
    if (explanation.id == id) return &explanation;
  }
  return nullptr;
}

}  // namespace

void RunReport::TakeEnd(ExitStatus status, const std::string& message) {
  Take(status);
  Warn(kProgramEndWarning, 1, message);
  console_.Say(message);
}

void RunReport::Warn(const std::string& id, uint64_t count, const std::string& message) {
  for (RunWarning& warning : facts_.warnings) {
    if (warning.id != id) continue;
    warning.count += count;
    return;
  }
  facts_.warnings.push_back({.id = id, .count = count, .message = message});
}

void RunReport::WarnOfComplaints(const ProgramLog& log) {
  faults_ += log.Faults();
  for (const auto& [id, complaint] : log.Complaints()) {
    const Explanation* known = complaint.explanation;
    std::string message = Printable(complaint.firstLine);
    if (known == nullptr) {
      message += ": not known here";
    } else {
      message += ": " + std::string(known->means) + "; " + std::string(known->advice);
    }
    Warn(id, complaint.count, message);
  }
}

void RunReport::WarnOfLeft(const std::vector<std::string>& left) {
  if (left.empty()) return;
  const bool isOne = left.size() == 1;
  Warn("left-processes", 1,
       "the program ended and left " +
           (isOne ? "a process" : std::to_string(left.size()) + " processes") +
           " of its group running, which " + (isOne ? "was" : "were") + " ended: " + left.front());
}

void RunReport::WarnOfOtherRuntimes() {
  if (!facts_.runtime) return;
  const std::string expected = RealPath(facts_.runtime->path);
  for (const MappedFile& file : facts_.mapped) {
    const std::string name = file.path.substr(file.path.rfind('/') + 1);
    if (!name.starts_with("libvorn.so") || RealPath(file.path) == expected) continue;
    Warn("other-runtime", 1,
         "the program had " + Quoted(file.path) + " and was to have " +
             Quoted(facts_.runtime->path));
  }
}

bool RunReport::MissesTraces() const {
  return std::any_of(facts_.warnings.begin(), facts_.warnings.end(), IsOfTraces);
}

void RunReport::ForgetMissingTraces() { std::erase_if(facts_.warnings, IsOfTraces); }

void RunReport::TellOfTrouble(const SampleRecord& record, const std::string& what) {
  ++troubles_;
  if (troubles_ > kMostNamed) return;
  console_.Say("inference " + std::to_string(record.index) + " (" + PlaceOf(record) + ") " + what +
               ": " + record.reason.value_or(""));
}

std::string RunReport::PlaceOf(const SampleRecord& record) const {
  if (record.inputs.empty()) return "no line";
  return Printable(request_.list) + ":" + std::to_string(record.inputs.front().line);
}

void RunReport::Summarise(std::optional<uint64_t> undividedLines) {
  if (troubles_ > kMostNamed) {
    console_.Say("and " + std::to_string(troubles_ - kMostNamed) +
                 " more; samples.jsonl names them all");
  }
  for (const RunWarning& warning : facts_.warnings) {
    if (warning.id == kProgramEndWarning) continue;
    const Explanation* known = FindById(warning.id);
    if (known != nullptr && known->role == LineRole::kFollows) continue;
    console_.Say("warning " + warning.id + ", " + Counted(warning.count, "time") + ": " +
                 warning.message);
  }
  const SampleCounts& counts = facts_.counts;
  std::string text = Quoted(request_.run) + " has " + std::to_string(counts.done) + " of ";
  if (undividedLines) {
    text += "the inferences of " + Counted(*undividedLines, "line") +
            " of the list; how many that are is not known without the model's inputs";
  } else {
    text += Counted(counts.inferences, "inference");
  }
  const auto add = [&](uint64_t count, const char* what) {
    if (count > 0) text += ", " + std::to_string(count) + " " + what;
  };
  add(counts.failed, "failed");
  add(counts.aside, "put aside");
  add(counts.missing, "not run");
  console_.Say(text);
  if (!undividedLines && counts.done != counts.inferences) TellHowToGoOn();
}

void RunReport::TellHowToGoOn() {
  std::vector<std::string> again = request_.command;
  if (std::find(again.begin(), again.end(), "--resume") == again.end()) {
    again.emplace_back("--resume");
  }
  console_.Say("to go on: " + QuotedCommand(again));
}

}  // namespace vorn::kit
