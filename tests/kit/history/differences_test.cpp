#include "kit/history/differences.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/history/made_run.h"

namespace vorn::kit {
namespace {

using support::MadeEntry;
using testing::ElementsAre;

std::vector<std::string> Texts(const RunEntry& before, const RunEntry& after) {
  std::vector<std::string> texts;
  for (const RunDifference& difference : DifferencesOf(before, after)) {
    texts.push_back(TextOf(difference));
  }
  return texts;
}

TEST(DifferencesOf, OfRunsThatWereMadeAlikeAreNone) {
  EXPECT_THAT(Texts(MadeEntry(1, 1e6), MadeEntry(2, 2e6)), ElementsAre());
}

TEST(DifferencesOf, NamesWhatIsInFiles) {
  RunEntry after = MadeEntry(2, 1e6);
  after.runtimeXxh3 = std::string(32, 'f');
  after.modelXxh3 = std::string(32, 'e');
  after.mapped = "libvorn.so\t99999999aaaa\nlibextra.so\t77\n";
  EXPECT_THAT(Texts(MadeEntry(1, 1e6), after),
              ElementsAre("what is in the runtime libvorn.so: 44444444 -> ffffffff",
                          "the build-id of libvorn.so: 0a1b2c3d -> 99999999",
                          "what is in the model digits.onnx: 11111111 -> eeeeeeee"));
}

TEST(DifferencesOf, KnowsNothingOfWhatASideDoesNotTell) {
  RunEntry after = MadeEntry(2, 1e6);
  after.runtimeXxh3.clear();
  after.mapped.clear();
  EXPECT_THAT(Texts(MadeEntry(1, 1e6), after), ElementsAre());
}

TEST(DifferencesOf, NamesTheMachine) {
  RunEntry before = MadeEntry(1, 1e6);
  RunEntry after = MadeEntry(2, 1e6);
  after.governor = "powersave";
  after.container = "docker";
  after.tool = "0.2.0";
  before.loadAverage = 0.25;
  after.loadAverage = 3.5;
  before.frequencyKhz = 1800000;
  after.frequencyKhz = 1200000;
  before.temperatureMilliC = 40000;
  after.temperatureMilliC = 85000;
  EXPECT_THAT(Texts(before, after),
              ElementsAre("the version of the kit: 0.1.0 -> 0.2.0",
                          "the governor: performance -> powersave", "the container: none -> docker",
                          "the load before the run: 0.25 -> 3.50",
                          "the mean frequency of the cores: 1800 MHz -> 1200 MHz",
                          "the highest temperature: 40 C -> 85 C"));
}

TEST(DifferencesOf, PassesOverWhatMoves) {
  RunEntry before = MadeEntry(1, 1e6);
  RunEntry after = MadeEntry(2, 1e6);
  before.loadAverage = 0.25;
  after.loadAverage = 0.3;
  before.frequencyKhz = 1800000;
  after.frequencyKhz = 1790000;
  before.temperatureMilliC = 40000;
  after.temperatureMilliC = 45000;
  EXPECT_THAT(Texts(before, after), ElementsAre());
}

}  // namespace
}  // namespace vorn::kit
