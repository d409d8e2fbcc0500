#pragma once

#include <cstdint>
#include <string>

#include "app/exchange/reconstruction.h"

namespace vorn::exchange {

// What a project comes to when it is held against its source, ray by ray.
struct Verification {
  std::int64_t rays = 0;
  std::int64_t behind = 0;          // points behind the camera
  std::int64_t near = 0;            // nearer than a thousandth of the median depth; not compared
  double largest_difference = 0.0;  // between both projections [px]
  double largest_residual = 0.0;    // of a ray of the source [px]
  double cost = 0.0;                // half the sum of squared residuals [px^2]
  double rms() const;               // of a coordinate [px]
};

// Reads the project of a control file by the library's own readers and compares its projections
// with those of the source that it was written from. `original`, where given, is the source before
// it was moved into another system; differences that follow from the digits of coordinates there
// are allowed for. Throws ExchangeError when the project cannot be read, holds other counts, or
// differs by more than 1e-6 px.
Verification verify_project(const std::string& control_file, const Reconstruction& model,
                            double pixel_size, const Reconstruction* original = nullptr);

}  // namespace vorn::exchange
