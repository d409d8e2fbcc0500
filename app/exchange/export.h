#pragma once

#include <string>

#include "driver/bundle_project.h"

namespace vorn::exchange {

// What `vorn export` is asked for.
struct ExportRequest {
  std::string format;
  std::string output;
  double pixel_size_um = 0.0;  // of cameras that measure in lengths; 0: what they say, or 5
  std::string crs;             // of layers: "EPSG:..." or empty
  double exaggeration = 1.0;   // of vectors and ellipses in layers
  bool ellipses = true;        // error ellipses in layers
};

// Throws ExchangeError for an unknown format, or one that this program was built without, and where
// the export would replace a file of the project.
void check_export(const ExportRequest& request, const std::string& control_file);
// Writes a project in its present state, with a summary on standard output; error ellipses, of an
// adjusted one, take the place of its normal equations. Throws ExchangeError when the format cannot
// hold it or a file cannot be written; earlier files are as they were then.
void export_project(BundleProject& project, const ExportRequest& request);
// The same for the state that the project's files give.
void export_given_project(const std::string& control_file, const ExportRequest& request);

}  // namespace vorn::exchange
