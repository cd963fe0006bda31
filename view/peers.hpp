#ifndef ZORVEL_VIEW_PEERS_HPP
#define ZORVEL_VIEW_PEERS_HPP

#include <chrono>
#include <cstdint>
#include <functional>
#include <ku/clock.hpp>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "recording/event_reader.hpp"
#include "view/line_queue.hpp"

namespace zorvel {

/// The other end of a connection, and what `/health` reports of it.
struct Peer {
  explicit Peer(std::string name_) : name(std::move(name_)) {}

  /// What messages call it.
  std::string name;
  Time since = ku::SystemClock::wallClock();
  /// How many lines a sender has sent, or a page has got.
  std::uint64_t lines = 0;
  std::uint64_t badLines = 0;
};

/// A sender of events: standard input, or a connection.
struct Sender : Peer {
  using Peer::Peer;

  /// How many of the newest lines in a row could not be read.
  std::uint64_t unreadableLines = 0;
  EventReader events{MissingTime::Now};
  /// The answers that wait to be sent to it.
  LineQueue answers;
  /// When it last gave a sign of life; the end of time for standard input, which cannot be asked.
  std::chrono::steady_clock::time_point lastSign = std::chrono::steady_clock::time_point::max();
};

/// What a line is about: a person, by their id, or the room, or neither.
using Topic = std::optional<std::int64_t>;
constexpr std::int64_t roomTopic = std::numeric_limits<std::int64_t>::max();

/// The newest line about each person who is present, and about the room; empty before the first.
struct Newest {
  std::map<std::int64_t, std::string> people;
  std::string room;
};

/// A receiver of states. It first gets a picture, the newest state of everybody and of the room,
/// piece by piece as it takes them; then the lines as they happen. When it does not keep up, the
/// lines that wait are dropped and it gets another picture.
class Page : public Peer {
 public:
  using Peer::Peer;

  /// Adds a line about what has just happened.
  void add(Topic topic, std::string_view line);
  /// Adds an error of a sender. Of many, only the newest are sent.
  void addError(std::string_view line);
  /// Takes what waits to be sent next, "" for nothing.
  std::string take(const Newest& newest, const std::function<std::string()>& status);

  /// Called when there is something to take.
  std::function<void()> wake;
  bool wantsForces = false;
  /// Whether the service's status is to be sent.
  bool wantsStatus = true;
  /// How many lines about what happened were not sent.
  std::uint64_t missed = 0;

 private:
  bool isToCome(Topic topic) const { return _nextInPicture && topic && *topic >= *_nextInPicture; }
  void appendPicture(std::string& text, const Newest& newest);

  /// With room for several frames of a hundred people with their forces.
  LineQueue _lines{std::size_t{1} << 20};
  LineQueue _errors{std::size_t{16} << 10};
  bool _needsPicture = true;
  /// The first topic that is still to come in the picture; none when no picture is being sent.
  std::optional<std::int64_t> _nextInPicture;
  std::uint64_t _reportedMissed = 0;
};

}  // namespace zorvel

#endif
