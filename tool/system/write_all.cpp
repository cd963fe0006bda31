#include "system/write_all.hpp"

#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "recording/failure.hpp"
#include "system/interrupt.hpp"

namespace zorvel {

void writeAll(int descriptor, const std::string& name, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = write(descriptor, text.data(), text.size());
    if (count >= 0) {
      text.remove_prefix(static_cast<std::size_t>(count));
      continue;
    }
    const int error = errno;
    throwIfInterrupted();
    // Whoever started this process may have had the signal ignored.
    if (error == EPIPE) throw Interrupted{SIGPIPE};
    if (error != EINTR) throw systemFailure(name, error);
  }
}

}  // namespace zorvel
