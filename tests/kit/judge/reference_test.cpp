// `vorn judge --reference` as a program, over runs that vorn launch made with the host runtime.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "support/command.h"
#include "support/files.h"
#include "support/onnx_writer.h"

#if defined(VORN_HAS_HOST) && defined(VORN_HAS_PREPARE)

namespace {

using support::Bytes;
using support::Outcome;
using testing::HasSubstr;
using testing::Not;

class JudgeReference : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return folder_.Path() / name; }

  Outcome Run(const std::vector<std::string>& words) const {
    support::Command command;
    command.program = VORN_COMMAND;
    command.arguments = words;
    command.directory = folder_.Path();
    return RunCommand(command);
  }

  Outcome Judge(const std::string& reference, std::vector<std::string> more = {}) const {
    more.insert(more.begin(), {"judge", "run", "--reference", reference});
    return Run(more);
  }

  void Model(const std::string& name, OnnxType type, const std::vector<OnnxDim>& dims,
             const std::string& op = "Relu") const {
    OnnxWriter model;
    model.Input("x", type, dims).Output("y", kOnnxFloat, dims);
    if (type == kOnnxFloat) {
      model.Node(op, {"x"}, {"y"});
    } else {
      model.Node("Cast", {"x"}, {"y"}, {IntAttribute("to", kOnnxFloat)});
    }
    support::WriteFile(Path(name), model.Image());
  }

  void Launch(const std::string& model, const std::string& list,
              std::vector<std::string> more = {}) const {
    support::WriteFile(Path("empty.json"), "{}");
    more.insert(more.begin(),
                {"launch", "-m", model, "-j", "empty.json", "-i", list, "--run", "run"});
    const Outcome ended = Run(more);
    ASSERT_EQ(ended.status, 0) << ended.Describe();
  }

  // Two samples of two floats, run through a model that takes off what is below zero.
  void LaunchFloats() const {
    Model("device.onnx", kOnnxFloat, {1, 2});
    support::WriteFile(Path("in/a.bin"), Bytes<float>({1, 2}));
    support::WriteFile(Path("in/b.bin"), Bytes<float>({-3, 4}));
    support::WriteFile(Path("in/list.txt"), "a.bin\nb.bin\n");
    Launch("device.onnx", "in/list.txt");
  }

  // Pictures prepared for a device that takes bytes, channels last.
  void LaunchPictures(const std::vector<std::string>& more = {}) const {
    for (int i = 0; i < 3; ++i) {
      std::string picture = "P6 2 2 255\n";
      for (int byte = 0; byte < 12; ++byte) picture += static_cast<char>(20 * i + byte);
      support::WriteFile(Path("photos/" + std::to_string(i) + ".ppm"), picture);
    }
    std::vector<std::string> words{"prepare", "-m",       "device.onnx", "--input", "photos",
                                   "-o",      "prepared", "--recipe",    "bytes"};
    words.insert(words.end(), more.begin(), more.end());
    const Outcome prepared = Run(words);
    ASSERT_EQ(prepared.status, 0) << prepared.Describe();
    Launch("device.onnx", "prepared/list.txt", more);
  }

  void WriteMap() const {
    support::WriteFile(Path("map"), R"({"schema": 1, "outputs": [
        {"actual": {"name": "y", "layout": "NHWC"}, "expected": {"name": "y", "layout": "NCHW"}}]})");
  }

  support::TempDir folder_;
};

TEST_F(JudgeReference, RunsTheRunsOwnFilesWhereTheyServe) {
  LaunchFloats();
  Model("same.onnx", kOnnxFloat, {1, 2});
  Model("other.onnx", kOnnxFloat, {1, 2}, "Neg");
  const Outcome same = Judge("same.onnx");
  EXPECT_EQ(same.status, 0) << same.Describe();
  EXPECT_THAT(same.err, HasSubstr("vorn judge: env -u LD_LIBRARY_PATH vorn launch -m same.onnx -j "
                                  "run/reference/config.json -i run/reference/list.txt"));
  EXPECT_THAT(same.err, Not(HasSubstr("vorn prepare")));
  EXPECT_THAT(same.out, HasSubstr("2 samples, 1 output: all right"));
  EXPECT_THAT(support::ReadFile(Path("run/verdict.json")),
              HasSubstr("\"expected\": \"run/reference/run\""));
  const Outcome other = Judge("other.onnx", {"--quiet"});
  EXPECT_EQ(other.status, 6) << other.Describe();
  EXPECT_EQ(other.err, "");
  EXPECT_EQ(Judge("same.onnx").status, 0);  // and back
}

TEST_F(JudgeReference, RunsAgainOnlyWhatChanged) {
  LaunchFloats();
  ASSERT_EQ(Judge("device.onnx").status, 0);
  const std::string before = support::ReadFile(Path("run/reference/run/samples.jsonl"));
  ASSERT_EQ(Judge("device.onnx").status, 0);
  // Names of dumps hold their time.
  EXPECT_EQ(support::ReadFile(Path("run/reference/run/samples.jsonl")), before);
  support::WriteFile(Path("other.json"), R"({"model": {"round": "float16"}})");
  const Outcome other = Judge("device.onnx", {"--reference-config", "other.json"});
  ASSERT_EQ(other.status, 0) << other.Describe();
  EXPECT_NE(support::ReadFile(Path("run/reference/run/samples.jsonl")), before);
}

TEST_F(JudgeReference, RefusesInputsThatChangedSinceTheRun) {
  LaunchFloats();
  support::WriteFile(Path("in/b.bin"), Bytes<float>({3, 4}));
  const Outcome ended = Judge("device.onnx");
  EXPECT_EQ(ended.status, 3) << ended.Describe();
  EXPECT_THAT(ended.err, HasSubstr("/b.bin' of sample 1 has changed since the run; run it again"));
}

TEST_F(JudgeReference, PreparesTheSourcesForWhatTheReferenceTakes) {
  Model("device.onnx", kOnnxUint8, {1, 2, 2, 3});
  Model("float.onnx", kOnnxFloat, {1, 3, 2, 2});
  LaunchPictures();
  WriteMap();
  const Outcome ended = Judge("float.onnx", {"--reference-recipe", "bytes", "--map", "map"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(ended.out, HasSubstr("3 samples, 1 output: all right"));
  EXPECT_THAT(ended.err, HasSubstr("vorn prepare --model-json run/reference/model.json --job "
                                   "run/reference/job.json -o run/reference/inputs --resume"));
  const Outcome otherwise =
      Judge("float.onnx", {"--reference-recipe", "x=zero-one", "--map", "map"});
  EXPECT_EQ(otherwise.status, 6) << otherwise.Describe();
  // What is done to values may be compiled into the device.
  EXPECT_THAT(otherwise.out, Not(HasSubstr("suspect")));
}

// Pixels of other places or channels are nobody's intention.
TEST_F(JudgeReference, SuspectsRecipesThatGiveOtherPixels) {
  Model("device.onnx", kOnnxUint8, {1, 2, 2, 3});
  Model("float.onnx", kOnnxFloat, {1, 3, 2, 2});
  LaunchPictures();
  WriteMap();
  support::WriteFile(Path("blue.json"), R"({"schema": 1, "name": "blue first", "colours": "bgr",
      "resize": {"rule": "pil-bilinear"}})");
  const Outcome ended = Judge("float.onnx", {"--reference-recipe", "blue.json", "--map", "map"});
  EXPECT_EQ(ended.status, 6) << ended.Describe();
  // The pictures have the size already: no rule of resizing has done anything.
  EXPECT_THAT(ended.out,
              HasSubstr("\nsuspect the inputs first: 'x' was made by the recipe 'bytes', "
                        "and for the expected side by the recipe 'blue first': colours "
                        "rgb, expected bgr\n"));
  EXPECT_THAT(support::ReadFile(Path("run/verdict.json")), HasSubstr(R"("name": "colours")"));
}

TEST_F(JudgeReference, PacksBatchesAsTheRunDid) {
  Model("device.onnx", kOnnxUint8, {"batch", 2, 2, 3});
  Model("float.onnx", kOnnxFloat, {"batch", 3, 2, 2});
  LaunchPictures({"-b", "2"});
  WriteMap();
  const Outcome ended = Judge("float.onnx", {"--reference-recipe", "bytes", "--map", "map"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(ended.out, HasSubstr("2 samples, 1 output: all right"));
}

TEST_F(JudgeReference, RefusesASourceThatChangedSinceTheRun) {
  Model("device.onnx", kOnnxUint8, {1, 2, 2, 3});
  Model("float.onnx", kOnnxFloat, {1, 3, 2, 2});
  LaunchPictures();
  support::WriteFile(Path("photos/1.ppm"), "P6 2 2 255\n" + std::string(12, 'x'));
  const Outcome ended = Judge("float.onnx", {"--reference-recipe", "bytes"});
  EXPECT_EQ(ended.status, 3) << ended.Describe();
  EXPECT_THAT(ended.err, HasSubstr("photos/1.ppm' has changed since the run's tensors were made"));
}

// The reference calls its input otherwise, and takes it as another type.
TEST_F(JudgeReference, MakesRandomNumbersAnew) {
  Model("device.onnx", kOnnxUint8, {1, 4});
  const Outcome prepared =
      Run({"prepare", "-m", "device.onnx", "-o", "prepared", "--count", "3", "--random",
           R"(x={"distribution": "integers", "low": 0, "high": 200, "seed": 5})"});
  ASSERT_EQ(prepared.status, 0) << prepared.Describe();
  Launch("device.onnx", "prepared/list.txt");
  OnnxWriter reference;
  reference.Input("image", kOnnxFloat, {1, 4}).Output("y", kOnnxFloat, {1, 4});
  support::WriteFile(Path("float.onnx"), reference.Node("Relu", {"image"}, {"y"}).Image());
  const Outcome ended = Judge("float.onnx");
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(ended.out, HasSubstr("3 samples, 1 output: all right"));
  const Outcome recipe = Judge("float.onnx", {"--reference-recipe", "bytes"});
  EXPECT_EQ(recipe.status, 2);
  EXPECT_THAT(recipe.err, HasSubstr("'image', and what the run's was made of takes none"));
  // A part of what was made has not the numbers of the first ones.
  std::string list = support::ReadFile(Path("prepared/list.txt"));
  support::WriteFile(Path("prepared/part.txt"), list.substr(list.find('\n') + 1));
  std::filesystem::remove_all(Path("run"));
  Launch("device.onnx", "prepared/part.txt");
  const Outcome part = Judge("float.onnx");
  EXPECT_EQ(part.status, 3);
  EXPECT_THAT(part.err, HasSubstr("'x' was made of random numbers, which are made anew as a whole "
                                  "alone, and the run's list is not all that was prepared"));
}

TEST_F(JudgeReference, CutsSignalsAnewAndTakesTheirFlags) {
  // Frames of two samples, four at most; what the network gives is what it is given.
  const auto network = [&](const std::string& name, OnnxType type) {
    OnnxWriter model;
    model.Input("x", type, {"frames", 2}).Output("y", kOnnxFloat, {"frames", 2});
    model.Node("Cast", {"x"}, {"y"}, {IntAttribute("to", kOnnxFloat)});
    support::WriteFile(Path(name), model.Image());
  };
  network("device.onnx", kOnnxFloat);
  network("double.onnx", kOnnxDouble);
  support::WriteFile(Path("empty.json"), R"({"model": {"netType": "recurrent", "sequence": "whole",
      "maxFrames": 4, "frames": "x"}})");
  support::WriteFile(Path("samples.raw"),
                     Bytes<int16_t>({0, 16384, -32768, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
  support::WriteFile(Path("job.json"), R"({"schema": 1, "inputs": [{"name": "x",
      "source": "samples.raw", "signal": {"window": 2, "hop": 2}, "raw": {"type": "int16"}}]})");
  const Outcome prepared = Run(
      {"prepare", "-m", "device.onnx", "-j", "empty.json", "-o", "prepared", "--job", "job.json"});
  ASSERT_EQ(prepared.status, 0) << prepared.Describe();
  const Outcome launched = Run({"launch", "-m", "device.onnx", "-j", "empty.json", "-i",
                                "prepared/list.txt", "--run", "run"});
  ASSERT_EQ(launched.status, 0) << launched.Describe();
  const Outcome ended = Judge("double.onnx", {"--reference-config", "empty.json"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(ended.out, HasSubstr("1 output: all right"));
  support::WriteFile(Path("samples.raw"),
                     Bytes<int16_t>({1, 16384, -32768, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
  const Outcome changed = Judge("double.onnx", {"--reference-config", "empty.json"});
  EXPECT_EQ(changed.status, 3) << changed.Describe();
  EXPECT_THAT(changed.err, HasSubstr("has changed since the run's tensors were made of it"));
}

TEST_F(JudgeReference, GivesTheReferenceTheRunsThresholds) {
  OnnxWriter model;
  model.Input("t", kOnnxFloat, {1, 4}).Input("x", kOnnxFloat, {1, 4});
  model.Output("y", kOnnxFloat, {1, 4}).Node("Add", {"t", "x"}, {"y"});
  support::WriteFile(Path("device.onnx"), model.Image());
  support::WriteFile(Path("empty.json"), R"({"model": {"netType": "detection", "rpn": "t"}})");
  support::WriteFile(Path("in/a.bin"), Bytes<float>({1, 2, 3, 4}));
  support::WriteFile(Path("in/list.txt"), "a.bin\n");
  support::WriteFile(Path("thresholds"), "0.5 0.25 0 1");
  const Outcome launched = Run({"launch", "-m", "device.onnx", "-j", "empty.json", "-i",
                                "in/list.txt", "--run", "run", "-r", "thresholds"});
  ASSERT_EQ(launched.status, 0) << launched.Describe();
  const Outcome ended = Judge("device.onnx", {"--reference-config", "empty.json"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  std::filesystem::remove(Path("thresholds"));
  EXPECT_THAT(Judge("device.onnx", {"--reference-config", "empty.json"}).err,
              HasSubstr("the thresholds 'thresholds' of the run are not there"));
}

TEST_F(JudgeReference, TakesAnotherRuntimeForTheReference) {
  LaunchFloats();
  const Outcome refused = Judge("device.onnx", {"--reference-runtime", "device.onnx"});
  EXPECT_EQ(refused.status, 2);
  EXPECT_THAT(refused.err, HasSubstr("'device.onnx' is not named libvorn.so"));
  EXPECT_THAT(Judge("device.onnx", {"--reference-runtime", "none/libvorn.so"}).err,
              HasSubstr("--reference-runtime 'none/libvorn.so' cannot be read"));
  std::filesystem::create_directory(Path("other"));
  const auto beside = std::filesystem::path(VORN_HOST_LIBRARY).parent_path();
  for (const char* name : {"libvorn.so", "libonnxruntime.so.1"}) {
    std::filesystem::create_symlink(beside / name, Path("other/" + std::string(name)));
  }
  const Outcome ended = Judge("device.onnx", {"--reference-runtime", "other/libvorn.so"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(ended.err, HasSubstr("env LD_LIBRARY_PATH=" + Path("other") + " vorn launch"));
}

TEST_F(JudgeReference, EndsAsTheStepThatFailed) {
  Model("device.onnx", kOnnxUint8, {1, 2, 2, 3});
  Model("float.onnx", kOnnxFloat, {1, 3, 2, 2});
  LaunchPictures();
  const Outcome noRecipe = Judge("float.onnx");
  EXPECT_EQ(noRecipe.status, 3) << noRecipe.Describe();
  EXPECT_THAT(noRecipe.err, HasSubstr("vorn prepare: "));
  EXPECT_THAT(noRecipe.err, HasSubstr("vorn judge: the reference could not be made: vorn prepare "
                                      "ended with status 3, as it says above\n"));
  support::WriteFile(Path("broken.onnx"), "no model");
  EXPECT_EQ(Judge("broken.onnx").status, 4);
}

TEST_F(JudgeReference, TakesSingleItemsOfAnArray) {
  Model("device.onnx", kOnnxUint8, {1, 2, 2, 3});
  Model("float.onnx", kOnnxFloat, {1, 3, 2, 2});
  const std::string head = "{'descr': '|u1', 'fortran_order': False, 'shape': (3, 2, 2, 3), }\n";
  std::string bytes;
  for (int i = 0; i < 36; ++i) bytes += static_cast<char>(5 * i);
  support::WriteFile(Path("x.npy"), std::string("\x93NUMPY\x01\0", 8) +
                                        static_cast<char>(head.size()) + '\0' + head + bytes);
  const Outcome prepared = Run({"prepare", "-m", "device.onnx", "--input", "x.npy", "-o",
                                "prepared", "--recipe", "bytes", "--most", "2"});
  ASSERT_EQ(prepared.status, 0) << prepared.Describe();
  Launch("device.onnx", "prepared/list.txt");
  WriteMap();
  const Outcome ended = Judge("float.onnx", {"--reference-recipe", "bytes", "--map", "map"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(ended.out, HasSubstr("2 samples, 1 output: all right"));
}

TEST_F(JudgeReference, NeedsAManifestForOtherTensors) {
  LaunchFloats();
  Model("bytes.onnx", kOnnxUint8, {1, 2});
  const Outcome ended = Judge("bytes.onnx");
  EXPECT_EQ(ended.status, 3) << ended.Describe();
  EXPECT_THAT(ended.err, HasSubstr("the reference's input 'x' takes 1x2 of uint8, the run's 'x' "
                                   "1x2 of float32, and no manifest.json of vorn prepare tells"));
}

TEST_F(JudgeReference, IsRefusedWhereItCannotBe) {
  support::WriteFile(Path("run/dumps/0/y.0.17.bin"), Bytes<float>({1, 2}));
  support::WriteFile(Path("run/run.json"), "{}");
  Model("same.onnx", kOnnxFloat, {1, 2});
  EXPECT_THAT(Judge("same.onnx").err, HasSubstr("--reference needs a run of vorn launch"));
  EXPECT_EQ(Judge("same.onnx", {"--expected", "run"}).status, 2);
  EXPECT_EQ(Run({"judge", "run", "--expected", "run", "--reference-recipe", "x"}).status, 2);
  support::WriteFile(Path("map"), R"({"schema": 1, "samples": "inputs"})");
  EXPECT_EQ(Judge("same.onnx", {"--map", "map"}).status, 2);
}

// A run may come from elsewhere, and its links lead to files that nobody named.
TEST_F(JudgeReference, WritesThroughNoLink) {
  LaunchFloats();
  std::filesystem::create_directory(Path("other"));
  std::filesystem::create_symlink("../other", Path("run/reference"));
  EXPECT_EQ(Judge("device.onnx").status, 7);
  EXPECT_TRUE(std::filesystem::is_empty(Path("other")));
}

}  // namespace

#endif
