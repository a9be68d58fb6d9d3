// What a run over the handwritten digits came to, as text for a person.
//
// Everything here is a pure function over plain data; results.h fills that data from files.

#ifndef EXAMPLES_DIGITS_REPORT_H_
#define EXAMPLES_DIGITS_REPORT_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace digits {

inline constexpr std::size_t kDigits = 10;
inline constexpr std::size_t kRows = 8;
inline constexpr std::size_t kColumns = 8;

// [rows, columns], row by row; 0 is paper, 16 is full ink.
using Picture = std::array<std::uint8_t, kRows * kColumns>;

// For each digit how sure the network is, 0 to 1.
using Probabilities = std::array<float, kDigits>;

// One picture and what came out for it.
struct Result {
  std::string name;  // of the picture, as in list.txt
  Picture picture{};
  std::size_t label = 0;  // the digit that the writer meant, 0 to 9
  Probabilities probabilities{};
};

// [label, digit read]: how many pictures.
using Confusion = std::array<std::array<std::size_t, kDigits>, kDigits>;

// The recognised digit: the most probable one, the lowest of equal ones.
std::size_t ReadDigit(const Probabilities& probabilities);

bool IsMisread(const Result& result);

Confusion Tally(const std::vector<Result>& results);

// A heading and one line per label; zeros are dots, so that what is off the diagonal stands out.
std::string FormatConfusion(const Confusion& confusion);

// One string per row, each 2 * kColumns characters wide (UTF-8) because characters are about twice
// as high as wide. Values above 16 are drawn as 16.
std::array<std::string, kRows> DrawPicture(const Picture& picture);

// "label 8, read as 1 (62 %)"
std::string Caption(const Result& result);

// The given results side by side, a few in a row, each picture below its name and caption.
std::string DrawResults(const std::vector<const Result*>& results);

// The whole report: the confusion table, then the first misread pictures (or, if there is none, the
// least sure readings), and as the last line "recognised 197 of 200 pictures (98.5 %)".
std::string FormatReport(const std::vector<Result>& results);

}  // namespace digits

#endif  // EXAMPLES_DIGITS_REPORT_H_
