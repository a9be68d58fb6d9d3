// Characters and bytes that are shown, and what stands for the others.
#include "host/common/excerpt.h"

#include "shared/text/characters.h"

namespace vorn::host {
namespace {

/// Takes the character, or the byte that is none, off the front of a text that is not empty.
/// Returns what is shown of it.
std::string_view TakeShown(std::string_view& rest, std::string_view instead) {
  const size_t length = text::CharacterLength(rest);
  const std::string_view character = rest.substr(0, length == 0 ? 1 : length);
  rest.remove_prefix(character.size());
  return length == 0 || text::Steers(character) ? instead : character;
}

}  // namespace

std::string Excerpt(std::string_view text, size_t longest) {
  std::string quoted;
  while (!text.empty()) {
    const std::string_view shown = TakeShown(text, "?");
    if (quoted.size() + shown.size() > longest) return quoted + "...";
    quoted += shown;
  }
  return quoted;
}

std::string OneLine(std::string_view text) {
  std::string line;
  while (!text.empty()) line += TakeShown(text, " ");
  while (!line.empty() && line.back() == ' ') line.pop_back();
  return line;
}

}  // namespace vorn::host
