#include "host/config/config.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "host/config/json_values.h"
#include "runtime/host/refusal.h"
#include "support/files.h"

namespace vorn::host {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/// A reason that a person can read: one line, of a length that a terminal shows.
MATCHER(IsOneLine, "") { return !arg.empty() && arg.size() <= 400 && arg.find('\n') == arg.npos; }

std::string Nested(size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); }

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

TEST(ParseConfig, KeepsTheSectionOfAModelAsItWasWritten) {
  EXPECT_EQ(ParseConfig("{\"model\": {\"frames\": \"b\u00e4r\"}}").model,
            "{\"frames\":\"b\u00e4r\"}");
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
}

TEST(ParseConfig, RefusesWhatIsNestedTooDeep) {
  const std::string wholes[] = {Nested(200'000), std::string(200'000, '['),
                                R"({"threads": )" + Nested(200'000) + "}",
                                R"({"model": )" + Nested(200'000) + "}",
                                R"({"model": {"dims": {"n": )" + Nested(200'000) + "}}}"};
  for (const std::string& text : wholes) {
    EXPECT_THAT(Refusal(text), AllOf(HasSubstr("more than 16 deep"), IsOneLine()));
  }
  std::string objects;
  for (int i = 0; i < 100'000; ++i) objects += R"({"model":)";
  EXPECT_THAT(Refusal(objects), HasSubstr("more than 16 deep"));
}

TEST(ParseConfig, CountsNoBracketsInStrings) {
  const std::string name = R"(\"[[[[[[[[[[[[[[[[[[[[{{{{{{{{{{{{{{{{{{{{)";
  EXPECT_EQ(ParseConfig(R"({"dims": {")" + name + R"(": 2}})").dims.size(), 1u);
}

TEST(ParseConfig, RefusesAKeyThatIsGivenTwice) {
  EXPECT_THAT(Refusal(R"({"threads": 1, "probe": 2, "threads": 3})"),
              HasSubstr("gives 'threads' twice"));
  EXPECT_THAT(Refusal(R"({"model": {"dims": {"n": 1, "m": 1, "n": 1}}})"),
              HasSubstr("gives 'model.dims.n' twice"));
  EXPECT_EQ(ParseConfig(R"({"dims": {"n": 1}, "model": {"dims": {"n": 1}}})").dims.at("n"), 1);
}

TEST(ParseConfig, RefusesWhatIsNoText) {
  EXPECT_THAT(Refusal(std::string("{}\0{", 4)), HasSubstr("byte 2 is zero"));
  EXPECT_THAT(Refusal(std::string("{\"\0\": 1}", 8)), HasSubstr("byte 2 is zero"));
  EXPECT_THAT(Refusal(R"({"dims": {"a\u0000b": 1}})"), HasSubstr("'dims.a?b' holds a zero"));
  EXPECT_THAT(Refusal("{\"dims\": {\"\xff\": 1}}"),
              AllOf(HasSubstr("UTF-8"), Not(HasSubstr("\xff"))));
}

TEST(ParseConfig, QuotesLittleOfWhatIsLong) {
  const std::string a(300'000, 'a');
  const std::string nines(300'000, '9');
  const std::string texts[] = {
      "\"" + a,                                   // a string that does not end
      "{\"" + a + "\"",                           // an object that does not
      R"({")" + a + R"(": 1})",                   // a key
      R"({")" + a + R"(": 1, ")" + a + "\": 1}",  // twice
      R"({"graphOptimization": ")" + a + "\"}",
      R"({"dims": {")" + a + "\": 0}}",
      R"({"model": {"states": {")" + a + "\": 0}}}",
      R"({"threads": )" + nines + "}",
      R"({"threads": )" + nines + ".0}",
      R"({"threads": 0.)" + nines + "}",
      R"({"threads": -)" + nines + "}",
      a,
      std::string(300'000, '-'),
      std::string(300'000, '\n'),
      "{" + std::string(300'000, '\n'),
  };
  for (const std::string& text : texts) {
    EXPECT_THAT(Refusal(text), IsOneLine()) << text.substr(0, 40);
  }
}

TEST(ParseConfig, RefusesNumbersBeyondEveryType) {
  EXPECT_THAT(Refusal(R"({"threads": 1e999})"), HasSubstr("1e999"));
  EXPECT_THAT(Refusal(R"({"threads": 1e300})"), HasSubstr("'threads' is 1e+300"));
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

TEST(ParseConfig, SaysWhatWasWrongAndWhatToChange) {
  EXPECT_EQ(Refusal(R"({"rowAlignment": 3})"), "'rowAlignment' is 3; give a power of two");
  EXPECT_EQ(Refusal(R"({"thread": 1})"),
            "key 'thread' is not known; the keys are threads, rowAlignment, devices, memoryLimit, "
            "probe, graphOptimization, dims, outputTypes, model");
  EXPECT_EQ(Refusal(R"({"threads": 1, "threads": 3})"),
            "the configuration gives 'threads' twice; leave one");
  EXPECT_EQ(Refusal(R"({"dims": {"a\u0000b": 1}})"),
            "key 'dims.a?b' holds a zero character, which no name has");
  EXPECT_EQ(Refusal("{\"threads\": " + Nested(17) + "}"),
            "the configuration is nested more than 16 deep; no key takes a value like that");
  EXPECT_EQ(Refusal(std::string("{}\0{", 4)),
            "the configuration is not JSON (byte 2 is zero); the smallest valid one is {}");
}

TEST(ParseConfig, SaysWhatAKeyTakes) {
  EXPECT_EQ(Refusal(R"({"dims": [1]})"),
            "'dims' is [1]; give an object such as {\"sequence\": 128}");
  EXPECT_EQ(Refusal(R"({"outputTypes": "float"})"),
            "'outputTypes' is \"float\"; give \"presented\" or \"native\"");
  EXPECT_EQ(Refusal(R"({"graphOptimization": 3})"),
            "'graphOptimization' is 3; give \"none\", \"basic\", \"extended\" or \"all\"");
  EXPECT_EQ(Refusal(R"({"threads": 257})"), "'threads' is 257; give a whole number from 1 to 256");
  EXPECT_EQ(Refusal(R"({"dims": {"n": 0}})"),
            "'dims.n' is 0; give a whole number from 1 to 2147483647");
  EXPECT_EQ(Refusal(R"({"probe": 3601})"), "'probe' is 3601; give a whole number from 1 to 3600");
  EXPECT_EQ(Refusal(R"({"rowAlignment": 4097})"),
            "'rowAlignment' is 4097; give a whole number from 1 to 4096");
  EXPECT_EQ(Refusal(R"({"memoryLimit": 0})"),
            "'memoryLimit' is 0; give a whole number from 1 to 9223372036854775807");
  EXPECT_EQ(Refusal("[]"), "the configuration is []; give a JSON object, at least {}");
}

TEST(ParseConfig, QuotesTheParserWithoutItsNumbers) {
  EXPECT_THAT(Refusal("{"), StartsWith("the configuration is not JSON (parse error at line 1"));
  EXPECT_THAT(Refusal("{"), EndsWith("); the smallest valid one is {}"));
  EXPECT_THAT(Refusal(R"({"threads": 1e999})"),
              StartsWith("the configuration has a number that is too large (number overflow"));
}

TEST(ParseConfig, TakesATextOfTheGreatestLength) {
  std::string text = R"({"threads": 2})";
  text.resize(kMaxJsonBytes, ' ');
  EXPECT_EQ(ParseConfig(text).threads, 2);
  EXPECT_EQ(Refusal(text + " "), "the configuration is longer than 16777216 bytes");
}

TEST(ReadConfigFile, ReadsAFile) {
  const support::TempDir folder;
  const std::string path = folder.Path() / "host.json";
  support::WriteFile(path, "{\"threads\": 2}\n");
  EXPECT_EQ(ReadConfigFile(path.c_str()).threads, 2);
}

TEST(ReadConfigFile, RefusesWhatCannotBeReadByItsPath) {
  EXPECT_EQ(FileRefusal("/nowhere/vorn.json"),
            "the configuration file '/nowhere/vorn.json' cannot be read (No such file or "
            "directory); give the path of a JSON file");
  EXPECT_THAT(FileRefusal(testing::TempDir()), HasSubstr("cannot be read"));
  EXPECT_THAT(FileRefusal(""), HasSubstr("cannot be read"));
}

TEST(ReadConfigFile, RefusesAnEndlessFile) {
  EXPECT_EQ(FileRefusal("/dev/zero"),
            "the configuration file '/dev/zero' is longer than 1048576 bytes; give a JSON file of "
            "the runtime's settings");
}

TEST(ReadConfigFile, ReadsAFileOfTheGreatestLength) {
  const support::TempDir folder;
  const std::string path = folder.Path() / "host.json";
  std::string text = R"({"threads": 2})";
  text.resize(kMaxConfigBytes, ' ');
  support::WriteFile(path, text);
  EXPECT_EQ(ReadConfigFile(path.c_str()).threads, 2);
  support::WriteFile(path, text + " ");
  EXPECT_THAT(FileRefusal(path), HasSubstr("is longer than 1048576 bytes"));
}

}  // namespace
}  // namespace vorn::host
