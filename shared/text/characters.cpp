// UTF-8, character by character:
//
//     00..7f | c2..df tail | e0..ef tail tail | f0..f4 tail tail tail,   tail = 80..bf
//
// less what a shorter form would do for (e0 80..9f, f0 80..8f), the surrogates (ed a0..bf) and what
// lies beyond U+10FFFF (f4 90..bf).
#include "shared/text/characters.h"

namespace vorn::text {
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

}  // namespace

bool Steers(std::string_view character) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(character[i]); };
  if (character.size() == 1) return byte(0) < 0x20 || byte(0) == 0x7f;
  if (character.size() == 2) return byte(0) == 0xc2 && byte(1) < 0xa0;
  if (character == "\xef\xbb\xbf") return true;
  if (character.size() != 3 || byte(0) != 0xe2) return false;
  return (byte(1) == 0x80 && byte(2) >= 0xa8 && byte(2) <= 0xae) ||
         (byte(1) == 0x80 && (byte(2) == 0x8e || byte(2) == 0x8f)) ||
         (byte(1) == 0x81 && byte(2) >= 0xa6 && byte(2) <= 0xa9);
}

size_t CharacterLength(std::string_view text) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  if (byte(0) < 0x80) return 1;
  const size_t after = BytesAfter(byte(0));
  if (after == 0 || after >= text.size() || !MayFollow(byte(0), byte(1))) return 0;
  for (size_t i = 2; i <= after; ++i) {
    if ((byte(i) & 0xc0) != 0x80) return 0;
  }
  return after + 1;
}

}  // namespace vorn::text
