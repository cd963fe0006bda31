#ifndef ZORVEL_REPORT_PACKED_COLUMN_HPP
#define ZORVEL_REPORT_PACKED_COLUMN_HPP

#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

namespace zorvel {

/// Deflates the bytes and writes them in base64.
std::string packedBytes(const std::vector<std::uint8_t>& bytes);

/// Whole numbers as a short text. Neighbours are alike, so their differences are small: these are
/// packed, all lowest bytes first, then all second ones and so on. They wrap around, as do the sums
/// of them that give the numbers back.
template <typename Integer>
std::string packedColumn(const std::vector<Integer>& column) {
  using Bits = std::make_unsigned_t<Integer>;
  std::vector<std::uint8_t> bytes(column.size() * sizeof(Integer));
  Bits before = 0;
  for (std::size_t row = 0; row < column.size(); ++row) {
    const auto bits = static_cast<Bits>(column[row]);
    const auto difference = static_cast<std::uint64_t>(static_cast<Bits>(bits - before));
    before = bits;
    for (std::size_t rank = 0; rank < sizeof(Integer); ++rank) {
      bytes[rank * column.size() + row] = static_cast<std::uint8_t>(difference >> (8 * rank));
    }
  }
  return packedBytes(bytes);
}

}  // namespace zorvel

#endif
