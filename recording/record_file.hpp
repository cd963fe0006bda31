#ifndef ZORVEL_RECORDING_RECORD_FILE_HPP
#define ZORVEL_RECORDING_RECORD_FILE_HPP

#include <sys/types.h>

#include <string>
#include <string_view>

namespace zorvel {

/// A recording that is written while it happens. Each line is written at once, so that the file is
/// whole up to its last line whatever ends the process.
class RecordFile {
 public:
  /// Begins the file with the header, a line. Throws Failure when it cannot be written, or exists
  /// and is not empty.
  RecordFile(const std::string& name, std::string_view header);
  RecordFile(const RecordFile&) = delete;
  RecordFile& operator=(const RecordFile&) = delete;
  ~RecordFile();

  /// Throws Failure when it cannot be written whole; then nothing of it is.
  void append(std::string_view line);
  /// Throws Failure when the file was deleted, so that nobody will find what is written.
  void requireName() const;

 private:
  std::string _name;
  int _descriptor;
  off_t _size = 0;
};

}  // namespace zorvel

#endif
