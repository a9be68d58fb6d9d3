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

/// The next handle value; each is handed out once in the life of the process, whatever the kind. No
/// address of the machine has such a value. Any thread may call it.
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
