#include "kit/fleet/choice.h"

#include <sys/stat.h>

#include <algorithm>
#include <map>
#include <utility>

#include "kit/common/fault.h"
#include "kit/common/printable.h"
#include "kit/fleet/attempt.h"
#include "kit/launch/dumps.h"

namespace vorn::kit {
namespace {

bool IsOwnFolder(const std::string& path) {
  struct stat about {};
  return lstat(path.c_str(), &about) == 0 && S_ISDIR(about.st_mode);
}

// With a slash behind it, as far as names go; to ask what lies there it goes without, since a link
// is followed for the sake of one.
std::string DumpsOf(uint64_t index) {
  return std::string(kDumpsFolder) + "/" + std::to_string(index) + "/";
}

bool HasOwnDumps(const std::string& run, uint64_t index) {
  const std::string dumps = run + "/" + kDumpsFolder;
  return IsOwnFolder(dumps) && IsOwnFolder(dumps + "/" + std::to_string(index));
}

// The name of a file that lies right in a folder; empty if it does not.
std::string NameBelow(const std::string& folder, const std::string& path) {
  if (!path.starts_with(folder)) return "";
  std::string name = path.substr(folder.size());
  const bool isPlain = name.find('/') == name.npos && name.find('\0') == name.npos;
  if (!isPlain || name == "." || name == "..") return "";
  return name;
}

std::string WhyNotVerified(const std::string& run, uint64_t index, const SampleOutput& output) {
  const std::string told = "its output " + Quoted(output.path);
  for (const std::string& path : {output.path, output.text.value_or(output.path)}) {
    if (NameBelow(DumpsOf(index), path).empty()) {
      return Quoted(path) + " is no place of its outputs";
    }
    struct stat about {};
    const std::string whole = run + "/" + path;
    if (lstat(whole.c_str(), &about) != 0) return Quoted(path) + " is not there";
    if (!S_ISREG(about.st_mode)) return Quoted(path) + " is no regular file";
  }
  return DoesVerify(run, output) ? "" : told + " has not the size and hash that were noted";
}

bool IsOfInputs(const SampleRecord& planned, const SampleRecord& found) {
  return std::equal(planned.inputs.begin(), planned.inputs.end(), found.inputs.begin(),
                    found.inputs.end(), [](const auto& one, const auto& other) {
                      return one.file.xxh3 == other.file.xxh3 &&
                             one.file.sizeBytes == other.file.sizeBytes;
                    });
}

// A model has each of its outputs once.
bool HasEachOutput(const SampleRecord& record, uint64_t outputs) {
  if (record.outputs.size() != outputs) return false;
  return std::all_of(record.outputs.begin(), record.outputs.end(), [&](const auto& output) {
    return output.index == static_cast<uint64_t>(&output - record.outputs.data());
  });
}

// Why an inference that is said to be done does not count.
std::string WhyNotDone(const std::string& run, const FleetPlan& plan, const SampleRecord& planned,
                       const SampleRecord& found) {
  if (!IsOfInputs(planned, found)) return "it was made of other inputs than planned";
  if (!HasEachOutput(found, plan.outputs)) {
    return "it has " + std::to_string(found.outputs.size()) + " of " +
           Counted(plan.outputs, "output");
  }
  if (!HasOwnDumps(run, found.index)) {
    return "its folder of outputs is not there";
  }
  for (const SampleOutput& output : found.outputs) {
    std::string fault = WhyNotVerified(run, found.index, output);
    if (!fault.empty()) return fault;
  }
  return "";
}

// Why nothing of an attempt counts, by what it says of the whole.
std::string WhyNotOfPlan(const AttemptLook& look, const FleetPlan& plan) {
  if (look.facts->model.xxh3 != plan.model.xxh3) {
    return "it ran another model (" + Quoted(look.facts->model.path) + ")";
  }
  return "";
}

void TakeRecords(AttemptLook& look, std::vector<SampleRecord> records) {
  for (SampleRecord& record : records) {
    if (record.index >= look.records.size()) {
      look.fault = "it has inference " + std::to_string(record.index) + " of " +
                   std::to_string(look.records.size());
      return;
    }
    const uint64_t at = record.index;
    look.records[at] = std::move(record);
  }
}

void Read(AttemptLook& look) {
  const std::string& run = look.place.folder;
  for (const char* file : {kRunFile, kSamplesFile}) {
    if (IsOwnFile(run + "/" + file)) continue;
    look.fault = "its " + std::string(file) + " is not there, or no regular file";
    return;
  }
  look.facts = ReadRun(run);
  std::vector<SampleRecord> records = ReadSamples(run);
  if (!look.place.outputs.empty() && OutputsHash(records) != look.place.outputs) {
    look.fault = "its samples are not those that were noted when it ended";
    return;
  }
  TakeRecords(look, std::move(records));
}

SampleRecord AsPlanned(const SampleRecord& planned, SampleStatus status) {
  SampleRecord record = planned;
  record.status = status;
  record.outputs.clear();
  record.reason.reset();
  return record;
}

// Nobody has read the files of an inference that was not run.
SampleRecord Missing(const SampleRecord& planned, const std::string& reason) {
  SampleRecord record = AsPlanned(planned, SampleStatus::kMissing);
  record.reason = reason;
  for (SampleInput& input : record.inputs) {
    input.file.sizeBytes.reset();
    input.file.xxh3.reset();
  }
  return record;
}

// The record of an attempt under the index that the inference has in the list.
SampleRecord Renumbered(const SampleRecord& planned, const SampleRecord& found) {
  SampleRecord record = AsPlanned(planned, found.status);
  record.reason = found.reason;
  const std::string before = DumpsOf(found.index);
  const std::string now = DumpsOf(planned.index);
  for (SampleOutput output : found.outputs) {
    output.path = now + NameBelow(before, output.path);
    if (output.text) output.text = now + NameBelow(before, *output.text);
    record.outputs.push_back(std::move(output));
  }
  return record;
}

// Of an inference that failed what it left may be anything, and is looked at as the rest is.
SampleRecord WithWholeOutputs(const std::string& run, SampleRecord record) {
  std::erase_if(record.outputs, [&](const SampleOutput& output) {
    return !HasOwnDumps(run, record.index) || !WhyNotVerified(run, record.index, output).empty();
  });
  return record;
}

class Chooser {
 public:
  Chooser(const std::vector<AttemptLook>& attempts, const std::set<std::string>& boardsInDoubt)
      : attempts_(attempts) {
    for (size_t i = 0; i < attempts.size(); ++i) {
      if (attempts[i].fault.empty()) order_.push_back(i);
    }
    std::stable_sort(order_.begin(), order_.end(), [&](size_t one, size_t other) {
      return boardsInDoubt.count(attempts[one].place.board) <
             boardsInDoubt.count(attempts[other].place.board);
    });
  }

  [[nodiscard]] ChosenSample Choose(size_t at, const SampleRecord& planned) const {
    for (const size_t i : order_) {
      if (!attempts_[i].HasDone(at)) continue;
      return {.record = Renumbered(planned, attempts_[i].records[at]), .from = i};
    }
    for (const size_t i : order_) {
      const SampleRecord& found = attempts_[i].records[at];
      if (found.status != SampleStatus::kAside && found.status != SampleStatus::kFailed) continue;
      return {.record = Renumbered(planned, WithWholeOutputs(attempts_[i].place.folder, found)),
              .from = i};
    }
    return {.record = Missing(planned, WhyMissing(at)), .from = {}};
  }

  // The attempts that have it done if they do not all have the same.
  [[nodiscard]] std::vector<size_t> Differing(size_t at) const {
    std::vector<size_t> done;
    std::set<std::string> kinds;
    for (size_t i = 0; i < attempts_.size(); ++i) {
      if (!attempts_[i].HasDone(at)) continue;
      done.push_back(i);
      kinds.insert(OutputsHash({attempts_[i].records[at]}));
    }
    return kinds.size() > 1 ? done : std::vector<size_t>();
  }

 private:
  [[nodiscard]] std::string WhyMissing(size_t at) const {
    for (const AttemptLook& look : attempts_) {
      const bool wasRun = look.fault.empty() && !look.faults[at].empty();
      if (!look.fault.empty() || wasRun) {
        return "attempt " + std::to_string(look.place.attempt) +
               " does not count: " + (wasRun ? look.faults[at] : look.fault);
      }
    }
    return "was not run";
  }

  const std::vector<AttemptLook>& attempts_;
  std::vector<size_t> order_;  // those that may count
};

}  // namespace

bool AttemptLook::HasDone(size_t at) const {
  return fault.empty() && records[at].status == SampleStatus::kDone && faults[at].empty();
}

AttemptLook LookInto(const AttemptPlace& place, const FleetPlan& plan,
                     const std::vector<SampleRecord>& planned) {
  AttemptLook look{.place = place,
                   .fault = {},
                   .facts = {},
                   .records = std::vector<SampleRecord>(planned.size()),
                   .faults = std::vector<std::string>(planned.size())};
  try {
    Read(look);
  } catch (const Fault& fault) {
    look.fault = fault.what();
  }
  if (look.fault.empty()) look.fault = WhyNotOfPlan(look, plan);
  if (!look.fault.empty()) return look;
  for (size_t at = 0; at < planned.size(); ++at) {
    const SampleRecord& found = look.records[at];
    if (found.status != SampleStatus::kDone) continue;
    look.faults[at] = WhyNotDone(place.folder, plan, planned[at], found);
  }
  return look;
}

ChunkChoice ChooseSamples(const std::vector<AttemptLook>& attempts,
                          const std::vector<SampleRecord>& planned,
                          const std::set<std::string>& boardsInDoubt) {
  const Chooser chooser(attempts, boardsInDoubt);
  ChunkChoice choice;
  for (size_t at = 0; at < planned.size(); ++at) {
    choice.samples.push_back(chooser.Choose(at, planned[at]));
    std::vector<size_t> differing = chooser.Differing(at);
    if (differing.empty()) continue;
    const auto& inputs = planned[at].inputs;
    choice.differences.push_back({.index = planned[at].index,
                                  .line = inputs.empty() ? 0 : inputs.front().line,
                                  .attempts = std::move(differing)});
  }
  return choice;
}

bool IsOwnFile(const std::string& path) {
  struct stat about {};
  return lstat(path.c_str(), &about) == 0 && S_ISREG(about.st_mode);
}

}  // namespace vorn::kit
