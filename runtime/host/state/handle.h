// Handles, and the registries that know which of them live.
//
// A handle is a number in the dress of a pointer. It points nowhere and is never handed out twice,
// so a null, foreign, destroyed or wrong-kind handle is simply not in the registry of its kind, and
// nothing is ever dereferenced to find that out. An object's address would not do: the allocator
// gives the address of a destroyed object to the next one.
#ifndef VORN_RUNTIME_HOST_STATE_HANDLE_H_
#define VORN_RUNTIME_HOST_STATE_HANDLE_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

namespace vorn::host {

/// The value of the handle that is made as number `count`: no address that a program can reach, so
/// that whoever uses a handle as a pointer faults at once.
///
///     bit   63 | 62 .. 56 | 55 | 54 .. 4 | 3 .. 0
///            1 |        0 |  1 |   count |      0
///
///   - aarch64 does not look at bits 63 to 56 (top byte ignore), and keeps tags there; bit 55 says
///     whose half of the addresses is meant. It is 1: the kernel's, which no program reaches.
///   - x86-64 wants bits 63 to 47 to be all the same, or 63 to 56 with five levels of page tables.
///     Bit 63 is 1 and bit 56 is 0. Where it is told not to look at bits 62 to 48, or 62 to 57
///     (linear address masking), it takes bit 63 for the kernel's half all the same.
///
/// Bits 3 to 0 look aligned to whoever checks that. A process that makes a million handles a second
/// comes to the end of the count after seventy years.
constexpr uintptr_t HandleValue(uintptr_t count) {
  return uintptr_t{1} << 63 | uintptr_t{1} << 55 | count << 4;
}

/// The next one; each is handed out once in the life of the process, whatever the kind. Any thread
/// may call it.
uintptr_t NextHandleValue() noexcept;

template <typename Opaque>
Opaque* NewHandle() noexcept {
  return reinterpret_cast<Opaque*>(NextHandleValue());
}

/// Fails with VORN_ERROR_INVALID_ARGUMENT for a null handle and with VORN_ERROR_INVALID_HANDLE for
/// one that does not live: "... is no context".
[[noreturn]] void RefuseHandle(const char* kind, const void* handle);

/// The live objects of one kind by handle or id. Holds them shared, so that a running operation
/// keeps what another thread destroys. Not synchronised.
template <typename Key, typename Object>
class Registry {
 public:
  /// `kind` is what an object is called where a handle is refused.
  explicit Registry(const char* kind) : kind_(kind) {}

  void Add(Key key, std::shared_ptr<Object> object) { live_[key] = std::move(object); }

  /// The object, or null if none lives under that key.
  std::shared_ptr<Object> Find(Key key) const {
    const auto found = live_.find(key);
    return found == live_.end() ? nullptr : found->second;
  }

  /// The same without sharing it, for a caller that keeps everyone else out while it looks:
  /// counting holders costs more than finding does. Good until the object is removed.
  Object* Look(Key key) const {
    const auto found = live_.find(key);
    return found == live_.end() ? nullptr : found->second.get();
  }

  /// The same, and a handle without an object is refused.
  Object& Require(Key handle) const {
    Object* live = Look(handle);
    if (live == nullptr) RefuseHandle(kind_, handle);
    return *live;
  }

  /// Ends the object; false if none lived under that key.
  bool Remove(Key key) { return live_.erase(key) != 0; }

  /// The same, and a handle without an object is refused.
  void RequireRemoved(Key handle) {
    if (!Remove(handle)) RefuseHandle(kind_, handle);
  }

  /// Ends every object of which `predicate(object)` is true.
  template <typename Predicate>
  void RemoveIf(Predicate&& predicate) {
    std::erase_if(live_, [&](const auto& entry) { return predicate(*entry.second); });
  }

  /// In the order in which they were created.
  std::vector<Key> Keys() const {
    std::vector<Key> keys;
    for (const auto& [key, object] : live_) keys.push_back(key);
    std::sort(keys.begin(), keys.end());
    return keys;
  }

  void Clear() { live_.clear(); }
  size_t Count() const { return live_.size(); }

 private:
  const char* kind_;
  std::unordered_map<Key, std::shared_ptr<Object>> live_;
};

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_STATE_HANDLE_H_
