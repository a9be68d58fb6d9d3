// The texts that stand around a run: the first byte says which, the rest is its text. Each is read
// as a plain reference, or vorn-run itself, reads it.
#include <fnmatch.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <exception>
#include <optional>
#include <regex>
#include <span>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/byte_source.h"
#include "fuzz/property.h"
#include "fuzz/targets.h"
#include "kit/common/fault.h"
#include "kit/launch/checks.h"
#include "kit/launch/input_list.h"
#include "kit/launch/program_log.h"
#include "kit/timing/times.h"
#include "layers/common/call_set.h"
#include "model/sort_inputs.h"
#include "sample/input_list.h"

namespace fuzz {
namespace {

namespace kit = vorn::kit;
namespace layers = vorn::layers;

constexpr std::array<const char*, 4> kOperations{"vorn_init", "vorn_rt_malloc", "vorn_rt_free",
                                                 "vorn_mdl_execute"};
constexpr uint64_t kCalls = 24;  // by how many a set is tried

std::string g_callFile;  // what every file of calls holds

bool ReadCallFile(const char*, char* text, size_t size) {
  if (g_callFile.size() >= size || g_callFile.find('\0') != std::string::npos) return false;
  std::memcpy(text, g_callFile.c_str(), g_callFile.size() + 1);
  return true;
}

std::optional<uint64_t> NumberIn(const std::string& digits) {
  try {
    const uint64_t number = std::stoull(digits);
    if (number > 0) return number;
  } catch (const std::out_of_range&) {
  }
  return {};
}

// One item as its definition has it: for each operation and number whether the call belongs to it,
// or nothing where it is refused.
using Belongs = std::vector<bool>;
std::optional<Belongs> CallsOfItem(const std::string& item) {
  static const std::regex numbers("([0-9]+)(-([0-9]+)?)?");
  static const std::regex names("([^/]*)(/([0-9]+))?");
  std::smatch found;
  uint64_t from = 1;
  uint64_t to = UINT64_MAX;
  uint64_t every = 1;
  std::string name = "*";
  const bool isNumber = item.front() >= '0' && item.front() <= '9';
  if (!std::regex_match(item, found, isNumber ? numbers : names)) return {};
  if (isNumber) {
    const auto first = NumberIn(found[1]);
    const auto last = found[3].matched   ? NumberIn(found[3])
                      : found[2].matched ? std::optional(UINT64_MAX)
                                         : first;
    if (!first || !last || *first > *last) return {};
    from = *first;
    to = *last;
  } else {
    const auto step = found[2].matched ? NumberIn(found[3]) : std::optional<uint64_t>(1);
    if (!step) return {};
    every = *step;
    name = found[1];
  }
  bool isKnown = false;
  Belongs calls;
  for (const char* operation : kOperations) {
    // A bracket is no pattern here, and a backslash quotes nothing.
    std::string pattern = std::regex_replace(name, std::regex("\\["), "[[]");
    const bool fits = fnmatch(pattern.c_str(), operation, FNM_NOESCAPE) == 0;
    isKnown = isKnown || fits;
    for (uint64_t number = 1; number <= kCalls; ++number) {
      calls.push_back(fits && number >= from && number <= to && number % every == 0);
    }
  }
  return isKnown ? std::optional(calls) : std::nullopt;
}

std::vector<std::string> ItemsOf(const std::string& text) {
  std::vector<std::string> items;
  std::string item;
  bool isRemark = false;
  for (const char c : text + "\n") {
    if (isRemark && c != '\n') continue;
    isRemark = false;
    if (std::strchr(", \t\r\n", c) != nullptr) {
      if (!item.empty()) items.push_back(item);
      item.clear();
    } else if (c == '#' && item.empty()) {
      isRemark = true;
    } else {
      item += c;
    }
  }
  return items;
}

// Those of a file in the place of its name; nothing where one names a further file.
std::optional<std::vector<std::string>> AllItems(const std::string& text) {
  std::vector<std::string> all;
  for (const std::string& item : ItemsOf(text)) {
    if (item.front() != '@') {
      all.push_back(item);
      continue;
    }
    if (g_callFile.find('\0') != std::string::npos) return {};
    for (const std::string& listed : ItemsOf(g_callFile)) {
      if (listed.front() == '@') return {};
      all.push_back(listed);
    }
  }
  return all;
}

std::optional<Belongs> CallsOfText(const std::string& text) {
  const auto items = AllItems(text);
  if (!items || items->size() > layers::kMostCallItems) return {};
  Belongs all(kOperations.size() * kCalls, items->empty());
  for (const std::string& item : *items) {
    const auto calls = CallsOfItem(item);
    if (!calls) return {};
    for (size_t i = 0; i < all.size(); ++i) all[i] = all[i] || (*calls)[i];
  }
  return all;
}

// The text, and behind a zero what stands in the files that it names. The reference, which tries
// the stars of a pattern one within the other, gets short ones.
void ReadCallSet(const std::string& bytes) {
  const std::string text = bytes.c_str();
  g_callFile = bytes.substr(std::min(bytes.size(), text.size() + 1));
  const auto isLong = [](const std::string& part) {
    return std::ranges::count(part, '*') > 6 || part.size() > 1000;
  };
  if (isLong(text) || isLong(g_callFile)) return;
  layers::CallSet set;
  std::array<char, 1200> reason{};
  const bool isTaken = layers::ParseCallSet(text.c_str(), {kOperations.data(), kOperations.size()},
                                            ReadCallFile, set, reason.data(), reason.size());
  const auto expected = CallsOfText(text);
  Require(isTaken == expected.has_value(), "a set is taken where each of its items has a meaning");
  if (!isTaken) {
    Require(reason[0] != '\0', "a set is refused for a reason");
    return;
  }
  for (size_t operation = 0; operation < kOperations.size(); ++operation) {
    for (uint64_t number = 1; number <= kCalls; ++number) {
      Require(set.Holds(operation, number, number) == (*expected)[operation * kCalls + number - 1],
              "a call belongs to a set as to one of its items");
    }
  }
}

// Two names of inputs, each with its length in front, then a list.
void ReadList(const std::string& bytes) {
  ByteSource source({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
  std::vector<std::string> names{source.TakeText(8)};
  names.push_back(source.TakeText(8));
  if (names.back().empty()) names.pop_back();
  const std::string text = source.TakeRest();
  std::istringstream stream(text);
  std::vector<std::string> expected = vorn::run::ReadInputEntries(stream, "folder");
  vorn::run::SortInputsByName(expected, names);
  const kit::InputList list = kit::InputList::OfBytes(text, "folder").SortedBy(names);
  std::vector<std::string> files;
  for (uint64_t i = 0; i < list.Lines(); ++i) files.push_back(list.Input(i).file);
  Require(files == expected, "a list is taken as vorn-run takes it");
  kit::CheckRequest request;
  request.listPath = "list";
  kit::ModelDescription model;
  for (const std::string& name : names) {
    kit::TensorDescription input;
    input.name = name;
    model.inputs.push_back(input);
  }
  const auto look = [](const std::string&) { return kit::FileState{.fault = "", .sizeBytes = 4}; };
  for (const kit::Finding& finding : kit::CheckList(request, model, list, look).First()) {
    Require(!finding.message.empty() &&
                std::ranges::none_of(finding.message,
                                     [](unsigned char c) { return c < 0x20 || c == 0x7f; }),
            "a finding of one line: " + finding.message);
  }
}

// A log in one piece and in two.
void ReadLog(const std::string& bytes) {
  if (bytes.empty()) return;
  const std::string_view log = std::string_view(bytes).substr(1);
  const size_t cut = std::min<size_t>(static_cast<uint8_t>(bytes[0]), log.size());
  kit::ProgramLog whole;
  whole.Take(log);
  kit::ProgramLog cutInTwo;
  cutInTwo.Take(log.substr(0, cut));
  cutInTwo.Take(log.substr(cut));
  Require(whole.Executed() == cutInTwo.Executed() && whole.Dumped() == cutInTwo.Dumped() &&
              whole.Begun(1) == cutInTwo.Begun(1) && whole.Faults() == cutInTwo.Faults() &&
              whole.IsModelLoaded() == cutInTwo.IsModelLoaded() &&
              whole.Cause() == cutInTwo.Cause() && whole.LastLine() == cutInTwo.LastLine() &&
              whole.Complaints().size() == cutInTwo.Complaints().size(),
          "a log says the same however it comes");
}

// The first byte chooses the column.
void ReadTimes(const std::string& bytes) {
  if (bytes.empty()) return;
  const kit::ListFormat format{.unitNs = 1e6, .column = bytes[0] % 2 == 0 ? "" : "time"};
  for (const kit::Times& series : kit::TimesOfList(bytes.substr(1), format).series) {
    for (const double time : series.timesNs) {
      Require(std::isfinite(time) && time > 0, "a time that can be one");
    }
  }
}

constexpr std::array kTextReaders{ReadCallSet, ReadList, ReadLog, ReadTimes};

}  // namespace

void LaunchTexts(std::span<const uint8_t> bytes) {
  if (bytes.empty()) return;
  const std::string rest(bytes.begin() + 1, bytes.end());
  try {
    kTextReaders[bytes[0] % kTextReaders.size()](rest);
  } catch (const kit::Fault& fault) {
    RequireReason(fault.what());
  } catch (const std::exception& error) {
    throw Violation{"another exception than a fault: " + std::string(error.what())};
  }
}

}  // namespace fuzz
