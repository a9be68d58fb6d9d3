#include "kit/launch/input_list.h"

#include <libgen.h>

#include <algorithm>

namespace vorn::kit {
namespace {

struct Entry {
  uint64_t line = 0;
  std::string text;   // what vorn-run makes of the line
  size_t listed = 0;  // how many bytes at the end of it stood in the list
};

// A name is looked for in the line and then once more in what became of it, where a ':' of the
// folder counts too.
Entry MakeEntry(const ListLine& line, const std::string& folder) {
  const size_t start = NameInLine(line.text) ? line.text.find(':') + 1 : 0;
  return {.line = line.number,
          .text = line.text.substr(0, start) + folder + "/" + line.text.substr(start),
          .listed = line.text.size() - start};
}

size_t PlaceOf(std::string_view name, const std::vector<std::string>& names) {
  // Of inputs with one name the last one is meant.
  for (size_t i = names.size(); i > 0; --i) {
    if (names[i - 1] == name) return i - 1;
  }
  return names.size();
}

bool AreSorted(const std::vector<Entry>& entries, const std::vector<std::string>& names) {
  if (names.empty() || entries.size() % names.size() != 0) return false;
  return std::all_of(entries.begin(), entries.end(), [&](const Entry& entry) {
    const auto name = NameInLine(entry.text);
    return name && PlaceOf(*name, names) < names.size();
  });
}

void SortGroups(std::vector<Entry>& entries, const std::vector<std::string>& names) {
  const auto size = static_cast<ptrdiff_t>(names.size());
  for (auto group = entries.begin(); group != entries.end(); group += size) {
    std::stable_sort(group, group + size, [&](const Entry& one, const Entry& two) {
      return PlaceOf(*NameInLine(one.text), names) < PlaceOf(*NameInLine(two.text), names);
    });
  }
}

}  // namespace

std::vector<ListLine> SplitListLines(std::string_view bytes) {
  std::vector<ListLine> lines;
  for (uint64_t number = 1; !bytes.empty(); ++number) {
    const size_t end = std::min(bytes.find('\n'), bytes.size());
    if (end > 0) lines.push_back({.number = number, .text = std::string(bytes.substr(0, end))});
    bytes.remove_prefix(std::min(end + 1, bytes.size()));
  }
  return lines;
}

std::optional<std::string_view> NameInLine(std::string_view line) {
  const size_t colon = line.find(':');
  const bool isName = colon != line.npos && colon != 0 && colon + 1 != line.size();
  return isName ? std::optional(line.substr(0, colon)) : std::nullopt;
}

ResolvedList ResolveList(const std::vector<ListLine>& lines, const std::string& folder,
                         const std::vector<std::string>& inputNames) {
  std::vector<Entry> entries;
  entries.reserve(lines.size());
  for (const ListLine& line : lines) entries.push_back(MakeEntry(line, folder));

  ResolvedList list;
  list.areNamesUsed = AreSorted(entries, inputNames);
  if (list.areNamesUsed) SortGroups(entries, inputNames);
  list.inputs.reserve(entries.size());
  for (Entry& entry : entries) {
    ListedInput& input = list.inputs.emplace_back();
    input.line = entry.line;
    input.path = entry.text.substr(entry.text.size() - entry.listed);
    if (list.areNamesUsed) {
      input.name = std::string(*NameInLine(entry.text));
      input.file = entry.text.substr(entry.text.find(':') + 1);
    } else {
      input.file = std::move(entry.text);
    }
  }
  return list;
}

std::string FolderOfList(const std::string& listFile) {
  std::string path = listFile;
  return dirname(path.data());
}

}  // namespace vorn::kit
