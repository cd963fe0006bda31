#ifndef ZORVEL_RECORDING_STATE_FILE_HPP
#define ZORVEL_RECORDING_STATE_FILE_HPP

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "recording/event.hpp"

namespace zorvel {

// A file with the states of everybody and of the room: a recording of `restore` lines. The room
// comes last, so that a file that was cut off is noticed.

/// Writes the file, or leaves it as it was and throws Failure.
void writeStateFile(const std::string& file, std::string_view source, Time time,
                    std::vector<Restore> states);

/// Takes the events of such a file.
class StatesReader {
 public:
  /// Throws JsonError when it is not a state, or comes after the room's.
  void add(Event event);
  /// All of them. Throws JsonError when the room's is missing.
  std::vector<Restore> finish();

 private:
  bool hasRoom() const;

  std::vector<Restore> _states;
};

/// The states in the file; none when there is no file. Throws Failure when one of the lines is not
/// a state or the file is not whole.
std::optional<std::vector<Restore>> readStateFile(const std::string& file);

}  // namespace zorvel

#endif
