#include "support/json_schema.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <regex>
#include <stdexcept>

#include "support/files.h"

namespace support {
namespace {

using Json = nlohmann::json;

class Validator {
 public:
  explicit Validator(const Json& root) : root_(root) {}

  [[nodiscard]] std::string Check(const Json& schema, const Json& value,
                                  const std::string& at) const {
    for (const auto& [keyword, rule] : schema.items()) {
      const std::string fault = CheckKeyword(schema, keyword, rule, value, at);
      if (!fault.empty()) return fault;
    }
    return "";
  }

 private:
  std::string CheckKeyword(const Json& schema, const std::string& keyword, const Json& rule,
                           const Json& value, const std::string& at) const {
    if (keyword == "$schema" || keyword == "$defs" || keyword == "title" ||
        keyword == "description") {
      return "";
    }
    if (keyword == "$ref") {
      return Check(root_.at(Json::json_pointer(rule.get<std::string>().substr(1))), value, at);
    }
    if (keyword == "type") return IsOfType(rule, value) ? "" : at + " is no " + rule.dump();
    if (keyword == "enum") {
      for (const Json& known : rule) {
        if (known == value) return "";
      }
      return at + " is none of " + rule.dump();
    }
    if (keyword == "minimum") return value < rule ? at + " is below " + rule.dump() : "";
    if (keyword == "maximum") return value > rule ? at + " is above " + rule.dump() : "";
    if (keyword == "pattern") {
      const std::regex pattern(rule.get<std::string>());
      return std::regex_search(value.get<std::string>(), pattern) ? ""
                                                                  : at + " is no " + rule.dump();
    }
    if (keyword == "items") {
      for (size_t i = 0; i < value.size(); ++i) {
        std::string fault = Check(rule, value[i], at + "/" + std::to_string(i));
        if (!fault.empty()) return fault;
      }
      return "";
    }
    if (keyword == "required") {
      for (const Json& key : rule) {
        if (!value.contains(key.get<std::string>())) return at + " has no " + key.dump();
      }
      return "";
    }
    if (keyword == "properties" || keyword == "additionalProperties") {
      return CheckMembers(schema, value, at);
    }
    throw std::runtime_error("this keyword is not known: " + keyword);
  }

  std::string CheckMembers(const Json& schema, const Json& value, const std::string& at) const {
    for (const auto& [key, member] : value.items()) {
      const std::string place = at + "/" + key;
      const Json* rule = nullptr;
      if (schema.contains("properties") && schema["properties"].contains(key)) {
        rule = &schema["properties"][key];
      } else if (schema.contains("additionalProperties")) {
        rule = &schema["additionalProperties"];
      }
      if (rule == nullptr) return place + " is not in the schema";
      std::string fault = Check(*rule, member, place);
      if (!fault.empty()) return fault;
    }
    return "";
  }

  static bool IsOfType(const Json& type, const Json& value) {
    if (type.is_array()) {
      return std::any_of(type.begin(), type.end(),
                         [&](const Json& one) { return IsOfType(one, value); });
    }
    if (type == "object") return value.is_object();
    if (type == "array") return value.is_array();
    if (type == "boolean") return value.is_boolean();
    if (type == "string") return value.is_string();
    if (type == "boolean") return value.is_boolean();
    if (type == "integer") return value.is_number_integer();
    if (type == "number") return value.is_number();
    if (type == "null") return value.is_null();
    throw std::runtime_error("this type is not known: " + type.dump());
  }

  const Json& root_;
};

}  // namespace

std::string FaultBySchema(const std::string& schema, const std::string& text) {
  const Json root = Json::parse(ReadFile(VORN_SCHEMA_FOLDER "/" + schema + ".json"));
  const Json value = Json::parse(text, nullptr, false);
  if (value.is_discarded()) return "this is no JSON";
  return Validator(root).Check(root, value, schema);
}

}  // namespace support
