// JSON to the settings of a model.
#include "host/config/model_settings.h"

#include "host/config/json_values.h"
#include "host/config/ranges.h"

namespace vorn::host {
namespace {

using nlohmann::json;

int64_t DimOrNone(const std::string& key, const json& value) {
  return IntegerInRange(key, value, 0, kLargestDim);
}

/// kDimOfModel is the number before the sizes, so all of them are one range.
int64_t DimOrModels(const std::string& key, const json& value) {
  return IntegerInRange(key, value, kDimOfModel, kLargestDim);
}

template <typename Read>
auto List(const std::string& key, const json& value, const char* example, Read&& read) {
  if (!value.is_array()) {
    throw Failure(VORN_ERROR_CONFIG, "'", key, "' is ", Shown(value), "; give a list such as ",
                  example);
  }
  std::vector<decltype(read(key, value))> list;
  for (const json& member : value) list.push_back(read(key, member));
  return list;
}

Shape InputShape(const std::string& key, const json& value) {
  return List(key, value, "[-1, 3, 224, 224]", DimOrModels);
}

Shape OutputShape(const std::string& key, const json& value) {
  return List(key, value, "[100, 4]", DimOrNone);
}

std::vector<std::string> TextOrTexts(const std::string& key, const json& value) {
  if (value.is_array()) return List(key, value, R"(["name"])", Text);
  return {Text(key, value)};
}

Number ReadNumber(const std::string& key, const json& value) {
  if (value.is_boolean()) {
    const int bit = value.get<bool>() ? 1 : 0;
    return {.real = static_cast<double>(bit), .whole = bit};
  }
  if (value.is_number_integer()) {
    const int64_t whole = IntegerInRange(key, value, INT64_MIN, INT64_MAX);
    return {.real = static_cast<double>(whole), .whole = whole};
  }
  if (value.is_number_float()) return {.real = value.get<double>(), .isWhole = false};
  throw Failure(VORN_ERROR_CONFIG, "'", key, "' is ", Shown(value),
                "; give a number or a list of numbers");
}

std::vector<Number> NumberOrNumbers(const std::string& key, const json& value) {
  if (value.is_array()) return List(key, value, "[1, 2]", ReadNumber);
  return {ReadNumber(key, value)};
}

void ReadExpose(const std::string& key, const json& value, ModelSettings& settings) {
  settings.exposeAll = value == "all";
  settings.expose = settings.exposeAll ? std::vector<std::string>() : TextOrTexts(key, value);
}

constexpr const char* kRoundings =
    R"("float16", "bfloat16" or {"int8": ranges}, with the ranges or the path of a file of them)";

void ReadInt8(const std::string& key, const json& value, ModelSettings& settings) {
  if (value.is_string()) {
    settings.rangesFile = Text(key, value);
  } else {
    settings.ranges = Named(key, value, R"({"conv1": {"min": -1.5, "max": 3.2}})", ReadRange);
  }
}

void ReadFuse(const std::string& key, const json& value, ModelSettings& settings) {
  if (!value.is_boolean()) {
    throw Failure(VORN_ERROR_CONFIG, "'", key, "' is ", Shown(value), "; give true or false");
  }
  settings.isFused = value.get<bool>();
}

constexpr Key<ModelSettings> kRoundKeys[] = {{"int8", ReadInt8}, {"fuse", ReadFuse}};

void ReadRound(const std::string& key, const json& value, ModelSettings& settings) {
  settings.ranges.clear();
  settings.rangesFile.clear();
  settings.isFused = true;
  settings.round = Rounding::kToInt8;
  // Of another key alone it is said that nobody knows it.
  const bool isOther = value.is_object() && value.size() == 1 && !value.contains("fuse");
  if (isOther || (value.is_object() && value.contains("int8"))) {
    return ReadKeys<ModelSettings>(value, key + ".", kRoundKeys, settings);
  }
  if (value != "float16" && value != "bfloat16") {
    throw Failure(VORN_ERROR_CONFIG, "'", key, "' is ", Shown(value), "; give ", kRoundings);
  }
  settings.round = value == "float16" ? Rounding::kToFloat16 : Rounding::kToBfloat16;
}

constexpr Key<ModelSettings> kModelKeys[] = {
    {"netType",
     [](Path path, Value value, ModelSettings& settings) {
       settings.netType = OneOf<vorn_net_type>(path, value,
                                               {{"feedForward", VORN_NET_FEED_FORWARD},
                                                {"detection", VORN_NET_DETECTION},
                                                {"recurrent", VORN_NET_RECURRENT}});
     }},
    {"dims",
     [](Path path, Value value, ModelSettings& settings) {
       settings.dims = Named(path, value, R"({"sequence": 128})", Dim);
     }},
    {"inputDims",
     [](Path path, Value value, ModelSettings& settings) {
       settings.inputDims = Named(path, value, R"({"image": [-1, 3, 224, 224]})", InputShape);
     }},
    {"outputDims",
     [](Path path, Value value, ModelSettings& settings) {
       settings.outputDims = Named(path, value, R"({"boxes": [100, 4]})", OutputShape);
     }},
    {"constants",
     [](Path path, Value value, ModelSettings& settings) {
       settings.constants = Named(path, value, R"({"rate": 16000})", NumberOrNumbers);
     }},
    {"rpn", [](Path path, Value value,
               ModelSettings& settings) { settings.rpn = TextOrTexts(path, value); }},
    {"sequence",
     [](Path path, Value value, ModelSettings& settings) {
       settings.sequence =
           OneOf<Sequence>(path, value, {{"whole", Sequence::kWhole}, {"steps", Sequence::kSteps}});
     }},
    {"maxFrames", [](Path path, Value value,
                     ModelSettings& settings) { settings.maxFrames = Dim(path, value); }},
    {"frames",
     [](Path path, Value value, ModelSettings& settings) { settings.frames = Text(path, value); }},
    {"flags",
     [](Path path, Value value, ModelSettings& settings) { settings.flags = Text(path, value); }},
    {"length",
     [](Path path, Value value, ModelSettings& settings) { settings.length = Text(path, value); }},
    {"timeAxis",
     [](Path path, Value value, ModelSettings& settings) {
       settings.timeAxis = IntegerInRange(path, value, 0, VORN_MAX_DIMS - 1);
     }},
    {"context",
     [](Path path, Value value, ModelSettings& settings) {
       settings.context = IntegerInRange(path, value, 0, kLargestDim);
     }},
    {"states",
     [](Path path, Value value, ModelSettings& settings) {
       settings.states = Named(path, value, R"({"hidden": "hiddenOut"})", Text);
     }},
    {"expose", ReadExpose},
    {"until", [](Path path, Value value,
                 ModelSettings& settings) { settings.until = TextOrTexts(path, value); }},
    {"round", ReadRound},
};

}  // namespace

ModelSettings ParseModelSettings(std::string_view text, ModelSettings base) {
  ReadKeys<ModelSettings>(ParseJsonObject("'model'", text), "model.", kModelKeys, base);
  return base;
}

std::vector<std::string_view> ModelSettingsKeys() { return NamesOf<ModelSettings>(kModelKeys); }

}  // namespace vorn::host
