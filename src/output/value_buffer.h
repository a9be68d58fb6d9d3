// Memory for the values of one output, used again for the next.
#ifndef VORN_SRC_OUTPUT_VALUE_BUFFER_H_
#define VORN_SRC_OUTPUT_VALUE_BUFFER_H_

#include <cstddef>
#include <memory>
#include <span>

/// Grows to the largest count that it was asked for. Unlike a vector it neither clears nor keeps
/// what it holds when the count changes.
class ValueBuffer {
 public:
  /// Room for `count` values, which are undefined until they are written.
  [[nodiscard]] std::span<float> Get(size_t count) {
    if (count > capacity) {
      values.reset();  // before the new memory: never both at a time
      capacity = 0;
      values = std::make_unique_for_overwrite<float[]>(count);
      capacity = count;
    }
    return {values.get(), count};
  }

 private:
  std::unique_ptr<float[]> values;
  size_t capacity = 0;
};

#endif  // VORN_SRC_OUTPUT_VALUE_BUFFER_H_
