#include "core/common/rpc/testing/allocation_counter.h"

#include <malloc.h>

#include <cstdlib>
#include <new>
#include <utility>

namespace {

thread_local torvane::AllocationCounts counts;
thread_local torvane::OnFree on_free = nullptr;

void Free(void* memory) {
  if (const torvane::OnFree tell = std::exchange(on_free, nullptr)) {
    tell(memory);
    on_free = tell;
  }
  counts.live_bytes -= malloc_usable_size(memory);
  std::free(memory);
}

}  // namespace

void* operator new(size_t size) {
  ++counts.allocations;
  void* memory = std::malloc(size == 0 ? 1 : size);
  if (!memory)
    std::abort();
  counts.live_bytes += malloc_usable_size(memory);
  return memory;
}

void operator delete(void* memory) noexcept {
  counts.unsized_deletes += memory != nullptr;
  Free(memory);
}

void operator delete(void* memory, size_t) noexcept {
  counts.sized_deletes += memory != nullptr;
  Free(memory);
}

namespace torvane {

AllocationCounts CountAllocations() {
  return counts;
}

void SetOnFree(OnFree tell) {
  on_free = tell;
}

}  // namespace torvane
