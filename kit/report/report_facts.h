// Everything that a report of one run or several says, as plain data: gathered by gather.h, told by
// page.h (HTML), terminal.h, markdown.h and facts_json.h, which add nothing of their own.
//
//     ReportFacts
//       answer                     one sentence
//       runs[]                     ReportRun: run.json, verdict, samples, times, machine, trace,
//       boards comparisons[]              each further run against the first
//
// Conventions
//  1. Every text may be a name that somebody else chose, with any bytes: escape it where it is
//  shown.
//  2. Times are nanoseconds (…Ns), sizes bytes (…Bytes). Moments are nanoseconds since the start of
//     the run, unless they are called realtime.
//  3. Numbers may be NaN or infinite wherever tensors or measures are told.
//  4. Vectors that stand for columns of one table have equal lengths.
//  5. What is not known is an empty optional, an empty vector or an empty text. Why something is
//     missing that one would look for stands in ReportRun::remarks, or in an `obstacle` beside it.
//  6. All of it is bounded: no vector grows beyond the constant that is named with it, and no text
//     beyond what bounds.cpp has for it, whatever files of a run hold. Where something was left out
//     or drawn together, a count beside it says so, or the last text of a list.
#ifndef VORN_KIT_REPORT_REPORT_FACTS_H_
#define VORN_KIT_REPORT_REPORT_FACTS_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kit/judge/neighbours.h"
#include "kit/run/run_directory.h"
#include "kit/timing/comparison.h"
#include "kit/trace/trace_summary.h"

namespace vorn::kit {

// ---- The answer ---------------------------------------------------------------------------------

enum class ReportTone {
  kGood,  ///< judged and right; of a comparison: nothing got worse
  kBad,   ///< judged and wrong, or the run failed
  kOpen,  ///< not judged, not whole, still running, cannot tell
};

struct ReportAnswer {
  ReportTone tone = ReportTone::kOpen;
  /// A few words: "WRONG", "right", "not judged", "not whole", "running", "failed".
  std::string verdict;
  /// One sentence that a person can repeat: right or wrong, on what, how fast, against what.
  std::string sentence;
  /// What belongs to it at once, a sentence each: the likely cause, what is missing.
  std::vector<std::string> more;
};

/// Something to know that is no number: "there is no trace: …".
struct ReportRemark {
  enum class Kind {
    kMissing,  ///< a part of the report is not there, and why
    kWarning,  ///< run.json warns, a file is spoilt, the run was interrupted
    kNote,
  };
  Kind kind = Kind::kNote;
  std::string id;      ///< of a warning of the run: "ranges-of-another-model"; may be empty
  uint64_t count = 0;  ///< of a warning of the run: how often; else 0
  std::string text;
};

// ---- Verdict ------------------------------------------------------------------------------------

enum class ReportVerdict { kRight, kWrong, kNotJudged };

/// One rule of an output: a metric and its bound.
struct ReportRule {
  std::string metric;  ///< "cosine", "maxAbs", …
  double bound = 0;
  bool isAtLeast = false;  ///< else at most
};

/// A name and its value as JSON has it: counts of the census (elements, equal, within, outside,
/// actualNan, …) and its measures (maxAbs, rmse, cosine, snrDb, …), in the order of the file.
struct ReportMeasure {
  std::string name;
  double value = 0;
  bool isCount = false;  ///< a whole number
};

/// A measure of each sample: least, 5th percentile, median, 95th, most.
struct ReportSpread {
  std::string name;  ///< "maxAbs", "rmse", "cosine"
  double least = 0;
  double p5 = 0;
  double median = 0;
  double p95 = 0;
  double most = 0;
};

/// Differences over all samples, columns. Of many samples (or of many outputs) each row stands for
/// `samplesPerRow` neighbours and is the worst of them: wrong before right, then by elements that
/// are not finite, then by RMSE.
struct ReportColumns {
  uint64_t samplesPerRow = 1;
  std::vector<uint64_t> sample;
  std::vector<uint64_t> expectedSample;  ///< its number on that side; empty where they are the same
  std::vector<uint8_t> isWrong;          ///< 0 or 1
  std::vector<uint64_t> outside;         ///< elements outside of the tolerance
  std::vector<uint64_t>
      notFinite;  ///< elements wrong by a NaN or an infinity; empty: none anywhere
  std::vector<double> maxAbs;
  std::vector<double> rmse;
  std::vector<double> cosine;
};
inline constexpr size_t kMostReportRows = 10000;

struct ReportCause {
  std::string id;        ///< "stale", "rounded-bfloat16", …
  std::string text;      ///< in words
  double certainty = 0;  ///< 0 to 1
};

/// A sample that is wrong or could not be judged.
struct ReportFault {
  uint64_t sample = 0;
  std::vector<std::string> reasons;
  std::vector<ReportCause> causes;  ///< of the first few wrong ones
  uint64_t nan = 0;                 ///< elements that are wrong by a NaN
  uint64_t infinite = 0;            ///< and by an infinity
};
inline constexpr size_t kMostReportFaults = 1000;  ///< as many as verdict.json names

struct ReportElement {
  uint64_t sample = 0;
  uint64_t index = 0;  ///< of the element, in the order of the run that is judged
  std::string place;   ///< the same by dimensions: "[0, 3, 2]"
  double actual = 0;
  double expected = 0;
};

/// One output, of all samples.
struct ReportOutput {
  std::string name;
  std::string expectedName;  ///< where it has another one on the expected side
  ReportVerdict verdict = ReportVerdict::kNotJudged;
  std::string type;             ///< "float32"
  std::vector<uint64_t> shape;  ///< outermost first
  double atol = 0;
  double rtol = 0;
  bool isNanExpected = false;
  std::string rulesSource;  ///< where the tolerance is from
  std::vector<ReportRule> rules;
  uint64_t samples = 0;  ///< that were compared
  uint64_t wrongSamples = 0;
  std::vector<ReportMeasure> census;
  std::vector<ReportSpread> spreads;
  ReportColumns columns;  ///< empty where verdict.json is of an older version
  /// Of outputs that are probabilities.
  struct Agreement {
    uint64_t items = 0;
    uint64_t top1 = 0;
    uint64_t top5 = 0;
    uint64_t tied1 = 0;  ///< not so, and would be if equal values stood in another order
    uint64_t tied5 = 0;
  };
  std::optional<Agreement> agreement;
  std::vector<ReportFault> wrong;      ///< the first kMostReportFaults, fewer of many outputs
  std::vector<ReportFault> notJudged;  ///< likewise
  std::vector<ReportElement> worst;
  /// Where samples hold what belongs to their neighbours: at most kMostReportStretches, each list
  /// of at most kMostReportFaults.
  std::vector<NeighbourStretch> stretches;

  /// Which class was first on either side, over all items but those of tied1: pairs by count, most
  /// frequent first.
  struct ConfusionPair {
    uint64_t expectedClass = 0;
    uint64_t actualClass = 0;
    uint64_t count = 0;
  };
  std::vector<ConfusionPair> confusion;  ///< at most kMostReportConfusion, equal classes too
  uint64_t confusionItems = 0;           ///< of which these pairs were counted; 0: not counted
  uint64_t confusionLeftOut = 0;         ///< items of pairs that are not among them
};
inline constexpr size_t kMostReportConfusion = 400;
inline constexpr size_t kMostReportStretches = 100;

/// With `vorn judge --floor`: what is lost beside what the precision has to lose.
struct ReportFloor {
  struct Output {
    std::string name;
    std::string answer;  ///< "within", "worse", "notMeasured"
    uint64_t samples = 0;
    double rmse = 0;
    double floorRmse = 0;
    double times = 0;  ///< the first as times the second
    double snrDb = 0;
    double floorSnrDb = 0;
    bool isFloorLost = false;
    std::string leftOut;
  };
  std::string path;
  std::string precision;
  double most = 0;  ///< times the floor's RMSE that are within
  std::vector<Output> outputs;
};

/// With `vorn judge --inside`: how the difference grows along the graph.
struct ReportInside {
  struct Tensor {
    std::string name;
    ReportVerdict verdict = ReportVerdict::kNotJudged;
    double maxAbs = 0;
    double relativeRmse = 0;  ///< as a share of the expected tensor's root mean square
    double snrDb = 0;
    double outsideShare = 0;  ///< 0 to 1
    std::string floor;        ///< "within", "worse", "notMeasured"; empty without a floor
    std::optional<double> floorSnrDb;
    std::optional<double> timesFloor;
  };
  std::string order;            ///< half a sentence: where the order is from
  std::string decidedBy;        ///< "rules" or "floor"
  std::vector<Tensor> tensors;  ///< in the order of the graph, at most kMostReportTensors
  uint64_t leftOut = 0;         ///< tensors between, which are right, where there were more
  /// Places in `tensors`.
  std::optional<size_t> begin;     ///< the first that is wrong (with a floor: worse)
  std::optional<size_t> greatest;  ///< from there on the one with the greatest difference
  /// Where the SNR falls most, and from which tensor.
  std::optional<size_t> largestStep;
  std::string largestStepBehind;  ///< name of the tensor before it
  std::optional<double> largestStepFallDb;
  std::vector<std::string> unpaired;  ///< sentences: "'x' is on the expected side only"
};
inline constexpr size_t kMostReportTensors = 1000;

struct ReportAccuracy {
  std::string output;
  std::string metric;  ///< "top 1", "mean IoU"
  double actual = 0;
  double expected = 0;
  double difference = 0;
};

/// verdict.json.
struct ReportJudgement {
  std::string path;      ///< of the file
  int status = 0;        ///< of `vorn judge`
  std::string actual;    ///< path of the side that was judged
  std::string expected;  ///< path of what was expected of it
  uint64_t samples = 0;  ///< that stand on both sides
  uint64_t missingSamples = 0;
  struct Missing {
    uint64_t sample = 0;
    std::string side;  ///< that has it not: "actual" or "expected"
    std::string reason;
  };
  std::vector<Missing> missing;       ///< the first of them
  std::vector<ReportOutput> outputs;  ///< at most kMostReportTensors
  uint64_t outputsLeftOut = 0;
  std::vector<std::string> command;  ///< of `vorn judge`; empty where that is not known
  std::vector<ReportAccuracy> accuracy;
  std::vector<std::string> remarks;
  std::vector<std::string> unfinished;
  std::vector<std::string> preparation;  ///< sentences: inputs that were not made alike
  std::optional<ReportFloor> floor;
  std::optional<ReportInside> inside;
};

// ---- Worst samples in detail --------------------------------------------------------------------

/// A picture that can be shown as it is, at most kMostReportPicture pixels a side.
struct ReportPicture {
  std::string png;     ///< bytes of a PNG file, 8 bits, grey or RGB
  uint32_t width = 0;  ///< of the PNG
  uint32_t height = 0;
  uint32_t sourceWidth = 0;  ///< of what it was made from
  uint32_t sourceHeight = 0;
  std::string name;       ///< path of the picture, or of the tensor file
  bool isTensor = false;  ///< drawn from the values of the input tensor, not from a picture's file
};
inline constexpr uint32_t kMostReportPicture = 160;

/// A box in shares of the picture: 0 left or top edge, 1 right or bottom edge.
struct ReportBox {
  double left = 0;
  double top = 0;
  double right = 0;
  double bottom = 0;
  int64_t label = 0;
  double score = 0;
};
inline constexpr size_t kMostReportBoxes = 50;  ///< a side, by score

/// A class a place: values of [rows, columns], row by row, drawn together by taking the nearest.
struct ReportMask {
  uint32_t rows = 0;
  uint32_t columns = 0;
  std::vector<uint32_t> actual;
  std::vector<uint32_t> expected;
};

/// How many values fall where: bin i is [low + i·step, low + (i+1)·step), the last one closed, with
/// step = (high − low) / bins. Both sides share the bins. Values that are not finite are beside.
struct ReportHistogram {
  double low = 0;
  double high = 0;               ///< equal to low where all values are the same: one bin then
  std::vector<uint64_t> actual;  ///< at most kMostReportBins bins
  std::vector<uint64_t> expected;
  uint64_t actualNotFinite = 0;
  uint64_t expectedNotFinite = 0;
};
inline constexpr size_t kMostReportBins = 48;

/// actual − expected over the index: bin i holds the elements from i·elements/bins (rounded down)
/// up to the next bin. Of each the least and the greatest; NaN where nothing in it is finite.
struct ReportEnvelope {
  uint64_t elements = 0;
  std::vector<double> least;  ///< at most kMostReportEnvelope bins
  std::vector<double> most;
  std::vector<uint8_t> hasNotFinite;  ///< 0 or 1: NaN or infinite on one side and not on the other
};
inline constexpr size_t kMostReportEnvelope = 400;

/// One channel of a tensor of rank 3 or 4 (of rank 2 the whole): values of [rows, columns], row by
/// row. Drawn together where the channel is larger: expected and actual by the mean, difference by
/// the value of actual − expected with the largest magnitude.
struct ReportHeatmap {
  uint64_t channel = 0;  ///< counted over all but rows and columns
  std::string place;     ///< "[0, 3, :, :]"
  uint32_t rows = 0;     ///< at most kMostReportHeatmap
  uint32_t columns = 0;
  uint64_t sourceRows = 0;
  uint64_t sourceColumns = 0;
  std::vector<double> expected;
  std::vector<double> actual;
  std::vector<double> difference;
  double least = 0;  ///< finite, of expected and actual of this channel as shown
  double most = 0;
  double mostDifference = 0;  ///< finite magnitude, of the whole channel
  double rmse = 0;            ///< of the whole channel, over what is finite
};
inline constexpr uint32_t kMostReportHeatmap = 64;
inline constexpr size_t kMostReportHeatmaps = 4;  ///< a sample and output, the worst channels

/// One class of one side.
struct ReportLabel {
  uint64_t label = 0;  ///< number of the class
  double value = 0;
  double other = 0;  ///< of the other side
  /// Where it stands for several: how many classes have the value, of which it is the first.
  uint64_t sharing = 1;
};

/// One output of one sample, with all that is worth looking at.
struct ReportDetail {
  uint64_t sample = 0;
  size_t output = 0;  ///< place in ReportJudgement::outputs
  ReportVerdict verdict = ReportVerdict::kNotJudged;
  std::vector<std::string> reasons;
  std::vector<ReportCause> causes;
  std::vector<std::string> inputs;  ///< paths of the input files, as the list has them
  std::string actualPath;           ///< of the dumps
  std::string expectedPath;
  /// Why nothing of the rest is there: "dumps/7/….bin was deleted". The rest is empty then, but for
  /// pictures.
  std::string obstacle;
  uint64_t elements = 0;
  uint64_t outside = 0;  ///< as counted anew with the output's atol and rtol
  double maxAbs = 0;
  double rmse = 0;
  double cosine = 0;
  ReportHistogram histogram;
  ReportEnvelope envelope;
  std::vector<ReportHeatmap> heatmaps;
  uint64_t channels = 0;               ///< of which the heatmaps are the worst
  std::vector<ReportElement> worst;    ///< elements of this sample, at most kMostReportElements
  std::vector<ReportLabel> actualTop;  ///< five at most, the greatest first; of probabilities
  std::vector<ReportLabel> expectedTop;
  std::vector<ReportBox> actualBoxes;  ///< where the output is rows of boxes
  std::vector<ReportBox> expectedBoxes;
  std::optional<ReportMask> mask;       ///< where the output is one
  std::vector<ReportPicture> pictures;  ///< that the sample was made from, an input each
  std::string pictureObstacle;          ///< why there is none
};
inline constexpr size_t kMostReportElements = 10;

// ---- Samples of samples.jsonl -------------------------------------------------------------------

/// A sample that is not done.
struct ReportUndone {
  uint64_t sample = 0;
  std::string status;  ///< "failed", "aside", "missing"
  std::string reason;
  std::vector<std::string> inputs;  ///< paths
};
inline constexpr size_t kMostReportUndone = 200;

// ---- Times --------------------------------------------------------------------------------------

/// One series of executions.
struct ReportSeries {
  /// From one execution on the times stand at another level.
  struct Step {
    uint64_t execution = 0;  ///< its number, warm-ups counted, from 0 on
    uint64_t sample = 0;
    uint64_t countBefore = 0;  ///< times on either side, up to the next step
    uint64_t countBehind = 0;
    double beforeNs = 0;  ///< medians
    double behindNs = 0;
  };
  /// One that took longer than most.
  struct Slow {
    uint64_t execution = 0;
    uint64_t sample = 0;
    double timeNs = 0;
  };
  std::string name;  ///< empty; "A" or "B" of a run that took turns
  /// In the order in which they ran. With more executions than kMostReportTimes each row stands for
  /// `executionsPerRow` of them.
  uint64_t executionsPerRow = 1;
  std::vector<uint64_t> sample;   ///< of the (first) execution of the row
  std::vector<uint8_t> isWarmUp;  ///< 0 or 1: the first execution of a process
  std::vector<double> medianNs;   ///< the time itself where a row is one execution
  std::vector<double> leastNs;    ///< empty where rows are one execution each
  std::vector<double> mostNs;     ///< likewise
  std::vector<uint64_t>
      startNs;  ///< since the run's start, of the inference of the row; 0 if unknown

  uint64_t warmUps = 0;  ///< executions that do not count below
  uint64_t count = 0;    ///< executions that do
  uint64_t failed = 0;
  uint64_t repeated = 0;  ///< inferences that were run again, of which the last counts
  double firstNs = 0;     ///< the first warm-up; 0: none
  double medianOfAllNs = 0;
  double lowNs = 0;  ///< of the median's interval
  double highNs = 0;
  double confidence = 0.95;
  double deviationNs = 0;       ///< median distance from the median
  std::optional<double> p90Ns;  ///< only where so many values can carry it
  std::optional<double> p95Ns;
  std::optional<double> p99Ns;
  double leastOfAllNs = 0;
  double mostOfAllNs = 0;
  uint64_t outliers = 0;
  double sumNs = 0;             ///< of all executions, warm-ups among them
  std::vector<Step> steps;      ///< at most kMostReportSteps, in order
  std::vector<Slow> slowest;    ///< of those that count, far off: at most kMostReportSlow
  std::optional<double> drift;  ///< last third by the first, less 1, where it is clear
  /// How the times that count are spread: edges of bins are low·(high/low)^(i/bins), logarithmic.
  double histogramLowNs = 0;
  double histogramHighNs = 0;
  std::vector<uint64_t> histogram;
};
inline constexpr size_t kMostReportTimes = 10000;
inline constexpr size_t kMostReportSteps = 8;
inline constexpr size_t kMostReportSlow = 5;

/// A part of the run's whole time. All parts of a run add up to ReportTimes::wholeNs.
struct ReportPhase {
  std::string id;        ///< "start", "load", "copyIn", "execute", "write", "otherCalls", "other"
  std::string text;      ///< in words
  uint64_t beginNs = 0;  ///< the sum of those before it: for a waterfall
  uint64_t durationNs = 0;
};

struct ReportTimes {
  std::vector<ReportSeries> series;  ///< one; two of a run that took turns; none: nothing measured
  std::vector<ReportPhase> phases;   ///< empty where run.json has none
  uint64_t wholeNs = 0;
};

/// machine.jsonl, columns: at most kMostReportMoments rows, the first of each stretch of
/// `momentsPerRow`.
struct ReportMachine {
  uint64_t momentsPerRow = 1;
  std::vector<uint64_t> atNs;                     ///< since the run's start
  std::vector<std::optional<uint64_t>> rssBytes;  ///< of the program
  std::vector<std::optional<uint64_t>> memoryAvailableBytes;
  std::vector<std::optional<uint64_t>> leastFrequencyKhz;  ///< of all cores
  std::vector<std::optional<uint64_t>> mostFrequencyKhz;
  struct Zone {
    std::string name;
    std::vector<std::optional<int64_t>> milliC;
  };
  std::vector<Zone> zones;  ///< at most kMostReportZones, the hottest
};
inline constexpr size_t kMostReportMoments = 2000;
inline constexpr size_t kMostReportZones = 12;

// ---- Trace --------------------------------------------------------------------------------------

/// One call, or several short ones of a thread that follow each other, of which the longest gives
/// the name.
struct ReportSpan {
  uint64_t beginNs = 0;  ///< since the layer was loaded
  uint64_t durationNs = 0;
  uint32_t operation = 0;  ///< place in ReportTrace::names
  uint32_t lane = 0;       ///< the thread: 0 is that of the first call
  uint32_t calls = 1;      ///< drawn together
  bool isFailed = false;
  bool isOpen = false;  ///< it has not come back
};
inline constexpr size_t kMostReportSpans = 20000;

struct ReportTrace {
  std::string path;
  uint64_t calls = 0;
  uint64_t dropped = 0;  ///< for which there was no room, or that were cut
  uint64_t clockNs = 0;  ///< one reading of the clock
  uint64_t wholeNs = 0;
  uint64_t beganRealtimeNs = 0;     ///< when the layer was loaded; 0: not known
  std::optional<uint64_t> beganNs;  ///< the same since the run's start, where that fits together
  bool isEnded = false;             ///< the process was taken down in order
  std::vector<OperationTimes> operations;  ///< the largest total first
  std::vector<std::string> names;          ///< of operations, for spans
  std::vector<ReportSpan> spans;           ///< by begin
  std::vector<MemoryMoment>
      memory;  ///< device memory since the layer was loaded; kMostReportMoments
  uint64_t peakBytes = 0;
  uint64_t leftBytes = 0;  ///< not freed at the end
};

// ---- Findings -----------------------------------------------------------------------------------

/// A line of findings.jsonl.
struct ReportFinding {
  std::string id;
  std::string severity;  ///< "error", "warning", "note"; may be empty
  uint64_t count = 1;
  std::string message;
  std::string operation;  ///< where it was seen; may be empty
};
inline constexpr size_t kMostReportFindings = 200;

// ---- Boards of a fleet --------------------------------------------------------------------------

struct ReportBoard {
  std::string name;
  std::string host;
  uint64_t chunksDone = 0;
  uint64_t failedAttempts = 0;
  uint64_t samples = 0;  ///< that were taken from it
  uint64_t inDoubt = 0;  ///< of these, where its outputs are not those of the other boards
  std::optional<double> samplesPerSecond;
  std::optional<uint64_t> medianSampleNs;
  std::optional<int64_t> highestTemperatureMilliC;
  std::optional<uint64_t> lowestFrequencyKhz;
  std::string runtime;  ///< path
  std::string runtimeHash;
  bool isChecked = false;             ///< it has run what all boards run
  std::vector<uint64_t> disagreesAt;  ///< samples of the cross-check with other outputs
  bool isAside = false;               ///< it was given no more chunks
  std::string reason;                 ///< why
  struct Phase {
    std::string name;
    uint64_t durationNs = 0;
  };
  std::vector<Phase> phases;
};
inline constexpr size_t kMostReportBoards = 1000;

struct ReportFleet {
  std::string id;
  std::vector<ReportBoard> boards;
  uint64_t boardsLeftOut = 0;
  std::vector<uint64_t> crossCheck;
  uint64_t notDeterministic = 0;     ///< samples with several outputs
  std::vector<std::string> unequal;  ///< the first of these, sentences
  uint64_t unfitAttempts = 0;
  std::vector<std::string> unfit;  ///< the first of these, sentences
};

// ---- One run ------------------------------------------------------------------------------------

/// A line for a shell, and what it is good for: "run it again", "judge it again".
struct ReportCommand {
  std::string purpose;
  std::string command;
};

/// What the model takes or gives.
struct ReportTensor {
  std::string role;  ///< "data", "output", …
  std::string name;
  std::string type;
  std::string shape;   ///< "1x3x224x224"
  std::string format;  ///< "NCHW"; may be empty
};

/// Of lists for which no other bound is named: warnings, sentences, files of a configuration.
inline constexpr size_t kMostReportListed = 100;
inline constexpr size_t kMostReportLibraries = 1000;

struct ReportRun {
  std::string path;       ///< of the run directory, as it was given
  std::string name;       ///< short, and unlike that of any other run of the report
  ReportAnswer answer;    ///< of this run alone
  RunFacts facts;         ///< run.json: state, files, machine, versions, counts, warnings, …
  std::string precision;  ///< that the run says it was rounded to: "int8"; empty where it says none
  std::vector<ReportTensor> tensors;  ///< of model.json, at most kMostReportTensors
  uint64_t librariesLeftOut = 0;      ///< of facts.mapped, beyond kMostReportLibraries
  std::vector<ReportRemark> remarks;  ///< warnings first
  /// What its files say that cannot all be so, sentences without a full stop.
  std::vector<std::string> contradictions;
  std::optional<ReportJudgement> judgement;
  std::vector<ReportDetail> details;  ///< the worst first, at most `--samples`
  std::string detailsRule;            ///< how these were chosen, a sentence
  std::vector<ReportUndone> undone;   ///< the first kMostReportUndone that are not done
  ReportTimes times;
  std::optional<ReportMachine> machine;
  std::optional<ReportTrace> trace;
  std::vector<ReportFinding> findings;
  bool areFindingsKnown = false;  ///< there is a findings.jsonl, maybe an empty one
  uint64_t findingsLeftOut = 0;
  std::optional<ReportFleet> fleet;
  std::vector<ReportCommand> commands;
};

// ---- Two runs and more --------------------------------------------------------------------------

/// Something that is not the same: "runtime", "governor", "model", "configuration".
struct ReportChange {
  std::string what;
  std::string base;  ///< as a person reads it; "none" where it is not there
  std::string other;
};

/// Outputs of both runs by their hashes, as far as samples.jsonl of both has them.
struct ReportOutputChange {
  std::string output;
  uint64_t equal = 0;  ///< samples with the same bytes
  uint64_t different = 0;
  uint64_t onlyBase = 0;  ///< samples that one run alone has
  uint64_t onlyOther = 0;
  std::optional<uint64_t> firstDifferent;  ///< sample
};

struct ReportComparison {
  size_t base = 0;  ///< places in ReportFacts::runs
  size_t other = 0;
  ReportAnswer answer;
  Comparison times;  ///< kit/timing: verdict, ratio other by base with its interval, gate, p
  Gates gates;       ///< what a difference had to be
  double confidence = 0.95;
  std::vector<ReportOutputChange> outputs;
  std::vector<ReportChange> environment;
  std::vector<ReportChange> verdicts;  ///< outputs that were right and are wrong, or the reverse
  std::vector<std::string> remarks;    ///< why something could not be compared
};

// ---- All ----------------------------------------------------------------------------------------

struct ReportFacts {
  std::string title;
  std::string version;                        ///< of this program
  uint64_t madeRealtimeNs = 0;                ///< SOURCE_DATE_EPOCH where that is set
  ReportAnswer answer;                        ///< of all: of the one run, or of the comparison
  std::vector<ReportRun> runs;                ///< as they were given; one at least
  std::vector<ReportComparison> comparisons;  ///< each further run against the first
};

}  // namespace vorn::kit

#endif  // VORN_KIT_REPORT_REPORT_FACTS_H_
