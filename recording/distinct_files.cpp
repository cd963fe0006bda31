#include "recording/distinct_files.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <optional>
#include <set>
#include <utility>

#include "recording/failure.hpp"

namespace zorvel {
namespace {

using FileId = std::pair<dev_t, ino_t>;

/// None for anything but a plain file, or when it is not there.
std::optional<FileId> fileId(const std::string& name, int standardStream) {
  struct stat status {};
  const int result = name == "-" ? fstat(standardStream, &status) : stat(name.c_str(), &status);
  if (result != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  return FileId(status.st_dev, status.st_ino);
}

}  // namespace

void requireDistinct(const std::vector<std::string>& inputs,
                     const std::vector<std::string>& outputs) {
  std::set<FileId> read;
  for (const auto& input : inputs) {
    if (const auto id = fileId(input, STDIN_FILENO)) read.insert(*id);
  }
  for (const auto& output : outputs) {
    const auto id = fileId(output, STDOUT_FILENO);
    if (!id || read.count(*id) == 0) continue;
    throw Failure((output == "-" ? "standard output" : printable(output)) +
                  ": is an input, which would be overwritten");
  }
}

}  // namespace zorvel
