// Reads labels, pictures and dumps from the digits folder and the output folder.

#include "digits/results.h"

#include <charconv>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <string_view>
#include <utility>

namespace digits {
namespace {

namespace fs = std::filesystem;

int Fail(const std::string& line) {
  std::cerr << "digits-report: " << line << "\n";
  return 1;
}

// Empty lines are skipped, as vorn-run skips them in a list.
int ReadLines(const fs::path& path, std::vector<std::string>& lines) {
  std::ifstream file(path);
  if (!file) {
    return Fail("cannot open " + path.string() +
                ". Give the folder of the digits first, then the output folder.");
  }
  for (std::string line; std::getline(file, line);) {
    if (!line.empty()) lines.push_back(line);
  }
  return 0;
}

// Copies a file of exactly `size` bytes to `bytes`; `what` and `advice` complete the message.
int ReadExactly(const fs::path& path, void* bytes, std::size_t size, const std::string& what,
                const std::string& advice) {
  std::error_code error;
  const std::uintmax_t found = fs::file_size(path, error);
  if (error) return Fail("cannot read " + path.string() + ": " + error.message() + ". " + advice);
  if (found != size) {
    return Fail(path.string() + " holds " + std::to_string(found) + " bytes, expected " +
                std::to_string(size) + " (" + what + "). " + advice);
  }
  std::ifstream file(path, std::ios::binary);
  if (!file.read(static_cast<char*>(bytes), static_cast<std::streamsize>(size))) {
    return Fail("cannot read " + path.string() + ". " + advice);
  }
  return 0;
}

int ParseLabel(const std::string& line, std::size_t& label) {
  if (line.size() != 1 || line[0] < '0' || line[0] > '9') {
    return Fail("labels.txt holds the line \"" + line +
                "\", expected one digit. Restore the file, or run train.py.");
  }
  label = static_cast<std::size_t>(line[0] - '0');
  return 0;
}

std::optional<std::uint64_t> ParseStamp(std::string_view fileName) {
  constexpr std::string_view kBegin = "probabilities.0.";
  constexpr std::string_view kEnd = ".bin";
  if (!fileName.starts_with(kBegin) || !fileName.ends_with(kEnd)) return std::nullopt;
  if (fileName.size() <= kBegin.size() + kEnd.size()) return std::nullopt;
  fileName.remove_prefix(kBegin.size());
  fileName.remove_suffix(kEnd.size());
  std::uint64_t stamp = 0;
  const char* end = fileName.data() + fileName.size();
  const auto parsed = std::from_chars(fileName.data(), end, stamp);
  if (parsed.ec != std::errc() || parsed.ptr != end) return std::nullopt;
  return stamp;
}

// Empty for a folder that is missing or cannot be read.
std::vector<std::string> ListFileNames(const fs::path& folder) {
  std::vector<std::string> names;
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    names.push_back(entry->path().filename().string());
  }
  return names;
}

int ReadProbabilities(const fs::path& outputFolder, std::size_t index,
                      Probabilities& probabilities) {
  static_assert(sizeof(Probabilities) == 40, "dumps are read as they are");
  const fs::path folder = outputFolder / std::to_string(index);
  const std::string advice =
      "Run vorn-run over the whole list.txt, with -o " + outputFolder.string() + ".";
  const std::string name = FindNewestDump(ListFileNames(folder));
  if (name.empty()) {
    return Fail("no dump in " + folder.string() + ", expected probabilities.0.<time stamp>.bin. " +
                advice);
  }
  if (ReadExactly(folder / name, probabilities.data(), sizeof(Probabilities),
                  "10 float32 probabilities", advice) != 0) {
    return 1;
  }
  for (const float value : probabilities) {
    // A little room for runtimes that round; written so that NaN fails.
    if (!(value >= -0.01f && value <= 1.01f)) {
      return Fail((folder / name).string() + " holds " + std::to_string(value) +
                  ", expected probabilities from 0 to 1. " + advice);
    }
  }
  return 0;
}

}  // namespace

std::string FindNewestDump(const std::vector<std::string>& fileNames) {
  std::string newest;
  std::optional<std::uint64_t> newestStamp;
  for (const std::string& name : fileNames) {
    const auto stamp = ParseStamp(name);
    // An empty optional is less than any stamp.
    if (stamp > newestStamp) {
      newest = name;
      newestStamp = stamp;
    }
  }
  return newest;
}

int LoadResults(const std::string& digitsFolder, const std::string& outputFolder,
                std::vector<Result>& results) {
  const fs::path folder(digitsFolder);
  std::vector<std::string> names;
  std::vector<std::string> labels;
  if (ReadLines(folder / "list.txt", names) != 0) return 1;
  if (ReadLines(folder / "labels.txt", labels) != 0) return 1;
  if (names.empty() || names.size() != labels.size()) {
    return Fail("list.txt names " + std::to_string(names.size()) + " pictures and labels.txt " +
                std::to_string(labels.size()) +
                " digits, expected as many of both. Restore the files, or run train.py.");
  }

  std::vector<Result> loaded(names.size());
  for (std::size_t i = 0; i < loaded.size(); ++i) {
    loaded[i].name = names[i];
    if (ParseLabel(labels[i], loaded[i].label) != 0) return 1;
    if (ReadExactly(folder / names[i], loaded[i].picture.data(), sizeof(Picture),
                    "8 rows of 8 values", "Restore the file, or run train.py.") != 0) {
      return 1;
    }
    if (ReadProbabilities(outputFolder, i, loaded[i].probabilities) != 0) return 1;
  }
  results = std::move(loaded);
  return 0;
}

}  // namespace digits
