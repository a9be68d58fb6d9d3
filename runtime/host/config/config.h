// The runtime's configuration: a JSON object in a file, every key optional, `{}` valid.
//
//     {
//       "threads": 4,
//       "rowAlignment": 64,
//       "dims": { "sequence": 128 },
//       "model": { "constants": { "rate": 16000 } }
//     }
//
// docs/host-runtime.md is the reference of the keys, and a test holds it to this file.
#ifndef VORN_RUNTIME_HOST_CONFIG_CONFIG_H_
#define VORN_RUNTIME_HOST_CONFIG_CONFIG_H_

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/tensor/presentation.h"

namespace vorn::host {

enum class GraphOptimization { kNone, kBasic, kExtended, kAll };

struct Config {
  int threads = 1;
  uint64_t rowAlignment = 16;  ///< bytes
  int devices = 1;
  uint32_t probeSeconds = 0;            ///< that a probe of a model may take; 0: there is none
  std::optional<uint64_t> memoryLimit;  ///< bytes of each device; nothing: what the machine has
  GraphOptimization graphOptimization = GraphOptimization::kAll;
  std::map<std::string, int64_t> dims;
  OutputTypes outputTypes = OutputTypes::kPresented;
  std::string model = "{}";  ///< the section's JSON text, known to be readable

  bool operator==(const Config&) const = default;
};

inline constexpr int kMaxThreads = 256;
inline constexpr int kMaxDevices = 64;
inline constexpr uint32_t kMaxProbeSeconds = 3600;
inline constexpr uint64_t kMaxRowAlignment = 4096;
inline constexpr uint64_t kMaxConfigBytes = 1 << 20;

/// Reads a configuration from its text. Fails with VORN_ERROR_CONFIG and what to change.
Config ParseConfig(std::string_view text);

/// The keys that it takes, in the order in which messages name them.
std::vector<std::string_view> ConfigKeys();

/// Reads a configuration from the file at `path`, of at most `kMaxConfigBytes`. Fails likewise,
/// also for a file that cannot be read.
Config ReadConfigFile(const char* path);

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_CONFIG_CONFIG_H_
