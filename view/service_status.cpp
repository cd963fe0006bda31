// The status of the service: for pages, for /health, and for Prometheus.

#include <fmt/format.h>

#include <algorithm>
#include <zv/version.hpp>

#include "recording/json_writer.hpp"
#include "view/service.hpp"

namespace zorvel {
namespace {

constexpr const char* counter = "counter";
constexpr const char* gauge = "gauge";

/// Writes null for an empty text.
void writeText(JsonLineWriter& json, std::string_view key, const std::string& text) {
  json.key(key);
  if (text.empty()) {
    json.null();
  } else {
    json.value(text);
  }
}

}  // namespace

std::vector<Service::Number> Service::statusNumbers() const {
  return {
      {"people", gauge, "People who are present", _newest.people.size()},
      {"events", counter, "Events that were played", _events},
      {"bad_lines", counter, "Lines that were refused", _badLines},
      {"lost_messages", counter, "Messages that standard error did not take",
       _options.errors.lost()},
      {"pages", gauge, "Connections to /states", _pages.size()},
  };
}

std::vector<Service::Number> Service::serverNumbers(const ServerCounts& counts) {
  return {
      {"refused_connections", counter,
       "Connections that were refused, or closed before their request, as there were too many",
       counts.refusedConnections},
      {"dropped_output", counter, "Lines that standard output did not take in time",
       counts.droppedOutput},
  };
}

/// The numbers that JSON has in other forms.
std::vector<Service::Number> Service::otherNumbers() const {
  const auto pagesBehind = std::count_if(_pages.begin(), _pages.end(),
                                         [](const Page* page) { return page->missed > 0; });
  return {
      {"senders", gauge, "Connections to /events, and standard input until its end",
       _senders.size()},
      {"pages_with_missed_lines", gauge, "Connections to /states that did not keep up",
       static_cast<std::uint64_t>(pagesBehind)},
      {"recording", gauge, "1 while a record is written", _record ? 1U : 0U},
      {"recording_failed", gauge, "1 when the record has ended before the service",
       _recordFailure.empty() ? 0U : 1U},
      {"state_failed", gauge, "1 when the states could not be saved the last time",
       _stateFailure.empty() ? 0U : 1U},
      {"output_failed", gauge, "1 when standard output has failed",
       _outputFailure.empty() ? 0U : 1U},
  };
}

void Service::writeStatus(JsonLineWriter& json) const {
  const std::chrono::duration<double> uptime = std::chrono::steady_clock::now() - _startedSteadily;
  json.member("status", "ok");
  json.member("version", ZV_VERSION);
  json.member("started", _started);
  json.member("time", ku::SystemClock::wallClock());
  json.member("uptime", uptime.count());
  for (const Number& number : statusNumbers()) json.member(number.key, number.value);
  writeText(json, "recording", _record ? printable(_recordName) : "");
  writeText(json, "recording_failure", _recordFailure);
}

std::string Service::statusLine() const {
  return jsonLine(
      [this](JsonLineWriter& json) { json.object("status", [&] { writeStatus(json); }); });
}

std::string Service::health(const ServerCounts& counts) const {
  return jsonLine([&](JsonLineWriter& json) {
    writeStatus(json);
    for (const Number& number : serverNumbers(counts)) json.member(number.key, number.value);
    std::vector<std::pair<const Peer*, std::uint64_t>> connections;
    for (const Sender* const sender : _senders) {
      connections.emplace_back(sender, sender->answers.dropped());
    }
    for (const Page* const page : _pages) connections.emplace_back(page, page->missed);
    json.list("connections", connections, [&json](const auto& connection) {
      const auto& [peer, dropped] = connection;
      json.member("name", peer->name);
      json.member("since", peer->since);
      json.member("lines", peer->lines);
      json.member("bad_lines", peer->badLines);
      json.member("dropped", dropped);
    });
  });
}

std::string Service::metrics(const ServerCounts& counts) const {
  fmt::memory_buffer text;
  const auto append = [&text](const char* format, const auto&... values) {
    fmt::format_to(fmt::appender(text), fmt::runtime(format), values...);
  };
  append("# TYPE zorvel_view info\n# HELP zorvel_view The service\n");
  append("zorvel_view_info{{version=\"{}\"}} 1\n", ZV_VERSION);
  append("# TYPE zorvel_view_start_time_seconds gauge\n");
  append("# UNIT zorvel_view_start_time_seconds seconds\n");
  append("# HELP zorvel_view_start_time_seconds When the service was started, since 1970\n");
  append("zorvel_view_start_time_seconds {:.3f}\n", inSeconds(_started.time_since_epoch()));
  for (const auto& numbers : {statusNumbers(), serverNumbers(counts), otherNumbers()}) {
    for (const auto& [key, type, meaning, value] : numbers) {
      append("# TYPE zorvel_view_{0} {1}\n# HELP zorvel_view_{0} {2}\nzorvel_view_{0}{3} {4}\n",
             key, type, meaning, type == counter ? "_total" : "", value);
    }
  }
  append("# EOF\n");
  return fmt::to_string(text);
}

}  // namespace zorvel
