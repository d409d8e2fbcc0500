#pragma once

#include <cstdint>
#include <vector>

#include "lsq/stages/robust_loss.h"
#include "sensors/bundle_image.h"
#include "sensors/object_point.h"

namespace vorn {

class BundleProject;

// What is minimised, at the current values: sum of the squared weighted misclosures of all image
// points (each point's through the loss), of the a-priori observations of unknowns and of the
// condition equations [m^2]. Not finite where an image point cannot be computed.
struct WeightedSquares {
  double sum = 0.0;
  // Of every image point with an object point, image by image: whether the object point lies in
  // front of the image; true where the geometry has no front.
  std::vector<bool> in_front;
};
void find_weighted_squares(const BundleProject& project, const Loss& loss,
                           WeightedSquares& squares);

// Squared weighted misclosure of one image point [m^2].
double weighted_square(const BundleImage& image, const ImagePoint& point, const Vec3& object_point);
// Whether an object point lies in front of an image.
[[nodiscard]] bool is_in_front(const BundleImage& image, const Vec3& object_point);

// Calls visit(image, image point, object point) for every image point with an object point, in the
// order of `WeightedSquares::in_front`.
template <class Visit>
void for_each_image_point(const OwnedList<BundleImage>& images,
                          const OwnedList<ObjectPoint>& object_points, Visit visit) {
  for (const BundleImage& image : images) {
    for (ImagePoint& point : image.points) {
      ObjectPoint* const object_point = object_point_of(point, object_points);
      if (object_point != nullptr) visit(image, point, *object_point);
    }
  }
}

}  // namespace vorn
