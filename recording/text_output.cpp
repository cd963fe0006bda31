#include "recording/text_output.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <utility>

#include "recording/failure.hpp"

namespace zorvel {
namespace {

constexpr std::size_t bufferSize = std::size_t{64} << 10;
constexpr int mostLinks = 40;  // as many as the system follows

mode_t readCreationMask() {
  const mode_t mask = umask(0);
  umask(mask);
  return mask;
}

// Read while there is one thread, as reading it sets it.
const mode_t creationMask = readCreationMask();

/// The descriptor that a name like /dev/fd/3 stands for. Such a name looks like a symbolic link,
/// but opening what it points to would begin again at the start of the file.
std::optional<int> descriptorOf(const std::filesystem::path& path) {
  std::error_code error;
  if (!std::filesystem::equivalent(path.parent_path(), "/proc/self/fd", error)) return std::nullopt;
  const std::string digits = path.filename().string();
  int descriptor = -1;
  std::from_chars(digits.data(), digits.data() + digits.size(), descriptor);
  return descriptor;
}

/// Follows symbolic links to what is to be written; returns the descriptor when that is an open
/// one.
std::optional<int> followLinks(std::filesystem::path& path) {
  std::error_code error;
  for (int links = 0; std::filesystem::is_symlink(path, error); ++links) {
    if (links == mostLinks) throw systemFailure(path.string(), ELOOP);
    if (const auto descriptor = descriptorOf(path)) return descriptor;
    path = path.parent_path() / std::filesystem::read_symlink(path);
  }
  return std::nullopt;
}

}  // namespace

TextOutput::TextOutput(const std::string& name, std::function<void()> throwIfInterrupted)
    : _name(name == "-" ? "standard output" : name),
      _throwIfInterrupted(std::move(throwIfInterrupted)),
      _path(name),
      _process(getpid()) {
  const auto descriptor = name == "-" ? STDOUT_FILENO : followLinks(_path);
  if (descriptor) {
    _descriptor = fcntl(*descriptor, F_DUPFD_CLOEXEC, 0);
    if (_descriptor < 0) throw systemFailure(_name, errno);
    return;
  }
  struct stat present {};
  const bool isThere = stat(_path.c_str(), &present) == 0;
  if (isThere && !S_ISREG(present.st_mode)) {
    _descriptor = openStream();
    return;
  }
  if (isThere && faccessat(AT_FDCWD, _path.c_str(), W_OK, AT_EACCESS) != 0) {
    throw systemFailure(_name, errno);
  }
  _temporaryPath = _path.string() + ".XXXXXX";
  _descriptor = mkostemp(_temporaryPath.data(), O_CLOEXEC);
  if (_descriptor < 0) throw systemFailure(_name, errno);
  // Where the user may not set the owner or the group, it stays the user's own. The mode comes
  // last, as a change of owner clears bits of it.
  if (isThere && fchown(_descriptor, present.st_uid, present.st_gid) != 0) {
    [[maybe_unused]] const int status = fchown(_descriptor, uid_t(-1), present.st_gid);
  }
  fchmod(_descriptor, isThere ? present.st_mode & 0777 : 0666 & ~creationMask);
}

TextOutput::~TextOutput() {
  if (_descriptor >= 0) close(_descriptor);
  if (!_temporaryPath.empty() && _process == getpid()) unlink(_temporaryPath.c_str());
}

int TextOutput::openStream() const {
  int descriptor = -1;
  while ((descriptor = open(_path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY)) < 0) {
    const int error = errno;
    onInterrupt();
    if (error != EINTR) throw systemFailure(_path.string(), error);
  }
  return descriptor;
}

void TextOutput::onInterrupt() const {
  if (_throwIfInterrupted) _throwIfInterrupted();
}

void TextOutput::flush() {
  if (_temporaryPath.empty() || _text.size() >= bufferSize) write();
}

// Not through stdio, which would try once more, at the end, to write what could not be written.
void TextOutput::write() {
  std::string_view rest(_text.data(), _text.size());
  while (!rest.empty()) {
    const ssize_t count = ::write(_descriptor, rest.data(), rest.size());
    if (count >= 0) {
      rest.remove_prefix(static_cast<std::size_t>(count));
      continue;
    }
    const int error = errno;
    onInterrupt();
    // Whoever started this process may have had the signal ignored.
    if (error == EPIPE) throw Interrupted{SIGPIPE};
    if (error != EINTR) throw systemFailure(_name, error);
  }
  _text.clear();
}

void TextOutput::finish() {
  if (_descriptor < 0) return;
  write();
  // A pipe or a terminal has nothing to synchronise and says EINVAL. A disk reports here that it is
  // full.
  if (fsync(_descriptor) != 0 && errno != EINVAL) throw systemFailure(_name, errno);
  const int status = close(_descriptor);
  _descriptor = -1;
  if (status != 0) throw systemFailure(_name, errno);
}

void TextOutput::commit() {
  finish();
  if (_temporaryPath.empty()) return;
  if (std::rename(_temporaryPath.c_str(), _path.c_str()) != 0) throw systemFailure(_name, errno);
  _temporaryPath.clear();
}

}  // namespace zorvel
