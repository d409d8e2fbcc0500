// Blocks of measured image coordinates: reading, writing and printing by the camera that gives them
// their meaning.

#include <memory>
#include <utility>

#include "sensors/bundle_image.h"
#include "sensors/camera.h"

namespace vorn {

namespace {

constexpr NumberFormat kCoordinate = fixed(4, 10);
constexpr NumberFormat kStdDev = fixed(4, 8);
constexpr NumberFormat kFactor = general();
constexpr int kIdWidth = 8;

void put_point(TextWriter& out, const ImagePoint& point, double factor) {
  out << right_aligned(point.id, kIdWidth) << ' ' << kCoordinate(point.x * factor) << ' '
      << kCoordinate(point.y * factor) << ' ' << kStdDev(point.sx * factor) << ' '
      << kStdDev(point.sy * factor) << '\n';
}

}  // namespace

bool Camera::read_image_coords(TokenReader& in, BundleImage& image) const {
  double factor = 1.0;
  if (!in.read(factor)) return false;
  std::string_view word;
  while (in.read_word(word)) {
    if (word == "stop-dep" || word == "-1") return true;
    auto point = std::make_unique<ImagePoint>();
    point->id = word;
    if (!in.read_pair(point->x, point->y) || !in.read_pair(point->sx, point->sy)) return false;
    point->x *= factor;
    point->y *= factor;
    point->sx *= factor;
    point->sy *= factor;
    image.insert_point(std::move(point));
  }
  return true;
}

void Camera::write_image_coords(TextWriter& out, const BundleImage& image) const {
  // The values are multiplied by the factor that the line before them names, not divided by it.
  constexpr double kFileFactor = 1e-6;
  out << image.id << "   " << kFactor(kFileFactor) << '\n';
  for (const ImagePoint& point : image.points) put_point(out, point, kFileFactor);
  out << '\n';
}

void Camera::print_points(TextWriter& out, const BundleImage& image, std::string_view header,
                          double factor) const {
  out << "Number of points   :  " << image.count_points() << '\n';
  out << "Coord. system type :  " << get_coord_system_name() << "\n\n";
  out << header;
  for (const ImagePoint& point : image.points) put_point(out, point, factor);
  out << '\n';
}

void Camera::print_image_coords(TextWriter& out, const BundleImage& image) const {
  print_points(out, image, "      ID     x/mm       y/mm     sx/mm    sy/mm\n\n", 1000.0);
}

}  // namespace vorn
