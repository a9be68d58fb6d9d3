// JSON configuration to plain struct.
#include "host/config/config.h"

#include <bit>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "host/common/failure.h"
#include "host/config/json_values.h"
#include "host/config/model_settings.h"

namespace vorn::host {
namespace {

using nlohmann::json;

uint64_t RowAlignment(const std::string& key, const json& value) {
  const auto bytes =
      static_cast<uint64_t>(IntegerInRange(key, value, 1, static_cast<int64_t>(kMaxRowAlignment)));
  if (!std::has_single_bit(bytes)) {
    throw Failure(VORN_ERROR_CONFIG, "'", key, "' is ", bytes, "; give a power of two");
  }
  return bytes;
}

GraphOptimization Optimization(const std::string& key, const json& value) {
  return OneOf<GraphOptimization>(key, value,
                                  {{"none", GraphOptimization::kNone},
                                   {"basic", GraphOptimization::kBasic},
                                   {"extended", GraphOptimization::kExtended},
                                   {"all", GraphOptimization::kAll}});
}

/// The text of the section, once it has been read without a fault: the metadata of a model may come
/// to stand below it later on.
std::string ModelSection(const json& value) {
  std::string text = value.dump(-1, ' ', false, json::error_handler_t::replace);
  static_cast<void>(ParseModelSettings(text));
  return text;
}

constexpr Key<Config> kConfigKeys[] = {
    {"threads",
     [](Path path, Value value, Config& config) {
       config.threads = static_cast<int>(IntegerInRange(path, value, 1, kMaxThreads));
     }},
    {"rowAlignment", [](Path path, Value value,
                        Config& config) { config.rowAlignment = RowAlignment(path, value); }},
    {"devices",
     [](Path path, Value value, Config& config) {
       config.devices = static_cast<int>(IntegerInRange(path, value, 1, kMaxDevices));
     }},
    {"memoryLimit",
     [](Path path, Value value, Config& config) {
       config.memoryLimit = static_cast<uint64_t>(IntegerInRange(path, value, 1, INT64_MAX));
     }},
    {"probe",
     [](Path path, Value value, Config& config) {
       config.probeSeconds =
           static_cast<uint32_t>(IntegerInRange(path, value, 1, kMaxProbeSeconds));
     }},
    {"graphOptimization",
     [](Path path, Value value, Config& config) {
       config.graphOptimization = Optimization(path, value);
     }},
    {"dims", [](Path path, Value value,
                Config& config) { config.dims = Named(path, value, R"({"sequence": 128})", Dim); }},
    {"outputTypes",
     [](Path path, Value value, Config& config) {
       config.outputTypes = OneOf<OutputTypes>(
           path, value, {{"presented", OutputTypes::kPresented}, {"native", OutputTypes::kNative}});
     }},
    {"model", [](Path, Value value, Config& config) { config.model = ModelSection(value); }},
};

}  // namespace

Config ParseConfig(std::string_view text) {
  Config config;
  ReadKeys<Config>(ParseJsonObject("the configuration", text), "", kConfigKeys, config);
  return config;
}

std::vector<std::string_view> ConfigKeys() { return NamesOf<Config>(kConfigKeys); }

Config ReadConfigFile(const char* path) {
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  // Not by its length: a pipe has none, and a device may have no end.
  std::string text(kMaxConfigBytes + 1, '\0');
  if (file) file.read(text.data(), static_cast<std::streamsize>(text.size()));
  if (!file.is_open() || file.bad()) {
    throw Failure(VORN_ERROR_CONFIG, "the configuration file '", path, "' cannot be read (",
                  std::strerror(errno), "); give the path of a JSON file");
  }
  text.resize(static_cast<size_t>(file.gcount()));
  if (text.size() > kMaxConfigBytes) {
    throw Failure(VORN_ERROR_CONFIG, "the configuration file '", path, "' is longer than ",
                  kMaxConfigBytes, " bytes; give a JSON file of the runtime's settings");
  }
  return ParseConfig(text);
}

}  // namespace vorn::host
