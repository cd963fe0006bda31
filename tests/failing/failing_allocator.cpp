// A file of its own: a compiler that sees these operators together with their uses warns that they
// do not match.

#include "failing_allocator.hpp"

#include <cstdlib>
#include <new>

namespace {

thread_local long untilFailure = -1;

}  // namespace

long allocationsUntilFailure() { return untilFailure; }

void setAllocationsUntilFailure(long count) { untilFailure = count; }

void* operator new(std::size_t size) {
  if (untilFailure >= 0 && untilFailure-- == 0) throw std::bad_alloc();
  if (void* const memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept { std::free(memory); }

void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }
