#include "import/import.hpp"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <charconv>
#include <cstring>
#include <ctime>
#include <memory>
#include <string_view>

#include "commands.hpp"
#include "failure.hpp"
#include "import/face_frames.hpp"
#include "import/openface.hpp"
#include "import/pyfeat.hpp"
#include "interrupt.hpp"
#include "progress.hpp"
#include "recording/recording_writer.hpp"
#include "text_output.hpp"

namespace zorvel {
namespace {

constexpr const char* defaultStart = "2000-01-01T00:00:00Z";

/// The fraction of a second, and "Z", that follow a date with time; in nanoseconds.
std::optional<Time::duration> readFraction(std::string_view text) {
  if (text == "Z") return Time::duration(0);
  if (text.size() < 3 || text.size() > 11 || text.front() != '.' || text.back() != 'Z') {
    return std::nullopt;
  }
  const std::string digits(text.substr(1, text.size() - 2));
  if (digits.find_first_not_of("0123456789") != digits.npos) return std::nullopt;
  return Time::duration(std::stoll(fmt::format("{:0<9}", digits)));
}

/// Reads nanoseconds, or a date with time in ISO 8601; none when it is neither or out of range.
std::optional<Time> readTime(const std::string& text) {
  using boost::chrono::seconds;
  const char* const end = text.data() + text.size();
  std::int64_t count = 0;
  const auto number = std::from_chars(text.data(), end, count);
  Time::duration time(count);
  if (number.ptr != end || number.ec != std::errc()) {
    std::tm date{};
    const char* const rest = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &date);
    if (rest == nullptr) return std::nullopt;
    const seconds whole(timegm(&date));
    const auto latest = boost::chrono::duration_cast<seconds>(latestTime);
    if (whole < -latest || whole > latest) return std::nullopt;
    // A day that its month does not have has become one of the next; single digits are no ISO 8601.
    const auto same = fmt::format("{:%Y-%m-%dT%H:%M:%S}", fmt::gmtime(whole.count()));
    if (text.compare(0, text.size() - std::strlen(rest), same) != 0) return std::nullopt;
    const auto fraction = readFraction(rest);
    if (!fraction) return std::nullopt;
    time = whole + *fraction;
  }
  if (time < -latestTime || time > latestTime) return std::nullopt;
  return Time(time);
}

template <typename Format>
void importFile(const ImportOptions& options) {
  CsvReader rows(options.file);
  Format format(rows, options);
  TextOutput output(options.output);
  appendHeader(output.text(), Format::source);
  output.written();
  FaceFrames frames(rows, options, output);
  {
    Progress progress(options.output != "-");
    try {
      while (rows.next()) {
        format.readRow(frames);
        progress.update(rows.lines());
      }
    } catch (const Failure&) {
      // On standard output, what the rows before a bad one tell stands.
      frames.abandon();
      throw;
    }
    format.finish(frames);
  }
  output.commit();
  if (!rows.leftOut().empty()) fmt::print(stderr, "{}\n", rows.leftOut());
}

std::shared_ptr<ImportOptions> addOptions(CLI::App& command) {
  auto options = std::make_shared<ImportOptions>();
  options->start = *readTime(defaultStart);
  command.add_option("FILE", options->file, "The CSV file; - reads standard input")->required();
  command
      .add_option(
          "-o,--output", options->output,
          "The recording to write; it appears when it is whole. - writes to standard output")
      ->type_name("FILE")
      ->capture_default_str();
  command
      .add_option_function<std::string>(
          "--start",
          [options](const std::string& text) {
            const auto start = readTime(text);
            if (!start) {
              throw CLI::ValidationError(
                  "--start", text + " is neither a time like " + defaultStart +
                                 " nor nanoseconds since 1970, or not from 1823 to 2116");
            }
            options->start = *start;
          },
          "The time at which the file begins: ISO 8601 in UTC, or nanoseconds since 1970")
      ->type_name("TIME")
      ->default_str(defaultStart);
  command
      .add_option("--gap", options->gapSeconds,
                  "A person unseen for longer is removed, and a new one on return")
      ->type_name("SECONDS")
      ->check(isBetween(0.0, 1e9))
      ->capture_default_str();
  command.add_flag("--mirrored", options->mirrored,
                   "The video shows a mirror image: yaw and roll change their signs");
  return options;
}

CLI::Option* addFramesPerSecond(CLI::App& command, ImportOptions& options,
                                const std::string& description) {
  return command.add_option("--fps", options.framesPerSecond, description)
      ->type_name("RATE")
      ->check(isBetween(1e-3, 1e6));
}

void addOpenFace(CLI::App& importCommand) {
  auto* const command = importCommand.add_subcommand("openface", "Import what OpenFace 2.x writes");
  command->footer(R"(Example:
  zorvel import openface webcam.csv --output webcam.jsonl)");
  const auto options = addOptions(*command);
  addFramesPerSecond(*command, *options,
                     "Frames per second of image sequences, in which every timestamp is 0");
  command
      ->add_option("--full-intensity", options->fullIntensity,
                   "The intensity of an action unit that counts as full; other than 3 (\"marked\" "
                   "on the scale from 0 to 5) for files whose units were rescaled")
      ->type_name("VALUE")
      ->check(isBetween(1e-3, 1e6))
      ->capture_default_str();
  command->callback([options] {
    catchInterrupts();
    importOpenFace(*options);
  });
}

void addPyFeat(CLI::App& importCommand) {
  auto* const command = importCommand.add_subcommand("pyfeat", "Import what py-feat writes");
  command->footer(R"(Example:
  zorvel import pyfeat speaker.csv --fps 25 | zorvel replay - --output results)");
  const auto options = addOptions(*command);
  addFramesPerSecond(*command, *options, "Frames per second of the video")->required();
  command->callback([options] {
    catchInterrupts();
    importPyFeat(*options);
  });
}

}  // namespace

LandmarkColumns::LandmarkColumns(const CsvReader& rows) {
  // Eye corners, brow ends, nose and mouth corners, in the order of a recording's points.
  constexpr std::array<int, 12> used = {36, 39, 42, 45, 17, 21, 22, 26, 30, 33, 48, 54};
  for (std::size_t point = 0; point < used.size(); ++point) {
    _x.at(point) = rows.find(fmt::format("x_{}", used.at(point)));
    _y.at(point) = rows.find(fmt::format("y_{}", used.at(point)));
  }
}

std::optional<ZV::FacialPoints> LandmarkColumns::read(const CsvReader& rows,
                                                      float confidence) const {
  const auto coordinate = [&rows](CsvReader::Column column) {
    return column ? rows.number(column) : 0.0;
  };
  ZV::FacialPoints points;
  for (std::size_t point = 0; point < _x.size(); ++point) {
    const auto x = coordinate(_x.at(point));
    const auto y = coordinate(_y.at(point));
    if (!x || !y) return std::nullopt;
    points.setFacialPoint(static_cast<ZV::PointDescription>(point),
                          {{narrowed(*x), narrowed(*y)}, confidence});
  }
  return points;
}

void importOpenFace(const ImportOptions& options) { importFile<OpenFaceImport>(options); }

void importPyFeat(const ImportOptions& options) { importFile<PyFeatImport>(options); }

void addImport(CLI::App& tool) {
  auto* const command = tool.add_subcommand(
      "import", "Turn a file of face analysis into a recording, ready to be replayed");
  command->require_subcommand(1);
  command->footer(
      R"(Each frame gives an observation for each person with a face in it, and says of the persons seen
before that they are not seen or, after a gap, removed.

Example:
  zorvel import openface webcam.csv --output webcam.jsonl)");
  addOpenFace(*command);
  addPyFeat(*command);
}

}  // namespace zorvel
