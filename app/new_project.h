#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "geometry/vec3.h"

namespace vorn::app {

struct MeasuredPoint {
  std::string id;
  double column = 0.0;
  double row = 0.0;
};

struct MeasuredImage {
  std::string id;
  std::vector<MeasuredPoint> points;
  Vec3 centre{};      // approximate orientation
  Vec3 angles_deg{};  // omega, phi, kappa
};

struct GivenPoint {
  Vec3 xyz{};
  Vec3 std_devs{};  // 0: without error
  bool is_check = false;
};

// What a new project consists of: one camera with square pixels, its images, points that are known.
struct NewProject {
  std::string name = "project";
  std::int32_t columns = 0;
  std::int32_t rows = 0;
  double pixel_um = 0.0;
  double c_mm = 0.0;
  double sigma_px = 0.5;  // of image coordinates
  bool calibrate = false;
  std::vector<MeasuredImage> images;
  std::map<std::string, GivenPoint> points;

  [[nodiscard]] bool has_checks() const;
  // Names of its files; the control file is the first.
  [[nodiscard]] std::vector<std::string> files() const;
};

// Writes the files, each with a key to its columns behind its last record, into a folder that
// exists; all of them or none. Throws ExchangeError when one cannot be written.
void write_new_project(const NewProject& project, const std::string& directory);

}  // namespace vorn::app
