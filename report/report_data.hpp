#ifndef ZORVEL_REPORT_REPORT_DATA_HPP
#define ZORVEL_REPORT_REPORT_DATA_HPP

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "playback/person_cycles.hpp"
#include "playback/playback.hpp"
#include "playback/what_mattered.hpp"

namespace zorvel {

class JsonLineWriter;

/// JSON that may stand inside an element of a page: whatever its texts are, nothing in it ends the
/// element.
std::string insideElement(std::string_view json);

/// What a report shows of a recording: every value of every cycle, the scopes, and the room.
class ReportData {
 public:
  /// Adds an event that was played at `time`, and what it gave.
  void add(Time time, const Event& event, const Row& row);

  /// One line of JSON for the page's script, as insideElement() gives it. `zero` is the moment from
  /// which the page counts its seconds. `failure` is what ended the recording early; empty if
  /// nothing did. `warnings` say what looks wrong in the recording. `mattered` is empty where
  /// nobody asked for it.
  std::string json(Time zero, std::string_view recording, std::string_view source,
                   std::string_view failure, const std::vector<std::string>& warnings,
                   const std::vector<Mattered>& mattered) const;

 private:
  struct Scope {
    std::string name;
    Time begin;
    /// None while it is open.
    std::optional<Time> end;
    /// Empty for one that was dropped rather than closed.
    std::string label;
    std::size_t samples = 0;
  };

  /// What a reason moved a quantity by in each cycle, in units of 1 / 10,000; the last cycles may
  /// be missing, where it moved nothing.
  struct Moves {
    std::string_view reason;
    std::vector<std::int16_t> rows;
  };

  struct Person {
    PersonCycles cycles;
    /// A column for each of quantityColumns.
    std::vector<std::vector<float>> quantities;
    /// 1 where the value is known, for each of knownColumns.
    std::vector<std::vector<std::int8_t>> known;
    std::vector<std::int8_t> moods;
    /// Of each of movedQuantities.
    std::array<std::vector<Moves>, movedQuantities.size()> moves;
    std::vector<Scope> scopes;
    /// Indices into scopes.
    std::map<std::string, std::size_t> openScopes;

    Person();
    void add(Time time, const StateRow& row);
    void addMoves(const std::vector<ZV::Force>& forces);
    void open(Time time, const std::string& scope);
    void close(Time time, const ScopeRow& row);
    void endScopes(Time time);
    void moveOpenScopes(Person& to);
    void writeChanges(JsonLineWriter& json) const;
    void write(JsonLineWriter& json, Time end) const;
  };

  Time _begin{};
  Time _end{};
  bool _isEmpty = true;
  std::map<std::int32_t, Person> _persons;
  std::vector<std::int64_t> _roomTimes;
  std::vector<float> _agitation;
};

}  // namespace zorvel

#endif
