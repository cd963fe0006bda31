#ifndef ZORVEL_PYTHON_INTERPRETER_HPP
#define ZORVEL_PYTHON_INTERPRETER_HPP

#include <unistd.h>

#include <exception>

#include "pybind.hpp"

namespace zorvel::python {

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

/// Lets a signal, such as that of Ctrl-C, raise its exception.
void throwIfInterrupted();

/// The same, where a reader waits for its input.
void checkSignals(int descriptor);

}  // namespace zorvel::python

#endif
