// A run directory that a report is made of: the first byte says which file of a good one is
// another, the rest is that file. The report is made, or refused with a line that a person can
// read; it is JSON, bounded, and has no name of others as markup.
#include <array>
#include <cstdint>
#include <exception>
#include <span>
#include <string>

#include "fuzz/property.h"
#include "fuzz/scratch_folder.h"
#include "fuzz/targets.h"
#include "kit/common/fault.h"
#include "kit/json/json.h"
#include "kit/report/facts_json.h"
#include "kit/report/gather.h"
#include "kit/report/made_run.h"
#include "kit/report/markdown.h"
#include "kit/report/page.h"
#include "kit/report/terminal.h"
#include "support/files.h"

namespace fuzz {
namespace {

namespace kit = vorn::kit;

constexpr std::array kFiles{"run.json",    "verdict.json",  "samples.jsonl",
                            "times.jsonl", "machine.jsonl", "findings.jsonl",
                            "boards.json", "model.json",    "trace.vtrace"};

// A run that differs from its reference, judged, whose files are put back after each input.
class GoodRun {
 public:
  GoodRun() {
    const kit::MadeRun reference(folder_.Path() + "/reference");
    reference.Write();
    kit::MadeRun run(Path());
    run.samples[1] = {0.7F, 0.1F, 0.1F, 0.1F};
    run.Write();
    kit::JudgeRuns(Path(), reference.folder);
    for (const char* name : kFiles) files_.push_back(Bytes(name));
  }

  [[nodiscard]] std::string Path() const { return folder_.Path() + "/run"; }

  void Replace(size_t file, const std::string& bytes) const {
    support::WriteFile(Path() + "/" + kFiles[file], bytes);
  }

  void PutBack(size_t file) const {
    if (files_[file].empty()) {
      std::filesystem::remove(Path() + "/" + kFiles[file]);
    } else {
      Replace(file, files_[file]);
    }
  }

 private:
  // Empty of one that a good run need not have.
  [[nodiscard]] std::string Bytes(const char* name) const {
    const std::string path = Path() + "/" + name;
    return std::filesystem::exists(path) ? support::ReadFile(path) : "";
  }

  ScratchFolder folder_;
  std::vector<std::string> files_;
};

void Tell(const kit::ReportFacts& facts) {
  constexpr size_t kMostPageBytes = 8 << 20;
  (void)kit::ParseJson(kit::FactsJson(facts));
  const std::string markdown = kit::MarkdownText(facts);
  Require(markdown.find("<script") == std::string::npos, "no markup of others in Markdown");
  const std::string terminal = kit::TerminalText(facts, {});
  Require(terminal.find('\x1b') == std::string::npos, "nothing that steers a terminal");
  Require(kit::ReportPage(facts).size() <= kMostPageBytes, "a page of some size at most");
}

}  // namespace

void RunFolder(std::span<const uint8_t> bytes) {
  if (bytes.empty()) return;
  static const GoodRun& run = *new GoodRun;
  const size_t file = bytes[0] % kFiles.size();
  run.Replace(file, std::string(bytes.begin() + 1, bytes.end()));
  try {
    kit::ReportRequest request;
    request.runs = {run.Path()};
    request.samples = 2;
    Tell(kit::GatherReport(request));
    run.PutBack(file);
  } catch (const kit::Fault& fault) {
    run.PutBack(file);
    Require(file == 0, "only run.json has to be there");
    RequireReason(fault.what());
  } catch (const std::exception& error) {
    run.PutBack(file);
    throw Violation{"another exception than a fault: " + std::string(error.what())};
  }
}

}  // namespace fuzz
