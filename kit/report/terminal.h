// The top part of a report for a terminal.
#ifndef VORN_KIT_REPORT_TERMINAL_H_
#define VORN_KIT_REPORT_TERMINAL_H_

#include <string>

#include "kit/report/report_facts.h"

namespace vorn::kit {

struct TerminalLook {
  bool isUnicode = false;  ///< bars of blocks, else of #
  bool isColoured = false;
};

/// How standard output can be written to: blocks on a terminal whose locale is UTF-8, colours on
/// one where NO_COLOR is not set.
[[nodiscard]] TerminalLook LookOfTerminal();

/// The answer, outputs, worst samples, times, phases, boards, what changed, warnings.
[[nodiscard]] std::string TerminalText(const ReportFacts& facts, const TerminalLook& look);

/// A bar of at most `width` places for a share of 0 to 1; what is not 0 shows.
[[nodiscard]] std::string BarText(double share, size_t width, bool isUnicode);

}  // namespace vorn::kit

#endif  // VORN_KIT_REPORT_TERMINAL_H_
