// Sessions over ONNX Runtime's C++ interface: options, tensors, bound memory, runs and trials.
#include "host/engine/engine_session.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "host/common/failure.h"
#include "host/common/log.h"
#include "host/engine/engine_cause.h"
#include "host/engine/engine_environment.h"
#include "host/engine/engine_failure.h"
#include "host/engine/engine_rounding.h"
#include "host/engine/engine_threads.h"
#include "host/engine/engine_types.h"
#include "host/engine/onnx_image.h"
#include "host/graph/round_results.h"
#include "host/tensor/element_type.h"

namespace vorn::host {
namespace {

GraphOptimizationLevel OptimizationLevel(GraphOptimization level) {
  switch (level) {
    case GraphOptimization::kNone:
      return ORT_DISABLE_ALL;
    case GraphOptimization::kBasic:
      return ORT_ENABLE_BASIC;
    case GraphOptimization::kExtended:
      return ORT_ENABLE_EXTENDED;
    case GraphOptimization::kAll:
      return ORT_ENABLE_ALL;
  }
  return ORT_ENABLE_ALL;
}

/// Whether what does not depend on the inputs is worked out while a model is loaded. With a limit
/// it is not: it would lie in memory that nobody counts.
bool FoldsConstants(const Config& config) {
  return !config.memoryLimit && config.graphOptimization != GraphOptimization::kNone;
}

Ort::SessionOptions SessionOptionsFor(const Config& config, bool foldsConstants) {
  Ort::SessionOptions options;
  options.SetIntraOpNumThreads(config.threads);
  options.SetInterOpNumThreads(1);
  options.SetExecutionMode(ORT_SEQUENTIAL);
  options.SetGraphOptimizationLevel(OptimizationLevel(config.graphOptimization));
  options.SetLogSeverityLevel(EngineLogSeverity());
  // Idle threads that spin would take the processor from the caller's own work.
  options.AddConfigEntry("session.intra_op.allow_spinning", "0");
  options.AddConfigEntry("session.inter_op.allow_spinning", "0");
  if (config.memoryLimit) options.AddConfigEntry("session.use_env_allocators", "1");
  if (!foldsConstants) {
    options.AddConfigEntry("optimization.disable_specified_optimizers", "ConstantFolding");
  }
  // Nothing but the format that InspectOnnxImage has looked at.
  options.AddConfigEntry("session.load_model_format", "ONNX");
  for (const auto& [name, size] : config.dims) {
    Ort::ThrowOnError(Ort::GetApi().AddFreeDimensionOverrideByName(options, name.c_str(), size));
  }
  return options;
}

DeclaredShape DeclaredShapeOf(const Ort::ConstTensorTypeAndShapeInfo& info) {
  const std::vector<int64_t> sizes = info.GetShape();
  std::vector<const char*> symbols(sizes.size());
  info.GetSymbolicDimensions(symbols.data(), symbols.size());
  DeclaredShape shape;
  for (size_t i = 0; i < sizes.size(); ++i) {
    shape.push_back({.size = sizes[i] < 0 ? DeclaredDim::kOpen : sizes[i],
                     .symbol = symbols[i] == nullptr ? "" : symbols[i]});
  }
  return shape;
}

DeclaredTensor Declare(const char* kind, std::string name, const Ort::TypeInfo& type) {
  if (type.GetONNXType() != ONNX_TYPE_TENSOR) {
    throw Failure(VORN_ERROR_MODEL, kind, " '", name, "' is ", NameOf(type.GetONNXType()),
                  "; only dense tensors are served");
  }
  const Ort::ConstTensorTypeAndShapeInfo info = type.GetTensorTypeAndShapeInfo();
  const std::optional<vorn_data_type> element = FromElementType(info.GetElementType());
  if (!element) {
    throw Failure(
        VORN_ERROR_MODEL, kind, " '", name, "' holds ", NameOf(info.GetElementType()),
        " (ONNX element type ", static_cast<int>(info.GetElementType()),
        "); floating-point numbers of 16 to 64 bits, integers and truth values are served");
  }
  return {.name = std::move(name), .type = *element, .shape = DeclaredShapeOf(info)};
}

/// Calls `steps`. What the library throws becomes a Failure that begins with `what`, with
/// VORN_ERROR_OUT_OF_MEMORY or, for any other reason, with `status`.
template <typename Steps>
auto Guarded(vorn_status status, const char* what, Steps&& steps) {
  try {
    return steps();
  } catch (const Ort::Exception& e) {
    const bool isMemory = IsOutOfMemory(e.GetOrtErrorCode(), e.what());
    throw Failure(isMemory ? VORN_ERROR_OUT_OF_MEMORY : status, what, " (", CauseOf(e), ")");
  }
}

/// The names of open dimensions of the inputs.
std::set<std::string> SymbolsOfInputs(const Ort::Session& session) {
  std::set<std::string> symbols;
  for (size_t i = 0; i < session.GetInputCount(); ++i) {
    const Ort::TypeInfo type = session.GetInputTypeInfo(i);
    if (type.GetONNXType() != ONNX_TYPE_TENSOR) continue;
    for (const DeclaredDim& dim : DeclaredShapeOf(type.GetTensorTypeAndShapeInfo())) {
      if (!dim.symbol.empty()) symbols.insert(dim.symbol);
    }
  }
  return symbols;
}

/// Without an exception for what cannot be given.
ResultFacts FactsOf(std::string name, const Ort::TypeInfo& type,
                    const std::set<std::string>& symbols) {
  ResultFacts facts;
  facts.name = std::move(name);
  if (type.GetONNXType() != ONNX_TYPE_TENSOR) {
    facts.cannotBeGiven = std::string("is ") + NameOf(type.GetONNXType());
    return facts;
  }
  const Ort::ConstTensorTypeAndShapeInfo info = type.GetTensorTypeAndShapeInfo();
  facts.type = FromElementType(info.GetElementType());
  if (!facts.type) facts.cannotBeGiven = std::string("holds ") + NameOf(info.GetElementType());
  // A scalar looks like a tensor of which nothing is known.
  const DeclaredShape shape = DeclaredShapeOf(info);
  facts.isShapeKnown = !shape.empty() && std::ranges::all_of(shape, [&](const DeclaredDim& dim) {
    return dim.size >= 0 || symbols.contains(dim.symbol);
  });
  return facts;
}

/// What one input or output is to be bound to, and how far that has come.
struct Binding {
  void* data = nullptr;
  Shape shape;
  bool isWanted = false;      // there is something to bind
  bool isBound = false;       // the library has it as it is noted here
  bool isListed = false;      // an output that has its place among the library's values
  bool isOfAnyShape = false;  // an output that the library keeps, whatever its shape
  bool isConstant = false;    // an input that is the same in trials
};

class OrtSession : public Session {
 public:
  OrtSession(std::shared_ptr<Ort::Env> env, std::unique_ptr<EngineThreads> threads,
             std::span<const std::byte> image, const Ort::SessionOptions& options,
             const std::set<std::string>& shapelessInputs)
      : env_(std::move(env)),
        threads_(std::move(threads)),
        session_(*env_, image.data(), image.size(), options),
        memory_(Ort::MemoryInfo::CreateCpu(OrtDeviceAllocator, OrtMemTypeDefault)),
        binding_(session_) {
    const Ort::AllocatorWithDefaultOptions allocator;
    for (size_t i = 0; i < session_.GetInputCount(); ++i) {
      const auto name = session_.GetInputNameAllocated(i, allocator);
      inputs_.push_back(Declare("input", name.get(), session_.GetInputTypeInfo(i)));
      inputs_.back().isShapeKnown = !shapelessInputs.contains(inputs_.back().name);
    }
    for (size_t i = 0; i < session_.GetOutputCount(); ++i) {
      const auto name = session_.GetOutputNameAllocated(i, allocator);
      outputs_.push_back(Declare("output", name.get(), session_.GetOutputTypeInfo(i)));
    }
    RefuseTwins();
    boundInputs_.resize(inputs_.size());
    boundOutputs_.resize(outputs_.size());
    outputOrder_.reserve(outputs_.size());
  }

  const std::vector<DeclaredTensor>& inputs() const override { return inputs_; }
  const std::vector<DeclaredTensor>& outputs() const override { return outputs_; }

  void BindInput(size_t index, void* data, const Shape& shape) override {
    Note(boundInputs_.at(index), data, shape);
  }

  void BindConstant(size_t index, void* data, const Shape& shape) override {
    Note(boundInputs_.at(index), data, shape);
    boundInputs_[index].isConstant = true;
  }

  void BindOutput(size_t index, void* data, const Shape& shape) override {
    Note(boundOutputs_.at(index), data, shape);
  }

  void BindOutputOfAnyShape(size_t index) override {
    Binding& output = boundOutputs_.at(index);
    output.isWanted = output.isOfAnyShape = true;
    output.isBound = areAllBound_ = false;
  }

  TensorView Result(size_t index) override {
    const auto found = std::find(outputOrder_.begin(), outputOrder_.end(), index);
    const Ort::Value& value = results_.at(static_cast<size_t>(found - outputOrder_.begin()));
    return Guarded(VORN_ERROR_EXECUTION, "a result cannot be read", [&] {
      return TensorView{.data = static_cast<const std::byte*>(value.GetTensorRawData()),
                        .shape = value.GetTensorTypeAndShapeInfo().GetShape()};
    });
  }

  void Run() override {
    try {
      Guarded(VORN_ERROR_EXECUTION, "the model failed while it ran", [&] { RunBound(); });
    } catch (...) {
      ForgetBindings();
      throw;
    }
  }

  std::vector<Shape> Try(std::span<const Shape> inputShapes) override {
    return Guarded(VORN_ERROR_EXECUTION, "a trial with zero inputs failed",
                   [&] { return TryUnguarded(inputShapes); });
  }

  void Terminate() noexcept override {
    Ort::Status ignored(Ort::GetApi().RunOptionsSetTerminate(runOptions_));
  }

  void Resume() override {
    Guarded(VORN_ERROR_INTERNAL, "the model stays ended", [&] { runOptions_.UnsetTerminate(); });
  }

 private:
  /// Memory is bound by name.
  void RefuseTwins() const {
    std::set<std::string> names;
    for (const DeclaredTensor& output : outputs_) {
      if (names.insert(output.name).second) continue;
      throw Failure(VORN_ERROR_MODEL, "two outputs are named '", output.name, "'; rename one");
    }
  }

  /// Notes what is to be bound. The library gets it when a run begins, so that whatever fails on
  /// the way leaves a note of what is still to be done.
  void Note(Binding& binding, void* data, const Shape& shape) {
    if (binding.isWanted && binding.data == data && binding.shape == shape) return;
    binding.shape = shape;  // first: nothing below can fail
    binding.data = data;
    binding.isWanted = true;
    binding.isBound = areAllBound_ = false;
  }

  void RunBound() {
    results_.clear();
    if (!areAllBound_) BindAll();
    session_.Run(runOptions_, binding_);
    if (!areOutputsInPlace_) TakeResults();
  }

  void BindAll() {
    for (size_t i = 0; i < inputs_.size(); ++i) {
      Binding& input = boundInputs_[i];
      if (!input.isWanted || input.isBound) continue;
      binding_.BindInput(inputs_[i].name.c_str(), Wrap(inputs_[i].type, input.data, input.shape));
      input.isBound = true;
    }
    for (size_t i = 0; i < outputs_.size(); ++i) {
      Binding& output = boundOutputs_[i];
      if (!output.isWanted || output.isBound) continue;
      PutOutput(i);
      if (!output.isListed) outputOrder_.push_back(i);
      output.isListed = output.isBound = true;
      areOutputsInPlace_ = false;
    }
    areAllBound_ = true;
  }

  void PutOutput(size_t index) {
    const Binding& output = boundOutputs_[index];
    const char* name = outputs_[index].name.c_str();
    if (output.isOfAnyShape) return binding_.BindOutput(name, memory_);
    binding_.BindOutput(name, Wrap(outputs_[index].type, output.data, output.shape));
  }

  /// Nothing is known of what a failed step left behind, not even of the library's own lists. The
  /// next run binds everything anew.
  void ForgetBindings() noexcept {
    results_.clear();
    binding_.ClearBoundInputs();
    binding_.ClearBoundOutputs();
    outputOrder_.clear();
    for (Binding& input : boundInputs_) input.isBound = false;
    for (Binding& output : boundOutputs_) output.isBound = output.isListed = false;
    areAllBound_ = areOutputsInPlace_ = false;
  }

  /// An output that no operator writes, such as an input that is an output as well, replaces what
  /// was bound instead of filling it, and is copied. So does one of any shape, which would have to
  /// have the same shape in the next run if it stayed. Both are bound anew before each run. Whether
  /// an output does so is a matter of the graph, so looking once for each set of bindings is
  /// enough where none does.
  void TakeResults() {
    areAllBound_ = false;
    bool areInPlace = true;
    results_ = binding_.GetOutputValues();
    for (size_t i = 0; i < results_.size(); ++i) {
      const size_t index = outputOrder_[i];
      Binding& output = boundOutputs_[index];
      output.isBound = !output.isOfAnyShape && !FetchIfDetached(index, results_[i]);
      areInPlace = areInPlace && output.isBound;
    }
    areAllBound_ = areOutputsInPlace_ = areInPlace;
  }

  /// True if the result lay elsewhere and was copied into the bound memory.
  bool FetchIfDetached(size_t index, const Ort::Value& result) const {
    const Binding& output = boundOutputs_[index];
    const void* data = result.GetTensorRawData();
    if (data == output.data) return false;
    const Shape shape = result.GetTensorTypeAndShapeInfo().GetShape();
    if (shape != output.shape) {
      throw Failure(VORN_ERROR_EXECUTION, "output '", outputs_[index].name, "' has the shape ",
                    ShapeText(shape), " and not ", ShapeText(output.shape), ", as described");
    }
    std::memcpy(output.data, data, ByteCount(outputs_[index].type, shape));
    return true;
  }

  static size_t ByteCount(vorn_data_type type, const Shape& shape) {
    size_t bytes = ElementBytes(type);
    for (const int64_t dim : shape) bytes *= static_cast<size_t>(dim);
    return bytes;
  }

  Ort::Value Wrap(vorn_data_type type, void* data, const Shape& shape) const {
    return Ort::Value::CreateTensor(memory_, data, ByteCount(type, shape), shape.data(),
                                    shape.size(), ToElementType(type));
  }

  std::vector<Shape> TryUnguarded(std::span<const Shape> inputShapes) {
    const Ort::Allocator allocator(session_, memory_);
    std::vector<const char*> inputNames;
    std::vector<Ort::Value> inputValues;
    for (size_t i = 0; i < inputs_.size(); ++i) {
      inputNames.push_back(inputs_[i].name.c_str());
      const Binding& bound = boundInputs_[i];
      if (bound.isConstant) {
        inputValues.push_back(Wrap(inputs_[i].type, bound.data, bound.shape));
        continue;
      }
      inputValues.push_back(Ort::Value::CreateTensor(
          allocator, inputShapes[i].data(), inputShapes[i].size(), ToElementType(inputs_[i].type)));
      std::memset(inputValues.back().GetTensorMutableRawData(), 0,
                  ByteCount(inputs_[i].type, inputShapes[i]));
    }
    std::vector<const char*> outputNames;
    for (const DeclaredTensor& output : outputs_) outputNames.push_back(output.name.c_str());
    const std::vector<Ort::Value> results =
        session_.Run(runOptions_, inputNames.data(), inputValues.data(), inputValues.size(),
                     outputNames.data(), outputNames.size());
    std::vector<Shape> shapes;
    for (const Ort::Value& result : results) {
      shapes.push_back(result.GetTensorTypeAndShapeInfo().GetShape());
    }
    return shapes;
  }

  std::shared_ptr<Ort::Env> env_;           // outlives the session
  std::unique_ptr<EngineThreads> threads_;  // likewise; null where there is but the caller's
  Ort::Session session_;
  Ort::RunOptions runOptions_;
  Ort::MemoryInfo memory_;
  Ort::IoBinding binding_;
  std::vector<DeclaredTensor> inputs_;
  std::vector<DeclaredTensor> outputs_;
  std::vector<Binding> boundInputs_;
  std::vector<Binding> boundOutputs_;
  std::vector<size_t> outputOrder_;  // of the library's values; room for all of them
  std::vector<Ort::Value> results_;  // of the last run, if it left any elsewhere
  bool areAllBound_ = false;         // as noted
  bool areOutputsInPlace_ = false;   // runs over the present bindings leave none elsewhere
};

}  // namespace

std::vector<ResultFacts> TellOutputsOf(const Ort::Env& environment,
                                       std::span<const std::byte> image, const Config& config) {
  return Guarded(VORN_ERROR_MODEL, "the model is refused", [&] {
    Config asItIs = config;
    asItIs.threads = 1;
    asItIs.graphOptimization = GraphOptimization::kNone;
    const Ort::Session session(environment, image.data(), image.size(),
                               SessionOptionsFor(asItIs, false));
    const Ort::AllocatorWithDefaultOptions allocator;
    const std::set<std::string> symbols = SymbolsOfInputs(session);
    std::vector<ResultFacts> facts;
    for (size_t i = 0; i < session.GetOutputCount(); ++i) {
      facts.push_back(FactsOf(session.GetOutputNameAllocated(i, allocator).get(),
                              session.GetOutputTypeInfo(i), symbols));
    }
    return facts;
  });
}

std::unique_ptr<Session> OpenSession(std::shared_ptr<Ort::Env> environment,
                                     std::span<const std::byte> image, const Config& config,
                                     const std::set<std::string>& shapelessInputs) {
  const auto open = [&](bool foldsConstants) -> std::unique_ptr<Session> {
    return Guarded(VORN_ERROR_MODEL, "the model is refused", [&] {
      Ort::SessionOptions options = SessionOptionsFor(config, foldsConstants);
      if (ImportsDomain(image, kRoundingDomain)) ServeRounding(options);
      std::unique_ptr<EngineThreads> threads;
      if (config.threads > 1) {
        threads = std::make_unique<EngineThreads>(config.threads);
        threads->GiveTo(options);
      }
      return std::make_unique<OrtSession>(environment, std::move(threads), image, options,
                                          shapelessInputs);
    });
  };
  if (!FoldsConstants(config)) return open(false);
  try {
    return open(true);
  } catch (const Failure& first) {
    if (first.status() != VORN_ERROR_MODEL) throw;
    // Where folding decides which branch of a model is taken, the library trips over the larger
    // constants of that branch.
    try {
      std::unique_ptr<Session> session = open(false);
      Log(LogLevel::kInfo, "engine", Join("opened without folding constants; ", first.what()));
      return session;
    } catch (const Failure&) {  // the first fault is the one to tell
    }
    throw;
  }
}

}  // namespace vorn::host
