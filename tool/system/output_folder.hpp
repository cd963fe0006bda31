#ifndef ZORVEL_TOOL_SYSTEM_OUTPUT_FOLDER_HPP
#define ZORVEL_TOOL_SYSTEM_OUTPUT_FOLDER_HPP

#include <filesystem>
#include <vector>

namespace zorvel {

/// A folder to write into. It is made, with its parents, when it is not there; of those that were
/// made, the ones that are empty in the end are removed.
class OutputFolder {
 public:
  /// Throws Failure.
  explicit OutputFolder(const std::filesystem::path& path);
  OutputFolder(const OutputFolder&) = delete;
  OutputFolder& operator=(const OutputFolder&) = delete;
  ~OutputFolder();

 private:
  OutputFolder() = default;

  std::vector<std::filesystem::path> _made;
};

}  // namespace zorvel

#endif
