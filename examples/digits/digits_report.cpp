// digits-report: tells how well a run of vorn-run recognised the handwritten digits.

#include <iostream>
#include <vector>

#include "digits/report.h"
#include "digits/results.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: digits-report <digits folder> <output folder>\n";
    return 1;
  }
  std::vector<digits::Result> results;
  if (digits::LoadResults(argv[1], argv[2], results) != 0) return 1;
  std::cout << digits::FormatReport(results);
  return 0;
}
