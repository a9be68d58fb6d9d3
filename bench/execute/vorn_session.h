// What is measured: a model executed through vorn.h, in the way of vorn-run.
#ifndef VORN_BENCH_EXECUTE_VORN_SESSION_H_
#define VORN_BENCH_EXECUTE_VORN_SESSION_H_

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "vorn/vorn.h"

/// The runtime, up with the configuration in a file, with a device, a context and a stream. Throws
/// std::runtime_error where a step fails.
class VornRuntime {
 public:
  explicit VornRuntime(const std::string& configPath);
  ~VornRuntime();
  VornRuntime(const VornRuntime&) = delete;
  VornRuntime& operator=(const VornRuntime&) = delete;

 private:
  vorn_rt_context* context_ = nullptr;
  vorn_rt_stream* stream_ = nullptr;
};

/// A loaded model and blocks of one batch item for all its inputs and outputs, rows at the stride
/// that the model's description asks for. Throws std::runtime_error where a step fails.
class VornSession {
 public:
  explicit VornSession(std::span<const std::byte> image);
  ~VornSession();
  VornSession(const VornSession&) = delete;
  VornSession& operator=(const VornSession&) = delete;

  /// Lays dense rows of input 0 out in its block.
  void PutInput(std::span<const std::byte> dense, uint64_t rowBytes);

  /// The rows of output 0, dense.
  std::vector<std::byte> TakeOutput(uint64_t rowBytes) const;

  bool IsInputPadded(uint64_t rowBytes) const { return inputs_.blocks[0].stride != rowBytes; }

  /// Of all inputs and outputs.
  std::vector<std::string> TensorNames() const;

  void Run();

 private:
  struct Block {
    std::byte* address;
    uint64_t size;
    uint64_t stride;
    vorn_data_buffer* buffer;
  };
  struct Dataset {
    vorn_mdl_dataset* handle = nullptr;
    std::vector<Block> blocks;
  };
  static void Add(Dataset& dataset, uint64_t size, uint64_t stride);
  static void Destroy(Dataset& dataset);

  std::byte* image_ = nullptr;
  uint32_t modelId_ = 0;
  vorn_mdl_desc* desc_ = nullptr;
  Dataset inputs_;
  Dataset outputs_;
};

#endif  // VORN_BENCH_EXECUTE_VORN_SESSION_H_
