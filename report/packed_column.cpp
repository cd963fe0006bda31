#include "report/packed_column.hpp"

#include <zlib.h>

#include <new>
#include <string_view>

namespace zorvel {
namespace {

std::string base64(const std::vector<std::uint8_t>& bytes) {
  constexpr std::string_view digits =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  std::uint32_t bits = 0;
  unsigned int count = 0;
  for (const std::uint8_t byte : bytes) {
    bits = (bits << 8U) | byte;
    for (count += 8; count >= 6; count -= 6) text += digits[(bits >> (count - 6)) & 63U];
  }
  if (count > 0) text += digits[(bits << (6 - count)) & 63U];
  text.append((4 - text.size() % 4) % 4, '=');
  return text;
}

}  // namespace

std::string packedBytes(const std::vector<std::uint8_t>& bytes) {
  uLongf size = compressBound(bytes.size());
  std::vector<std::uint8_t> deflated(size);
  // The one thing that can fail with room enough.
  if (compress(deflated.data(), &size, bytes.data(), bytes.size()) != Z_OK) throw std::bad_alloc();
  deflated.resize(size);
  return base64(deflated);
}

}  // namespace zorvel
