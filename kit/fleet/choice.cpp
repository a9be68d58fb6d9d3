#include "kit/fleet/choice.h"

#include <algorithm>
#include <map>
#include <utility>

#include "kit/common/fault.h"
#include "kit/common/printable.h"
#include "kit/fleet/attempt.h"
#include "kit/fleet/sample_proof.h"

namespace vorn::kit {
namespace {

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
  AttemptSaid said = ReadAttempt(look.place.folder);
  look.facts = std::move(said.facts);
  if (!look.place.outputs.empty() && OutputsHash(said.samples) != look.place.outputs) {
    look.fault = "its samples are not those that were noted when it ended";
    return;
  }
  TakeRecords(look, std::move(said.samples));
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
    return !WhyNotVerified(run, record.index, output).empty();
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
  if (look.fault.empty()) look.fault = WhyNotOfPlan(*look.facts, plan);
  if (!look.fault.empty()) return look;
  for (size_t at = 0; at < planned.size(); ++at) {
    const SampleRecord& found = look.records[at];
    if (found.status != SampleStatus::kDone) continue;
    look.faults[at] = WhyNotDone(place.folder, planned[at], found, plan.outputs);
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

}  // namespace vorn::kit
