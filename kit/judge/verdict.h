// What a judgement found, as data; and for people, as verdict.json and as JUnit.
#ifndef VORN_KIT_JUDGE_VERDICT_H_
#define VORN_KIT_JUDGE_VERDICT_H_

#include <optional>
#include <string>
#include <vector>

#include "kit/common/fault.h"
#include "kit/judge/cause.h"
#include "kit/judge/census.h"
#include "kit/judge/floor.h"
#include "kit/judge/inside.h"
#include "kit/judge/neighbours.h"
#include "kit/judge/preparation.h"
#include "kit/judge/rules.h"
#include "kit/judge/top_agreement.h"
#include "kit/tensor/stored_tensor.h"

namespace vorn::kit {

/// What is kept of each sample of an output that was compared.
struct SampleSketch {
  uint64_t sample = 0;
  bool isRight = false;
  uint64_t outside = 0;
  double maxAbs = 0;
  double rmse = 0;
  double cosine = 0;
  uint64_t expectedSample = 0;  ///< its number on the expected side, of a stacked source its place
  uint64_t notFinite = 0;       ///< elements that are wrong by a NaN or an infinity
};

/// A sample of an output that is wrong, or that could not be judged.
struct SampleFault {
  uint64_t sample = 0;
  std::vector<std::string> reasons;
  bool isUnreadable = false;  ///< a file of it is damaged, or cannot be read
  uint64_t nan = 0;           ///< elements that are wrong by a NaN on either side
  uint64_t infinite = 0;      ///< and by an infinity
};

struct WorstElement {
  uint64_t sample = 0;
  Difference difference;
};

struct SampleCauses {
  uint64_t sample = 0;
  std::vector<Cause> causes;
};

struct OutputVerdict {
  std::string name;          ///< as the actual side's dumps spell it
  std::string expectedName;  ///< where the map gives another one
  Shape shape;
  ElementType type = ElementType::kFloat32;
  OutputRules rules;
  Census census;  ///< of all samples
  TopAgreement agreement;
  std::vector<SampleSketch> samples;
  std::vector<WorstElement> worst;
  std::vector<SampleFault> wrong;
  std::vector<SampleFault> notJudged;
  std::vector<SampleCauses> causes;
  std::vector<NeighbourStretch> stretches;  ///< as far as causes were looked for
};

/// A sample that is on one side only.
struct MissingSample {
  uint64_t sample = 0;
  bool isActualMissing = false;
  std::string reason;
};

/// How well one side names what the labels say.
struct Accuracy {
  std::string output;
  std::string metric;  ///< "top 1", "mean IoU"
  double actual = 0;
  double expected = 0;
};

struct Verdict {
  std::string actualPath;
  std::string expectedPath;
  std::vector<OutputVerdict> outputs;
  std::vector<MissingSample> missing;
  std::vector<Accuracy> accuracy;
  std::vector<std::string> remarks;
  uint64_t samples = 0;  ///< that stand on both sides
  /// Why not all samples were there to be judged: a run that has not ended. A text a side.
  std::vector<std::string> unfinished;
  /// Where that was asked for; its tensors are the outputs, in their order.
  std::optional<Inside> inside;
  std::optional<FloorReport> floor;
  /// Where an output is wrong: the inputs of both sides that were not made alike.
  std::vector<PreparationDifference> preparation;
  /// How it was asked for, so that whoever shows the tensors reads them alike.
  std::vector<std::string> command;
  std::string map;  ///< the text of the map's file; empty without one

  [[nodiscard]] ExitStatus Status() const;

  /// What is wrong with the files that could not be read, a text each.
  [[nodiscard]] std::vector<std::string> Unreadable() const;
};

/// A table of the outputs and what is wrong with them; with `areAllWanted` every tensor inside.
[[nodiscard]] std::string VerdictText(const Verdict& verdict, bool areAllWanted = false);

/// verdict.json, docs/schema/verdict.json, with a line end.
[[nodiscard]] std::string VerdictJson(const Verdict& verdict);

/// verdict.xml: a test case an output, failure = judged wrong, error = could not be judged.
[[nodiscard]] std::string VerdictJUnit(const Verdict& verdict);

}  // namespace vorn::kit

#endif  // VORN_KIT_JUDGE_VERDICT_H_
