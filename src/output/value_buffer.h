// Memory for the values of one output, used again for the next.
#ifndef VORN_SRC_OUTPUT_VALUE_BUFFER_H_
#define VORN_SRC_OUTPUT_VALUE_BUFFER_H_

#include <cstddef>
#include <memory>
#include <span>

namespace vorn::run {

/// Grows to the largest count that it was asked for. Unlike a vector it neither clears nor keeps
/// what it holds when the count changes.
class ValueBuffer {
 public:
  /// Room for `count` values, which are undefined until they are written.
  [[nodiscard]] std::span<float> Get(size_t count) {
    if (count > capacity_) {
      values_.reset();  // before the new memory: never both at a time
      capacity_ = 0;
      values_ = std::make_unique_for_overwrite<float[]>(count);
      capacity_ = count;
    }
    return {values_.get(), count};
  }

 private:
  std::unique_ptr<float[]> values_;
  size_t capacity_ = 0;
};

}  // namespace vorn::run

#endif  // VORN_SRC_OUTPUT_VALUE_BUFFER_H_
