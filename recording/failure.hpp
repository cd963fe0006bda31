#ifndef ZORVEL_RECORDING_FAILURE_HPP
#define ZORVEL_RECORDING_FAILURE_HPP

#include <stdexcept>
#include <string>
#include <system_error>

#include "recording/printable.hpp"

namespace zorvel {

/// The data or the system failed: the tool prints the text and ends with exit status 1.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A line of the input is bad; the lines after it can still be read.
class BadLine : public Failure {
 public:
  using Failure::Failure;
};

/// The failure of a system call on `name`; `error` is errno.
inline Failure systemFailure(const std::string& name, int error) {
  return Failure(printable(name) + ": " + std::generic_category().message(error));
}

}  // namespace zorvel

#endif
