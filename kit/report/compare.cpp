#include "kit/report/compare.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <optional>
#include <span>
#include <utility>

#include "kit/common/fault.h"
#include "kit/common/printable.h"
#include "kit/report/answer.h"
#include "kit/report/bounds.h"
#include "kit/timing/times.h"

namespace vorn::kit {
namespace {

constexpr size_t kMostHashes = 32 << 20;  // of 8 bytes each
constexpr size_t kMostComparedOutputs = 2000;
constexpr size_t kMostLibraries = 20;

// ---- Surroundings -------------------------------------------------------------------------------

class Changes {
 public:
  void Text(const char* what, const std::string& base, const std::string& other) {
    if (base != other) all_.push_back({what, OrNone(base), OrNone(other)});
  }

  template <typename Value>
  void Number(const char* what, const std::optional<Value>& base,
              const std::optional<Value>& other) {
    const auto text = [](const std::optional<Value>& value) {
      return value ? std::to_string(*value) : std::string();
    };
    Text(what, text(base), text(other));
  }

  // By what it holds, wherever it lies; by its path where that is not known.
  void File(const char* what, const std::optional<FileIdentity>& base,
            const std::optional<FileIdentity>& other) {
    if (!base && !other) return;
    if (base && other) {
      const bool areHashed = base->xxh3 && other->xxh3;
      if (areHashed ? base->xxh3 == other->xxh3 : base->path == other->path) return;
    }
    all_.push_back({what, Identity(base), Identity(other)});
  }

  std::vector<ReportChange> Take() { return std::move(all_); }

 private:
  static std::string OrNone(const std::string& text) { return text.empty() ? "none" : text; }

  static std::string Identity(const std::optional<FileIdentity>& file) {
    constexpr size_t kShownDigits = 8;
    if (!file) return "none";
    std::string text = file->path;
    if (file->sizeBytes) text += ", " + Counted(*file->sizeBytes, "byte");
    if (file->xxh3) text += ", " + file->xxh3->substr(0, kShownDigits);
    return text;
  }

  std::vector<ReportChange> all_;
};

std::string JoinedText(const std::vector<std::string>& words) { return QuotedCommand(words); }

// Build-ids by the names of the libraries, which lie elsewhere on another machine.
std::map<std::string, std::string> LibrariesOf(const RunFacts& facts) {
  std::map<std::string, std::string> libraries;
  for (const MappedFile& mapped : facts.mapped) {
    const size_t slash = mapped.path.rfind('/');
    libraries[slash == std::string::npos ? mapped.path : mapped.path.substr(slash + 1)] =
        mapped.buildId.value_or("no build-id");
  }
  return libraries;
}

void AddLibraries(const RunFacts& base, const RunFacts& other, std::vector<ReportChange>& changes) {
  if (base.mapped.empty() || other.mapped.empty()) return;
  const auto ofBase = LibrariesOf(base);
  const auto ofOther = LibrariesOf(other);
  size_t told = 0;
  for (const auto& [name, buildId] : ofBase) {
    const auto at = ofOther.find(name);
    // The program is looked at now and then: one that was brief has mapped more than was seen.
    if (at == ofOther.end() || buildId == at->second) continue;
    if (++told > kMostLibraries) return;
    changes.push_back({"library " + name, buildId, at->second});
  }
}

// ---- Outputs ------------------------------------------------------------------------------------

// The first half of a hash; 0 of a sample without that output.
uint64_t HalfOf(const std::string& digits) {
  uint64_t half = 0;
  const size_t count = std::min<size_t>(digits.size(), 16);
  std::from_chars(digits.data(), digits.data() + count, half, 16);
  return std::max<uint64_t>(half, 1);
}

class OutputHashes {
 public:
  explicit OutputHashes(const std::string& run) {
    ForEachLine(run + "/" + kSamplesFile, "the samples of the run", ExitStatus::kInput,
                [&](std::string_view line) { Take(SampleFromLine(line)); });
  }

  const std::map<std::string, std::vector<uint64_t>>& All() const { return hashes_; }

 private:
  void Take(const SampleRecord& record) {
    for (const SampleOutput& output : record.outputs) {
      if (hashes_.size() == kMostComparedOutputs && hashes_.count(output.name) == 0) continue;
      std::vector<uint64_t>& hashes = hashes_[output.name];
      if (hashes.size() <= record.index) Grow(hashes, record.index);
      hashes[record.index] = HalfOf(output.xxh3);
    }
  }

  // An index that a damaged file tells may be anything.
  void Grow(std::vector<uint64_t>& hashes, uint64_t index) {
    const uint64_t more = index - hashes.size() + 1;
    if (more > kMostHashes - held_) {
      throw Fault(ExitStatus::kLimit,
                  "there are more than " + std::to_string(kMostHashes) +
                      " outputs of samples, and so they were not compared by their bytes");
    }
    held_ += more;
    hashes.resize(index + 1);
  }

  std::map<std::string, std::vector<uint64_t>> hashes_;
  size_t held_ = 0;
};

ReportOutputChange ChangeOf(const std::string& name, std::span<const uint64_t> base,
                            std::span<const uint64_t> other) {
  ReportOutputChange change;
  change.output = name;
  for (size_t sample = 0; sample < std::max(base.size(), other.size()); ++sample) {
    const uint64_t one = sample < base.size() ? base[sample] : 0;
    const uint64_t two = sample < other.size() ? other[sample] : 0;
    if (one == 0 && two == 0) continue;
    if (two == 0) {
      ++change.onlyBase;
    } else if (one == 0) {
      ++change.onlyOther;
    } else if (one == two) {
      ++change.equal;
    } else {
      ++change.different;
      if (!change.firstDifferent) change.firstDifferent = sample;
    }
  }
  return change;
}

// ---- Times --------------------------------------------------------------------------------------

// Of a run that has none an empty series.
std::vector<double> TimesOf(const RunPlace& place, ReportComparison& comparison) {
  try {
    const MeasuredTimes measured = TimesOfRun(ReadTimes(place.run));
    if (measured.series.size() == 1) return measured.series.front().timesNs;
    comparison.remarks.push_back(InQuotes(place.run) + " has " +
                                 Counted(measured.series.size(), "series") +
                                 " of times, and one is compared");
  } catch (const Fault& fault) {
    comparison.remarks.emplace_back(fault.what());
  }
  return {};
}

// Those of both sides; of two runs that took turns by pairs.
struct Measured {
  std::vector<double> base;
  std::vector<double> other;
  bool isPaired = false;
};

Measured MeasuredOf(const RunPlace& base, const RunPlace& other, ReportComparison& comparison) {
  if (!base.turns.empty() && base.turns == other.turns) {
    try {
      MeasuredTimes both = ReadMeasuredTimes(base.turns, {});
      if (both.series.size() == 2) {
        return {std::move(both.series[0].timesNs), std::move(both.series[1].timesNs),
                both.isPaired};
      }
    } catch (const Fault& fault) {
      comparison.remarks.emplace_back(fault.what());
    }
  }
  return {TimesOf(base, comparison), TimesOf(other, comparison), false};
}

std::string WordOf(ReportVerdict verdict) {
  switch (verdict) {
    case ReportVerdict::kRight:
      return "right";
    case ReportVerdict::kWrong:
      return "wrong";
    case ReportVerdict::kNotJudged:
      break;
  }
  return "not judged";
}

}  // namespace

std::vector<ReportChange> EnvironmentChanges(const RunFacts& base, const RunFacts& other) {
  Changes changes;
  changes.File("model", base.model, other.model);
  changes.File("configuration", base.configuration, other.configuration);
  changes.File("list", base.list, other.list);
  changes.File("runtime", base.runtime, other.runtime);
  changes.File("program", base.program, other.program);
  changes.Text("version", base.version, other.version);
  changes.Text("options", JoinedText(base.options.value_or(std::vector<std::string>())),
               JoinedText(other.options.value_or(std::vector<std::string>())));
  changes.Text("host", base.machine.host, other.machine.host);
  changes.Text("kernel", base.machine.kernel, other.machine.kernel);
  changes.Text("processor", base.machine.processor, other.machine.processor);
  changes.Number("cores", base.machine.cores, other.machine.cores);
  changes.Text("governor", base.machine.governor.value_or(""), other.machine.governor.value_or(""));
  changes.Number("memory in bytes", base.machine.memoryTotalBytes, other.machine.memoryTotalBytes);
  changes.Text("container", base.machine.container.value_or(""),
               other.machine.container.value_or(""));
  std::vector<ReportChange> all = changes.Take();
  AddLibraries(base, other, all);
  return all;
}

std::vector<ReportChange> VerdictChanges(const ReportRun& base, const ReportRun& other) {
  std::vector<ReportChange> changes;
  if (!base.judgement || !other.judgement) return changes;
  for (const ReportOutput& one : base.judgement->outputs) {
    for (const ReportOutput& two : other.judgement->outputs) {
      if (one.name != two.name || one.verdict == two.verdict) continue;
      changes.push_back({one.name, WordOf(one.verdict), WordOf(two.verdict)});
    }
  }
  return changes;
}

std::vector<ReportOutputChange> OutputChanges(const std::string& base, const std::string& other) {
  const OutputHashes ofBase(base);
  const OutputHashes ofOther(other);
  std::vector<ReportOutputChange> changes;
  for (const auto& [name, hashes] : ofBase.All()) {
    const auto at = ofOther.All().find(name);
    const auto others =
        at == ofOther.All().end() ? std::span<const uint64_t>() : std::span(at->second);
    changes.push_back(ChangeOf(name, hashes, others));
  }
  for (const auto& [name, hashes] : ofOther.All()) {
    if (ofBase.All().count(name) == 0) changes.push_back(ChangeOf(name, {}, hashes));
  }
  return changes;
}

std::vector<ReportComparison> CompareRuns(const std::vector<RunPlace>& places,
                                          const std::vector<ReportRun>& runs) {
  std::vector<ReportComparison> comparisons;
  std::vector<Measured> measured;
  for (size_t other = 1; other < runs.size(); ++other) {
    ReportComparison& comparison = comparisons.emplace_back();
    comparison.other = other;
    measured.push_back(MeasuredOf(places[0], places[other], comparison));
    comparison.environment = EnvironmentChanges(runs[0].facts, runs[other].facts);
    comparison.verdicts = VerdictChanges(runs[0], runs[other]);
    try {
      comparison.outputs = OutputChanges(places[0].run, places[other].run);
    } catch (const Fault& fault) {
      comparison.remarks.emplace_back(fault.what());
    }
  }
  std::vector<Contest> contests;
  contests.reserve(measured.size());
  for (const Measured& one : measured) contests.push_back({one.base, one.other, one.isPaired});
  const Gates gates;
  const std::vector<Comparison> found = Compare(contests, gates, Bootstrap());
  for (size_t i = 0; i < comparisons.size(); ++i) {
    comparisons[i].times = found[i];
    comparisons[i].gates = gates;
    comparisons[i].confidence = Bootstrap().confidence;
    BoundComparison(comparisons[i]);
    comparisons[i].answer = AnswerOf(comparisons[i], runs[0], runs[comparisons[i].other]);
  }
  return comparisons;
}

}  // namespace vorn::kit
