#include "kit/json/json.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>

#include "kit/common/printable.h"

namespace vorn::kit {
namespace {

constexpr size_t kMostDepth = 64;

constexpr const char* kNan = "NaN";
constexpr const char* kInfinity = "Infinity";
constexpr const char* kMinusInfinity = "-Infinity";

// "[json.exception.parse_error.101] parse error at line 1, column 9: syntax error while …"
std::string OwnWords(std::string_view message) {
  if (const size_t end = message.find("] "); end != message.npos) message.remove_prefix(end + 2);
  if (const size_t end = message.find(": "); end != message.npos) message.remove_prefix(end + 2);
  return PrintableExcerpt(message);
}

// Builds the value from what the library's parser meets, with a stack of its own.
class Builder : public nlohmann::json_sax<nlohmann::json> {
 public:
  Json Take() { return std::move(root_); }

  bool null() override { return Put(nullptr); }
  bool boolean(bool value) override { return Put(value); }
  bool number_integer(int64_t value) override { return Put(value); }
  bool number_unsigned(uint64_t value) override { return Put(value); }
  bool number_float(double value, const std::string& /*text*/) override { return Put(value); }
  bool string(std::string& value) override { return Put(std::move(value)); }
  bool binary(nlohmann::json::binary_t& /*value*/) override { return false; }
  bool start_object(size_t /*size*/) override { return Open(false); }
  bool start_array(size_t /*size*/) override { return Open(true); }
  bool end_array() override { return Close(); }

  bool key(std::string& name) override {
    open_.back().key = std::move(name);
    return true;
  }

  bool end_object() override {
    std::vector<std::string_view> keys;
    for (const Json::Member& member : open_.back().members) keys.emplace_back(member.first);
    std::sort(keys.begin(), keys.end());
    if (const auto twice = std::adjacent_find(keys.begin(), keys.end()); twice != keys.end()) {
      throw JsonError("the key '" + PrintableExcerpt(*twice) + "' stands twice in an object");
    }
    return Close();
  }

  bool parse_error(size_t position, const std::string& /*token*/,
                   const nlohmann::json::exception& error) override {
    throw JsonError("at byte " + std::to_string(position) + ": " + OwnWords(error.what()));
  }

 private:
  struct Level {
    bool isArray = false;
    std::string key;  // of the member that comes next
    std::vector<Json> items;
    std::vector<Json::Member> members;
  };

  bool Put(Json value) {
    if (open_.empty()) {
      root_ = std::move(value);
    } else if (Level& level = open_.back(); level.isArray) {
      level.items.push_back(std::move(value));
    } else {
      level.members.emplace_back(std::move(level.key), std::move(value));
    }
    return true;
  }

  bool Open(bool isArray) {
    if (open_.size() == kMostDepth) {
      throw JsonError("more than " + std::to_string(kMostDepth) + " brackets within each other");
    }
    open_.push_back({.isArray = isArray, .key = {}, .items = {}, .members = {}});
    return true;
  }

  bool Close();

  Json root_;
  std::vector<Level> open_;
};

}  // namespace

/// Knows what is in a value, for who prints it and who read it.
class JsonAccess {
 public:
  static Json FromItems(std::vector<Json> items) {
    Json value;
    value.value_ = std::move(items);
    return value;
  }

  static Json FromMembers(std::vector<Json::Member> members) {
    Json value;
    value.value_ = std::move(members);
    return value;
  }

  template <typename Visit>
  static void Look(const Json& value, const Visit& visit) {
    std::visit(visit, value.value_);
  }
};

namespace {

// Prints the value itself, as the library would what had to be copied for it first: most of the
// time that many lines of JSON take went into the copy.
class Printer {
 public:
  explicit Printer(int indent) : indent_(static_cast<size_t>(indent)) {}

  std::string Take() { return std::move(text_); }

  void Put(const Json& value) {
    JsonAccess::Look(value, [&](const auto& kind) { PutKind(kind); });
  }

 private:
  void PutKind(std::nullptr_t) { text_ += "null"; }
  void PutKind(bool value) { text_ += value ? "true" : "false"; }
  void PutKind(int64_t value) { PutDigits(value); }
  void PutKind(uint64_t value) { PutDigits(value); }

  void PutKind(double value) {
    if (std::isnan(value)) return PutKind(std::string(kNan));
    if (std::isinf(value)) return PutKind(std::string(value > 0 ? kInfinity : kMinusInfinity));
    std::array<char, 64> digits{};
    const char* end =
        nlohmann::detail::to_chars(digits.data(), digits.data() + digits.size(), value);
    text_.append(digits.data(), static_cast<size_t>(end - digits.data()));
  }

  void PutKind(const std::string& value) {
    const bool isPlain = std::all_of(value.begin(), value.end(), [](char c) {
      return c >= ' ' && c <= '~' && c != '"' && c != '\\';
    });
    if (isPlain) {
      text_ += '"';
      text_ += value;
      text_ += '"';
    } else {
      text_ += nlohmann::json(value).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    }
  }

  void PutKind(const std::vector<Json>& items) {
    PutAll('[', items, ']', [&](const Json& item) { Put(item); });
  }

  void PutKind(const std::vector<Json::Member>& members) {
    PutAll('{', members, '}', [&](const Json::Member& member) {
      PutKind(member.first);
      text_ += indent_ == 0 ? ":" : ": ";
      Put(member.second);
    });
  }

  template <typename Values, typename PutOne>
  void PutAll(char open, const Values& values, char close, PutOne putOne) {
    text_ += open;
    ++depth_;
    bool isFirst = true;
    for (const auto& value : values) {
      if (!isFirst) text_ += ',';
      isFirst = false;
      EndLine();
      putOne(value);
    }
    --depth_;
    if (!values.empty()) EndLine();
    text_ += close;
  }

  void EndLine() {
    if (indent_ == 0) return;
    text_ += '\n';
    text_.append(depth_ * indent_, ' ');
  }

  template <typename Whole>
  void PutDigits(Whole value) {
    std::array<char, 24> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value);
    text_.append(digits.data(), end.ptr);
  }

  size_t indent_;
  size_t depth_ = 0;
  std::string text_;
};

}  // namespace

bool Builder::Close() {
  Level level = std::move(open_.back());
  open_.pop_back();
  return Put(level.isArray ? JsonAccess::FromItems(std::move(level.items))
                           : JsonAccess::FromMembers(std::move(level.members)));
}

Json Json::Object(std::initializer_list<Member> members) {
  return JsonAccess::FromMembers(members);
}

Json Json::Array(std::initializer_list<Json> items) { return JsonAccess::FromItems(items); }

void Json::Set(std::string_view key, Json value) {
  auto& members = std::get<std::vector<Member>>(value_);
  const auto found = std::find_if(members.begin(), members.end(),
                                  [&](const Member& member) { return member.first == key; });
  if (found != members.end()) {
    found->second = std::move(value);
  } else {
    members.emplace_back(std::string(key), std::move(value));
  }
}

void Json::Append(Json item) { std::get<std::vector<Json>>(value_).push_back(std::move(item)); }

const Json* Json::Find(std::string_view key) const {
  const auto* members = std::get_if<std::vector<Member>>(&value_);
  if (members == nullptr) return nullptr;
  const auto found = std::find_if(members->begin(), members->end(),
                                  [&](const Member& member) { return member.first == key; });
  return found == members->end() ? nullptr : &found->second;
}

const Json& Json::At(std::string_view key) const {
  if (!IsObject()) throw JsonError("expected an object, found " + std::string(Kind()));
  if (const Json* value = Find(key)) return *value;
  throw JsonError("'" + std::string(key) + "' is missing");
}

const char* Json::Kind() const {
  if (IsNull()) return "null";
  if (IsBool()) return "a truth value";
  if (IsNumber()) return "a number";
  if (IsText()) return "a text";
  return IsArray() ? "an array" : "an object";
}

template <typename Kind>
const Kind& Json::As(const char* kind) const {
  if (const Kind* value = std::get_if<Kind>(&value_)) return *value;
  throw JsonError("expected " + std::string(kind) + ", found " + this->Kind());
}

bool Json::AsBool() const { return As<bool>("a truth value"); }

int64_t Json::AsSigned() const {
  if (const auto* value = std::get_if<uint64_t>(&value_)) {
    if (*value <= uint64_t{std::numeric_limits<int64_t>::max()}) {
      return static_cast<int64_t>(*value);
    }
    throw JsonError("the number " + std::to_string(*value) + " is too large");
  }
  return As<int64_t>("a whole number");
}

uint64_t Json::AsUnsigned() const {
  if (const auto* value = std::get_if<int64_t>(&value_)) {
    if (*value >= 0) return static_cast<uint64_t>(*value);
    throw JsonError("the number " + std::to_string(*value) + " is negative");
  }
  return As<uint64_t>("a whole number");
}

double Json::AsNumber() const {
  if (const auto* value = std::get_if<int64_t>(&value_)) return static_cast<double>(*value);
  if (const auto* value = std::get_if<uint64_t>(&value_)) return static_cast<double>(*value);
  if (const auto* text = std::get_if<std::string>(&value_)) {
    if (*text == kNan) return std::numeric_limits<double>::quiet_NaN();
    if (*text == kInfinity) return std::numeric_limits<double>::infinity();
    if (*text == kMinusInfinity) return -std::numeric_limits<double>::infinity();
  }
  return As<double>("a number");
}

const std::string& Json::AsText() const { return As<std::string>("a text"); }
const std::vector<Json>& Json::Items() const { return As<std::vector<Json>>("an array"); }
const std::vector<Json::Member>& Json::Members() const {
  return As<std::vector<Member>>("an object");
}

Json ParseJson(std::string_view text) {
  Builder builder;
  nlohmann::json::sax_parse(text, &builder);
  return builder.Take();
}

std::string ToText(const Json& value, int indent) {
  Printer printer(indent);
  printer.Put(value);
  return printer.Take();
}

}  // namespace vorn::kit
