#ifndef ZORVEL_PLAYBACK_SUMMARY_HPP
#define ZORVEL_PLAYBACK_SUMMARY_HPP

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "playback/playback.hpp"

namespace zorvel {

/// What a quantity adds up to, over the cycles of the people for whom it was ever measured.
struct QuantitySums {
  std::uint64_t count = 0;
  bool isMeasured = false;
  double value = 0.0;
  double confidence = 0.0;

  void add(const ZV::ValueConfidence<float>& quantity, bool isMeasuredNow);
  QuantitySums& operator+=(const QuantitySums& other);
};

/// Cycles and what they add up to.
struct CycleSums {
  std::uint64_t count = 0;
  QuantitySums valence;
  QuantitySums attention;
  /// Cycles with the mood 1, 0 and -1, among those of the valence.
  std::array<std::uint64_t, 3> moods{};

  void add(const StateRow& row);
  CycleSums& operator+=(const CycleSums& other);
};

/// The columns of means and shares, and their headings.
std::string formatMeans(const CycleSums& cycles);
std::string formatMeansHeadings();

/// What a replay prints on the terminal: a line for each person, and the scopes that were closed.
class Summary {
 public:
  /// The whole recording in numbers.
  struct Total {
    std::uint64_t persons = 0;
    CycleSums cycles;
    std::uint64_t scopes = 0;
    double seconds = 0.0;  ///< from the first event to the last

    Total& operator+=(const Total& other);
  };

  /// To be called for each event.
  void add(Time time, const Row& row);
  Total total() const;
  /// All of it, several lines.
  std::string text() const;

 private:
  struct Span {
    Time first = Time::max();
    Time last = Time::min();

    void add(Time time);
    double seconds() const { return first > last ? 0.0 : inSeconds(between(first, last)); }
  };
  struct PersonSummary {
    CycleSums cycles;
    Span span;
  };

  Span _span;
  std::map<std::int32_t, PersonSummary> _persons;
  std::vector<ScopeRow> _scopes;
  std::uint64_t _scopeCount = 0;
};

}  // namespace zorvel

#endif
