// write_pages FOLDER: the pages that scripts/browser_tests.sh opens.
#include <iostream>

#include "kit/report/made_report.h"
#include "kit/report/page.h"
#include "support/files.h"

int main(int argc, char** argv) {
  using namespace vorn::kit;
  if (argc != 2) {
    std::cerr << "write_pages FOLDER\n";
    return 2;
  }
  const std::filesystem::path folder = argv[1];
  const std::string hostile =
      "</script><script>window.broken=1</script><img src=x "
      "onerror=window.broken=1>\"'\xE2\x80\xAE\n";
  const auto write = [&](const char* name, const ReportFacts& facts) {
    support::WriteFile(folder / (std::string(name) + ".html"), ReportPage(facts));
  };
  write("wrong", MadeWrongRun());
  write("right", MadeRightRun());
  write("comparison", MadeComparison());
  write("fleet", MadeFleet());
  write("hostile", MadeOfName(hostile));
  write("large", MadeLargeRun(10000));
  return 0;
}
