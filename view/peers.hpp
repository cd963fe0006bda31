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

  /// As messages call it.
  std::string name;
  Time since = ku::SystemClock::wallClock();
  /// How many a sender has sent, or a page was sent.
  std::uint64_t lines = 0;
  std::uint64_t badLines = 0;
};

/// Whoever sends events: standard input, or a connection.
struct Sender : Peer {
  using Peer::Peer;

  /// How many of the newest lines in a row could not be read.
  std::uint64_t unreadableLines = 0;
  EventReader events{MissingTime::Now};
  /// What waits to be sent to it: answers.
  LineQueue answers;
  /// When it was last heard of; what can be asked for no sign of life is always heard of.
  std::chrono::steady_clock::time_point lastSign = std::chrono::steady_clock::time_point::max();
};

/// What a line is about: a person, by their id, or the room, or neither.
using Topic = std::optional<std::int64_t>;
constexpr std::int64_t roomTopic = std::numeric_limits<std::int64_t>::max();

/// The newest state of each person who is present, which is empty before the first, and of the
/// room.
struct Newest {
  std::map<std::int64_t, std::string> people;
  std::string room;
};

/// Whoever is sent states. It first gets a picture: the newest of everything, piece by piece as it
/// takes them; then the lines as they happen. When it does not keep up, the lines that wait are
/// dropped and it gets another picture.
class Page : public Peer {
 public:
  using Peer::Peer;

  /// A line about what has just happened.
  void add(Topic topic, std::string_view line);
  /// An error of a sender; only the newest ones may be sent.
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

  /// Several frames of a hundred people with their forces.
  LineQueue _lines{std::size_t{1} << 20};
  LineQueue _errors{std::size_t{16} << 10};
  bool _needsPicture = true;
  /// The first topic that the picture has not brought yet; none when there is no picture.
  std::optional<std::int64_t> _nextInPicture;
  std::uint64_t _toldMissed = 0;
};

}  // namespace zorvel

#endif
