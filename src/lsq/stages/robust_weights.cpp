#include "lsq/stages/robust_weights.h"

#include <algorithm>
#include <vector>

#include "driver/bundle_project.h"
#include "lsq/ls_params.h"
#include "lsq/stages/weighted_squares.h"

namespace vorn {
namespace {

constexpr double kListedWeight = 0.5;
constexpr std::size_t kMaxListed = 200;

// The weights stand in the table of observations, too.
void refresh_table(BundleProject& project) {
  if (project.observations.is_empty()) return;
  project.observations.set_up(project.images, project.object_points, project.settings.derivatives(),
                              project.normal);
}

}  // namespace

void reweight(BundleProject& project, const Loss& loss) {
  const double variance = ls_params().sigma0_apriori * ls_params().sigma0_apriori;
  for_each_image_point(project.images, project.object_points,
                       [&](const BundleImage& image, ImagePoint& point, const ObjectPoint& object) {
                         point.weight_factor = 1.0;
                         const double s = weighted_square(image, point, object.xyz) / variance;
                         // A weight of zero would be none.
                         point.weight_factor = std::max(loss.weight(s), 1e-12);
                       });
  refresh_table(project);
}

void reset_weights(BundleProject& project) {
  for_each_image_point(
      project.images, project.object_points,
      [](const BundleImage&, ImagePoint& point, const ObjectPoint&) { point.weight_factor = 1.0; });
  refresh_table(project);
}

void print_robust_weights(const BundleProject& project, TextWriter& report) {
  struct Entry {
    const BundleImage* image;
    const ImagePoint* point;
  };
  std::vector<Entry> light;
  for_each_image_point(project.images, project.object_points,
                       [&](const BundleImage& image, const ImagePoint& point, const ObjectPoint&) {
                         if (point.weight_factor < kListedWeight) light.push_back({&image, &point});
                       });
  std::stable_sort(light.begin(), light.end(), [](const Entry& a, const Entry& b) {
    return a.point->weight_factor < b.point->weight_factor;
  });
  report << "Image points weighted down by the robust start\n"
            "----------------------------------------------\n"
            "   Image ID  Point ID    Weight\n\n";
  for (std::size_t i = 0; i < std::min(light.size(), kMaxListed); ++i) {
    report << "   " << right_aligned(light[i].image->id, 8) << "  "
           << right_aligned(light[i].point->id, 8) << ' '
           << scientific(2, 9)(light[i].point->weight_factor) << '\n';
  }
  if (light.size() > kMaxListed) {
    report << "   ... and " << light.size() - kMaxListed << " more\n";
  }
  report << "Number of image points with less than half their weight: " << light.size() << "\n\n";
}

}  // namespace vorn
