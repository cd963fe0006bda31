#include <fmt/format.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "recording/failure.hpp"
#include "recording/line_reader.hpp"
#include "recording/printable.hpp"
#include "recording/state_file.hpp"
#include "system/command_line.hpp"
#include "system/interrupt.hpp"
#include "system/warnings.hpp"
#include "view/server.hpp"
#include "view/token.hpp"

namespace zorvel {
namespace {

constexpr const char* noAddress = "none";

struct ViewOptions {
  ServerOptions server;
  std::string record;
  std::string state;
  std::string tokenFile;
  bool hasNoToken = false;
  std::optional<Time::duration> forget;
  bool untilEnd = false;
  bool strict = false;
};

bool isForOthers(const ServerOptions& server) {
  return reachOf(server.address) != Reach::ThisMachine;
}

class View {
 public:
  explicit View(const ViewOptions& options)
      : _options(options), _service(serviceOptions()), _server(_service, options.server) {}

  void run() {
    std::vector<Restore> states;
    if (!_options.state.empty()) states = readStateFile(_options.state).value_or(states);
    if (!_options.record.empty()) _service.record(_options.record);
    if (!_server.url().empty()) {
      const std::string& file = _options.tokenFile;
      const auto& token = _options.server.token;
      _errors.say(fmt::format(
          "Open {}{} in a browser{}; Ctrl+C ends the service.", _server.url(),
          token.empty() || !file.empty() ? "" : "#token=" + token,
          file.empty() ? "" : fmt::format(" and give it the token of {}", printable(file))));
    }
    if (!_options.server.socket.empty()) {
      _errors.say(fmt::format("Programs of this user: zorvel send --to unix:{}",
                              printable(_options.server.socket)));
    }
    if (!_server.url().empty() && isForOthers(_options.server) && _options.server.token.empty()) {
      _errors.say(
          fmt::format("warning: without a token, everybody who can reach this machine at {} can "
                      "watch and feed the service",
                      _options.server.address));
    }
    if (!_options.state.empty()) _service.keepState(_options.state, states);
    std::string failure;
    if (isatty(STDIN_FILENO) == 0) failure = handleInput();
    while (failure.empty() && !_server.isStopped() && !_isEnded) _server.waitForInput(-1);
    _server.close();
    _service.saveState();
    sumUp();
    if (!_service.outputFailure().empty()) failure = _service.outputFailure();
    if (!_service.recordFailure().empty()) failure = _service.recordFailure();
    if (!_service.stateFailure().empty()) failure = _service.stateFailure();
    if (failure.empty() && _isEnded && _badInputLines > 0) {
      failure = fmt::format("bad lines skipped: {}", _badInputLines);
    }
    if (!failure.empty()) throw Failure(failure);
  }

 private:
  Service::Options serviceOptions() {
    Service::Options options{{}, _errors, {}};
    options.live.ahead = boost::chrono::seconds(1);
    options.live.forget = _options.forget;
    options.live.forces = Forces::Watched;
    options.output = [this](std::string_view line) { _server.output(line); };
    return options;
  }

  /// Reads standard input until it or the server ends; returns what was wrong with it.
  std::string handleInput() {
    std::string failure;
    _service.join(_input);
    try {
      std::string text;
      LineReader lines("-", [this](int descriptor) {
        _server.waitForInput(descriptor);
        throwIfInterrupted();
      });
      while (failure.empty() && nextLine(lines, text)) {
        const bool isGood = _service.receive(_input, text);
        _input.answers.clear();  // nobody reads them
        if (isGood) continue;
        ++_badInputLines;
        if (_options.strict) failure = "a bad line ended the service";
      }
      _isEnded = _options.untilEnd;
    } catch (const Interrupted&) {
      // This is how a service is ended.
    } catch (const Failure& error) {
      failure = error.what();
    }
    _service.leave(_input);
    return failure;
  }

  /// A line that is too long counts as a bad one.
  bool nextLine(LineReader& lines, std::string& text) {
    while (true) {
      try {
        return lines.next(text);
      } catch (const BadLine& error) {
        if (_options.strict) throw;
        ++_input.lines;
        ++_input.badLines;
        ++_badInputLines;
        _errors.say(_input.name, error.what());
      }
    }
  }

  void sumUp() {
    _errors.sayHeldBack();
    if (_server.droppedOutput() > 0) {
      _errors.say(fmt::format("lines that standard output did not take in time: {}",
                              _server.droppedOutput()));
    }
    const LivePlayback& playback = _service.playback();
    if (playback.leftOut() > 0) {
      _errors.say(fmt::format("readings from the future left out: {}", playback.leftOut()));
    }
    for (const std::string& warning : warnings("zorvel view", playback.findings())) {
      _errors.say(warning);
    }
  }

  const ViewOptions& _options;
  StandardError _errors;
  bool _isEnded = false;
  std::uint64_t _badInputLines = 0;
  Sender _input{"standard input"};
  Service _service;
  Server _server;
};

/// It has the same path from the tool, whether that is installed or built.
std::string cameraFolder() {
  return std::filesystem::read_symlink("/proc/self/exe").parent_path() / ZORVEL_CAMERA_FOLDER;
}

std::string wrongAddress(const std::string& text) {
  if (text == noAddress) return "";
  try {
    reachOf(text);
    return "";
  } catch (const Failure& failure) {
    return failure.what();
  }
}

void view(ViewOptions& options) {
  ServerOptions& server = options.server;
  if (server.address == noAddress) {
    server.address.clear();
    if (server.socket.empty()) throw WrongUsage("--address", "none needs --socket");
    if (!options.tokenFile.empty()) {
      throw WrongUsage("--token-file", "a socket asks for no token, as its permissions guard it");
    }
  } else if (server.hosts.empty() && reachOf(server.address) == Reach::AllAddresses) {
    throw WrongUsage("--address",
                     server.address + " needs --host, the name by which browsers reach it");
  }
  if (!options.tokenFile.empty()) {
    server.token = readToken(options.tokenFile);
  } else if (!server.address.empty() && isForOthers(server) && !options.hasNoToken) {
    server.token = newToken();
  }
  server.cameraFolder = cameraFolder();
  catchInterrupts();
  server.stopDescriptor = interruptDescriptor();
  // A user at a terminal looks at the page.
  if (isatty(STDOUT_FILENO) == 0) server.outputDescriptor = STDOUT_FILENO;
  std::signal(SIGPIPE, SIG_IGN);
  View(options).run();
}

}  // namespace

void addView(Command tool) {
  Command command = tool.addSubcommand(
      "view", "Show people's states on a live page",
      R"(Serves a page with everybody's valence, attention, ease and mood, and why they move. Lines of a
recording come in on standard input, unless that is a terminal, and over WebSocket at /events, from
any number of programs. They are all played together, each at the moment it arrives; the time in a
line is that of its readings. States go out on standard output as those of live do, unless that is a
terminal, and over WebSocket at /states. A bad line is reported on standard error and to its sender,
and skipped. Where zorvel-camera is installed, the page can use this machine's camera. SIGINT and
SIGTERM end the service with 0.

At an --address that others can reach, the service asks for a token. It is in the page's address,
which is printed at the start, or in the file that --token-file names, for view and send alike.
Nothing is encrypted.

Examples:
  my-perception | zorvel view --record today.jsonl
  zorvel view   (and in another terminal: zorvel send meeting.jsonl)
  zorvel view --address 192.168.1.7 --token-file robot.token)");
  const auto options = std::make_shared<ViewOptions>();
  options->server.address = "127.0.0.1";
  options->server.port = 8642;
  command
      .add("--address", options->server.address,
           "The IP address to listen on; none for --socket alone")
      .type("ADDRESS")
      .check(wrongAddress)
      .showDefault();
  command
      .addWholeNumber("--port", options->server.port, 0, 65'535,
                      "The port; 0 takes one that is free")
      .showDefault(std::to_string(options->server.port));
  command
      .add("--host", options->server.hosts,
           "A name by which browsers reach this machine, besides the address and localhost; one "
           "with a port is that of a proxy")
      .type("NAME[:PORT]");
  command
      .add("--token-file", options->tokenFile,
           "Ask for the token in this file, also at an address that only this machine can reach")
      .type("FILE");
  command
      .addFlag("--no-token", options->hasNoToken,
               "Ask for no token: everybody who reaches the address can watch and feed the service")
      .excludes("--token-file");
  command
      .add("--socket", options->server.socket,
           "Also listen on a socket in the file system, for programs of this user alone")
      .type("PATH");
  command
      .add("--record", options->record,
           "Record what is played, line by line; the file must be new or empty")
      .type("FILE");
  command
      .add("--state", options->state,
           "Go on from the states in this file, and save them there every minute and at the end")
      .type("FILE");
  command.addDuration("--forget", options->forget, false,
                      "Remove people who were not observed for this long, and their open scopes");
  command.addFlag("--until-end", options->untilEnd, "End at the end of standard input");
  command.addFlag("--strict", options->strict, "End at the first bad line of standard input");
  command.setAction([options] { view(*options); });
}

}  // namespace zorvel
