#ifndef ZORVEL_PYTHON_READER_HPP
#define ZORVEL_PYTHON_READER_HPP

#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "interpreter.hpp"
#include "pybind.hpp"
#include "recording/recording_reader.hpp"

namespace zorvel::python {

/// A recording while it is read.
class Reader {
 public:
  explicit Reader(const std::string& name) : _recording(name, checkSignals) {}

  Event next() {
    auto event = withoutLock([this] {
      const std::lock_guard lock(_mutex);
      return _recording.next();
    });
    if (!event) throw py::stop_iteration();
    return std::move(*event);
  }
  const std::string& source() const { return _recording.source(); }
  std::optional<Time> origin() const { return _recording.origin(); }

 private:
  std::mutex _mutex;
  RecordingReader _recording;
};

}  // namespace zorvel::python

#endif
