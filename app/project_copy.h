#pragma once

#include <string>

#include "driver/bundle_project.h"
#include "text/output_files.h"

namespace vorn::app {

// Writes a project as it is in memory into a folder that exists: its images, orientations, points
// and corrections with all digits, settings and cameras as the files that the control file names.
// Image points whose coordinates are not finite are left out. The control file keeps its name, with
// the extension .ctl. Throws ExchangeError when a file cannot be read.
void write_project_copy(const BundleProject& project, const std::string& control_file,
                        const std::string& directory, OutputFiles& outputs);

}  // namespace vorn::app
