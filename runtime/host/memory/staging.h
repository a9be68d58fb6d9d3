// A dense place of the runtime's own for a tensor that cannot be bound where it lies.
#ifndef VORN_RUNTIME_HOST_MEMORY_STAGING_H_
#define VORN_RUNTIME_HOST_MEMORY_STAGING_H_

#include <cstddef>
#include <cstdint>
#include <memory>

namespace vorn::host {

/// Aligned memory that only grows, so that the same execution allocates once. Not cleared, and
/// counted (counted_memory.h).
class Staging {
 public:
  /// At least `bytes` bytes; what they held before may be gone. The address stays until a larger
  /// amount is asked for. Throws std::bad_alloc and keeps what it had.
  std::byte* AtLeast(uint64_t bytes);

  /// What AtLeast returned last; null before.
  std::byte* data() const { return block_.get(); }

 private:
  struct Release {
    void operator()(std::byte* block) const;
  };
  std::unique_ptr<std::byte, Release> block_;
  uint64_t bytes_ = 0;
};

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_MEMORY_STAGING_H_
