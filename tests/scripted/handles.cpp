#include "scripted/handles.h"

namespace scripted {

const char* KindName(Kind kind) {
  switch (kind) {
    case Kind::kContext:
      return "context";
    case Kind::kStream:
      return "stream";
    case Kind::kDesc:
      return "desc";
    case Kind::kDataset:
      return "dataset";
    case Kind::kBuffer:
      return "buffer";
  }
  return "";
}

std::string Handle::Name() const {
  return std::string(KindName(kind)) + "#" + std::to_string(number) + (live ? "" : " (released)");
}

Handle* Handles::Create(Kind kind) {
  auto handle = std::make_unique<Handle>();
  handle->kind = kind;
  handle->number = ++created_[kind];
  Handle* address = handle.get();
  all_[address] = std::move(handle);
  return address;
}

Handle* Handles::Find(const void* handle) const {
  const auto found = all_.find(handle);
  return found == all_.end() ? nullptr : found->second.get();
}

void Handles::Release(Handle* handle) {
  handle->live = false;
  handle->names.clear();
  ++released_[handle->kind];
}

uint64_t Handles::LiveCount(Kind kind) const {
  const auto created = created_.find(kind);
  const auto released = released_.find(kind);
  return (created == created_.end() ? 0 : created->second) -
         (released == released_.end() ? 0 : released->second);
}

}  // namespace scripted
