#pragma once

#include <cstdint>
#include <vector>

#include "base/owned_list.h"
#include "sensors/bundle_image.h"
#include "sensors/image_point.h"
#include "sensors/object_point.h"

namespace vorn {

// Residual of one image point for the current parameters: computed minus measured image
// coordinates.
struct PointResidual {
  const ImagePoint* image_point = nullptr;
  const ObjectPoint* object_point = nullptr;  // null when there is none: nothing else holds then
  double vx = 0;                              // [m]
  double vy = 0;
  double px = 0;  // weights (sigma0/s)^2, s the standard deviation of the measured coordinate
  double py = 0;
};

// Residuals of all points of an image with camera and geometry, in list order. `residuals` is
// overwritten; its memory serves again from image to image.
void compute_residuals(const BundleImage& image, const OwnedList<ObjectPoint>& object_points,
                       std::vector<PointResidual>& residuals);

}  // namespace vorn
