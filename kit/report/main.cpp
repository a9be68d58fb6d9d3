// vorn-report: what runs tell, as a page, in the terminal, as Markdown and as JSON.
#include <cstdio>
#include <string>
#include <vector>

#include "kit/common/command_line.h"
#include "kit/common/file_place.h"
#include "kit/common/printable.h"
#include "kit/common/told_time.h"
#include "kit/common/whole_file.h"
#include "kit/report/facts_json.h"
#include "kit/report/gather.h"
#include "kit/report/markdown.h"
#include "kit/report/page.h"
#include "kit/report/run_facts.h"
#include "kit/report/terminal.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostRuns = 20;
constexpr uint64_t kMostDetails = 100;
constexpr uint64_t kDetails = 8;

constexpr std::string_view kForms[] = {
    "RUN [RUN...] [-o report.html] [--json] [--markdown]",
};

constexpr Option kOptions[] = {
    {"output", 'o', "FILE",
     "Where the page goes, or the JSON or Markdown that is asked for. Without it they go to "
     "standard output, and without --json and --markdown the top part of the report."},
    {"json", 0, "", "All that the page says as JSON: docs/schema/report.json."},
    {"markdown", 0, "", "The top part as Markdown, for a comment on a pull request."},
    {"title", 't', "TEXT", "What stands above it; without it the names of the runs."},
    {"samples", 's', "N", "Open the N worst samples of each run, 0 to 100; 8 without."},
    {"quiet", 'q', "", "Say nothing but faults, and what is asked for."},
};

constexpr Verb kReport{
    .name = "report",
    .summary = "what runs tell: a page to open, or the answer in the terminal",
    .forms = kForms,
    .about =
        "Tells what came of RUN, a run directory, as vorn judge, vorn timing and vorn trace would\n"
        "tell it, in one page without network or server: the answer in a sentence, the verdict\n"
        "of each output, the worst samples in detail, times, memory and temperature, findings,\n"
        "machine and versions, and the commands that repeat it. Of several runs it tells how each\n"
        "further one differs from the first: slower, faster, alike or cannot tell, which outputs\n"
        "and what else changed. A folder of vorn qualify stands for the run of its device, one\n"
        "of vorn launch --interleave for the two that took turns.\n"
        "\n"
        "Parts of a run that are missing or spoilt are told, also of a run that has not ended:\n"
        "only run.json has to be there. Judge a run first to have a verdict; its worst samples\n"
        "are opened where they were judged. What the samples were made from is shown as far as\n"
        "the manifest of vorn prepare tells it.\n"
        "\n"
        "Ends with status 0 if the report was made, whatever it says: vorn judge and vorn timing\n"
        "gate, this tells. 3 if a run.json cannot be read, 7 if the file cannot be written.\n"
        "SOURCE_DATE_EPOCH makes the report of the same runs the same to the byte.",
    .options = kOptions,
    .example = "build/release/vorn report build/digits.run",
    .mostOperands = kMostRuns,
};

ReportRequest TakeRequest(const Arguments& arguments) {
  if (arguments.Operands().empty()) {
    throw Fault(ExitStatus::kUsage,
                "the run is missing: vorn report RUN -o report.html; --help tells more");
  }
  if (arguments.Has("json") && arguments.Has("markdown")) {
    throw Fault(ExitStatus::kUsage, "--json and --markdown exclude each other");
  }
  ReportRequest request;
  request.runs.assign(arguments.Operands().begin(), arguments.Operands().end());
  request.title = arguments.Get("title").value_or("");
  request.samples = arguments.GetNumber("samples", kDetails, 0, kMostDetails);
  request.version = VORN_VERSION;
  request.nowRealtimeNs = ToldTimeNs();
  return request;
}

void HoldToOtherFiles(const Arguments& arguments, const ReportRequest& request) {
  const auto output = arguments.Get("output");
  if (!output || !IsThere(*output)) return;
  for (const std::string& run : request.runs) {
    for (const RunPlace& place : FindRuns(run)) HoldToOtherFile(*output, place);
  }
}

// What was asked for; the page where a file was named, the top part where none was.
std::string TextOf(const Arguments& arguments, const ReportFacts& facts) {
  if (arguments.Has("json")) return FactsJson(facts);
  if (arguments.Has("markdown")) return MarkdownText(facts);
  return arguments.Has("output") ? ReportPage(facts) : TerminalText(facts, LookOfTerminal());
}

ExitStatus Report(const Arguments& arguments) {
  const ReportRequest request = TakeRequest(arguments);
  HoldToOtherFiles(arguments, request);
  const ReportFacts facts = GatherReport(request);
  const std::string text = TextOf(arguments, facts);
  const bool isQuiet = arguments.Has("quiet");
  if (const auto path = arguments.Get("output")) {
    WriteWholeFile(*path, text);
    if (!isQuiet) std::fprintf(stderr, "vorn report: wrote %s\n", Quoted(*path).c_str());
    return ExitStatus::kDone;
  }
  std::fwrite(text.data(), 1, text.size(), stdout);
  const bool isTopPart = !arguments.Has("json") && !arguments.Has("markdown");
  if (isTopPart && !isQuiet) {
    std::vector<std::string> command{"vorn", "report"};
    command.insert(command.end(), request.runs.begin(), request.runs.end());
    command.insert(command.end(), {"-o", "report.html"});
    std::printf("\nthe whole page: %s\n", QuotedCommand(command).c_str());
  }
  return ExitStatus::kDone;
}

}  // namespace
}  // namespace vorn::kit

int main(int argc, char** argv) {
  return vorn::kit::RunVerb(vorn::kit::kReport, argc, argv, vorn::kit::Report);
}
