#include "kit/fleet/slurm.h"

#include <unistd.h>

#include <charconv>

#include "kit/common/fault.h"
#include "kit/common/printable.h"
#include "kit/fleet/child.h"
#include "kit/launch/run_folder.h"

namespace vorn::kit {
namespace {

constexpr size_t kMostSaid = 16 << 20;
constexpr std::string_view kDigits = "0123456789";
constexpr std::string_view kSpaces = " \t";

std::vector<std::string_view> LinesOf(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const size_t end = std::min(text.find('\n'), text.size());
    if (end > 0) lines.push_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines;
}

}  // namespace

std::string JobIdIn(std::string_view said) {
  const std::vector<std::string_view> lines = LinesOf(said);
  if (lines.empty()) return "";
  const std::string_view id = lines.back().substr(0, lines.back().find(';'));
  const bool isId = !id.empty() && id.find_first_not_of(kDigits) == std::string_view::npos;
  return isId ? std::string(id) : "";
}

std::optional<uint64_t> MaxArraySizeIn(std::string_view said) {
  constexpr std::string_view kName = "MaxArraySize";
  for (std::string_view line : LinesOf(said)) {
    if (!line.starts_with(kName)) continue;
    line.remove_prefix(kName.size());
    const size_t equals = line.find_first_not_of(kSpaces);
    if (equals == std::string_view::npos || line[equals] != '=') continue;
    const size_t at = line.find_first_not_of(kSpaces, equals + 1);
    if (at == std::string_view::npos) continue;
    uint64_t size = 0;
    const auto [end, error] = std::from_chars(line.data() + at, line.data() + line.size(), size);
    if (error == std::errc() && size > 0) return size;
  }
  return std::nullopt;
}

Slurm::Answer Slurm::Ask(const std::vector<std::string>& words, const std::string& input,
                         StopSignals& signals) {
  constexpr std::chrono::seconds kLongest{300};
  const ChildRequest ask{.command = words,
                         .folder = {},
                         .input = input,
                         .inputFile = {},
                         .isKeptAlive = false,
                         .out = scratch_ + "/slurm.out",
                         .err = scratch_ + "/slurm.err",
                         .limit = kLongest};
  const ChildEnd end = RunChild(ask, signals);
  return {.isDone = end.IsDone(), .text = ReadFrom(ask.out, 0, kMostSaid)};
}

Slurm::Answer Slurm::Need(const std::vector<std::string>& words) {
  Answer answer = Ask(words, "", signals_);
  if (answer.isDone || signals_.Asked() != 0) return answer;
  const std::string said = Said();
  throw Fault(ExitStatus::kUsage, "Slurm does not answer '" + QuotedCommand(words) + "'" +
                                      (said.empty() ? "" : ", it said: " + said) +
                                      "; look whether its programs are here and SLURM_CONF is "
                                      "right");
}

std::string Slurm::Said() const { return LastLineOf(scratch_ + "/slurm.err"); }

uint64_t Slurm::MaxArraySize() {
  constexpr uint64_t kWithoutWord = 1001;  // as Slurm has it where nobody set it
  return MaxArraySizeIn(Need({"scontrol", "show", "config"}).text).value_or(kWithoutWord);
}

std::set<std::string> Slurm::Nodes() {
  std::set<std::string> nodes;
  const Answer answer = Need({"sinfo", "--noheader", "--Node", "--format=%N"});
  for (const std::string_view line : LinesOf(answer.text)) nodes.emplace(line);
  return nodes;
}

std::string Slurm::Submit(const Submission& submission) {
  std::vector<std::string> words{"sbatch", "--parsable"};
  words.insert(words.end(), submission.words.begin(), submission.words.end());
  const Answer answer = Ask(words, submission.script, signals_);
  std::string id = JobIdIn(answer.text);
  if (answer.isDone && !id.empty()) return id;
  if (signals_.Asked() != 0) throw Fault(ExitStatus::kPartial, "was stopped");
  throw Fault(ExitStatus::kUsage,
              "Slurm took no job by '" + QuotedCommand(words) + "'; it said: " + Said());
}

Slurm::Place Slurm::PlaceOf(const std::string& id) {
  const Answer answer = Ask({"squeue", "--noheader", "--jobs=" + id, "--format=%i"}, "", signals_);
  if (answer.isDone) return answer.text.empty() ? Place::kGone : Place::kInQueue;
  // Slurm forgets jobs some minutes behind their end.
  const bool isForgotten = Said().find("Invalid job id") != std::string::npos;
  return isForgotten ? Place::kGone : Place::kNotKnown;
}

bool Slurm::Cancel(const std::string& id) {
  StopSignals anew;
  return Ask({"scancel", id}, "", anew).isDone;
}

bool Slurm::Requeue(const std::string& id) {
  StopSignals anew;
  // Of the job that this runs in it is the end: it may come sooner than the answer.
  return Ask({"scontrol", "requeue", id}, "", anew).isDone || anew.Asked() != 0;
}

}  // namespace vorn::kit
