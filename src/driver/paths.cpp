#include "driver/paths.h"

#include <cstddef>
#include <cstdlib>

#include "text/file_system.h"

namespace vorn {
namespace {

#ifdef _WIN32
constexpr std::string_view kSeparators = "/\\";
#else
constexpr std::string_view kSeparators = "/";
#endif

}  // namespace

PathParts split_path(std::string_view path) {
  PathParts parts;
#ifdef _WIN32
  if (path.size() >= 2 && path[1] == ':') {
    parts.drive = path.substr(0, 2);
    path.remove_prefix(2);
  }
#endif
  const std::size_t name = path.find_last_of(kSeparators) + 1;  // 0 when there is no separator
  parts.directory = path.substr(0, name);
  path.remove_prefix(name);
  const std::size_t dot = path.rfind('.');
  parts.base = path.substr(0, dot);
  if (dot != std::string_view::npos) parts.extension = path.substr(dot + 1);
  return parts;
}

std::string absolute_path(const std::string& path) {
#ifdef _WIN32
  char full[_MAX_PATH];
  return _fullpath(full, path.c_str(), _MAX_PATH) == nullptr ? path : std::string(full);
#else
  if (path.empty() || path.front() == '/') return path;
  const std::string directory = current_directory();
  return directory.empty() ? path : directory + '/' + path;
#endif
}

OutputNames output_names(const PathParts& control_file) {
  const std::string stem = control_file.drive + control_file.directory + control_file.base + '.';
  return {stem + "out", stem + "cam",   stem + "ext",    stem + "ocs", stem + "res",
          stem + "cal", stem + "apset", stem + "gcpres", stem + "chp", stem + "failed.out"};
}

std::vector<std::string> OutputNames::opened(bool with_cameras) const {
  std::vector<std::string> names = {out, ext, ocs, res, apset, gcpres, chp};
  if (with_cameras) names.push_back(cam);
  return names;
}

}  // namespace vorn
