#include "allocations.hpp"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<long> count{0};
std::atomic<long> bytes{0};

}  // namespace

void* operator new(std::size_t size) {
  void* const memory = std::malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  count.fetch_add(1, std::memory_order_relaxed);
  bytes.fetch_add(static_cast<long>(malloc_usable_size(memory)), std::memory_order_relaxed);
  return memory;
}

void operator delete(void* memory) noexcept {
  bytes.fetch_sub(static_cast<long>(malloc_usable_size(memory)), std::memory_order_relaxed);
  std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept { operator delete(memory); }

namespace zorvel::bench {

long allocationCount() { return count.load(); }

long allocatedBytes() { return bytes.load(); }

}  // namespace zorvel::bench
