// Patterns of names, as a shell has them for files, without its brackets.
#ifndef VORN_SHARED_TEXT_GLOB_H_
#define VORN_SHARED_TEXT_GLOB_H_

#include <string_view>

namespace vorn::text {

/// Whether the whole text fits: '*' stands for any characters, none too, '?' for one. Takes time by
/// the product of both lengths at most. In the header, for layers, which link nothing.
[[nodiscard]] inline bool FitsGlob(std::string_view text, std::string_view glob) {
  const char* at = text.data();
  const char* in = glob.data();
  const char* const textEnd = at + text.size();
  const char* const globEnd = in + glob.size();
  const char* star =
      nullptr;  // behind the last one, which could take whatever an earlier one could
  const char* resume = nullptr;
  while (at != textEnd) {
    if (in != globEnd && *in == '*') {
      star = ++in;
      resume = at;
    } else if (in != globEnd && (*in == '?' || *in == *at)) {
      ++in;
      ++at;
    } else if (star != nullptr) {
      in = star;
      at = ++resume;
    } else {
      return false;
    }
  }
  while (in != globEnd && *in == '*') ++in;
  return in == globEnd;
}

}  // namespace vorn::text

#endif  // VORN_SHARED_TEXT_GLOB_H_
