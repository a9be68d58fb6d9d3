// The top part of a report as Markdown, for a comment on a pull request.
#ifndef VORN_KIT_REPORT_MARKDOWN_H_
#define VORN_KIT_REPORT_MARKDOWN_H_

#include <string>
#include <string_view>

#include "kit/report/report_facts.h"

namespace vorn::kit {

/// At most some 60,000 characters, which is what such comments hold.
[[nodiscard]] std::string MarkdownText(const ReportFacts& facts);

/// Text of others as text within a line or a table's cell: nothing in it is markup, a link, or
/// calls somebody by name.
[[nodiscard]] std::string EscapedMarkdown(std::string_view text);

}  // namespace vorn::kit

#endif  // VORN_KIT_REPORT_MARKDOWN_H_
