#include "kit/report/bounds.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "kit/page/number_text.h"

namespace vorn::kit {
namespace {

constexpr size_t kName = 400;       // bytes of a path, a tensor, an id
constexpr size_t kSentence = 1000;  // of what is read as a whole
constexpr size_t kOutput = 64 * 1024;
constexpr size_t kCommand = 16 * 1024;
constexpr size_t kFewTexts = 10;  // reasons of a sample, inputs of it
constexpr size_t kFewPhases = 16;
constexpr size_t kMeasures = 40;
constexpr size_t kOperations = 200;
constexpr size_t kChanges = 500;

bool IsContinuation(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; }

template <typename Item>
void CutList(std::vector<Item>& items, size_t most) {
  if (items.size() > most) items.resize(most);
}

void CutName(std::string& name) { CutText(name, kName); }
void CutName(std::optional<std::string>& name) {
  if (name) CutName(*name);
}

void CutFile(FileIdentity& file) {
  CutName(file.path);
  CutName(file.xxh3);
}
void CutFile(std::optional<FileIdentity>& file) {
  if (file) CutFile(*file);
}

void CutSentences(std::vector<std::string>& sentences, size_t most) {
  CutTexts(sentences, most);
  for (std::string& sentence : sentences) CutText(sentence, kSentence);
}

// The words of a command line as far as there is room for them.
void CutWords(std::vector<std::string>& words) {
  size_t bytes = 0;
  for (size_t i = 0; i < words.size(); ++i) {
    CutText(words[i], kSentence);
    bytes += words[i].size() + 1;
    if (bytes > kCommand) return CutTexts(words, i);
  }
}

// ---- run.json -----------------------------------------------------------------------------------

void BoundMachine(MachineFacts& machine) {
  for (std::string* text : {&machine.host, &machine.kernel, &machine.processor}) CutName(*text);
  for (auto* text : {&machine.governor, &machine.container}) CutName(*text);
}

// Those that are shown, which tell the others together.
void BoundPhases(const ReportTimes& times, RunFacts& facts) {
  std::set<std::string> shown{"whole"};
  for (const ReportPhase& phase : times.phases) shown.insert(phase.id);
  std::map<std::string, uint64_t> kept;
  for (const auto& [id, duration] : facts.phases) {
    if (shown.count(id) == 0) continue;
    std::string name = id;
    CutName(name);
    kept[name] = duration;
  }
  facts.phases = std::move(kept);
}

void BoundFacts(ReportRun& run) {
  RunFacts& facts = run.facts;
  BoundMachine(facts.machine);
  BoundPhases(run.times, facts);
  CutName(facts.signal);
  CutName(facts.version);
  CutName(facts.fleet);
  CutWords(facts.command);
  if (facts.options) CutWords(*facts.options);
  CutFile(facts.model);
  for (auto* file : {&facts.configuration, &facts.list, &facts.runtime, &facts.program}) {
    CutFile(*file);
  }
  if (facts.configurationFiles) {
    CutList(*facts.configurationFiles, kMostReportListed);
    for (FileIdentity& file : *facts.configurationFiles) CutFile(file);
  }
  run.librariesLeftOut += facts.mapped.size() - std::min(facts.mapped.size(), kMostReportLibraries);
  CutList(facts.mapped, kMostReportLibraries);
  for (MappedFile& mapped : facts.mapped) {
    CutName(mapped.path);
    CutName(mapped.buildId);
  }
  CutList(facts.warnings, kMostReportListed);
  for (RunWarning& warning : facts.warnings) {
    CutName(warning.id);
    CutText(warning.message, kSentence);
  }
  CutText(facts.standardError, kOutput);
}

// Warnings of the run stand before all others.
void BoundRemarks(std::vector<ReportRemark>& remarks) {
  using Kind = ReportRemark::Kind;
  const auto isOfRun = [](const ReportRemark& remark) { return !remark.id.empty(); };
  const auto count = static_cast<size_t>(std::count_if(remarks.begin(), remarks.end(), isOfRun));
  if (count > kMostReportListed) {
    size_t seen = 0;
    std::erase_if(remarks, [&](const ReportRemark& remark) {
      return isOfRun(remark) && ++seen > kMostReportListed;
    });
    const size_t leftOut = count - kMostReportListed;
    remarks.insert(
        remarks.begin() + kMostReportListed,
        {Kind::kWarning, "", 0, "and " + CountedText(leftOut, "more warning") + " in run.json"});
  }
  for (ReportRemark& remark : remarks) {
    CutName(remark.id);
    CutText(remark.text, kSentence);
  }
}

// ---- verdict.json -------------------------------------------------------------------------------

void BoundCauses(std::vector<ReportCause>& causes) {
  CutList(causes, kFewTexts);
  for (ReportCause& cause : causes) {
    CutName(cause.id);
    CutText(cause.text, kSentence);
  }
}

void BoundFaults(std::vector<ReportFault>& faults) {
  for (ReportFault& fault : faults) {
    CutSentences(fault.reasons, kFewTexts);
    BoundCauses(fault.causes);
  }
}

void BoundOutput(ReportOutput& output) {
  for (std::string* text :
       {&output.name, &output.expectedName, &output.type, &output.rulesSource}) {
    CutName(*text);
  }
  CutList(output.rules, kFewTexts);
  for (ReportRule& rule : output.rules) CutName(rule.metric);
  CutList(output.census, kMeasures);
  for (ReportMeasure& measure : output.census) CutName(measure.name);
  CutList(output.spreads, kFewTexts);
  for (ReportSpread& spread : output.spreads) CutName(spread.name);
  BoundFaults(output.wrong);
  BoundFaults(output.notJudged);
  for (ReportElement& element : output.worst) CutName(element.place);
}

void BoundFloor(ReportFloor& floor) {
  CutName(floor.path);
  CutName(floor.precision);
  for (ReportFloor::Output& output : floor.outputs) {
    for (std::string* text : {&output.name, &output.answer, &output.leftOut}) CutName(*text);
  }
}

void BoundInside(ReportInside& inside) {
  for (std::string* text : {&inside.order, &inside.decidedBy, &inside.largestStepBehind}) {
    CutName(*text);
  }
  for (ReportInside::Tensor& tensor : inside.tensors) {
    CutName(tensor.name);
    CutName(tensor.floor);
  }
  CutSentences(inside.unpaired, kMostReportListed);
}

void BoundJudgement(ReportJudgement& judgement) {
  for (std::string* text : {&judgement.path, &judgement.actual, &judgement.expected}) {
    CutName(*text);
  }
  for (ReportJudgement::Missing& missing : judgement.missing) {
    CutName(missing.side);
    CutText(missing.reason, kSentence);
  }
  for (ReportOutput& output : judgement.outputs) BoundOutput(output);
  CutWords(judgement.command);
  CutList(judgement.accuracy, kMostReportListed);
  for (ReportAccuracy& accuracy : judgement.accuracy) {
    CutName(accuracy.output);
    CutName(accuracy.metric);
  }
  for (auto* sentences : {&judgement.remarks, &judgement.unfinished, &judgement.preparation}) {
    CutSentences(*sentences, kMostReportListed);
  }
  if (judgement.floor) BoundFloor(*judgement.floor);
  if (judgement.inside) BoundInside(*judgement.inside);
}

// ---- Everything else ----------------------------------------------------------------------------

void BoundPaths(std::vector<std::string>& paths) {
  CutTexts(paths, kFewTexts);
  for (std::string& path : paths) CutName(path);
}

void BoundDetail(ReportDetail& detail) {
  CutSentences(detail.reasons, kFewTexts);
  BoundCauses(detail.causes);
  BoundPaths(detail.inputs);
  for (std::string* text : {&detail.actualPath, &detail.expectedPath}) CutName(*text);
  for (std::string* text : {&detail.obstacle, &detail.pictureObstacle}) CutText(*text, kSentence);
  CutList(detail.pictures, kFewTexts);
  for (ReportPicture& picture : detail.pictures) CutName(picture.name);
}

void BoundFleet(ReportFleet& fleet) {
  CutName(fleet.id);
  for (ReportBoard& board : fleet.boards) {
    for (std::string* text : {&board.name, &board.host, &board.runtime, &board.runtimeHash}) {
      CutName(*text);
    }
    CutText(board.reason, kSentence);
    CutList(board.phases, kFewPhases);
    for (ReportBoard::Phase& phase : board.phases) CutName(phase.name);
  }
  CutSentences(fleet.unequal, kMostReportListed);
  CutSentences(fleet.unfit, kMostReportListed);
}

void BoundTrace(ReportTrace& trace) {
  CutName(trace.path);
  CutList(trace.operations, kOperations);
  for (OperationTimes& operation : trace.operations) CutName(operation.name);
  for (std::string& name : trace.names) CutName(name);
}

// A part of a command does something else than the whole.
void BoundCommands(std::vector<ReportCommand>& commands) {
  for (ReportCommand& command : commands) {
    const size_t bytes = command.command.size();
    if (bytes <= kCommand) continue;
    command.command = "# " + CountText(bytes) + " bytes, too long to be shown here";
  }
}

}  // namespace

void CutText(std::string& text, size_t most) {
  if (text.size() <= most) return;
  size_t front = most - most / 4;
  size_t back = text.size() - most / 4;
  while (front > 0 && IsContinuation(text[front])) --front;
  while (back < text.size() && IsContinuation(text[back])) ++back;
  text = text.substr(0, front) + "… (" + CountText(back - front) + " bytes left out) …" +
         text.substr(back);
}

void CutTexts(std::vector<std::string>& texts, size_t most) {
  if (texts.size() <= most) return;
  const size_t leftOut = texts.size() - most;
  texts.resize(most);
  texts.push_back("and " + CountText(leftOut) + " more");
}

void BoundRun(ReportRun& run) {
  BoundFacts(run);
  CutName(run.precision);
  for (ReportTensor& tensor : run.tensors) {
    for (std::string* text :
         {&tensor.role, &tensor.name, &tensor.type, &tensor.shape, &tensor.format}) {
      CutName(*text);
    }
  }
  BoundRemarks(run.remarks);
  CutSentences(run.contradictions, kFewTexts);
  if (run.judgement) BoundJudgement(*run.judgement);
  for (ReportDetail& detail : run.details) BoundDetail(detail);
  for (ReportUndone& undone : run.undone) {
    CutText(undone.reason, kSentence);
    BoundPaths(undone.inputs);
  }
  for (ReportPhase& phase : run.times.phases) {
    CutName(phase.id);
    CutName(phase.text);
  }
  if (run.machine) {
    for (ReportMachine::Zone& zone : run.machine->zones) CutName(zone.name);
  }
  if (run.trace) BoundTrace(*run.trace);
  for (ReportFinding& finding : run.findings) {
    for (std::string* text : {&finding.id, &finding.severity, &finding.operation}) CutName(*text);
    CutText(finding.message, kSentence);
  }
  if (run.fleet) BoundFleet(*run.fleet);
  BoundCommands(run.commands);
}

void BoundComparison(ReportComparison& comparison) {
  for (auto* changes : {&comparison.environment, &comparison.verdicts}) {
    if (changes->size() > kChanges) {
      comparison.remarks.push_back(CountText(changes->size() - kChanges) +
                                   " more changes are left out");
    }
    CutList(*changes, kChanges);
    for (ReportChange& change : *changes) {
      for (std::string* text : {&change.what, &change.base, &change.other}) CutName(*text);
    }
  }
  for (ReportOutputChange& output : comparison.outputs) CutName(output.output);
  CutSentences(comparison.remarks, kMostReportListed);
}

}  // namespace vorn::kit
