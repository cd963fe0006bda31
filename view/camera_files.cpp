#include "view/camera_files.hpp"

#include <fmt/format.h>
#include <sys/stat.h>

#include <array>
#include <utility>

namespace zorvel {
namespace {

// The types of the files, by the ends of their names. No other files are served.
constexpr std::array<std::pair<std::string_view, std::string_view>, 4> types{{
    {".js", "text/javascript"},
    {".json", "application/json"},
    {".wasm", "application/wasm"},
    {".bin", "application/octet-stream"},
}};

}  // namespace

std::optional<CameraFile> findCameraFile(const std::string& folder, std::string_view name) {
  if (name.find('/') != std::string_view::npos) return std::nullopt;
  for (const auto& [end, type] : types) {
    if (name.size() <= end.size() || name.substr(name.size() - end.size()) != end) continue;
    CameraFile file{fmt::format("{}/{}", folder, name), type, ""};
    struct stat status {};
    if (stat(file.path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
    file.tag = fmt::format("\"{:x}-{:x}.{:x}\"", status.st_size, status.st_mtim.tv_sec,
                           status.st_mtim.tv_nsec);
    return file;
  }
  return std::nullopt;
}

}  // namespace zorvel
