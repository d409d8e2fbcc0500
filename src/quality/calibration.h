#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "quality/results.h"

namespace vorn {

class Camera;

// A quantity of the adjusted camera: given value plus corrections of its parameter sets.
struct CalibratedValue {
  std::string name;
  std::string unit;  // "m", "1/m2", ...
  double value = 0.0;
  double sd = 0.0;
};

// Image displacement by all sets of a camera, inner orientation left out, at a point of the
// diagonal of its format.
struct DistortionRow {
  double radius = 0.0;  // signed distance from the principal point [m]
  double dx = 0.0;      // [m]
  double dy = 0.0;
  double radial = 0.0;  // along the diagonal, away from the principal point
  double sd = 0.0;      // of the radial part
};

// One camera as it was adjusted.
struct CalibratedCamera {
  const Camera* camera = nullptr;
  CalibratedValue principal_distance;              // c + dc
  std::array<CalibratedValue, 2> principal_point;  // xp + dxp, yp + dyp
  std::vector<CalibratedValue> others;             // the parameters of its sets
  std::vector<DistortionRow> distortion;           // from corner to corner
  std::array<double, 2> pixel{0.0, 0.0};           // spacing along x and y [m]; 0: not in pixels
};

// The cameras that have parameter sets, in the order of their images.
[[nodiscard]] std::vector<CalibratedCamera> calibrated_cameras(const QualityResults& results);

}  // namespace vorn
