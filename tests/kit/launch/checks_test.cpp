// Each fault with its line and its words, and the sizes of dumps against those of vorn-run's own
// code.
#include "kit/launch/checks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <random>

#include "output/destride.h"

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;
using vorn::kit::CheckRequest;
using vorn::kit::ExitStatus;
using vorn::kit::FileState;
using vorn::kit::Finding;
using vorn::kit::Findings;
using vorn::kit::InputList;
using vorn::kit::ModelDescription;
using vorn::kit::TensorDescription;

TensorDescription Tensor(const std::string& name, std::vector<int64_t> shape, uint32_t type,
                         uint64_t stride, uint64_t device) {
  TensorDescription tensor;
  tensor.name = name;
  tensor.shape = std::move(shape);
  tensor.type = type;
  tensor.elementBits = vorn::kit::BitsOfType(type);
  tensor.strideBytes = stride;
  tensor.deviceBytes = device;
  return tensor;
}

std::vector<ExitStatus> StatusesOf(const std::vector<Finding>& findings) {
  std::vector<ExitStatus> statuses;
  for (const Finding& finding : findings) statuses.push_back(finding.status);
  return statuses;
}

class Checks : public testing::Test {
 protected:
  Checks() {
    request_.listPath = "d/list.txt";
    // 2 rows of 3 bytes, 8 apart; and 4 floats.
    SetInputs({Tensor("picture", {1, 1, 2, 3}, 4, 8, 16), Tensor("scale", {1, 4}, 0, 16, 16)});
    model_.netType = 0;
    model_.outputs = {Tensor("out", {1, 10}, 0, 48, 48)};
  }

  void SetInputs(std::vector<TensorDescription> data) {
    model_.inputs = std::move(data);
    model_.inputs.push_back(Tensor("task", {1, 1}, 0, 16, 16));
    model_.inputs.push_back(Tensor("work", {1, 1}, 0, 16, 16));
  }

  void File(const std::string& name, uint64_t size) { files_["d/" + name] = {"", size}; }

  std::vector<Finding> Check(const std::string& list) { return CheckAll(list).First(); }

  Findings CheckAll(const std::string& list) {
    AssignRoles(model_);
    const InputList sorted = InputList::OfBytes(list, "d").SortedBy(NamedInputs(model_));
    return CheckList(request_, model_, sorted, [this](const std::string& path) {
      const auto found = files_.find(path);
      return found == files_.end() ? FileState{.fault = "is not there", .sizeBytes = 0}
                                   : found->second;
    });
  }

  std::vector<std::string> Messages(const std::string& list) {
    std::vector<std::string> messages;
    for (const Finding& finding : Check(list)) messages.push_back(finding.message);
    return messages;
  }

  ModelDescription model_;
  CheckRequest request_;
  std::map<std::string, FileState> files_;
};

// ---- Lines --------------------------------------------------------------------------------------

TEST_F(Checks, FindNothingWrong) {
  File("p", 6);
  File("s", 16);
  EXPECT_THAT(Check("p\ns\n\np\ns\n"), IsEmpty());
  EXPECT_THAT(Check("scale:s\npicture:p\n"), IsEmpty());
  request_.batch = 2;
  File("p", 12);
  File("s", 32);
  EXPECT_THAT(Check("p\ns\n"), IsEmpty());
}

TEST_F(Checks, RefuseAnEmptyList) {
  EXPECT_THAT(Messages("\n\n"),
              ElementsAre("'d/list.txt': the list is empty; a line for each input file is needed"));
}

TEST_F(Checks, CountLinesThatWouldBeLeftOut) {
  File("p", 6);
  File("s", 16);
  EXPECT_THAT(Messages("p\ns\np\n"),
              ElementsAre("d/list.txt:3: the list has 3 lines, and an inference takes 2 "
                          "('picture', 'scale'): 1 line at the end would be left out"));
}

TEST_F(Checks, NameEveryFileThatIsMissing) {
  File("s", 16);
  files_["d/folder"] = {"is a folder, and a file is needed", 0};
  EXPECT_THAT(
      Messages("p\ns\n/p\ns\np\r\ns\nfolder\ns\n"),
      ElementsAre("d/list.txt:1: 'd/p' is not there",
                  "d/list.txt:3: 'd//p' is not there; paths count from the folder of the list, "
                  "also those that begin with '/'",
                  "d/list.txt:5: 'd/p\\x0D' is not there; the line ends with a carriage return, "
                  "which counts: write the list with plain line ends",
                  "d/list.txt:7: 'd/folder' is a folder, and a file is needed"));
}

// What a person takes for the same path.
TEST_F(Checks, SayWhatCountsInAPath) {
  const auto why = [&](const std::string& line) { return Messages(line + "\nt\n").at(0); };
  File("p", 6);
  File("t", 16);
  EXPECT_EQ(why(" p"), "d/list.txt:1: 'd/ p' is not there; the blank in front of the path counts");
  EXPECT_EQ(why("p\t"), "d/list.txt:1: 'd/p\\x09' is not there; the blank behind the path counts");
  EXPECT_EQ(why("\"p\""),
            "d/list.txt:1: 'd/\"p\"' is not there; quotation marks count: write the path without "
            "them");
  EXPECT_EQ(why("# p"), "d/list.txt:1: 'd/# p' is not there; a list has no comments");
  EXPECT_EQ(why("~/p"),
            "d/list.txt:1: 'd/~/p' is not there; '~', '*' and '?' stand for themselves");
  EXPECT_EQ(why("*.p"),
            "d/list.txt:1: 'd/*.p' is not there; '~', '*' and '?' stand for themselves");
  EXPECT_EQ(why("p~1"), "d/list.txt:1: 'd/p~1' is not there");
}

TEST_F(Checks, CutWhatIsNoName) {
  EXPECT_THAT(Messages(std::string(5000, 'x') + ":p\nscale:s\n").at(0),
              StartsWith("d/list.txt:1: the model has no input '" + std::string(200, 'x') +
                         "...'; what stands before the first ':'"));
}

TEST_F(Checks, TakeNoModelForAList) {
  std::string bytes;
  for (int i = 0; i < 20; ++i) bytes += "a:b\nc\nd\n" + std::string("\0:\n", 3);
  EXPECT_THAT(Messages(bytes),
              ElementsAre("'d/list.txt' is no list: 20 of its first 80 lines hold zero bytes, and "
                          "a list is text with a path in each line"));
}

TEST_F(Checks, TellOfAByteOrderMark) {
  File("p", 6);
  File("s", 16);
  const std::string mark = "\xEF\xBB\xBF";
  EXPECT_THAT(Messages(mark + "p\ns\n"),
              ElementsAre("d/list.txt:1: the list begins with a byte order mark, which vorn-run "
                          "takes as part of the first path; save it as UTF-8 without the mark"));
  EXPECT_THAT(Messages(mark + "picture:p\nscale:s\n"),
              ElementsAre("d/list.txt:1: the list begins with a byte order mark, which vorn-run "
                          "takes as part of the first name; save it as UTF-8 without the mark"));
  // What else is wrong is told as if it were gone.
  EXPECT_THAT(Messages(mark + "no\ns\np\nnone\n"),
              ElementsAre(HasSubstr("byte order mark"), "d/list.txt:1: 'd/no' is not there",
                          "d/list.txt:4: 'd/none' is not there"));
  EXPECT_THAT(Messages(std::string("\xFF\xFEp\0\n\0s\0\n\0", 10)),
              ElementsAre("d/list.txt:1: the list begins with a byte order mark of UTF-16, whose "
                          "bytes vorn-run takes as they are; save it as UTF-8 without the mark"));
  // A name may begin with one, or with bytes that look like one.
  File(mark + "p", 6);
  EXPECT_THAT(Messages(mark + "p\ns\n"), IsEmpty());
  EXPECT_THAT(Messages("\xFF\xFEp\ns\n"), ElementsAre(HasSubstr("is not there")));
}

TEST_F(Checks, RefusePathsThatNoProgramCanOpen) {
  File("s", 16);
  EXPECT_THAT(Messages(std::string("p\0q\ns\n", 6) + std::string(5000, 'x') + "\ns\n"),
              ElementsAre("d/list.txt:1: the path holds a zero byte, where it would end",
                          "d/list.txt:3: with the list's folder the path has 5002 bytes, and 4096 "
                          "are the most"));
}

// ---- Names --------------------------------------------------------------------------------------

// Where an inference takes all inputs, leaving out the names would help nobody.
TEST_F(Checks, TellOnceThatNamedLinesDoNotDivide) {
  EXPECT_THAT(Messages("picture:p\nscale:s\npicture:p\n"),
              ElementsAre(EndsWith("1 line at the end would be left out")));
}

TEST_F(Checks, KnowTheNameThatWasMeant) {
  File("p", 6);
  File("s", 16);
  EXPECT_THAT(
      Messages("pictrue:p\nscale:s\nD:\\q\nscale:s\n"),
      ElementsAre("d/list.txt:1: the model has no input 'pictrue'; did you mean 'picture'?",
                  "d/list.txt:3: the model has no input 'D'; what stands before the first ':' of a "
                  "line is a name. A path with a ':' needs a link without one"));
}

TEST_F(Checks, BlameTheOddOneOut) {
  File("p", 6);
  File("s", 16);
  EXPECT_EQ(Messages("picture:p\nscale:s\np\nscale:s\n").front(),
            "d/list.txt:3: 'p' names no input, and other lines do; name one in every line or in "
            "none");
  EXPECT_THAT(Messages("p\ns\npicture:p\ns\np\ns\n"),
              ElementsAre("d/list.txt:3: 'picture:p' names an input, and most lines name none; "
                          "name one in every line or in none"));
}

TEST_F(Checks, SeeANameThatIsThereTwice) {
  File("p", 6);
  EXPECT_THAT(
      Messages("picture:p\npicture:p\n"),
      ElementsAre("d/list.txt:2: inference 0 names 'picture' where 'scale' is missing; name "
                  "each input once"));
}

// ---- Sizes --------------------------------------------------------------------------------------

TEST_F(Checks, TellBothSizesAndWhatTheOneWouldBe) {
  File("s", 16);
  const auto of = [&](uint64_t size) {
    File("p", size);
    const auto messages = Messages("p\ns\n");
    EXPECT_THAT(messages, SizeIs(1));
    const std::string front = "d/list.txt:1: 'p' ";
    EXPECT_TRUE(messages.front().starts_with(front)) << messages.front();
    return messages.front().substr(front.size());
  };
  const std::string takes = "and input 'picture' takes 6 bytes (1x1x2x3 of uint8)";
  EXPECT_EQ(of(0), "is empty, " + takes);
  EXPECT_EQ(of(5), "has 5 bytes, " + takes + "; the rest would hold what was there before");
  EXPECT_EQ(of(7), "has 7 bytes, " + takes + "; the rest would be left out");
  EXPECT_EQ(of(16),
            "has 16 bytes, " + takes +
                ": as many as its padded rows take, but rows are read dense; take the "
                "padding of 8 bytes a row out; the batch would be reset to 1 from there on");
  EXPECT_EQ(of(12), "has 12 bytes, " + takes + ": that is 2 items; give -b 2, or cut the file");
  EXPECT_EQ(of(18), "has 18 bytes, " + takes +
                        ": that is 3 items; give -b 3, or cut the file; the batch would be reset "
                        "to 1 from there on");
  EXPECT_EQ(of(uint64_t{1} << 31),
            "has 2147483648 bytes, and files of 2 GiB and more are not read");
}

TEST_F(Checks, SeeElementsOfAnotherType) {
  File("p", 6);
  File("s", 8);
  EXPECT_THAT(Messages("p\ns\n"),
              ElementsAre("d/list.txt:2: 's' has 8 bytes, and input 'scale' takes 16 bytes (1x4 of "
                          "float32): as many elements of 2 bytes each instead of 4; convert them"));
}

TEST_F(Checks, ReckonWithTheBatch) {
  request_.batch = 4;
  File("p", 6);
  File("s", 64);
  EXPECT_THAT(Messages("p\ns\n"),
              ElementsAre("d/list.txt:1: 'p' has 6 bytes, and input 'picture' takes 24 bytes "
                          "(1x1x2x3 of uint8, 4 of them): that is 1 item; give -b 1, or cut the "
                          "file"));
}

TEST_F(Checks, FindAllFaultsAtOnce) {
  File("p", 5);
  File("s", 15);
  EXPECT_THAT(Check("p\ns\np\ns\np\n"), SizeIs(6));
  EXPECT_EQ(Check("p\ns\n").front().status, ExitStatus::kInput);
}

// ---- Recurrent models ---------------------------------------------------------------------------

class RecurrentChecks : public Checks {
 protected:
  RecurrentChecks() {
    model_.netType = 2;
    SetInputs({Tensor("frames", {10, 4}, 0, 16, 160), Tensor("flags", {1, 10}, 0, 48, 48)});
  }
};

TEST_F(RecurrentChecks, CountFrames) {
  File("f", 48);
  File("g", 12);
  EXPECT_THAT(Check("f\ng\n"), IsEmpty());
  File("g", 40);
  EXPECT_THAT(Check("f\ng\n"), IsEmpty());
  File("f", 50);
  EXPECT_THAT(
      Messages("f\ng\n"),
      ElementsAre("d/list.txt:1: 'f' has 50 bytes, which is no whole number of frames of 16 "
                  "bytes for input 'frames' (10x4 of float32)"));
  File("f", 176);
  EXPECT_EQ(
      Messages("f\ng\n").front(),
      "d/list.txt:1: 'f' has 176 bytes, 11 frames, and input 'frames' (10x4 of float32) takes "
      "10 at most");
}

TEST_F(RecurrentChecks, WantAFlagForEachFrame) {
  File("f", 48);
  File("g", 8);
  EXPECT_THAT(Messages("f\ng\n"),
              ElementsAre("d/list.txt:2: 'g' has flags of 2 frames, and the sequence has 3; input "
                          "'flags' needs a flag for each (1x10 of float32)"));
  File("g", 44);
  EXPECT_THAT(Messages("f\ng\n"),
              ElementsAre("d/list.txt:2: 'g' has 44 bytes, and input 'flags' takes 40 bytes (1x10 "
                          "of float32) at most"));
}

TEST_F(RecurrentChecks, TellOfOptionsThatDoNothingThere) {
  File("f", 48);
  File("g", 12);
  request_.totalT = 3;
  EXPECT_EQ(StatusesOf(Check("f\ng\n")), std::vector{ExitStatus::kDone});
  request_.batch = 2;
  EXPECT_EQ(Check("f\ng\n").front().status, ExitStatus::kUsage);
}

// ---- Thresholds ---------------------------------------------------------------------------------

class ThresholdChecks : public Checks {
 protected:
  ThresholdChecks() {
    model_.netType = 1;
    SetInputs({Tensor("picture", {1, 1, 2, 3}, 4, 8, 16), Tensor("limits", {1, 4}, 0, 16, 16)});
    File("p", 6);
    File("l", 16);
  }
};

TEST_F(ThresholdChecks, TakeThemFromFilesOrFromTheList) {
  request_.thresholds = {{.path = "t", .fault = "", .values = 4}};
  EXPECT_THAT(Check("p\np\n"), IsEmpty());
  request_.thresholds.clear();
  EXPECT_EQ(StatusesOf(Check("p\nl\n")), std::vector{ExitStatus::kDone});
}

TEST_F(ThresholdChecks, CountTheirNumbers) {
  request_.thresholds = {{.path = "t", .fault = "", .values = 3}};
  EXPECT_THAT(Messages("p\n"),
              ElementsAre("the thresholds 't' holds 3 numbers, and input 'limits' (1x4) takes 4"));
  request_.thresholds[0].values = 5;
  EXPECT_THAT(Messages("p\n"),
              ElementsAre("the thresholds 't' is read as 5 numbers and has 4: white "
                          "space behind the last one counts it twice; take the "
                          "line end away"));
  request_.thresholds[0].fault = "is not there";
  EXPECT_THAT(Messages("p\n"), ElementsAre("the thresholds 't' is not there"));
  request_.thresholds = {{.path = "t", .fault = "", .values = 4},
                         {.path = "u", .fault = "", .values = 4}};
  EXPECT_EQ(Messages("p\n").front(),
            "the model takes 1 input of thresholds, and -r names 2 files; files are separated by "
            "commas");
}

TEST_F(ThresholdChecks, AreCountedAsVornRunDoes) {
  EXPECT_EQ(vorn::kit::CountThresholds("0.1 0.2\n0.3 4"), 4U);
  EXPECT_EQ(vorn::kit::CountThresholds("0.1 0.2 0.3 4\n"), 5U);
  EXPECT_EQ(vorn::kit::CountThresholds("0.1 x"), std::nullopt);
}

TEST_F(Checks, RefuseThresholdsOfAModelWithoutThem) {
  request_.thresholds = {{.path = "t", .fault = "", .values = 4}};
  File("p", 6);
  EXPECT_EQ(Messages("p\n").front(),
            "the model takes 0 inputs of thresholds, and -r names 1 file; files are separated by "
            "commas");
  request_.thresholds.assign(7, {.path = "t", .fault = "", .values = 4});
  EXPECT_EQ(Messages("p\n").back(),
            "-r names 7 files, and the model has 2 inputs: none is left for the list");
}

TEST_F(Checks, RefuseAModelWithoutInputs) {
  SetInputs({});
  EXPECT_THAT(Messages("p\n"),
              ElementsAre("the model tells of 2 inputs, and a run needs one for data "
                          "and two buffers"));
}

TEST_F(Checks, KeepAHundredFaultsOfMany) {
  std::string list;
  for (int i = 0; i < 1000; ++i) list += "none\n";
  SetInputs({Tensor("picture", {1, 6}, 4, 8, 8)});
  const Findings findings = CheckAll(list);
  EXPECT_THAT(findings.First(), SizeIs(100));
  EXPECT_EQ(findings.Status(), ExitStatus::kInput);
  const std::string text = findings.Text("vorn x");
  EXPECT_THAT(text, StartsWith("d/list.txt:1: 'd/none' is not there\nvorn x: d/list.txt:2: "));
  EXPECT_THAT(text, EndsWith("\nvorn x: and 900 more"));
}

// What vorn-run makes of a line with a right name is not told until the other names are right.
TEST_F(Checks, TellOfNamesBeforeFiles) {
  File("p", 6);
  File("s", 16);
  EXPECT_THAT(Messages("picture:none\nscale:s\np\nscale:s\n"),
              ElementsAre("d/list.txt:3: 'p' names no input, and other lines do; name one in "
                          "every line or in none"));
  EXPECT_THAT(Messages("none\ns\nscole:s\ns\np\ns\n"),
              ElementsAre(HasSubstr("list.txt:3: the model has no input 'scole'"),
                          HasSubstr("list.txt:1: 'd/none' is not there")));
}

// ---- Findings -----------------------------------------------------------------------------------

TEST(ManyFindings, ArePutTogether) {
  Findings one;
  one.Add({.status = ExitStatus::kDone, .message = "a remark"});
  EXPECT_EQ(one.Status(), ExitStatus::kDone);
  one.Add({.status = ExitStatus::kRuntime, .message = "no runtime"});
  Findings other;
  EXPECT_TRUE(other.IsEmpty());
  other.Add({.status = ExitStatus::kDone, .message = "a remark"});
  other.Add({.status = ExitStatus::kInput, .message = "no file"});
  Findings both = one;
  both.AddNew(other, "B: ");
  EXPECT_EQ(both.Text("v"), "a remark\nv: no runtime\nv: B: no file");
  EXPECT_EQ(both.Status(), ExitStatus::kInput);
  one.Add(other);
  EXPECT_EQ(one.Text("v"), "a remark\nv: no runtime\nv: a remark\nv: no file");
  for (int i = 0; i < 100; ++i) other.Add({.status = ExitStatus::kModel, .message = "m"});
  other.Add({.status = ExitStatus::kUsage, .message = "the worst comes last"});
  one.Add(other);
  EXPECT_THAT(one.First(), SizeIs(100));
  EXPECT_EQ(one.Status(), ExitStatus::kUsage);
  EXPECT_THAT(one.Text("v"), EndsWith("v: and 7 more"));
  Findings last;
  last.Add({.status = ExitStatus::kRuntime, .message = "what is B's own"});
  one.AddNew(last, "B: ");
  EXPECT_THAT(one.Text("v"), EndsWith("v: B: what is B's own\nv: and 7 more"));
}

// ---- Without a model ----------------------------------------------------------------------------

TEST(ChecksWithoutModel, FindFilesThatAreMissing) {
  const auto list = InputList::OfBytes("a\nname:b\n/c\nd\n", "x");
  const auto all = vorn::kit::CheckFilesAlone("x/l", list, [](const std::string& path) {
    return FileState{.fault = path == "x/d" ? "" : "is not there", .sizeBytes = 0};
  });
  const std::vector<Finding>& found = all.First();
  ASSERT_THAT(found, SizeIs(2));
  EXPECT_EQ(found[0].message, "x/l:1: 'x/a' is not there");
  EXPECT_EQ(found[1].message.substr(0, 25), "x/l:3: 'x//c' is not ther");
}

TEST(ChecksWithoutModel, TellOfAByteOrderMark) {
  const auto list = InputList::OfBytes(
      "\xEF\xBB\xBF"
      "d\na\n",
      "x");
  const auto all = vorn::kit::CheckFilesAlone("x/l", list, [](const std::string& path) {
    return FileState{.fault = path == "x/d" ? "" : "is not there", .sizeBytes = 0};
  });
  const std::vector<Finding>& found = all.First();
  ASSERT_THAT(found, SizeIs(2));
  EXPECT_THAT(found[0].message, HasSubstr("x/l:1: the list begins with a byte order mark"));
  EXPECT_EQ(found[1].message, "x/l:2: 'x/a' is not there");
}

// ---- Dumps --------------------------------------------------------------------------------------

template <typename Element>
uint64_t ValuesByVornRun(const TensorDescription& output, uint64_t batch) {
  const std::vector<std::byte> block(*output.deviceBytes * batch);
  vorn::run::ValueBuffer buffer;
  return vorn::run::RemoveStride<Element>(
             block,
             {.rows = *output.deviceBytes / *output.strideBytes * batch,
              .rowElements = *output.strideBytes / (*output.elementBits / 8),
              .lastDim = static_cast<uint64_t>(output.shape.back())},
             buffer)
      .size();
}

TEST(DumpSizes, HaveAsManyValuesAsVornRunWrites) {
  std::mt19937 random(11);
  for (int round = 0; round < 5000; ++round) {
    const auto type = static_cast<uint32_t>(random() % 12);
    TensorDescription output = Tensor("x", {static_cast<int64_t>(1 + random() % 9)}, type,
                                      1 + random() % 40, 1 + random() % 200);
    const uint64_t batch = 1 + random() % 3;
    uint64_t expected = 0;
    switch (type) {
      case 2:
        expected = ValuesByVornRun<int8_t>(output, batch);
        break;
      case 4:
        expected = ValuesByVornRun<uint8_t>(output, batch);
        break;
      case 1:
      case 6:
      case 7:
        expected = ValuesByVornRun<uint16_t>(output, batch);
        break;
      default:
        expected = ValuesByVornRun<float>(output, batch);
    }
    ASSERT_EQ(DumpValues(output, batch), expected)
        << type << " " << output.shape[0] << " " << *output.strideBytes << " "
        << *output.deviceBytes;
  }
}

TEST(DumpSizes, TakeBetweenTheShortestAndTheLongestText) {
  ModelDescription model;
  model.outputs = {Tensor("a", {1, 10}, 0, 48, 48), Tensor("b", {1, 4}, 2, 16, 16)};
  EXPECT_EQ(SizeOfDumps(model, 2, false).mostBytes, 2U * (10 + 4) * 4);
  EXPECT_EQ(SizeOfDumps(model, 2, true).leastBytes, 2U * (10 + 4) * (4 + 19));
  EXPECT_EQ(SizeOfDumps(model, 2, true).mostBytes, 2U * (10 * (4 + 58) + 4 * (4 + 22)));
}

}  // namespace
