// Whole transcripts against the model: first of a run in which nothing is refused, then of as many
// runs as that one has runtime calls, each with another call refused, then with all calls of one
// operation refused.
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <limits>
#include <map>
#include <set>

#include "e2e/compare_run.h"
#include "support/call_record.h"
#include "support/files.h"
#include "vorn/operations.h"

namespace e2e {
namespace {

using support::Bytes;
using support::CountingBytes;

constexpr uint64_t kForEver = std::numeric_limits<uint64_t>::max();

/// The command line of the stage, a model file and a configuration; more words behind it.
RunPlan Start(const std::vector<std::string>& more = {}) {
  RunPlan plan;
  plan.words = {"-m", "model.om", "-i", "list.txt", "-j", "vorn.json", "-o", "out"};
  plan.words.insert(plan.words.end(), more.begin(), more.end());
  plan.files = {{"model.om", "an image"}, {"vorn.json", "{}"}};
  return plan;
}

void AddScratch(RunPlan* plan) {
  plan->inputs.push_back({{"task", {32}, 4, 16, 32, 2}, {}, {}});
  plan->inputs.push_back({{"work", {64}, 4, 16, 64, 2}, {}, {}});
}

/// One input of 2 rows of 3 floats, 16 bytes apart; one output of 3 floats; two inferences.
RunPlan Plain(const std::vector<std::string>& more = {}) {
  RunPlan plan = Start(more);
  plan.inputs.push_back({{"in0", {1, 2, 3}, 0, 16, 32, 0}, {}, {}});
  AddScratch(&plan);
  plan.outputs.push_back({{"prob", {1, 3}, 0, 16, 16, 0}, {}, {}});
  plan.outputBytes = {Bytes<float>({1.5F, -2, 0.25F, 9})};
  plan.files["a.bin"] = Bytes<float>({1, 2, 3, 4, 5, 6});
  plan.files["b.bin"] = Bytes<float>({6, 5, 4, 3, 2, 1});
  plan.files["list.txt"] = "a.bin\nb.bin\n";
  return plan;
}

RunPlan PlainProfiled() { return Plain({"-p", "1"}); }

/// Three inputs out of order in the list, and an output of every type that can be read.
RunPlan SeveralTypes() {
  RunPlan plan = Start();
  plan.inputs.push_back({{"bytes", {2, 5}, 4, 8, 16, 0}, {}, {}});
  plan.inputs.push_back({{"shorts", {1, 2, 3}, 6, 16, 32, 1}, {}, {}});
  plan.inputs.push_back({{"floats", {2, 2}, 0, 16, 32, 0}, {}, {}});
  AddScratch(&plan);
  plan.outputs.push_back({{"same.name", {2, 3}, 0, 16, 32, 0}, {}, {}});
  plan.outputs.push_back({{"same/name", {2, 5}, 2, 8, 16, 1}, {}, {}});
  plan.outputs.push_back({{"", {1, 5}, 4, 16, 16, 2}, {}, {}});
  plan.outputs.push_back({{"s16", {3, 3}, 6, 8, 24, 0}, {}, {}});
  plan.outputs.push_back({{"u16", {2, 2}, 7, 16, 32, 0}, {}, "a longer name"});
  plan.outputBytes = {CountingBytes(32), CountingBytes(16, 120), CountingBytes(16, 130),
                      CountingBytes(24, 240), CountingBytes(32, 50)};
  plan.files["in/b"] = CountingBytes(10);
  plan.files["in/s"] = CountingBytes(12, 100);
  plan.files["in/f"] = CountingBytes(16, 200);
  plan.folders.insert("in");
  plan.files["in/list.txt"] = "floats:f\nbytes:b\nshorts:s\n";
  plan.words[3] = "in/list.txt";
  return plan;
}

/// A recurrent network: 3 frames of at most 8, and a mask.
RunPlan Recurrent() {
  RunPlan plan = Start({"-t", "5"});
  plan.netType = 2;
  plan.inputs.push_back({{"x", {8, 3}, 0, 16, 128, 0}, {}, {}});
  plan.inputs.push_back({{"mask", {1, 8}, 4, 16, 16, 0}, {}, {}});
  AddScratch(&plan);
  plan.outputs.push_back({{"y", {1, 4}, 0, 16, 16, 0}, {}, {}});
  plan.outputBytes = {CountingBytes(16)};
  plan.files["x"] = CountingBytes(36);
  plan.files["m"] = "12345678";
  plan.files["list.txt"] = "x\nm\n";
  return plan;
}

RunPlan Detection(const PlannedTensor& rpn, const std::string& values) {
  RunPlan plan = Start({"-r", "rpn.txt"});
  plan.netType = 1;
  plan.inputs.push_back({{"image", {1, 4}, 0, 16, 16, 0}, {}, {}});
  plan.inputs.push_back(rpn);
  AddScratch(&plan);
  plan.outputs.push_back({{"boxes", {1, 4}, 0, 16, 16, 0}, {}, {}});
  plan.outputBytes = {Bytes<float>({1, 2, 3, 4})};
  plan.files["a"] = CountingBytes(16);
  plan.files["list.txt"] = "a\n";
  plan.files["rpn.txt"] = values;
  return plan;
}

RunPlan SingleClass() {
  return Detection({{"rpn", {1, 4}, 0, 16, 16, 0}, {}, {}}, "0.5 0.3 0.7 0.1");
}

RunPlan SeveralClasses() {
  return Detection({{"rpn", {4, 3}, 0, 20, 80, 0}, {}, {}}, "1 2 3\n4 5 6\n7 8 9\n10 11 12");
}

/// Two files for two rpn inputs.
RunPlan TwoRpnFiles() {
  RunPlan plan = SingleClass();
  plan.inputs.insert(plan.inputs.begin() + 1,
                     PlannedTensor{{"rpn0", {7, 7}, 0, 24, 48, 0}, {}, {}});
  plan.files["rpn2.txt"] = "5 6 7 8";
  plan.words.back() = "rpn.txt,rpn2.txt";
  return plan;
}

/// Files that hold as many batch items as the command line says.
RunPlan Batch() {
  RunPlan plan = Plain({"-b", "3"});
  plan.files["a.bin"] = CountingBytes(72);
  plan.files["b.bin"] = CountingBytes(72, 100);
  return plan;
}

/// Files without padding: as long as the batch items of the device, of which there are more.
RunPlan Resettable(const std::string& batchSize, size_t firstBytes, size_t secondBytes) {
  RunPlan plan = Start({"-b", batchSize});
  plan.inputs.push_back({{"in0", {1, 2, 4}, 0, 16, 32, 0}, {}, {}});
  plan.inputs.push_back({{"in1", {1, 8}, 4, 8, 8, 0}, {}, {}});
  AddScratch(&plan);
  plan.outputs.push_back({{"prob", {1, 3}, 0, 16, 16, 0}, {}, {}});
  plan.outputBytes = {CountingBytes(64)};
  plan.files["a"] = CountingBytes(firstBytes);
  plan.files["b"] = CountingBytes(secondBytes, 100);
  plan.files["list.txt"] = "a\nb\na\nb\n";
  return plan;
}

RunPlan BatchRaised() { return Resettable("1", 96, 24); }
RunPlan BatchLowered() { return Resettable("4", 64, 16); }

/// Plays a plan and fails the test if the model foretold anything else.
bool AgreesWithModel(const RunPlan& plan, const std::string& what) {
  const std::string difference = PlayAndCompare(plan);
  if (!difference.empty()) ADD_FAILURE() << what << "\n" << difference;
  return difference.empty();
}

bool MayGoWrong(const std::string& operation) {
  // Types, formats and names have no way to fail.
  return operation.find("_data_type(") == std::string::npos &&
         operation.find("_format(") == std::string::npos &&
         operation.find("_name_by_index(") == std::string::npos;
}

/// Of an operation that answers with a size, stride or count, 0 is the failure.
bool AnswersWithSize(const std::string& operation) {
#define VORN_ROW(name, needs, role, thing, ...) {#name, #thing},
  static const std::map<std::string, std::string> kThings{
      VORN_OPERATIONS(VORN_ROW, VORN_NO_PARAMETER)};
#undef VORN_ROW
  static const std::set<std::string> kSizes{"BITS", "BYTES", "COUNT", "STRIDE"};
  return kSizes.contains(kThings.at(operation));
}

/// What an operation answers when it fails, by what it answers when it does not.
PlannedAnswer Refusal(const std::string& call) {
  PlannedAnswer answer;
  answer.operation = call.substr(0, call.find('('));
  answer.calls = {1, kForEver};
  const std::string natural = support::ParseCall(call).answer;
  answer.isNull = natural.find('#') != std::string::npos;
  answer.number = AnswersWithSize(answer.operation) ? 0 : 13;
  return answer;
}

/// Fails each call of the run in turn, then each operation as a whole.
void FailEveryCall(const RunPlan& plan) {
  constexpr int kEnough = 5;  // differences, to be shown
  const ForetoldRun good = ModelOfRun(plan);
  ASSERT_EQ(good.status, 0);
  ASSERT_TRUE(AgreesWithModel(plan, "nothing is refused"));
  const support::CallRecord record(good.record);
  ASSERT_EQ(record.Live(), support::kNothingLive);
  ASSERT_EQ(record.Violations(), std::vector<std::string>());

  const std::vector<std::string> calls = record.Calls();
  int wrong = 0;
  for (size_t n = 1; n <= calls.size() && wrong < kEnough; ++n) {
    RunPlan refused = plan;
    refused.failures = {{{n, n}, 13}};
    if (!AgreesWithModel(refused, "call " + std::to_string(n) + ", " + calls[n - 1])) ++wrong;
  }
  std::set<std::string> operations;
  for (const std::string& call : calls) {
    if (wrong == kEnough) break;
    if (!MayGoWrong(call.substr(0, call.find('(') + 1))) continue;
    if (!operations.insert(call.substr(0, call.find('('))).second) continue;
    RunPlan refused = plan;
    refused.answers = {Refusal(call)};
    if (!AgreesWithModel(refused, "every call of " + refused.answers[0].operation)) ++wrong;
  }
  std::cout << calls.size() << " calls failed one by one, " << operations.size()
            << " operations as a whole\n";
}

TEST(FailEveryCall, OfAPlainRunOfTwoInferences) { FailEveryCall(Plain()); }
TEST(FailEveryCall, OfAProfiledRun) { FailEveryCall(PlainProfiled()); }
TEST(FailEveryCall, OfSeveralInputsAndOutputsOfEveryType) { FailEveryCall(SeveralTypes()); }
TEST(FailEveryCall, OfARecurrentNetwork) { FailEveryCall(Recurrent()); }
TEST(FailEveryCall, OfADetectionNetworkOfOneClass) { FailEveryCall(SingleClass()); }
TEST(FailEveryCall, OfADetectionNetworkOfSeveralClasses) { FailEveryCall(SeveralClasses()); }
TEST(FailEveryCall, OfADetectionNetworkWithTwoRpnInputs) { FailEveryCall(TwoRpnFiles()); }
TEST(FailEveryCall, OfABatch) { FailEveryCall(Batch()); }
TEST(FailEveryCall, OfABatchRaisedByTheFile) { FailEveryCall(BatchRaised()); }
TEST(FailEveryCall, OfABatchLoweredByTheFile) { FailEveryCall(BatchLowered()); }

}  // namespace
}  // namespace e2e
