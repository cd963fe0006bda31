#ifndef ZORVEL_RECORDING_JOINED_PEOPLE_HPP
#define ZORVEL_RECORDING_JOINED_PEOPLE_HPP

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "recording/event.hpp"

namespace zorvel {

/// Gives the people of a recording other ids, where a tracker gave one person several. Such a
/// person goes by the id under which they were observed last; when another of their ids is gone,
/// that says nothing.
class JoinedPeople {
 public:
  /// The new ids by the old ones.
  using Ids = std::map<std::int32_t, std::int32_t>;

  /// Throws std::invalid_argument when a new id is an old one, too.
  explicit JoinedPeople(Ids ids = {});

  bool isEmpty() const { return _ids.empty(); }
  /// Renames the person of the event. Returns whether the event stays: a not_seen or a removal does
  /// not when the person was last observed under another id. Throws std::runtime_error, with the
  /// line of the other, when two ids that should be one person's are there at the same time: both
  /// are observed at one moment, one is observed again although nothing has said that it was gone,
  /// or both use one scope.
  bool join(Event& event, std::uint64_t line);

 private:
  /// When an id was last observed, if nothing has said since that it is gone.
  struct Seen {
    Time time;
    std::uint64_t line;
  };
  struct Person {
    /// Under which id they were observed last.
    std::optional<std::int32_t> current;
    std::map<std::int32_t, Seen> seen;
    /// Under which id a scope was opened, and in which line.
    std::map<std::string, std::pair<std::int32_t, std::uint64_t>> scopes;
  };

  std::int32_t newId(std::int32_t id) const;
  void observe(std::int32_t id, Time time, std::uint64_t line);
  bool leave(std::int32_t id, bool isRemoved);
  void useScope(std::int32_t id, const std::string& scope, std::uint64_t line, bool isStart);
  bool rename(Rename& rename, Time time, std::uint64_t line);

  Ids _ids;
  /// Those with several ids, by the new one.
  std::map<std::int32_t, Person> _people;
};

}  // namespace zorvel

#endif
