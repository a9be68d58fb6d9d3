// The narrow door to ONNX Runtime: open a model, learn its tensors, bind memory, run.
//
// Nothing beside this folder's files engine* knows ONNX Runtime's types, and no operator is
// executed elsewhere.
#ifndef VORN_RUNTIME_HOST_ENGINE_ENGINE_H_
#define VORN_RUNTIME_HOST_ENGINE_ENGINE_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "host/config/config.h"
#include "host/graph/graph_edits.h"
#include "host/tensor/shape.h"
#include "vorn/vorn.h"

namespace vorn::host {

/// An input or output as the model declares it.
struct DeclaredTensor {
  std::string name;
  vorn_data_type type = VORN_FLOAT32;
  DeclaredShape shape;
  bool isShapeKnown = true;  ///< an input may leave even the count of its dimensions open
};

/// A dense tensor of the engine's, row after row with the last dimension fastest.
struct TensorView {
  const std::byte* data = nullptr;
  Shape shape;
};

/// One model, ready to run. Not synchronised. Every operation fails with a `Failure`, or with
/// std::bad_alloc, and may be called again then: what was to be bound before is noted still, and
/// the next run binds it anew.
class Session {
 public:
  virtual ~Session() = default;

  /// In the model's order; constants that the model carries are not among the inputs.
  virtual const std::vector<DeclaredTensor>& inputs() const = 0;
  virtual const std::vector<DeclaredTensor>& outputs() const = 0;

  /// Lets later runs read input `index` from, or write output `index` to, the dense tensor of
  /// `shape` at `data`, which must outlive them. It is noted here and bound when the next run
  /// begins; binding what is bound already costs nothing.
  virtual void BindInput(size_t index, void* data, const Shape& shape) = 0;
  virtual void BindOutput(size_t index, void* data, const Shape& shape) = 0;

  /// Like BindInput, for good: trials read it, too.
  virtual void BindConstant(size_t index, void* data, const Shape& shape) = 0;

  /// Lets later runs keep output `index` in memory of the engine's, whatever its shape is.
  virtual void BindOutputOfAnyShape(size_t index) = 0;

  /// Where the last run kept such an output; valid until the next one.
  virtual TensorView Result(size_t index) = 0;

  /// Executes with the bound memory; every input must be bound. Outputs that are not are not kept.
  /// Fails with VORN_ERROR_EXECUTION, also where an output turns out to have another shape than the
  /// bound one; bound outputs may be partly written then. Without memory, it and a trial fail with
  /// VORN_ERROR_OUT_OF_MEMORY.
  virtual void Run() = 0;

  /// The output shapes that inputs of these shapes lead to, all zero but for the constants. Touches
  /// no binding.
  virtual std::vector<Shape> Try(std::span<const Shape> inputShapes) = 0;

  /// Lets a run or a trial that is going on fail, as soon as the operator that it is at is through,
  /// and later ones at once. The one operation for another thread.
  virtual void Terminate() noexcept = 0;

  /// Takes that back, while nothing runs.
  virtual void Resume() = 0;
};

/// The execution library, brought up. Sessions keep what they need of it alive.
class Engine {
 public:
  virtual ~Engine() = default;

  /// Opens the model in `image`, which must outlive the session. Fails with VORN_ERROR_MODEL for
  /// what cannot be executed here, and says why.
  virtual std::unique_ptr<Session> Open(std::span<const std::byte> image, const Config& config) = 0;

  /// What the library makes of every output of the model in `image`, also of those that `Open`
  /// would refuse. Nothing is executed or rewritten. Fails likewise.
  virtual std::vector<ResultFacts> TellOutputs(std::span<const std::byte> image,
                                               const Config& config) = 0;
};

/// Loads the library and brings it up. Any thread. Fails with VORN_ERROR_INTERNAL.
std::unique_ptr<Engine> CreateEngine();

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_ENGINE_ENGINE_H_
