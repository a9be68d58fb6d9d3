// Data buffers and datasets: a caller's words about blocks, and where the blocks really are.
#ifndef VORN_RUNTIME_HOST_STATE_DATASETS_H_
#define VORN_RUNTIME_HOST_STATE_DATASETS_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "host/memory/block_store.h"
#include "host/state/handle.h"
#include "host/tensor/block_view.h"
#include "vorn/vorn.h"

namespace vorn::host {

/// A caller's words about a block; nothing of it is believed before it is used.
struct DataBuffer {
  void* address;
  uint64_t size;    ///< bytes, as registered
  uint64_t stride;  ///< bytes from row to row
  bool isOurs;      ///< the address lay in a block of this runtime when it was registered
};

struct Dataset {
  std::vector<vorn_data_buffer*> buffers;  ///< in index order; some may be destroyed by now
  uint64_t batch = 1;
  uint64_t frames = 0;  ///< of a recurrent model that count; 0 where nobody said
};

/// Which of an execution's two datasets.
enum class Side { kInput, kOutput };

/// All that live. What takes a handle fails with VORN_ERROR_INVALID_ARGUMENT for a null one and
/// with VORN_ERROR_INVALID_HANDLE for any that does not live. Not synchronised.
class Datasets {
 public:
  /// `blocks` tells which memory is ours; it outlives this object.
  explicit Datasets(const BlockStore& blocks) : blocks_(blocks) {}

  /// Fails with VORN_ERROR_INVALID_ARGUMENT if any of the three is 0.
  vorn_data_buffer* CreateBuffer(void* block, uint64_t size, uint64_t stride);
  void DestroyBuffer(vorn_data_buffer* buffer);
  /// As it was registered.
  const DataBuffer& Buffer(const vorn_data_buffer* buffer) const;

  vorn_mdl_dataset* Create();
  void Destroy(vorn_mdl_dataset* dataset);
  Dataset& At(const vorn_mdl_dataset* dataset) const;
  void Add(vorn_mdl_dataset* dataset, vorn_data_buffer* buffer);
  /// Fails with VORN_ERROR_INVALID_ARGUMENT for another index than 0 and for a batch of 0.
  void SetBatch(vorn_mdl_dataset* dataset, uint64_t index, uint64_t batch);
  /// Fails with VORN_ERROR_INVALID_ARGUMENT for an index that is not below the count.
  vorn_data_buffer* BufferAt(const vorn_mdl_dataset* dataset, uint64_t index) const;

  /// Where the blocks of a dataset lie and how far they reach, in index order. Fails with
  /// VORN_ERROR_INVALID_ARGUMENT for a block of ours that was freed.
  void ViewsOf(const Dataset& dataset, Side side, std::vector<BlockView>& views) const;

  std::vector<const vorn_mdl_dataset*> Handles() const { return datasets_.Keys(); }
  std::vector<const vorn_data_buffer*> BufferHandles() const { return buffers_.Keys(); }

 private:
  BlockView ViewOf(const vorn_data_buffer* buffer, Side side, size_t index) const;

  const BlockStore& blocks_;
  Registry<const vorn_mdl_dataset*, Dataset> datasets_{"dataset"};
  Registry<const vorn_data_buffer*, DataBuffer> buffers_{"data buffer"};
};

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_STATE_DATASETS_H_
