#include "text_output.hpp"

#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "failure.hpp"
#include "interrupt.hpp"

namespace zorvel {

TextOutput::TextOutput(const std::string& name) {
  if (name != "-") _file.emplace(name);
}

void TextOutput::written() {
  if (_file) {
    _file->written();
    return;
  }
  // Not through stdio, which would try once more at the end what could not be written.
  const char* position = _text.data();
  std::size_t left = _text.size();
  while (left > 0) {
    const ssize_t count = write(STDOUT_FILENO, position, left);
    if (count >= 0) {
      position += count;
      left -= static_cast<std::size_t>(count);
      continue;
    }
    const int error = errno;
    throwIfInterrupted();
    // Whoever started this process may have had the signal ignored.
    if (error == EPIPE) throw Interrupted{SIGPIPE};
    if (error != EINTR) throw systemFailure("standard output", error);
  }
  _text.clear();
}

void TextOutput::commit() {
  if (!_file) return;
  _file->finish();
  _file->commit();
}

}  // namespace zorvel
