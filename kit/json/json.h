// JSON as the kit reads and writes it. One source knows the library behind it, which takes long to
// compile.
#ifndef VORN_KIT_JSON_JSON_H_
#define VORN_KIT_JSON_JSON_H_

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace vorn::kit {

/// What is wrong with a text, or missing from a value. Whoever knows the file's name makes a Fault
/// of it.
class JsonError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A value. Objects keep the order in which their members were set.
class Json {
 public:
  using Member = std::pair<std::string, Json>;

  Json() = default;
  Json(std::nullptr_t) {}
  Json(std::same_as<bool> auto value) : value_(value) {}
  Json(std::signed_integral auto value) : value_(static_cast<int64_t>(value)) {}
  Json(std::unsigned_integral auto value) requires(!std::same_as<decltype(value), bool>)
      : value_(static_cast<uint64_t>(value)) {}
  Json(double value) : value_(value) {}
  Json(std::string value) : value_(std::move(value)) {}
  Json(std::string_view value) : value_(std::string(value)) {}
  Json(const char* value) : value_(std::string(value)) {}

  [[nodiscard]] static Json Object(std::initializer_list<Member> members = {});
  [[nodiscard]] static Json Array(std::initializer_list<Json> items = {});
  template <typename Range>
  [[nodiscard]] static Json ArrayOf(const Range& range) {
    Json array = Array();
    for (const auto& item : range) array.Append(item);
    return array;
  }

  /// Adds a member of an object, or replaces the one of that name.
  void Set(std::string_view key, Json value);
  void Append(Json item);

  [[nodiscard]] bool IsNull() const { return Is<std::nullptr_t>(); }
  [[nodiscard]] bool IsBool() const { return Is<bool>(); }
  [[nodiscard]] bool IsNumber() const { return Is<int64_t>() || Is<uint64_t>() || Is<double>(); }
  [[nodiscard]] bool IsText() const { return Is<std::string>(); }
  [[nodiscard]] bool IsArray() const { return Is<std::vector<Json>>(); }
  [[nodiscard]] bool IsObject() const { return Is<std::vector<Member>>(); }

  /// The member of that name; null if there is none or this is no object.
  [[nodiscard]] const Json* Find(std::string_view key) const;

  /// The same, and a JsonError that names the key if there is none.
  [[nodiscard]] const Json& At(std::string_view key) const;

  /// The value as what it is. Another kind, or a number out of range, is a JsonError.
  [[nodiscard]] bool AsBool() const;
  [[nodiscard]] int64_t AsSigned() const;
  [[nodiscard]] uint64_t AsUnsigned() const;
  /// Of any number, and of the texts that ToText makes of those that JSON has not.
  [[nodiscard]] double AsNumber() const;
  [[nodiscard]] const std::string& AsText() const;
  [[nodiscard]] const std::vector<Json>& Items() const;
  [[nodiscard]] const std::vector<Member>& Members() const;

 private:
  friend class JsonAccess;
  using Value = std::variant<std::nullptr_t, bool, int64_t, uint64_t, double, std::string,
                             std::vector<Json>, std::vector<Member>>;

  template <typename Kind>
  [[nodiscard]] bool Is() const {
    return std::holds_alternative<Kind>(value_);
  }
  template <typename Kind>
  [[nodiscard]] const Kind& As(const char* kind) const;
  [[nodiscard]] const char* Kind() const;

  Value value_ = nullptr;
};

/// Reads one value, which is the whole text. Throws a JsonError that says what is wrong and at
/// which byte: also of more than 64 brackets within each other, and of a key that an object has
/// twice.
[[nodiscard]] Json ParseJson(std::string_view text);

/// The text, in one line for `indent` 0, without a line end behind it. Bytes that are no UTF-8 come
/// out as U+FFFD; NaN and the infinities, which JSON has not, as "NaN", "Infinity" and "-Infinity".
[[nodiscard]] std::string ToText(const Json& value, int indent = 0);

}  // namespace vorn::kit

#endif  // VORN_KIT_JSON_JSON_H_
