// What vorn history reads: the first byte says which reader, the rest is the file. A database,
// which is refused or answers all questions; a line of an export, which is refused or comes back as
// it was; a verdict; a folder's run.json.
#include <array>
#include <cmath>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <span>
#include <string>

#include "fuzz/property.h"
#include "fuzz/scratch_folder.h"
#include "fuzz/targets.h"
#include "kit/common/fault.h"
#include "kit/history/changes.h"
#include "kit/history/history_page.h"
#include "kit/history/history_text.h"
#include "kit/history/read_run.h"
#include "kit/json/json.h"
#include "kit/ledger/ledger.h"

namespace fuzz {
namespace {

namespace kit = vorn::kit;

ScratchFolder& Folder() {
  static ScratchFolder& folder = *new ScratchFolder;
  return folder;
}

void AskAll(const kit::Ledger& ledger) {
  size_t runs = 0;
  ledger.ForEach({}, kit::RunDetail::kAll, [&](const kit::RunEntry& run) {
    ++runs;
    Require(ledger.Get(run.id).identity == run.identity, "the same run by its number");
    Require(!kit::RunText(run).empty(), "a run has a text");
  });
  const auto parts = kit::KeyPartsOf(kit::kUsualParts);
  std::vector<kit::SeriesHistory> all;
  size_t inSeries = 0;
  for (kit::RunSeriesPoints& series : ledger.Series(parts, {})) {
    inSeries += series.runs.size();
    all.push_back(kit::HistoryOf(std::move(series), parts, {}));
  }
  Require(runs == inSeries, "each run is in one series");
  const std::string page = kit::HistoryPage({.all = all,
                                             .find = [&](int64_t id) { return ledger.Get(id); },
                                             .sinceNs = 0,
                                             .ledger = "history",
                                             .folder = "/",
                                             .nowNs = 0});
  Require(page.find("<html") != std::string::npos, "a page");
}

void ReadDatabase(const std::string& bytes) {
  Folder().Write("history", bytes);
  const std::string path = Folder().Path() + "/history";
  // What another input left beside it is no part of this one.
  std::filesystem::remove(path + "-journal");
  try {
    AskAll(kit::Ledger::ForReading(path));
  } catch (const kit::Fault&) {
    // One of an earlier version may have been changed on the way here.
    std::filesystem::remove(path);
    Folder().Write("history", "");
    throw;
  }
}

void ReadExport(const std::string& text) {
  kit::RunEntry run;
  try {
    run = kit::EntryFromJson(kit::ParseJson(text));
  } catch (const kit::JsonError&) {
    return;
  }
  const std::string once = kit::ToText(kit::ToJson(run, true));
  Require(kit::ToText(kit::ToJson(kit::EntryFromJson(kit::ParseJson(once)), true)) == once,
          "it comes back as it was");
}

void ReadVerdict(const std::string& text) {
  kit::RunEntry run;
  try {
    kit::TakeVerdict(text, run);
  } catch (const kit::JsonError&) {
    return;
  }
  for (const kit::RunMetric& metric : run.metrics) {
    Require(std::isfinite(metric.value), "a figure is a number");
  }
}

void ReadFacts(const std::string& text) {
  Folder().Write("run.json", text);
  const kit::RunEntry run = kit::ReadRunEntry(Folder().Path());
  Require(run.identity.size() == 32, "a run has an identity");
  Require(!kit::RunText(run).empty(), "a run has a text");
}

constexpr std::array kReaders{ReadDatabase, ReadExport, ReadVerdict, ReadFacts};

}  // namespace

void HistoryFiles(std::span<const uint8_t> bytes) {
  if (bytes.empty()) return;
  const std::string rest(bytes.begin() + 1, bytes.end());
  try {
    kReaders[bytes[0] % kReaders.size()](rest);
  } catch (const kit::Fault& fault) {
    RequireReason(fault.what());
  } catch (const std::exception& error) {
    throw Violation{"another exception than a fault: " + std::string(error.what())};
  }
}

}  // namespace fuzz
