#pragma once

#include <cstddef>
#include <string_view>
#include <utility>
#include <vector>

#include "lsq/adj_object.h"
#include "sensors/bundle_image.h"
#include "sensors/object_point.h"

namespace vorn {

class BundleProject;

inline bool is_free(double std_dev) { return state_of_sd(std_dev) == ParamState::unknown; }

// What remains of the rays when points and images with too few of them are gone, as a run removes
// them: first points, then images. Of a project whose names were checked, which binds measurements.
class RemainingNetwork {
 public:
  explicit RemainingNetwork(const BundleProject& project);

  struct Point {
    const ObjectPoint* object = nullptr;  // null: without a record, intersected by the run
    std::string_view id;
    std::vector<const BundleImage*> images;
    bool used = false;
  };
  const std::vector<Point>& points() const { return points_; }
  // Images that keep at least three points.
  const std::vector<const BundleImage*>& images() const { return images_; }
  // Images that a run removes, with the number of points left in each.
  const std::vector<std::pair<const BundleImage*, std::size_t>>& removed() const {
    return removed_;
  }

 private:
  std::vector<Point> points_;
  std::vector<const BundleImage*> images_;
  std::vector<std::pair<const BundleImage*, std::size_t>> removed_;
};

}  // namespace vorn
