#include "kit/prepare/number_text.h"

#include <charconv>
#include <cstring>
#include <limits>
#include <optional>
#include <vector>

#include "kit/common/fault.h"
#include "kit/common/file_identity.h"
#include "kit/common/printable.h"

namespace vorn::kit {
namespace {

constexpr std::string_view kMark = "\xEF\xBB\xBF";
constexpr std::string_view kBlanks = " \t\r\v\f";
constexpr std::string_view kSeparators = ",;";
constexpr std::string_view kEndsOfNumbers = " \t\r\v\f,;#\n";
constexpr size_t kMostShown = 40;
constexpr uint64_t kMostTextOfAByte = 16;

bool IsOneOf(std::string_view set, char c) { return set.find(c) != std::string_view::npos; }

/// A number as it is written.
struct Written {
  bool isNegative = false;
  bool isHex = false;
  std::string_view digits;  ///< without sign and 0x
};

Written Dissect(std::string_view word) {
  Written written;
  if (!word.empty() && (word[0] == '-' || word[0] == '+')) {
    written.isNegative = word[0] == '-';
    word.remove_prefix(1);
  }
  written.isHex = word.starts_with("0x") || word.starts_with("0X");
  if (written.isHex) word.remove_prefix(2);
  written.digits = word;
  // What is read by itself takes a sign of its own.
  if (word.starts_with('-')) written.digits = {};
  return written;
}

enum class Reading { kDone, kNoNumber, kOutOfRange };

Reading ReadDouble(const Written& written, double& value) {
  const char* end = written.digits.data() + written.digits.size();
  const auto format = written.isHex ? std::chars_format::hex : std::chars_format::general;
  const auto [stop, error] = std::from_chars(written.digits.data(), end, value, format);
  if (error == std::errc::result_out_of_range && stop == end) return Reading::kOutOfRange;
  if (error != std::errc{} || stop != end) return Reading::kNoNumber;
  if (written.isNegative) value = -value;
  return Reading::kDone;
}

std::optional<int64_t> WholeNumberOf(const Written& written) {
  constexpr auto kMost = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
  const char* end = written.digits.data() + written.digits.size();
  uint64_t magnitude = 0;
  const auto [stop, error] =
      std::from_chars(written.digits.data(), end, magnitude, written.isHex ? 16 : 10);
  if (error != std::errc{} || stop != end) return std::nullopt;
  if (magnitude > kMost + (written.isNegative ? 1 : 0)) return std::nullopt;
  return static_cast<int64_t>(written.isNegative ? 0 - magnitude : magnitude);
}

class NumberParser {
 public:
  NumberParser(std::string_view text, const std::string& what, uint64_t mostBytes)
      : rest_(text), what_(what), mostNumbers_(mostBytes / sizeof(double)) {
    if (rest_.starts_with(kMark)) rest_.remove_prefix(kMark.size());
  }

  Array Parse() {
    while (!rest_.empty()) TakeLine();
    if (values_.empty()) {
      throw Fault(ExitStatus::kInput, what_ + " has no numbers in it");
    }
    Array array;
    array.shape = {values_.size()};
    if (rows_ > 1 && areRowsEqual_ && columns_ > 1) array.shape = {rows_, columns_};
    array.type = areWhole_ ? ElementType::kInt64 : ElementType::kFloat64;
    array.bytes.resize(values_.size() * sizeof(double));
    const void* from = areWhole_ ? static_cast<const void*>(wholes_.data()) : values_.data();
    std::memcpy(array.bytes.data(), from, array.bytes.size());
    return array;
  }

 private:
  void TakeLine() {
    ++line_;
    lineBegin_ = rest_.data();
    const size_t before = values_.size();
    bool isBehindNumber = false;
    while (!rest_.empty() && rest_[0] != '\n' && rest_[0] != '#') {
      if (IsOneOf(kBlanks, rest_[0])) {
        rest_.remove_prefix(1);
      } else if (IsOneOf(kSeparators, rest_[0])) {
        if (!isBehindNumber) Refuse(std::string("lacks a number before '") + rest_[0] + "'");
        isBehindNumber = false;
        rest_.remove_prefix(1);
      } else {
        TakeNumber();
        isBehindNumber = true;
      }
    }
    const size_t end = rest_.find('\n');
    rest_.remove_prefix(end == std::string_view::npos ? rest_.size() : end + 1);
    CountRow(values_.size() - before);
  }

  void CountRow(size_t numbers) {
    if (numbers == 0) return;
    if (rows_ == 0) columns_ = numbers;
    areRowsEqual_ = areRowsEqual_ && numbers == columns_;
    ++rows_;
  }

  void TakeNumber() {
    const std::string_view word = rest_.substr(0, rest_.find_first_of(kEndsOfNumbers));
    const Written written = Dissect(word);
    double value = 0;
    const Reading reading = ReadDouble(written, value);
    if (reading != Reading::kDone) {
      const std::string shown =
          Quoted(word.substr(0, kMostShown)) + (word.size() > kMostShown ? "…" : "");
      Refuse(reading == Reading::kNoNumber ? "has no number: " + shown
                                           : "has a number beyond the range of float64: " + shown);
    }
    if (values_.size() == mostNumbers_) {
      throw Fault(ExitStatus::kLimit, what_ + " has more than the " + std::to_string(mostNumbers_) +
                                          " numbers that are read at once; save it as .npy");
    }
    values_.push_back(value);
    if (areWhole_) KeepWhole(WholeNumberOf(written));
    rest_.remove_prefix(word.size());
  }

  void KeepWhole(std::optional<int64_t> whole) {
    areWhole_ = whole.has_value();
    if (areWhole_) {
      wholes_.push_back(*whole);
    } else {
      wholes_ = {};
    }
  }

  [[noreturn]] void Refuse(const std::string& reason) const {
    throw Fault(ExitStatus::kInput, what_ + " " + reason + ", in line " + std::to_string(line_) +
                                        ", column " +
                                        std::to_string(rest_.data() - lineBegin_ + 1));
  }

  std::string_view rest_;
  std::string what_;
  uint64_t mostNumbers_;
  std::vector<double> values_;
  std::vector<int64_t> wholes_;  ///< the same, as long as all are whole
  bool areWhole_ = true;
  uint64_t line_ = 0;
  const char* lineBegin_ = nullptr;
  uint64_t rows_ = 0;
  uint64_t columns_ = 0;  ///< of the first row
  bool areRowsEqual_ = true;
};

}  // namespace

Array ParseNumberText(std::string_view text, const std::string& what, uint64_t mostBytes) {
  return NumberParser(text, what, mostBytes).Parse();
}

Array ReadNumberText(const std::string& path, uint64_t mostBytes) {
  const uint64_t mostText = mostBytes > std::numeric_limits<uint64_t>::max() / kMostTextOfAByte
                                ? std::numeric_limits<uint64_t>::max()
                                : mostBytes * kMostTextOfAByte;
  const std::string text = ReadWholeFile(path, "the numbers", ExitStatus::kInput, mostText);
  return ParseNumberText(text, "the text " + Quoted(path), mostBytes);
}

}  // namespace vorn::kit
