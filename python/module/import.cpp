#include <cmath>
#include <optional>
#include <string>
#include <string_view>

#include "conversions.hpp"
#include "import/importer.hpp"
#include "interpreter.hpp"
#include "parts.hpp"
#include "recording/distinct_files.hpp"
#include "recording/text_output.hpp"

namespace zorvel::python {
namespace {

py::dict importFile(Importer& importRows, std::string_view source, py::handle path,
                    py::handle output, const ImportOptions& options) {
  const std::string name = pathFrom(path);
  const std::string outputName = pathFrom(output);
  const ImportFacts facts = withoutLock([&] {
    requireDistinct({name}, {outputName});
    CsvReader rows(name, checkSignals);
    TextOutput recording(outputName, throwIfInterrupted);
    auto made = importInto(recording, source, importRows, rows, options, [] {});
    recording.commit();
    return made;
  });
  py::list fields;
  for (const ImportedField& field : facts.fields) {
    fields.append(py::make_tuple(field.name, field.obstacle, field.observations));
  }
  return py::dict(py::arg("rows") = facts.rows, py::arg("frames") = facts.frames,
                  py::arg("people") = facts.people, py::arg("observations") = facts.observations,
                  py::arg("seconds") = inSeconds(facts.length), py::arg("fields") = fields,
                  py::arg("cut_off_row") = facts.cutOffRow,
                  py::arg("doubtful_times") = facts.doubtfulTimes);
}

ImportOptions importOptions(py::handle start, double gap, std::optional<double> rate,
                            bool mirrored) {
  ImportOptions options;
  if (!start.is_none()) options.start = timeFrom(start, "start");
  if (!(gap >= 0.0 && gap <= 1e9)) failValue("gap", "must be from 0 to 1e9");
  if (rate && !(*rate > 0.0)) failValue("fps", "must be above 0");
  options.gap = Time::duration(std::llround(gap * 1e9));
  options.framesPerSecond = rate;
  options.mirrored = mirrored;
  return options;
}

}  // namespace

void addImport(py::module_& module) {
  const auto file = py::arg("file");
  const auto output = py::arg("output");
  const auto start = py::arg("start");
  const auto gap = py::arg("gap");
  const auto rate = py::arg("fps");
  const auto mirrored = py::arg("mirrored");
  module.def(
      "import_openface_file",
      [](py::handle path, py::handle to, py::handle begin, double seconds,
         std::optional<double> framesPerSecond, bool mirror, double full) {
        ImportOptions options = importOptions(begin, seconds, framesPerSecond, mirror);
        if (!(full > 0.0)) failValue("full_intensity", "must be above 0");
        options.fullIntensity = full;
        return importFile(importOpenFace, "openface", path, to, options);
      },
      file, output, start, gap, rate, mirrored, py::arg("full_intensity"));
  module.def(
      "import_pyfeat_file",
      [](py::handle path, py::handle to, double framesPerSecond, py::handle begin, double seconds,
         bool mirror) {
        return importFile(importPyFeat, "pyfeat", path, to,
                          importOptions(begin, seconds, framesPerSecond, mirror));
      },
      file, output, rate, start, gap, mirrored);
}

}  // namespace zorvel::python
