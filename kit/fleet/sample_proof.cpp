#include "kit/fleet/sample_proof.h"

#include <sys/stat.h>

#include <algorithm>

#include "kit/common/printable.h"
#include "kit/launch/dumps.h"

namespace vorn::kit {
namespace {

bool IsOwnFolder(const std::string& path) {
  struct stat about {};
  return lstat(path.c_str(), &about) == 0 && S_ISDIR(about.st_mode);
}

// Asked without a slash behind the name, for the sake of which a link would be followed.
bool HasOwnDumps(const std::string& run, uint64_t index) {
  const std::string dumps = run + "/" + kDumpsFolder;
  return IsOwnFolder(dumps) && IsOwnFolder(dumps + "/" + std::to_string(index));
}

// A model has each of its outputs once.
bool HasEachOutput(const SampleRecord& record, uint64_t outputs) {
  if (record.outputs.size() != outputs) return false;
  return std::all_of(record.outputs.begin(), record.outputs.end(), [&](const auto& output) {
    return output.index == static_cast<uint64_t>(&output - record.outputs.data());
  });
}

}  // namespace

bool HasPlannedInputs(const SampleRecord& planned, const SampleRecord& found) {
  return std::equal(planned.inputs.begin(), planned.inputs.end(), found.inputs.begin(),
                    found.inputs.end(), [](const auto& one, const auto& other) {
                      return one.file.xxh3 == other.file.xxh3 &&
                             one.file.sizeBytes == other.file.sizeBytes;
                    });
}

std::string WhyNotDone(const std::string& run, const SampleRecord& planned,
                       const SampleRecord& found, uint64_t outputs) {
  if (!HasPlannedInputs(planned, found)) return "it was made of other inputs than planned";
  if (!HasEachOutput(found, outputs)) {
    return "it has " + std::to_string(found.outputs.size()) + " of " + Counted(outputs, "output");
  }
  for (const SampleOutput& output : found.outputs) {
    std::string fault = WhyNotVerified(run, found.index, output);
    if (!fault.empty()) return fault;
  }
  return "";
}

std::string WhyNotVerified(const std::string& run, uint64_t index, const SampleOutput& output) {
  if (!HasOwnDumps(run, index)) return "its folder of outputs is not there";
  for (const std::string& path : {output.path, output.text.value_or(output.path)}) {
    if (NameBelow(DumpsOf(index), path).empty()) {
      return Quoted(path) + " is no place of its outputs";
    }
    struct stat about {};
    const std::string whole = run + "/" + path;
    if (lstat(whole.c_str(), &about) != 0) return Quoted(path) + " is not there";
    if (!S_ISREG(about.st_mode)) return Quoted(path) + " is no regular file";
  }
  return DoesVerify(run, output)
             ? ""
             : "its output " + Quoted(output.path) + " has not the size and hash that were noted";
}

std::string DumpsOf(uint64_t index) {
  return std::string(kDumpsFolder) + "/" + std::to_string(index) + "/";
}

std::string NameBelow(const std::string& folder, const std::string& path) {
  if (!path.starts_with(folder)) return "";
  std::string name = path.substr(folder.size());
  const bool isPlain = name.find('/') == name.npos && name.find('\0') == name.npos;
  if (!isPlain || name == "." || name == "..") return "";
  return name;
}

bool IsOwnFile(const std::string& path) {
  struct stat about {};
  return lstat(path.c_str(), &about) == 0 && S_ISREG(about.st_mode);
}

}  // namespace vorn::kit
