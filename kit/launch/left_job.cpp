#include "kit/launch/left_job.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "kit/common/fault.h"
#include "kit/common/file_identity.h"
#include "kit/common/folder_names.h"
#include "kit/common/whole_file.h"
#include "kit/json/json.h"
#include "kit/launch/run_folder.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostJobNoteBytes = 256 << 20;

std::string NoteIn(const std::string& folder) { return folder + "/job.json"; }

// Another one with each start of the machine.
std::string Boot() {
  std::string id = ReadFrom("/proc/sys/kernel/random/boot_id", 0, 64);
  while (!id.empty() && id.back() == '\n') id.pop_back();
  return id;
}

// Indices follow each other but for those that were done before: first ones and how many.
Json FromIndices(const std::vector<uint64_t>& indices) {
  Json rows = Json::Array();
  for (size_t i = 0; i < indices.size();) {
    size_t end = i + 1;
    while (end < indices.size() && indices[end] == indices[end - 1] + 1) ++end;
    rows.Append(Json::Array({indices[i], uint64_t{end - i}}));
    i = end;
  }
  return rows;
}

std::vector<uint64_t> ToIndices(const Json& rows, uint64_t inferences) {
  std::vector<uint64_t> indices;
  for (const Json& row : rows.Items()) {
    const auto& items = row.Items();
    if (items.size() != 2) throw JsonError("a row has a first index and a count");
    const uint64_t first = items[0].AsUnsigned();
    const uint64_t count = items[1].AsUnsigned();
    const bool isBehind = indices.empty() || first > indices.back();
    if (!isBehind || first > inferences || count > inferences - first) {
      throw JsonError("these are no indices of the run");
    }
    for (uint64_t i = 0; i < count; ++i) indices.push_back(first + i);
  }
  return indices;
}

// "3.1": the chunk and the attempt.
std::optional<std::pair<uint64_t, uint64_t>> NumbersIn(const std::string& name) {
  std::pair<uint64_t, uint64_t> numbers;
  const char* const end = name.data() + name.size();
  const auto chunk = std::from_chars(name.data(), end, numbers.first);
  if (chunk.ec != std::errc{} || chunk.ptr == end || *chunk.ptr != '.') return std::nullopt;
  const auto attempt = std::from_chars(chunk.ptr + 1, end, numbers.second);
  if (attempt.ec != std::errc{} || attempt.ptr != end) return std::nullopt;
  return numbers;
}

}  // namespace

void WriteJobNote(const std::string& folder, const JobNote& note) {
  const Json object = Json::Object({{"schema", 1},
                                    {"boot", Boot()},
                                    {"launcher", int64_t{note.launcher}},
                                    {"logAt", note.logAt},
                                    {"words", Json::ArrayOf(note.words)},
                                    {"indices", FromIndices(note.indices)}});
  // Of use only until the machine is started anew, so that nothing has to wait for the disk.
  LineFile(NoteIn(folder)).Append(ToText(object) + "\n");
}

std::optional<JobNote> ReadJobNote(const std::string& folder, uint64_t inferences) {
  try {
    const Json object = ParseJson(
        ReadWholeFile(NoteIn(folder), "the note of a job", ExitStatus::kInput, kMostJobNoteBytes));
    if (object.At("schema").AsUnsigned() != 1) return std::nullopt;
    const std::string boot = Boot();
    if (boot.empty() || object.At("boot").AsText() != boot) return std::nullopt;
    JobNote note;
    note.launcher = static_cast<pid_t>(object.At("launcher").AsSigned());
    note.logAt = object.At("logAt").AsUnsigned();
    for (const Json& word : object.At("words").Items()) note.words.push_back(word.AsText());
    note.indices = ToIndices(object.At("indices"), inferences);
    return note;
  } catch (const Fault&) {
    return std::nullopt;
  } catch (const JsonError&) {
    return std::nullopt;
  }
}

std::vector<LeftJob> FindLeftJobs(const std::string& chunks) {
  std::vector<LeftJob> jobs;
  for (const std::string& name : NamesIn(chunks)) {
    if (const auto numbers = NumbersIn(name)) {
      jobs.push_back(
          {.folder = chunks + "/" + name, .chunk = numbers->first, .attempt = numbers->second});
    }
  }
  std::sort(jobs.begin(), jobs.end(), [](const LeftJob& one, const LeftJob& other) {
    return std::pair(one.chunk, one.attempt) < std::pair(other.chunk, other.attempt);
  });
  return jobs;
}

}  // namespace vorn::kit
