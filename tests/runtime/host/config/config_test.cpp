#include "host/config/config.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "runtime/host/refusal.h"
#include "support/files.h"

namespace vorn::host {
namespace {

using testing::HasSubstr;

/// The reason why the text is refused; empty if it is not.
std::string Refusal(const std::string& text) {
  return ReasonOf(VORN_ERROR_CONFIG, [&] { ParseConfig(text); });
}

std::string FileRefusal(const std::string& path) {
  return ReasonOf(VORN_ERROR_CONFIG, [&] { ReadConfigFile(path.c_str()); });
}

TEST(ParseConfig, TakesAnEmptyObject) {
  const Config config = ParseConfig("{}");
  EXPECT_EQ(config.threads, 1);
  EXPECT_EQ(config.rowAlignment, 16u);
  EXPECT_EQ(config.devices, 1);
  EXPECT_FALSE(config.memoryLimit);
  EXPECT_EQ(config.probeSeconds, 0u);
  EXPECT_EQ(config.graphOptimization, GraphOptimization::kAll);
  EXPECT_TRUE(config.dims.empty());
  EXPECT_EQ(config.outputTypes, OutputTypes::kPresented);
  EXPECT_EQ(config.model, "{}");
}

TEST(ParseConfig, TakesEveryKey) {
  const Config config =
      ParseConfig(R"({"threads": 3, "rowAlignment": 64, "devices": 64, "memoryLimit": 5000000000,
    "probe": 7,
    "graphOptimization": "basic", "dims": {"sequence": 128, "": 2}, "outputTypes": "native",
    "model": {"netType": "recurrent"}})");
  EXPECT_EQ(config.outputTypes, OutputTypes::kNative);
  EXPECT_EQ(config.model, R"({"netType":"recurrent"})");
  EXPECT_EQ(config.threads, 3);
  EXPECT_EQ(config.rowAlignment, 64u);
  EXPECT_EQ(config.devices, 64);
  EXPECT_EQ(config.memoryLimit, 5'000'000'000u);
  EXPECT_EQ(config.probeSeconds, 7u);
  EXPECT_EQ(config.graphOptimization, GraphOptimization::kBasic);
  EXPECT_EQ(config.dims, (std::map<std::string, int64_t>{{"", 2}, {"sequence", 128}}));
}

TEST(ParseConfig, RefusesLimitsThatAreNone) {
  EXPECT_THAT(Refusal(R"({"devices": 0})"), HasSubstr("'devices' is 0"));
  EXPECT_THAT(Refusal(R"({"devices": 65})"), HasSubstr("from 1 to 64"));
  EXPECT_THAT(Refusal(R"({"probe": 0})"), HasSubstr("'probe' is 0"));
  EXPECT_THAT(Refusal(R"({"memoryLimit": 0})"), HasSubstr("'memoryLimit' is 0"));
  EXPECT_THAT(Refusal(R"({"memoryLimit": "1G"})"), HasSubstr("'memoryLimit'"));
}

TEST(ParseConfig, TakesEveryOptimization) {
  const std::pair<const char*, GraphOptimization> levels[] = {
      {"none", GraphOptimization::kNone},
      {"basic", GraphOptimization::kBasic},
      {"extended", GraphOptimization::kExtended},
      {"all", GraphOptimization::kAll}};
  for (const auto& [name, level] : levels) {
    const std::string text = std::string(R"({"graphOptimization": ")") + name + "\"}";
    EXPECT_EQ(ParseConfig(text).graphOptimization, level);
  }
}

TEST(ParseConfig, TakesTheLimits) {
  EXPECT_EQ(ParseConfig(R"({"threads": 256})").threads, 256);
  EXPECT_EQ(ParseConfig(R"({"rowAlignment": 1})").rowAlignment, 1u);
  EXPECT_EQ(ParseConfig(R"({"rowAlignment": 4096})").rowAlignment, 4096u);
}

TEST(ParseConfig, RefusesWhatIsNoObject) {
  EXPECT_THAT(Refusal(""), HasSubstr("not JSON"));
  EXPECT_THAT(Refusal("{"), HasSubstr("not JSON"));
  EXPECT_THAT(Refusal("{} {}"), HasSubstr("not JSON"));
  EXPECT_THAT(Refusal("[]"), HasSubstr("give a JSON object"));
  EXPECT_THAT(Refusal("7"), HasSubstr("give a JSON object"));
  EXPECT_THAT(Refusal(std::string(200000, '[')), HasSubstr("not JSON"));
}

TEST(ParseConfig, RefusesAnUnknownKeyByName) {
  EXPECT_THAT(Refusal(R"({"thread": 1})"), HasSubstr("'thread'"));
}

TEST(ParseConfig, RefusesWrongValuesByKey) {
  for (const char* value : {"0", "-1", "1.5", "\"1\"", "true", "null", "[]", "18446744073709551615",
                            "-9223372036854775808"}) {
    EXPECT_THAT(Refusal(std::string(R"({"threads": )") + value + "}"), HasSubstr("'threads'"))
        << value;
    EXPECT_THAT(Refusal(std::string(R"({"dims": {"n": )") + value + "}}"), HasSubstr("'dims.n'"))
        << value;
  }
  EXPECT_THAT(Refusal(R"({"threads": 257})"), HasSubstr("from 1 to 256"));
  for (const char* value : {"0", "3", "8192", "\"16\"", "-16"}) {
    EXPECT_THAT(Refusal(std::string(R"({"rowAlignment": )") + value + "}"),
                HasSubstr("'rowAlignment'"))
        << value;
  }
  for (const char* value : {"\"most\"", "3", "null"}) {
    EXPECT_THAT(Refusal(std::string(R"({"graphOptimization": )") + value + "}"),
                HasSubstr("'graphOptimization'"))
        << value;
  }
  EXPECT_THAT(Refusal(R"({"dims": [1]})"), HasSubstr("'dims'"));
  EXPECT_THAT(Refusal(R"({"outputTypes": "float"})"), HasSubstr("\"presented\" or \"native\""));
  EXPECT_THAT(Refusal(R"({"model": []})"), HasSubstr("'model'"));
  EXPECT_THAT(Refusal(R"({"model": {"maxFrames": 0}})"), HasSubstr("'model.maxFrames'"));
}

TEST(ReadConfigFile, ReadsAFile) {
  const support::TempDir folder;
  const std::string path = folder.Path() / "host.json";
  support::WriteFile(path, "{\"threads\": 2}\n");
  EXPECT_EQ(ReadConfigFile(path.c_str()).threads, 2);
}

TEST(ReadConfigFile, RefusesWhatCannotBeReadByItsPath) {
  EXPECT_THAT(FileRefusal("/nowhere/vorn.json"), HasSubstr("/nowhere/vorn.json"));
  EXPECT_THAT(FileRefusal(testing::TempDir()), HasSubstr("cannot be read"));
  EXPECT_THAT(FileRefusal(""), HasSubstr("cannot be read"));
}

TEST(ReadConfigFile, RefusesAnEndlessFile) {
  EXPECT_THAT(FileRefusal("/dev/zero"), HasSubstr("longer than"));
}

}  // namespace
}  // namespace vorn::host
