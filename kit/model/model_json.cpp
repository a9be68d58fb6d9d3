// One object a tensor; a key whose value is not known is left out.
#include "kit/model/model_json.h"

#include <array>
#include <nlohmann/json.hpp>
#include <utility>

#include "kit/common/fault.h"

namespace vorn::kit {
namespace {

using Json = nlohmann::ordered_json;

constexpr int kSchema = 1;

// Everything that recurs here is data of the same shape in both directions.
template <typename Value>
void Put(Json& object, const char* key, const std::optional<Value>& value) {
  if (value) object[key] = *value;
}

template <typename Value>
void Take(const Json& object, const char* key, std::optional<Value>& value) {
  if (const auto found = object.find(key); found != object.end()) value = found->get<Value>();
}

Json FromIdentity(const FileIdentity& file) {
  Json object{{"path", file.path}};
  Put(object, "sizeBytes", file.sizeBytes);
  Put(object, "xxh3_128", file.xxh3);
  return object;
}

FileIdentity ToIdentity(const Json& object) {
  FileIdentity file;
  file.path = object.at("path").get<std::string>();
  Take(object, "sizeBytes", file.sizeBytes);
  Take(object, "xxh3_128", file.xxh3);
  return file;
}

Json FromTensor(const TensorDescription& tensor, size_t index) {
  Json object{{"index", index},
              {"name", tensor.name},
              {"role", RoleName(tensor.role)},
              {"shape", tensor.shape}};
  if (tensor.type) object["type"] = TypeName(*tensor.type);
  Put(object, "typeCode", tensor.type);
  Put(object, "elementBits", tensor.elementBits);
  if (tensor.format) object["format"] = FormatName(*tensor.format);
  Put(object, "formatCode", tensor.format);
  Put(object, "rows", tensor.Rows());
  Put(object, "rowBytes", tensor.RowBytes());
  Put(object, "strideBytes", tensor.strideBytes);
  Put(object, "denseBytes", tensor.DenseBytes());
  Put(object, "deviceBytes", tensor.deviceBytes);
  return object;
}

// Names, rows and dense sizes follow from the rest and are for other readers.
TensorDescription ToTensor(const Json& object) {
  TensorDescription tensor;
  tensor.name = object.at("name").get<std::string>();
  tensor.shape = object.at("shape").get<std::vector<int64_t>>();
  Take(object, "typeCode", tensor.type);
  Take(object, "elementBits", tensor.elementBits);
  Take(object, "formatCode", tensor.format);
  Take(object, "strideBytes", tensor.strideBytes);
  Take(object, "deviceBytes", tensor.deviceBytes);
  const auto role = object.at("role").get<std::string>();
  constexpr std::array kRoles{TensorRole::kData, TensorRole::kThresholds, TensorRole::kTask,
                              TensorRole::kWork, TensorRole::kOutput};
  for (const TensorRole known : kRoles) {
    if (role == RoleName(known)) tensor.role = known;
  }
  return tensor;
}

Json FromTensors(const std::vector<TensorDescription>& tensors) {
  Json array = Json::array();
  for (size_t i = 0; i < tensors.size(); ++i) array.push_back(FromTensor(tensors[i], i));
  return array;
}

std::vector<TensorDescription> ToTensors(const Json& array) {
  std::vector<TensorDescription> tensors;
  for (const Json& object : array) tensors.push_back(ToTensor(object));
  return tensors;
}

}  // namespace

std::string ToJson(const ModelDescription& description) {
  Json object{{"schema", kSchema}, {"model", FromIdentity(description.model)}};
  if (description.configuration) {
    object["configuration"] = FromIdentity(*description.configuration);
  }
  if (description.runtime) object["runtime"] = FromIdentity(*description.runtime);
  if (description.netType) object["netType"] = NetTypeName(*description.netType);
  Put(object, "netTypeCode", description.netType);
  object["inputs"] = FromTensors(description.inputs);
  object["outputs"] = FromTensors(description.outputs);
  constexpr int kIndent = 2;
  return object.dump(kIndent, ' ', false, Json::error_handler_t::replace) + "\n";
}

ModelDescription FromJson(const std::string& text) {
  try {
    const Json object = Json::parse(text);
    const int schema = object.at("schema").get<int>();
    if (schema < kSchema) {
      throw Fault(ExitStatus::kModel, "the description has schema " + std::to_string(schema) +
                                          ", which never was; the first one is 1");
    }
    ModelDescription description;
    description.model = ToIdentity(object.at("model"));
    if (object.contains("configuration")) {
      description.configuration = ToIdentity(object.at("configuration"));
    }
    if (object.contains("runtime")) description.runtime = ToIdentity(object.at("runtime"));
    Take(object, "netTypeCode", description.netType);
    description.inputs = ToTensors(object.at("inputs"));
    description.outputs = ToTensors(object.at("outputs"));
    return description;
  } catch (const Json::exception& error) {
    throw Fault(ExitStatus::kModel,
                "this is no description of a model: " + std::string(error.what()));
  }
}

}  // namespace vorn::kit
