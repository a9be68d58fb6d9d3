#include "scripted/record.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

namespace scripted {
namespace {

constexpr char kHex[] = "0123456789abcdef";

void AppendEscaped(std::string* text, char c) {
  const auto byte = static_cast<unsigned char>(c);
  *text += "\\x";
  *text += kHex[byte >> 4];
  *text += kHex[byte & 15];
}

}  // namespace

Record::Record(const char* path) {
  if (path == nullptr || *path == '\0') return;
  file_ = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
}

Record::~Record() {
  if (file_ >= 0) close(file_);
}

void Record::Write(std::string_view line) {
  if (file_ < 0) return;
  std::string text;
  for (const char c : line) {
    if (c == '\n') {
      AppendEscaped(&text, c);
    } else {
      text += c;
    }
  }
  text += '\n';
  // One write per line: what was written stays, whatever becomes of the process.
  for (size_t at = 0; at < text.size();) {
    const ssize_t written = write(file_, text.data() + at, text.size() - at);
    if (written < 0) return;
    at += static_cast<size_t>(written);
  }
}

std::string Quote(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      quoted += '\\';
      quoted += c;
    } else if (c < ' ' || c > '~') {
      AppendEscaped(&quoted, c);
    } else {
      quoted += c;
    }
  }
  return quoted + "\"";
}

}  // namespace scripted
