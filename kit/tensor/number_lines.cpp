#include "kit/tensor/number_lines.h"

#include <algorithm>
#include <charconv>
#include <span>

#include "kit/common/printable.h"

namespace vorn::kit {
namespace {

constexpr size_t kTextPiece = 256 * 1024;
constexpr size_t kLongestLine = 400;  // no float takes more, in any notation

}  // namespace

// Appends more of the file to what is left of the piece.
bool NumberLines::Fill() {
  piece_.erase(0, at_);
  at_ = 0;
  const size_t more = std::min<uint64_t>(kTextPiece, file_.Bytes() - offset_);
  if (more == 0) return false;
  const size_t kept = piece_.size();
  piece_.resize(kept + more);
  file_.ReadAt(offset_, std::as_writable_bytes(std::span(piece_).subspan(kept)));
  offset_ += more;
  return true;
}

bool NumberLines::Next(float& value) {
  size_t end = piece_.find('\n', at_);
  if (end == std::string::npos) {
    if (Fill()) {
      end = piece_.find('\n', at_);
    }
    if (end == std::string::npos) end = piece_.size();
    if (at_ == end && end == piece_.size()) return false;
  }
  ++line_;
  const char* first = piece_.data() + at_;
  const char* last = piece_.data() + end;
  const auto [stop, error] = std::from_chars(first, last, value);
  if (error != std::errc{} || stop != last) {
    const std::string_view text(first, std::min<size_t>(end - at_, kLongestLine));
    file_.Refuse("has no number in line " + std::to_string(line_) + ": '" +
                 Printable(text.substr(0, 40)) + "'");
  }
  at_ = std::min(end + 1, piece_.size());
  return true;
}

}  // namespace vorn::kit
