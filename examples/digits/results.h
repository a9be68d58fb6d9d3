// Collects what a run of vorn-run over list.txt left behind, beside what was fed and meant.
//
//   <digits folder>/list.txt                            one picture a line, relative to the folder
//   <digits folder>/labels.txt                          the digit of each picture, one a line
//   <digits folder>/pictures/000.bin ...                64 bytes each, [8 rows, 8 columns], 0 to 16
//   <output folder>/<i>/probabilities.0.<stamp>.bin     for picture i, counted from 0: 10 float32
//
// The stamp is the time of the dump in microseconds.

#ifndef EXAMPLES_DIGITS_RESULTS_H_
#define EXAMPLES_DIGITS_RESULTS_H_

#include <string>
#include <vector>

#include "digits/report.h"

namespace digits {

// The name with the greatest time stamp among those spelt probabilities.0.<stamp>.bin; empty if
// there is none. An output folder that served two runs holds two dumps a picture.
std::string FindNewestDump(const std::vector<std::string>& fileNames);

// Fills results in the order of list.txt. Returns 0, or 1 after one line on standard error that
// tells what was expected, what was found, and what to do; results is left as it was then.
[[nodiscard]] int LoadResults(const std::string& digitsFolder, const std::string& outputFolder,
                              std::vector<Result>& results);

}  // namespace digits

#endif  // EXAMPLES_DIGITS_RESULTS_H_
