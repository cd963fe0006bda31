#include <stdexcept>
#include <string>

#include "conversions.hpp"
#include "interpreter.hpp"
#include "parts.hpp"
#include "playback/playback.hpp"
#include "recording/distinct_files.hpp"
#include "recording/recording_cut.hpp"
#include "recording/recording_reader.hpp"
#include "recording/text_output.hpp"

namespace zorvel::python {
namespace {

void cutFile(py::handle path, py::handle output, py::handle from, py::handle to, py::handle leadIn,
             py::handle person, py::handle every, const py::dict& rename, bool keepsState) {
  const std::string name = pathFrom(path);
  const std::string outputName = pathFrom(output);
  CutSpan span;
  if (!from.is_none()) span.from = durationFrom(from, "begin");
  if (!to.is_none()) span.to = durationFrom(to, "end");
  if (span.from && *span.from > span.to) throw py::value_error("begin: is after end");
  if (!leadIn.is_none()) span.leadIn = durationFrom(leadIn, "lead_in");
  if (span.leadIn < Time::duration(0)) failValue("lead_in", "must be 0 or more");
  span.person = personFrom(person);
  if (!every.is_none()) span.every = durationFrom(every, "every");
  if (span.every && *span.every <= Time::duration(0)) failValue("every", "must be above 0");
  JoinedPeople::Ids ids;
  for (const auto& [old, renamed] : rename) {
    ids[integer32From(old, "rename")] = integer32From(renamed, "rename");
  }
  try {
    span.people = JoinedPeople(ids);
  } catch (const std::invalid_argument& error) {
    failValue("rename", error.what());
  }
  withoutLock([&] {
    requireDistinct({name}, {outputName});
    RecordingReader recording(name, checkSignals);
    TextOutput cut(outputName, throwIfInterrupted);
    ClockedPlayback playback(Forces::Unwatched);
    RecordingCut lines(recording, span, keepsState ? keeperOf(playback) : StateKeeper());
    while (lines.next(cut.text())) cut.flush();
    cut.commit();
  });
}

}  // namespace

void addCut(py::module_& module) {
  module.def("cut_file", &cutFile, py::arg("path"), py::arg("output"), py::arg("begin"),
             py::arg("end"), py::arg("lead_in"), py::arg("person"), py::arg("every"),
             py::arg("rename"), py::arg("keep_state"));
}

}  // namespace zorvel::python
