// JSON configuration to plain struct.
#include "host/config.h"

#include <bit>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>

#include "host/failure.h"

namespace vorn::host {
namespace {

using nlohmann::json;

/// What a refused value looks like in a message: its text, cut where it gets long. Never throws for
/// text that is not UTF-8.
std::string Shown(const json& value) {
  constexpr size_t kLongest = 60;
  std::string text = value.dump(-1, ' ', false, json::error_handler_t::replace);
  if (text.size() > kLongest) text = text.substr(0, kLongest) + "...";
  return text;
}

int64_t IntegerInRange(const std::string& key, const json& value, int64_t least, int64_t most) {
  // An unsigned number beyond int64 would come out negative, so it is looked at as what it is.
  const bool fits = value.is_number_unsigned()
                        ? value.get<uint64_t>() >= static_cast<uint64_t>(least) &&
                              value.get<uint64_t>() <= static_cast<uint64_t>(most)
                        : value.is_number_integer() && value.get<int64_t>() >= least &&
                              value.get<int64_t>() <= most;
  if (!fits) {
    throw Failure(VORN_ERROR_CONFIG, "'", key, "' is ", Shown(value), "; give a whole number from ",
                  least, " to ", most);
  }
  return value.get<int64_t>();
}

uint64_t RowAlignment(const std::string& key, const json& value) {
  const auto bytes =
      static_cast<uint64_t>(IntegerInRange(key, value, 1, static_cast<int64_t>(kMaxRowAlignment)));
  if (!std::has_single_bit(bytes)) {
    throw Failure(VORN_ERROR_CONFIG, "'", key, "' is ", bytes, "; give a power of two");
  }
  return bytes;
}

GraphOptimization Optimization(const std::string& key, const json& value) {
  const std::string name = value.is_string() ? value.get<std::string>() : "";
  if (name == "none") return GraphOptimization::kNone;
  if (name == "basic") return GraphOptimization::kBasic;
  if (name == "extended") return GraphOptimization::kExtended;
  if (name == "all") return GraphOptimization::kAll;
  throw Failure(VORN_ERROR_CONFIG, "'", key, "' is ", Shown(value),
                R"(; give "none", "basic", "extended" or "all")");
}

std::map<std::string, int64_t> Dims(const std::string& key, const json& value) {
  if (!value.is_object()) {
    throw Failure(VORN_ERROR_CONFIG, "'", key, "' is ", Shown(value),
                  R"(; give an object such as {"sequence": 128})");
  }
  std::map<std::string, int64_t> dims;
  for (const auto& [name, size] : value.items()) {
    dims[name] = IntegerInRange(key + "." + name, size, 1, INT32_MAX);
  }
  return dims;
}

json ParseJson(std::string_view text) {
  try {
    return json::parse(text);
  } catch (const json::exception& e) {
    throw Failure(VORN_ERROR_CONFIG, "the configuration is not JSON (", e.what(),
                  "); the smallest valid one is {}");
  }
}

}  // namespace

Config ParseConfig(std::string_view text) {
  const json root = ParseJson(text);
  if (!root.is_object()) {
    throw Failure(VORN_ERROR_CONFIG, "the configuration is ", Shown(root),
                  "; give a JSON object, at least {}");
  }
  Config config;
  for (const auto& [key, value] : root.items()) {
    if (key == "threads") {
      config.threads = static_cast<int>(IntegerInRange(key, value, 1, kMaxThreads));
    } else if (key == "rowAlignment") {
      config.rowAlignment = RowAlignment(key, value);
    } else if (key == "graphOptimization") {
      config.graphOptimization = Optimization(key, value);
    } else if (key == "dims") {
      config.dims = Dims(key, value);
    } else {
      throw Failure(VORN_ERROR_CONFIG, "key '", key,
                    "' is not known; the keys are threads, rowAlignment, graphOptimization, dims");
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
