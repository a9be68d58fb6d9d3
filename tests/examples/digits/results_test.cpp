// Tests examples/digits/results.cpp.

#include "digits/results.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "support/files.h"

namespace digits {
namespace {

namespace fs = std::filesystem;

// A dump that reads as `digit`.
std::string DumpOf(std::size_t digit) {
  Probabilities probabilities{};
  probabilities[digit] = 1;
  return std::string(reinterpret_cast<const char*>(probabilities.data()), sizeof(probabilities));
}

// Two pictures, their labels 3 and 7, and a right dump of each.
class LoadResultsTest : public testing::Test {
 protected:
  LoadResultsTest() {
    support::WriteFile(digits_ / "list.txt", "pictures/000.bin\npictures/001.bin\n");
    support::WriteFile(digits_ / "labels.txt", "3\n7\n");
    support::WriteFile(digits_ / "pictures/000.bin", std::string(63, '\0') + '\x10');
    support::WriteFile(digits_ / "pictures/001.bin", std::string(64, '\x08'));
    support::WriteFile(output_ / "0/probabilities.0.1700000000000001.bin", DumpOf(3));
    support::WriteFile(output_ / "0/probabilities.0.1700000000000001.float", "the same as text");
    support::WriteFile(output_ / "1/probabilities.0.1700000000000002.bin", DumpOf(7));
  }

  void ExpectSuccess() { EXPECT_EQ(LoadResults(digits_.string(), output_.string(), results_), 0); }

  // Expects a refusal in one line that holds each of the parts, and results untouched.
  void ExpectRefusal(const std::vector<std::string>& parts) {
    results_.resize(1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(LoadResults(digits_.string(), output_.string(), results_), 1);
    const std::string line = testing::internal::GetCapturedStderr();
    EXPECT_EQ(line.find('\n'), line.size() - 1) << line;
    for (const std::string& part : parts) EXPECT_NE(line.find(part), std::string::npos) << line;
    EXPECT_EQ(results_.size(), 1u);
  }

  const support::TempDir root_;
  const fs::path digits_ = root_.Path() / "digits";
  const fs::path output_ = root_.Path() / "out";
  std::vector<Result> results_;
};

TEST(FindNewestDump, TakesTheGreatestNumberNotTheLastName) {
  EXPECT_EQ(
      FindNewestDump({"probabilities.0.9.bin", "probabilities.0.10.bin", "probabilities.0.8.bin"}),
      "probabilities.0.10.bin");
}

TEST(FindNewestDump, PassesOverOtherNames) {
  EXPECT_EQ(FindNewestDump({"probabilities.0.5.bin", "probabilities.0.6.float",
                            "probabilities.1.7.bin", "probabilities.0.8x.bin",
                            "probabilities.0.bin", "probabilities.0..bin", "picture.0.9.bin"}),
            "probabilities.0.5.bin");
}

TEST(FindNewestDump, IsEmptyWithoutADump) {
  EXPECT_EQ(FindNewestDump({}), "");
  EXPECT_EQ(FindNewestDump({"probabilities.0.6.float"}), "");
}

TEST_F(LoadResultsTest, PutsPictureLabelAndProbabilitiesTogether) {
  ExpectSuccess();
  ASSERT_EQ(results_.size(), 2u);
  EXPECT_EQ(results_[0].name, "pictures/000.bin");
  EXPECT_EQ(results_[0].label, 3u);
  EXPECT_EQ(results_[0].picture[0], 0);
  EXPECT_EQ(results_[0].picture[63], 16);
  EXPECT_EQ(results_[0].probabilities[3], 1.0f);
  EXPECT_EQ(results_[1].name, "pictures/001.bin");
  EXPECT_EQ(results_[1].label, 7u);
  EXPECT_EQ(results_[1].picture[0], 8);
  EXPECT_EQ(results_[1].probabilities[7], 1.0f);
}

TEST_F(LoadResultsTest, TakesTheNewestOfTwoDumps) {
  support::WriteFile(output_ / "1/probabilities.0.1800000000000000.bin", DumpOf(5));
  ExpectSuccess();
  ASSERT_EQ(results_.size(), 2u);
  EXPECT_EQ(results_[1].probabilities[5], 1.0f);
}

TEST_F(LoadResultsTest, RefusesAMissingDump) {
  fs::remove(output_ / "1/probabilities.0.1700000000000002.bin");
  ExpectRefusal({(output_ / "1").string(), "expected probabilities.0.<time stamp>.bin",
                 "Run vorn-run over the whole list.txt"});
}

TEST_F(LoadResultsTest, RefusesAMissingOutputFolder) {
  fs::remove_all(output_);
  ExpectRefusal({(output_ / "0").string(), "expected probabilities.0.<time stamp>.bin"});
}

TEST_F(LoadResultsTest, RefusesADumpOfTheWrongSize) {
  support::WriteFile(output_ / "1/probabilities.0.1700000000000002.bin", DumpOf(7).substr(4));
  ExpectRefusal({"probabilities.0.1700000000000002.bin holds 36 bytes, expected 40",
                 "Run vorn-run over the whole list.txt"});
}

TEST_F(LoadResultsTest, RefusesADumpThatHoldsNoProbabilities) {
  support::WriteFile(output_ / "0/probabilities.0.1700000000000001.bin",
                     std::string(40, '\xff'));  // NaN
  ExpectRefusal({"nan", "expected probabilities from 0 to 1"});
}

TEST_F(LoadResultsTest, RefusesAFolderWithoutAList) {
  fs::remove(digits_ / "list.txt");
  ExpectRefusal({(digits_ / "list.txt").string(), "Give the folder of the digits first"});
}

TEST_F(LoadResultsTest, RefusesMorePicturesThanLabels) {
  support::WriteFile(digits_ / "labels.txt", "3\n");
  ExpectRefusal({"list.txt names 2 pictures and labels.txt 1 digits"});
}

TEST_F(LoadResultsTest, RefusesALabelThatIsNoDigit) {
  support::WriteFile(digits_ / "labels.txt", "3\n17\n");
  ExpectRefusal({"\"17\"", "expected one digit"});
}

TEST_F(LoadResultsTest, RefusesAPictureOfTheWrongSize) {
  support::WriteFile(digits_ / "pictures/001.bin", "short");
  ExpectRefusal({"001.bin holds 5 bytes, expected 64", "Restore the file"});
}

// Right dumps for the committed labels: the files of the example fit together.
TEST_F(LoadResultsTest, LoadsTheCommittedPictures) {
  std::ifstream labels(fs::path(DIGITS_FOLDER) / "labels.txt");
  std::size_t count = 0;
  for (std::size_t label = 0; labels >> label; ++count) {
    support::WriteFile(output_ / std::to_string(count) / "probabilities.0.1800000000000000.bin",
                       DumpOf(label));
  }
  EXPECT_EQ(count, 200u);
  ASSERT_EQ(LoadResults(DIGITS_FOLDER, output_.string(), results_), 0);
  for (const auto& row : Tally(results_)) {
    std::size_t sum = 0;
    for (const std::size_t cell : row) sum += cell;
    EXPECT_EQ(sum, 20u);
  }
}

}  // namespace
}  // namespace digits
