#ifndef ZORVEL_VIEW_CAMERA_FILES_HPP
#define ZORVEL_VIEW_CAMERA_FILES_HPP

#include <optional>
#include <string>
#include <string_view>

namespace zorvel {

/// One of the files with which the live page analyses pictures.
struct CameraFile {
  std::string path;
  std::string_view type;
  /// The entity tag of HTTP, which changes with the file.
  std::string tag;
};

/// Nothing when the folder has no such file. The files are installed separately from the tool,
/// perhaps while the service runs.
std::optional<CameraFile> findCameraFile(const std::string& folder, std::string_view name);

}  // namespace zorvel

#endif
