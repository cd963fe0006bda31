#ifndef ZORVEL_RECORDING_DISTRIBUTION_HPP
#define ZORVEL_RECORDING_DISTRIBUTION_HPP

#include <cstdint>
#include <map>

namespace zorvel {

/// How whole numbers are distributed, in memory that does not grow with their count: a histogram
/// whose steps are as fine as 9 binary digits tell. The lowest and the highest number are exact.
class Distribution {
 public:
  void add(std::int64_t number);
  void add(const Distribution& other);

  std::uint64_t count() const { return _count; }
  /// 0 when there is none.
  std::int64_t lowest() const { return _lowest; }
  /// 0 when there is none.
  std::int64_t highest() const { return _highest; }
  /// Within 0.4 %, and the nearer the less the numbers differ; the lower one of two; 0 when there
  /// is none.
  std::int64_t median() const;
  /// How many are larger than `limit`, itself taken within 0.4 %.
  std::uint64_t countAbove(std::int64_t limit) const;

 private:
  struct Step {
    std::uint64_t count = 0;
    /// The sum of how far the numbers are from the step's key.
    double offsets = 0.0;
  };

  /// By the number with all digits but the leading ones cleared.
  std::map<std::int64_t, Step> _steps;
  std::uint64_t _count = 0;
  std::int64_t _lowest = 0;
  std::int64_t _highest = 0;
};

}  // namespace zorvel

#endif
