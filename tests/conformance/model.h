// A model under test: its image, its description, and datasets that fit it.
#ifndef VORN_TESTS_CONFORMANCE_MODEL_H_
#define VORN_TESTS_CONFORMANCE_MODEL_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "contract.h"
#include "tensor.h"

namespace conformance {

/// A block of runtime memory, filled, and freed with the object. Ends the contract if there is
/// none.
class Block {
 public:
  explicit Block(uint64_t size, std::byte fill = std::byte{0xEE});
  explicit Block(const Bytes& content);
  Block(Block&& other) noexcept;
  Block(const Block&) = delete;
  Block& operator=(const Block&) = delete;
  ~Block();

  void* Address() const { return address_; }
  uint64_t size() const { return size_; }
  std::span<std::byte> Content() const { return {static_cast<std::byte*>(address_), size_}; }

  /// Gives the block back early.
  void Free();

 private:
  void* address_ = nullptr;
  uint64_t size_ = 0;
};

/// The bytes of a file; ends the contract if it cannot be read.
Bytes ReadFile(const std::string& path);

/// A dataset with a block of its own behind each data buffer. Behind the bytes that a buffer tells
/// of lie kGuardBytes more, which nobody may write. All of it goes with the object.
class Dataset {
 public:
  Dataset();
  Dataset(Dataset&& other) noexcept;
  Dataset(const Dataset&) = delete;
  Dataset& operator=(const Dataset&) = delete;
  ~Dataset();

  /// Appends a block of `size` bytes; `guardBytes` of 0 for one that ends where the buffer does.
  void Add(uint64_t size, uint64_t stride, std::byte fill, uint64_t guardBytes = kGuardBytes);

  vorn_mdl_dataset* Handle() const { return dataset_; }
  size_t Count() const { return buffers_.size(); }
  vorn_data_buffer* BufferAt(size_t index) const { return buffers_.at(index); }
  Block& BlockAt(size_t index) { return blocks_.at(index); }

  /// What the buffer tells of.
  std::span<std::byte> Content(size_t index) const;

  /// Expects that nothing was written behind any buffer.
  void CheckGuards() const;

  /// Destroys a data buffer early; the block stays.
  void DestroyBuffer(size_t index);

  static constexpr uint64_t kGuardBytes = 64;

 private:
  vorn_mdl_dataset* dataset_ = nullptr;
  std::vector<vorn_data_buffer*> buffers_;
  std::vector<Block> blocks_;
  std::vector<uint64_t> sizes_;
};

/// A loaded model. Ends the contract if it cannot be loaded, or not be described sensibly.
class Model {
 public:
  explicit Model(const std::string& path);
  Model(const Model&) = delete;
  Model& operator=(const Model&) = delete;
  ~Model();

  uint32_t Id() const { return id_; }
  const Block& Image() const { return image_; }
  vorn_mdl_desc* Desc() const { return desc_; }

  /// Unloads it early.
  void Unload();

  /// The tensors, described. Scratch inputs are described by size and stride alone.
  const std::vector<Tensor>& inputs();
  const std::vector<Tensor>& outputs();
  size_t DataInputCount() { return inputs().size() - 2; }
  bool IsScratch(size_t input) { return input >= DataInputCount(); }

  /// How many items the block of an input holds in a batch of that many.
  uint64_t ItemsOf(size_t input, uint64_t batch);

  /// Input blocks with values of the seed, item b of any batch with those of `seed` + b. Scratch is
  /// zero, and the padding filled.
  Dataset Inputs(uint32_t seed, uint64_t batch = 1, std::byte padding = std::byte{0x5A});

  /// Fills item `item` of all data inputs with the values of the seed.
  void FillItem(Dataset& in, uint64_t item, uint32_t seed);

  /// Output blocks, all bytes filled.
  Dataset Outputs(uint64_t batch = 1, std::byte fill = std::byte{0xEE});

  /// The rows of one item, an element an output.
  std::vector<Bytes> Results(const Dataset& out, uint64_t item = 0);

  /// Executes with fresh output blocks, and expects that it works and keeps to its blocks.
  std::vector<Bytes> Execute(const Dataset& in, uint64_t item = 0, uint64_t batch = 1);

  /// Expects the same results of all outputs.
  void ExpectSame(const std::vector<Bytes>& expected, const std::vector<Bytes>& actual,
                  double tolerance, const std::string& when);

 private:
  void Describe();

  uint32_t id_ = 0;
  bool isLoaded_ = false;
  Block image_;
  vorn_mdl_desc* desc_ = nullptr;
  vorn_net_type netType_ = VORN_NET_FEED_FORWARD;
  std::vector<Tensor> inputs_;
  std::vector<Tensor> outputs_;
};

/// The runtime is up, and `model` is loaded from the file of `--model`, or of what `Path` says.
class ModelContract : public UpContract {
 protected:
  std::string Lacks() const override { return Path().empty() ? "--model is not given" : ""; }
  virtual const std::string& Path() const { return Given().model; }
  void Begin() override;
  void End() override;

  std::optional<Model> model;
};

}  // namespace conformance

#endif  // VORN_TESTS_CONFORMANCE_MODEL_H_
