#include "system/output_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "recording/failure.hpp"
#include "system/write_all.hpp"

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

void OutputFile::flushIfFull() {
  if (_text.size() >= bufferSize) flush();
}

void OutputFile::flush() {
  writeAll(_descriptor, _path, {_text.data(), _text.size()});
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
