#ifndef ZORVEL_VIEW_SERVICE_HPP
#define ZORVEL_VIEW_SERVICE_HPP

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <ku/clock.hpp>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "playback/live_playback.hpp"
#include "recording/event_reader.hpp"
#include "recording/failure.hpp"
#include "recording/standard_error.hpp"
#include "view/line_queue.hpp"
#include "view/record_file.hpp"

namespace zorvel {

class JsonLineWriter;

/// Whoever sends events: standard input, or a connection.
struct Sender {
  explicit Sender(std::string name_) : name(std::move(name_)) {}

  /// As messages call it.
  std::string name;
  std::uint64_t line = 0;
  /// How many of the newest lines in a row could not be read.
  std::uint64_t badLines = 0;
  EventReader events{MissingTime::Now};
};

/// Whoever is sent states.
struct Page {
  void add(Topic topic, std::string_view line);
  /// Takes the lines that wait, with how many were dropped before them.
  std::string take();

  /// Called when there is something in the queue.
  std::function<void()> wake;
  bool wantsForces = false;
  LineQueue queue;
};

/// The estimator as a service, whatever the ways in and out are: plays the events of all senders,
/// in the order of their arrival, records them, and tells pages and standard output what came of
/// them. Its clock stands still at the arrival of an event until that is handled, so a replay of
/// the record gives the same states. docs/view.md describes the lines. One thread at a time.
class Service {
 public:
  struct Options {
    LiveOptions live;
    /// Where it says what is wrong.
    StandardError& errors;
    /// Takes what goes to standard output, a line with its end.
    std::function<void(std::string_view)> output;
  };

  explicit Service(Options options);

  /// Records what is played from now on. To be called before the first event, or a replay would
  /// begin with other states. Throws Failure when the file cannot be written, or is there and not
  /// empty.
  void record(const std::string& file);

  /// Handles a line from the sender; returns what to answer, which may be nothing.
  std::string receive(Sender& sender, std::string line);
  /// The sender has gone: others may use its ids.
  void leave(const Sender& sender);

  /// Adds a page, which gets the service's status and the newest state of everybody.
  void connect(Page& page);
  void disconnect(Page& page) { _pages.erase(&page); }
  /// Handles a line from the page; returns what to answer.
  std::string receive(Page& page, std::string line);
  /// Forgets who has gone and sends the status to all pages; to be called about once a second.
  void tick();

  /// Standard output takes no more, and why.
  void endOutput(const Failure& failure);

  /// How the service is, as a JSON object on a line.
  std::string status() const;
  /// The last minute of what was played, as a recording.
  std::string lastMinute() const;

  /// What ended the recording, empty if nothing did.
  const std::string& recordFailure() const { return _recordFailure; }
  /// What ended standard output, empty if nothing did.
  const std::string& outputFailure() const { return _outputFailure; }
  const LivePlayback& playback() const { return *_playback; }

 private:
  struct Range {
    std::int32_t first;
    std::int32_t count;
    const Sender* owner;
  };

  void setClock();
  void beginAnew();
  void beginRecord();
  void endRecord(const Failure& failure);
  void played(const Event& event);
  void remove(std::int32_t person, Time time);
  void publish(Time time, const Row& row);
  void requireOwn(const Sender& sender, const Event& event);
  void dropRanges(const Sender& sender);
  bool isFree(const Range& range) const;
  std::string grantPeople(const Sender& sender, std::optional<std::int32_t> before,
                          std::int32_t count);
  std::string answerRequest(const Sender& sender, std::string line);
  std::string refuse(const Sender& sender, const std::string& error);
  void say(const std::string& text);
  void writeStatus(JsonLineWriter& json) const;
  std::string statusLine() const;

  Options _options;
  ku::SimulatedClock _clock{Time::min()};
  std::optional<LivePlayback> _playback;
  /// Whose line is being handled; none between lines.
  const Sender* _sender = nullptr;

  std::string _recordName;  // of the first; empty for no record
  std::optional<RecordFile> _record;
  int _records = 0;
  /// How many lines were played since the record began, whether it is written or not.
  std::uint64_t _recordLines = 0;
  std::string _recordFailure;
  std::string _outputFailure;
  std::deque<std::pair<Time, std::string>> _lastMinute;
  std::size_t _lastMinuteBytes = 0;

  std::map<std::int32_t, const Sender*> _owners;
  std::vector<Range> _ranges;

  std::set<Page*> _pages;
  /// The newest state of each person who is present; empty before the first.
  std::map<std::int32_t, std::string> _newest;
  std::string _newestRoom;

  Time _started = ku::SystemClock::wallClock();
  std::chrono::steady_clock::time_point _startedSteadily = std::chrono::steady_clock::now();
  std::uint64_t _events = 0;
  std::uint64_t _badLines = 0;
};

}  // namespace zorvel

#endif
