#ifndef ZORVEL_FUZZ_FUZZING_HPP
#define ZORVEL_FUZZ_FUZZING_HPP

#include <cstddef>
#include <cstdint>
#include <string>

namespace zorvel::fuzz {

/// Ends the process with the text unless `holds`; the fuzzer then keeps the input.
void require(bool holds, const char* text);

/// A file that exists in memory alone, but has a path.
class MemoryFile {
 public:
  MemoryFile(const std::uint8_t* data, std::size_t size);
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;
  ~MemoryFile();

  std::string path() const { return "/proc/self/fd/" + std::to_string(_descriptor); }

 private:
  int _descriptor;
};

}  // namespace zorvel::fuzz

extern "C" int LLVMFuzzerInitialize(int* argumentCount, char*** arguments);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

#endif
