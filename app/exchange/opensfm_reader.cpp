// OpenSfM's "reconstruction.json" and "tracks.csv".

#include <algorithm>
#include <filesystem>
#include <map>
#include <unordered_map>

#include "app/exchange/readers.h"

#ifdef VORN_WITH_JSON

#include "app/exchange/json_source.h"

namespace vorn::exchange {
namespace {

// Lenses of the form of Brown. `separate` ones have focal_x, focal_y, c_x, c_y.
struct Model {
  const char* name;
  bool separate;
  Lens own;
};
constexpr Lens kBrown = Lens::f | Lens::pp | Lens::k1 | Lens::k2 | Lens::k3;
constexpr auto kModels = std::to_array<Model>({
    {"perspective", false, kBrown},
    {"brown", true, kBrown | Lens::b1 | Lens::p1 | Lens::p2},
    {"simple_radial", true, Lens::f | Lens::b1 | Lens::pp | Lens::k1},
    {"radial", true, Lens::f | Lens::b1 | Lens::pp | Lens::k1 | Lens::k2},
});

struct Shot {
  std::string name;
  std::string camera;
  Pose pose;
  std::size_t offset;
};

// One of the reconstructions of a file; they have nothing to do with each other.
struct Part {
  std::vector<SourceCamera> cameras;
  std::vector<Shot> shots;
  std::vector<SourcePoint> points;
  std::unordered_map<std::string, std::int32_t> camera_index;
  std::unordered_map<std::string, std::int32_t> shot_index;
  std::unordered_map<std::string, std::int32_t> point_index;
};

// Normalised coordinates are (column - (w-1)/2) / max(w, h), the first pixel's centre being (0, 0).
double unit_of(const SourceCamera& camera) {
  return static_cast<double>(std::max(camera.columns, camera.rows));
}

class OpenSfmReader {
 public:
  OpenSfmReader(const Source& reconstruction, const Source& tracks)
      : reconstruction_(reconstruction), tracks_(tracks) {}

  Reconstruction read() {
    walk_json(reconstruction_, 3,
              [this](const JsonPath& path, const JsonItem& item) { return visit(path, item); });
    if (parts_.empty()) reconstruction_.fail(std::size_t{0}, "holds no reconstruction");
    const auto largest = std::max_element(parts_.begin(), parts_.end(), [](auto& a, auto& b) {
      return a.second.shots.size() < b.second.shots.size();
    });
    result_.format = "OpenSfM";
    take(largest->second);
    read_tracks(largest->second);
    check_points();
    report(largest->first);
    return std::move(result_);
  }

 private:
  bool visit(const JsonPath& path, const JsonItem& item) {
    const std::string& list = path[1];
    if (list == "cameras") {
      read_camera(parts_[path[0]], path[2], item);
    } else if (list == "shots") {
      read_shot(parts_[path[0]], path[2], item);
    } else if (list == "points") {
      read_point(parts_[path[0]], path[2], item);
    } else {
      return false;
    }
    return true;
  }

  // Remembers where an item stands in its list.
  static void index(std::unordered_map<std::string, std::int32_t>& list, const std::string& id,
                    const JsonItem& item) {
    if (!list.emplace(id, static_cast<std::int32_t>(list.size())).second) {
      item.fail("is there for the second time");
    }
  }

  static void read_camera(Part& part, const std::string& id, const JsonItem& item) {
    const std::string type = item.text("projection_type");
    const auto* const model = std::find_if(kModels.begin(), kModels.end(),
                                           [&](const Model& known) { return type == known.name; });
    if (model == kModels.end()) {
      item.fail("the projection '" + type + "' has no exact counterpart");
    }
    SourceCamera camera;
    camera.id = id;
    camera.model = type;
    camera.own = model->own;
    camera.columns = item.size("width");
    camera.rows = item.size("height");
    const double unit = unit_of(camera);
    camera.fx = unit * item.real(model->separate ? "focal_x" : "focal");
    camera.fy = unit * item.real(model->separate ? "focal_y" : "focal");
    camera.cx = 0.5 * (camera.columns - 1) + unit * item.real_or("c_x", 0.0);
    camera.cy = 0.5 * (camera.rows - 1) + unit * item.real_or("c_y", 0.0);
    camera.k = {item.real_or("k1", 0.0), item.real_or("k2", 0.0), item.real_or("k3", 0.0)};
    camera.p = {item.real_or("p1", 0.0), item.real_or("p2", 0.0)};
    if (!(camera.fx > 0.0) || !(camera.fy > 0.0)) item.fail("the focal length is not positive");
    index(part.camera_index, id, item);
    part.cameras.push_back(std::move(camera));
  }

  static void read_shot(Part& part, const std::string& name, const JsonItem& item) {
    const Pose pose{rotation_of_vector(item.reals<3>("rotation")), item.reals<3>("translation"),
                    false};
    index(part.shot_index, name, item);
    part.shots.push_back({name, item.text("camera"), pose, item.offset()});
  }

  static void read_point(Part& part, const std::string& id, const JsonItem& item) {
    index(part.point_index, id, item);
    part.points.push_back({id, item.reals<3>("coordinates")});
  }

  void take(Part& part) {
    result_.cameras = std::move(part.cameras);
    result_.points = std::move(part.points);
    for (const Shot& shot : part.shots) {
      const auto camera = part.camera_index.find(shot.camera);
      if (camera == part.camera_index.end()) {
        reconstruction_.fail(shot.offset,
                             "shot " + shot.name + ": there is no camera '" + shot.camera + "'");
      }
      if (trimmed(shot.name).empty()) reconstruction_.fail(shot.offset, "a shot has no name");
      result_.images.push_back({shot.name, camera->second, shot.pose, {}});
    }
  }

  // Lines of IMAGE TRACK FEATURE X Y ..., separated by tabs, behind a line with the version that
  // old files do not have. All lines have the same number of fields, unless the file was cut.
  void read_tracks(const Part& part) {
    is_measured_.assign(result_.points.size(), 0);
    Lines lines(tracks_);
    std::ptrdiff_t num_tabs = -1;
    for (std::string_view line; lines.next(line);) {
      if (trimmed(line).empty() || line.starts_with("OPENSFM_TRACKS_VERSION")) continue;
      const auto tabs = std::count(line.begin(), line.end(), '\t');
      if (num_tabs < 0) num_tabs = tabs;
      if (tabs != num_tabs) tracks_.fail(line.data(), "has not as many fields as those above");
      std::array<std::string_view, 5> fields;
      std::string_view rest = line;
      for (std::string_view& field : fields) {
        const std::size_t tab = rest.find('\t');
        field = trimmed(rest.substr(0, tab));
        if (field.empty()) {
          tracks_.fail(line.data(), "is no line of image, track, feature, x, y between tabs");
        }
        rest.remove_prefix(tab == std::string_view::npos ? rest.size() : tab + 1);
      }
      Fields numbers(
          tracks_, {fields[3].data(), static_cast<std::size_t>(fields[4].data() + fields[4].size() -
                                                               fields[3].data())});
      const double x = numbers.real("image coordinate");
      const double y = numbers.real("image coordinate");
      add_ray(part, std::string(fields[0]), std::string(fields[1]), {x, y});
    }
  }

  void add_ray(const Part& part, const std::string& shot, const std::string& track,
               const Pixel& normalised) {
    const auto image = part.shot_index.find(shot);
    const auto point = part.point_index.find(track);
    if (point != part.point_index.end()) {
      is_measured_[static_cast<std::size_t>(point->second)] = 1;
    }
    if (image == part.shot_index.end()) {
      ++without_shot_;
      return;
    }
    if (point == part.point_index.end()) {
      ++without_point_;
      return;
    }
    SourceImage& target = result_.images[static_cast<std::size_t>(image->second)];
    const SourceCamera& camera = result_.cameras[static_cast<std::size_t>(target.camera)];
    const double unit = unit_of(camera);
    target.rays.push_back({point->second,
                           {unit * normalised[0] + 0.5 * (camera.columns - 1),
                            unit * normalised[1] + 0.5 * (camera.rows - 1)}});
  }

  // Points are made of tracks: where one has none, the files do not belong together or were cut.
  void check_points() const {
    const auto missing = std::find(is_measured_.begin(), is_measured_.end(), 0);
    if (missing != is_measured_.end()) {
      const auto number = static_cast<std::size_t>(missing - is_measured_.begin());
      tracks_.fail(tracks_.content().size(),
                   "ends without a measurement of point " + result_.points[number].id);
    }
    if (result_.points.empty() && without_point_ > 0) {
      reconstruction_.fail(std::size_t{0}, "no track is a point of the reconstruction");
    }
  }

  void report(const std::string& taken) {
    for (const auto& [number, part] : parts_) {
      if (number == taken) continue;
      result_.notes.push_back("reconstruction " + number +
                              " of the file was left out: " + std::to_string(part.shots.size()) +
                              " images, " + std::to_string(part.points.size()) + " points");
    }
    if (without_shot_ > 0) {
      result_.notes.push_back(std::to_string(without_shot_) +
                              " measurements in images that are not reconstructed were left out");
    }
    if (without_point_ > 0) {
      result_.notes.push_back(std::to_string(without_point_) +
                              " measurements of tracks that are no points were left out");
    }
  }

  const Source& reconstruction_;
  const Source& tracks_;
  std::map<std::string, Part> parts_;  // by their number in the file
  Reconstruction result_;
  std::vector<char> is_measured_;  // per point
  std::int64_t without_shot_ = 0;
  std::int64_t without_point_ = 0;
};

}  // namespace

Reconstruction read_opensfm(const Source& reconstruction, const Source& tracks) {
  return OpenSfmReader(reconstruction, tracks).read();
}

}  // namespace vorn::exchange

#else

namespace vorn::exchange {

Reconstruction read_opensfm(const Source&, const Source&) {
  throw ExchangeError(
      "this program was built without JSON (Debian: nlohmann-json3-dev) and cannot read OpenSfM");
}

}  // namespace vorn::exchange

#endif

namespace vorn::exchange {

Reconstruction read_opensfm(const std::string& directory) {
  const std::filesystem::path folder(directory);
  if (!std::filesystem::is_directory(folder)) throw ExchangeError(directory + ": is no folder");
  const Source reconstruction((folder / "reconstruction.json").string(), Source::Kind::text);
  const Source tracks((folder / "tracks.csv").string(), Source::Kind::text);
  Reconstruction result = read_opensfm(reconstruction, tracks);
  if (std::filesystem::exists(folder / "ground_control_points.json")) {
    result.notes.push_back(
        "ground_control_points.json is not used; --gcp lays a control list over the project");
  }
  return result;
}

}  // namespace vorn::exchange
