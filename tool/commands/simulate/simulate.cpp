#include <fmt/format.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <string>

#include "commands/simulate/scene.hpp"
#include "recording/recording_writer.hpp"
#include "recording/text_output.hpp"
#include "system/command_line.hpp"
#include "system/interrupt.hpp"
#include "system/progress.hpp"

namespace zorvel {
namespace {

// 2023-11-14 22:13:20 UTC. Any time would do, as long as it never changes.
constexpr std::int64_t startSeconds = 1'700'000'000;
constexpr std::int64_t secondNanoseconds = 1'000'000'000;

struct SimulateOptions {
  std::int32_t people = 3;
  std::int64_t seconds = 60;
  std::int32_t rate = 30;
  std::int64_t seed = 1;
  std::string output = "-";
};

void simulate(const SimulateOptions& options) {
  catchInterrupts();
  TextOutput output(options.output, throwIfInterrupted);
  const auto write = [&output](const Event& event) { appendEvent(output.text(), event); };
  const auto timeOf = [&options](std::int64_t cycle) {
    return Time(Time::duration((startSeconds + cycle / options.rate) * secondNanoseconds +
                               cycle % options.rate * secondNanoseconds / options.rate));
  };
  appendHeader(output.text(), "simulate");
  Scene scene(options.people, options.rate, static_cast<std::uint64_t>(options.seed));
  const std::int64_t cycles = options.seconds * options.rate;
  Progress progress(options.output != "-");
  for (std::int64_t cycle = 0; cycle < cycles; ++cycle) {
    throwIfInterrupted();
    scene.step(timeOf(cycle), write);
    output.flush();
    if (cycle % options.rate == 0) {
      const std::int64_t second = cycle / options.rate;
      progress.update(static_cast<std::uint64_t>(second),
                      static_cast<std::uint64_t>(options.seconds),
                      fmt::format("{} of {} s", second, options.seconds));
    }
  }
  scene.finish(timeOf(cycles), write);
  output.flush();
  output.commit();
}

}  // namespace

void addSimulate(Command tool) {
  Command command = tool.addSubcommand(
      "simulate", "Make a recording of a small scene, to try things with",
      R"(People come, greet the robot, listen, look away, get upset or sad, make up and leave; after
a while they come again. They look, smile, speak and touch, and now and then are not seen; readings
are noisy, late, or missing. In 60 seconds every event and every field occurs. The same options give
the same bytes on every machine.

Examples:
  zorvel simulate | zorvel replay - --output results
  zorvel simulate --people 20 --seconds 3600 --output load.jsonl)");
  const auto options = std::make_shared<SimulateOptions>();
  command.addWholeNumber("--people", options->people, 1, 10'000, "How many people come and go")
      .showDefault(std::to_string(options->people));
  command.addWholeNumber("--seconds", options->seconds, 1, 1'000'000'000, "How long the scene is")
      .showDefault(std::to_string(options->seconds));
  command.addWholeNumber("--rate", options->rate, 1, 1'000, "Cycles per second")
      .showDefault(std::to_string(options->rate));
  command
      .addWholeNumber("--seed", options->seed, 0, std::numeric_limits<std::int64_t>::max(),
                      "Another number gives another scene")
      .showDefault(std::to_string(options->seed));
  command.addOutputFile(options->output, "The recording to write");
  command.setAction([options] { simulate(*options); });
}

}  // namespace zorvel
