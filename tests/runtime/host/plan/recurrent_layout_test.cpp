#include "host/plan/recurrent_layout.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/common/failure.h"
#include "runtime/host/refusal.h"

namespace vorn::host {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

Port PortOf(size_t index, const std::string& name, const Shape& shape) {
  Port port{};
  port.index = index;
  port.tensor.name = name;
  for (const int64_t dim : shape) port.tensor.shape.push_back({.size = dim, .symbol = ""});
  return port;
}

/// Session inputs: 0 the state, 1 the frames; outputs: 0 the next state, 1 what a caller sees.
Signature StepSignature() {
  Signature signature;
  signature.frames = PortOf(1, "x", {1, 6});
  State state{};
  state.start.index = 0;
  state.start.name = "h";
  state.start.shape = {1, 5};
  state.start.bytes.resize(20);
  state.output = 0;
  signature.states.push_back(state);
  signature.outputs.push_back(PortOf(1, "y", {1, 3}));
  return signature;
}

ModelSettings Steps() {
  ModelSettings settings;
  settings.netType = VORN_NET_RECURRENT;
  settings.sequence = Sequence::kSteps;
  settings.maxFrames = 7;
  return settings;
}

/// Session input 0 and output 0 follow the frames; -1 leaves their count open.
Signature WholeSignature(int64_t time) {
  Signature signature;
  signature.frames = PortOf(0, "x", {1, time, 4});
  signature.outputs.push_back(PortOf(0, "y", {1, time, 2}));
  return signature;
}

ModelSettings Whole(int64_t maxFrames) {
  ModelSettings settings;
  settings.netType = VORN_NET_RECURRENT;
  settings.timeAxis = 1;
  settings.maxFrames = maxFrames;
  return settings;
}

RecurrentLayout LayOut(const Signature& signature, const ModelSettings& settings,
                       const std::vector<Shape>& tried, const std::vector<Shape>& triedShorter) {
  RecurrentLayout layout = LayOutInputs(signature, settings, 16);
  LayOutOutputs(signature, tried, triedShorter, OutputTypes::kPresented, 16, layout);
  return layout;
}

BlockView FlagsIn(std::vector<uint8_t>& flags) {
  return {.address = reinterpret_cast<std::byte*>(flags.data()), .capacity = flags.size()};
}

TEST(RecurrentLayout, ShowsStepsAlongASequence) {
  ModelSettings settings = Steps();
  settings.context = 2;
  const std::vector<Shape> tried = {{1, 5}, {1, 3}};
  const RecurrentLayout layout = LayOut(StepSignature(), settings, tried, tried);
  const ModelDescription& shown = layout.description;
  ASSERT_EQ(shown.inputs.size(), 4u);
  EXPECT_EQ(shown.inputs[0].name, "x");
  EXPECT_EQ(shown.inputs[0].dims, (Shape{7, 4}));
  EXPECT_EQ(shown.inputs[1].name, "flags");
  EXPECT_EQ(shown.inputs[1].dims, (Shape{7}));
  EXPECT_EQ(shown.inputs[2].name, "task_buffer");
  EXPECT_EQ(shown.inputs[3].name, "work_buffer");
  ASSERT_EQ(shown.outputs.size(), 1u);
  EXPECT_EQ(shown.outputs[0].dims, (Shape{7, 3}));
  EXPECT_EQ(layout.mostFrames, 7u);
  EXPECT_EQ(layout.contextBytes, 8u);
}

TEST(RecurrentLayout, GivesEveryTensorAPlaceOfItsOwn) {
  const std::vector<Shape> tried = {{1, 5}, {1, 3}};
  const RecurrentLayout layout = LayOut(StepSignature(), Steps(), tried, tried);
  EXPECT_EQ(layout.frames.port, 1u);
  EXPECT_EQ(layout.frames.bytes, 24u);
  EXPECT_EQ(layout.states[0].in.port, 0u);
  EXPECT_EQ(layout.states[0].out.port, 0u);
  EXPECT_EQ(layout.outputs[0].place.port, 1u);
  const std::vector<uint64_t> offsets = {layout.frames.offset, layout.states[0].in.offset,
                                         layout.states[0].out.offset,
                                         layout.outputs[0].place.offset};
  EXPECT_THAT(offsets, ElementsAre(0, 64, 128, 192));
  EXPECT_EQ(layout.work.bytes(), 256u);
}

TEST(RecurrentLayout, RefusesAStateThatIsNotAsLargeAsItsOutput) {
  const std::vector<Shape> tried = {{1, 4}, {1, 3}};
  EXPECT_THAT(
      ReasonOf(VORN_ERROR_MODEL, [&] { LayOut(StepSignature(), Steps(), tried, tried); }),
      HasSubstr("'states' feeds 'h' of the shape [1, 5] from an output of the shape [1, 4]"));
}

TEST(RecurrentLayout, TakesAContextOfFramesThatAreOneRow) {
  ModelSettings settings = Steps();
  settings.context = 2;
  const auto refusal = [&](const Shape& shape) {
    Signature signature = StepSignature();
    signature.frames = PortOf(1, "x", shape);
    return ReasonOf(VORN_ERROR_MODEL, [&] { LayOutInputs(signature, settings, 16); });
  };
  for (const Shape& shape : {Shape{6}, Shape{1, 6}, Shape{1, 1, 3}}) EXPECT_EQ(refusal(shape), "");
  for (const Shape& shape : {Shape{}, Shape{2}, Shape{1, 2}, Shape{2, 6}, Shape{1, 3, 6}}) {
    EXPECT_EQ(refusal(shape), "'context' of 2 leaves nothing of 'x', which has the shape " +
                                  ShapeText(shape) + "; it has to be one row that is longer");
  }
}

TEST(RecurrentLayout, SaysWhichSettingDoesNotFit) {
  const auto refusal = [](const Signature& signature, const ModelSettings& settings) {
    return ReasonOf(VORN_ERROR_MODEL, [&] { LayOutInputs(signature, settings, 16); });
  };
  ModelSettings settings = Steps();
  settings.maxFrames = 0;
  EXPECT_EQ(refusal(StepSignature(), settings),
            "the model takes one frame a run; say how many a sequence may have with 'maxFrames'");
  EXPECT_EQ(refusal(WholeSignature(-1), Whole(0)),
            "'maxFrames' is not given, but 'x' takes any count of frames; say how many a sequence "
            "may have");
  EXPECT_EQ(refusal(WholeSignature(9), Whole(8)), "'maxFrames' is 8, but 'x' takes 9 frames");
  settings = Whole(9);
  settings.timeAxis = 2;
  EXPECT_EQ(refusal(WholeSignature(9), settings),
            "'timeAxis' is 2, but 'x' has the shape [1, 9, 4]; the dimensions before the frames "
            "have to be 1");
  settings.timeAxis = 3;
  EXPECT_EQ(refusal(WholeSignature(1), settings),
            "'timeAxis' is 3, but 'x' has the shape [1, 1, 4]; the dimensions before the frames "
            "have to be 1");
  Signature flagged = WholeSignature(9);
  flagged.flags = PortOf(1, "f", {9, 2});
  EXPECT_EQ(refusal(flagged, Whole(9)),
            "'flags' names 'f' of the shape [9, 2]; it has to hold one flag for each of 9 frames");
}

TEST(RecurrentLayout, FindsTheDimensionOfTheFlags) {
  Signature signature = WholeSignature(-1);
  signature.flags = PortOf(1, "f", {1, -1});
  const RecurrentLayout open = LayOutInputs(signature, Whole(9), 16);
  EXPECT_EQ(open.flags->shape, (Shape{1, 9}));
  EXPECT_EQ(open.flags->timeAxis, std::optional<size_t>(1));
  signature = WholeSignature(9);
  signature.flags = PortOf(1, "f", {1, 9, 1});
  const RecurrentLayout fixed = LayOutInputs(signature, Whole(0), 16);
  EXPECT_EQ(fixed.flags->shape, (Shape{1, 9, 1}));
  EXPECT_EQ(fixed.flags->timeAxis, std::nullopt);
}

TEST(RecurrentLayout, RefusesAModelThatShowsNothingButItsStates) {
  Signature signature = StepSignature();
  signature.outputs.clear();
  const std::vector<Shape> tried = {{1, 5}};
  EXPECT_EQ(ReasonOf(VORN_ERROR_MODEL, [&] { LayOut(signature, Steps(), tried, tried); }),
            "the model has no output but its states; there is nothing to execute it for");
}

TEST(RecurrentLayout, TriesAnOpenLengthTwice) {
  const RecurrentLayout open = LayOutInputs(WholeSignature(-1), Whole(9), 16);
  EXPECT_EQ(FramesOfShorterTrial(open), 8u);
  EXPECT_THAT(TrialShapes(open, 1, 8), ElementsAre(Shape{1, 8, 4}));
  EXPECT_EQ(FramesOfShorterTrial(LayOutInputs(WholeSignature(-1), Whole(1), 16)), 1u);
  const RecurrentLayout fixed = LayOutInputs(WholeSignature(9), Whole(0), 16);
  EXPECT_EQ(FramesOfShorterTrial(fixed), 9u);
  EXPECT_THAT(TrialShapes(fixed, 1, 9), ElementsAre(Shape{1, 9, 4}));
}

TEST(RecurrentLayout, LeavesInputsThatTheRuntimeProvidesOutOfTrials) {
  const RecurrentLayout layout = LayOutInputs(StepSignature(), Steps(), 16);
  EXPECT_THAT(TrialShapes(layout, 3, 7), ElementsAre(Shape{1, 5}, Shape{1, 6}, Shape{}));
}

TEST(RecurrentLayout, FindsTheDimensionThatGotShorter) {
  const RecurrentLayout layout =
      LayOut(WholeSignature(-1), Whole(9), {Shape{9, 9, 2}}, {Shape{9, 8, 2}});
  EXPECT_TRUE(layout.outputs[0].followsFrames);
  EXPECT_EQ(layout.outputs[0].place.timeAxis, std::optional<size_t>(1));
  EXPECT_EQ(layout.outputs[0].place.ShapeFor(3), (Shape{9, 3, 2}));
  EXPECT_EQ(layout.outputs[0].rows.outer, 9u);
  EXPECT_EQ(layout.description.outputs[0].dims, (Shape{9, 9, 2}));
}

TEST(RecurrentLayout, TakesTheFirstDimensionOfAFixedLength) {
  const RecurrentLayout layout =
      LayOut(WholeSignature(9), Whole(0), {Shape{1, 9, 9}}, {Shape{1, 9, 9}});
  EXPECT_TRUE(layout.outputs[0].followsFrames);
  EXPECT_EQ(layout.outputs[0].place.timeAxis, std::nullopt);
  EXPECT_EQ(layout.description.outputs[0].dims, (Shape{9, 9}));
}

TEST(RecurrentLayout, KnowsOutputsThatDoNotFollowTheFrames) {
  const RecurrentLayout layout = LayOut(WholeSignature(-1), Whole(9), {Shape{1, 2}}, {Shape{1, 2}});
  EXPECT_FALSE(layout.outputs[0].followsFrames);
  EXPECT_EQ(layout.description.outputs[0].dims, (Shape{1, 2}));
}

TEST(RecurrentLayout, RefusesAnOutputThatGrowsInAnotherWay) {
  EXPECT_THAT(ReasonOf(VORN_ERROR_MODEL,
                       [] {
                         LayOut(WholeSignature(-1), Whole(9), {Shape{1, 18}}, {Shape{1, 16}});
                       }),
              HasSubstr("for 9 frames and [1, 16] for one less"));
}

TEST(RunFrom, TakesOneFrameAStep) {
  const RecurrentLayout layout = LayOutInputs(StepSignature(), Steps(), 16);
  std::vector<uint8_t> flags = {1, 1, 1};
  const FrameSpan run = RunFrom(layout, FlagsIn(flags), 1, 3);
  EXPECT_EQ(run.first, 1u);
  EXPECT_EQ(run.count, 1u);
  EXPECT_EQ(RoomOfRun(layout, 1), 1u);
}

TEST(RunFrom, EndsAWholeSequenceAtAFlagOf0) {
  const RecurrentLayout layout = LayOutInputs(WholeSignature(-1), Whole(9), 16);
  std::vector<uint8_t> flags = {1, 1, 0, 1, 0};
  const auto counts = [&](uint64_t frames) {
    std::vector<uint64_t> runs;
    for (uint64_t first = 0; first < frames; first += runs.back()) {
      runs.push_back(RunFrom(layout, FlagsIn(flags), first, frames).count);
    }
    return runs;
  };
  EXPECT_THAT(counts(5), ElementsAre(2, 2, 1));
  EXPECT_THAT(counts(4), ElementsAre(2, 2));
  EXPECT_THAT(counts(2), ElementsAre(2));
  EXPECT_EQ(RoomOfRun(layout, 2), 2u);
  EXPECT_EQ(RoomOfRun(LayOutInputs(WholeSignature(9), Whole(0), 16), 2), 9u);
}

TEST(RunFrom, DoesNotDivideWhereTheModelHasFlagsOfItsOwn) {
  Signature signature = WholeSignature(-1);
  signature.flags = PortOf(1, "continues", {-1});
  const RecurrentLayout layout = LayOutInputs(signature, Whole(3), 16);
  EXPECT_EQ(layout.flagType, vorn_data_type{VORN_FLOAT32});
  std::vector<uint8_t> flags(12);
  EXPECT_EQ(RunFrom(layout, FlagsIn(flags), 0, 3).count, 3u);
}

TEST(BeginsSequence, IsTrueForTheFirstFrameAndForAFlagOf0) {
  const RecurrentLayout layout = LayOutInputs(StepSignature(), Steps(), 16);
  std::vector<uint8_t> flags = {1, 1, 0};
  EXPECT_TRUE(BeginsSequence(layout, FlagsIn(flags), 0));
  EXPECT_FALSE(BeginsSequence(layout, FlagsIn(flags), 1));
  EXPECT_TRUE(BeginsSequence(layout, FlagsIn(flags), 2));
}

}  // namespace
}  // namespace vorn::host
