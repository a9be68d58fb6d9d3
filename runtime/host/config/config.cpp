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

int64_t Dim(const std::string& key, const json& value) {
  return IntegerInRange(key, value, 1, INT32_MAX);
}

/// The text of the section, once it has been read without a fault: the metadata of a model may come
/// to stand below it later on.
std::string ModelSection(const json& value) {
  const std::string text = value.dump(-1, ' ', false, json::error_handler_t::replace);
  static_cast<void>(ParseModelSettings(text));
  return text;
}

}  // namespace

Config ParseConfig(std::string_view text) {
  const json root = ParseJsonObject("the configuration", text);
  Config config;
  for (const auto& [key, value] : root.items()) {
    if (key == "threads") {
      config.threads = static_cast<int>(IntegerInRange(key, value, 1, kMaxThreads));
    } else if (key == "rowAlignment") {
      config.rowAlignment = RowAlignment(key, value);
    } else if (key == "devices") {
      config.devices = static_cast<int>(IntegerInRange(key, value, 1, kMaxDevices));
    } else if (key == "memoryLimit") {
      config.memoryLimit = static_cast<uint64_t>(IntegerInRange(key, value, 1, INT64_MAX));
    } else if (key == "probe") {
      config.probeSeconds = static_cast<uint32_t>(IntegerInRange(key, value, 1, kMaxProbeSeconds));
    } else if (key == "graphOptimization") {
      config.graphOptimization = Optimization(key, value);
    } else if (key == "dims") {
      config.dims = Named(key, value, R"({"sequence": 128})", Dim);
    } else if (key == "outputTypes") {
      config.outputTypes = OneOf<OutputTypes>(
          key, value, {{"presented", OutputTypes::kPresented}, {"native", OutputTypes::kNative}});
    } else if (key == "model") {
      config.model = ModelSection(value);
    } else {
      throw Failure(VORN_ERROR_CONFIG, "key '", key,
                    "' is not known; the keys are threads, rowAlignment, devices, memoryLimit, probe, "
                    "graphOptimization, dims, outputTypes, model");
    }
  }
  return config;
}

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
