// The host runtime as a caller uses it, for tests through its C interface.
#ifndef VORN_TESTS_RUNTIME_HOST_HOST_FIXTURE_H_
#define VORN_TESTS_RUNTIME_HOST_HOST_FIXTURE_H_

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/onnx_writer.h"
#include "vorn/vorn.h"

/// A file with a configuration, removed with the object.
class ConfigFile {
 public:
  explicit ConfigFile(const std::string& json);
  const char* path() const { return path_.c_str(); }

 private:
  support::TempDir folder_;
  std::string path_;
};

/// A dataset with blocks of its own behind its data buffers.
class Blocks {
 public:
  Blocks();
  ~Blocks();
  Blocks(Blocks&& other) noexcept;
  Blocks& operator=(Blocks&&) = delete;

  /// Appends a block of `blockBytes`, registered with `registeredBytes`; filled with 0xee.
  Blocks& Add(uint64_t blockBytes, uint64_t registeredBytes, uint64_t stride);

  /// Puts dense values into a block, or takes them out, row by row.
  template <typename Value>
  Blocks& Put(size_t index, const std::vector<Value>& dense, uint64_t rowLength) {
    for (size_t i = 0; i < dense.size(); ++i) {
      std::memcpy(ElementAt(index, i, rowLength, sizeof(Value)), &dense[i], sizeof(Value));
    }
    return *this;
  }
  template <typename Value>
  std::vector<Value> Take(size_t index, size_t count, uint64_t rowLength) {
    std::vector<Value> dense(count);
    for (size_t i = 0; i < count; ++i) {
      std::memcpy(&dense[i], ElementAt(index, i, rowLength, sizeof(Value)), sizeof(Value));
    }
    return dense;
  }
  std::vector<uint8_t> Bytes(size_t index) const;

  vorn_mdl_dataset* dataset = nullptr;
  std::vector<vorn_data_buffer*> buffers;

 private:
  std::byte* ElementAt(size_t index, size_t element, uint64_t rowLength, size_t elementBytes);
  struct Block {
    std::byte* address;
    uint64_t bytes;
    uint64_t stride;
  };
  std::vector<Block> blocks_;
};

/// Brings the runtime up before each test and takes it down after it.
class HostFixture : public testing::Test {
 protected:
  void SetUp() override { Start("{}"); }
  void TearDown() override { Stop(); }

  void Start(const std::string& json);
  void Stop();

  /// Loads the model and describes it in `desc`; the status of the load.
  vorn_status Load(const std::string& image);
  vorn_status Load(const OnnxWriter& model) { return Load(model.Image()); }

  /// What the log says while the model is refused; empty, with a failure, if it is loaded.
  std::string Refusal(const OnnxWriter& model);

  /// What the log says while `steps` run.
  template <typename Steps>
  std::string LogOf(Steps&& steps) {
    setenv("VORN_LOG", "error", 1);
    testing::internal::CaptureStderr();
    steps();
    unsetenv("VORN_LOG");
    return testing::internal::GetCapturedStderr();
  }

  /// Takes the runtime down and up again with another configuration.
  void Restart(const std::string& json) {
    Stop();
    Start(json);
  }

  std::vector<int64_t> ShapeOfInput(uint64_t index) const;
  std::vector<int64_t> ShapeOfOutput(uint64_t index) const;
  std::string NameOfInput(uint64_t index) const;

  /// Ends the model and its description, as far as they are there.
  void Unload();

  /// Blocks for `batch` items of every input, or output, as the description wants them.
  Blocks Inputs(uint64_t batch = 1) const;
  Blocks Outputs(uint64_t batch = 1) const;

  uint32_t modelId = 0;
  vorn_mdl_desc* desc = nullptr;
  vorn_rt_context* context = nullptr;
  std::string image;
};

#endif  // VORN_TESTS_RUNTIME_HOST_HOST_FIXTURE_H_
