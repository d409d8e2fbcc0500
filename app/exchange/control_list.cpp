#include "app/exchange/control_list.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "app/exchange/similarity.h"
#include "geometry/ray_bundle.h"
#include "text/number_format.h"

namespace vorn::exchange {
namespace {

constexpr double kFree = 1e31;
constexpr std::int32_t kNoImage = -1;

// Finds images by their names, whole or without folders.
class ImageNames {
 public:
  explicit ImageNames(const std::vector<SourceImage>& images) {
    for (std::size_t i = 0; i < images.size(); ++i) {
      const auto number = static_cast<std::int32_t>(i);
      whole_.emplace(images[i].name, number);
      const std::string& name = images[i].name;
      const std::string last = name.substr(name.find_last_of("/\\") + 1);
      const auto [found, is_new] = last_.emplace(last, number);
      if (!is_new) found->second = kNoImage;  // ambiguous
    }
  }
  std::int32_t find(std::string_view name) const {
    const std::string word = as_word(name);
    if (const auto found = whole_.find(word); found != whole_.end()) return found->second;
    const auto found = last_.find(word.substr(word.find_last_of("/\\") + 1));
    return found == last_.end() ? kNoImage : found->second;
  }

 private:
  std::unordered_map<std::string, std::int32_t> whole_;
  std::unordered_map<std::string, std::int32_t> last_;
};

bool is_number(std::string_view word) {
  double value = 0.0;
  const auto parsed = std::from_chars(word.data(), word.data() + word.size(), value);
  return parsed.ec == std::errc() && parsed.ptr == word.data() + word.size();
}

bool is_nan(std::string_view word) {
  return word.size() == 3 && (word[0] == 'n' || word[0] == 'N') &&
         (word[1] == 'a' || word[1] == 'A') && (word[2] == 'n' || word[2] == 'N');
}

// Angles are no coordinates that a project could hold.
bool is_geographic(std::string_view system) {
  return system == "WGS84" || system == "EPSG:4326" || system == "epsg:4326" ||
         system.find("+proj=longlat") != std::string_view::npos ||
         system.find("+proj=latlong") != std::string_view::npos;
}

class ControlListReader {
 public:
  ControlListReader(const Source& source, const std::vector<SourceImage>& images)
      : source_(source), names_(images) {}

  ControlList read(std::vector<std::int32_t>& image_of_measurement) {
    Lines lines(source_);
    for (std::string_view line; lines.next(line);) {
      const std::string_view text = trimmed(line);
      if (text.empty() || text.front() == '#') continue;
      if (list_.system.empty()) {
        read_system(text);
      } else {
        image_of_measurement.push_back(read_measurement(text));
      }
    }
    if (list_.measurements.empty()) source_.fail(std::size_t{0}, "holds no control points");
    return std::move(list_);
  }

 private:
  void read_system(std::string_view line) {
    Fields fields(source_, line);
    if (is_number(fields.word("the coordinate system")) && !fields.at_end()) {
      source_.fail(line.data(), "the first line must name the coordinate system");
    }
    list_.system = line;
    if (is_geographic(line)) {
      source_.fail(line.data(),
                   "coordinates in '" + list_.system +
                       "' are angles; a projected system (UTM, for instance) is needed");
    }
  }

  std::int32_t read_measurement(std::string_view line) {
    Fields fields(source_, line);
    ListedPoint point;
    point.offset = source_.offset_of(line.data());
    point.xyz[0] = fields.real("coordinate");
    point.xyz[1] = fields.real("coordinate");
    const Fields height = fields;
    point.has_height = !is_nan(fields.word("the height"));
    if (point.has_height) {
      fields = height;
      point.xyz[2] = fields.real("height");
    }
    ListedMeasurement measurement;
    measurement.offset = point.offset;
    measurement.xy[0] = fields.real("image coordinate");
    measurement.xy[1] = fields.real("image coordinate");
    measurement.names = fields.rest();
    if (measurement.names.empty()) source_.fail(line.data(), "no image is named");
    std::int32_t image = kNoImage;
    point.name = as_word(point_name(measurement.names, image));
    measurement.point = index_of(std::move(point));
    list_.measurements.push_back(measurement);
    return image;
  }

  // The longest beginning that names an image ends where the name of the point begins; where none
  // does, the first word is the image.
  std::string_view point_name(std::string_view names, std::int32_t& image) const {
    for (std::size_t end = names.size(); end != std::string_view::npos && end > 0;) {
      image = names_.find(trimmed(names.substr(0, end)));
      if (image != kNoImage) return first_word(names.substr(end));
      end = names.find_last_of(" \t", end - 1);
    }
    const std::size_t end = names.find_first_of(" \t");
    return end == std::string_view::npos ? std::string_view() : first_word(names.substr(end));
  }

  static std::string_view first_word(std::string_view text) {
    text = trimmed(text);
    return text.substr(0, text.find_first_of(" \t"));
  }

  // Points without a name are told apart by their coordinates.
  std::size_t index_of(ListedPoint point) {
    std::string key = point.name;
    if (key.empty()) {
      for (const double value : point.xyz) key += ' ' + std::to_string(value);
    }
    const auto [found, is_new] = index_.emplace(key, list_.points.size());
    if (is_new) {
      if (point.name.empty()) point.name = "gcp" + std::to_string(list_.points.size() + 1);
      list_.points.push_back(std::move(point));
      return found->second;
    }
    const ListedPoint& known = list_.points[found->second];
    if (known.xyz != point.xyz || known.has_height != point.has_height) {
      source_.fail(point.offset, "point " + known.name + " has other coordinates further up");
    }
    return found->second;
  }

  const Source& source_;
  ImageNames names_;
  ControlList list_;
  std::unordered_map<std::string, std::size_t> index_;
};

// Direction (u, v) that a camera images at a pixel, by fixed-point iteration of the distortion.
Pixel direction_of(const SourceCamera& camera, const Pixel& xy) {
  constexpr int kSteps = 100;
  Pixel uv{(xy[0] - camera.cx) / camera.fx, (xy[1] - camera.cy) / camera.fy};
  for (int i = 0; i < kSteps; ++i) {
    const Pixel computed = image_of(camera, uv[0], uv[1]);
    const double du = (xy[0] - computed[0]) / camera.fx;
    const double dv = (xy[1] - computed[1]) / camera.fy;
    uv = {uv[0] + du, uv[1] + dv};
    if (std::abs(du) + std::abs(dv) < 1e-14) break;
  }
  return uv;
}

struct ControlRay {
  std::int32_t image;
  Pixel xy;
};

// The point nearest to the rays; nothing for parallel ones.
std::optional<Vec3> intersection(const Reconstruction& model, const std::vector<ControlRay>& rays) {
  constexpr double kParallel = 1e-6;  // sine of the angle between two rays
  RayBundle bundle;
  for (const ControlRay& ray : rays) {
    const SourceImage& image = model.images[static_cast<std::size_t>(ray.image)];
    const Pixel uv = direction_of(model.cameras[static_cast<std::size_t>(image.camera)], ray.xy);
    bundle.add(image.pose.centre(), transposed_times(image.pose.r, Vec3{uv[0], uv[1], 1.0}));
  }
  return bundle.nearest_point(kParallel);
}

std::string text_of(double value) {
  char text[64];
  return {text, write_number(text, value, general(0, 4))};
}

class ControlLayer {
 public:
  ControlLayer(Reconstruction& model, const Source& source, double sigma)
      : model_(model), source_(source), sigma_(sigma) {}

  std::vector<ControlPoint> add() {
    if (!model_.has_sizes()) {
      source_.fail(std::size_t{0}, "a control list needs names of images, which " + model_.format +
                                       " does not have");
    }
    std::vector<std::int32_t> images;
    list_ = read_control_list(source_, model_.images, images);
    rays_.resize(list_.points.size());
    for (std::size_t i = 0; i < images.size(); ++i) {
      if (images[i] == kNoImage) {
        ++unmatched_;
      } else {
        rays_[list_.measurements[i].point].push_back({images[i], list_.measurements[i].xy});
      }
    }
    intersected_.resize(list_.points.size());
    for (std::size_t i = 0; i < rays_.size(); ++i) {
      intersected_[i] = intersection(model_, rays_[i]);
    }
    fit();
    add_points();
    report();
    return std::move(control_);
  }

 private:
  void fit() {
    std::vector<Vec3> from;
    std::vector<Vec3> to;
    for (std::size_t i = 0; i < list_.points.size(); ++i) {
      if (!intersected_[i] || !list_.points[i].has_height) continue;
      from.push_back(*intersected_[i]);
      to.push_back(list_.points[i].xyz);
    }
    Similarity similarity;
    if (!find_similarity(from, to, similarity)) {
      source_.fail(
          std::size_t{0},
          "three control points that are not on a line, with heights, each measured in two "
          "images of the reconstruction, are needed; there are " +
              std::to_string(from.size()));
    }
    double sum = 0.0;
    for (std::size_t i = 0; i < from.size(); ++i) {
      const Vec3 difference = similarity(from[i]) - to[i];
      sum += dot(difference, difference);
    }
    model_.notes.push_back("control: " + list_.system +
                           "; the reconstruction was brought there by " +
                           std::to_string(from.size()) + " points, scale " +
                           text_of(similarity.scale) + ", rms of a coordinate " +
                           text_of(std::sqrt(sum / (3.0 * static_cast<double>(from.size())))));
    transform(model_, similarity);
    for (std::optional<Vec3>& x : intersected_) {
      if (x) x = similarity(*x);
    }
  }

  void add_points() {
    std::unordered_set<std::string> taken;
    for (const SourcePoint& point : model_.points) taken.insert(point.id);
    for (std::size_t i = 0; i < list_.points.size(); ++i) {
      const ListedPoint& point = list_.points[i];
      // Without a height it takes two rays to find one.
      if (rays_[i].empty() || (!point.has_height && !intersected_[i])) {
        ++unused_;
        continue;
      }
      std::string id = point.name;
      while (!taken.insert(id).second) id = kControlPrefix + id;
      Vec3 xyz = point.xyz;
      Vec3 std_devs{sigma_, sigma_, sigma_};
      if (!point.has_height) {
        xyz[2] = (*intersected_[i])[2];
        std_devs[2] = kFree;
      }
      const auto number = static_cast<std::int32_t>(model_.points.size());
      add_rays(i, number);
      model_.points.push_back({std::move(id), xyz});
      control_.push_back({number, std_devs});
    }
  }

  void add_rays(std::size_t point, std::int32_t number) {
    std::unordered_set<std::int32_t> images;
    for (const ControlRay& ray : rays_[point]) {
      if (!images.insert(ray.image).second) {
        ++duplicates_;
        continue;
      }
      model_.images[static_cast<std::size_t>(ray.image)].rays.push_back({number, ray.xy});
      ++num_rays_;
    }
  }

  void report() {
    const auto note = [&](std::int64_t count, const char* what) {
      if (count > 0) model_.notes.push_back("control: " + std::to_string(count) + what);
    };
    note(static_cast<std::int64_t>(control_.size()), " points take part");
    note(num_rays_, " measurements take part");
    note(unmatched_, " measurements in images that are not in the reconstruction were left out");
    note(duplicates_, " further measurements of a point in the same image were left out");
    note(unused_, " points that no image measures, or only one and without height, were left out");
  }

  Reconstruction& model_;
  const Source& source_;
  double sigma_;
  ControlList list_;
  std::vector<std::vector<ControlRay>> rays_;  // per point of the list
  std::vector<std::optional<Vec3>> intersected_;
  std::vector<ControlPoint> control_;
  std::int64_t num_rays_ = 0;
  std::int64_t unmatched_ = 0;
  std::int64_t duplicates_ = 0;
  std::int64_t unused_ = 0;
};

}  // namespace

ControlList read_control_list(const Source& source, const std::vector<SourceImage>& images,
                              std::vector<std::int32_t>& image_of_measurement) {
  return ControlListReader(source, images).read(image_of_measurement);
}

std::vector<ControlPoint> add_control(Reconstruction& model, const Source& source, double sigma) {
  return ControlLayer(model, source, sigma).add();
}

}  // namespace vorn::exchange
