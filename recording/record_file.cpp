#include "recording/record_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "recording/failure.hpp"

namespace zorvel {

RecordFile::RecordFile(const std::string& name, std::string_view header)
    : _name(name),
      _descriptor(open(name.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666)) {
  if (_descriptor < 0) throw systemFailure(name, errno);
  struct stat status {};
  if (fstat(_descriptor, &status) != 0 || status.st_size > 0) {
    close(_descriptor);
    throw Failure(printable(name) + ": exists and is not empty");
  }
  append(header);
}

RecordFile::~RecordFile() { close(_descriptor); }

void RecordFile::requireName() const {
  struct stat status {};
  if (fstat(_descriptor, &status) == 0 && status.st_nlink == 0) {
    throw Failure(printable(_name) + ": was deleted");
  }
}

void RecordFile::append(std::string_view line) {
  for (std::string_view rest = line; !rest.empty();) {
    const ssize_t count = write(_descriptor, rest.data(), rest.size());
    if (count >= 0) {
      rest.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      const int error = errno;
      // What was written of the line would remain as a bad one.
      [[maybe_unused]] const int status = ftruncate(_descriptor, _size);
      throw systemFailure(_name, error);
    }
  }
  _size += static_cast<off_t>(line.size());
}

}  // namespace zorvel
