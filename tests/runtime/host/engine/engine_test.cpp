// The real execution library behind the narrow door.
#include "host/engine/engine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <numeric>

#include "host/memory/block_store.h"
#include "runtime/host/few_threads.h"
#include "runtime/host/refusal.h"
#include "support/onnx_writer.h"

namespace vorn::host {
namespace {

using testing::HasSubstr;
using testing::Not;

class EngineTest : public testing::Test {
 protected:
  std::unique_ptr<Session> Open(const std::string& bytes) {
    image = bytes;
    return engine->Open(std::as_bytes(std::span(image)), config);
  }

  std::string Refusal(const std::string& bytes) {
    return ReasonOf(VORN_ERROR_MODEL, [&] { Open(bytes); });
  }

  std::unique_ptr<Engine> engine = CreateEngine();
  Config config;
  std::string image;
};

TEST_F(EngineTest, DeclaresTensorsAsTheModelDoes) {
  const auto session = Open(OnnxWriter()
                                .Input("a:0", kOnnxFloat, {"n", 3})
                                .Input("gpu_0/b", kOnnxFloat, {"n", ""})
                                .Output("y", kOnnxFloat, {"n", 3})
                                .Node("Add", {"a:0", "gpu_0/b"}, {"y"})
                                .Image());
  ASSERT_EQ(session->inputs().size(), 2u);
  EXPECT_EQ(session->inputs()[0].name, "a:0");
  EXPECT_EQ(session->inputs()[0].type, VORN_FLOAT32);
  EXPECT_EQ(session->inputs()[0].shape[0].size, DeclaredDim::kOpen);
  EXPECT_EQ(session->inputs()[0].shape[0].symbol, "n");
  EXPECT_EQ(session->inputs()[0].shape[1].size, 3);
  EXPECT_EQ(session->inputs()[1].name, "gpu_0/b");
  EXPECT_EQ(session->inputs()[1].shape[1].size, DeclaredDim::kOpen);
  EXPECT_EQ(session->inputs()[1].shape[1].symbol, "");
  ASSERT_EQ(session->outputs().size(), 1u);
}

TEST_F(EngineTest, LeavesConstantsOutOfTheInputs) {
  const auto session = Open(OnnxWriter()
                                .Input("x", kOnnxFloat, {2})
                                .Input("w", kOnnxFloat, {2})
                                .Constant<float>("w", kOnnxFloat, {2}, {1, 2})
                                .Output("y", kOnnxFloat, {2})
                                .Node("Add", {"x", "w"}, {"y"})
                                .Image());
  ASSERT_EQ(session->inputs().size(), 1u);
  EXPECT_EQ(session->inputs()[0].name, "x");
}

TEST_F(EngineTest, RunsOverBoundMemory) {
  const auto session = Open(OnnxWriter()
                                .Input("x", kOnnxFloat, {"n", 2})
                                .Constant<float>("w", kOnnxFloat, {2}, {10, 20})
                                .Output("y", kOnnxFloat, {"n", 2})
                                .Node("Add", {"x", "w"}, {"y"})
                                .Image());
  std::vector<float> x = {1, 2, 3, 4};
  std::vector<float> y(4);
  session->BindInput(0, x.data(), {2, 2});
  session->BindOutput(0, y.data(), {2, 2});
  session->Run();
  EXPECT_EQ(y, (std::vector<float>{11, 22, 13, 24}));
  x[0] = 5;
  session->Run();
  EXPECT_EQ(y[0], 15);
  std::vector<float> other(2);
  session->BindInput(0, x.data(), {1, 2});
  session->BindOutput(0, other.data(), {1, 2});
  session->Run();
  EXPECT_EQ(other, (std::vector<float>{15, 22}));
}

/// Graphs whose output is made without an operator that writes it: each has to reach the bound
/// memory all the same.
TEST_F(EngineTest, WritesBoundMemoryWhereNothingIsComputed) {
  const auto check = [&](const char* what, const OnnxWriter& model,
                         const std::vector<float>& expected) {
    const auto session = Open(model.Image());
    std::vector<float> x = {1, 2};
    std::vector<float> y(2, -1);
    if (!session->inputs().empty()) session->BindInput(0, x.data(), {2});
    session->BindOutput(0, y.data(), {2});
    session->Run();
    EXPECT_EQ(y, expected) << what;
    // Again, with other memory, and again with the same.
    x = {1, 2};
    std::vector<float> other(2, -1);
    session->BindOutput(0, other.data(), {2});
    session->Run();
    EXPECT_EQ(other, expected) << what;
    other = {-1, -1};
    session->Run();
    EXPECT_EQ(other, expected) << what;
  };
  check("Identity",
        OnnxWriter()
            .Input("x", kOnnxFloat, {2})
            .Output("y", kOnnxFloat, {2})
            .Node("Identity", {"x"}, {"y"}),
        {1, 2});
  check("input is output", OnnxWriter().Input("x", kOnnxFloat, {2}).Output("x", kOnnxFloat, {2}),
        {1, 2});
  check("constant is output",
        OnnxWriter()
            .Input("x", kOnnxFloat, {2})
            .Constant<float>("w", kOnnxFloat, {2}, {7, 8})
            .Output("w", kOnnxFloat, {2}),
        {7, 8});
  check("folded constant",
        OnnxWriter()
            .Input("x", kOnnxFloat, {2})
            .Constant<float>("w", kOnnxFloat, {2}, {7, 8})
            .Output("y", kOnnxFloat, {2})
            .Node("Add", {"w", "w"}, {"y"}),
        {14, 16});
  check("reshape",
        OnnxWriter()
            .Input("x", kOnnxFloat, {2})
            .Constant<int64_t>("s", kOnnxInt64, {1}, {2})
            .Output("y", kOnnxFloat, {2})
            .Node("Reshape", {"x", "s"}, {"y"}),
        {1, 2});
  OnnxWriter branch;
  branch.Node("Identity", {"x"}, {"b"}).Output("b", kOnnxFloat, {2});
  check("branch",
        OnnxWriter()
            .Input("x", kOnnxFloat, {2})
            .Output("y", kOnnxFloat, {2})
            .Node("ReduceSum", {"x"}, {"sum"}, {IntAttribute("keepdims", 0)})
            .Node("Cast", {"sum"}, {"c"}, {IntAttribute("to", kOnnxBool)})
            .Node("If", {"c"}, {"y"},
                  {GraphAttribute("then_branch", branch.Graph()),
                   GraphAttribute("else_branch", branch.Graph())}),
        {1, 2});
}

/// Whether an output is written where it is bound must not have been decided by an earlier run.
TEST_F(EngineTest, WritesBoundMemoryWhicheverWayTheDataGo) {
  const auto check = [&](const char* what, const OnnxWriter& model,
                         const std::vector<float>& otherwise) {
    const auto session = Open(model.Image());
    std::vector<float> x = {3, -4};
    std::vector<float> y(2);
    int64_t times = 0;
    session->BindInput(0, x.data(), {2});
    session->BindInput(1, &times, {});
    session->BindOutput(0, y.data(), {2});
    for (const int64_t now : {1, 0, 1, 0}) {
      times = now;
      y = {-99, -99};
      session->Run();
      EXPECT_EQ(y, now == 1 ? (std::vector<float>{-3, 4}) : otherwise) << what;
    }
  };
  OnnxWriter computed, passed, constant, body;
  computed.Node("Neg", {"x"}, {"a"}).Output("a", kOnnxFloat, {2});
  passed.Node("Identity", {"x"}, {"b"}).Output("b", kOnnxFloat, {2});
  constant.Constant<float>("c", kOnnxFloat, {2}, {7, 8}).Output("c", kOnnxFloat, {2});
  body.Input("i", kOnnxInt64, {}).Input("go", kOnnxBool, {}).Input("v", kOnnxFloat, {2});
  body.Output("on", kOnnxBool, {}).Output("w", kOnnxFloat, {2});
  body.Node("Identity", {"go"}, {"on"}).Node("Neg", {"v"}, {"w"});
  OnnxWriter model;
  model.Input("x", kOnnxFloat, {2}).Input("times", kOnnxInt64, {}).Output("y", kOnnxFloat, {2});
  const auto branch = [&](const OnnxWriter& other) {
    OnnxWriter whole = model;
    whole.Node("Cast", {"times"}, {"if"}, {IntAttribute("to", kOnnxBool)});
    return whole.Node("If", {"if"}, {"y"},
                      {GraphAttribute("then_branch", computed.Graph()),
                       GraphAttribute("else_branch", other.Graph())});
  };
  check("input through a branch", branch(passed), {3, -4});
  check("constant through a branch", branch(constant), {7, 8});
  OnnxWriter loop = model;
  loop.Node("Loop", {"times", "", "x"}, {"y"}, {GraphAttribute("body", body.Graph())});
  check("input through a loop without a turn", loop, {3, -4});
}

TEST_F(EngineTest, TellsOutputsApartInWhateverOrderTheyAreBound) {
  const auto session = Open(OnnxWriter()
                                .Input("x", kOnnxFloat, {2})
                                .Output("y", kOnnxFloat, {2})
                                .Output("x", kOnnxFloat, {2})
                                .Node("Relu", {"x"}, {"y"})
                                .Image());
  std::vector<float> x = {-1, 2};
  std::vector<float> y(2), same(2);
  session->BindInput(0, x.data(), {2});
  session->BindOutput(1, same.data(), {2});
  session->BindOutput(0, y.data(), {2});
  session->Run();
  EXPECT_EQ(y, (std::vector<float>{0, 2}));
  EXPECT_EQ(same, x);
}

TEST_F(EngineTest, RefusesAnOutputOfAnotherShapeThanBound) {
  const auto session = Open(OnnxWriter()
                                .Input("x", kOnnxFloat, {4})
                                .Output("y", kOnnxInt64, {1, "count"})
                                .Node("NonZero", {"x"}, {"y"})
                                .Image());
  std::vector<float> x = {1, 0, 2, 3};
  std::vector<int64_t> y(2, -1);
  session->BindInput(0, x.data(), {4});
  session->BindOutput(0, y.data(), {1, 2});
  // Three positions into two places.
  EXPECT_EQ(StatusOf([&] { session->Run(); }), VORN_ERROR_EXECUTION);
}

TEST_F(EngineTest, TellsTheShapeOfAnOutputThatLiesElsewhere) {
  // An input that is an output as well is copied from where it lies.
  const auto session = Open(OnnxWriter()
                                .Input("x", kOnnxFloat, {"n"})
                                .Output("x", kOnnxFloat, {"n"})
                                .Output("y", kOnnxFloat, {"n"})
                                .Node("Relu", {"x"}, {"y"})
                                .Image());
  std::vector<float> x = {1, 2, 3};
  std::vector<float> same(2), y(3);
  session->BindInput(0, x.data(), {3});
  session->BindOutput(0, same.data(), {2});
  session->BindOutput(1, y.data(), {3});
  EXPECT_EQ(ReasonOf(VORN_ERROR_EXECUTION, [&] { session->Run(); }),
            "output 'x' has the shape [3] and not [2], as described");
}

TEST_F(EngineTest, TriesWithoutTouchingBindings) {
  const auto session = Open(OnnxWriter()
                                .Input("x", kOnnxFloat, {"n", 3})
                                .ShapelessOutput("y", kOnnxFloat)
                                .Node("Transpose", {"x"}, {"y"})
                                .Image());
  const std::vector<Shape> inputs = {{5, 3}};
  EXPECT_EQ(session->Try(inputs), (std::vector<Shape>{{3, 5}}));
}

TEST_F(EngineTest, TellsWhichInputsSayNothingOfTheirShape) {
  const auto session = Open(OnnxWriter()
                                .ShapelessInput("x", kOnnxFloat)
                                .Input("scalar", kOnnxFloat, {})
                                .ShapelessOutput("y", kOnnxFloat)
                                .Node("Add", {"x", "scalar"}, {"y"})
                                .Image());
  EXPECT_FALSE(session->inputs()[0].isShapeKnown);
  EXPECT_TRUE(session->inputs()[1].isShapeKnown);
}

TEST_F(EngineTest, TriesWithConstantsAsTheyAre) {
  const auto session = Open(OnnxWriter()
                                .Input("x", kOnnxFloat, {2})
                                .Input("shape", kOnnxInt64, {2})
                                .ShapelessOutput("y", kOnnxFloat)
                                .Node("Expand", {"x", "shape"}, {"y"})
                                .Image());
  std::vector<int64_t> shape = {3, 2};
  session->BindConstant(1, shape.data(), {2});
  EXPECT_EQ(session->Try(std::vector<Shape>{{2}, {}}), (std::vector<Shape>{{3, 2}}));
}

TEST_F(EngineTest, KeepsResultsOfAnyShape) {
  const auto session = Open(OnnxWriter()
                                .Input("x", kOnnxFloat, {3})
                                .Output("at", kOnnxInt64, {1, "count"})
                                .Output("y", kOnnxFloat, {3})
                                .Node("NonZero", {"x"}, {"at"})
                                .Node("Relu", {"x"}, {"y"})
                                .Image());
  std::vector<float> x = {0, 5, 6};
  std::vector<float> y(3);
  session->BindInput(0, x.data(), {3});
  session->BindOutput(1, y.data(), {3});
  session->BindOutputOfAnyShape(0);
  const auto positions = [&] {
    session->Run();
    const TensorView at = session->Result(0);
    EXPECT_EQ(at.shape[0], 1);
    const auto* values = reinterpret_cast<const int64_t*>(at.data);
    return std::vector<int64_t>(values, values + at.shape[1]);
  };
  EXPECT_EQ(positions(), (std::vector<int64_t>{1, 2}));
  x = {7, 0, 0};
  EXPECT_EQ(positions(), (std::vector<int64_t>{0}));
  EXPECT_EQ(y, x);
  x = {0, 0, 0};
  EXPECT_EQ(positions(), (std::vector<int64_t>{}));
  x = {1, 1, 1};
  EXPECT_EQ(positions(), (std::vector<int64_t>{0, 1, 2}));
}

TEST_F(EngineTest, RefusesWhatItDoesNotServeWithAReason) {
  EXPECT_THAT(Refusal("garbage"), HasSubstr("no ONNX file"));
  EXPECT_EQ(Refusal(""), "the image holds no graph; give the bytes of an ONNX file");
  EXPECT_THAT(Refusal(OnnxWriter().Node("NoSuchOperator", {}, {"y"}).Image()),
              HasSubstr("refused"));
  EXPECT_THAT(Refusal(OnnxWriter()
                          .Input("x", kOnnxString, {1})
                          .Output("y", kOnnxString, {1})
                          .Node("Identity", {"x"}, {"y"})
                          .Image()),
              HasSubstr("input 'x' holds strings"));
  EXPECT_THAT(Refusal(OnnxWriter()
                          .OptionalInput("x", kOnnxFloat)
                          .Output("y", kOnnxBool, {})
                          .Node("OptionalHasElement", {"x"}, {"y"})
                          .Image()),
              HasSubstr("input 'x' is an optional value"));
  EXPECT_THAT(Refusal(OnnxWriter()
                          .Input("x", kOnnxFloat, {1})
                          .Output("y", kOnnxFloat, {1})
                          .Output("y", kOnnxFloat, {1})
                          .Node("Relu", {"x"}, {"y"})
                          .Image()),
              testing::AnyOf(HasSubstr("two outputs"), HasSubstr("refused")));
  EXPECT_THAT(Refusal(OnnxWriter()
                          .SequenceInput("x", kOnnxFloat)
                          .Output("y", kOnnxInt64, {})
                          .Node("SequenceLength", {"x"}, {"y"})
                          .Image()),
              HasSubstr("input 'x' is a sequence"));
  EXPECT_EQ(Refusal(OnnxWriter()
                        .Input("x", kOnnxFloat, {1})
                        .ExternalConstant("w", kOnnxFloat, {1}, "/etc/hostname")
                        .Output("y", kOnnxFloat, {1})
                        .Node("Add", {"x", "w"}, {"y"})
                        .Image()),
            "the model keeps weights in other files, which are not read; save it as one file");
}

TEST_F(EngineTest, MissesTheGraphFirst) {
  const std::string tensor = WireWriter().Varint(14, 1).str();
  const std::string attribute = WireWriter().Bytes(5, tensor).str();
  const std::string function = WireWriter().Bytes(11, attribute).str();
  EXPECT_EQ(ReasonOf(VORN_ERROR_MODEL, [&] { Open(WireWriter().Bytes(25, function).str()); }),
            "the image holds no graph; give the bytes of an ONNX file");
}

TEST_F(EngineTest, RefusesAnImageLongerThanAnOnnxFileBeforeReadingIt) {
  const std::byte first{};
  const std::span tooLong(&first, size_t{INT32_MAX} + 1);
  EXPECT_EQ(ReasonOf(VORN_ERROR_MODEL, [&] { engine->Open(tooLong, config); }),
            "the image is 2147483648 bytes; an ONNX file has at most 2147483647");
  // One byte less is looked at: it is promised, and what is not touched never comes to be.
  void* zeros =
      mmap(nullptr, INT32_MAX, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  ASSERT_NE(zeros, MAP_FAILED);
  const std::span longest(static_cast<const std::byte*>(zeros), size_t{INT32_MAX});
  EXPECT_EQ(ReasonOf(VORN_ERROR_MODEL, [&] { engine->Open(longest, config); }),
            "the image is no ONNX file (a field without a number); give the whole bytes of one");
  munmap(zeros, INT32_MAX);
}

TEST_F(EngineTest, TellsThatMemoryIsOut) {
  if (IsMemoryWatched()) GTEST_SKIP() << "what watches memory ends the process over such a size";
  const auto session = Open(OnnxWriter()
                                .Input("n", kOnnxInt64, {1})
                                .Output("y", kOnnxFloat, {})
                                .Node("ConstantOfShape", {"n"}, {"huge"})
                                .Node("ReduceSum", {"huge"}, {"y"}, {IntAttribute("keepdims", 0)})
                                .Image());
  int64_t n = int64_t{1} << 50;
  float y = 0;
  session->BindInput(0, &n, {1});
  session->BindOutput(0, &y, {});
  EXPECT_EQ(StatusOf([&] { session->Run(); }), VORN_ERROR_OUT_OF_MEMORY);
  n = 3;
  EXPECT_EQ(StatusOf([&] { session->Run(); }), VORN_SUCCESS);
}

TEST_F(EngineTest, IsNotTakenInByAModelThatSpeaksOfMemory) {
  EXPECT_THAT(Refusal(OnnxWriter()
                          .Input("x", kOnnxFloat, {1})
                          .Output("y", kOnnxFloat, {1})
                          .Node("std::bad_alloc", {"x"}, {"y"})
                          .Image()),
              HasSubstr("refused"));
  const auto session =
      Open(OnnxWriter()
               .Input("std::bad_alloc", kOnnxFloat, {"n"})
               .Constant<int64_t>("bad_alloc", kOnnxInt64, {1}, {2})
               .Output("std::bad_alloc:", kOnnxFloat, {2})
               .Node("Reshape", {"std::bad_alloc", "bad_alloc"}, {"std::bad_alloc:"})
               .Image());
  std::vector<float> x(3);
  std::vector<float> y(2);
  session->BindInput(0, x.data(), {3});
  session->BindOutput(0, y.data(), {2});
  EXPECT_EQ(StatusOf([&] { session->Run(); }), VORN_ERROR_EXECUTION);
}

TEST_F(EngineTest, ClosesNamedDimensionsFromTheConfiguration) {
  config.dims["n"] = 2;
  const auto session = Open(OnnxWriter()
                                .Input("x", kOnnxFloat, {"n", 2})
                                .Output("y", kOnnxFloat, {"n", 2})
                                .Node("Relu", {"x"}, {"y"})
                                .Image());
  std::vector<float> x = {-1, 2, -3, 4};
  std::vector<float> y(4);
  session->BindInput(0, x.data(), {2, 2});
  session->BindOutput(0, y.data(), {2, 2});
  session->Run();
  EXPECT_EQ(y, (std::vector<float>{0, 2, 0, 4}));
}

/// A branch is taken where the first dimension is 1, which can be told while the model is loaded as
/// soon as the dimension has its size. It holds a constant of 256 bytes.
std::string Branching(const OnnxDim& first) {
  const std::vector<float> ones(64, 1);
  const std::string taken = OnnxWriter()
                                .Output("less", kOnnxFloat, {1, 64})
                                .Constant("ones", kOnnxFloat, {1, 64}, ones)
                                .Node("Sub", {"x", "ones"}, {"less"})
                                .Graph();
  const std::string other =
      OnnxWriter().Output("same", kOnnxFloat, {1, 64}).Node("Identity", {"x"}, {"same"}).Graph();
  return OnnxWriter()
      .Input("x", kOnnxFloat, {first, 64})
      .Output("y", kOnnxFloat, {first, 64})
      .Constant<int64_t>("zero", kOnnxInt64, {}, {0})
      .Constant<int64_t>("one", kOnnxInt64, {}, {1})
      .Node("Shape", {"x"}, {"shape"})
      .Node("Gather", {"shape", "zero"}, {"items"})
      .Node("Equal", {"items", "one"}, {"isOne"})
      .Node("If", {"isOne"}, {"y"},
            {GraphAttribute("then_branch", taken), GraphAttribute("else_branch", other)})
      .Image();
}

TEST_F(EngineTest, OpensModelsWhoseBranchIsKnownBeforehand) {
  config.dims["n"] = 1;
  for (const OnnxDim& first : {OnnxDim("n"), OnnxDim(1)}) {
    for (const GraphOptimization level : {GraphOptimization::kNone, GraphOptimization::kBasic,
                                          GraphOptimization::kExtended, GraphOptimization::kAll}) {
      config.graphOptimization = level;
      const auto session = Open(Branching(first));
      std::vector<float> x(64, 3);
      std::vector<float> y(64);
      session->BindInput(0, x.data(), {1, 64});
      session->BindOutput(0, y.data(), {1, 64});
      session->Run();
      EXPECT_EQ(y, std::vector<float>(64, 2));
    }
  }
}

TEST_F(EngineTest, TellsTheFirstFaultWhereNothingHelps) {
  const std::string reason = ReasonOf(VORN_ERROR_MODEL, [&] {
    Open(OnnxWriter()
             .Input("x", kOnnxFloat, {2, 3})
             .Output("y", kOnnxFloat, {2, 3})
             .Node("Reluu", {"x"}, {"y"})
             .Image());
  });
  EXPECT_THAT(reason, HasSubstr("the model is refused ("));
  EXPECT_THAT(reason, HasSubstr("Reluu"));
}

/// What the log says of a reshape that does not fit, which the library sees while it runs.
std::string WrittenOverAFault(Session& session, const char* level) {
  std::vector<float> x(3);
  std::vector<float> y(2);
  setenv("VORN_LOG", level, 1);
  testing::internal::CaptureStderr();
  const std::string reason = ReasonOf(VORN_ERROR_EXECUTION, [&] {
    session.BindInput(0, x.data(), {3});
    session.BindOutput(0, y.data(), {2});
    session.Run();
  });
  unsetenv("VORN_LOG");
  EXPECT_THAT(reason, HasSubstr("Reshape"));
  EXPECT_THAT(reason, Not(HasSubstr("onnxruntime::")));
  EXPECT_THAT(reason, Not(HasSubstr(".h:")));
  EXPECT_LT(reason.size(), 400u);
  return testing::internal::GetCapturedStderr();
}

TEST_F(EngineTest, KeepsThePlacesOfFaultsForTheFullLog) {
  const auto session = Open(OnnxWriter()
                                .Input("x", kOnnxFloat, {"n"})
                                .Output("y", kOnnxFloat, {2})
                                .Constant<int64_t>("two", kOnnxInt64, {1}, {2})
                                .Node("Reshape", {"x", "two"}, {"y"})
                                .Image());
  EXPECT_EQ(WrittenOverAFault(*session, "1"), "");
  EXPECT_THAT(WrittenOverAFault(*session, "info"), HasSubstr("onnxruntime::"));
}

TEST_F(EngineTest, SessionsOutliveTheEngine) {
  const auto session = Open(OnnxWriter()
                                .Input("x", kOnnxFloat, {2})
                                .Output("y", kOnnxFloat, {2})
                                .Node("Relu", {"x"}, {"y"})
                                .Image());
  engine.reset();
  std::vector<float> x = {-1, 2};
  std::vector<float> y(2);
  session->BindInput(0, x.data(), {2});
  session->BindOutput(0, y.data(), {2});
  session->Run();
  EXPECT_EQ(y, (std::vector<float>{0, 2}));
}

OnnxWriter MatMul64() {
  return OnnxWriter()
      .Input("x", kOnnxFloat, {64, 64})
      .Output("y", kOnnxFloat, {64, 64})
      .Node("MatMul", {"x", "x"}, {"y"});
}

TEST_F(EngineTest, RunsOnSeveralThreads) {
  config.threads = 4;
  for (int round = 0; round < 3; ++round) {
    const auto session = Open(MatMul64().Image());
    std::vector<float> x(4096);
    std::iota(x.begin(), x.end(), 0.0F);
    std::vector<float> y(4096);
    session->BindInput(0, x.data(), {64, 64});
    session->BindOutput(0, y.data(), {64, 64});
    session->Run();
    float first = 0;  // row 0 by column 0; exact, since it is below 2^24
    for (size_t i = 0; i < 64; ++i) first += x[i] * x[64 * i];
    EXPECT_EQ(y[0], first);
  }
}

TEST_F(EngineTest, EndsTheThreadsOfWhatIsRefused) {
  const int before = ThreadCount();
  config.threads = 4;
  EXPECT_NE(Refusal(OnnxWriter()
                        .Input("x", kOnnxFloat, {2})
                        .Output("y", kOnnxFloat, {2})
                        .Node("NoSuchOperator", {"x"}, {"y"})
                        .Image()),
            "");
  EXPECT_EQ(ThreadCount(), before);
}

// The library itself would wait for ever for the one thread that it got.
TEST_F(EngineTest, RefusesMoreThreadsThanThereAre) {
  if (!CanLimitThreads()) GTEST_SKIP() << kWhyThreadsAreNotLimited;
  const auto open = [&] {
    alarm(60);
    LimitThreadsTo(1);
    config.threads = 4;
    const std::string reason = ReasonOf(VORN_ERROR_INTERNAL, [&] { Open(MatMul64().Image()); });
    std::fputs(reason.c_str(), stderr);
    _exit(0);
  };
  EXPECT_EXIT(open(), testing::ExitedWithCode(0),
              "^'threads' is 4, but one of them cannot be started \\(.+\\); give a smaller number, "
              "or the process more threads and memory$");
}

}  // namespace
}  // namespace vorn::host
