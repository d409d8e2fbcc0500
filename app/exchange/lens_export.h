#pragma once

#include "app/exchange/reconstruction.h"
#include "sensors/camera.h"

namespace vorn::exchange {

// Which terms a format's lens has.
enum class LensForm {
  full,    // fx, fy, cx, cy, k1, k2, k3, p1, p2
  radial,  // f, k1, k2; the principal point is the origin, y upwards
};

// How a camera of a project measures, seen from another format.
struct PixelFrame {
  LensForm form = LensForm::full;
  std::int32_t columns = 0;
  std::int32_t rows = 0;
  double size = 0.0;               // along a row [m]
  double aspect = 1.0;             // size along a row by size along a column
  std::array<double, 2> right{};   // direction of the columns in the image, (x right, y up)
  std::array<double, 2> down{};    // of the rows
  std::array<double, 2> origin{};  // image coordinates of the coordinate origin [m]

  // Coordinates in the format [px] of image coordinates [m].
  Pixel pixel_of(const Pair& image) const;
};

// A lens in the terms of a format, and how far it is from the camera's: the largest difference over
// the image format [px]. 0 where the terms hold it exactly.
struct ExportedLens {
  SourceCamera camera;
  PixelFrame frame;
  double largest_error = 0.0;
};

// The lens of a camera with all its additional parameters. `frame_pixel` is the pixel size [m] of a
// camera that measures in lengths. Throws ExchangeError for cameras that are no central projection.
ExportedLens export_lens(const Camera& camera, LensForm form, double frame_pixel);

}  // namespace vorn::exchange
