// One write per line, without a stream in between.
#include "common/log.h"

#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <string>

#include "common/file.h"

namespace vorn::run {

void PrintLine(const char* format, ...) {
  char line[1024];
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(line, sizeof(line), format, arguments);
  va_end(arguments);
  if (length < 0) return;

  const size_t size = static_cast<size_t>(length);
  if (size < sizeof(line)) {
    WriteFully(STDOUT_FILENO, line, size);
    return;
  }
  // A path out of a list file may be megabytes long.
  std::string longLine(size + 1, '\0');
  va_start(arguments, format);
  std::vsnprintf(longLine.data(), longLine.size(), format, arguments);
  va_end(arguments);
  WriteFully(STDOUT_FILENO, longLine.data(), size);
}

}  // namespace vorn::run
