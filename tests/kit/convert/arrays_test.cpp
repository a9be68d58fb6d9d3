#include "kit/convert/arrays.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/common/fault.h"
#include "kit/model/dump_array.h"
#include "kit/model/model_json.h"
#include "kit/run/run_directory.h"
#include "support/files.h"
#include "vorn/vorn.h"

namespace vorn::kit {
namespace {

using support::Bytes;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class Arrays : public testing::Test {
 protected:
  Arrays() {
    model_.outputs = {Output("prob", {2, 3}, VORN_FLOAT32), Output("ids", {2}, VORN_INT32)};
    for (const uint64_t sample : {0, 1}) {
      Add(sample, 0, "prob", Bytes<float>({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
      Add(sample, 1, "ids", Bytes<int32_t>({-1, 300, 0, 5}));
    }
  }

  static TensorDescription Output(const std::string& name, std::vector<int64_t> shape,
                                  uint32_t type) {
    TensorDescription output;
    output.role = TensorRole::kOutput;
    output.name = name;
    output.shape = std::move(shape);
    output.type = type;
    return output;
  }

  void Add(uint64_t sample, uint64_t index, const std::string& name, const std::string& bytes) {
    const std::string path = "dumps/" + std::to_string(sample) + "/" + name + ".0.17.bin";
    support::WriteFile(Path(path), bytes);
    if (samples_.size() <= sample) samples_.resize(sample + 1);
    samples_[sample].index = sample;
    samples_[sample].status = SampleStatus::kDone;
    samples_[sample].outputs.push_back({.index = index,
                                        .name = name,
                                        .path = path,
                                        .text = {},
                                        .sizeBytes = bytes.size(),
                                        .xxh3 = std::string(32, '0')});
  }

  std::string Path(const std::string& name = "") const { return folder_.Path() / "run" / name; }
  std::string Read(const std::string& name) const { return support::ReadFile(Path(name)); }

  ArraysWritten Write(const std::optional<std::string>& folder = {}) {
    std::string lines;
    for (const SampleRecord& sample : samples_) lines += ToLine(sample);
    support::WriteFile(Path("samples.jsonl"), lines);
    if (hasModel_) support::WriteFile(Path("model.json"), ToJson(model_));
    return WriteArrays(Path(), folder);
  }

  support::TempDir folder_;
  ModelDescription model_;
  std::vector<SampleRecord> samples_;
  bool hasModel_ = true;
};

TEST_F(Arrays, TellOfARunThatHasNotEnded) {
  RunFacts facts;
  facts.state = RunState::kRunning;
  facts.counts.inferences = 5;
  support::WriteFile(Path("run.json"), ToJson(facts));
  const ArraysWritten running = Write();
  EXPECT_EQ(running.arrays, 4U);
  EXPECT_TRUE(running.isUnfinished);
  EXPECT_THAT(running.why, ElementsAre("the run '" + Path() +
                                       "' has not ended (\"running\" in its run.json), "
                                       "and has 2 samples of 5"));
  facts.state = RunState::kInterrupted;
  support::WriteFile(Path("run.json"), ToJson(facts));
  EXPECT_THAT(Write().why,
              ElementsAre("the run '" + Path() + "' ended early, with 2 samples of 5"));
  facts.counts.inferences = 2;
  facts.state = RunState::kDone;
  support::WriteFile(Path("run.json"), ToJson(facts));
  EXPECT_FALSE(Write().isUnfinished);
  EXPECT_THAT(Write().why, IsEmpty());
  support::WriteFile(Path("run.json"), "{}");  // of another hand
  EXPECT_FALSE(Write().isUnfinished);
}

TEST_F(Arrays, StandBesideTheirDumpsInTheirShape) {
  const ArraysWritten written = Write();
  EXPECT_EQ(written.arrays, 4U);
  EXPECT_EQ(written.samples, 2U);
  EXPECT_EQ(written.absent, 0U);
  EXPECT_THAT(written.why, IsEmpty());
  // Of two items each.
  EXPECT_EQ(Read("dumps/1/prob.0.17.npy"),
            ArrayHeader(model_.outputs[0], {4, 3}) + Read("dumps/1/prob.0.17.bin"));
  EXPECT_EQ(Read("dumps/0/ids.0.17.npy"),
            ArrayHeader(model_.outputs[1], {4}) + Read("dumps/0/ids.0.17.bin"));
  EXPECT_THAT(Read("dumps/0/ids.0.17.npy"), HasSubstr("'<i4'"));
}

TEST_F(Arrays, GoWhereTheyAreWanted) {
  const std::string folder = folder_.Path() / "new/arrays";
  EXPECT_EQ(Write(folder).arrays, 4U);
  const std::string array = support::ReadFile(folder + "/1/prob.0.17.npy");
  EXPECT_EQ(Write().arrays, 4U);
  EXPECT_EQ(Read("dumps/1/prob.0.17.npy"), array);
}

TEST_F(Arrays, AreRowsWithoutADescription) {
  hasModel_ = false;
  EXPECT_EQ(Write().arrays, 4U);
  EXPECT_THAT(Read("dumps/0/prob.0.17.npy"), HasSubstr("'shape': (12,)"));
}

TEST_F(Arrays, LeaveOutWhatADumpDoesNotHold) {
  model_.outputs[0].type = VORN_FLOAT64;
  const ArraysWritten written = Write();
  EXPECT_EQ(written.arrays, 2U);
  EXPECT_THAT(written.why,
              ElementsAre("the output 'prob' is of float64, and a dump does not hold such values; "
                          "take them from a capture"));
  EXPECT_EQ(support::ReadTree(Path("dumps/0")).count("prob.0.17.npy"), 0U);
}

TEST_F(Arrays, AreOnlyOfDumpsThatAreWhatTheyWere) {
  samples_.resize(5);
  samples_[2].index = 2;
  samples_[2].status = SampleStatus::kFailed;
  samples_[2].reason = "it crashed";
  samples_[3] = samples_[0];
  samples_[3].index = 3;
  samples_[3].outputs[0].path = "dumps/../../outside.bin";
  samples_[4] = samples_[0];
  samples_[4].index = 4;
  samples_[4].outputs.resize(1);
  samples_[4].outputs[0].path = "dumps/4/gone.0.17.bin";
  support::WriteFile(Path("dumps/1/ids.0.17.bin"), "12345678");
  const ArraysWritten written = Write();
  EXPECT_EQ(written.arrays, 2U);
  EXPECT_EQ(written.absent, 4U);
  EXPECT_THAT(written.why,
              ElementsAre("sample 1: the dump 'dumps/1/ids.0.17.bin' has 8 bytes, and had 16 when "
                          "the run ended",
                          "sample 2: it crashed",
                          "sample 3: the dump 'dumps/../../outside.bin' is none of this run",
                          "sample 4: the dump 'dumps/4/gone.0.17.bin' is not there any more"));
}

TEST_F(Arrays, AreMadeOfARunOnly) {
  support::WriteFile(Path("dumps/0/x.bin"), "");
  try {
    (void)WriteArrays(Path(), {});
    FAIL();
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.Status(), ExitStatus::kInput);
    EXPECT_THAT(fault.what(), HasSubstr("is no run directory: it has no samples.jsonl"));
  }
  support::WriteFile(folder_.Path() / "file", "");
  EXPECT_THROW((void)Write((folder_.Path() / "file").string()), Fault);
}

}  // namespace
}  // namespace vorn::kit
