#include "kit/report/detail.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kit/common/file_identity.h"
#include "kit/report/made_run.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

ReportOutput Output(const std::string& name, std::vector<double> rmse, std::vector<uint8_t> wrong) {
  ReportOutput output;
  output.name = name;
  for (size_t i = 0; i < rmse.size(); ++i) output.columns.sample.push_back(10 * i);
  output.columns.rmse = std::move(rmse);
  output.columns.isWrong = std::move(wrong);
  for (const uint8_t one : output.columns.isWrong) {
    if (one != 0) output.verdict = ReportVerdict::kWrong;
  }
  return output;
}

std::vector<std::pair<size_t, uint64_t>> Chosen(const ReportJudgement& judgement, size_t most) {
  std::vector<std::pair<size_t, uint64_t>> chosen;
  for (const DetailChoice& choice : ChooseDetails(judgement, most)) {
    chosen.emplace_back(choice.output, choice.sample);
  }
  return chosen;
}

using Pair = std::pair<size_t, uint64_t>;

TEST(ChooseDetails, TakesWrongOutputsByTurnsAndTheWorstSamplesOfEach) {
  ReportJudgement judgement;
  judgement.outputs = {Output("a", {1, 3, 2, 9}, {1, 1, 1, 0}), Output("b", {5}, {0}),
                       Output("c", {NAN, 7}, {1, 1})};
  EXPECT_THAT(Chosen(judgement, 8),
              ElementsAre(Pair(0, 10), Pair(2, 0), Pair(0, 20), Pair(2, 10), Pair(0, 0)));
  EXPECT_THAT(Chosen(judgement, 2), ElementsAre(Pair(0, 10), Pair(2, 0)));
  EXPECT_THAT(Chosen(judgement, 0), IsEmpty());
}

// Their other elements may be right to the bit.
TEST(ChooseDetails, TakesSamplesWithNanBeforeOthers) {
  ReportJudgement judgement;
  judgement.outputs = {Output("a", {1, 0, 9, 0}, {1, 1, 1, 1})};
  EXPECT_EQ(DetailsRule(judgement),
            "Of each wrong output the worst sample of each kind of fault, then the next worst of "
            "each.");
  judgement.outputs[0].columns.notFinite = {0, 1, 0, 3};
  EXPECT_THAT(Chosen(judgement, 8), ElementsAre(Pair(0, 30), Pair(0, 10), Pair(0, 20), Pair(0, 0)));
}

// Nine of one kind would leave no room for those of another.
TEST(ChooseDetails, TakesKindsOfFaultByTurns) {
  ReportJudgement judgement;
  judgement.outputs = {Output("a", {5, 6, 7, 1, 2}, {1, 1, 1, 1, 1})};
  auto& wrong = judgement.outputs[0].wrong;
  for (const uint64_t sample : {0, 10, 20}) wrong.push_back({sample, {}, {{"stale", "", 1}}});
  for (const uint64_t sample : {30, 40}) wrong.push_back({sample, {}, {}});
  EXPECT_THAT(Chosen(judgement, 5),
              ElementsAre(Pair(0, 20), Pair(0, 40), Pair(0, 10), Pair(0, 30), Pair(0, 0)));
}

TEST(ChooseDetails, BeginsWhereTheDifferenceDoes) {
  ReportJudgement judgement;
  judgement.outputs = {Output("a", {9}, {1}), Output("b", {1, 2}, {1, 1})};
  judgement.inside.emplace();
  judgement.inside->tensors.resize(2);
  judgement.inside->tensors[1].name = "b";
  judgement.inside->begin = 1;
  EXPECT_THAT(Chosen(judgement, 3), ElementsAre(Pair(1, 10), Pair(0, 0), Pair(1, 0)));
}

TEST(ChooseDetails, ShowsTheGreatestDifferencesWhereNothingIsWrong) {
  ReportJudgement judgement;
  judgement.outputs = {Output("a", {0, 1, 2}, {0, 0, 0}), Output("b", {3, 0.5, 0}, {0, 0, 0})};
  EXPECT_THAT(Chosen(judgement, 8), ElementsAre(Pair(1, 0), Pair(0, 20), Pair(0, 10)));
}

TEST(ChooseDetails, TakesTheFaultsOfAVerdictWithoutColumns) {
  ReportJudgement judgement;
  ReportOutput output;
  output.verdict = ReportVerdict::kWrong;
  output.wrong = {{4, {"x"}, {}}, {9, {"y"}, {}}};
  judgement.outputs = {output};
  EXPECT_THAT(Chosen(judgement, 8), ElementsAre(Pair(0, 4), Pair(0, 9)));
}

class DetailTest : public testing::Test {
 protected:
  void SetUp() override {
    reference_.shape = {1, 2, 3, 4};
    reference_.samples.assign(3, std::vector<float>(24, 1));
    run_.shape = reference_.shape;
    run_.samples = reference_.samples;
    run_.samples[1][17] = 3;
  }

  void Judge() {
    reference_.Write();
    run_.Write();
    JudgeRuns(run_.folder, reference_.folder);
  }

  [[nodiscard]] ReportDetail Only(const std::string& run) const {
    const KeptJudgement kept = ReadJudgement(run_.folder.string() + "/verdict.json");
    const Places places(run, {kept.facts.actual});
    const auto details = MakeDetails({run, &kept, &places}, ChooseDetails(kept.facts, 8));
    EXPECT_THAT(details, SizeIs(1));
    return details.at(0);
  }

  support::TempDir folder_;
  MadeRun reference_{folder_.Path() / "reference"};
  MadeRun run_{folder_.Path() / "run"};
};

TEST_F(DetailTest, ShowsBothSides) {
  Judge();
  const ReportDetail detail = Only(run_.folder.string());
  EXPECT_EQ(detail.obstacle, "");
  EXPECT_EQ(detail.sample, 1U);
  EXPECT_EQ(detail.verdict, ReportVerdict::kWrong);
  EXPECT_EQ(detail.elements, 24U);
  EXPECT_EQ(detail.outside, 1U);
  EXPECT_EQ(detail.maxAbs, 2);
  ASSERT_THAT(detail.worst, SizeIs(1));
  EXPECT_EQ(detail.worst[0].place, "[0, 1, 1, 1]");
  ASSERT_THAT(detail.heatmaps, SizeIs(2));
  EXPECT_EQ(detail.heatmaps[0].place, "[0, 1, :, :]");
  EXPECT_EQ(detail.channels, 2U);
  EXPECT_THAT(detail.causes, testing::Not(IsEmpty()));
  // The input is a picture of 4x4, which no manifest tells more of.
  ASSERT_THAT(detail.pictures, SizeIs(1));
  EXPECT_TRUE(detail.pictures[0].isTensor);
  EXPECT_EQ(detail.pictures[0].width, 4U);
  EXPECT_THAT(detail.pictures[0].png, testing::StartsWith("\x89PNG"));
}

TEST_F(DetailTest, ShowsTheFirstClassesOfBothSides) {
  run_ = MadeRun(run_.folder);
  reference_ = MadeRun(reference_.folder);
  run_.samples[3] = {0.7F, 0.05F, 0.05F, 0.2F};
  Judge();
  const ReportDetail detail = Only(run_.folder.string());
  ASSERT_THAT(detail.actualTop, SizeIs(4));
  EXPECT_EQ(detail.actualTop[0].label, 0U);
  EXPECT_EQ(detail.expectedTop[0].label, 3U);
  EXPECT_THAT(detail.heatmaps, IsEmpty());
  const KeptJudgement kept = ReadJudgement(run_.folder.string() + "/verdict.json");
  const ReportOutput& output = kept.facts.outputs.at(0);
  EXPECT_EQ(output.confusionItems, 4U);
  ASSERT_THAT(output.confusion, SizeIs(4));
  bool isConfused = false;
  for (const auto& pair : output.confusion) {
    isConfused = isConfused || (pair.expectedClass == 3 && pair.actualClass == 0);
  }
  EXPECT_TRUE(isConfused);
}

// Of classes that have nothing none is among the first.
TEST_F(DetailTest, NamesNoClassOfManyThatShareAValue) {
  run_ = MadeRun(run_.folder);
  reference_ = MadeRun(reference_.folder);
  run_.samples[3] = {1, 0, 0, 0};
  Judge();
  const ReportDetail detail = Only(run_.folder.string());
  ASSERT_THAT(detail.actualTop, SizeIs(2));
  EXPECT_EQ(detail.actualTop[0].sharing, 1U);
  EXPECT_EQ(detail.actualTop[1].sharing, 3U);
  EXPECT_EQ(detail.actualTop[1].value, 0);
}

TEST_F(DetailTest, SaysWhereADumpIsGone) {
  Judge();
  std::filesystem::remove_all(reference_.folder / "dumps");
  const ReportDetail detail = Only(run_.folder.string());
  EXPECT_THAT(detail.obstacle, HasSubstr("cannot be read"));
  EXPECT_THAT(detail.heatmaps, IsEmpty());
  EXPECT_THAT(detail.pictures, SizeIs(1));
  std::filesystem::remove_all(reference_.folder);
  EXPECT_THAT(Only(run_.folder.string()).obstacle, HasSubstr("is not there"));
}

TEST_F(DetailTest, DoesNotShowWhatWasNotJudged) {
  Judge();
  const auto dump = run_.folder / "dumps/1/prob.0.1.bin";
  support::WriteFile(dump, support::Bytes(std::vector<float>(24, 5)));
  EXPECT_THAT(Only(run_.folder.string()).obstacle, HasSubstr("no longer those that were judged"));
}

// A manifest as vorn prepare leaves it beside the tensors: 8 x 4 pixels, letterboxed into 4 x 4.
class LetterboxTest : public DetailTest {
 protected:
  void WriteManifest(const std::string& picture) {
    const std::string bytes = picture + std::string(32, 'a');
    const std::string path = (folder_.Path() / "wide.pgm").string();
    support::WriteFile(path, bytes);
    std::string tensors;
    for (int i = 0; i < 3; ++i) {
      tensors += std::string(i == 0 ? "" : ",") + R"({"file": {"path": "inputs/)" +
                 std::to_string(i) + R"(.bin"}, "items": [{"source": {"path": ")" + path +
                 R"(", "xxh3_128": ")" + Xxh3Of(bytes) +
                 R"("}, "geometry": {"orientation": 1, "picture": [4, 8], "resized": [2, 4], )"
                 R"("cut": [0, 0], "placed": [1, 0]}}]})";
    }
    support::WriteFile(folder_.Path() / "manifest.json",
                       R"({"schema": 1, "batch": 1, "tensors": [)" + tensors + "]}");
  }

  // As if labels had been given, of which no more is asked than what the output is.
  [[nodiscard]] ReportDetail OnlyOf(const char* metric) const {
    KeptJudgement kept = ReadJudgement(run_.folder.string() + "/verdict.json");
    kept.facts.accuracy = {{"prob", metric, 0, 1, -1}};
    const Places places(run_.folder.string(), {kept.facts.actual});
    const auto details =
        MakeDetails({run_.folder.string(), &kept, &places}, ChooseDetails(kept.facts, 8));
    EXPECT_THAT(details, SizeIs(1));
    return details.at(0);
  }
};

TEST_F(LetterboxTest, DrawsBoxesWhereTheyLieInThePicture) {
  reference_.shape = run_.shape = {1, 1, 6};
  reference_.samples.assign(3,
                            {0, 1, 4, 3, 0.9F, 7});  // all of the picture, in pixels of the input
  run_.samples = reference_.samples;
  run_.samples[1] = {2, 2, 4, 3, 0.8F, 7};
  Judge();
  WriteManifest("P5 8 4 255\n");
  const ReportDetail detail = OnlyOf("mAP");
  ASSERT_THAT(detail.pictures, SizeIs(1));
  EXPECT_FALSE(detail.pictures[0].isTensor);
  ASSERT_THAT(detail.expectedBoxes, SizeIs(1));
  EXPECT_DOUBLE_EQ(detail.expectedBoxes[0].left, 0);
  EXPECT_DOUBLE_EQ(detail.expectedBoxes[0].top, 0);
  EXPECT_DOUBLE_EQ(detail.expectedBoxes[0].right, 1);
  EXPECT_DOUBLE_EQ(detail.expectedBoxes[0].bottom, 1);
  ASSERT_THAT(detail.actualBoxes, SizeIs(1));
  EXPECT_DOUBLE_EQ(detail.actualBoxes[0].left, 0.5);
  EXPECT_DOUBLE_EQ(detail.actualBoxes[0].top, 0.5);
}

TEST_F(LetterboxTest, DrawsMasksWhereTheyLieInThePicture) {
  reference_.shape = run_.shape = {1, 1, 4, 4};
  // The filled rows above and below are of another class, and are no part of the picture.
  const std::vector<float> mask{9, 9, 9, 9, 1, 1, 2, 2, 3, 3, 4, 4, 9, 9, 9, 9};
  reference_.samples.assign(3, mask);
  run_.samples = reference_.samples;
  run_.samples[1][4] = 5;
  Judge();
  WriteManifest("P5 8 4 255\n");
  const ReportDetail detail = OnlyOf("mean IoU");
  ASSERT_TRUE(detail.mask.has_value());
  EXPECT_THAT(detail.mask->expected, ElementsAre(1, 1, 2, 2, 1, 1, 2, 2, 3, 3, 4, 4, 3, 3, 4, 4));
  EXPECT_THAT(detail.mask->actual, ElementsAre(5, 1, 2, 2, 5, 1, 2, 2, 3, 3, 4, 4, 3, 3, 4, 4));
}

// Turned by a recipe that leaves it as it is stored, or changed since: nothing can lie over it.
TEST_F(LetterboxTest, DrawsTheTensorWhereThePictureHasAnotherSize) {
  Judge();
  WriteManifest("P5 4 8 255\n");
  const ReportDetail detail = OnlyOf("mAP");
  ASSERT_THAT(detail.pictures, SizeIs(1));
  EXPECT_TRUE(detail.pictures[0].isTensor);
}

TEST_F(DetailTest, DoesNotDrawAnInputOfAnotherSize) {
  Judge();
  support::WriteFile(folder_.Path() / "inputs/1.bin", "short");
  const ReportDetail detail = Only(run_.folder.string());
  EXPECT_THAT(detail.pictures, IsEmpty());
  EXPECT_THAT(detail.pictureObstacle, HasSubstr("has 5 bytes now"));
}

}  // namespace
}  // namespace vorn::kit
