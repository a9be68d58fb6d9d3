// A runtime that only describes: what reading an input file and dumping outputs ask of vorn.h, from
// plain records that a fuzz target fills in. Blocks are allocations of exactly their size, so that
// AddressSanitizer sees every byte beside them.
#ifndef VORN_TESTS_FUZZ_MODEL_RUNTIME_H_
#define VORN_TESTS_FUZZ_MODEL_RUNTIME_H_

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vorn/vorn.h"

struct vorn_data_buffer {
  void* address = nullptr;
  uint64_t size = 0;
};

/// A null buffer stands for a position that the runtime refuses to give out.
struct vorn_mdl_dataset {
  std::vector<std::optional<vorn_data_buffer>> buffers;
};

namespace fuzz {

/// One model input or output.
struct Tensor {
  vorn_mdl_io_dims dims{};
  vorn_status dimsStatus = VORN_SUCCESS;
  uint32_t type = 0;
  uint64_t bits = 0;  ///< of an element; inputs and outputs of one type are of one size
  uint64_t stride = 0;
  uint64_t size = 0;
  std::optional<std::string> name;  ///< what the query of the whole name gives; none for null
};

struct ModelRuntime {
  static constexpr uint64_t kBlockLimit = 1 << 20;
  static constexpr unsigned char kFill = 0xA5;  ///< what fresh blocks hold

  std::vector<Tensor> inputs;
  std::vector<Tensor> outputs;
  vorn_status netTypeStatus = VORN_SUCCESS;
  vorn_net_type netType = VORN_NET_FEED_FORWARD;
  std::map<void*, uint64_t> blocks;  ///< the live ones with their sizes

  /// As at the start of the process; live blocks are freed.
  void Reset();
};

extern ModelRuntime g_modelRuntime;

}  // namespace fuzz

#endif  // VORN_TESTS_FUZZ_MODEL_RUNTIME_H_
