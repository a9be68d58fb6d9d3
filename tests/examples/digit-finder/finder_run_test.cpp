// The digit finder on the host runtime: a model that takes its thresholds from -r.
#include "examples/digit-finder/finder_run.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "examples/digit-finder/plain_suppression.h"
#include "support/files.h"

namespace {

using finder::Find;
using finder::FinderRun;
using finder::Finding;
using finder::kScenes;
using finder::Thresholds;
using finder::ThresholdsByClass;
using Findings = std::vector<std::vector<Finding>>;  // scene by scene

constexpr const char* kByClass = "finder_by_class.onnx";

size_t CountOf(const Findings& findings) {
  size_t count = 0;
  for (const auto& ofScene : findings) count += ofScene.size();
  return count;
}

/// How many findings of a scene mean a digit: its class, half of its place, and none twice.
size_t CountRight(std::vector<Finding> findings, std::vector<Finding> truth) {
  std::sort(findings.begin(), findings.end(),
            [](const Finding& a, const Finding& b) { return a.score > b.score; });
  size_t right = 0;
  for (const Finding& finding : findings) {
    const auto meant = std::find_if(truth.begin(), truth.end(), [&](const Finding& digit) {
      return digit.digit == finding.digit && Overlap(digit.box, finding.box) >= 0.5;
    });
    if (meant == truth.end()) continue;
    truth.erase(meant);
    ++right;
  }
  return right;
}

size_t CountRight(const Findings& findings) {
  size_t right = 0;
  for (size_t i = 0; i < findings.size(); ++i) right += CountRight(findings[i], finder::Truth(i));
  return right;
}

/// Those of `findings` that `picks` picks.
template <typename Pick>
Findings Only(Findings findings, const Pick& picks) {
  for (auto& ofScene : findings) {
    std::erase_if(ofScene, [&](const Finding& finding) { return !picks(finding); });
  }
  return findings;
}

TEST(DigitFinder, FindsTheDigitsThatAreThere) {
  const Findings findings = Find({.thresholds = "even.txt"});
  ASSERT_EQ(findings.size(), kScenes);
  size_t there = 0;
  for (size_t i = 0; i < kScenes; ++i) there += finder::Truth(i).size();
  ASSERT_EQ(there, 192U);
  const size_t right = CountRight(findings);
  EXPECT_GE(right, there * 95 / 100);
  EXPECT_GE(right, CountOf(findings) * 95 / 100);
}

TEST(DigitFinder, FindsFewerTheSurerItHasToBe) {
  const Findings eager = Find({.thresholds = "eager.txt"});
  const Findings even = Find({.thresholds = "even.txt"});
  const Findings strict = Find({.thresholds = "strict.txt"});
  EXPECT_LT(CountOf(even), CountOf(eager));
  EXPECT_LT(CountOf(strict), CountOf(even));
  EXPECT_EQ(even, Only(eager, [](const Finding& finding) { return finding.score > 0.5F; }));
  EXPECT_EQ(strict, Only(eager, [](const Finding& finding) { return finding.score > 0.95F; }));
  // Surer is more often right, and finds less of what is there.
  EXPECT_EQ(CountRight(strict), CountOf(strict));
  EXPECT_LT(CountRight(strict), CountRight(eager));
}

TEST(DigitFinder, FindsNothingBeyondAnyScore) {
  EXPECT_EQ(Find({.thresholds = "1 0.3 0.1 20"}), Findings(kScenes));
}

TEST(DigitFinder, TellsInkFromPaper) {
  constexpr float kDark = 0.25F;
  const Findings all = Find({.thresholds = "eager.txt"});
  const Findings dark = Find({.thresholds = "0.05 0.3 0.25 20"});
  EXPECT_LT(CountOf(dark), CountOf(all));
  for (size_t i = 0; i < kScenes; ++i) {
    for (const Finding& finding : dark[i]) {
      EXPECT_GE(finder::InkIn(finding.box, finder::Scene(i)), kDark);
    }
  }
}

TEST(DigitFinder, KeepsTheSurestOfAClass) {
  const Findings all = Find({.thresholds = "eager.txt"});
  const Findings one = Find({.thresholds = "0.05 0.3 0.1 1"});
  // They come class by class, the surest first.
  Findings first = all;
  for (auto& ofScene : first) {
    const auto isSameClass = [](const Finding& a, const Finding& b) { return a.digit == b.digit; };
    ofScene.erase(std::unique(ofScene.begin(), ofScene.end(), isSameClass), ofScene.end());
  }
  EXPECT_LT(CountOf(one), CountOf(all));
  EXPECT_EQ(one, first);
}

TEST(DigitFinder, FindsTheSameWithEqualColumnsAsWithOneRow) {
  EXPECT_EQ(Find({.model = kByClass, .thresholds = "by_class_even.txt"}),
            Find({.thresholds = "even.txt"}));
}

TEST(DigitFinder, ThresholdsOfAClassActOnThatClassOnly) {
  const auto isThree = [](const Finding& finding) { return finding.digit == 3; };
  const auto isOther = [](const Finding& finding) { return finding.digit != 3; };
  const Findings eager = Find({.thresholds = "eager.txt"});
  const Findings sure = Find({.model = kByClass, .thresholds = "by_class_sure_threes.txt"});
  EXPECT_EQ(Only(sure, isOther), Only(eager, isOther));
  EXPECT_EQ(Only(sure, isThree), Only(Find({.thresholds = "strict.txt"}), isThree));
  EXPECT_LT(CountOf(sure), CountOf(eager));
}

/// Everything that scores at all, before any of it is suppressed.
Findings Candidates() {
  return Find({.thresholds = "0.01 1 0 256",
               .config = R"({"model": {"netType": "detection", "rpn": "thresholds",
                                       "outputDims": {"findings": [2560, 6]}}})"});
}

TEST(DigitFinder, SuppressesAsPlainLoopsDo) {
  const Findings candidates = Candidates();
  constexpr unsigned kSeed = 14;
  SCOPED_TRACE("seed " + std::to_string(kSeed));
  std::minstd_rand random(kSeed);
  const auto oneOf = [&random](const std::vector<float>& values) {
    return values[random() % values.size()];
  };
  for (int round = 0; round < 5; ++round) {
    ThresholdsByClass thresholds;
    for (Thresholds& ofClass : thresholds) {
      // No two squares of 8 pixels overlap by exactly one of these.
      ofClass = {.score = oneOf({0.02F, 0.1F, 0.5F, 0.9F}),
                 .overlap = oneOf({0.1F, 0.3F, 0.5F, 0.7F}),
                 .ink = oneOf({0, 0.2F, 0.3F}),
                 .most = oneOf({0, 1, 2, 6})};
    }
    const Findings findings = Find({.model = kByClass, .thresholds = TextOf(thresholds)});
    for (size_t i = 0; i < kScenes; ++i) {
      EXPECT_EQ(findings[i], finder::Suppress(candidates[i], finder::Scene(i), thresholds)) << i;
    }
  }
}

TEST(DigitFinder, ThresholdsServeEveryItemOfABatch) {
  const support::TempDir folder;
  support::WriteFile(folder.Path() / "three.bin",
                     finder::Scene(2) + finder::Scene(5) + finder::Scene(3));
  support::WriteFile(folder.Path() / "list.txt", "three.bin\n");
  const Findings batch =
      Find({.thresholds = "eager.txt", .list = folder.Path() / "list.txt", .batch = "3"});
  const Findings single = Find({.thresholds = "eager.txt"});
  EXPECT_EQ(batch, (Findings{single[2], single[5], single[3]}));
}

TEST(DigitFinder, RefusesThresholdsOfTheOtherModel) {
  const auto refusal = [](const FinderRun& run) {
    const support::TempDir folder;
    const support::Outcome outcome = support::RunCommand(CommandOf(run, folder.Path()));
    EXPECT_EQ(outcome.status, 1) << outcome.Describe();
    return outcome.out;
  };
  EXPECT_THAT(refusal({.thresholds = "by_class_even.txt"}),
              testing::HasSubstr("detPara.size 10 should be 4"));
  EXPECT_THAT(refusal({.model = kByClass, .thresholds = "even.txt"}),
              testing::HasSubstr("detPara.size 4 should be 40"));
  // A line break behind the last number repeats it.
  EXPECT_THAT(refusal({.thresholds = "0.5 0.3 0.1 20\n"}),
              testing::HasSubstr("detPara.size 1 should be 4"));
}

}  // namespace
