#ifndef ZORVEL_EXPORT_ELAN_TIERS_HPP
#define ZORVEL_EXPORT_ELAN_TIERS_HPP

#include <fmt/format.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "playback/playback.hpp"

namespace zorvel {

/// A recording as tiers of ELAN: of each person the scopes, the mood where the valence is known,
/// and the visits.
class ElanTiers {
 public:
  /// Adds what came of an event.
  void add(const Row& row);
  bool isEmpty() const { return _persons.empty(); }

  /// Writes a document (.eaf) of the format's version 3.0, to be put into the file `output`. An
  /// empty `film` is none. Returns how many annotations are left out as they end before second 0,
  /// before which ELAN has no time. Throws Failure when the recording is too long for it.
  std::size_t write(fmt::memory_buffer& text, Time secondZero, const std::string& film,
                    const std::string& output) const;

 private:
  struct Stretch {
    Time::duration begin;
    Time::duration end;
    std::string value;
  };
  struct Person {
    std::vector<Stretch> scopes;
    std::vector<Stretch> moods;
    std::vector<Stretch> visits;
    bool hasMood = false;
    std::int32_t visit = 0;
  };
  /// In milliseconds, as ELAN has them.
  struct Annotation {
    std::int64_t begin;
    std::int64_t end;
    const std::string* value;
  };
  struct Tier {
    std::string name;
    std::int32_t person;
    /// By begin; none overlap.
    std::vector<Annotation> annotations;
  };
  struct TimeSlots {
    /// In milliseconds, by number from 1.
    std::vector<std::int64_t> times;
    /// The numbers of the slots where each annotation begins and ends.
    std::vector<std::array<std::size_t, 2>> ofAnnotations;
  };

  static std::vector<Annotation> annotationsOf(const std::vector<Stretch>& stretches,
                                               std::size_t& leftOut);
  static TimeSlots timeSlots(const std::vector<Tier>& tiers);
  static void addTiers(std::vector<Tier>& tiers, std::int32_t person, std::string_view kind,
                       const std::vector<Annotation>& annotations);
  std::vector<Tier> tiers(std::size_t& leftOut) const;

  std::map<std::int32_t, Person> _persons;
};

}  // namespace zorvel

#endif
