#include "kit/report/fault_kinds.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <string_view>
#include <utility>

#include "kit/common/number_ranges.h"
#include "kit/page/html.h"
#include "kit/page/number_text.h"

namespace vorn::kit {
namespace {

struct KnownCause {
  std::string_view id;
  std::string_view words;
};

constexpr std::array kKnownCauses{
    KnownCause{"activation-added", "an activation too many"},
    KnownCause{"activation-missing", "a missing activation"},
    KnownCause{"bfloat16-as-bits", "the bits of bfloat16 taken for numbers"},
    KnownCause{"byte-order", "bytes in the other order"},
    KnownCause{"channel-off", "a channel that is off"},
    KnownCause{"channels-exchanged", "exchanged channels"},
    KnownCause{"channels-reversed", "channels in reverse"},
    KnownCause{"constant", "one value throughout"},
    KnownCause{"flipped", "a flipped output"},
    KnownCause{"float16-as-bits", "the bits of float16 taken for numbers"},
    KnownCause{"int32-as-float", "whole numbers taken for floats"},
    KnownCause{"isolated", "single elements that are off"},
    KnownCause{"items-exchanged", "exchanged items of a batch"},
    KnownCause{"nchw-nhwc", "channels before places or behind them"},
    KnownCause{"offset", "values with an offset"},
    KnownCause{"order-kept", "other values in the same order"},
    KnownCause{"other-sample", "the output of another sample"},
    KnownCause{"rounded-bfloat16", "values rounded to bfloat16"},
    KnownCause{"rounded-float16", "values rounded to float16"},
    KnownCause{"rounded-int8", "values rounded to 8 bits"},
    KnownCause{"rows-columns", "rows taken for columns"},
    KnownCause{"saturated", "values cut off at a limit"},
    KnownCause{"scaled", "scaled values"},
    KnownCause{"shifted", "shifted values"},
    KnownCause{"signed-as-unsigned", "signed numbers taken for unsigned ones"},
    KnownCause{"stale", "the output of the sample before"},
    KnownCause{"stride-left-in", "padding left in"},
    KnownCause{"stride-wrong", "a wrong stride"},
    KnownCause{"tail-unwritten", "an end that was not written"},
    KnownCause{"unsigned-as-signed", "unsigned numbers taken for signed ones"},
};

std::string KnownWords(const ReportCause& cause) {
  for (const KnownCause& known : kKnownCauses) {
    if (known.id == cause.id) return std::string(known.words);
  }
  return NameExcerpt(cause.text);  // of a later version
}

// In the order in which a fault is taken for one of them.
constexpr std::string_view kNan = "nan";
constexpr std::string_view kInfinite = "infinite";
constexpr std::string_view kOther = "~";
constexpr std::string_view kOtherSample = "other-sample";

using ByKind = std::map<std::string, FaultKind, std::less<>>;

std::string OddSentence(uint64_t least, uint64_t most, const char* what) {
  if (most == 1) return std::string("1 element is wrong by ") + what;
  return (least == most ? CountText(most) : CountText(least) + " to " + CountText(most)) +
         " elements are wrong by " + what;
}

struct Counts {
  uint64_t least = UINT64_MAX;
  uint64_t most = 0;

  void Take(uint64_t count) {
    least = std::min(least, count);
    most = std::max(most, count);
  }
};

// The stretch of one pattern that a wrong sample is one of.
const NeighbourStretch* StretchOf(const ReportOutput& output, uint64_t sample) {
  for (const NeighbourStretch& stretch : output.stretches) {
    if (stretch.pattern != NeighbourPattern::kEither &&
        std::binary_search(stretch.wrong.begin(), stretch.wrong.end(), sample)) {
      return &stretch;
    }
  }
  return nullptr;
}

// All of a stretch have one sentence, whatever their own ones say.
FaultKind& KindOfStretch(const NeighbourStretch& stretch, double explained, ByKind& kinds) {
  FaultKind& kind = kinds["neighbours-" + std::string(NeighbourPatternName(stretch.pattern))];
  if (kind.samples.empty()) {
    kind.words = stretch.pattern == NeighbourPattern::kExchanged ? "exchanged neighbours"
                 : stretch.pattern == NeighbourPattern::kBefore  ? "the output of the sample before"
                                                                : "the output of the sample behind";
    kind.sentence = StretchText(stretch);
    kind.explained = explained;
  }
  kind.explained = std::min(kind.explained, explained);
  return kind;
}

FaultKind& KindOf(const ReportOutput& output, const ReportFault& fault, ByKind& kinds) {
  if (fault.nan > 0) {
    FaultKind& kind = kinds[std::string(kNan)];
    kind.words = "NaN";
    return kind;
  }
  if (fault.infinite > 0) {
    FaultKind& kind = kinds[std::string(kInfinite)];
    kind.words = "infinities";
    return kind;
  }
  if (fault.causes.empty()) {
    FaultKind& kind = kinds[std::string(kOther)];
    kind.words = "differences";
    kind.sentence = "what differs fits no cause that is known here, or was not looked into";
    return kind;
  }
  const ReportCause& cause = fault.causes.front();
  if (const NeighbourStretch* stretch = StretchOf(output, fault.sample)) {
    return KindOfStretch(*stretch, cause.certainty, kinds);
  }
  FaultKind& kind = kinds[cause.id];
  if (kind.samples.empty()) {
    kind.words = KnownWords(cause);
    kind.sentence = cause.text;
    kind.explained = cause.certainty;
  }
  // The words of one cause may differ by their numbers.
  if (!kind.areOthersAlike && kind.sentence != cause.text) {
    kind.areOthersAlike = true;
    // One alone does not tell samples that were exchanged from those that came too late.
    if (cause.id == kOtherSample) {
      kind.further =
          "; sample " + std::to_string(fault.sample) + ": " + cause.text + "; others alike";
    }
  }
  kind.explained = std::min(kind.explained, cause.certainty);
  return kind;
}

void TakeOutput(const ReportOutput& output, ByKind& kinds) {
  Counts nan;
  Counts infinite;
  for (const ReportFault& fault : output.wrong) {
    KindOf(output, fault, kinds).samples.push_back(fault.sample);
    if (fault.nan > 0) {
      nan.Take(fault.nan);
    } else if (fault.infinite > 0) {
      infinite.Take(fault.infinite);
    }
  }
  const auto tell = [&](std::string_view id, const Counts& counts, const char* what) {
    if (counts.most > 0)
      kinds.find(id)->second.sentence = OddSentence(counts.least, counts.most, what);
  };
  tell(kNan, nan, "NaN");
  tell(kInfinite, infinite, "infinities");
}

std::vector<FaultKind> Sorted(ByKind& byKind) {
  std::vector<FaultKind> kinds;
  for (auto& [id, kind] : byKind) {
    std::sort(kind.samples.begin(), kind.samples.end());
    kind.samples.erase(std::unique(kind.samples.begin(), kind.samples.end()), kind.samples.end());
    if (kind.areOthersAlike) {
      kind.sentence += kind.further.empty() ? ", others alike" : kind.further;
    }
    if (!kind.samples.empty()) kinds.push_back(std::move(kind));
  }
  std::stable_sort(kinds.begin(), kinds.end(), [](const FaultKind& one, const FaultKind& other) {
    if (one.samples.size() != other.samples.size()) {
      return one.samples.size() > other.samples.size();
    }
    return one.samples.front() < other.samples.front();
  });
  return kinds;
}

}  // namespace

std::vector<FaultKind> FaultKindsOf(const ReportOutput& output) {
  ByKind kinds;
  TakeOutput(output, kinds);
  return Sorted(kinds);
}

std::vector<FaultKind> FaultKindsOf(const ReportJudgement& judgement) {
  ByKind kinds;
  for (const ReportOutput& output : judgement.outputs) TakeOutput(output, kinds);
  std::set<uint64_t> told;
  for (const auto& [id, kind] : kinds) {
    if (id != kOther) told.insert(kind.samples.begin(), kind.samples.end());
  }
  if (const auto other = kinds.find(kOther); other != kinds.end()) {
    std::erase_if(other->second.samples, [&](uint64_t sample) { return told.count(sample) > 0; });
  }
  return Sorted(kinds);
}

std::string SamplesText(const std::vector<uint64_t>& samples, size_t most) {
  return (samples.size() == 1 ? "sample " : "samples ") + RangesText(samples, most);
}

}  // namespace vorn::kit
