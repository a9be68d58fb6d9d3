// JSON to ranges.
#include "host/config/ranges.h"

#define XXH_INLINE_ALL  // nothing to link with
#include <xxhash.h>

#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
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

/// A text of the object "model"; empty where it is none.
std::string TextOfModel(const json& root, const char* key) {
  const auto model = root.find("model");
  if (model == root.end() || !model->is_object()) return "";
  const auto text = model->find(key);
  return text == model->end() || !text->is_string() ? "" : text->get<std::string>();
}

std::string Xxh3Of(std::span<const std::byte> bytes) {
  const XXH128_hash_t hash = XXH3_128bits(bytes.data(), bytes.size());
  std::array<char, 33> digits{};
  std::snprintf(digits.data(), digits.size(), "%016llx%016llx",
                static_cast<unsigned long long>(hash.high64),
                static_cast<unsigned long long>(hash.low64));
  return digits.data();
}

// Where a path leads that says it only in part: all of it, since it is to be found by it.
std::string PlaceOf(const std::string& path) {
  constexpr size_t kLongestPath = 4096;
  std::error_code error;
  const std::filesystem::path meant = std::filesystem::absolute(path, error);
  if (error || path.starts_with('/')) return "";
  return "; from the folder that the program runs in it is '" +
         Excerpt(meant.lexically_normal().string(), kLongestPath) + "'";
}

}  // namespace

Range ReadRange(const std::string& key, const json& value) {
  const Range range = Checked(key, value);
  Range again;
  ReadKeys<Range>(value, key + ".", kRangeKeys, again);  // for keys that nobody knows
  return range;
}

MeasuredRanges ParseRanges(std::string_view what, std::string_view text) {
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
    return {.tensors = Named("tensors", root["tensors"], R"({"conv1": {"min": -1.5, "max": 3.2}})",
                             RangeInFile),
            .model = TextOfModel(root, "path"),
            .xxh3 = TextOfModel(root, "xxh3_128")};
  } catch (const Failure& e) {
    throw Failure(e.status(), what, ": ", e.what());
  }
}

MeasuredRanges ReadRangesFile(const std::string& path) {
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

std::string WhoseRanges(const std::string& path, const MeasuredRanges& ranges,
                        std::span<const std::byte> image) {
  if (ranges.xxh3.empty()) return "";
  const std::string own = Xxh3Of(image);
  if (own == ranges.xxh3) return "";
  return Join("the file of ranges '", Excerpt(path), "' was measured over another model, '",
              Excerpt(ranges.model), "' with the XXH3 ", Excerpt(ranges.xxh3),
              ", and this one has ", own,
              "; unless it is the same network, saved again, measure this one with vorn calibrate");
}

}  // namespace vorn::host
