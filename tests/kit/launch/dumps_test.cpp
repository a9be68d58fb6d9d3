#include "kit/launch/dumps.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <functional>
#include <limits>

#include "kit/common/file_identity.h"
#include "kit/model/dump_array.h"
#include "support/files.h"
#include "vorn/vorn.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Key;
using vorn::kit::ArrayHeader;
using vorn::kit::DumpsFound;
using vorn::kit::ExitStatus;
using vorn::kit::InspectDumps;
using vorn::kit::ModelDescription;
using vorn::kit::TensorDescription;

TensorDescription Output(const std::string& name, uint32_t type = 0) {
  TensorDescription output;
  output.role = vorn::kit::TensorRole::kOutput;
  output.name = name;
  output.shape = {2, 3};
  output.type = type;
  output.elementBits = 32;
  output.strideBytes = 16;
  output.deviceBytes = 32;
  return output;
}

class Dumps : public testing::Test {
 protected:
  Dumps() { model_.outputs = {Output("a.b/c"), Output("a.b/c"), Output("")}; }

  void Write(const std::string& name, const std::string& bytes) {
    support::WriteFile(folder_.Path() / name, bytes);
  }

  void WriteAll() {
    for (const char* front : {"a_b_c.0.17", "a_b_c.1.18", "output.0.19"}) {
      Write(front + std::string(".bin"), support::Bytes<float>({1, 2, 3, 4, 5, 6}));
      Write(front + std::string(".float"), std::string(6, '\n'));
    }
  }

  DumpsFound Inspect(const vorn::kit::DumpRequest& request = {}) const {
    return InspectDumps(folder_.Path().string(), model_, request);
  }

  support::TempDir folder_;
  ModelDescription model_;
};

TEST_F(Dumps, FindsEachOutput) {
  WriteAll();
  const DumpsFound found = Inspect();
  EXPECT_THAT(found.faults, IsEmpty());
  ASSERT_EQ(found.outputs.size(), 3U);
  EXPECT_EQ(found.outputs[1].index, 1U);
  EXPECT_EQ(found.outputs[1].name, "a.b/c");
  EXPECT_EQ(found.outputs[1].path, "a_b_c.1.18.bin");
  EXPECT_EQ(found.outputs[1].text, "a_b_c.1.18.float");
  EXPECT_EQ(found.outputs[1].sizeBytes, 24U);
  const auto file = vorn::kit::IdentifyFile((folder_.Path() / "a_b_c.1.18.bin").string(), "it",
                                            ExitStatus::kInput);
  EXPECT_EQ(found.outputs[1].xxh3, file.xxh3);
  EXPECT_EQ(found.outputs[2].path, "output.0.19.bin");
}

TEST_F(Dumps, TellsOfWhatIsNoFile) {
  WriteAll();
  const std::filesystem::path dump = folder_.Path() / "a_b_c.0.17.bin";
  for (const auto& make :
       {std::function<void()>([&] { std::filesystem::create_directory(dump); }),
        std::function<void()>([&] { ASSERT_EQ(mkfifo(dump.c_str(), 0600), 0); }),
        std::function<void()>([&] { std::filesystem::create_symlink(dump.filename(), dump); })}) {
    std::filesystem::remove(dump);
    make();
    const DumpsFound found = Inspect();
    EXPECT_THAT(found.faults, ElementsAre("output 'a.b/c' was dumped as what is no regular file"));
    EXPECT_EQ(found.outputs.size(), 2U);
  }
}

TEST_F(Dumps, TellsWhatIsMissingTwiceThereOrOfAnotherSize) {
  WriteAll();
  std::filesystem::remove(folder_.Path() / "a_b_c.0.17.bin");
  Write("a_b_c.1.20.bin", "");
  Write("output.0.19.bin", support::Bytes<float>({1, 2, 3, 4, 5}));
  EXPECT_THAT(Inspect().faults,
              ElementsAre("output 'a.b/c' was not dumped", "output 'a.b/c' was dumped twice",
                          "output '' was dumped with 20 bytes instead of 24 (6 values)"));
  EXPECT_THAT(Inspect().outputs, IsEmpty());
}

TEST_F(Dumps, MissesATextThatIsNotThereOrCut) {
  WriteAll();
  std::filesystem::remove(folder_.Path() / "a_b_c.0.17.float");
  Write("a_b_c.1.18.float", std::string(6, '\n') + "0.5");
  Write("output.0.19.float", "");
  EXPECT_THAT(Inspect().faults, ElementsAre("output 'a.b/c' has no whole text beside its dump",
                                            "output 'a.b/c' has no whole text beside its dump",
                                            "output '' has no whole text beside its dump"));
}

TEST_F(Dumps, TakesNoOtherFileForADump) {
  WriteAll();
  Write("a_b_c.0.17x.bin", "");
  Write("a_b_c.0..bin", "");
  Write("a_b_c.10.17.bin", "");
  Write("a_b_c.0.bin", "");
  EXPECT_THAT(Inspect().faults, IsEmpty());
}

TEST_F(Dumps, RemovesTextsWhereTheyAreNotKept) {
  WriteAll();
  const DumpsFound found = Inspect({.isTextKept = false, .areArrays = false, .batch = 1});
  EXPECT_EQ(found.outputs[0].text, std::nullopt);
  EXPECT_THAT(support::ReadTree(folder_.Path()),
              ElementsAre(Key("a_b_c.0.17.bin"), Key("a_b_c.1.18.bin"), Key("output.0.19.bin")));
}

TEST_F(Dumps, CountsWhatIsNoNumberInOutputsOfFloat32Only) {
  constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
  constexpr float kInfinity = std::numeric_limits<float>::infinity();
  model_.outputs[1].type = 3;  // int32, whose bits lie in the dump
  WriteAll();
  const std::string bytes =
      support::Bytes<float>({kNan, kInfinity, -kInfinity, -kNan, -0.0F, kNan});
  Write("a_b_c.0.17.bin", bytes);
  Write("a_b_c.1.18.bin", bytes);
  const DumpsFound found = Inspect();
  EXPECT_EQ(found.nans, 3U);
  EXPECT_EQ(found.infinities, 2U);
  EXPECT_THAT(found.unfit, ElementsAre("a.b/c"));
}

TEST_F(Dumps, RenamesWhatCouldNotBeTold) {
  model_.outputs = {Output("\xFF\xC3\xA9")};
  Write("\xFF\xC3\xA9.0.1.bin", std::string(24, '\0'));
  Write("\xFF\xC3\xA9.0.1.float", std::string(6, '\n'));
  EXPECT_EQ(Inspect().outputs[0].path, "_\xC3\xA9.0.1.bin");
  EXPECT_THAT(support::ReadTree(folder_.Path()),
              ElementsAre(Key("_\xC3\xA9.0.1.bin"), Key("_\xC3\xA9.0.1.float")));
}

// vorn-run writes the text of an output, and then its dump.
TEST_F(Dumps, RemovesTheTextsThatAreWholeAlone) {
  Write("a.0.17.float", "1\n");
  Write("a.0.17.bin", "whole");
  Write("b.0.18.float", "1\n2");
  Write("b.0.17.bin", "of another time");
  Write("float", "");
  vorn::kit::RemoveWholeTexts(folder_.Path());
  EXPECT_THAT(support::ReadTree(folder_.Path()),
              ElementsAre(Key("a.0.17.bin"), Key("b.0.17.bin"), Key("b.0.18.float"), Key("float")));
  vorn::kit::RemoveWholeTexts(folder_.Path() / "none");
}

TEST_F(Dumps, WritesArraysInTheirShape) {
  model_.outputs = {Output("x")};
  const std::string values = support::Bytes<float>({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
  Write("x.0.1.bin", values);
  Write("x.0.1.float", std::string(12, '\n'));
  EXPECT_THAT(Inspect({.isTextKept = true, .areArrays = true, .batch = 2}).faults, IsEmpty());
  const std::string array = support::ReadFile(folder_.Path() / "x.0.1.npy");
  EXPECT_EQ(array, ArrayHeader(Output("x"), {4, 3}) + values);
}

// A double is not in the floats of a dump, and an array of them would be one of wrong values.
TEST_F(Dumps, WritesNoArrayOfWhatIsNotDumped) {
  model_.outputs = {Output("x", VORN_FLOAT64)};
  Write("x.0.1.bin", std::string(24, '\0'));
  Write("x.0.1.float", std::string(6, '\n'));
  EXPECT_THAT(Inspect({.isTextKept = true, .areArrays = true, .batch = 1}).faults, IsEmpty());
  EXPECT_THAT(support::ReadTree(folder_.Path()), ElementsAre(Key("x.0.1.bin"), Key("x.0.1.float")));
}

TEST_F(Dumps, VerifyAsLongAsTheyAreTheSame) {
  const std::string run = folder_.Path().string();
  Write("dumps/0/x.bin", "123");
  Write("dumps/0/x.float", "1\n");
  const auto file = vorn::kit::IdentifyFile(run + "/dumps/0/x.bin", "it", ExitStatus::kInput);
  vorn::kit::SampleOutput output{.index = 0,
                                 .name = "x",
                                 .path = "dumps/0/x.bin",
                                 .text = "dumps/0/x.float",
                                 .sizeBytes = 3,
                                 .xxh3 = *file.xxh3};
  EXPECT_TRUE(DoesVerify(run, output));
  Write("dumps/0/x.bin", "124");
  EXPECT_FALSE(DoesVerify(run, output));
  Write("dumps/0/x.bin", "1234");
  EXPECT_FALSE(DoesVerify(run, output));
  Write("dumps/0/x.bin", "123");
  EXPECT_TRUE(DoesVerify(run, output));
  std::filesystem::remove(folder_.Path() / "dumps/0/x.float");
  EXPECT_FALSE(DoesVerify(run, output));
  output.text.reset();
  EXPECT_TRUE(DoesVerify(run, output));
  output.path = "dumps/../dumps/0/x.bin";
  EXPECT_FALSE(DoesVerify(run, output));
}

}  // namespace
