#include <ku/clock.hpp>
#include <memory>
#include <stdexcept>
#include <vector>

#include "conversions.hpp"
#include "parts.hpp"

namespace zorvel::python {
namespace {

/// A clock that can be in place for a thread. What is in place for a thread is a stack.
class ScopedClock {
 public:
  explicit ScopedClock(Time time) : _clock(time) {}
  ScopedClock(const ScopedClock&) = delete;
  ScopedClock& operator=(const ScopedClock&) = delete;

  ku::SimulatedClock& clock() { return _clock; }

  static void enter(const std::shared_ptr<ScopedClock>& clock) {
    inPlace.push_back({clock, std::make_unique<ku::ClockScope>(clock->_clock)});
  }
  void exit() const {
    if (inPlace.empty() || inPlace.back().clock.get() != this) {
      throw std::runtime_error(
          "the clock is not the last that this thread put in place: clocks are removed in "
          "reverse order, in the thread that put them in place");
    }
    inPlace.pop_back();
  }

 private:
  struct InPlace {
    std::shared_ptr<ScopedClock> clock;
    std::unique_ptr<ku::ClockScope> scope;
  };
  static thread_local std::vector<InPlace> inPlace;

  ku::SimulatedClock _clock;
};

thread_local std::vector<ScopedClock::InPlace> ScopedClock::inPlace;

}  // namespace

void addClock(py::module_& module) {
  module.def(
      "now", [] { return nanoseconds(ku::SystemClock::now()); },
      "The time that readings get: of the system, or of the SimulatedClock that is in place for "
      "this thread. In nanoseconds since 1970.");

  py::class_<ScopedClock, std::shared_ptr<ScopedClock>>(
      module, "SimulatedClock",
      "A clock that stands still where it is set. In a `with` block it takes the place of the "
      "system's for the calling thread.")
      .def(py::init([](py::handle time) {
             return std::make_shared<ScopedClock>(timeFrom(time, "time"));
           }),
           py::arg("time") = 0)
      .def(
          "set", [](ScopedClock& of, py::handle time) { of.clock().set(timeFrom(time, "time")); },
          py::arg("time"), "Moves the clock to a time, which may lie before its present one.")
      .def(
          "advance",
          [](ScopedClock& of, py::handle by) {
            const Time::duration step = durationFrom(by, "step");
            const Time::duration since = of.clock().now().time_since_epoch();
            // Both are half of what 64 bits hold at most.
            if (since + step > latestTime || since + step < -latestTime)
              failValue("step", "is out of range");
            of.clock().advance(step);
          },
          py::arg("step"),
          "Moves the clock on by a timedelta, a numpy.timedelta64, a float of seconds or an int of "
          "nanoseconds.")
      .def_property_readonly(
          "time", [](ScopedClock& of) { return nanoseconds(of.clock().now()); },
          "Where the clock stands, in nanoseconds since 1970.")
      .def("__enter__",
           [](py::object self) {
             self.cast<ScopedClock&>();  // which a bare object is not
             ScopedClock::enter(self.cast<std::shared_ptr<ScopedClock>>());
             return self;
           })
      .def("__exit__", [](const ScopedClock& of, const py::args& /*error*/) { of.exit(); });
}

}  // namespace zorvel::python
