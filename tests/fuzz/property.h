// What a fuzz target says when a property does not hold.
#ifndef VORN_TESTS_FUZZ_PROPERTY_H_
#define VORN_TESTS_FUZZ_PROPERTY_H_

#include <string>

namespace fuzz {

/// Thrown by a target. No standard exception, so that nothing on the way takes it for one.
struct Violation {
  std::string text;
};

inline void Require(bool holds, const char* property) {
  if (!holds) throw Violation{property};
}

inline void Require(bool holds, const std::string& property) { Require(holds, property.c_str()); }

}  // namespace fuzz

#endif  // VORN_TESTS_FUZZ_PROPERTY_H_
