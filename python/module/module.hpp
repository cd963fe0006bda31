#ifndef ZORVEL_PYTHON_MODULE_HPP
#define ZORVEL_PYTHON_MODULE_HPP

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>
#include <unistd.h>

#include <boost/optional.hpp>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <zv/person_observation.hpp>

#include "recording/event.hpp"
#include "recording/failure.hpp"

namespace zorvel::python {

namespace py = pybind11;

/// An observation, with the time of those readings that are given without one.
struct TimedObservation {
  ZV::PersonObservation fields;
  boost::optional<Time> time;
};

/// Something raised in Python, on its way through code that takes every std::exception for a
/// failure of its own.
struct Raised {
  std::exception_ptr exception;
};

// A thread that waits for the interpreter's lock while the interpreter ends is ended there, by an
// unwinding of its stack. That must not reach an object of Python, which could no longer be
// released, nor the library in the middle of what it does: the thread stays where it is, for the
// end of the process.

/// Calls what waits for the lock or may run code in Python, which gives up the lock now and then.
/// Nothing in the call itself may have a destructor.
template <typename Call>
auto stayingAtTheEnd(Call call) {
  try {
    return call();
  } catch (...) {  // no exception, but the end of the thread
    while (true) pause();
  }
}

/// Gives up the interpreter's lock while it lives.
class Unlocked {
 public:
  Unlocked() : _thread(PyEval_SaveThread()) {}
  Unlocked(const Unlocked&) = delete;
  Unlocked& operator=(const Unlocked&) = delete;
  ~Unlocked() {
    stayingAtTheEnd([this] { PyEval_RestoreThread(_thread); });
  }

 private:
  PyThreadState* _thread;
};

/// Has the interpreter's lock while it lives.
class Locked {
 public:
  Locked() {
    // What is known of the thread goes with the interpreter.
    while (Py_IsInitialized() == 0 || _Py_IsFinalizing() != 0) pause();
    _state = stayingAtTheEnd(PyGILState_Ensure);
  }
  Locked(const Locked&) = delete;
  Locked& operator=(const Locked&) = delete;
  ~Locked() { PyGILState_Release(_state); }

 private:
  PyGILState_STATE _state;
};

/// Calls a function of Python.
py::object callFunction(py::handle function, py::handle argument);

/// Runs `call`, with the interpreter's lock; what it raises comes as Raised.
template <typename Call>
auto callPython(Call call) {
  const Locked lock;
  try {
    return call();
  } catch (...) {
    throw Raised{std::current_exception()};
  }
}

/// Runs `work` without the interpreter's lock; what was raised inside comes out as it was.
template <typename Work>
auto withoutLock(Work work) {
  try {
    const Unlocked unlocked;
    return work();
  } catch (const Raised& raised) {
    std::rethrow_exception(raised.exception);
  }
}

// Numbers from Python. Errors begin with `place`, which names the value.

[[noreturn]] void failType(const std::string& place, std::string_view message);
[[noreturn]] void failValue(const std::string& place, std::string_view message);
std::int64_t integerFrom(py::handle object, const std::string& place);
/// A finite number in single precision.
float floatFrom(py::handle object, const std::string& place);
std::int32_t integer32From(py::handle object, const std::string& place);
/// A number of samples; None for no limit.
std::int32_t samplesFrom(py::handle object);
/// A text that can be written in UTF-8.
std::string textFrom(py::handle object, const std::string& place);

// Times from Python: an aware datetime, a numpy.datetime64, nanoseconds since 1970 as an int, or
// seconds as a float. Lengths of time: a timedelta, a numpy.timedelta64, an int or a float.

Time timeFrom(py::handle object, const std::string& place);
Time::duration durationFrom(py::handle object, const std::string& place);

inline std::int64_t nanoseconds(Time time) { return time.time_since_epoch().count(); }

/// Makes the objects of a class comparable: `plain` gives all that one holds.
template <typename Class, typename Plain>
void bindEquality(Class& bound, Plain plain) {
  using Value = typename Class::type;
  bound.def(
      "__eq__",
      [plain](const Value& left, const Value& right) { return plain(left).equal(plain(right)); },
      py::is_operator());
}

/// Lets them be copied and pickled, too: `made` makes one of the tuple that `plain` gives.
template <typename Class, typename Plain, typename Made>
void bindValue(Class& bound, Plain plain, Made made) {
  bindEquality(bound, plain);
  bound.def(py::pickle(plain, made));
}

/// A path, as the system writes it, and the other way round.
std::string pathFrom(py::handle path);
py::str fileName(const std::string& path);

/// A failure as an exception object: an OSError, or a zorvel.DataError with the place.
py::object exceptionOf(const Failure& failure);

// What the module consists of.

void addObservation(py::module_& module);
void addLive(py::module_& module);
void addRecordings(py::module_& module);

}  // namespace zorvel::python

#endif
