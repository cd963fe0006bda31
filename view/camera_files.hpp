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
  /// Another one when the file has changed.
  std::string tag;
};

/// Nothing when the folder has no such file. The files are installed apart from the tool, and may
/// come while the service runs.
std::optional<CameraFile> findCameraFile(const std::string& folder, std::string_view name);

}  // namespace zorvel

#endif
