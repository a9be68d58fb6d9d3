#include "kit/history/import_runs.h"

#include "kit/common/fault.h"
#include "kit/common/told_time.h"
#include "kit/history/moment.h"
#include "kit/history/read_run.h"
#include "kit/json/json.h"

namespace vorn::kit {
namespace {

// So many are read before the file is held for a moment: reading takes long, keeping does not.
constexpr size_t kTogether = 64;

class Importer {
 public:
  Importer(Ledger* ledger, BoardOf board, const OnImported& onImported)
      : ledger_(ledger), board_(board), onImported_(onImported) {}

  void Take(RunEntry run) {
    waiting_.push_back(std::move(run));
    if (waiting_.size() == kTogether) Flush();
  }

  void Flush() {
    if (waiting_.empty()) return;
    const std::vector<Addition> additions =
        ledger_ == nullptr ? std::vector<Addition>(waiting_.size(), Addition::kAdded)
                           : ledger_->Add(waiting_, board_);
    for (size_t i = 0; i < waiting_.size(); ++i) {
      Count(additions[i]);
      onImported_(waiting_[i], additions[i]);
    }
    waiting_.clear();
  }

  ImportCounts& Counts() { return counts_; }

 private:
  void Count(Addition addition) {
    switch (addition) {
      case Addition::kAdded:
        ++counts_.added;
        break;
      case Addition::kUpdated:
        ++counts_.updated;
        break;
      case Addition::kKnown:
        ++counts_.known;
        break;
      case Addition::kOlder:
        ++counts_.older;
        break;
    }
  }

  Ledger* ledger_;
  BoardOf board_;
  const OnImported& onImported_;
  std::vector<RunEntry> waiting_;
  ImportCounts counts_;
};

}  // namespace

ImportCounts ImportRuns(Ledger* ledger, const std::vector<std::string>& runs,
                        const std::optional<std::string>& board, const OnImported& onImported,
                        const OnRefused& onRefused) {
  // A name that was given stays, also where the run is added again by a line that gives none.
  Importer importer(ledger, board ? BoardOf::kRun : BoardOf::kLedger, onImported);
  for (const std::string& path : runs) {
    std::optional<RunEntry> run;
    try {
      run = ReadRunEntry(path, board);
    } catch (const Fault& fault) {
      // One that is damaged, among a thousand, is no reason to leave out the others.
      ++importer.Counts().refused;
      onRefused(fault.what());
      continue;
    }
    run->addedRealtimeNs = ToldTimeNs();
    importer.Take(std::move(*run));
  }
  importer.Flush();
  return importer.Counts();
}

ImportCounts ImportLines(Ledger* ledger, const std::string& path, const OnImported& onImported) {
  Importer importer(ledger, BoardOf::kRun, onImported);
  try {
    // It may come through a pipe, and one that was cut short is not taken for a whole one.
    ForEachLine(
        path, "the export", ExitStatus::kInput,
        [&](std::string_view line) {
          if (line.empty()) return;
          RunEntry run = EntryFromJson(ParseJson(line));
          run.id = 0;
          importer.Take(std::move(run));
        },
        LineSource::kNamed);
  } catch (const Fault& fault) {
    if (fault.Status() == ExitStatus::kInput) importer.Flush();
    throw;
  }
  importer.Flush();
  return importer.Counts();
}

std::string TextOf(const ImportCounts& counts) {
  std::string text;
  const auto add = [&](size_t count, const char* what) {
    if (count == 0) return;
    text += (text.empty() ? "" : ", ") + std::to_string(count) + " " + what;
  };
  add(counts.added, "added");
  add(counts.updated, "brought up to date");
  add(counts.known, "known already");
  add(counts.older, "known in a later state");
  add(counts.refused, "not to be read");
  return text.empty() ? "no run" : text;
}

}  // namespace vorn::kit
