#include "kit/tensor/tensor_source.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/common/fault.h"
#include "kit/model/model_json.h"
#include "kit/run/run_directory.h"
#include "support/files.h"
#include "support/onnx_writer.h"

namespace vorn::kit {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class Sources : public testing::Test {
 protected:
  std::string Path(const std::string& name = "") const { return folder_.Path() / name; }
  void Write(const std::string& name, const std::string& bytes = "") const {
    support::WriteFile(Path(name), bytes);
  }
  std::string Refusal(const std::string& name) const {
    try {
      (void)FindTensors(Path(name));
    } catch (const Fault& fault) {
      EXPECT_EQ(fault.Status(), ExitStatus::kInput);
      return fault.what();
    }
    return "taken";
  }

 private:
  support::TempDir folder_;
};

std::vector<std::string> NamesOf(const SampleSource& sample) {
  std::vector<std::string> names;
  for (const OutputPlace& output : sample.outputs) names.push_back(output.name);
  return names;
}

std::vector<uint64_t> IndicesOf(const TensorSource& source) {
  std::vector<uint64_t> indices;
  for (const SampleSource& sample : source.samples) indices.push_back(sample.index);
  return indices;
}

std::string OnnxTensorOf(const std::string& name) {
  return WireWriter().Varint(1, 0).Varint(2, 1).Bytes(8, name).str();
}

TEST(OutputNameOfDump, LeavesNumberAndTimeOut) {
  EXPECT_EQ(OutputNameOfDump("prob.0.1795255343761818"), "prob");
  EXPECT_EQ(OutputNameOfDump("prob.2.1795255343761818"), "prob#2");
  EXPECT_EQ(OutputNameOfDump("gpu_0_prob:0.0.17"), "gpu_0_prob:0");
  EXPECT_EQ(OutputNameOfDump("prob"), "prob");
  EXPECT_EQ(OutputNameOfDump("prob.0"), "prob_0");
  EXPECT_EQ(OutputNameOfDump("a.b.c"), "a_b_c");
  EXPECT_EQ(OutputNameOfDump(".0.17"), "_0_17");
}

TEST_F(Sources, AreNumberedFoldersOfDumps) {
  Write("10/prob.0.17.bin");
  Write("10/prob.0.17.float");
  Write("2/prob.0.5.bin");
  Write("2/boxes.0.6.float");
  Write("2/boxes.1.7.bin");
  Write("notes/readme.txt");
  const TensorSource source = FindTensors(Path() + "/");
  EXPECT_EQ(source.kind, "the dumps");
  EXPECT_THAT(IndicesOf(source), ElementsAre(2, 10));
  EXPECT_THAT(NamesOf(source.samples[0]), ElementsAre("boxes", "boxes#1", "prob"));
  EXPECT_TRUE(source.samples[1].outputs[0].path.ends_with("/10/prob.0.17.bin"));
}

TEST_F(Sources, OfSomeSamplesAloneHoldNoOthers) {
  for (const char* sample : {"2", "10", "11"}) Write(std::string(sample) + "/prob.0.17.bin");
  EXPECT_THAT(IndicesOf(FindTensors(Path(), {10, 2, 99})), ElementsAre(2, 10));
  // A run that goes on may tell a sample twice, of which the last line counts.
  std::string lines;
  for (const uint64_t index : {0U, 7U, 8U, 7U}) {
    SampleRecord record;
    record.index = index;
    record.status = lines.empty() ? SampleStatus::kDone : SampleStatus::kFailed;
    record.reason = "line " + std::to_string(lines.size());
    lines += ToLine(record);
  }
  Write("run/samples.jsonl", lines);
  const TensorSource all = FindTensors(Path("run"));
  const TensorSource some = FindTensors(Path("run"), {7, 8});
  EXPECT_THAT(IndicesOf(some), ElementsAre(7, 8));
  EXPECT_EQ(some.samples[0].absence, all.samples[1].absence);
  EXPECT_TRUE(some.isRun);
}

TEST_F(Sources, OfSomeSamplesAreWholeWhereTheyMayBeStacked) {
  Write("prob.npy", "no matter");
  EXPECT_TRUE(FindTensors(Path("prob.npy"), {5}).mayBeStacked);
}

TEST_F(Sources, WithTwoDumpsOfOneOutputAreRefused) {
  Write("0/prob.0.17.bin");
  Write("0/prob.0.18.bin");
  EXPECT_THAT(Refusal(""), HasSubstr("two dumps of the output 'prob', prob.0.17.bin and "));
}

TEST_F(Sources, AreTestFoldersOfOnnx) {
  Write("test_data_set_0/input_0.pb", "not looked at");
  Write("test_data_set_0/output_1.pb", OnnxTensorOf("b/x"));
  Write("test_data_set_0/output_0.pb", OnnxTensorOf(""));
  Write("test_data_set_11/output_0.pb", OnnxTensorOf("a"));
  const TensorSource source = FindTensors(Path());
  EXPECT_THAT(IndicesOf(source), ElementsAre(0, 11));
  EXPECT_THAT(NamesOf(source.samples[0]), ElementsAre("", "b_x"));
  EXPECT_THAT(NamesOf(FindTensors(Path("test_data_set_11")).samples[0]), ElementsAre("a"));
}

TEST_F(Sources, AreArraysInAFolder) {
  Write("set/prob.npy");
  Write("set/a.b.npy");
  const TensorSource source = FindTensors(Path("set"));
  EXPECT_TRUE(source.mayBeStacked);
  EXPECT_THAT(NamesOf(source.samples[0]), ElementsAre("a_b", "prob"));
}

TEST_F(Sources, AreASingleFileWithoutAName) {
  Write("x.npy");
  const TensorSource source = FindTensors(Path("x.npy"));
  EXPECT_TRUE(source.mayBeStacked);
  EXPECT_THAT(NamesOf(source.samples[0]), ElementsAre(""));
}

TEST_F(Sources, AreRunDirectories) {
  SampleRecord done;
  done.index = 0;
  done.status = SampleStatus::kDone;
  done.inputs.push_back({1, {}, "pictures/000.bin", {"pictures/000.bin", 4, "00"}});
  done.outputs.push_back({0, "prob", "dumps/0/prob.0.17.bin", {}, 4, "00"});
  SampleRecord aside;
  aside.index = 1;
  aside.status = SampleStatus::kAside;
  aside.reason = "ended by SIGSEGV";
  aside.inputs.push_back({2, {}, "pictures/001.bin", {"pictures/001.bin", 4, "00"}});
  Write("run.json", "{}");
  Write("samples.jsonl", ToLine(done) + ToLine(aside));
  Write("dumps/0/prob.0.17.bin", "four");
  const TensorSource source = FindTensors(Path());
  EXPECT_TRUE(source.isRun);
  EXPECT_THAT(NamesOf(source.samples[0]), ElementsAre("prob"));
  EXPECT_EQ(source.samples[0].outputs[0].path, Path("dumps/0/prob.0.17.bin"));
  EXPECT_THAT(source.samples[0].inputs, ElementsAre("000.bin"));
  EXPECT_EQ(source.samples[1].absence, "ended by SIGSEGV");
  EXPECT_THAT(source.samples[1].inputs, ElementsAre("001.bin"));
}

// The runtime shortens names that no file can have.
TEST_F(Sources, HaveTheNamesThatTheModelHas) {
  ModelDescription model;
  for (const char* name : {"prob", "con/~0f~/v"}) {
    model.outputs.emplace_back();
    model.outputs.back().name = name;
  }
  Write("run.json", "{}");
  Write("model.json", ToJson(model));
  Write("errors.txt", "vorn: vorn_mdl_load_from_mem: 'con/~0f~/v' stands for 'con/long/v'\n");
  Write("dumps/0/prob.0.17.bin", "four");
  Write("dumps/0/con_~0f~_v.0.17.bin", "four");
  const TensorSource source = FindTensors(Path());
  EXPECT_THAT(NamesOf(source.samples.at(0)), ElementsAre("con_long_v", "prob"));
  EXPECT_EQ(source.model->outputs[1].name, "con/long/v");
}

TEST_F(Sources, MissWhatIsNotAsTheRunLeftIt) {
  Write("run.json", "{}");
  std::string lines;
  for (const char* file : {"there.0.17.bin", "gone.0.17.bin", "short.0.17.bin"}) {
    SampleRecord record;
    record.index = lines.size();
    record.status = SampleStatus::kDone;
    record.outputs.push_back({0, "prob", file, {}, 4, "00"});
    lines += ToLine(record);
  }
  Write("samples.jsonl", lines);
  Write("there.0.17.bin", "four");
  Write("short.0.17.bin", "two");
  const TensorSource source = FindTensors(Path());
  ASSERT_EQ(source.samples.size(), 3U);
  EXPECT_EQ(source.samples[0].absence, "");
  EXPECT_THAT(NamesOf(source.samples[0]), ElementsAre("there"));
  EXPECT_EQ(source.samples[1].absence,
            "its dump 'gone.0.17.bin' cannot be read: No such file or directory");
  EXPECT_EQ(source.samples[2].absence,
            "its dump 'short.0.17.bin' has 3 bytes, and had 4 when the run ended");
  EXPECT_TRUE(source.samples[2].outputs.empty());
}

TEST_F(Sources, AreTheDumpsOfARunThatWasKilledEarly) {
  Write("run.json", "{}");
  Write("dumps/0/prob.0.17.bin");
  EXPECT_THAT(NamesOf(FindTensors(Path()).samples[0]), ElementsAre("prob"));
}

TEST_F(Sources, AreRefusedWhereNothingIs) {
  EXPECT_THAT(Refusal("nowhere"), HasSubstr("is not there"));
  Write("x.txt");
  EXPECT_THAT(Refusal("x.txt"), HasSubstr("is a file of no kind that is read"));
  EXPECT_THAT(Refusal(""), HasSubstr("holds nothing to compare: no run directory (run.json), "));
}

std::string Saved(const std::string& name) {
  return support::ReadFile(VORN_ARRAYS_FOLDER "/" + name);
}

TEST_F(Sources, AreTheArraysOfAnArchive) {
  Write("all.npz", Saved("compressed.npz"));
  const TensorSource source = FindTensors(Path("all.npz"));
  EXPECT_EQ(source.kind, "the archive");
  EXPECT_TRUE(source.mayBeStacked);
  ASSERT_EQ(source.samples.size(), 1U);
  ASSERT_EQ(source.samples[0].outputs.size(), 30U);
  const OutputPlace& place = source.samples[0].outputs[12];
  EXPECT_EQ(place.name, "big_f2");
  EXPECT_EQ(place.array, "big/f2");
  const StoredTensor tensor = OpenTensor(place);
  EXPECT_EQ(tensor.type, ElementType::kFloat16);
  EXPECT_EQ(tensor.shape, (Shape{2, 3}));
  // Unpacked once, however many samples lie in it.
  EXPECT_EQ(OpenTensor(place).unpacked, tensor.unpacked);
}

TEST_F(Sources, AreArchivesInNumberedFolders) {
  Write("0/all.npz", Saved("streamed.npz"));
  Write("0/prob.npy");
  Write("1/all.npz", Saved("streamed.npz"));
  const TensorSource source = FindTensors(Path());
  EXPECT_THAT(NamesOf(source.samples[0]),
              ElementsAre("prob", "version 1", "version 2", "version 3"));
  EXPECT_THAT(NamesOf(source.samples[1]), ElementsAre("version 1", "version 2", "version 3"));
  EXPECT_EQ(source.samples[1].outputs[0].kept, nullptr);
  EXPECT_EQ(OpenTensor(source.samples[1].outputs[2]).elements, 6U);
}

TEST_F(Sources, AreNoArchivesOfOneOutputTwice) {
  Write("one.npz", Saved("streamed.npz"));
  Write("two.npz", Saved("streamed.npz"));
  EXPECT_THAT(Refusal(""), HasSubstr("two dumps of the output 'version 1', one.npz and two.npz"));
}

TEST_F(Sources, AreNoArchivesWithoutArrays) {
  Write("none.npz", Saved("none.npz"));
  EXPECT_THAT(Refusal("none.npz"), HasSubstr("none.npz' is an archive without arrays"));
  Write("cut.npz", "PK\x03\x04");
  EXPECT_THAT(Refusal("cut.npz"), HasSubstr("cut.npz' is no archive of arrays (.npz): "));
}

TEST_F(Sources, AreOpenedByPathWhereAnArchiveHoldsOneArray) {
  Write("many.npz", Saved("streamed.npz"));
  EXPECT_THROW((void)OpenTensor(Path("many.npz")), Fault);
}

}  // namespace
}  // namespace vorn::kit
