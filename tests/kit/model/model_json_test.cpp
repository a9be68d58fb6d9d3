#include "kit/model/model_json.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/common/fault.h"
#include "vorn/vorn.h"

namespace vorn::kit {
namespace {

using testing::HasSubstr;

ModelDescription Small() {
  ModelDescription description;
  description.netType = VORN_NET_DETECTION;
  description.model = {.path = "model.om", .sizeBytes = 24, .xxh3 = "0a"};
  TensorDescription image;
  image.name = "image";
  image.shape = {1, 2, 3};
  image.type = VORN_INT16;
  image.elementBits = 16;
  image.format = VORN_FORMAT_NHWC;
  image.strideBytes = 8;
  image.deviceBytes = 16;
  TensorDescription bare;
  bare.name = "bare";
  description.inputs = {image, bare, bare};
  AssignRoles(description);
  return description;
}

constexpr const char* kSmallText = R"({
  "schema": 1,
  "model": {
    "path": "model.om",
    "sizeBytes": 24,
    "xxh3_128": "0a"
  },
  "netType": "detection",
  "netTypeCode": 1,
  "inputs": [
    {
      "index": 0,
      "name": "image",
      "role": "data",
      "shape": [
        1,
        2,
        3
      ],
      "type": "int16",
      "typeCode": 6,
      "elementBits": 16,
      "format": "NHWC",
      "formatCode": 1,
      "rows": 2,
      "rowBytes": 6,
      "strideBytes": 8,
      "denseBytes": 12,
      "deviceBytes": 16
    },
    {
      "index": 1,
      "name": "bare",
      "role": "task",
      "shape": []
    },
    {
      "index": 2,
      "name": "bare",
      "role": "work",
      "shape": []
    }
  ],
  "outputs": []
}
)";

TEST(ModelJson, SaysAllThatIsKnown) { EXPECT_EQ(ToJson(Small()), kSmallText); }

TEST(ModelJson, ComesBackAsItWas) {
  ModelDescription description = Small();
  description.configuration = FileIdentity{.path = "c.json", .sizeBytes = 2, .xxh3 = "1"};
  description.runtime = FileIdentity{.path = "/lib/libvorn.so", .sizeBytes = {}, .xxh3 = {}};
  description.outputs = {description.inputs[0]};
  AssignRoles(description);
  const std::string text = ToJson(description);
  const ModelDescription back = FromJson(text);
  EXPECT_EQ(ToJson(back), text);
  EXPECT_EQ(back.inputs[1].role, TensorRole::kTask);
  EXPECT_EQ(back.outputs[0].role, TensorRole::kOutput);
  EXPECT_EQ(back.inputs[1].type, std::nullopt);
  EXPECT_EQ(back.runtime->path, "/lib/libvorn.so");
}

TEST(ModelJson, KeepsNamesOfAnyCharacters) {
  ModelDescription description = Small();
  description.inputs[0].name = "a\"\n\x01:,\\ü";
  EXPECT_EQ(FromJson(ToJson(description)).inputs[0].name, description.inputs[0].name);
  description.inputs[0].name = "a\xFF";
  EXPECT_EQ(FromJson(ToJson(description)).inputs[0].name, "a\xEF\xBF\xBD");
}

TEST(ModelJson, ReadsWhatALaterVersionAdds) {
  std::string text = kSmallText;
  text.replace(text.find("\"schema\": 1"), 11, "\"schema\": 2, \"newer\": {\"key\": [1]}");
  EXPECT_EQ(ToJson(FromJson(text)), kSmallText);
}

void ExpectFault(const std::string& text, const std::string& reason) {
  try {
    (void)FromJson(text);
    ADD_FAILURE() << text;
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.Status(), ExitStatus::kModel);
    EXPECT_THAT(fault.what(), HasSubstr(reason));
  }
}

TEST(ModelJson, RefusesWhatIsNoDescription) {
  ExpectFault("", "this is no description of a model: ");
  ExpectFault("[]", "this is no description of a model: ");
  ExpectFault("{}", "'schema' is missing");
  ExpectFault(R"({"schema": 0})", "has schema 0, which never was; the first one is 1");
  ExpectFault(R"({"schema": "1"})", "expected a whole number, found a text");
  ExpectFault(R"({"schema": 1})", "'model' is missing");
  ExpectFault(R"({"schema": 1, "model": {"path": "m"}, "outputs": []})", "'inputs' is missing");
  ExpectFault(R"({"schema": 1, "model": {"path": "m"}, "inputs": [{}], "outputs": []})",
              "'name' is missing");
  ExpectFault(R"({"schema": 1, "model": {"path": "m"}, "inputs": [], "outputs": [],
                  "netTypeCode": 4294967296})",
              "'netTypeCode' is 4294967296, which is out of range");
}

}  // namespace
}  // namespace vorn::kit
