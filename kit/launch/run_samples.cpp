#include "kit/launch/run_samples.h"

#include <algorithm>
#include <utility>

#include "kit/common/printable.h"

namespace vorn::kit {
namespace {

constexpr size_t kMostKeptInputs = 64;

std::string Joined(const std::vector<std::string>& texts) {
  std::string joined;
  for (const std::string& text : texts) joined += (joined.empty() ? "" : "; ") + text;
  return joined;
}

}  // namespace

void CountSample(SampleStatus status, SampleCounts& counts) {
  switch (status) {
    case SampleStatus::kDone:
      ++counts.done;
      break;
    case SampleStatus::kFailed:
      ++counts.failed;
      break;
    case SampleStatus::kAside:
      ++counts.aside;
      break;
    case SampleStatus::kMissing:
      ++counts.missing;
      break;
  }
}

RunSamples::RunSamples(const LaunchRequest& request, const Plan& plan, const RunFolder& folder,
                       RunReport& report)
    : request_(request),
      plan_(plan),
      folder_(folder),
      report_(report),
      file_(folder.Path(kSamplesFile)) {
  Restart();
}

void RunSamples::Restart() {
  isDone_.assign(plan_.inferences, false);
  done_ = failed_ = aside_ = 0;
}

SampleCounts RunSamples::CountsSoFar(uint64_t dumped) const {
  SampleCounts counts;
  counts.inferences = plan_.inferences;
  uint64_t left = plan_.inferences;
  const auto take = [&](uint64_t count) {
    const uint64_t taken = std::min(count, left);
    left -= taken;
    return taken;
  };
  counts.failed = take(failed_);
  counts.aside = take(aside_);
  counts.done = take(done_ + dumped);
  counts.missing = left;
  return counts;
}

void RunSamples::TakeBefore(const std::function<bool()>& mayGoOn) {
  const auto verifies = [&](const SampleOutput& output) {
    return DoesVerify(request_.run, output, mayGoOn);
  };
  ForEachLine(folder_.Path(kSamplesFile), "the samples of the run", ExitStatus::kInput,
              [&](std::string_view line) {
                const SampleRecord record = SampleFromLine(line);
                if (record.index >= isDone_.size() || !mayGoOn()) return;
                const bool isWhole = record.status == SampleStatus::kDone &&
                                     record.outputs.size() == plan_.model.outputs.size();
                Mark(record.index,
                     isWhole && HasItsInputs(record) &&
                         std::all_of(record.outputs.begin(), record.outputs.end(), verifies));
              });
}

void RunSamples::Take(uint64_t index, const std::string& dumps) {
  TakeFound(index, dumps, Inspect(dumps));
}

void RunSamples::TakeIfWhole(uint64_t index, const std::string& dumps) {
  DumpsFound found = Inspect(dumps);
  if (found.faults.empty()) TakeFound(index, dumps, std::move(found));
}

void RunSamples::TakeFound(uint64_t index, const std::string& dumps, DumpsFound found) {
  SampleRecord record = RecordOf(index, true);
  const std::string name = std::string(kDumpsFolder) + "/" + std::to_string(index);
  if (dumps != folder_.Path(name)) {
    if (!MoveFolderIfThere(dumps, folder_.Path(name))) RemoveTree(folder_.Path(name));
  }
  for (SampleOutput& output : found.outputs) {
    output.path = name + "/" + output.path;
    if (output.text) output.text = name + "/" + *output.text;
  }
  record.outputs = std::move(found.outputs);
  record.status = found.faults.empty() ? SampleStatus::kDone : SampleStatus::kFailed;
  if (!found.faults.empty()) {
    record.reason = Joined(found.faults);
    report_.TellOfTrouble(record, "failed");
    ++failed_;
  }
  Mark(index, found.faults.empty());
  if (!found.unfit.empty()) {
    report_.Warn("not-finite", 1,
                 "outputs hold " + std::to_string(found.nans) + " NaN and " +
                     Counted(found.infinities, "infinite value") + ", first " +
                     Quoted(found.unfit.front()) + " of inference " + std::to_string(index) + " (" +
                     report_.PlaceOf(record) + ")");
  }
  lines_ += ToLine(record);
}

void RunSamples::PutAside(uint64_t index, bool isToBlame, const std::string& reason) {
  SampleRecord record = RecordOf(index, true);
  record.status = isToBlame ? SampleStatus::kAside : SampleStatus::kFailed;
  record.reason = reason;
  report_.TellOfTrouble(record, isToBlame ? "put aside" : "failed");
  ++(isToBlame ? aside_ : failed_);
  lines_ += ToLine(record);
}

void RunSamples::Write() {
  file_.Append(lines_);
  file_.Sync();
  lines_.clear();
}

void RunSamples::Finish() {
  SampleCounts& counts = report_.Facts().counts;
  counts = {};
  counts.inferences = plan_.inferences;
  SampleRecord before;
  SortSamples(
      folder_.Path(kSamplesFile), plan_.inferences,
      [&](uint64_t index) {
        SampleRecord record = RecordOf(index, false);
        record.status = SampleStatus::kMissing;
        record.reason = "was not run";
        return record;
      },
      [&](const SampleRecord& record) {
        CountSample(record.status, counts);
        if (IsRepeated(before, record)) {
          report_.Warn(kRepeatedWarning, 1, RepeatedText(record.index, report_.PlaceOf(record)));
        }
        before = record;
      });
}

// Whether the files that it was made of are what they were.
bool RunSamples::HasItsInputs(const SampleRecord& record) {
  if (!plan_.isModelKnown) return true;
  const SampleRecord now = RecordOf(record.index, true);
  return std::equal(
      now.inputs.begin(), now.inputs.end(), record.inputs.begin(), record.inputs.end(),
      [](const auto& one, const auto& other) { return one.file.xxh3 == other.file.xxh3; });
}

void RunSamples::Mark(uint64_t index, bool isDone) {
  if (isDone && !isDone_[index]) ++done_;
  if (!isDone && isDone_[index]) --done_;
  isDone_[index] = isDone;
}

DumpsFound RunSamples::Inspect(const std::string& dumps) const {
  return InspectDumps(dumps, plan_.model,
                      {.isTextKept = request_.isTextKept,
                       .areArrays = request_.areArrays,
                       .batch = BatchOf(plan_, request_)});
}

SampleRecord RunSamples::RecordOf(uint64_t index, bool areFilesRead) {
  SampleRecord record{.index = index, .status = {}, .inputs = {}, .outputs = {}, .reason = {}};
  if (!plan_.isModelKnown) return record;
  for (const ListedInput& input : plan_.InputsOf(index)) {
    FileIdentity file{.path = input.file, .sizeBytes = {}, .xxh3 = {}};
    if (areFilesRead) file = Identify(input.file);
    record.inputs.push_back(
        {.line = input.line, .name = input.name, .path = input.path, .file = std::move(file)});
  }
  return record;
}

FileIdentity RunSamples::Identify(const std::string& input) {
  if (const auto known = inputs_.find(input); known != inputs_.end()) return known->second;
  FileIdentity file{.path = input, .sizeBytes = {}, .xxh3 = {}};
  try {
    file = IdentifyFile(input, "the input", ExitStatus::kInput);
  } catch (const Fault&) {
    // It was not there for the program either.
  }
  if (inputs_.size() >= kMostKeptInputs) inputs_.clear();
  inputs_[input] = file;
  return file;
}

}  // namespace vorn::kit
