#include "kit/tensor/tensor_source.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <map>

#include "kit/common/fault.h"
#include "kit/common/file_identity.h"
#include "kit/common/printable.h"
#include "kit/json/json.h"
#include "kit/model/model_json.h"
#include "kit/run/output_names.h"
#include "kit/run/run_directory.h"
#include "kit/tensor/npy.h"
#include "kit/tensor/npz.h"
#include "kit/tensor/onnx_tensor.h"

namespace vorn::kit {
namespace {

namespace fs = std::filesystem;

constexpr uint64_t kMostJsonBytes = 256 << 20;

// In the order in which they are taken where an output has several.
constexpr std::array<std::string_view, 5> kEndings{".bin", ".npy", ".pb", ".npz", ".float"};

[[noreturn]] void RefuseSource(const std::string& path, const std::string& reason) {
  throw Fault(ExitStatus::kInput, "'" + Printable(path) + "' " + reason);
}

std::optional<uint64_t> WholeNumber(std::string_view text) {
  uint64_t number = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (text.empty() || error != std::errc{} || stop != end) return std::nullopt;
  return number;
}

struct Entry {
  std::string name;
  bool isFolder = false;
};

// What is in a folder, by name.
std::vector<Entry> EntriesOf(const std::string& folder) {
  std::vector<Entry> entries;
  std::error_code error;
  fs::directory_iterator at(folder, error);
  for (; !error && at != fs::directory_iterator(); at.increment(error)) {
    std::error_code ignored;
    entries.push_back({at->path().filename().string(), at->is_directory(ignored)});
  }
  if (error) RefuseSource(folder, "cannot be listed: " + error.message());
  std::sort(entries.begin(), entries.end(),
            [](const Entry& a, const Entry& b) { return a.name < b.name; });
  return entries;
}

std::optional<size_t> EndingOf(const std::string& name) {
  for (size_t i = 0; i < kEndings.size(); ++i) {
    if (name.size() > kEndings[i].size() && name.ends_with(kEndings[i])) return i;
  }
  return std::nullopt;
}

std::string WithoutEnding(const std::string& name) {
  return name.substr(0, name.size() - kEndings[*EndingOf(name)].size());
}

bool IsArchive(const std::string& name) { return name.ends_with(".npz"); }

// An ONNX output's place among the outputs, from its file name.
std::optional<uint64_t> OnnxPlace(const std::string& name) {
  constexpr std::string_view kFront = "output_";
  if (!name.starts_with(kFront) || !name.ends_with(".pb")) return std::nullopt;
  return WholeNumber(std::string_view(name).substr(kFront.size(), name.size() - kFront.size() - 3));
}

std::vector<OutputPlace> OnnxOutputs(const std::string& folder) {
  std::map<uint64_t, OutputPlace> byPlace;
  for (const Entry& entry : EntriesOf(folder)) {
    const auto place = OnnxPlace(entry.name);
    if (!place) continue;
    const std::string path = folder + "/" + entry.name;
    byPlace[*place] = {SpelledAsDump(OpenOnnxTensor(path).name), path};
  }
  std::vector<OutputPlace> outputs;
  for (auto& [place, output] : byPlace) outputs.push_back(std::move(output));
  return outputs;
}

// The arrays of an archive, an array an output.
std::vector<OutputPlace> ArraysIn(const std::string& path) {
  std::map<std::string, std::string> arrays;
  std::vector<OutputPlace> outputs;
  for (const std::string& array : ArrayArchive(path).Names()) {
    const std::string name = SpelledAsDump(array);
    const auto [at, isNew] = arrays.try_emplace(name, array);
    if (!isNew) {
      RefuseSource(path, "holds the arrays " + Quoted(at->second) + " and " + Quoted(array) +
                             ", which a dump both spells '" + Printable(name) + "'; rename one");
    }
    outputs.push_back({name, path, array});
  }
  return outputs;
}

// What a file of a sample's folder holds.
std::vector<OutputPlace> OutputsOf(const std::string& folder, const std::string& file) {
  const std::string path = folder + "/" + file;
  if (IsArchive(file)) return ArraysIn(path);
  return {{OutputNameOfDump(WithoutEnding(file)), path}};
}

// The files of one sample, one an output.
std::vector<OutputPlace> OutputsIn(const std::string& folder) {
  struct Found {
    size_t ending;
    std::string file;
    OutputPlace output;
  };
  std::map<std::string, Found> byName;
  for (const Entry& entry : EntriesOf(folder)) {
    const auto ending = EndingOf(entry.name);
    if (!ending || entry.isFolder || entry.name.starts_with('.')) continue;
    for (const OutputPlace& output : OutputsOf(folder, entry.name)) {
      const auto [at, isNew] = byName.try_emplace(output.name, Found{*ending, entry.name, output});
      if (isNew) continue;
      // The text beside a dump is the same dump; two of a kind are not.
      if (at->second.ending == *ending) {
        RefuseSource(folder, "holds two dumps of the output '" + Printable(output.name) + "', " +
                                 Printable(at->second.file) + " and " + Printable(entry.name) +
                                 "; remove the one that is not meant");
      }
      if (*ending < at->second.ending) at->second = {*ending, entry.name, output};
    }
  }
  std::vector<OutputPlace> outputs;
  for (auto& [name, found] : byName) outputs.push_back(std::move(found.output));
  return outputs;
}

// Samples that are wanted; null for all of them.
using Wanted = const std::set<uint64_t>*;

std::vector<SampleSource> NumberedFolders(const std::string& folder, std::string_view front,
                                          bool areOnnx, Wanted wanted) {
  std::vector<SampleSource> samples;
  for (const Entry& entry : EntriesOf(folder)) {
    if (!entry.isFolder || !entry.name.starts_with(front)) continue;
    const auto index = WholeNumber(std::string_view(entry.name).substr(front.size()));
    if (!index || (wanted != nullptr && wanted->count(*index) == 0)) continue;
    const std::string path = folder + "/" + entry.name;
    samples.push_back({*index, areOnnx ? OnnxOutputs(path) : OutputsIn(path), {}, {}});
  }
  std::sort(samples.begin(), samples.end(),
            [](const SampleSource& a, const SampleSource& b) { return a.index < b.index; });
  for (size_t i = 1; i < samples.size(); ++i) {
    if (samples[i].index == samples[i - 1].index) {
      RefuseSource(folder, "holds two folders with the number " + std::to_string(samples[i].index));
    }
  }
  return samples;
}

// ---- Run directories ----------------------------------------------------------------------------

// Of a dump that is not what the run has left.
std::optional<std::string> WhatChanged(const std::string& folder, const SampleOutput& output) {
  std::error_code error;
  const auto bytes = fs::file_size(folder + "/" + output.path, error);
  const std::string told = "its dump '" + Printable(output.path) + "' ";
  if (error) return told + "cannot be read: " + error.message();
  if (bytes == output.sizeBytes) return std::nullopt;
  return told + "has " + std::to_string(bytes) + " bytes, and had " +
         std::to_string(output.sizeBytes) + " when the run ended";
}

SampleSource FromRecord(const std::string& folder, const SampleRecord& record) {
  SampleSource sample;
  sample.index = record.index;
  for (const SampleInput& input : record.inputs) {
    sample.inputs.push_back(fs::path(input.path).filename().string());
  }
  if (record.status != SampleStatus::kDone) {
    sample.absence = record.reason.value_or("it is not done");
    return sample;
  }
  for (const SampleOutput& output : record.outputs) {
    if (const auto change = WhatChanged(folder, output)) {
      sample.absence = *change;
      sample.outputs.clear();
      return sample;
    }
    const std::string file = fs::path(output.path).filename().string();
    const std::string name = EndingOf(file) ? OutputNameOfDump(WithoutEnding(file)) : file;
    sample.outputs.push_back({name, folder + "/" + output.path});
  }
  return sample;
}

TensorSource EmptySource(const std::string& path, const char* kind) {
  TensorSource source;
  source.path = path;
  source.kind = kind;
  return source;
}

// Of a run that goes on, or was killed, there may be fewer samples than are meant. Whatever else a
// run.json of another hand may lack, nothing is needed but what it says of that.
std::string WhyUnfinished(const std::string& folder, size_t samples) {
  const std::string path = folder + "/" + kRunFile;
  if (!fs::exists(path)) return {};
  const std::string text = ReadWholeFile(path, "the run", ExitStatus::kInput, kMostJsonBytes);
  try {
    const Json facts = ParseJson(text);
    const Json* state = facts.Find("state");
    const Json* counts = facts.Find("counts");
    const Json* inferences = counts != nullptr ? counts->Find("inferences") : nullptr;
    const uint64_t meant = inferences != nullptr ? inferences->AsUnsigned() : 0;
    std::string count = Counted(samples, "sample");
    if (samples < meant) count += " of " + std::to_string(meant);
    if (state != nullptr && state->AsText() == "running") {
      return "the run '" + folder + "' has not ended: its run.json says \"running\", and it has " +
             count + "; judge it again when it has, or finish it with vorn launch --resume";
    }
    return samples < meant ? "the run '" + folder + "' ended early, with " + count : "";
  } catch (const JsonError& error) {
    throw Fault(ExitStatus::kInput, "the run '" + Printable(path) + "': " + error.what());
  }
}

// Short names that the run's program gave are of no use to whoever knows the model.
void TakeLongNames(TensorSource& source) {
  const std::map<std::string, std::string> longNames = LongNamesIn(ProgramErrorsOf(source.path));
  if (longNames.empty()) return;
  std::map<std::string, std::string> spelled;
  for (const auto& [shortName, name] : longNames) {
    spelled.emplace(SpelledAsDump(shortName), SpelledAsDump(name));
  }
  for (SampleSource& sample : source.samples) {
    for (OutputPlace& output : sample.outputs) {
      const auto found = spelled.find(output.name);
      if (found != spelled.end()) output.name = found->second;
    }
  }
  if (!source.model) return;
  for (TensorDescription& output : source.model->outputs) {
    const auto found = longNames.find(output.name);
    if (found != longNames.end()) output.name = found->second;
  }
}

// Of a sample that stands there several times the last line counts.
std::vector<SampleRecord> ReadSamplesOf(const std::string& folder, Wanted wanted) {
  if (wanted == nullptr) return ReadSamples(folder);
  std::map<uint64_t, SampleRecord> byIndex;
  ForEachLine(folder + "/" + kSamplesFile, "the samples", ExitStatus::kInput,
              [&](std::string_view line) {
                const auto front = FrontOfSample(line);
                if (front && wanted->count(front->index) == 0) return;
                SampleRecord record = SampleFromLine(line);
                if (wanted->count(record.index) > 0) byIndex[record.index] = std::move(record);
              });
  std::vector<SampleRecord> records;
  for (auto& [index, record] : byIndex) records.push_back(std::move(record));
  return records;
}

TensorSource OpenRun(const std::string& folder, Wanted wanted) {
  TensorSource source = EmptySource(folder, "the run directory");
  source.isRun = true;
  if (fs::exists(folder + "/" + kSamplesFile)) {
    for (const SampleRecord& record : ReadSamplesOf(folder, wanted)) {
      source.samples.push_back(FromRecord(folder, record));
    }
  } else if (fs::is_directory(folder + "/" + kDumpsFolder)) {
    source.samples = NumberedFolders(folder + "/" + kDumpsFolder, "", false, wanted);
  }
  if (wanted == nullptr) source.unfinished = WhyUnfinished(folder, source.samples.size());
  if (fs::exists(folder + "/" + kModelFile)) {
    source.model = FromJson(ReadWholeFile(folder + "/" + kModelFile, "the run's description",
                                          ExitStatus::kModel, kMostJsonBytes));
  }
  TakeLongNames(source);
  return source;
}

// Outputs that may hold all samples. An array that has to be unpacked is so once, not once a
// sample.
void TakeStacked(TensorSource& source, std::vector<OutputPlace> outputs) {
  source.mayBeStacked = true;
  for (OutputPlace& output : outputs) {
    if (IsArchive(output.path)) output.kept = std::make_shared<std::optional<StoredTensor>>();
  }
  source.samples.push_back({0, std::move(outputs), {}, {}});
}

TensorSource OpenFolder(const std::string& folder, Wanted wanted) {
  const auto has = [&](const char* name) { return fs::exists(folder + "/" + name); };
  if (has(kRunFile) || has(kSamplesFile)) return OpenRun(folder, wanted);
  TensorSource source = EmptySource(folder, "the test folders");
  source.samples = NumberedFolders(folder, "test_data_set_", true, wanted);
  if (!source.samples.empty()) return source;
  if (auto outputs = OnnxOutputs(folder); !outputs.empty()) {
    source.kind = "the test folder";
    source.samples.push_back({0, std::move(outputs), {}, {}});
    return source;
  }
  source.kind = "the dumps";
  source.samples = NumberedFolders(folder, "", false, wanted);
  if (!source.samples.empty()) return source;
  if (auto outputs = OutputsIn(folder); !outputs.empty()) {
    source.kind = "the folder";
    TakeStacked(source, std::move(outputs));
    return source;
  }
  if (has("A/run.json") || has("A/samples.jsonl")) {
    RefuseSource(folder, "holds two runs that took turns; name '" + Printable(folder) + "/A' or '" +
                             Printable(folder) + "/B'");
  }
  RefuseSource(folder,
               "holds nothing to compare: no run directory (run.json), no numbered folders of "
               "dumps, no test_data_set_* folders, no .bin, .float, .npy, .npz or .pb");
}

StoredTensor OpenOnlyArray(const std::string& path) {
  const ArrayArchive archive(path);
  const std::vector<std::string> names = archive.Names();
  if (names.empty()) RefuseSource(path, kNoArrays);
  if (names.size() > 1) {
    RefuseSource(path, "holds " + Counted(names.size(), "array") + ", and one is needed here");
  }
  return archive.Open(names.front());
}

TensorSource FindIn(const std::string& path, Wanted wanted) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (!fs::exists(status)) RefuseSource(path, "is not there");
  std::string folder = path;
  while (folder.size() > 1 && folder.ends_with('/')) folder.pop_back();
  if (fs::is_directory(status)) return OpenFolder(folder, wanted);
  const std::string file = fs::path(path).filename().string();
  if (!EndingOf(file)) {
    RefuseSource(path, "is a file of no kind that is read: .bin, .float, .npy, .npz or .pb");
  }
  TensorSource source = EmptySource(path, IsArchive(file) ? "the archive" : "the file");
  std::vector<OutputPlace> outputs{{"", path}};
  if (IsArchive(file)) outputs = ArraysIn(path);
  if (outputs.empty()) RefuseSource(path, kNoArrays);
  TakeStacked(source, std::move(outputs));
  return source;
}

}  // namespace

std::string SpelledAsDump(std::string name) {
  for (char& c : name) {
    if (c == '.' || c == '/' || c == '\\') c = '_';
  }
  return name;
}

std::string OutputNameOfDump(const std::string& fileName) {
  const size_t time = fileName.rfind('.');
  if (time == std::string::npos || time == 0) return SpelledAsDump(fileName);
  const size_t number = fileName.rfind('.', time - 1);
  if (number == std::string::npos || number == 0) return SpelledAsDump(fileName);
  const auto duplicate =
      WholeNumber(std::string_view(fileName).substr(number + 1, time - number - 1));
  if (!duplicate || !WholeNumber(std::string_view(fileName).substr(time + 1))) {
    return SpelledAsDump(fileName);
  }
  const std::string name = SpelledAsDump(fileName.substr(0, number));
  return *duplicate == 0 ? name : name + "#" + std::to_string(*duplicate);
}

StoredTensor OpenTensor(const std::string& path) {
  if (path.ends_with(".npy")) return OpenNpy(path);
  if (IsArchive(path)) return OpenOnlyArray(path);
  if (path.ends_with(".pb")) return OpenOnnxTensor(path);
  if (path.ends_with(".float")) return OpenDumpText(path);
  return OpenDump(path);
}

StoredTensor OpenTensor(const OutputPlace& place) {
  if (!IsArchive(place.path)) return OpenTensor(place.path);
  if (place.kept == nullptr) return ArrayArchive(place.path).Open(place.array);
  if (!place.kept->has_value()) *place.kept = ArrayArchive(place.path).Open(place.array);
  return **place.kept;
}

TensorSource FindTensors(const std::string& path) { return FindIn(path, nullptr); }

TensorSource FindTensors(const std::string& path, const std::set<uint64_t>& samples) {
  return FindIn(path, &samples);
}

}  // namespace vorn::kit
