#include "output_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "failure.hpp"

namespace zorvel {
namespace {

constexpr std::size_t bufferSize = std::size_t{64} << 10;

}  // namespace

OutputFile::OutputFile(const std::filesystem::path& path)
    : _path(path), _temporaryPath(_path + ".XXXXXX") {
  _descriptor = mkostemp(_temporaryPath.data(), O_CLOEXEC);
  if (_descriptor < 0) throw systemFailure(_path, errno);
  // mkostemp makes private files; these are as readable as any that the user makes.
  const mode_t mask = umask(0);
  umask(mask);
  fchmod(_descriptor, 0666 & ~mask);
}

OutputFile::~OutputFile() {
  if (_descriptor >= 0) close(_descriptor);
  if (!_temporaryPath.empty()) unlink(_temporaryPath.c_str());
}

void OutputFile::written() {
  if (_text.size() >= bufferSize) flush();
}

void OutputFile::flush() {
  const char* position = _text.data();
  std::size_t left = _text.size();
  while (left > 0) {
    const ssize_t count = write(_descriptor, position, left);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw systemFailure(_path, errno);
    position += count;
    left -= static_cast<std::size_t>(count);
  }
  _text.clear();
}

void OutputFile::finish() {
  flush();
  // Some file systems cannot be told to; the others say when the disk is full.
  if (fsync(_descriptor) != 0 && errno != EINVAL) throw systemFailure(_path, errno);
  const int status = close(_descriptor);
  _descriptor = -1;
  if (status != 0) throw systemFailure(_path, errno);
}

void OutputFile::commit() {
  if (std::rename(_temporaryPath.c_str(), _path.c_str()) != 0) throw systemFailure(_path, errno);
  _temporaryPath.clear();
}

}  // namespace zorvel
