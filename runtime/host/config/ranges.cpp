// JSON to ranges.
#include "host/config/ranges.h"

#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "host/common/excerpt.h"
#include "host/config/json_values.h"

namespace vorn::host {
namespace {

using nlohmann::json;

constexpr int64_t kSchema = 1;

double Bound(const std::string& key, const json& value) {
  if (value.is_number()) return value.get<double>();
  throw Failure(VORN_ERROR_CONFIG, "'", key, "' is ", Shown(value), "; give a number");
}

constexpr Key<Range> kRangeKeys[] = {
    {"min", [](Path path, Value value, Range& range) { range.min = Bound(path, value); }},
    {"max", [](Path path, Value value, Range& range) { range.max = Bound(path, value); }},
};

Range Checked(const std::string& key, const json& value) {
  if (!value.is_object() || !value.contains("min") || !value.contains("max")) {
    throw Failure(VORN_ERROR_CONFIG, "'", key, "' is ", Shown(value),
                  R"(; give the least and the largest value: {"min": -1.5, "max": 3.2})");
  }
  Range range;
  for (const Key<Range>& bound : kRangeKeys) {
    bound.read(key + "." + std::string(bound.name), value[bound.name], range);
  }
  if (range.min <= range.max) return range;
  throw Failure(VORN_ERROR_CONFIG, "'", key, "' is ", Shown(value),
                "; the least value is above the largest");
}

/// A tensor of a file, which may tell more of it.
Range RangeInFile(const std::string& key, const json& value) { return Checked(key, value); }

// Where a path leads that says it only in part.
std::string PlaceOf(const std::string& path) {
  std::error_code error;
  const std::filesystem::path meant = std::filesystem::absolute(path, error);
  if (error || path.starts_with('/')) return "";
  return "; from the folder that the program runs in it is '" +
         Excerpt(meant.lexically_normal().string()) + "'";
}

}  // namespace

Range ReadRange(const std::string& key, const json& value) {
  const Range range = Checked(key, value);
  Range again;
  ReadKeys<Range>(value, key + ".", kRangeKeys, again);  // for keys that nobody knows
  return range;
}

std::map<std::string, Range> ParseRanges(std::string_view what, std::string_view text) {
  const json root = ParseJsonObject(what, text);
  if (!root.contains("kind") || root["kind"] != "ranges" || !root.contains("tensors")) {
    throw Failure(VORN_ERROR_CONFIG, what, R"( holds no ranges ("kind": "ranges" and "tensors"); )",
                  "give a file that tells the ranges of tensors");
  }
  if (!root.contains("schema") || root["schema"] != kSchema) {
    throw Failure(VORN_ERROR_CONFIG, what, " has another schema than ", kSchema,
                  ", which is the one that is known here");
  }
  try {
    return Named("tensors", root["tensors"], R"({"conv1": {"min": -1.5, "max": 3.2}})",
                 RangeInFile);
  } catch (const Failure& e) {
    throw Failure(e.status(), what, ": ", e.what());
  }
}

std::map<std::string, Range> ReadRangesFile(const std::string& path) {
  const std::string what = "the file of ranges '" + Excerpt(path) + "'";
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  std::string text(kMaxJsonBytes + 1, '\0');
  if (file) file.read(text.data(), static_cast<std::streamsize>(text.size()));
  if (!file.is_open() || file.bad()) {
    throw Failure(VORN_ERROR_CONFIG, what, " cannot be read (", std::strerror(errno), ")",
                  PlaceOf(path), "; give the path of a JSON file");
  }
  text.resize(static_cast<size_t>(file.gcount()));
  return ParseRanges(what, text);
}

}  // namespace vorn::host
