#include "kit/report/markdown.h"

#include <algorithm>
#include <vector>

#include "kit/common/printable.h"
#include "kit/page/number_text.h"
#include "kit/report/summary_tables.h"

namespace vorn::kit {
namespace {

constexpr size_t kToldOutputs = 20;
constexpr size_t kToldBoards = 30;
constexpr size_t kMostRemarks = 10;
constexpr size_t kMostCellBytes = 300;

// What is behind it is seen as no part of a link or a name that is called.
constexpr std::string_view kNothing = "&#8203;";

// "www", in whatever letters, at its last one.
bool EndsInWww(std::string_view text, size_t last) {
  if (last < 2) return false;
  const std::string_view word = text.substr(last - 2, 3);
  return word.find_first_not_of("wW") == std::string_view::npos;
}

std::string CellText(const std::string& text) {
  if (text.size() <= kMostCellBytes) return EscapedMarkdown(text);
  size_t end = kMostCellBytes;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
  return EscapedMarkdown(text.substr(0, end)) + "...";
}

std::string TableText(const SummaryTable& table) {
  if (table.rows.empty()) return "";
  std::string text = "|";
  std::string line = "|";
  for (const auto& column : table.columns) {
    text += " " + EscapedMarkdown(column.title) + " |";
    line += column.holdsNumbers ? " ---: |" : " --- |";
  }
  text += "\n" + line + "\n";
  for (const auto& row : table.rows) {
    text += "|";
    for (const std::string& cell : row) text += " " + CellText(cell) + " |";
    text += "\n";
  }
  if (table.leftOut > 0) text += "\nand " + CountText(table.leftOut) + " more\n";
  return text + "\n";
}

std::string AnswerText(const ReportAnswer& answer) {
  constexpr size_t kMostMore = 10;
  std::string text = "**" + EscapedMarkdown(VerdictHeading(answer)) +
                     "**: " + EscapedMarkdown(answer.sentence) + "\n\n";
  for (size_t i = 0; i < std::min(answer.more.size(), kMostMore); ++i) {
    text += "- " + CellText(answer.more[i]) + "\n";
  }
  return text + (answer.more.empty() ? "" : "\n");
}

std::string RemarksText(const ReportRun& run) {
  std::string text;
  size_t told = 0;
  for (const ReportRemark& remark : run.remarks) {
    if (remark.kind != ReportRemark::Kind::kWarning || ++told > kMostRemarks) continue;
    text += "- warning: " + CellText(remark.text) + "\n";
  }
  if (told > kMostRemarks) text += "- and " + CountText(told - kMostRemarks) + " more\n";
  return text + (text.empty() ? "" : "\n");
}

// A fence that nothing inside can end.
std::string CodeText(const std::string& code) {
  size_t longest = 2;
  size_t run = 0;
  for (const char c : code) {
    run = c == '`' ? run + 1 : 0;
    longest = std::max(longest, run);
  }
  const std::string fence(longest + 1, '`');
  return fence + "sh\n" + code + fence + "\n\n";
}

std::string CommandsText(const ReportRun& run) {
  if (run.commands.empty()) return "";
  std::string code;
  for (const ReportCommand& command : run.commands) {
    code += "# " + command.purpose + "\n" + command.command + "\n";
  }
  return "<details><summary>commands that repeat it</summary>\n\n" + CodeText(code) +
         "</details>\n\n";
}

std::string RunMarkdown(const ReportRun& run, bool isOneOfSeveral) {
  std::string text;
  if (isOneOfSeveral) {
    text += "#### " + EscapedMarkdown(run.name) + "\n\n" + AnswerText(run.answer);
  }
  if (run.judgement) text += TableText(OutputTable(*run.judgement, kToldOutputs));
  if (const SummaryTable worst = WorstTable(run); !worst.rows.empty()) {
    text += "<details><summary>worst samples</summary>\n\n" + TableText(worst) + "</details>\n\n";
  }
  if (run.fleet) text += TableText(BoardTable(*run.fleet, kToldBoards));
  if (run.areFindingsKnown) {
    text += Counted(run.findings.size() + run.findingsLeftOut, "finding") + "\n\n";
  }
  return text + RemarksText(run);
}

// Cut between lines: half of a table reads, half of a line may not. In a fold what is behind the
// cut would be folded, too, and be code; no line of a name begins as one does.
std::string Shortened(std::string text) {
  constexpr size_t kMostBytes = 60000;
  if (text.size() <= kMostBytes) return text;
  text.resize(text.rfind('\n', kMostBytes) + 1);
  const size_t fold = text.rfind("\n<details>");
  if (fold != std::string::npos && text.find("\n</details>", fold) == std::string::npos) {
    text.resize(fold + 1);
  }
  return text + "\n\nThe rest is left out; the page has it.\n";
}

}  // namespace

std::string EscapedMarkdown(std::string_view text) {
  constexpr std::string_view kMarkup = "\\`*_[]#|~$";
  const std::string plain = Printable(text);
  std::string escaped;
  for (size_t i = 0; i < plain.size(); ++i) {
    const std::string_view rest = std::string_view(plain).substr(i);
    const char c = plain[i];
    if (c == '<') {
      escaped += "&lt;";
    } else if (c == '>') {
      escaped += "&gt;";
    } else if (c == '&') {
      escaped += "&amp;";
    } else {
      if (kMarkup.find(c) != std::string_view::npos) escaped += '\\';
      escaped += c;
    }
    // These become links by themselves: "@team", "#12", "https://x", "www.x".
    const bool isLink = c == '@' || c == '#' || rest.starts_with("://") || EndsInWww(plain, i);
    if (isLink) escaped += kNothing;
  }
  // What begins a list where it stands in front of a line.
  const bool isMark =
      !escaped.empty() && std::string_view("-+=").find(escaped[0]) != std::string_view::npos;
  const size_t digits = escaped.find_first_not_of("0123456789");
  const bool isNumber = digits != 0 && digits != std::string::npos &&
                        (escaped[digits] == '.' || escaped[digits] == ')') &&
                        (digits + 1 == escaped.size() || escaped[digits + 1] == ' ');
  if (isMark) escaped.insert(0, "\\");
  if (isNumber) escaped.insert(digits, "\\");
  return escaped;
}

std::string MarkdownText(const ReportFacts& facts) {
  const bool areSeveral = facts.runs.size() > 1;
  std::string text = "### " + EscapedMarkdown(facts.title) + "\n\n" + AnswerText(facts.answer);
  for (const ReportComparison& comparison : facts.comparisons) {
    text +=
        TableText(OutputChangeTable(comparison, kToldOutputs)) + TableText(ChangeTable(comparison));
  }
  text += TableText(TimesTable(facts.runs));
  for (const ReportRun& run : facts.runs) text += RunMarkdown(run, areSeveral);
  if (!areSeveral) text += CommandsText(facts.runs.front());
  return Shortened(std::move(text));
}

}  // namespace vorn::kit
