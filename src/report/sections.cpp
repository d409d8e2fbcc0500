// Sections of the report that list objects, in list order.

#include "driver/bundle_project.h"
#include "sensors/image_ranges.h"
#include "sensors/point_share.h"
#include "text/ordered_ranges.h"
#include "text/text_writer.h"

namespace vorn {
namespace {

// Number of object points of each type.
struct PointCounts {
  std::int32_t invalid = 0;
  std::int32_t control = 0;
  std::int32_t intersection = 0;
  std::int32_t check = 0;
};

PointCounts count_points(const OwnedList<ObjectPoint>& points) {
  PointCounts counts;
  for (const ObjectPoint& point : points) {
    switch (point.type) {
      case PointType::none:
        ++counts.invalid;
        break;
      case PointType::control:
        ++counts.control;
        break;
      case PointType::intersection:
        ++counts.intersection;
        break;
      case PointType::check:
        ++counts.check;
        break;
    }
  }
  return counts;
}

}  // namespace

void BundleProject::print_image_coords(TextWriter& out) const {
  out << "Image coordinates\n"
         "=================\n\n";
  write_ranges(out, num_slots(images), complete_images_per_range(images),
               [this](TextWriter& text, std::size_t begin, std::size_t end) {
                 for_each_in(images, begin, end, [&](BundleImage& image) {
                   const CompleteImage complete(image);
                   text << "BundleImage ID : " << image.id << "\n\n";
                   image.camera->print_image_coords(text, image);
                 });
               });
}

void BundleProject::print_cameras(TextWriter& out) const {
  out << "Cameras\n"
         "=======\n\n";
  for (const Camera& camera : cameras) camera.print(out);
  out << '\n';
}

void BundleProject::print_ap_sets(TextWriter& out) const {
  out << "Additional parameter sets\n"
         "=========================\n\n";
  for (const APSet& set : ap_sets) set.print(out);
}

void BundleProject::print_exterior_orientations(TextWriter& out) const {
  out << "Exterior orientations\n"
         "=====================\n\n";
  for (const ImageGeometry& geometry : image_geometries) geometry.print(out);
}

void BundleProject::print_object_points(TextWriter& out) const {
  out << "Object point coordinates\n"
         "========================\n"
         "Object point type:\n"
         "in=intersection, co=control point, ch=check point\n\n"
         "Point ID       X/m         Y/m         Z/m      sX/m      sY/m      sZ/m\n\n";
  write_ranges(out, num_slots(object_points), kElementsPerRange,
               [this](TextWriter& text, std::size_t begin, std::size_t end) {
                 for_each_in(object_points, begin, end,
                             [&](const ObjectPoint& point) { point.print_line(text); });
               });
  const PointCounts counts = count_points(object_points);
  out << "\nNumber of object points with type\n";
  out << "  intersection  :  " << counts.intersection << '\n';
  out << "  control       :  " << counts.control << '\n';
  out << "  check         :  " << counts.check << '\n';
  out << "  total         :  " << counts.intersection + counts.control + counts.check << '\n';
  if (counts.invalid > 0) out << "WARNING: " << counts.invalid << " invalid points found!\n";
  out << '\n';
}

}  // namespace vorn
