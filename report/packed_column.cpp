#include "report/packed_column.hpp"

#include <zlib.h>

#include <boost/archive/iterators/base64_from_binary.hpp>
#include <boost/archive/iterators/transform_width.hpp>
#include <new>
#include <utility>

namespace zorvel {
namespace {

std::string base64(std::vector<std::uint8_t> bytes) {
  using namespace boost::archive::iterators;
  using Digits = base64_from_binary<transform_width<std::vector<std::uint8_t>::iterator, 6, 8>>;
  const std::size_t padding = (3 - bytes.size() % 3) % 3;
  bytes.resize(bytes.size() + padding);
  std::string text(Digits(bytes.begin()), Digits(bytes.end()));
  text.replace(text.size() - padding, padding, padding, '=');
  return text;
}

}  // namespace

std::string packedBytes(const std::vector<std::uint8_t>& bytes) {
  uLongf size = compressBound(bytes.size());
  std::vector<std::uint8_t> deflated(size);
  // With room enough, only memory can run out.
  if (compress(deflated.data(), &size, bytes.data(), bytes.size()) != Z_OK) throw std::bad_alloc();
  deflated.resize(size);
  return base64(std::move(deflated));
}

}  // namespace zorvel
