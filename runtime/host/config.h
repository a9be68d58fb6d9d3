// The runtime's configuration: a JSON object in a file, every key optional, `{}` valid.
//
//     {
//       "threads": 4,
//       "rowAlignment": 64,
//       "graphOptimization": "all",
//       "dims": { "sequence": 128 }
//     }
//
// | key                 | value                                        | without it |
// |---------------------|----------------------------------------------|------------|
// | `threads`           | 1..256, threads that execute one model       | 1          |
// | `rowAlignment`      | a power of two, 1..4096 bytes                | 16         |
// | `graphOptimization` | "none", "basic", "extended" or "all"         | "all"      |
// | `dims`              | object: name of an open dimension -> size    | {}         |
//
// `threads` of 1 keeps execution on the calling thread. `rowAlignment` is what the row stride of
// every model input and output is rounded up to. `graphOptimization` says how far the model's graph
// may be rewritten when it is loaded; results can differ in their last bits. `dims` closes
// dimensions that a model names but leaves open: a first dimension named here is no longer the
// batch; an open inner dimension that is not named here counts as 1. A name that a model does not
// have is logged and passed over, since the file serves every model.
//
// A key that is not in the table is refused: a mistyped one would otherwise do nothing, silently.
#ifndef VORN_RUNTIME_HOST_CONFIG_H_
#define VORN_RUNTIME_HOST_CONFIG_H_

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace vorn::host {

enum class GraphOptimization { kNone, kBasic, kExtended, kAll };

struct Config {
  int threads = 1;
  uint64_t rowAlignment = 16;  ///< bytes
  GraphOptimization graphOptimization = GraphOptimization::kAll;
  std::map<std::string, int64_t> dims;
};

inline constexpr int kMaxThreads = 256;
inline constexpr uint64_t kMaxRowAlignment = 4096;
inline constexpr uint64_t kMaxConfigBytes = 1 << 20;

/// Reads a configuration from its text. Fails with VORN_ERROR_CONFIG and what to change.
Config ParseConfig(std::string_view text);

/// Reads a configuration from the file at `path`, of at most `kMaxConfigBytes`. Fails likewise,
/// also for a file that cannot be read.
Config ReadConfigFile(const char* path);

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_CONFIG_H_
