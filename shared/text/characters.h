// Characters of texts that others wrote: names in a model, files, words of a library.
#ifndef VORN_SHARED_TEXT_CHARACTERS_H_
#define VORN_SHARED_TEXT_CHARACTERS_H_

#include <cstddef>
#include <string_view>

namespace vorn::text {

/// Bytes of the UTF-8 character at the front of a text that is not empty; 0 where there is none.
[[nodiscard]] size_t CharacterLength(std::string_view text);

/// Whether the character steers what shows it: a control character (U+0000 to U+001F, U+007F to
/// U+009F), a break of lines or paragraphs (U+2028, U+2029), a turn of the writing direction
/// (U+200E, U+200F, U+202A to U+202E, U+2066 to U+2069), a mark of the byte order (U+FEFF).
[[nodiscard]] bool Steers(std::string_view character);

}  // namespace vorn::text

#endif  // VORN_SHARED_TEXT_CHARACTERS_H_
