#include "app/exchange/project_model.h"

#include <cmath>
#include <unordered_map>
#include <utility>

#include "app/exchange/source.h"
#include "driver/paths.h"
#include "geometry/ext_orientation.h"
#include "text/file_system.h"

namespace vorn::exchange {
namespace {

// Pixel size [m] that the comment of a camera states ("...pixel=5um"), or 5 um.
double stated_pixel_size(const Camera& camera) {
  constexpr std::string_view kLabel = "pixel=";
  constexpr double kUnstated = 5e-6;
  const std::size_t at = camera.comment.find(kLabel);
  if (at == std::string::npos) return kUnstated;
  const char* const begin = camera.comment.data() + at + kLabel.size();
  double micrometres = 0.0;
  const auto parsed =
      std::from_chars(begin, camera.comment.data() + camera.comment.size(), micrometres);
  if (parsed.ec != std::errc() || !(micrometres > 0.0) || !std::isfinite(micrometres)) {
    return kUnstated;
  }
  return micrometres / 1e6;
}

class ProjectModel {
 public:
  ProjectModel(const BundleProject& project, LensForm form, double frame_pixel)
      : project_(project), form_(form), frame_pixel_(frame_pixel) {}

  Reconstruction make() {
    result_.axes = form_ == LensForm::full ? Axes::ahead : Axes::behind;
    result_.first_pixel = form_ == LensForm::full ? 0.5 : 0.0;
    // Registered points are numbered in the order of the list.
    for (const ObjectPoint& point : project_.object_points) {
      result_.points.push_back({point.id, point.xyz});
    }
    for (const BundleImage& image : project_.images) add_image(image);
    return std::move(result_);
  }

 private:
  // Index of the camera of an image, with its lens.
  std::int32_t camera_of(const BundleImage& image) {
    const auto number = static_cast<std::int32_t>(result_.cameras.size());
    const auto [found, is_new] = lenses_.try_emplace(image.camera);
    if (is_new) {
      const double stated = stated_pixel_size(*image.camera);
      found->second.lens =
          export_lens(*image.camera, form_, frame_pixel_ > 0.0 ? frame_pixel_ : stated);
      const double error = found->second.lens.largest_error;
      if (error > 0.0) {
        char text[64];
        char* const end = write_number(text, error, general(0, 3));
        result_.notes.push_back("camera " + image.camera->id +
                                ": its lens has no exact counterpart; the fitted one differs by up "
                                "to " +
                                std::string(text, end) + " px");
      }
    } else if (form_ == LensForm::full) {
      return found->second.number;
    }
    found->second.number = number;
    result_.cameras.push_back(found->second.lens.camera);
    return number;
  }

  void add_image(const BundleImage& from) {
    const auto* orientation = dynamic_cast<const ExtOrientation*>(from.geometry);
    if (orientation == nullptr) {
      throw ExchangeError("image " + from.id +
                          ": its geometry is no exterior orientation and has no counterpart");
    }
    SourceImage image;
    image.name = from.id;
    image.camera = camera_of(from);
    const PixelFrame& frame = lenses_.at(from.camera).lens.frame;
    image.pose = pose_of(*orientation, frame);
    for (const ImagePoint& point : from.points) {
      const ObjectPoint* const object_point = object_point_of(point, project_.object_points);
      if (object_point == nullptr) continue;
      image.rays.push_back({object_point->index / 3,
                            frame.pixel_of(from.camera->pixel_to_image({point.x, point.y}))});
    }
    result_.images.push_back(std::move(image));
  }

  Pose pose_of(const ExtOrientation& orientation, const PixelFrame& frame) const {
    // The axes of the other camera, as rows, in the image's axes.
    Mat3 axes = {{{frame.right[0], frame.right[1], 0.0},
                  {frame.down[0], frame.down[1], 0.0},
                  {0.0, 0.0, -1.0}}};
    if (form_ == LensForm::radial) {
      axes[1] = -axes[1];
      axes[2] = -axes[2];
    }
    // A quaternion that is not of unit length scales the matrix.
    Mat3 r = orientation.rotation_matrix();
    const double scale = 1.0 / length(r[0]);
    Pose pose;
    for (std::size_t i = 0; i < 3; ++i) pose.r[i] = scale * (r * axes[i]);
    pose.offset = -(pose.r * orientation.projection_centre());
    return pose;
  }

  struct Entry {
    ExportedLens lens;
    std::int32_t number = -1;
  };

  const BundleProject& project_;
  LensForm form_;
  double frame_pixel_;
  std::unordered_map<const Camera*, Entry> lenses_;
  Reconstruction result_;
};

}  // namespace

Reconstruction model_of_project(const BundleProject& project, LensForm form, double frame_pixel) {
  return ProjectModel(project, form, frame_pixel).make();
}

GivenProject::GivenProject(const std::string& control_file) : directory_(current_directory()) {
  const std::string full_path = absolute_path(control_file);
  const PathParts parts = split_path(full_path);
  const Source source(full_path, Source::Kind::text);
  change_directory(parts.drive + parts.directory);
  TokenReader in(source.content());
  TextWriter silence;
  const bool ready = project_.read_control_file(in) == 1 && project_.initialise(silence) == 1;
  change_directory(directory_);
  if (!ready) throw ExchangeError(control_file + ": the project cannot be read");
}

GivenProject::~GivenProject() = default;

}  // namespace vorn::exchange
