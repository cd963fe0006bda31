#ifndef ZORVEL_RECORDING_FAILURE_HPP
#define ZORVEL_RECORDING_FAILURE_HPP

#include <cstdint>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include "recording/printable.hpp"

namespace zorvel {

/// Where the data are wrong; what is not known is empty or 0.
struct Place {
  std::string file;
  std::uint64_t line = 0;
  /// The path to a value of a recording, such as "smile.value", or a column of a table.
  std::string key;
  /// What the system says, as errno.
  int error = 0;
};

/// The data or the system failed: the tool prints the text, which names the place, and ends with
/// exit status 1.
class Failure : public std::runtime_error {
 public:
  explicit Failure(const std::string& text, Place place = {})
      : std::runtime_error(text), _place(std::move(place)) {}

  const Place& place() const { return _place; }

 private:
  Place _place;
};

/// A line of the input is bad; the lines after it can still be read.
class BadLine : public Failure {
 public:
  using Failure::Failure;
};

/// A signal came in that ends the work: whatever is half written must go.
struct Interrupted {
  int signal;
};

/// The failure of a system call on `name`; `error` is errno.
inline Failure systemFailure(const std::string& name, int error) {
  return Failure(printable(name) + ": " + std::generic_category().message(error),
                 {name, 0, "", error});
}

}  // namespace zorvel

#endif
