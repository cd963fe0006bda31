#ifndef ZORVEL_INSPECTION_RECORDING_FACTS_HPP
#define ZORVEL_INSPECTION_RECORDING_FACTS_HPP

#include <array>
#include <boost/container/flat_map.hpp>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "recording/distribution.hpp"
#include "recording/event.hpp"
#include "recording/intervals.hpp"
#include "recording/observation_fields.hpp"

namespace zorvel {

/// How often something happened, and in which line first.
struct Occurrences {
  std::uint64_t count = 0;
  std::uint64_t firstLine = 0;

  void add(std::uint64_t line) { add(Occurrences{1, line}); }
  void add(const Occurrences& other);
};

/// What one number was, over all persons and readings.
struct NumberFacts {
  std::uint64_t count = 0;
  float lowest = 0.0f;
  float highest = 0.0f;
  std::uint64_t zeros = 0;
  Occurrences outOfRange;
};

/// The readings of one field of one person.
struct FieldFacts {
  std::uint64_t readings = 0;
  /// Readings with other numbers than the one before.
  std::uint64_t changes = 0;
  /// Nanoseconds from the reading to its line; below 0 for a reading from the future.
  Distribution lateness;
  Occurrences future;
  /// Older than the memory keeps, on the replay's clock.
  Occurrences expired;
  /// With the time of a reading that is in memory, and therefore dropped.
  Occurrences repeated;
  /// The repeated ones whose numbers differ from those in memory.
  Occurrences contradicting;

  /// Hashes of the numbers of each reading in memory, by time.
  boost::container::flat_map<Time, std::size_t> remembered;
  /// The hash of the last reading's numbers.
  std::size_t last = 0;
};

struct OpenScope {
  std::int32_t remainingSamples;
  std::uint64_t line;
};

/// What happened to one person. A cycle is an observation or a not_seen.
struct PersonFacts {
  std::uint64_t observations = 0;
  std::uint64_t notSeen = 0;
  std::uint64_t removals = 0;
  /// Cycles after a removal, each with a neutral state before it.
  std::uint64_t newStarts = 0;
  /// Observations in which a face was read.
  std::uint64_t faces = 0;
  Time first{};
  Time last{};
  /// Nanoseconds from cycle to cycle, except across a removal.
  Intervals intervals;
  Time longestIntervalBegin{};
  /// By index into fieldKinds.
  std::map<std::size_t, FieldFacts> fields;
  std::map<std::string, OpenScope> openScopes;
  /// Whether the person has had a cycle since the last removal.
  bool present = false;

  std::uint64_t cycles() const { return observations + notSeen; }
};

struct ScopeFacts {
  std::uint64_t opened = 0;
  std::uint64_t closed = 0;
  /// Opened while open, which begins them anew.
  Occurrences restarted;
  /// Closed while not open.
  Occurrences unknown;
  /// Dropped because their samples were used up.
  Occurrences exhausted;
  /// Dropped because their person was removed.
  Occurrences removed;
};

/// What is in a recording, so far. Its memory grows with the number of persons, not of lines.
struct RecordingFacts {
  /// Adds an event from that line of the file.
  void add(const Event& event, std::uint64_t line);

  /// Whether this line is the first to show something that goes wrong from line to line: a time
  /// that runs backwards, the longest step of the time so far, or a scope out of order.
  bool goesWrongIn(std::uint64_t line) const;

  /// Drops the facts of a person, so that memory stays bounded in a service.
  void forget(std::int32_t person) { persons.erase(person); }
  /// Drops the facts of all persons; the time begins anew.
  void forgetEverybody();

  std::uint64_t events() const;
  /// Observations and not_seens together.
  std::uint64_t cycles() const;

  std::array<std::uint64_t, eventNames.size()> eventCounts{};
  Time lowestTime = Time::max();
  Time highestTime = Time::min();
  /// Lines whose time is earlier than that of a line before, and by how much at most, in
  /// nanoseconds.
  Occurrences backwards;
  std::int64_t farthestBack = 0;
  /// The longest step to a later time, in nanoseconds, and the line that makes it.
  std::int64_t longestStep = 0;
  std::uint64_t longestStepLine = 0;
  std::map<std::int32_t, PersonFacts> persons;
  std::array<std::array<NumberFacts, 3>, fieldKinds.size()> numbers{};
  ScopeFacts scopes;

 private:
  /// The line that is being added, with its own time.
  struct Line {
    Time time;
    std::uint64_t number;
  };

  void add(const Observation& observation, Line line);
  void add(const NotSeen& notSeen, Line line);
  void add(const Remove& remove, Line line);
  void add(const Restore& restore, Line line);
  void add(const Rename& rename, Line line);
  void add(const StartRecording& start, Line line);
  void add(const StopRecording& stop, Line line);
  void add(const Movement& /*movement*/, Line /*line*/) {}
  void add(const Activity& /*activity*/, Line /*line*/) {}
  PersonFacts& addCycle(std::int32_t id, Line line);
  template <typename T>
  void addReading(FieldFacts& facts, std::size_t field, const ZV::Timestamped<T>& reading,
                  Line line);
};

}  // namespace zorvel

#endif
