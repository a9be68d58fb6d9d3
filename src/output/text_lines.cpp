// Lines are gathered and leave in pieces.
#include "output/text_lines.h"

#include <cstddef>
#include <memory>

#include "common/file.h"
#include "output/float_text.h"

namespace {

// Large enough to make the calls cheap, small enough for the processor's cache.
constexpr size_t kPieceBytes = 64 * 1024;
constexpr size_t kMaxLine = kMaxFloatText + 1;

}  // namespace

void WriteTextLines(int fd, std::span<const float> values) {
  const auto piece = std::make_unique_for_overwrite<char[]>(kPieceBytes);
  char* const lastLine = piece.get() + kPieceBytes - kMaxLine;
  char* end = piece.get();
  for (const float value : values) {
    if (end > lastLine) {
      WriteFully(fd, piece.get(), static_cast<size_t>(end - piece.get()));
      end = piece.get();
    }
    end = WriteFloatText(value, end);
    *end++ = '\n';
  }
  WriteFully(fd, piece.get(), static_cast<size_t>(end - piece.get()));
}
