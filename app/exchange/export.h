#pragma once

#include <string>

#include "driver/bundle_project.h"

namespace vorn::exchange {

// What `vorn export` is asked for.
struct ExportRequest {
  std::string format;
  std::string output;
  double pixel_size_um = 0.0;  // of cameras that measure in lengths; 0: what they say, or 5
};

// Throws ExchangeError for an unknown format, or one that this program was built without.
void check_export(const ExportRequest& request);
// Writes a project in its present state, with a summary on standard output. Throws ExchangeError
// when the format cannot hold it or a file cannot be written.
void export_project(const BundleProject& project, const ExportRequest& request);
// The same for the state that the project's files give.
void export_given_project(const std::string& control_file, const ExportRequest& request);

}  // namespace vorn::exchange
