// The tables of docs/host-runtime.md against the code that reads a configuration.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "host/common/failure.h"
#include "host/config/config.h"
#include "host/config/model_settings.h"

namespace vorn::host {
namespace {

/// A line of a table of keys.
struct Row {
  std::string key;
  std::string value;
  std::string otherwise;
  std::string example;
};

/// What stands between backticks, if that is the whole cell.
std::optional<std::string> Code(const std::string& cell) {
  if (cell.size() < 2 || cell.front() != '`' || cell.back() != '`') return std::nullopt;
  return cell.substr(1, cell.size() - 2);
}

std::vector<std::string> Cells(const std::string& line) {
  std::vector<std::string> cells;
  size_t from = 2;
  for (size_t bar = line.find(" |", from); bar != std::string::npos; bar = line.find(" |", from)) {
    cells.push_back(line.substr(from, bar - from));
    from = std::min(bar + 3, line.size());
  }
  return cells;
}

/// The rows of every table of keys, those of `model` apart from the others.
struct Tables {
  std::vector<Row> config;
  std::vector<Row> model;
};

Tables ReadTables() {
  Tables tables;
  std::ifstream file(VORN_HOST_RUNTIME_PAGE);
  EXPECT_TRUE(file.is_open());
  bool isInTable = false;
  bool isOfModel = false;
  for (std::string line; std::getline(file, line);) {
    if (line.rfind("### `model`", 0) == 0) isOfModel = true;
    if (line.rfind("| Key | Value |", 0) == 0) {
      isInTable = true;
    } else if (!line.starts_with("|")) {
      isInTable = false;
    } else if (isInTable && line.rfind("|---", 0) != 0) {
      const std::vector<std::string> cells = Cells(line);
      EXPECT_EQ(cells.size(), 4u) << line;
      if (cells.size() != 4) continue;
      const Row row = {Code(cells[0]).value_or(""), cells[1], cells[2], cells[3]};
      (isOfModel ? tables.model : tables.config).push_back(row);
    }
  }
  return tables;
}

std::vector<std::string> KeysOf(const std::vector<Row>& rows) {
  std::vector<std::string> keys;
  for (const Row& row : rows) keys.push_back(row.key);
  return keys;
}

std::string Json(const Row& row, const std::string& value) {
  return "{\"" + row.key + "\": " + value + "}";
}

template <typename Parse>
bool IsTaken(Parse&& parse, const std::string& json) {
  try {
    parse(json);
    return true;
  } catch (const Failure&) {
    return false;
  }
}

/// Examples are taken, what stands for a missing key changes nothing, ranges end where they say.
template <typename Parse>
void ExpectTrue(const std::vector<Row>& rows, Parse&& parse) {
  for (const Row& row : rows) {
    const auto example = Code(row.example);
    ASSERT_TRUE(example) << row.key;
    EXPECT_TRUE(IsTaken(parse, Json(row, *example))) << row.key;
    EXPECT_NE(parse(Json(row, *example)), parse("{}")) << row.key;
    if (const auto otherwise = Code(row.otherwise)) {
      EXPECT_EQ(parse(Json(row, *otherwise)), parse("{}")) << row.key;
    }
    std::smatch range;
    if (!std::regex_search(row.value, range, std::regex(R"((\d+)\.\.(\d+))"))) continue;
    const int64_t least = std::stoll(range[1]);
    const int64_t most = std::stoll(range[2]);
    for (const int64_t inside : {least, most}) {
      EXPECT_TRUE(IsTaken(parse, Json(row, std::to_string(inside)))) << row.key << ' ' << inside;
    }
    for (const int64_t outside : {least - 1, most + 1}) {
      EXPECT_FALSE(IsTaken(parse, Json(row, std::to_string(outside)))) << row.key << ' ' << outside;
    }
  }
}

TEST(HostRuntimePage, ListsEveryKeyAndNoOther) {
  const Tables tables = ReadTables();
  EXPECT_THAT(KeysOf(tables.config), testing::UnorderedElementsAreArray(ConfigKeys()));
  EXPECT_THAT(KeysOf(tables.model), testing::UnorderedElementsAreArray(ModelSettingsKeys()));
}

TEST(HostRuntimePage, SaysTrueThingsOfTheConfiguration) {
  ExpectTrue(ReadTables().config, [](const std::string& json) { return ParseConfig(json); });
}

TEST(HostRuntimePage, SaysTrueThingsOfModels) {
  ExpectTrue(ReadTables().model, [](const std::string& json) { return ParseModelSettings(json); });
}

}  // namespace
}  // namespace vorn::host
