#ifndef ZORVEL_RECORDING_DISTRIBUTION_HPP
#define ZORVEL_RECORDING_DISTRIBUTION_HPP

#include <boost/container/flat_map.hpp>
#include <cstdint>

namespace zorvel {

/// The distribution of whole numbers, in memory that does not grow with their count: a histogram
/// with bins of a width of 9 significant binary digits. The lowest and the highest number are
/// exact.
class Distribution {
 public:
  void add(std::int64_t number);
  void add(const Distribution& other);

  std::uint64_t count() const { return _count; }
  /// 0 when there is none.
  std::int64_t lowest() const { return _lowest; }
  /// 0 when there is none.
  std::int64_t highest() const { return _highest; }
  /// Accurate to 0.4 %, better where the numbers lie close together. Of two middle numbers the
  /// lower; 0 when there is none.
  std::int64_t median() const;
  /// How many are larger than `limit`. Those within 0.4 % of it may be counted on the wrong side.
  std::uint64_t countAbove(std::int64_t limit) const;

 private:
  struct Bin {
    std::uint64_t count = 0;
    /// The sum of the numbers' distances from the bin's key.
    double offsets = 0.0;
  };

  /// By the number rounded towards 0.
  boost::container::flat_map<std::int64_t, Bin> _bins;
  std::uint64_t _count = 0;
  std::int64_t _lowest = 0;
  std::int64_t _highest = 0;
};

}  // namespace zorvel

#endif
