// Formats the report of a run over the handwritten digits.

#include "digits/report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace digits {
namespace {

constexpr std::size_t kCellWidth = 5;     // of the confusion table
constexpr std::size_t kColumnWidth = 27;  // of a drawing; three of them fit into 80 characters
constexpr std::size_t kDrawingsInRow = 3;
constexpr std::size_t kMostMisread = 6;
constexpr std::size_t kLeastSure = 3;

std::string AlignRight(const std::string& text, std::size_t width) {
  return std::string(width - std::min(width, text.size()), ' ') + text;
}

// Appends a line of cells; `width` counts characters, which for UTF-8 is not size().
class Line {
 public:
  void Add(const std::string& text, std::size_t width) {
    text_.append(blanks_, ' ');
    text_ += text;
    blanks_ = kColumnWidth - std::min(kColumnWidth, width);
  }

  // Blanks at the end are left out.
  std::string Take() {
    text_.erase(text_.find_last_not_of(' ') + 1);
    return text_ + "\n";
  }

 private:
  std::string text_;
  std::size_t blanks_ = 0;
};

using ResultIterator = std::vector<const Result*>::const_iterator;

std::string DrawRow(ResultIterator begin, ResultIterator end) {
  Line names;
  Line captions;
  std::array<Line, kRows> rows;
  for (auto result = begin; result != end; ++result) {
    const std::string caption = Caption(**result);
    names.Add((*result)->name, (*result)->name.size());
    captions.Add(caption, caption.size());
    const auto drawing = DrawPicture((*result)->picture);
    for (std::size_t row = 0; row < kRows; ++row) rows[row].Add(drawing[row], 2 * kColumns);
  }
  std::string text = names.Take() + captions.Take();
  for (Line& row : rows) text += row.Take();
  return text;
}

std::vector<const Result*> FindMisread(const std::vector<Result>& results) {
  std::vector<const Result*> misread;
  for (const Result& result : results) {
    if (IsMisread(result)) misread.push_back(&result);
  }
  return misread;
}

float Sureness(const Result& result) {
  return result.probabilities[ReadDigit(result.probabilities)];
}

std::vector<const Result*> FindLeastSure(const std::vector<Result>& results) {
  std::vector<const Result*> sorted;
  for (const Result& result : results) sorted.push_back(&result);
  std::stable_sort(sorted.begin(), sorted.end(), [](const Result* left, const Result* right) {
    return Sureness(*left) < Sureness(*right);
  });
  sorted.resize(std::min(sorted.size(), kLeastSure));
  return sorted;
}

std::string DescribeMisread(std::vector<const Result*> misread) {
  const std::size_t count = misread.size();
  std::string heading = "Misread:\n\n";
  if (count > kMostMisread) {
    misread.resize(kMostMisread);
    heading = "Misread, the first " + std::to_string(kMostMisread) + " of " +
              std::to_string(count) + ":\n\n";
  }
  return heading + DrawResults(misread);
}

std::string FormatRate(std::size_t recognised, std::size_t total) {
  const double percent =
      total == 0 ? 0.0 : 100.0 * static_cast<double>(recognised) / static_cast<double>(total);
  char text[128];
  std::snprintf(text, sizeof(text), "recognised %zu of %zu pictures (%.1f %%)\n", recognised, total,
                percent);
  return text;
}

}  // namespace

std::size_t ReadDigit(const Probabilities& probabilities) {
  const auto greatest = std::max_element(probabilities.begin(), probabilities.end());
  return static_cast<std::size_t>(greatest - probabilities.begin());
}

bool IsMisread(const Result& result) { return ReadDigit(result.probabilities) != result.label; }

Confusion Tally(const std::vector<Result>& results) {
  Confusion confusion{};
  for (const Result& result : results) {
    ++confusion[result.label][ReadDigit(result.probabilities)];
  }
  return confusion;
}

std::string FormatConfusion(const Confusion& confusion) {
  std::string text = "read as";
  for (std::size_t digit = 0; digit < kDigits; ++digit) {
    text += AlignRight(std::to_string(digit), kCellWidth);
  }
  text += "\n";
  for (std::size_t label = 0; label < kDigits; ++label) {
    text += "label " + std::to_string(label);
    for (const std::size_t count : confusion[label]) {
      text += AlignRight(count == 0 ? "." : std::to_string(count), kCellWidth);
    }
    text += "\n";
  }
  return text;
}

std::array<std::string, kRows> DrawPicture(const Picture& picture) {
  constexpr std::array<const char*, 5> kShades = {"  ", "░░", "▒▒", "▓▓", "██"};
  std::array<std::string, kRows> rows;
  for (std::size_t i = 0; i < picture.size(); ++i) {
    // Rounded to the nearest shade: 0-1, 2-5, 6-9, 10-13, 14-16.
    const std::size_t shade = (std::min<std::size_t>(picture[i], 16) + 2) / 4;
    rows[i / kColumns] += kShades[shade];
  }
  return rows;
}

std::string Caption(const Result& result) {
  const long percent = std::lround(100 * Sureness(result));
  return "label " + std::to_string(result.label) + ", read as " +
         std::to_string(ReadDigit(result.probabilities)) + " (" + std::to_string(percent) + " %)";
}

std::string DrawResults(const std::vector<const Result*>& results) {
  std::string text;
  for (auto begin = results.begin(); begin != results.end();) {
    const auto left = static_cast<std::size_t>(results.end() - begin);
    const auto end = begin + static_cast<std::ptrdiff_t>(std::min(left, kDrawingsInRow));
    text += DrawRow(begin, end) + "\n";
    begin = end;
  }
  return text;
}

std::string FormatReport(const std::vector<Result>& results) {
  const std::vector<const Result*> misread = FindMisread(results);
  std::string text = FormatConfusion(Tally(results)) + "\n";
  if (misread.empty()) {
    text += "None misread. The least sure:\n\n" + DrawResults(FindLeastSure(results));
  } else {
    text += DescribeMisread(misread);
  }
  return text + FormatRate(results.size() - misread.size(), results.size());
}

}  // namespace digits
