#include "kit/judge/preparation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/run/run_directory.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

/// What stands in a manifest of one input and of one item.
struct Side {
  std::string input = "x";
  std::string more;  // of the input, behind a comma: R"(, "recipe": {…})"
  std::string shape = "[1, 2, 2, 3]";
  std::string type = "uint8";
  std::string source = "photos/a.jpg";
  std::string hash = "aa";
  std::string made;  // the tensor's hash; another one for each side without
  std::string facts =
      R"(, "decoder": "libjpeg-turbo 2.1", "geometry": {"orientation": 1, "picture": [4, 4],
         "resized": [2, 2], "cut": [0, 0], "placed": [0, 0]})";

  /// The same with these values instead.
  [[nodiscard]] Side Recipe(const std::string& members) const {
    Side side = *this;
    side.more = R"(, "recipe": {"schema": 1, "name": "r", )" + members + "}";
    return side;
  }
  [[nodiscard]] Side With(const std::string& from, const std::string& to) const {
    Side side = *this;
    side.facts.replace(side.facts.find(from), from.size(), to);
    return side;
  }
};

class Preparation : public testing::Test {
 protected:
  std::vector<PreparationDifference> Compare(const Side& actual, const Side& expected) const {
    Write("actual", actual);
    Write("expected", expected);
    return ComparePreparation(Path("actual.run"), Path("expected.run"), {{0, 0}});
  }

  /// "resize.rule: a, b" of each member of the one input.
  std::vector<std::string> Members(const Side& actual, const Side& expected) const {
    const auto differences = Compare(actual, expected);
    std::vector<std::string> texts;
    if (differences.empty()) return texts;
    for (const PreparationMember& member : differences.at(0).members) {
      texts.push_back(member.name + ": " + member.actual + ", " + member.expected);
    }
    return texts;
  }

  std::string Path(const std::string& name) const { return folder_.Path() / name; }

 private:
  void Write(const std::string& name, const Side& side) const {
    support::WriteFile(
        Path(name + ".inputs/manifest.json"),
        R"({"batch": 1, "inputs": [{"name": ")" + side.input +
            R"(", "source": "photos", "type": ")" + side.type + R"(", "shape": )" + side.shape +
            side.more + R"(}], "tensors": [{"input": ")" + side.input +
            R"(", "file": {"path": "tensors/0.bin"}, "items": [{"source": {"path": ")" +
            side.source + R"(", "sizeBytes": 4, "xxh3_128": ")" + side.hash +
            R"("}, "xxh3_128": ")" + (side.made.empty() ? name : side.made) + "\"" + side.facts +
            "}]}]}");
    SampleRecord sample;
    sample.inputs.push_back(
        {1, {}, "tensors/0.bin", {Path(name + ".inputs/tensors/0.bin"), 4, "0"}});
    support::WriteFile(Path(name + ".run/samples.jsonl"), ToLine(sample));
  }

  support::TempDir folder_;
};

const std::string kStretched = R"("colours": "rgb", "orientation": "exif", "depth": "upper-byte",
    "alpha": "drop", "resize": {"rule": "opencv-linear", "fit": "stretch", "size": "model",
    "as": "stored"})";

std::string Stretched(const std::string& from, const std::string& to) {
  std::string text = kStretched;
  return text.replace(text.find(from), from.size(), to);
}

TEST_F(Preparation, IsTheSameByTheSameRecipe) {
  EXPECT_THAT(Compare(Side().Recipe(kStretched), Side().Recipe(kStretched)), IsEmpty());
  EXPECT_THAT(Compare(Side(), Side()), IsEmpty());
}

TEST_F(Preparation, IsNotSuspectForWhatADeviceHasCompiledIn) {
  Side other = Side().Recipe(kStretched +
                             R"(, "values": [{"divide": [255]}], "layout": "NCHW", "version": 7,
                                "quantisation": {"scale": 2, "zeroPoint": 0})");
  other.type = "float32";
  other.shape = "[1, 3, 2, 2]";
  other.input = "image";
  EXPECT_THAT(Compare(Side().Recipe(kStretched), other), IsEmpty());
}

TEST_F(Preparation, NamesWhatGivesOtherPixels) {
  const Side side = Side().Recipe(kStretched);
  EXPECT_THAT(Members(side, Side().Recipe(Stretched("\"rgb\"", "\"bgr\""))),
              ElementsAre("colours: rgb, bgr"));
  EXPECT_THAT(Members(side, Side().Recipe(Stretched("opencv-linear", "pil-bicubic"))),
              ElementsAre("resize.rule: opencv-linear, pil-bicubic"));
  EXPECT_THAT(Members(side, Side().Recipe(Stretched("\"stored\"", "\"float32\""))),
              ElementsAre("resize.as: stored, float32"));
  EXPECT_THAT(Members(side, Side()
                                .Recipe(Stretched("\"exif\"", "\"stored\""))
                                .With("\"orientation\": 1", "\"orientation\": 6")),
              ElementsAre("orientation: exif, stored"));
  EXPECT_THAT(Members(side, Side()
                                .Recipe(kStretched + R"(, "crop": {"size": "model"})")
                                .With("\"cut\": [0, 0]", "\"cut\": [3, 1]")),
              ElementsAre(R"(crop: none, {"size":"model"})"));
  // Models of other sizes, by one recipe.
  EXPECT_THAT(Members(side, side.With("\"resized\": [2, 2]", "\"resized\": [3, 3]")), SizeIs(1));
}

TEST_F(Preparation, IsNotSuspectForWordsThatDidNothing) {
  const Side side = Side().Recipe(kStretched);
  EXPECT_THAT(Members(side, Side().Recipe(Stretched("\"exif\"", "\"stored\""))), IsEmpty());
  EXPECT_THAT(Members(side, Side().Recipe(Stretched("\"size\": \"model\"", "\"size\": [2, 2]"))),
              IsEmpty());
  const auto whole = [](const Side& one) {
    return one.With("\"picture\": [4, 4]", "\"picture\": [2, 2]");
  };
  EXPECT_THAT(Members(whole(side), whole(Side().Recipe(Stretched("opencv-linear", "pil-box")))),
              IsEmpty());
  // JPEG has neither; a decoder of others may have met it.
  const Side shown = Side().Recipe(Stretched("\"drop\"", R"({"over": [255, 255, 255]})"));
  EXPECT_THAT(Members(side, shown), IsEmpty());
  EXPECT_THAT(Members(side.With("libjpeg-turbo", "libpng"), shown.With("libjpeg-turbo", "libpng")),
              ElementsAre(R"(alpha: drop, {"over":[255,255,255]})"));
  // The bytes are the same after all, as of a grey picture.
  Side one = side;
  Side other = Side().Recipe(Stretched("\"rgb\"", "\"bgr\""));
  one.made = other.made = "same";
  EXPECT_THAT(Members(one, other), IsEmpty());
}

TEST_F(Preparation, LooksAtTheFillWhereSomethingIsFilled) {
  const auto boxed = [](const std::string& fill, const std::string& resized) {
    return Side()
        .Recipe(R"("resize": {"rule": "opencv-linear", "fit": "letterbox", "fill": )" + fill + "}")
        .With("\"resized\": [2, 2]", "\"resized\": " + resized);
  };
  EXPECT_THAT(Members(boxed("[114]", "[2, 1]"), boxed("[0, 0, 0]", "[2, 1]")),
              ElementsAre("resize.fill: 114, 0"));
  EXPECT_THAT(Members(boxed("[114]", "[2, 2]"), boxed("[0]", "[2, 2]")), IsEmpty());
  EXPECT_THAT(Members(boxed("[114]", "[2, 1]"), boxed("[114, 114, 114]", "[2, 1]")), IsEmpty());
}

TEST_F(Preparation, NamesOtherPictures) {
  Side other = Side().Recipe(kStretched);
  other.source = "photos/b.jpg";
  other.hash = "bb";
  const auto differences = Compare(Side().Recipe(kStretched), other);
  ASSERT_THAT(differences, SizeIs(1));
  EXPECT_EQ(differences[0].otherSources, 1U);
  const std::string text = PreparationText(differences);
  EXPECT_THAT(text, testing::MatchesRegex("suspect the inputs first: 'x' is of another source in 1 "
                                          "sample: sample 0 of '.*photos/a.jpg', expected "
                                          "'.*photos/b.jpg'\n"));
  // Tensors that were made ready for either side are other files.
  Side actual;
  actual.facts = other.facts = "";
  EXPECT_THAT(Compare(actual, other), IsEmpty());
}

TEST_F(Preparation, NamesOtherNumbersAndFrames) {
  Side actual;
  actual.facts = "";
  Side expected = actual;
  actual.more = R"(, "random": {"distribution": "uniform", "low": 0, "high": 1, "seed": 7})";
  expected.more = R"(, "random": {"distribution": "uniform", "low": 0, "high": 1, "seed": 8})";
  EXPECT_THAT(Members(actual, expected), ElementsAre("random.seed: 7, 8"));
  expected.more = actual.more;
  expected.input = "y";
  EXPECT_THAT(Members(actual, expected), ElementsAre("random.series: x, y"));
  expected.more.insert(expected.more.rfind('}'), R"(, "series": "x")");
  EXPECT_THAT(Members(actual, expected), IsEmpty());
  actual.more = R"(, "signal": {"window": 400, "hop": 160, "scale": true})";
  expected.more = R"(, "signal": {"window": 400, "hop": 200})";
  EXPECT_THAT(Members(actual, expected), ElementsAre("signal.hop: 160, 200"));
}

TEST_F(Preparation, IsNotTalkedAboutWithoutManifests) {
  EXPECT_THAT(ComparePreparation(Path("none"), Path("none"), {{0, 0}}), IsEmpty());
  Compare(Side(), Side());
  support::WriteFile(Path("actual.inputs/manifest.json"), "{");
  EXPECT_THAT(ComparePreparation(Path("actual.run"), Path("expected.run"), {{0, 0}}), IsEmpty());
}

}  // namespace
}  // namespace vorn::kit
