// What a fuzz target says when a property does not hold.
#ifndef VORN_TESTS_FUZZ_PROPERTY_H_
#define VORN_TESTS_FUZZ_PROPERTY_H_

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

namespace fuzz {

/// Thrown by a target. No standard exception, so that nothing on the way takes it for one.
struct Violation {
  std::string text;
};

inline void Require(bool holds, const char* property) {
  if (!holds) throw Violation{property};
}

inline void Require(bool holds, const std::string& property) { Require(holds, property.c_str()); }

/// What a person is told of an input that is refused.
inline void RequireReason(std::string_view reason) {
  constexpr size_t kLongestReason = 2000;
  Require(!reason.empty() && reason.size() <= kLongestReason, "the length of a reason");
  Require(std::ranges::none_of(reason, [](unsigned char c) { return c < 0x20 || c == 0x7f; }),
          "a reason of one line");
}

}  // namespace fuzz

#endif  // VORN_TESTS_FUZZ_PROPERTY_H_
