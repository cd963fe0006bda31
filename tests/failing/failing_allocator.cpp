// A file of its own: where a compiler sees both operators and their uses, it warns of the pair.

#include "failing_allocator.hpp"

#include <cstdlib>
#include <new>

thread_local long allocationsUntilFailure = -1;

void* operator new(std::size_t size) {
  if (allocationsUntilFailure >= 0 && allocationsUntilFailure-- == 0) throw std::bad_alloc();
  if (void* const memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept { std::free(memory); }

void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }
