// Sections of the report that list objects, in list order.

#include "driver/bundle_project.h"
#include "text/text_writer.h"

namespace vorn {

void BundleProject::print_image_coords(TextWriter& out) const {
  out << "Image coordinates\n"
         "=================\n\n";
  for (const BundleImage& image : images) {
    out << "BundleImage ID : " << image.id << "\n\n";
    image.camera->print_image_coords(out, image);
  }
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
  std::int32_t num_invalid = 0;
  std::int32_t num_control = 0;
  std::int32_t num_intersection = 0;
  std::int32_t num_check = 0;
  for (const ObjectPoint& point : object_points) {
    point.print_line(out);
    switch (point.type) {
      case PointType::none:
        ++num_invalid;
        break;
      case PointType::control:
        ++num_control;
        break;
      case PointType::intersection:
        ++num_intersection;
        break;
      case PointType::check:
        ++num_check;
        break;
    }
  }
  out << "\nNumber of object points with type\n";
  out << "  intersection  :  " << num_intersection << '\n';
  out << "  control       :  " << num_control << '\n';
  out << "  check         :  " << num_check << '\n';
  out << "  total         :  " << num_intersection + num_control + num_check << '\n';
  if (num_invalid > 0) out << "WARNING: " << num_invalid << " invalid points found!\n";
  out << '\n';
}

}  // namespace vorn
