// One object a tensor; a key whose value is not known is left out.
#include "kit/model/model_json.h"

#include <array>
#include <type_traits>
#include <utility>

#include "kit/common/fault.h"
#include "kit/json/identity_json.h"
#include "kit/json/json.h"

namespace vorn::kit {
namespace {

constexpr int kSchema = 1;

template <typename Value>
void Put(Json& object, const char* key, const std::optional<Value>& value) {
  if (value) object.Set(key, *value);
}

template <typename Value>
void Take(const Json& object, const char* key, std::optional<Value>& value) {
  const Json* found = object.Find(key);
  if (found == nullptr) return;
  const auto number = [&] {
    if constexpr (std::is_signed_v<Value>) {
      return found->AsSigned();
    } else {
      return found->AsUnsigned();
    }
  }();
  if (!std::in_range<Value>(number)) {
    throw JsonError("'" + std::string(key) + "' is " + std::to_string(number) +
                    ", which is out of range");
  }
  value = static_cast<Value>(number);
}

Json FromTensor(const TensorDescription& tensor, size_t index) {
  Json object = Json::Object({{"index", index},
                              {"name", tensor.name},
                              {"role", RoleName(tensor.role)},
                              {"shape", Json::ArrayOf(tensor.shape)}});
  if (tensor.type) object.Set("type", TypeName(*tensor.type));
  Put(object, "typeCode", tensor.type);
  Put(object, "elementBits", tensor.elementBits);
  if (tensor.format) object.Set("format", FormatName(*tensor.format));
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
  tensor.name = object.At("name").AsText();
  for (const Json& dim : object.At("shape").Items()) tensor.shape.push_back(dim.AsSigned());
  Take(object, "typeCode", tensor.type);
  Take(object, "elementBits", tensor.elementBits);
  Take(object, "formatCode", tensor.format);
  Take(object, "strideBytes", tensor.strideBytes);
  Take(object, "deviceBytes", tensor.deviceBytes);
  const std::string& role = object.At("role").AsText();
  constexpr std::array kRoles{TensorRole::kData, TensorRole::kThresholds, TensorRole::kTask,
                              TensorRole::kWork, TensorRole::kOutput};
  for (const TensorRole known : kRoles) {
    if (role == RoleName(known)) tensor.role = known;
  }
  return tensor;
}

Json FromTensors(const std::vector<TensorDescription>& tensors) {
  Json array = Json::Array();
  for (size_t i = 0; i < tensors.size(); ++i) array.Append(FromTensor(tensors[i], i));
  return array;
}

std::vector<TensorDescription> ToTensors(const Json& array) {
  std::vector<TensorDescription> tensors;
  for (const Json& object : array.Items()) tensors.push_back(ToTensor(object));
  return tensors;
}

}  // namespace

std::string ToJson(const ModelDescription& description) {
  Json object = Json::Object({{"schema", kSchema}, {"model", FromIdentity(description.model)}});
  if (description.configuration) {
    object.Set("configuration", FromIdentity(*description.configuration));
  }
  if (description.runtime) object.Set("runtime", FromIdentity(*description.runtime));
  if (description.netType) object.Set("netType", NetTypeName(*description.netType));
  Put(object, "netTypeCode", description.netType);
  object.Set("inputs", FromTensors(description.inputs));
  object.Set("outputs", FromTensors(description.outputs));
  constexpr int kIndent = 2;
  return ToText(object, kIndent) + "\n";
}

ModelDescription FromJson(const std::string& text) {
  try {
    const Json object = ParseJson(text);
    const int64_t schema = object.At("schema").AsSigned();
    if (schema < kSchema) {
      throw Fault(ExitStatus::kModel, "the description has schema " + std::to_string(schema) +
                                          ", which never was; the first one is 1");
    }
    ModelDescription description;
    description.model = ToIdentity(object.At("model"));
    if (const Json* configuration = object.Find("configuration")) {
      description.configuration = ToIdentity(*configuration);
    }
    if (const Json* runtime = object.Find("runtime")) description.runtime = ToIdentity(*runtime);
    Take(object, "netTypeCode", description.netType);
    description.inputs = ToTensors(object.At("inputs"));
    description.outputs = ToTensors(object.At("outputs"));
    return description;
  } catch (const JsonError& error) {
    throw Fault(ExitStatus::kModel,
                "this is no description of a model: " + std::string(error.what()));
  }
}

}  // namespace vorn::kit
