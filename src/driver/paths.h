#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vorn {

// The parts of a path: drive ("C:", Windows only), directory with its last separator, base name,
// and extension without its dot, which the last dot of the file name starts.
struct PathParts {
  std::string drive;
  std::string directory;
  std::string base;
  std::string extension;
};
PathParts split_path(std::string_view path);
// The path in full, without touching the file system beyond the current directory.
std::string absolute_path(const std::string& path);

// Names of the files that a run writes beside its control file.
struct OutputNames {
  std::string out;
  std::string cam;
  std::string ext;
  std::string ocs;
  std::string res;
  std::string cal;  // derived, never used
  std::string apset;
  std::string gcpres;
  std::string chp;
  std::string failed;  // the report of a run that failed, where results are replaced as a whole

  // The files that a run opens; "cam" only on request.
  std::vector<std::string> opened(bool with_cameras) const;
};
OutputNames output_names(const PathParts& control_file);

}  // namespace vorn
