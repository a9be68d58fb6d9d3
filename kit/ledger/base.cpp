#include "kit/ledger/base.h"

#include "kit/common/fault.h"
#include "kit/common/file_place.h"
#include "kit/common/printable.h"
#include "kit/ledger/ledger.h"
#include "kit/ledger/ledger_place.h"
#include "kit/run/run_directory.h"

namespace vorn::kit {
namespace {

bool IsFit(const RunEntry& run, BaseUse use) {
  if (run.state != "done") return false;
  if (use == BaseUse::kTimes) return run.executions > 0;
  return run.verdict != "wrong" && run.verdict != "partial";
}

// Folders are used again: build/digits.run is another run tomorrow.
void HoldToOutputs(const RunEntry& base) {
  if (HoldsRun(base.path, base.identity)) return;
  const bool isThere = IsThere(base.path + "/" + kRunFile);
  const std::string why = isThere ? "holds another run by now" : "is gone";
  throw Fault(ExitStatus::kNothing, "the base is run " + std::to_string(base.id) +
                                        " of the history, and its directory " + Quoted(base.path) +
                                        " " + why +
                                        "; nothing is compared. Keep the directories of runs that "
                                        "later ones are judged by");
}

}  // namespace

std::string LedgerOfWith(const std::string& value) {
  constexpr std::string_view kWord = "history";
  if (value == kWord) return LedgerPath("");
  const std::string front = std::string(kWord) + "=";
  if (value.starts_with(front) && value.size() > front.size()) {
    return LedgerPath(value.substr(front.size()));
  }
  throw Fault(ExitStatus::kUsage,
              "--with takes history or history=FILE, and got '" + PrintableExcerpt(value) + "'");
}

RunEntry FindBase(const std::string& ledger, const std::string& run, BaseUse use) {
  RunEntry own = EntryOf(ReadRun(run), SideOf(run));
  const Ledger history = Ledger::ForReading(ledger);
  const auto parts = KeyPartsOf(kUsualParts);
  // There it may have been given another board's name.
  if (const auto known = history.Find(own.identity)) own = *known;
  const auto base =
      history.LastBefore(own, parts, [&](const RunEntry& entry) { return IsFit(entry, use); });
  if (!base) {
    throw Fault(ExitStatus::kNothing,
                "the history " + Quoted(ledger) + " has no run before " + Quoted(run) +
                    " in its level of the series '" +
                    Printable(SeriesTextOf(KeyOf(own, parts), parts)) + "' that " +
                    (use == BaseUse::kTimes ? "was timed" : "is done and was not judged wrong") +
                    "; nothing is compared");
  }
  if (use == BaseUse::kOutputs) HoldToOutputs(*base);
  return *base;
}

}  // namespace vorn::kit
