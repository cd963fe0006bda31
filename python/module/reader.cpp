#include "reader.hpp"

#include <cstdint>
#include <memory>

#include "conversions.hpp"
#include "parts.hpp"

namespace zorvel::python {

void addReader(py::module_& module) {
  py::class_<Reader>(module, "RecordingReader", "The events of a recording, one after the other.")
      .def("__iter__", [](py::object self) { return self; })
      .def("__next__", &Reader::next)
      .def_property_readonly("source", &Reader::source,
                             "What made the recording, by its header; known after the first event.")
      .def_property_readonly(
          "origin",
          [](const Reader& reader) -> std::optional<std::int64_t> {
            const auto origin = reader.origin();
            if (!origin) return std::nullopt;
            return nanoseconds(*origin);
          },
          "The moment of second 0, by its header, in nanoseconds since 1970; None where that is "
          "the first event, and before that is read.");
  module.def(
      "read_recording",
      [](py::handle path) {
        const std::string name = pathFrom(path);
        return withoutLock([&] { return std::make_unique<Reader>(name); });
      },
      py::arg("path"), "Reads a recording, an Event at a time, in constant memory.");
}

}  // namespace zorvel::python
