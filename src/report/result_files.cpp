// Records of the adjusted objects for the result files, each list closed by "stop-dep". The
// residual records stand beside the section that shows the same numbers, in residuals.cpp.

#include "driver/bundle_project.h"
#include "sensors/image_ranges.h"
#include "text/ordered_ranges.h"
#include "text/text_writer.h"

namespace vorn {

void BundleProject::write_ap_sets(TextWriter& out) const {
  for (const APSet& set : ap_sets) set.write(out);
  out << "stop-dep\n";
}

void BundleProject::write_exterior_orientations(TextWriter& out) const {
  out << "indiv-type\n";
  for (const ImageGeometry& geometry : image_geometries) geometry.write(out);
  out << "stop-dep\n";
}

void BundleProject::write_object_points(TextWriter& out) const {
  write_ranges(out, num_slots(object_points), kElementsPerRange,
               [this](TextWriter& text, std::size_t begin, std::size_t end) {
                 for_each_in(object_points, begin, end,
                             [&](const ObjectPoint& point) { point.write_line(text); });
               });
  out << "stop-dep\n";
}

void BundleProject::write_cameras(TextWriter& out) const {
  for (const Camera& camera : cameras) camera.write(out);
  out << "stop-dep\n";
}

}  // namespace vorn
