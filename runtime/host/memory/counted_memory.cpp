// Allocation with a header that knows whose it is.
#include "host/memory/counted_memory.h"

#include <memory>
#include <new>

#include "host/memory/block_store.h"
#include "host/memory/memory_budget.h"

namespace vorn::host {
namespace {

struct Header {
  std::shared_ptr<MemoryBudget> budget;  // null where nothing is counted
  size_t bytes;
};

constexpr auto kAlignment = std::align_val_t{kBlockAlignment};
static_assert(sizeof(Header) <= kBlockAlignment);

/// Null, and nothing taken, where it is not to be had.
void* TakeWithHeader(size_t whole, BudgetScope* scope) {
  if (scope == nullptr) return ::operator new(whole, kAlignment, std::nothrow);
  if (!scope->Take(whole)) return nullptr;
  void* memory = ::operator new(whole, kAlignment, std::nothrow);
  if (memory == nullptr) scope->Refuse(whole);
  return memory;
}

}  // namespace

void* AllocateCounted(size_t bytes) {
  if (bytes == 0) return nullptr;
  const size_t whole = kBlockAlignment + bytes;
  BudgetScope* scope = BudgetScope::Current();
  void* memory = whole < bytes ? nullptr : TakeWithHeader(whole, scope);
  if (memory == nullptr) throw std::bad_alloc();
  new (memory) Header{.budget = scope == nullptr ? nullptr : scope->budget(), .bytes = whole};
  return static_cast<std::byte*>(memory) + kBlockAlignment;
}

void ReleaseCounted(void* memory) noexcept {
  if (memory == nullptr) return;
  auto* header = reinterpret_cast<Header*>(static_cast<std::byte*>(memory) - kBlockAlignment);
  if (header->budget != nullptr) header->budget->GiveBack(header->bytes);
  std::destroy_at(header);
  ::operator delete(header, kAlignment);
}

}  // namespace vorn::host
