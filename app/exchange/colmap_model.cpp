#include "app/exchange/colmap_model.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace vorn::exchange {
namespace {

constexpr auto kModels = std::to_array<ColmapCameraModel>({
    {0, "SIMPLE_PINHOLE", 3, "fxy"},
    {1, "PINHOLE", 4, "abxy"},
    {2, "SIMPLE_RADIAL", 4, "fxy1"},
    {3, "RADIAL", 5, "fxy12"},
    {4, "OPENCV", 8, "abxy12pq"},
    {5, "OPENCV_FISHEYE", 8, {}},
    {6, "FULL_OPENCV", 12, "abxy12pq3000"},
    {7, "FOV", 5, {}},
    {8, "SIMPLE_RADIAL_FISHEYE", 4, {}},
    {9, "RADIAL_FISHEYE", 5, {}},
    {10, "THIN_PRISM_FISHEYE", 12, {}},
    {11, "RAD_TAN_THIN_PRISM_FISHEYE", 16, {}},
});

template <class Id>
using IndexOf = std::unordered_map<Id, std::int32_t>;

// Index of each record by its identifier. A second record of one identifier is a contradiction.
template <class Record, class Id = decltype(Record::id)>
IndexOf<Id> index_by_id(const std::vector<Record>& records, const Source& source,
                        const char* kind) {
  IndexOf<Id> index;
  index.reserve(records.size());
  for (const Record& record : records) {
    if (!index.emplace(record.id, static_cast<std::int32_t>(index.size())).second) {
      source.fail(record.offset, std::string(kind) + ' ' + std::to_string(record.id) +
                                     " is there for the second time");
    }
  }
  return index;
}

void set_param(SourceCamera& camera, char role, double value) {
  switch (role) {
    case 'f':
      camera.fx = camera.fy = value;
      break;
    case 'a':
      camera.fx = value;
      break;
    case 'b':
      camera.fy = value;
      break;
    case 'x':
      camera.cx = value;
      break;
    case 'y':
      camera.cy = value;
      break;
    case '1':
      camera.k[0] = value;
      break;
    case '2':
      camera.k[1] = value;
      break;
    case '3':
      camera.k[2] = value;
      break;
    case 'p':
      camera.p[0] = value;
      break;
    case 'q':
      camera.p[1] = value;
      break;
    default:
      break;
  }
}

// What the model adjusts. COLMAP itself holds the principal point, unless it is told otherwise.
Lens own_parameters(std::string_view layout) {
  constexpr auto kParts = std::to_array<std::pair<char, Lens>>({{'f', Lens::f},
                                                                {'a', Lens::f},
                                                                {'b', Lens::b1},
                                                                {'1', Lens::k1},
                                                                {'2', Lens::k2},
                                                                {'3', Lens::k3},
                                                                {'p', Lens::p1},
                                                                {'q', Lens::p2}});
  Lens own = Lens::none;
  for (const auto& [role, part] : kParts) {
    if (layout.find(role) != std::string_view::npos) own = own | part;
  }
  return own;
}

SourceCamera camera_of(const ColmapCamera& from, const Source& source) {
  const std::string label = "camera " + std::to_string(from.id);
  const std::string model(from.model->name);
  if (from.model->layout.empty()) {
    source.fail(from.offset, label + ": the model " + model +
                                 " has no exact counterpart (fisheye and FOV lenses have none)");
  }
  if (from.width == 0 || from.height == 0 || from.width > kMaxPixels || from.height > kMaxPixels) {
    source.fail(from.offset, label + ": an image of " + std::to_string(from.width) + " x " +
                                 std::to_string(from.height) + " pixels");
  }
  SourceCamera camera;
  camera.id = std::to_string(from.id);
  camera.model = model;
  camera.columns = static_cast<std::int32_t>(from.width);
  camera.rows = static_cast<std::int32_t>(from.height);
  camera.own = own_parameters(from.model->layout);
  for (std::size_t i = 0; i < from.model->layout.size(); ++i) {
    const char role = from.model->layout[i];
    if (role == '0' && from.params[i] != 0.0) {
      source.fail(from.offset, label + ": the rational terms k4, k5, k6 of " + model +
                                   " have no exact counterpart unless they are 0");
    }
    set_param(camera, role, from.params[i]);
  }
  if (!(camera.fx > 0.0) || !(camera.fy > 0.0)) {
    source.fail(from.offset, label + ": the focal length is not positive");
  }
  return camera;
}

class Assembly {
 public:
  Assembly(ColmapModel model, const ColmapSources& sources)
      : from_(std::move(model)),
        sources_(sources),
        camera_index_(index_by_id(from_.cameras, sources.cameras, "camera")),
        image_index_(index_by_id(from_.images, sources.images, "image")),
        point_index_(index_by_id(from_.points, sources.points, "point")) {}

  Reconstruction assemble() {
    result_.format = "COLMAP";
    result_.first_pixel = 0.5;
    for (const ColmapCamera& camera : from_.cameras) {
      result_.cameras.push_back(camera_of(camera, sources_.cameras));
    }
    result_.points.reserve(from_.points.size());
    for (const ColmapPoint& point : from_.points) {
      result_.points.push_back({std::to_string(point.id), point.xyz});
    }
    check_tracks();
    for (ColmapImage& image : from_.images) add_image(image);
    check_number_of_rays();
    return std::move(result_);
  }

 private:
  // Every element of a track is a measurement of the point in that image. Some writers leave the
  // number of the measurement 0; what the images say holds.
  void check_tracks() {
    std::size_t begin = 0;
    for (const ColmapPoint& point : from_.points) {
      for (; begin < point.track_end; ++begin) {
        const auto [image_id, feature] = from_.tracks[begin];
        const auto image = image_index_.find(image_id);
        const std::string label = "point " + std::to_string(point.id) + ": its measurement " +
                                  std::to_string(feature) + " in image " + std::to_string(image_id);
        if (image == image_index_.end()) {
          sources_.points.fail(point.offset, label + ": there is no such image");
        }
        const auto& features = from_.images[static_cast<std::size_t>(image->second)].features;
        if (feature >= features.size()) {
          sources_.points.fail(point.offset,
                               label + ": the image has only " + std::to_string(features.size()));
        }
        if (features[feature].point_id == point.id) continue;
        ++wrong_numbers_;
        if (!measured_in(static_cast<std::size_t>(image->second), point.id)) {
          sources_.points.fail(point.offset, label + ": the image does not measure the point");
        }
      }
    }
    if (wrong_numbers_ > 0) {
      result_.notes.push_back(std::to_string(wrong_numbers_) +
                              " elements of tracks name another measurement than the images do");
    }
  }

  // Whether any measurement of an image belongs to a point.
  bool measured_in(std::size_t image, std::uint64_t point_id) {
    if (measured_.empty()) measured_.resize(from_.images.size());
    auto& points = measured_[image];
    if (points.empty()) {
      for (const ColmapFeature& feature : from_.images[image].features) {
        points.insert(feature.point_id);
      }
    }
    return points.contains(point_id);
  }

  void add_image(ColmapImage& from) {
    const std::string label = "image " + std::to_string(from.id);
    const auto camera = camera_index_.find(from.camera_id);
    if (camera == camera_index_.end()) {
      sources_.images.fail(from.offset,
                           label + ": there is no camera " + std::to_string(from.camera_id));
    }
    if (from.quaternion == std::array<double, 4>{}) {
      sources_.images.fail(from.offset, label + ": the quaternion is 0");
    }
    if (trimmed(from.name).empty()) sources_.images.fail(from.offset, label + " has no name");
    SourceImage image;
    image.name = from.name;
    image.camera = camera->second;
    image.pose = {rotation_of_quaternion(from.quaternion), from.translation, false};
    for (const ColmapFeature& feature : from.features) {
      if (feature.point_id == ColmapFeature::kNoPoint) continue;
      const auto point = point_index_.find(feature.point_id);
      if (point == point_index_.end()) {
        sources_.images.fail(from.offset,
                             label + ": there is no point " + std::to_string(feature.point_id));
      }
      image.rays.push_back({point->second, feature.xy});
    }
    if (!names_.insert(image.name).second) {
      sources_.images.fail(from.offset, label + ": the name '" + image.name + "' is taken already");
    }
    num_rays_ += image.rays.size();
    result_.images.push_back(std::move(image));
  }

  void check_number_of_rays() const {
    if (num_rays_ != from_.tracks.size()) {
      sources_.points.fail(std::size_t{0},
                           "the tracks hold " + std::to_string(from_.tracks.size()) +
                               " measurements, the images " + std::to_string(num_rays_));
    }
  }

  ColmapModel from_;
  const ColmapSources& sources_;
  IndexOf<std::uint32_t> camera_index_;
  IndexOf<std::uint32_t> image_index_;
  IndexOf<std::uint64_t> point_index_;
  Reconstruction result_;
  std::vector<std::unordered_set<std::uint64_t>> measured_;  // per image, where it was needed
  std::unordered_set<std::string> names_;
  std::size_t num_rays_ = 0;
  std::size_t wrong_numbers_ = 0;
};

}  // namespace

std::span<const ColmapCameraModel> colmap_camera_models() { return kModels; }

const ColmapCameraModel* find_colmap_camera_model(std::string_view name) {
  const auto found = std::find_if(kModels.begin(), kModels.end(),
                                  [&](const auto& model) { return model.name == name; });
  return found == kModels.end() ? nullptr : &*found;
}

const ColmapCameraModel* find_colmap_camera_model(std::int32_t id) {
  const auto found = std::find_if(kModels.begin(), kModels.end(),
                                  [&](const auto& model) { return model.id == id; });
  return found == kModels.end() ? nullptr : &*found;
}

Reconstruction reconstruction_of(ColmapModel model, const ColmapSources& sources) {
  return Assembly(std::move(model), sources).assemble();
}

}  // namespace vorn::exchange
