#include "kit/fleet/made_fleet.h"

#include <filesystem>
#include <fstream>
#include <numeric>
#include <optional>

#include "kit/common/file_identity.h"
#include "kit/fleet/attempt.h"
#include "kit/model/model_json.h"

namespace fleet_test {
namespace {

using vorn::kit::FileIdentity;
using vorn::kit::JournalEvent;
using vorn::kit::RunFacts;
using vorn::kit::SampleRecord;
using vorn::kit::SampleStatus;

std::string InputOf(uint64_t inference) { return "input " + std::to_string(inference); }

FileIdentity Identity(const std::string& path, const std::string& bytes) {
  return {.path = path, .sizeBytes = bytes.size(), .xxh3 = vorn::kit::Xxh3Of(bytes)};
}

std::string DumpOf(uint64_t index) { return "dumps/" + std::to_string(index) + "/same.0.17.bin"; }

}  // namespace

SampleRecord WithOutput(SampleRecord record, char output) {
  const std::string path = DumpOf(record.index);
  record.status = SampleStatus::kDone;
  record.outputs = {{.index = 0,
                     .name = "same",
                     .path = path,
                     .text = path.substr(0, path.size() - 3) + "float",
                     .sizeBytes = 4,
                     .xxh3 = vorn::kit::Xxh3Of(std::string(4, output))}};
  return record;
}

MadeFleet::MadeFleet(uint64_t inferences, uint64_t chunk, std::vector<uint64_t> crossCheck) {
  plan_.version = "0.1.0";
  plan_.from = folder_.Path();
  plan_.model = Identity("model.om", "the model");
  plan_.configuration = Identity("vorn.json", "{}");
  plan_.list = Identity("list.txt", "the list");
  plan_.inferences = inferences;
  plan_.perInference = 1;
  plan_.outputs = 1;
  plan_.crossCheck = std::move(crossCheck);
  std::string inputs;
  for (uint64_t i = 0; i < inferences; ++i) {
    if (i % chunk == 0) {
      plan_.chunks.push_back({.first = i,
                              .inferences = std::min(chunk, inferences - i),
                              .inputsAt = inputs.size(),
                              .pathsAt = 0});
    }
    inputs += ToLine(Planned(i));
  }
  plan_.id = IdOf(plan_);
  support::WriteFile(Folder() + "/plan.json", ToJson(plan_));
  support::WriteFile(Folder() + "/inputs.jsonl", inputs);
  support::WriteFile(Folder() + "/paths.txt", "");
  support::WriteFile(Folder() + "/model.json", "{\"schema\": 1}\n");
}

char MadeFleet::OutputOf(uint64_t inference) { return static_cast<char>('a' + inference % 26); }

SampleRecord MadeFleet::Planned(uint64_t inference) const {
  const std::string path = "in/" + std::to_string(inference) + ".bin";
  return {.index = inference,
          .status = SampleStatus::kMissing,
          .inputs = {{.line = inference + 1,
                      .name = {},
                      .path = path,
                      .file = Identity("./" + path, InputOf(inference))}},
          .outputs = {},
          .reason = {}};
}

SampleRecord MadeFleet::WholeRecord(uint64_t inference, char output) const {
  return WithOutput(Planned(inference), output);
}

void MadeFleet::AllDone(const std::vector<std::string>& boards) const {
  for (uint64_t chunk = 0; chunk < plan_.chunks.size(); ++chunk) {
    MadeAttempt attempt;
    attempt.board = boards[chunk % boards.size()];
    Attempt(chunk, 1, attempt);
  }
}

std::string MadeFleet::Attempt(uint64_t chunk, uint64_t number, const MadeAttempt& attempt) const {
  std::vector<uint64_t> inferences(plan_.chunks.at(chunk).inferences);
  std::iota(inferences.begin(), inferences.end(), plan_.chunks[chunk].first);
  return Make(inferences, vorn::kit::ChunkFolder(Folder(), chunk), number, chunk, attempt);
}

std::string MadeFleet::CrossCheck(uint64_t number, const MadeAttempt& attempt) const {
  return Make(plan_.crossCheck, vorn::kit::CrossFolder(Folder(), attempt.board), number, {},
              attempt);
}

std::string MadeFleet::Make(const std::vector<uint64_t>& inferences, const std::string& folder,
                            uint64_t number, const std::optional<uint64_t>& chunk,
                            const MadeAttempt& attempt) const {
  const std::string run = folder + "/" + std::to_string(number);
  std::vector<SampleRecord> records;
  std::string samples;
  std::string times;
  uint64_t done = 0;
  for (uint64_t at = 0; at < inferences.size(); ++at) {
    const char output = attempt.outputs.empty() ? OutputOf(inferences[at]) : attempt.outputs.at(at);
    SampleRecord record = Planned(inferences[at]);
    record.index = at;
    record.inputs[0].line = at + 1;
    record.inputs[0].path = "../files/" + *record.inputs[0].file.xxh3;
    record.inputs[0].file.path = record.inputs[0].path;
    record.status = SampleStatus::kMissing;
    if (output == '.') {
      record.reason = "was not run";
    } else if (output == 'A' || output == 'F') {
      record.status = output == 'A' ? SampleStatus::kAside : SampleStatus::kFailed;
      record.reason = output == 'A' ? "ended by SIGSEGV" : "output 'same' was not dumped";
    } else {
      record = WithOutput(record, output);
      ++done;
      support::WriteFile(run + "/" + record.outputs[0].path, std::string(4, output));
      support::WriteFile(run + "/" + *record.outputs[0].text, "1\n");
      times += ToLine(vorn::kit::TimesRecord{.index = at,
                                             .chunk = 0,
                                             .attempt = 1,
                                             .host = "host of " + attempt.board,
                                             .startRealtimeNs = 5 + at,
                                             .executeNs = {100 + inferences[at]},
                                             .series = {}});
    }
    samples += ToLine(record);
    records.push_back(record);
  }
  support::WriteFile(run + "/samples.jsonl", samples);
  support::WriteFile(run + "/times.jsonl", times);
  support::WriteFile(run + "/machine.jsonl",
                     ToLine(vorn::kit::MachineMoment{.realtimeNs = attempt.beginNs,
                                                     .frequencyKhz = {1000 + number},
                                                     .temperatureMilliC = {{"soc", 50000}},
                                                     .rssBytes = {},
                                                     .memoryAvailableBytes = {}}));
  RunFacts facts;
  facts.state = vorn::kit::RunState::kDone;
  facts.status = done == inferences.size() ? 0 : 8;
  facts.version = "0.1.0";
  facts.model = plan_.model;
  facts.configuration = plan_.configuration;
  facts.machine.host = "host of " + attempt.board;
  facts.machine.kernel = "Linux";
  facts.machine.processor = "some";
  facts.runtime = Identity("/opt/libvorn.so", "the runtime");
  facts.startRealtimeNs = attempt.beginNs;
  facts.endRealtimeNs = attempt.endNs;
  facts.phases = {{"execute", 7}};
  facts.counts = {
      .inferences = inferences.size(), .done = done, .failed = 0, .aside = 0, .missing = 0};
  attempt.change(facts);
  support::WriteFile(run + "/run.json", ToJson(facts));
  if (!attempt.isNoted) return run;
  vorn::kit::JournalRecord note;
  note.board = attempt.board;
  note.slot = 1;
  note.chunk = chunk;
  note.attempt = number;
  note.realtimeNs = attempt.beginNs;
  note.host = facts.machine.host;
  note.bootId = "boot";
  Note(note);
  note.event = JournalEvent::kEnd;
  note.realtimeNs = attempt.endNs;
  note.outcome = done == inferences.size() ? vorn::kit::AttemptOutcome::kDone
                                           : vorn::kit::AttemptOutcome::kPartial;
  note.blame = done == inferences.size() ? vorn::kit::Blame::kNobody : vorn::kit::Blame::kSamples;
  note.reason = done == inferences.size() ? "" : "some are not done";
  note.done = done;
  note.notDone = inferences.size() - done;
  note.outputs = vorn::kit::OutputsHash(records);
  note.phases = {{"connect", 10}, {"launch", (attempt.endNs - attempt.beginNs) / 2}};
  Note(note);
  return run;
}

void MadeFleet::Note(const vorn::kit::JournalRecord& record) const {
  std::filesystem::create_directories(Folder() + "/journal");
  std::ofstream(Folder() + "/journal/writer.jsonl", std::ios::app) << ToLine(record);
}

}  // namespace fleet_test
