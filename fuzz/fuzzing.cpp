#include "fuzzing.hpp"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace zorvel::fuzz {

void require(bool holds, const char* text) {
  if (holds) return;
  std::fprintf(stderr, "%s\n", text);
  std::abort();
}

MemoryFile::MemoryFile(const std::uint8_t* data, std::size_t size)
    : _descriptor(memfd_create("input", 0)) {
  require(_descriptor >= 0 && write(_descriptor, data, size) == static_cast<ssize_t>(size),
          "no memory file");
}

MemoryFile::~MemoryFile() { close(_descriptor); }

}  // namespace zorvel::fuzz
