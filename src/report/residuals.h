#pragma once

#include <cmath>
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

// Statistics of residuals. Without points means are 0/0.
struct ResidualStatistics {
  std::int32_t count = 0;
  double sum_vx = 0;  // [m]
  double sum_vy = 0;
  double sum_vx2 = 0;  // [m^2]
  double sum_vy2 = 0;
  double pvv = 0;  // px vx^2 + py vy^2

  void add(const PointResidual& residual);
  void add(const ResidualStatistics& other);
  double mean_vx() const { return sum_vx / count; }
  double mean_vy() const { return sum_vy / count; }
  double rms_vx() const { return std::sqrt(sum_vx2 / count); }
  double rms_vy() const { return std::sqrt(sum_vy2 / count); }
  // A posteriori [m]; 0 without redundancy.
  double sigma0(std::int32_t redundancy) const {
    return redundancy > 0 ? std::sqrt(pvv / redundancy) : 0.0;
  }
};

// The residuals of one image with camera and geometry.
struct ImageResiduals {
  const BundleImage* image = nullptr;
  std::vector<PointResidual> points;  // in list order
  ResidualStatistics statistics;      // of those that have an object point
  // Working memory, in the same order: object points, and where they are in the image.
  std::vector<const ObjectPoint*> projected;
  std::vector<Pair> computed;
};

// `residuals` is overwritten; its memory serves again from image to image.
void compute_residuals(const BundleImage& image, const OwnedList<ObjectPoint>& object_points,
                       ImageResiduals& residuals);

}  // namespace vorn
