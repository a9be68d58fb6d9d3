#include "scripted/blocks.h"

#include <cstdlib>
#include <cstring>
#include <limits>

namespace scripted {
namespace {

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define __SANITIZE_ADDRESS__ 1  // clang's spelling of it
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
constexpr uint64_t kGuardBytes = 0;
#else
constexpr uint64_t kGuardBytes = 64;
#endif
constexpr unsigned char kGuard = 0xC3;

uintptr_t NumberOf(const void* address) { return reinterpret_cast<uintptr_t>(address); }

bool IsWhole(const unsigned char* guard) {
  for (uint64_t at = 0; at < kGuardBytes; ++at) {
    if (guard[at] != kGuard) return false;
  }
  return true;
}

std::string GuardComplaint(const Block& block) {
  const std::string name = "block#" + std::to_string(block.number);
  if (!IsWhole(block.memory)) return name + " was written before its start";
  if (!IsWhole(block.memory + kGuardBytes + block.size)) {
    return name + " was written behind its end";
  }
  return "";
}

}  // namespace

std::string Place::Name() const {
  const std::string name = "block#" + std::to_string(number);
  switch (kind) {
    case Kind::kNull:
      return "null";
    case Kind::kLive:
      return offset == 0 ? name : name + "+" + std::to_string(offset);
    case Kind::kReleased:
      return name + " (released)";
    case Kind::kForeign:
      break;
  }
  return "foreign";
}

Blocks::~Blocks() {
  for (const auto& [start, block] : live_) std::free(block.memory);
}

void* Blocks::Allocate(uint64_t size, unsigned char fill) {
  if (size > std::numeric_limits<uint64_t>::max() - 2 * kGuardBytes) return nullptr;
  Block block;
  block.size = size;
  block.memory = static_cast<unsigned char*>(std::malloc(size + 2 * kGuardBytes));
  if (block.memory == nullptr) return nullptr;
  unsigned char* start = block.memory + kGuardBytes;
  std::memset(block.memory, kGuard, kGuardBytes);
  std::memset(start, fill, size);
  std::memset(start + size, kGuard, kGuardBytes);
  block.number = ++allocated_;
  released_.erase(NumberOf(start));
  live_[NumberOf(start)] = block;
  return start;
}

Place Blocks::Find(const void* address) const {
  Place place;
  if (address == nullptr) {
    place.kind = Place::Kind::kNull;
    return place;
  }
  const uintptr_t at = NumberOf(address);
  auto next = live_.upper_bound(at);
  if (next != live_.begin()) {
    const auto& [start, block] = *std::prev(next);
    if (at - start < block.size || at == start) {
      return {Place::Kind::kLive, block.number, at - start, block.size};
    }
  }
  if (const auto old = released_.find(at); old != released_.end()) {
    return {Place::Kind::kReleased, old->second, 0, 0};
  }
  return place;
}

std::string Blocks::Release(void* address) {
  const auto found = live_.find(NumberOf(address));
  const Block block = found->second;
  std::string complaint = GuardComplaint(block);
  released_[found->first] = block.number;
  live_.erase(found);
  std::free(block.memory);
  return complaint;
}

std::vector<std::string> Blocks::CheckGuards() const {
  std::vector<std::string> complaints;
  for (const auto& [start, block] : live_) {
    const std::string complaint = GuardComplaint(block);
    if (!complaint.empty()) complaints.push_back(complaint);
  }
  return complaints;
}

}  // namespace scripted
