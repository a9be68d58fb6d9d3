// Lines are gathered and leave in pieces.
#include "output/text_lines.h"

#include <algorithm>
#include <cstddef>
#include <memory>

#include "common/file.h"
#include "output/float_text.h"

namespace vorn::run {
namespace {

// A piece ends within a page of the file, which the system then handles twice: large pieces are
// worth more than ones that stay in the processor's nearest cache.
constexpr size_t kPieceBytes = 1024 * 1024;
constexpr size_t kValuesAtOnce = 64;
constexpr size_t kFullFrom = kPieceBytes - kValuesAtOnce * kMaxFloatLine;

}  // namespace

void WriteTextLines(int fd, std::span<const float> values) {
  const auto piece =
      std::make_unique_for_overwrite<char[]>(std::min(kPieceBytes, values.size() * kMaxFloatLine));
  size_t filled = 0;
  while (!values.empty()) {
    const size_t count = std::min(kValuesAtOnce, values.size());
    const char* end = WriteFloatLines(values.first(count), piece.get() + filled);
    filled = static_cast<size_t>(end - piece.get());
    values = values.subspan(count);
    if (filled > kFullFrom || values.empty()) {
      WriteFully(fd, piece.get(), filled);
      filled = 0;
    }
  }
}

}  // namespace vorn::run
