// Tests examples/digits/report.cpp.

#include "digits/report.h"

#include <gtest/gtest.h>

namespace digits {
namespace {

// A result for `label` that was read as `digit` with the probability `sureness`.
Result MakeResult(std::size_t label, std::size_t digit, float sureness) {
  Result result;
  result.name = "pictures/000.bin";
  result.label = label;
  result.probabilities.fill((1 - sureness) / 9);
  result.probabilities[digit] = sureness;
  return result;
}

std::string LastLine(const std::string& text) {
  return text.substr(text.rfind('\n', text.size() - 2) + 1);
}

std::size_t CountOf(const std::string& part, const std::string& text) {
  std::size_t count = 0;
  for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

TEST(ReadDigit, TakesTheMostProbable) {
  EXPECT_EQ(ReadDigit({0, 0, 0.1f, 0, 0, 0, 0, 0, 0.2f, 0.7f}), 9u);
  EXPECT_EQ(ReadDigit({0.4f, 0.3f, 0.3f, 0, 0, 0, 0, 0, 0, 0}), 0u);
}

TEST(ReadDigit, TakesTheLowestOfEqualOnes) {
  EXPECT_EQ(ReadDigit({0, 0, 0.5f, 0, 0, 0.5f, 0, 0, 0, 0}), 2u);
}

TEST(Tally, CountsByLabelAndByDigitRead) {
  const Confusion confusion =
      Tally({MakeResult(8, 1, 0.6f), MakeResult(8, 8, 0.9f), MakeResult(8, 1, 0.7f)});
  EXPECT_EQ(confusion[8][1], 2u);
  EXPECT_EQ(confusion[8][8], 1u);
  EXPECT_EQ(confusion[1][8], 0u);
}

TEST(FormatConfusion, ShowsZerosAsDots) {
  Confusion confusion{};
  for (std::size_t digit = 0; digit < kDigits; ++digit) confusion[digit][digit] = 20;
  confusion[8] = {0, 3, 0, 0, 0, 0, 0, 0, 117, 0};
  EXPECT_EQ(FormatConfusion(confusion),
            "read as    0    1    2    3    4    5    6    7    8    9\n"
            "label 0   20    .    .    .    .    .    .    .    .    .\n"
            "label 1    .   20    .    .    .    .    .    .    .    .\n"
            "label 2    .    .   20    .    .    .    .    .    .    .\n"
            "label 3    .    .    .   20    .    .    .    .    .    .\n"
            "label 4    .    .    .    .   20    .    .    .    .    .\n"
            "label 5    .    .    .    .    .   20    .    .    .    .\n"
            "label 6    .    .    .    .    .    .   20    .    .    .\n"
            "label 7    .    .    .    .    .    .    .   20    .    .\n"
            "label 8    .    3    .    .    .    .    .    .  117    .\n"
            "label 9    .    .    .    .    .    .    .    .    .   20\n");
}

TEST(DrawPicture, DrawsEachValueTwoCharactersWide) {
  Picture picture{};
  picture[0] = 16;
  picture[1] = 12;
  picture[2] = 8;
  picture[3] = 4;
  picture[63] = 16;
  const auto rows = DrawPicture(picture);
  EXPECT_EQ(rows[0], "██▓▓▒▒░░        ");
  EXPECT_EQ(rows[1], "                ");
  EXPECT_EQ(rows[7], "              ██");
}

TEST(DrawPicture, DrawsMoreThanFullInkAsFullInk) {
  Picture picture{};
  picture[0] = 255;
  EXPECT_EQ(DrawPicture(picture)[0], "██              ");
}

TEST(Caption, NamesLabelDigitAndProbability) {
  EXPECT_EQ(Caption(MakeResult(8, 1, 0.62f)), "label 8, read as 1 (62 %)");
  EXPECT_EQ(Caption(MakeResult(3, 3, 0.996f)), "label 3, read as 3 (100 %)");
}

TEST(DrawResults, PutsPicturesSideBySide) {
  Result left = MakeResult(8, 1, 0.62f);
  left.picture[0] = 16;
  left.picture[63] = 8;
  Result right = MakeResult(9, 5, 0.5f);
  right.name = "pictures/001.bin";
  right.picture[0] = 4;
  EXPECT_EQ(DrawResults({&left, &right}),
            "pictures/000.bin           pictures/001.bin\n"
            "label 8, read as 1 (62 %)  label 9, read as 5 (50 %)\n"
            "██                         ░░\n"
            "\n\n\n\n\n\n"
            "              ▒▒\n"
            "\n");
}

TEST(DrawResults, BeginsANewRowAfterThree) {
  const Result result = MakeResult(8, 1, 0.62f);
  const std::string text = DrawResults({&result, &result, &result, &result});
  const std::string caption = "label 8, read as 1 (62 %)";
  EXPECT_NE(text.find(caption + "  " + caption + "  " + caption + "\n"), std::string::npos);
  EXPECT_NE(text.find("\n" + caption + "\n"), std::string::npos);
}

TEST(FormatReport, EndsWithTheRate) {
  std::vector<Result> results(197, MakeResult(4, 4, 0.9f));
  results.resize(200, MakeResult(4, 9, 0.5f));
  EXPECT_EQ(LastLine(FormatReport(results)), "recognised 197 of 200 pictures (98.5 %)\n");
}

TEST(FormatReport, DrawsOnlyTheMisread) {
  const std::string text = FormatReport({MakeResult(4, 4, 0.4f), MakeResult(8, 1, 0.62f)});
  EXPECT_NE(text.find("Misread:\n"), std::string::npos);
  EXPECT_EQ(CountOf("label 8, read as 1 (62 %)", text), 1u);
  EXPECT_EQ(CountOf("label 4, read as 4", text), 0u);
}

TEST(FormatReport, DrawsSixOfManyMisreadAndSaysSo) {
  const std::string text = FormatReport(std::vector<Result>(30, MakeResult(8, 1, 0.62f)));
  EXPECT_NE(text.find("Misread, the first 6 of 30:\n"), std::string::npos);
  EXPECT_EQ(CountOf("label 8, read as 1 (62 %)", text), 6u);
  EXPECT_EQ(LastLine(text), "recognised 0 of 30 pictures (0.0 %)\n");
}

TEST(FormatReport, DrawsTheLeastSureWhenNoneIsMisread) {
  const std::string text = FormatReport({MakeResult(1, 1, 0.9f), MakeResult(2, 2, 0.5f),
                                         MakeResult(3, 3, 0.99f), MakeResult(4, 4, 0.7f)});
  EXPECT_NE(text.find("label 2, read as 2 (50 %)  label 4, read as 4 (70 %)  "
                      "label 1, read as 1 (90 %)\n"),
            std::string::npos);
  EXPECT_EQ(CountOf("label 3, read as 3", text), 0u);
  EXPECT_EQ(LastLine(text), "recognised 4 of 4 pictures (100.0 %)\n");
}

}  // namespace
}  // namespace digits
