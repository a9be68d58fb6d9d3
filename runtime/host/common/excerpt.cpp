// UTF-8, character by character:
//
//     00..7f | c2..df tail | e0..ef tail tail | f0..f4 tail tail tail,   tail = 80..bf
//
// less what a shorter form would do for (e0 80..9f, f0 80..8f), the surrogates (ed a0..bf) and what
// lies beyond U+10FFFF (f4 90..bf).
#include "host/common/excerpt.h"

namespace vorn::host {
namespace {

size_t BytesAfter(unsigned char lead) {
  if (lead >= 0xc2 && lead <= 0xdf) return 1;
  if (lead >= 0xe0 && lead <= 0xef) return 2;
  if (lead >= 0xf0 && lead <= 0xf4) return 3;
  return 0;
}

bool MayFollow(unsigned char lead, unsigned char second) {
  const unsigned char least = lead == 0xe0 ? 0xa0 : lead == 0xf0 ? 0x90 : 0x80;
  const unsigned char most = lead == 0xed ? 0x9f : lead == 0xf4 ? 0x8f : 0xbf;
  return second >= least && second <= most;
}

/// Bytes of the character at the front of a text that is not empty; 0 where there is none, or a
/// control character.
size_t CharacterLength(std::string_view text) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  if (byte(0) < 0x80) return byte(0) >= 0x20 && byte(0) != 0x7f ? 1 : 0;
  const size_t after = BytesAfter(byte(0));
  if (after == 0 || after >= text.size() || !MayFollow(byte(0), byte(1))) return 0;
  for (size_t i = 2; i <= after; ++i) {
    if ((byte(i) & 0xc0) != 0x80) return 0;
  }
  return after + 1;
}

}  // namespace

std::string Excerpt(std::string_view text, size_t longest) {
  std::string quoted;
  while (!text.empty()) {
    const size_t length = CharacterLength(text);
    const std::string_view character = length == 0 ? "?" : text.substr(0, length);
    if (quoted.size() + character.size() > longest) return quoted + "...";
    quoted += character;
    text.remove_prefix(length == 0 ? 1 : length);
  }
  return quoted;
}

}  // namespace vorn::host
