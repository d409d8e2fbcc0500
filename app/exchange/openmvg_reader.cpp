// OpenMVG's "sfm_data.json".

#include <unordered_map>
#include <unordered_set>

#include "app/exchange/readers.h"

#ifdef VORN_WITH_JSON

#include "app/exchange/json_source.h"

namespace vorn::exchange {
namespace {

constexpr std::uint32_t kUndefined = 0xFFFFFFFFU;
// The highest bit of an identifier marks where the object itself stands.
constexpr std::uint32_t kIdentifier = 0x7FFFFFFFU;
constexpr double kRotationTolerance = 1e-6;

struct Model {
  const char* name;
  const char* distortion;  // key of its parameters: k1, k2, k3, then p1, p2
  std::size_t num_params;
  Lens own;
};
constexpr Lens kPinhole = Lens::f | Lens::pp;
constexpr Lens kRadial3 = kPinhole | Lens::k1 | Lens::k2 | Lens::k3;
constexpr auto kModels = std::to_array<Model>({
    {"pinhole", nullptr, 0, kPinhole},
    {"pinhole_radial_k1", "disto_k1", 1, kPinhole | Lens::k1},
    {"pinhole_radial_k3", "disto_k3", 3, kRadial3},
    {"pinhole_brown_t2", "disto_t2", 5, kRadial3 | Lens::p1 | Lens::p2},
});

struct View {
  std::string name;
  std::uint32_t intrinsic = kUndefined;
  std::uint32_t pose = kUndefined;
  std::int32_t image = -1;  // in the result
};

struct Observation {
  std::uint32_t view;
  std::size_t offset;
  SourceRay ray;
};

// The members of an object with those of its base classes, which later versions of the
// serialisation put into a member "value0".
Json with_bases(Json data) {
  constexpr const char* kBase = "value0";
  while (data.is_object() && data.contains(kBase) && data[kBase].is_object()) {
    const Json base = std::move(data[kBase]);
    data.erase(kBase);
    for (const auto& [key, value] : base.items()) data.emplace(key, value);
  }
  return data;
}

class OpenMvgReader {
 public:
  explicit OpenMvgReader(const Source& source) : source_(source) {}

  Reconstruction read() {
    result_.format = "OpenMVG";
    walk_json(source_, 2, [this](const JsonPath& path, const JsonItem& item) {
      return visit(path.front(), item);
    });
    for (const std::uint32_t key : view_order_) add_image(views_.at(key));
    for (const Observation& observation : observations_) add_ray(observation);
    report();
    return std::move(result_);
  }

 private:
  bool visit(const std::string& list, const JsonItem& item) {
    if (list == "views") {
      read_view(item);
    } else if (list == "intrinsics") {
      read_intrinsic(item);
    } else if (list == "extrinsics") {
      read_pose(item);
    } else if (list == "structure") {
      read_point(item);
    } else if (list == "control_points") {
      ++control_points_;
    } else {
      return false;
    }
    return true;
  }

  // What a pointer of the serialisation points to; a second pointer to an object has its number
  // only.
  JsonItem pointed_to(const JsonItem& item, std::unordered_map<std::uint32_t, Json>& known) const {
    const JsonItem wrapper = item.at("value").at("ptr_wrapper");
    const std::uint32_t id = wrapper.index("id") & kIdentifier;
    if (wrapper.has("data")) known[id] = with_bases(wrapper.at("data").value());
    const auto found = known.find(id);
    if (found == known.end()) item.fail("refers to an object that is not there");
    return {source_, item.offset(), "object " + std::to_string(id), found->second};
  }

  void read_view(const JsonItem& item) {
    const JsonItem data = pointed_to(item, view_data_);
    const std::uint32_t key = item.index("key");
    View view;
    const std::string folder = data.has("local_path") ? data.text("local_path") : "";
    view.name =
        folder + (folder.empty() || folder.back() == '/' ? "" : "/") + data.text("filename");
    if (trimmed(view.name).empty()) item.fail("the view has no file name");
    if (!names_.insert(view.name).second) item.fail("the file name '" + view.name + "' is taken");
    view.intrinsic = data.index("id_intrinsic");
    view.pose = data.index("id_pose");
    if (!views_.emplace(key, view).second) item.fail("the view is there for the second time");
    view_order_.push_back(key);
  }

  void read_intrinsic(const JsonItem& item) {
    const JsonItem value = item.at("value");
    const std::uint32_t type = value.index("polymorphic_id") & kIdentifier;
    if (value.has("polymorphic_name")) type_names_[type] = value.text("polymorphic_name");
    const std::string& name = type_names_[type];
    const auto* const model = std::find_if(kModels.begin(), kModels.end(),
                                           [&](const Model& known) { return name == known.name; });
    if (model == kModels.end()) {
      item.fail("the camera model '" + name + "' has no exact counterpart");
    }
    const JsonItem data = pointed_to(item, intrinsic_data_);
    SourceCamera camera;
    const std::uint32_t key = item.index("key");
    camera.id = std::to_string(key);
    camera.model = name;
    camera.own = model->own;
    camera.columns = data.size("width");
    camera.rows = data.size("height");
    camera.fx = camera.fy = data.real("focal_length");
    if (!(camera.fx > 0.0)) item.fail("the focal length is not positive");
    const auto centre = data.reals<2>("principal_point");
    camera.cx = centre[0];
    camera.cy = centre[1];
    read_distortion(data, *model, camera);
    const auto number = static_cast<std::int32_t>(result_.cameras.size());
    if (!cameras_.emplace(key, number).second) {
      item.fail("the intrinsic is there for the second time");
    }
    result_.cameras.push_back(std::move(camera));
  }

  static void read_distortion(const JsonItem& data, const Model& model, SourceCamera& camera) {
    switch (model.num_params) {
      case 1:
        camera.k[0] = data.reals<1>(model.distortion)[0];
        break;
      case 3:
        camera.k = data.reals<3>(model.distortion);
        break;
      case 5: {
        const auto all = data.reals<5>(model.distortion);
        camera.k = {all[0], all[1], all[2]};
        camera.p = {all[3], all[4]};
        break;
      }
      default:
        break;
    }
  }

  void read_pose(const JsonItem& item) {
    const JsonItem value = item.at("value");
    const Pose pose{value.matrix("rotation"), value.reals<3>("center"), true};
    if (!is_rotation(pose.r, kRotationTolerance)) item.fail("the rotation matrix is none");
    if (!poses_.emplace(item.index("key"), pose).second) {
      item.fail("the pose is there for the second time");
    }
  }

  void read_point(const JsonItem& item) {
    const auto number = static_cast<std::int32_t>(result_.points.size());
    const JsonItem value = item.at("value");
    SourcePoint point;
    const std::uint32_t key = item.index("key");
    if (!point_keys_.insert(key).second) item.fail("the point is there for the second time");
    point.id = std::to_string(key);
    point.xyz = value.reals<3>("X");
    const Json& list = value.at("observations").value();
    if (!list.is_array()) item.fail("'observations' is no list");
    for (const Json& element : list) {
      const JsonItem observation(source_, item.offset(), "point " + point.id, element);
      observations_.push_back({observation.index("key"),
                               item.offset(),
                               {number, observation.at("value").reals<2>("x")}});
    }
    result_.points.push_back(std::move(point));
  }

  // A view with intrinsic and pose is an image.
  void add_image(View& view) {
    const auto pose = poses_.find(view.pose);
    const auto camera = cameras_.find(view.intrinsic);
    if (pose == poses_.end() || camera == cameras_.end()) return;
    view.image = static_cast<std::int32_t>(result_.images.size());
    result_.images.push_back({view.name, camera->second, pose->second, {}});
  }

  void add_ray(const Observation& observation) {
    const auto view = views_.find(observation.view);
    if (view == views_.end()) {
      source_.fail(observation.offset, "a point is observed in view " +
                                           std::to_string(observation.view) +
                                           ", which is not there");
    }
    if (view->second.image < 0) {
      ++lost_rays_;
      return;
    }
    result_.images[static_cast<std::size_t>(view->second.image)].rays.push_back(observation.ray);
  }

  void report() {
    const std::size_t missing = views_.size() - result_.images.size();
    if (missing > 0) {
      result_.notes.push_back(std::to_string(missing) +
                              " views without pose or intrinsic were left out, with " +
                              std::to_string(lost_rays_) + " measurements");
    }
    if (control_points_ > 0) {
      result_.notes.push_back(std::to_string(control_points_) +
                              " control points of the source were left out");
    }
  }

  const Source& source_;
  Reconstruction result_;
  std::unordered_map<std::uint32_t, Json> view_data_;
  std::unordered_map<std::uint32_t, Json> intrinsic_data_;
  std::unordered_map<std::uint32_t, std::string> type_names_;
  std::unordered_map<std::uint32_t, View> views_;
  std::vector<std::uint32_t> view_order_;
  std::unordered_map<std::uint32_t, std::int32_t> cameras_;
  std::unordered_map<std::uint32_t, Pose> poses_;
  std::unordered_set<std::uint32_t> point_keys_;
  std::unordered_set<std::string> names_;
  std::vector<Observation> observations_;
  std::int64_t lost_rays_ = 0;
  std::int64_t control_points_ = 0;
};

}  // namespace

Reconstruction read_openmvg(const Source& source) { return OpenMvgReader(source).read(); }

}  // namespace vorn::exchange

#else

namespace vorn::exchange {

Reconstruction read_openmvg(const Source&) {
  throw ExchangeError(
      "this program was built without JSON (Debian: nlohmann-json3-dev) and cannot read OpenMVG");
}

}  // namespace vorn::exchange

#endif
