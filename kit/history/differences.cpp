#include "kit/history/differences.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <map>
#include <string_view>

namespace vorn::kit {
namespace {

constexpr size_t kShownDigits = 8;
constexpr size_t kMostLibraries = 8;

template <typename Value>
std::string Rounded(const char* format, Value value) {
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), format, value);
  return text.data();
}

class Comparer {
 public:
  void Text(const std::string& what, const std::string& before, const std::string& after) {
    if (before != after) Note(what, before, after);
  }

  // What is in a file of that name. Where a side does not tell, nothing is known to differ.
  void File(const std::string& kind, const std::string& nameBefore, const std::string& hashBefore,
            const std::string& nameAfter, const std::string& hashAfter) {
    if (nameBefore != nameAfter) Note(kind, nameBefore, nameAfter);
    if (hashBefore.empty() || hashAfter.empty() || hashBefore == hashAfter) return;
    Note("what is in " + kind + (nameAfter.empty() ? "" : " " + nameAfter),
         hashBefore.substr(0, kShownDigits), hashAfter.substr(0, kShownDigits));
  }

  void Note(const std::string& what, const std::string& before, const std::string& after) {
    found_.push_back({what, before.empty() ? "none" : before, after.empty() ? "none" : after});
  }

  std::vector<RunDifference> Take() { return std::move(found_); }

 private:
  std::vector<RunDifference> found_;
};

// Build-ids by the names of libraries.
std::map<std::string, std::string> LibrariesOf(std::string_view lines) {
  std::map<std::string, std::string> libraries;
  while (!lines.empty()) {
    const std::string_view line = lines.substr(0, lines.find('\n'));
    lines.remove_prefix(std::min(lines.size(), line.size() + 1));
    const size_t tab = line.find('\t');
    if (tab == std::string_view::npos) continue;
    libraries.emplace(line.substr(0, tab), line.substr(tab + 1, kShownDigits));
  }
  return libraries;
}

void CompareLibraries(const RunEntry& before, const RunEntry& after, Comparer& comparer) {
  const auto one = LibrariesOf(before.mapped);
  const auto other = LibrariesOf(after.mapped);
  size_t told = 0;
  for (const auto& [name, id] : one) {
    const auto now = other.find(name);
    // The program is looked at now and then: one that was brief has mapped more than was seen.
    if (now == other.end() || id == now->second) continue;
    if (++told > kMostLibraries) break;
    comparer.Note("the build-id of " + name, id, now->second);
  }
}

std::string CountText(const std::optional<uint64_t>& count) {
  return count ? std::to_string(*count) : "";
}

// Moments of a machine are never the same twice.
void CompareMoments(const RunEntry& before, const RunEntry& after, Comparer& comparer) {
  constexpr double kLoad = 0.5;
  constexpr double kFrequencyShare = 0.05;
  constexpr int64_t kMilliC = 10000;
  if (before.loadAverage && after.loadAverage &&
      std::abs(*before.loadAverage - *after.loadAverage) >= kLoad) {
    comparer.Note("the load before the run", Rounded("%.2f", *before.loadAverage),
                  Rounded("%.2f", *after.loadAverage));
  }
  if (before.frequencyKhz && after.frequencyKhz) {
    const auto one = static_cast<double>(*before.frequencyKhz);
    const auto other = static_cast<double>(*after.frequencyKhz);
    if (std::abs(one - other) >= kFrequencyShare * std::max(one, other)) {
      comparer.Note("the mean frequency of the cores", Rounded("%.0f MHz", one / 1000),
                    Rounded("%.0f MHz", other / 1000));
    }
  }
  if (before.temperatureMilliC && after.temperatureMilliC) {
    const double one = static_cast<double>(*before.temperatureMilliC) / 1000;
    const double other = static_cast<double>(*after.temperatureMilliC) / 1000;
    if (std::abs(one - other) * 1000 >= static_cast<double>(kMilliC)) {
      comparer.Note("the highest temperature", Rounded("%.0f C", one), Rounded("%.0f C", other));
    }
  }
}

}  // namespace

std::vector<RunDifference> DifferencesOf(const RunEntry& before, const RunEntry& after) {
  Comparer comparer;
  comparer.File("the runtime", before.runtime, before.runtimeXxh3, after.runtime,
                after.runtimeXxh3);
  CompareLibraries(before, after, comparer);
  comparer.File("the model", before.model, before.modelXxh3, after.model, after.modelXxh3);
  comparer.File("the configuration", before.configuration, before.configurationXxh3,
                after.configuration, after.configurationXxh3);
  comparer.File("the list", before.list, before.listXxh3, after.list, after.listXxh3);
  comparer.Text("the options", before.options, after.options);
  comparer.File("the program", before.program, before.programXxh3, after.program,
                after.programXxh3);
  comparer.Text("the version of the kit", before.tool, after.tool);
  comparer.Text("the board", before.board, after.board);
  comparer.Text("the processor", before.processor, after.processor);
  comparer.Text("the number of cores", CountText(before.cores), CountText(after.cores));
  comparer.Text("the kernel", before.kernel, after.kernel);
  comparer.Text("the governor", before.governor, after.governor);
  comparer.Text("the container", before.container, after.container);
  CompareMoments(before, after, comparer);
  return comparer.Take();
}

std::string TextOf(const RunDifference& difference) {
  return difference.what + ": " + difference.before + " -> " + difference.after;
}

}  // namespace vorn::kit
