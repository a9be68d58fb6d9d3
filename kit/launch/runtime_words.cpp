#include "kit/launch/runtime_words.h"

#include <algorithm>

#include "kit/common/printable.h"
#include "shared/text/glob.h"

namespace vorn::kit {
namespace {

constexpr std::string_view kFront = "vorn: ";
constexpr std::string_view kBehindOperation = ": ";

// The lines say themselves what they mean and what to do.
constexpr RuntimeWords kWords[] = {
    {kOtherRangesWarning, "the file of ranges '*' was measured over another model, '*"},
    {"output-cut-off", "output '*' has the shape *; what is beyond * is cut off"},
    {"items-dropped", "output * '*' holds * of * batch items; the rest is dropped"},
    {"frames-beyond-input",
     "input * '*' is registered with * bytes, which is * of * frames; the others are whatever lies "
     "behind them"},
    {"frame-in-part",
     "input * '*' is registered with * bytes, which ends within a frame of *; that frame does not "
     "count"},
};

void Take(std::string_view line, std::vector<RunWarning>& warnings) {
  if (!line.starts_with(kFront)) return;
  const size_t operation = line.find(kBehindOperation, kFront.size());
  if (operation == std::string_view::npos) return;
  line.remove_prefix(operation + kBehindOperation.size());
  for (const RuntimeWords& words : kWords) {
    if (!text::FitsGlob(line, words.pattern)) continue;
    const auto told = std::find_if(warnings.begin(), warnings.end(),
                                   [&](const auto& warning) { return warning.id == words.id; });
    if (told == warnings.end()) {
      warnings.push_back(
          {.id = std::string(words.id), .count = 1, .message = Printable(std::string(line))});
    } else {
      ++told->count;
    }
  }
}

}  // namespace

std::span<const RuntimeWords> AllRuntimeWords() { return kWords; }

bool IsOfRuntimeWords(std::string_view id) {
  return std::ranges::find(kWords, id, &RuntimeWords::id) != std::end(kWords);
}

std::vector<RunWarning> WarningsInWords(std::string_view errors) {
  std::vector<RunWarning> warnings;
  while (!errors.empty()) {
    const std::string_view line = errors.substr(0, errors.find('\n'));
    errors.remove_prefix(std::min(errors.size(), line.size() + 1));
    Take(line, warnings);
  }
  return warnings;
}

}  // namespace vorn::kit
