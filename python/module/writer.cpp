#include <memory>
#include <optional>
#include <string>

#include "conversions.hpp"
#include "interpreter.hpp"
#include "parts.hpp"
#include "recording/distinct_files.hpp"
#include "recording/recording_writer.hpp"
#include "recording/text_output.hpp"

namespace zorvel::python {
namespace {

/// A recording that is written; unless it is closed, it leaves no trace.
class Writer {
 public:
  Writer(const std::string& name, const std::string& source, std::optional<Time> origin) {
    withoutLock([&] { _output.emplace(name, throwIfInterrupted); });
    appendHeader(_output->text(), source, origin);
  }
  void write(const Event& event) {
    if (!_output) throw py::value_error("the recording is closed");
    appendEvent(_output->text(), event);
    withoutLock([this] { _output->flush(); });
  }
  void close() {
    if (!_output) return;
    withoutLock([this] { _output->commit(); });
    _output.reset();
  }
  void exit(const py::handle& error) {
    if (error.is_none()) close();
    _output.reset();
  }

 private:
  std::optional<TextOutput> _output;
};

}  // namespace

void addWriter(py::module_& module) {
  py::class_<Writer>(
      module, "Recording",
      "A recording to write. It gets its name when it is closed, as the end of a `with` block "
      "does; one that is not, or whose block ends by an exception, leaves no trace. `origin` is "
      "the moment of second 0, where that is not the first event.")
      .def(py::init([](py::handle path, py::handle source, py::handle origin) {
             std::optional<Time> zero;
             if (!origin.is_none()) zero = timeFrom(origin, "origin");
             return std::make_unique<Writer>(pathFrom(path), textFrom(source, "source"), zero);
           }),
           py::arg("path"), py::arg("source") = "", py::arg("origin") = py::none())
      .def("write", &Writer::write, py::arg("event"), "Appends an event.")
      .def("close", &Writer::close, "Writes everything out, down to the disk.")
      .def("__enter__", [](py::object self) { return self; })
      .def("__exit__", [](Writer& writer, py::handle error, py::handle /*value*/,
                          py::handle /*traceback*/) { writer.exit(error); });
  module.def(
      "require_distinct",
      [](const py::list& inputs, py::handle output) {
        requireDistinct(pathsFrom(inputs), {pathFrom(output)});
      },
      py::arg("inputs"), py::arg("output"));
}

}  // namespace zorvel::python
