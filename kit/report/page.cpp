#include "kit/report/page.h"

#include "kit/page/page.h"
#include "kit/report/terminal.h"

namespace vorn::kit {

std::string ReportPage(const ReportFacts& facts) {
  Page page;
  page.title = facts.title;
  page.verdict = facts.answer.verdict;
  page.answer = facts.answer.sentence;
  page.head = Printout("The report", TerminalText(facts, {.isUnicode = true}));
  return PageText(page);
}

}  // namespace vorn::kit
