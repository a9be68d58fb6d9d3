#include "kit/fleet/attempt.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "kit/fleet/made_fleet.h"
#include "support/files.h"

namespace {

namespace fs = std::filesystem;

using fleet_test::MadeAttempt;
using fleet_test::MadeFleet;
using testing::ElementsAre;
using testing::HasSubstr;
using vorn::kit::AttemptFound;
using vorn::kit::OutputsHash;
using vorn::kit::SampleRecord;

class LookAt : public testing::Test {
 protected:
  LookAt() : fleet_(6, 3), planned_(ReadPlanned(fleet_.Folder(), fleet_.Plan(), 1)) {}

  std::string Make(const std::string& outputs = "xyz") const {
    MadeAttempt attempt;
    attempt.outputs = outputs;
    return fleet_.Attempt(1, 1, attempt);
  }

  AttemptFound Look(const std::string& run) const {
    return LookAtAttempt(run, fleet_.Plan(), planned_);
  }

  /// The same with something in samples.jsonl replaced.
  AttemptFound LookChanged(const std::string& what, const std::string& by) const {
    const std::string run = Make();
    std::string text = support::ReadFile(run + "/samples.jsonl");
    const size_t at = text.find(what);
    EXPECT_NE(at, text.npos) << text;
    support::WriteFile(run + "/samples.jsonl", text.replace(at, what.size(), by));
    return Look(run);
  }

  MadeFleet fleet_;
  std::vector<SampleRecord> planned_;
};

TEST_F(LookAt, CountsWhatWasDone) {
  const AttemptFound found = Look(Make());
  EXPECT_EQ(found.fault, "");
  EXPECT_EQ(found.done, 3U);
  EXPECT_EQ(found.notDone, 0U);
  EXPECT_EQ(found.samples.size(), 3U);
}

TEST_F(LookAt, TellsWhatWasTriedFromWhatWasNot) {
  const AttemptFound found = Look(Make("A.F"));
  EXPECT_EQ(found.fault, "");
  EXPECT_EQ(found.done, 0U);
  EXPECT_EQ(found.notDone, 2U);
}

TEST_F(LookAt, EndsBeforeTheNextInferenceWhenItIsStopped) {
  int asked = 0;
  const AttemptFound found =
      LookAtAttempt(Make(), fleet_.Plan(), planned_, [&] { return ++asked > 2; });
  EXPECT_EQ(found.fault, "");
  EXPECT_EQ(found.done, 2U);
}

TEST_F(LookAt, RefusesWhatIsNoRun) {
  EXPECT_THAT(Look(fleet_.Path("none")).fault, HasSubstr("run.json is not there"));
  const std::string run = Make();
  support::WriteFile(run + "/samples.jsonl", "{\n");
  EXPECT_THAT(Look(run).fault, HasSubstr("samples.jsonl"));
}

// What a merge does not take must not count before, or nobody makes it again.
TEST_F(LookAt, RefusesOneWhoseRunJsonCannotBeRead) {
  const std::string run = Make();
  for (const char* text : {"", "{", "{}"}) {
    support::WriteFile(run + "/run.json", text);
    EXPECT_THAT(Look(run).fault, HasSubstr("run.json")) << text;
  }
  fs::remove(run + "/run.json");
  EXPECT_EQ(Look(run).fault, "its run.json is not there, or no regular file");
}

TEST_F(LookAt, RefusesOneOfAnotherModel) {
  MadeAttempt attempt;
  attempt.change = [](vorn::kit::RunFacts& facts) { facts.model.xxh3 = std::string(32, '0'); };
  const AttemptFound found = Look(fleet_.Attempt(1, 1, attempt));
  EXPECT_EQ(found.fault, "it ran another model ('model.om')");
  EXPECT_TRUE(found.hasOtherFiles);
}

TEST_F(LookAt, RefusesOneWithoutAllInferences) {
  const std::string run = Make();
  std::string text = support::ReadFile(run + "/samples.jsonl");
  text.pop_back();
  support::WriteFile(run + "/samples.jsonl", text.substr(0, text.rfind('\n') + 1));
  EXPECT_EQ(Look(run).fault, "it has 2 of 3 inferences");
}

TEST_F(LookAt, RefusesOneOfOtherInputs) {
  const std::string hash = *planned_[1].inputs[0].file.xxh3;
  EXPECT_EQ(LookChanged("\"" + hash + "\"", "\"" + std::string(32, '0') + "\"").fault,
            "inference 4: it was made of other inputs than planned");
  EXPECT_EQ(LookChanged("\"index\":2,\"status\"", "\"index\":7,\"status\"").fault,
            "inference 5: it stands where another belongs");
}

TEST_F(LookAt, RefusesOneWhoseOutputsChanged) {
  const std::string run = Make();
  support::WriteFile(run + "/dumps/1/same.0.17.bin", "yyyz");
  EXPECT_EQ(Look(run).fault,
            "inference 4: its output 'dumps/1/same.0.17.bin' has not the size and "
            "hash that were noted");
  fs::remove(run + "/dumps/1/same.0.17.bin");
  EXPECT_NE(Look(run).fault, "");
}

TEST_F(LookAt, RefusesOneWithFewerOutputsThanTheModelHas) {
  vorn::kit::FleetPlan plan = fleet_.Plan();
  plan.outputs = 2;
  EXPECT_EQ(LookAtAttempt(Make(), plan, planned_).fault, "inference 3: it has 1 of 2 outputs");
}

// A board's word for where a file is leads nowhere else.
TEST_F(LookAt, RefusesOutputsThatLieElsewhere) {
  const std::string run = Make();
  support::WriteFile(run + "/elsewhere/same.0.17.bin", "xxxx");
  for (const char* path : {"dumps/../elsewhere/same.0.17.bin", "elsewhere/same.0.17.bin",
                           "dumps/0/../../elsewhere/same.0.17.bin"}) {
    EXPECT_THAT(LookChanged("dumps/0/same.0.17.bin", path).fault,
                HasSubstr("is no place of its outputs"))
        << path;
  }
}

TEST_F(LookAt, RefusesOutputsThatAreLinks) {
  const std::string run = Make();
  const std::string output = run + "/dumps/1/same.0.17.bin";
  fs::rename(output, fleet_.Path("aside"));
  fs::create_symlink(fleet_.Path("aside"), output);
  EXPECT_THAT(Look(run).fault, HasSubstr("is no regular file"));
}

TEST_F(LookAt, RefusesInputsOfAnotherSize) {
  EXPECT_THAT(LookChanged("\"sizeBytes\":" + std::to_string(*planned_[0].inputs[0].file.sizeBytes),
                          "\"sizeBytes\":12345")
                  .fault,
              HasSubstr("inference 3: it was made of other inputs"));
}

TEST(ReadPlannedTest, ReadsAChunkOrTheCrossCheck) {
  const MadeFleet fleet(7, 3, {0, 4, 5});
  const auto indices = [&](const std::optional<uint64_t>& chunk) {
    std::vector<uint64_t> read;
    for (const SampleRecord& record : ReadPlanned(fleet.Folder(), fleet.Plan(), chunk)) {
      read.push_back(record.index);
    }
    return read;
  };
  EXPECT_THAT(indices(1), ElementsAre(3, 4, 5));
  EXPECT_THAT(indices(2), ElementsAre(6));
  EXPECT_THAT(indices(std::nullopt), ElementsAre(0, 4, 5));
}

TEST(OutputsHashTest, IsOfContentsAndNotOfNames) {
  const MadeFleet fleet(2, 2);
  const std::vector<SampleRecord> samples{fleet.WholeRecord(0, 'x'), fleet.WholeRecord(1, 'y')};
  std::vector<SampleRecord> other = samples;
  other[0].outputs[0].path = "dumps/0/same.0.99.bin";
  other[0].outputs[0].name = "other";
  other[1].index = 77;
  EXPECT_EQ(OutputsHash(other), OutputsHash(samples));
  for (const auto& changed : {std::vector{fleet.WholeRecord(0, 'x'), fleet.WholeRecord(1, 'z')},
                              std::vector{fleet.WholeRecord(0, 'y'), fleet.WholeRecord(1, 'x')},
                              std::vector{fleet.WholeRecord(0, 'x')}}) {
    EXPECT_NE(OutputsHash(changed), OutputsHash(samples));
  }
  other = samples;
  other[0].outputs[0].sizeBytes = 5;
  EXPECT_NE(OutputsHash(other), OutputsHash(samples));
  other = samples;
  other[0].status = vorn::kit::SampleStatus::kAside;
  EXPECT_NE(OutputsHash(other), OutputsHash(samples));
  // What a sample that is not done may have left counts for nothing.
  other[0].outputs.clear();
  std::vector<SampleRecord> failed = other;
  failed[0].status = vorn::kit::SampleStatus::kFailed;
  EXPECT_EQ(OutputsHash(failed), OutputsHash(other));
}

}  // namespace
