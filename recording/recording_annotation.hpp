#ifndef ZORVEL_RECORDING_RECORDING_ANNOTATION_HPP
#define ZORVEL_RECORDING_RECORDING_ANNOTATION_HPP

#include <fmt/format.h>

#include <boost/chrono/duration.hpp>
#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "recording/known_people.hpp"
#include "recording/recording_reader.hpp"
#include "recording/replay_clock.hpp"

namespace zorvel {

/// A row of a table of scopes.
struct ScopeOfTable {
  /// Since second 0 of the recording, or a date.
  using Moment = std::variant<Time::duration, Time>;

  std::uint64_t line;
  std::int32_t person;
  std::string scope;
  Moment begin;
  /// Inclusive.
  Moment end;
  /// The tier of a rater's scope; empty in a table of scopes. A rater's scope that does not fit the
  /// recording is left out, and none is open before its person is there.
  std::string tier;
};

/// What messages call a rater's scope: 'tier "smiles", 12.340 s'.
std::string placeInTier(const std::string& tier, boost::chrono::milliseconds begin);

/// Rows of a table within which their person is removed, or renamed to another id.
struct PartedRows {
  std::uint64_t count = 0;
  /// What they became: one for each visit of the person.
  std::uint64_t scopes = 0;
  std::uint64_t firstLine = 0;
};

/// Puts the scopes of a table into a recording, whose other bytes stay as they are. A removal ends
/// a scope, and so does a renaming to another id; where its person comes back within the row,
/// another of that name begins.
class RecordingAnnotation {
 public:
  /// `table` is the table's name, for messages. `leftOut` lists what it holds besides the scopes.
  RecordingAnnotation(RecordingReader& recording, std::string table,
                      std::vector<ScopeOfTable> scopes, std::vector<std::string> leftOut)
      : _recording(recording),
        _table(std::move(table)),
        _scopes(std::move(scopes)),
        _leftOut(std::move(leftOut)) {}

  /// Reads a line and appends it, after what belongs before it; false at the end. Throws what
  /// reading throws, and Failure, with the row of the table, when a scope does not fit the
  /// recording. Only at the end is it certain that all do.
  bool next(fmt::memory_buffer& text);

  // Known at the end.

  PartedRows parted() const;
  std::size_t scopes() const { return _scopes.size(); }
  /// How many of them begin after the end of the recording.
  std::size_t afterEnd() const { return _afterEnd; }
  /// What was left out of the table, and why, a sentence each.
  const std::vector<std::string>& leftOut() const { return _leftOut; }

 private:
  /// Where a scope begins or ends.
  struct Edge {
    Time time;
    bool isEnd;
    const ScopeOfTable* scope;
  };

  using Key = std::pair<std::int32_t, std::string>;

  /// What has become of a row so far.
  struct Outcome {
    std::uint64_t scopes = 0;
    bool isParted = false;
    /// Whether the person has had a visit within it.
    bool isFilled = false;
    bool isLeftOut = false;
  };

  /// A row between its begin and its end; no scope is open while the person is removed or is
  /// being restored.
  struct Current {
    const ScopeOfTable* scope;
    bool isOpen;
  };

  static Key keyOf(const ScopeOfTable& scope);
  void follow(const Event& event, fmt::memory_buffer& text);
  void placeScopes();
  void requireApart() const;
  void begin(const ScopeOfTable& scope, Time time, bool canOpen, fmt::memory_buffer& text);
  void end(const ScopeOfTable& scope, Time time, fmt::memory_buffer& text);
  void open(Current& current, Time time, fmt::memory_buffer& text);
  void close(Current& current, Time time, fmt::memory_buffer& text);
  void visit(std::int32_t person, fmt::memory_buffer& text);
  void endVisit(std::int32_t person, bool isRestored, fmt::memory_buffer& text);
  void followRename(const Rename& rename, fmt::memory_buffer& text);
  void requireClosed(const Key& key) const;
  bool isOpenInRecording(const Key& key) const;
  void finish(fmt::memory_buffer& text);
  Time timeOf(const ScopeOfTable::Moment& moment) const;
  boost::chrono::milliseconds secondsOf(Time time) const;
  [[noreturn]] void failOverlapping(const ScopeOfTable& scope) const;
  std::string placeOf(const ScopeOfTable& scope) const;
  [[noreturn]] void fail(const ScopeOfTable& scope, std::string_view column,
                         const std::string& message) const;
  void failOrLeaveOut(const ScopeOfTable& scope, std::string_view column,
                      const std::string& message);

  RecordingReader& _recording;
  std::string _table;
  std::vector<ScopeOfTable> _scopes;
  /// In the order of time.
  std::vector<Edge> _edges;
  std::size_t _nextEdge = 0;
  RecordingLine _line;
  ReplayClock _clock;
  /// Who is there, with the recording's own scopes.
  KnownPeople _people;
  /// Everybody in the recording.
  std::set<std::int32_t> _everybody;
  /// Those in a visit, with a cycle of it, perhaps under an id that was renamed to this one.
  std::set<std::int32_t> _visitors;
  std::map<Key, Current> _current;
  std::map<const ScopeOfTable*, Outcome> _outcomes;
  std::size_t _afterEnd = 0;
  std::vector<std::string> _leftOut;
};

}  // namespace zorvel

#endif
