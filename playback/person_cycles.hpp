#ifndef ZORVEL_PLAYBACK_PERSON_CYCLES_HPP
#define ZORVEL_PLAYBACK_PERSON_CYCLES_HPP

#include <array>
#include <cstddef>
#include <cstdint>
#include <variant>
#include <vector>

#include "playback/greatest_changes.hpp"
#include "recording/event.hpp"
#include "zv/force.hpp"

namespace zorvel {

/// A quantity whose greatest changes are shown, and how far its lowest value is from its highest.
struct MovedQuantity {
  ZV::Quantity quantity;
  float range;
};
inline constexpr std::array movedQuantities{MovedQuantity{ZV::Quantity::Valence, 2.0f},
                                            MovedQuantity{ZV::Quantity::Attention, 1.0f}};

/// When one person had cycles, and which of them say something new about the person.
class PersonCycles {
 public:
  void add(Time time, bool isSeen);
  void remove() { _isRemoved = true; }
  /// Whether there was a cycle since the last removal.
  bool isPresent() const { return !_times.empty() && !_isRemoved; }
  /// The person goes on in the cycles of another id. What comes there begins a stretch, as the
  /// state may be another than the one before.
  void goOnIn(PersonCycles& to);

  /// In nanoseconds.
  const std::vector<std::int64_t>& times() const { return _times; }
  /// The rows that begin a stretch without gaps.
  std::vector<std::int32_t> stretches() const;
  /// Whether no stretch has two cycles after its first second, in which changes are left out.
  bool areShort() const;
  /// The greatest changes of a value that each cycle has, each of at least a twentieth of its
  /// range.
  std::vector<Change> changes(const std::vector<float>& values, float range,
                              std::size_t most) const;

 private:
  /// Whether a stretch begins, row by row.
  std::vector<bool> comes() const;
  Time::duration step(std::size_t from, std::size_t to) const;

  std::vector<std::int64_t> _times;
  /// Rows that begin anew, after a removal.
  std::vector<bool> _begins;
  /// Rows in which the person is seen again after cycles without being seen.
  std::vector<bool> _returns;
  bool _isRemoved = false;
  bool _isSeen = true;
};

/// Does to the cycles of the people, in a map by person, what a removal and a renaming do.
template <typename Persons>
void followPeople(const Event& event, Persons& persons) {
  if (const auto* const remove = std::get_if<Remove>(&event.what)) {
    const auto person = persons.find(remove->person);
    if (person != persons.end()) person->second.cycles.remove();
  } else if (const auto* const rename = std::get_if<Rename>(&event.what)) {
    const auto person = persons.find(rename->person);
    if (person == persons.end() || !person->second.cycles.isPresent()) return;
    person->second.cycles.goOnIn(persons[rename->to].cycles);
  }
}

}  // namespace zorvel

#endif
