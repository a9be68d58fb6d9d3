#include "layers/common/say.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>

namespace vorn::layers {

void Say(const char* format, ...) {
  const int error = errno;  // the program's own
  std::array<char, 512> line{};
  constexpr int kRoom = 500;
  int length = std::snprintf(line.data(), kRoom, "vorn-layer: ");
  va_list words;
  va_start(words, format);
  const int more = std::vsnprintf(line.data() + length, kRoom - length, format, words);
  va_end(words);
  length = std::min(length + std::max(more, 0), kRoom - 1);
  line[static_cast<size_t>(length++)] = '\n';
  [[maybe_unused]] const auto written =
      write(STDERR_FILENO, line.data(), static_cast<size_t>(length));
  errno = error;
}

}  // namespace vorn::layers
