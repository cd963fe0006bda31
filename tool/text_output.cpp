#include "text_output.hpp"

#include <cerrno>
#include <csignal>
#include <cstdio>

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
  const std::size_t count = std::fwrite(_text.data(), 1, _text.size(), stdout);
  if (count == _text.size() && std::fflush(stdout) == 0) {
    _text.clear();
    return;
  }
  const int error = errno;
  throwIfInterrupted();
  // Whoever started this process may have had the signal ignored.
  if (error == EPIPE) throw Interrupted{SIGPIPE};
  throw systemFailure("standard output", error);
}

void TextOutput::commit() {
  if (!_file) return;
  _file->finish();
  _file->commit();
}

}  // namespace zorvel
