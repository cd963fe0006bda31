#ifndef ZORVEL_VIEW_SERVICE_HPP
#define ZORVEL_VIEW_SERVICE_HPP

#include <chrono>
#include <cstdint>
#include <functional>
#include <ku/clock.hpp>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "playback/live_playback.hpp"
#include "recording/failure.hpp"
#include "recording/record_file.hpp"
#include "recording/standard_error.hpp"
#include "view/last_minute.hpp"
#include "view/peers.hpp"
#include "view/person_ids.hpp"

namespace zorvel {

class JsonLineWriter;

/// What the server of the service counts.
struct ServerCounts {
  /// How many connections were refused, or closed before their request, as there were too many.
  std::uint64_t refusedConnections = 0;
  /// How many lines standard output did not take in time.
  std::uint64_t droppedOutput = 0;
};

/// The estimator as a service, without its connections. It plays the events of all senders in the
/// order of their arrival, records them, and sends the results to pages and standard output. Its
/// clock stands still from the arrival of an event until the event is handled, so a replay of the
/// record gives the same states. docs/view.md describes the lines. For one thread at a time.
class Service {
 public:
  struct Options {
    LiveOptions live;
    /// Takes messages about what is wrong.
    StandardError& errors;
    /// Takes what goes to standard output, a line with its end.
    std::function<void(std::string_view)> output;
  };

  explicit Service(Options options);

  /// Records what is played from now on. To be called before the first event, or a replay would
  /// begin with other states. Throws Failure when the file cannot be written or is not empty.
  void record(const std::string& file);

  /// Goes on from these states, as readStateFile returns them, and saves states in the file from
  /// now on: every minute, and when `saveState` is called. To be called before the first event. A
  /// state that cannot be restored is left out.
  void keepState(const std::string& file, const std::vector<Restore>& states);
  /// Writes all states to the file, if there is one.
  void saveState();

  void join(Sender& sender) { _senders.push_back(&sender); }
  /// Handles a line from the sender, and answers it if it is a request or bad. Returns whether it
  /// was good.
  bool receive(Sender& sender, std::string line);
  /// The sender has gone: others may use its ids.
  void leave(Sender& sender);

  void join(Page& page) { _pages.push_back(&page); }
  /// Handles a line from the page.
  void receive(Page& page, std::string line);
  /// What is to be sent to the page next, "" for nothing.
  std::string take(Page& page) const;
  void leave(const Page& page);

  /// Forgets people who have gone, checks the record, saves the states every minute, and sends the
  /// status to all pages; to be called about once a second.
  void tick();

  /// To be called when standard output has failed.
  void endOutput(const Failure& failure);

  /// The status of the service and its connections, as a JSON object on a line.
  std::string health(const ServerCounts& counts) const;
  /// The numbers of the status, as a text of OpenMetrics.
  std::string metrics(const ServerCounts& counts) const;
  /// The last minute of what was played, as the lines of a recording that begins with the states of
  /// its first moment.
  std::vector<std::shared_ptr<const std::string>> lastMinute() const;

  StandardError& errors() const { return _options.errors; }

  /// What ended the recording, empty if nothing did.
  const std::string& recordFailure() const { return _recordFailure; }
  /// Why the states could not be saved the last time, empty if they could.
  const std::string& stateFailure() const { return _stateFailure; }
  /// What ended standard output, empty if nothing did.
  const std::string& outputFailure() const { return _outputFailure; }
  const LivePlayback& playback() const { return *_playback; }

 private:
  void setClock();
  void beginAnew();
  void beginRecord();
  void endRecord(const Failure& failure);
  void played(const Event& event);
  void remove(std::int64_t person, Time time);
  void publish(Time time, const Row& row);
  void show(Time time, const Row& row, const std::string& line);
  void show(Time time, const Restore& restore);
  void refuse(Sender& sender, const std::string& error);
  void say(const std::string& text);
  /// The key is its name in the status, in /health or, with a prefix, in the metrics.
  struct Number {
    const char* key;
    /// Its type in OpenMetrics: counter or gauge.
    const char* type;
    const char* meaning;
    std::uint64_t value;
  };
  std::vector<Number> statusNumbers() const;
  static std::vector<Number> serverNumbers(const ServerCounts& counts);
  std::vector<Number> otherNumbers() const;
  void writeStatus(JsonLineWriter& json) const;
  std::string statusLine() const;

  Options _options;
  ku::SimulatedClock _clock{Time::min()};
  std::optional<LivePlayback> _playback;
  /// The sender whose line is being handled, if any.
  Sender* _sender = nullptr;

  std::string _firstRecordName;
  std::string _recordName;  // of the present record, or the last one
  std::optional<RecordFile> _record;
  int _records = 0;
  /// How many lines were played since the record began, whether it is written or not.
  std::uint64_t _recordLines = 0;
  std::string _recordFailure;
  std::string _outputFailure;
  LastMinute _lastMinute;

  std::string _stateName;  // empty for no file
  std::string _stateFailure;
  std::chrono::steady_clock::time_point _stateSaved;

  PersonIds _ids;
  std::vector<Sender*> _senders;
  std::vector<Page*> _pages;
  Newest _newest;

  Time _started = ku::SystemClock::wallClock();
  std::chrono::steady_clock::time_point _startedSteadily = std::chrono::steady_clock::now();
  std::uint64_t _events = 0;
  std::uint64_t _badLines = 0;
};

}  // namespace zorvel

#endif
