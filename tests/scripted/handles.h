// The handles that the scripted runtime hands out. A handle is the address of one of these records.
// Records are never freed, so an address never comes back with another meaning, and a use after the
// release is always noticed. The texts that a description handed out are freed with it.
#ifndef VORN_TESTS_SCRIPTED_HANDLES_H_
#define VORN_TESTS_SCRIPTED_HANDLES_H_

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace scripted {

enum class Kind { kContext, kStream, kDesc, kDataset, kBuffer };

[[nodiscard]] const char* KindName(Kind kind);

struct Handle {
  Kind kind = Kind::kContext;
  uint64_t number = 0;  // counted from 1 within the kind
  bool live = true;

  // Of a data buffer.
  void* block = nullptr;
  uint64_t size = 0;
  uint64_t stride = 0;

  // Of a dataset.
  std::vector<Handle*> buffers;

  // Of a description.
  bool filled = false;
  std::map<uint64_t, std::unique_ptr<char[]>> names;

  /// `dataset#2`, with ` (released)` behind it once that is true.
  [[nodiscard]] std::string Name() const;
};

class Handles {
 public:
  [[nodiscard]] Handle* Create(Kind kind);

  /// The record that a handle from outside stands for, live or not; null if there is none.
  [[nodiscard]] Handle* Find(const void* handle) const;

  void Release(Handle* handle);

  [[nodiscard]] uint64_t LiveCount(Kind kind) const;

 private:
  std::unordered_map<const void*, std::unique_ptr<Handle>> all_;
  std::map<Kind, uint64_t> created_;
  std::map<Kind, uint64_t> released_;
};

}  // namespace scripted

#endif  // VORN_TESTS_SCRIPTED_HANDLES_H_
