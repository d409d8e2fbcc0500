#include "app/exchange/verification.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "app/exchange/source.h"
#include "driver/bundle_project.h"
#include "driver/paths.h"
#include "lsq/ls_params.h"
#include "text/file_system.h"
#include "text/number_format.h"

namespace vorn::exchange {
namespace {

constexpr double kNear = 1e-3;     // of the median depth
constexpr double kLargest = 1e-6;  // [px]

// The current directory while it stands, and the numbers of the adjustment, are process-wide.
class ProcessState {
 public:
  ProcessState() : directory_(current_directory()), params_(ls_params()) {}
  ~ProcessState() {
    change_directory(directory_);
    ls_params() = params_;
  }
  ProcessState(const ProcessState&) = delete;
  ProcessState& operator=(const ProcessState&) = delete;

 private:
  std::string directory_;
  LSParams params_;
};

[[noreturn]] void refuse(const std::string& what) {
  throw ExchangeError("the project that was written is not the source: " + what);
}

void read_project(BundleProject& project, const std::string& control_file) {
  const PathParts parts = split_path(absolute_path(control_file));
  FileText text;
  if (!text.load(control_file)) refuse("its control file cannot be read");
  change_directory(parts.drive + parts.directory);
  TokenReader in(text.view());
  if (project.read_control_file(in) != 1) refuse("it cannot be read");
  for (BundleImage& image : project.images) {
    if (!image.attach_geometry(project.image_geometries)) refuse(image.id + " has no orientation");
  }
  for (APSet& set : project.ap_sets) {
    if (set.bind_to_camera(project.cameras) != 1) refuse(set.id + " has no camera");
  }
  for (ImageGeometry& geometry : project.image_geometries) {
    geometry.init_params();
    geometry.update();
  }
}

void check_counts(const BundleProject& project, const Reconstruction& model) {
  const auto check = [](std::size_t read, std::size_t written, const char* kind) {
    if (read != written) {
      refuse(std::to_string(read) + " " + kind + " instead of " + std::to_string(written));
    }
  };
  check(static_cast<std::size_t>(project.cameras.count()), model.cameras.size(), "cameras");
  check(static_cast<std::size_t>(project.images.count()), model.images.size(), "images");
  check(static_cast<std::size_t>(project.object_points.count()), model.points.size(), "points");
  for (std::size_t i = 0; i < model.images.size(); ++i) {
    const BundleImage& image = *project.images[static_cast<std::int32_t>(i)];
    check(static_cast<std::size_t>(image.count_points()), model.images[i].rays.size(),
          ("rays of image " + image.id).c_str());
  }
}

double distance(const Pixel& a, const Pixel& b) { return std::hypot(a[0] - b[0], a[1] - b[1]); }

// What the last digit of coordinates far from the origin makes of a projection [px].
double rounding_of(const SourceCamera& camera, const Vec3& x, double depth) {
  const double size = std::max({std::abs(x[0]), std::abs(x[1]), std::abs(x[2])});
  return 8.0 * std::numeric_limits<double>::epsilon() * size * camera.fx / std::abs(depth);
}

}  // namespace

double Verification::rms() const {
  return rays > 0 ? std::sqrt(cost / static_cast<double>(rays)) : 0.0;
}

Verification verify_project(const std::string& control_file, const Reconstruction& model,
                            double pixel_size, const Reconstruction* original) {
  const ProcessState state;
  BundleProject project;
  read_project(project, control_file);
  check_counts(project, model);
  const Reconstruction& source = original != nullptr ? *original : model;
  const double near = kNear * median_depth(model);
  Verification result;
  bool is_equal = true;
  for (std::size_t i = 0; i < model.images.size(); ++i) {
    const BundleImage& image = *project.images[static_cast<std::int32_t>(i)];
    const SourceCamera& camera = model.cameras[static_cast<std::size_t>(model.images[i].camera)];
    for (const SourceRay& ray : model.images[i].rays) {
      const auto number = static_cast<std::size_t>(ray.point);
      // A control point has no position of its own in the source.
      if (number >= source.points.size()) continue;
      const ObjectPoint& point = *project.object_points[ray.point];
      const Projection expected =
          exchange::project(source, source.images[i], source.points[number].xyz);
      Pixel xy = image.camera->image_to_pixel(image.object_to_image(point.xyz));
      const double scale = model.has_sizes() ? 1.0 : 1.0 / pixel_size;
      for (double& value : xy) value = value * scale + model.first_pixel;
      const double residual = distance(expected.xy, ray.xy);
      ++result.rays;
      result.behind += expected.depth < 0.0 ? 1 : 0;
      result.cost += 0.5 * residual * residual;
      result.largest_residual = std::max(result.largest_residual, residual);
      const Vec3 p = model.images[i].pose.camera_from_object(point.xyz);
      if (std::abs(p[2]) < near) {
        ++result.near;
        continue;
      }
      const double difference = distance(expected.xy, xy);
      const double allowed = original != nullptr ? rounding_of(camera, point.xyz, p[2]) : 0.0;
      // Written so that values that are not numbers count as differences.
      if (!(difference <= kLargest + allowed)) is_equal = false;
      if (!(difference <= result.largest_difference)) result.largest_difference = difference;
    }
  }
  if (!is_equal) {
    char text[64];
    char* const end = write_number(text, result.largest_difference, general(0, 3));
    refuse("projections differ by up to " + std::string(text, end) + " px");
  }
  return result;
}

}  // namespace vorn::exchange
