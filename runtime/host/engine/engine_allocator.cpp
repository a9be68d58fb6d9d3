// Allocating for the execution library.
#include "host/engine/engine_allocator.h"

#include <memory>
#include <new>
#include <utility>

#include "host/memory/block_store.h"
#include "host/memory/memory_budget.h"

namespace vorn::host {
namespace {

struct Header {
  std::shared_ptr<MemoryBudget> budget;  // null for an allocation outside of any scope
  size_t bytes = 0;
};

// The library wants its memory aligned as blocks are.
constexpr auto kAlignment = std::align_val_t{kBlockAlignment};
static_assert(sizeof(Header) <= kBlockAlignment);

}  // namespace

EngineAllocator::EngineAllocator(const OrtMemoryInfo* info) : OrtAllocator{}, info_(info) {
  version = ORT_API_VERSION;
  Alloc = [](OrtAllocator*, size_t bytes) { return Allocate(bytes); };
  Reserve = Alloc;
  Free = [](OrtAllocator*, void* memory) { Release(memory); };
  Info = [](const OrtAllocator* self) { return static_cast<const EngineAllocator*>(self)->info_; };
}

void* EngineAllocator::Allocate(size_t bytes) {
  if (bytes == 0) return nullptr;
  const size_t whole = kBlockAlignment + bytes;
  BudgetScope* scope = BudgetScope::Current();
  if (whole < bytes || (scope != nullptr && !scope->Take(whole))) throw std::bad_alloc();
  const auto budget = scope == nullptr ? nullptr : scope->budget();
  void* memory = ::operator new(whole, kAlignment, std::nothrow);
  if (memory == nullptr) {
    if (budget != nullptr) budget->GiveBack(whole);
    throw std::bad_alloc();
  }
  new (memory) Header{.budget = budget, .bytes = whole};
  return static_cast<std::byte*>(memory) + kBlockAlignment;
}

void EngineAllocator::Release(void* memory) noexcept {
  if (memory == nullptr) return;
  auto* header = reinterpret_cast<Header*>(static_cast<std::byte*>(memory) - kBlockAlignment);
  if (header->budget != nullptr) header->budget->GiveBack(header->bytes);
  std::destroy_at(header);
  ::operator delete(header, kAlignment);
}

}  // namespace vorn::host
