// Bundler's "bundle.out", version 0.3.

#include <string>

#include "app/exchange/readers.h"

namespace vorn::exchange {
namespace {

constexpr std::int32_t kNotRegistered = -1;

// Its rotations have ten digits.
constexpr double kRotationTolerance = 1e-5;

struct Counts {
  std::int32_t cameras = 0;
  std::int32_t points = 0;
};

// Header and counts; leaves `fields` behind them.
Counts read_head(const Source& source, Fields& fields) {
  Lines lines(source);
  std::string_view line;
  std::size_t start = source.content().size();
  while (lines.next(line)) {
    if (!trimmed(line).empty() && trimmed(line).front() != '#') {
      start = source.offset_of(line.data());
      break;
    }
    if (line.find("Bundle file") != std::string_view::npos &&
        line.find("v0.3") == std::string_view::npos) {
      source.fail(line.data(), "only version 0.3 of the format is known");
    }
  }
  fields = Fields(source, source.content().substr(start));
  Counts counts;
  counts.cameras = fields.integer<std::int32_t>("number of cameras");
  counts.points = fields.integer<std::int32_t>("number of points");
  const std::size_t room = source.content().size();
  if (counts.cameras < 0 || static_cast<std::size_t>(counts.cameras) > room / 30 ||
      counts.points < 0 || static_cast<std::size_t>(counts.points) > room / 13) {
    fields.fail("the file is too short for " + std::to_string(counts.cameras) + " cameras and " +
                std::to_string(counts.points) + " points");
  }
  return counts;
}

class BundlerReader {
 public:
  explicit BundlerReader(const Source& source)
      : source_(source), fields_(source, source.content()) {}

  Reconstruction read() {
    result_.format = "Bundler";
    result_.axes = Axes::behind;
    const Counts counts = read_head(source_, fields_);
    for (std::int32_t i = 0; i < counts.cameras; ++i) read_camera(i);
    result_.points.resize(static_cast<std::size_t>(counts.points));
    for (std::int32_t i = 0; i < counts.points; ++i) read_point(i);
    fields_.expect_end();
    const std::size_t missing = image_of_.size() - result_.images.size();
    if (missing > 0) {
      result_.notes.push_back(std::to_string(missing) +
                              " cameras are not registered (f = 0) and were left out");
    }
    if (lost_rays_ > 0) {
      result_.notes.push_back(std::to_string(lost_rays_) +
                              " measurements in cameras that are not registered were left out");
    }
    return std::move(result_);
  }

 private:
  void read_camera(std::int32_t number) {
    SourceCamera camera;
    SourceImage image;
    camera.id = "camera" + std::to_string(number);
    camera.model = "f,k1,k2";
    camera.own = Lens::f | Lens::k1 | Lens::k2;
    camera.fx = camera.fy = fields_.real("focal length");
    camera.k[0] = fields_.real("distortion");
    camera.k[1] = fields_.real("distortion");
    for (Vec3& row : image.pose.r) {
      for (double& value : row) value = fields_.real("rotation");
    }
    for (double& value : image.pose.offset) value = fields_.real("translation");
    if (camera.fx == 0.0) {
      image_of_.push_back(kNotRegistered);
      return;
    }
    if (camera.fx < 0.0) fields_.fail(camera.id + ": the focal length is negative");
    if (!is_rotation(image.pose.r, kRotationTolerance)) {
      fields_.fail(camera.id + ": the rotation matrix is none");
    }
    image.name = "image" + std::to_string(number);
    image.camera = static_cast<std::int32_t>(result_.cameras.size());
    image_of_.push_back(static_cast<std::int32_t>(result_.images.size()));
    result_.cameras.push_back(std::move(camera));
    result_.images.push_back(std::move(image));
  }

  // Coordinates, colour, then the number of views and per view camera, key, x, y.
  void read_point(std::int32_t number) {
    SourcePoint& point = result_.points[static_cast<std::size_t>(number)];
    point.id = std::to_string(number);
    for (double& value : point.xyz) value = fields_.real("coordinate");
    for (int i = 0; i < 3; ++i) fields_.real("colour");
    const auto views = fields_.integer<std::int32_t>("number of views");
    if (views < 0) fields_.fail("a negative number of views");
    for (std::int32_t i = 0; i < views; ++i) {
      const auto camera = fields_.integer<std::int32_t>("camera");
      if (camera < 0 || static_cast<std::size_t>(camera) >= image_of_.size()) {
        fields_.fail("camera " + std::to_string(camera) + ": there are only " +
                     std::to_string(image_of_.size()));
      }
      fields_.integer<std::int64_t>("key");
      const double x = fields_.real("image coordinate");
      const double y = fields_.real("image coordinate");
      const std::int32_t image = image_of_[static_cast<std::size_t>(camera)];
      if (image == kNotRegistered) {
        ++lost_rays_;
      } else {
        result_.images[static_cast<std::size_t>(image)].rays.push_back({number, {x, y}});
      }
    }
  }

  const Source& source_;
  Fields fields_;
  Reconstruction result_;
  std::vector<std::int32_t> image_of_;  // index in result_.images, or kNotRegistered
  std::int64_t lost_rays_ = 0;
};

}  // namespace

Reconstruction read_bundler(const Source& source) { return BundlerReader(source).read(); }

}  // namespace vorn::exchange
