#pragma once

#include <string>

#include "app/exchange/project_writer.h"

namespace vorn::exchange {

// What `vorn import` is asked for.
struct ImportRequest {
  std::string format;
  std::string source;
  std::string directory;
  std::string control_list;     // empty for none
  double control_sigma = 0.01;  // of its coordinates, in their unit
  std::string check_points;     // those of its points that are checked only, with commas between
  std::string free = "none";
  std::string datum;  // empty: image, or none with control
  double pixel_size_um = 5.0;
  double sigma_px = 1.0;
  double scale = 1.0;
  double max_error_px = 0.0;  // 0 for no limit
  std::string name = "project";
};

// The words of --free: "none", "model", or parameters separated by commas. Throws ExchangeError.
void set_free(ProjectSettings& settings, const std::string& text);

// Reads the source, writes the project, reads it back and compares the projections of both; prints
// a summary on standard output. Throws ExchangeError, and leaves no project, when anything is
// wrong.
void import_project(const ImportRequest& request);

}  // namespace vorn::exchange
