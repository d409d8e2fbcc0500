#pragma once

#include <vector>

#include "lsq/stages/held_point.h"
#include "lsq/stages/point_rays.h"
#include "text/text_writer.h"

namespace vorn {

class BundleProject;

// Gives new coordinates to free object points that no step could make good: they come to where
// their rays, from the current orientations, are closest.
class PointPlacement {
 public:
  explicit PointPlacement(BundleProject& project);

  // Places points behind an image or in the plane of a projection centre, and those whose rays
  // intersect elsewhere much better. Points that were in a bad place are noted.
  void place_all(std::vector<HeldPoint>& noted);
  // Places a point if it fits better there. Whether it did.
  bool place(ObjectPoint& point);

 private:
  const OwnedList<ObjectPoint>& points_;
  PointRays rays_;
};

void print_held_points(const std::vector<HeldPoint>& points, TextWriter& report);

}  // namespace vorn
