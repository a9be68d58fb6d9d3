// A folder, some names of model inputs, then the text of a list file.
#include <algorithm>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "fuzz/byte_source.h"
#include "fuzz/division_fault.h"
#include "fuzz/property.h"
#include "fuzz/targets.h"
#include "model/sort_inputs.h"
#include "sample/input_list.h"

namespace fuzz {
namespace {

namespace run = vorn::run;

using Texts = std::vector<std::string>;

struct NamedPath {
  size_t position;
  std::string path;

  auto operator<=>(const NamedPath&) const = default;
};

Texts NonEmptyLines(const std::string& text) {
  Texts lines(1);
  for (const char c : text) {
    if (c == '\n') {
      lines.emplace_back();
    } else {
      lines.back() += c;
    }
  }
  std::erase(lines, "");
  return lines;
}

std::string ExpectedEntry(const std::string& line, const std::string& folder) {
  const size_t colon = line.find(':');
  if (colon == std::string::npos || colon == 0 || colon == line.size() - 1) {
    return folder + "/" + line;
  }
  return line.substr(0, colon) + ":" + folder + "/" + line.substr(colon + 1);
}

// Where the entry belongs in its group; nothing if it does not say.
std::optional<NamedPath> PlaceOf(const std::string& entry, const Texts& names) {
  const size_t colon = entry.find(':');
  if (colon == std::string::npos || colon == 0 || colon == entry.size() - 1) return {};
  for (size_t i = names.size(); i > 0; --i) {
    if (names[i - 1] == entry.substr(0, colon)) return NamedPath{i - 1, entry.substr(colon + 1)};
  }
  return {};
}

// The entries with their places; nothing where the list has to stay as it is.
std::optional<std::vector<NamedPath>> PlacesOf(const Texts& entries, const Texts& names) {
  if (entries.size() % names.size() != 0) return {};
  std::vector<NamedPath> places;
  for (const std::string& entry : entries) {
    const auto place = PlaceOf(entry, names);
    if (!place) return {};
    places.push_back(*place);
  }
  return places;
}

// Entries of one name may come in any order, so runs of one position are compared sorted.
void CheckGroup(std::span<NamedPath> places, std::span<const std::string> sorted) {
  std::ranges::sort(places);
  std::vector<NamedPath> actual;
  for (size_t i = 0; i < places.size(); ++i) actual.push_back({places[i].position, sorted[i]});
  std::ranges::sort(actual);
  Require(std::ranges::equal(actual, places), "a group is not in the order of the names");
}

void CheckSorting(const Texts& entries, const Texts& names) {
  Texts sorted = entries;
  bool faulted = false;
  try {
    run::SortInputsByName(sorted, names);
  } catch (const DivisionFault&) {
    faulted = true;
  }
  Require(faulted == names.empty(), "a division fault is for no names");
  auto places = faulted ? std::nullopt : PlacesOf(entries, names);
  if (!places) {
    Require(sorted == entries, "the list has changed");
    return;
  }
  Require(sorted.size() == entries.size(), "the list has another length");
  for (size_t first = 0; first < sorted.size(); first += names.size()) {
    CheckGroup(std::span(*places).subspan(first, names.size()),
               std::span(sorted).subspan(first, names.size()));
  }
}

void CheckSplitting(const std::string& text, char delimiter) {
  const Texts pieces = run::SplitString(text, delimiter);
  std::string joined;
  for (const std::string& piece : pieces) {
    Require(piece.find(delimiter) == std::string::npos, "a piece holds the delimiter");
    joined += piece + delimiter;
  }
  const bool isOpen = !text.empty() && text.back() != delimiter;
  Require(joined == (isOpen ? text + delimiter : text), "the pieces are not the text");
}

}  // namespace

void ListFile(std::span<const uint8_t> bytes) {
  ByteSource source(bytes);
  const std::string folder = source.TakeText(8);
  Texts names(source.TakeBelow(5));
  std::vector<size_t> lineOfName;
  for (std::string& name : names) {
    name = source.TakeText(4);
    lineOfName.push_back(source.TakeByte());
  }
  const auto delimiter = static_cast<char>(source.TakeByte());
  const std::string text = source.TakeRest();

  const Texts lines = NonEmptyLines(text);
  std::istringstream stream(text);
  const Texts entries = run::ReadInputEntries(stream, folder);
  Require(entries.size() == lines.size(), "one entry for each line that is not empty");
  for (size_t i = 0; i < lines.size(); ++i) {
    Require(entries[i] == ExpectedEntry(lines[i], folder), "entry of '" + lines[i] + "'");
  }

  // A name without text of its own is one that a line uses.
  for (size_t i = 0; i < names.size(); ++i) {
    if (names[i].empty() && lineOfName[i] < lines.size()) {
      names[i] = lines[lineOfName[i]].substr(0, lines[lineOfName[i]].find(':'));
    }
  }
  CheckSorting(entries, names);
  CheckSplitting(text, delimiter);
}

}  // namespace fuzz
