#include "system/output_folder.hpp"

#include <unistd.h>

#include "recording/failure.hpp"

namespace zorvel {

// Delegates first: an object whose delegating constructor throws is destroyed, folders and all.
OutputFolder::OutputFolder(const std::filesystem::path& path) : OutputFolder() {
  std::filesystem::path folder;
  for (const auto& part : path) {
    folder /= part;
    std::error_code error;
    if (std::filesystem::create_directory(folder, error)) _made.push_back(folder);
    if (error) {
      throw Failure("cannot make the folder " + printable(folder.string()) + ": " +
                    error.message());
    }
  }
}

OutputFolder::~OutputFolder() {
  // rmdir leaves a folder that is not empty.
  for (auto folder = _made.rbegin(); folder != _made.rend(); ++folder) rmdir(folder->c_str());
}

}  // namespace zorvel
