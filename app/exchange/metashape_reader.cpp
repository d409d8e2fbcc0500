// Metashape's cameras as XML: sensors and orientations; the format holds no measurements of tie
// points.

#include "app/exchange/readers.h"

#ifdef VORN_WITH_XML

#include <algorithm>
#include <pugixml.hpp>
#include <unordered_map>

namespace vorn::exchange {
namespace {

constexpr double kRotationTolerance = 1e-6;

class MetashapeReader {
 public:
  explicit MetashapeReader(const Source& source) : source_(source) {}

  Reconstruction read() {
    const std::string_view text = source_.content();
    const pugi::xml_parse_result parsed = document_.load_buffer(text.data(), text.size());
    if (!parsed) {
      source_.fail(static_cast<std::size_t>(parsed.offset),
                   std::string("no valid XML: ") + parsed.description());
    }
    const pugi::xml_node chunk = document_.child("document").child("chunk");
    if (!chunk) source_.fail(std::size_t{0}, "holds no chunk of a document");
    result_.format = "Metashape";
    result_.first_pixel = 0.5;
    for (const pugi::xml_node sensor : chunk.child("sensors").children("sensor")) {
      sensors_.emplace(sensor.attribute("id").value(), Sensor{sensor, -1});
    }
    read_cameras(chunk.child("cameras"));
    if (result_.images.empty()) fail(chunk, "no camera is aligned");
    if (not_aligned_ > 0) {
      result_.notes.push_back(std::to_string(not_aligned_) +
                              " cameras are not aligned and were left out");
    }
    if (chunk.next_sibling("chunk")) {
      result_.notes.push_back("only the first chunk was taken");
    }
    return std::move(result_);
  }

 private:
  struct Sensor {
    pugi::xml_node node;
    std::int32_t camera;  // in the result, once an image uses it
  };

  [[noreturn]] void fail(const pugi::xml_node& node, const std::string& message) const {
    source_.fail(static_cast<std::size_t>(std::max<std::ptrdiff_t>(0, node.offset_debug())),
                 message);
  }

  // The number between the tags of a child; 0 where there is none.
  double real(const pugi::xml_node& parent, const char* name) const {
    const pugi::xml_node child = parent.child(name);
    if (!child) return 0.0;
    return reals<1>(child)[0];
  }
  template <std::size_t N>
  std::array<double, N> reals(const pugi::xml_node& node) const {
    const std::string text = node.child_value();
    const Source numbers(source_.name(), text, Source::Kind::text);
    std::array<double, N> values{};
    try {
      Fields fields(numbers, text);
      for (double& value : values) value = fields.real(node.name());
      fields.expect_end();
    } catch (const ExchangeError&) {
      fail(node, std::string(node.name()) + " is not " + std::to_string(N) + " numbers");
    }
    return values;
  }

  // Groups hold cameras, too.
  void read_cameras(const pugi::xml_node& parent) {
    for (const pugi::xml_node node : parent.children()) {
      if (std::string_view(node.name()) == "group") read_cameras(node);
      if (std::string_view(node.name()) == "camera") read_camera(node);
    }
  }

  void read_camera(const pugi::xml_node& node) {
    const pugi::xml_node transform = node.child("transform");
    if (!transform) {
      ++not_aligned_;
      return;
    }
    SourceImage image;
    image.name = node.attribute("label").value();
    if (trimmed(image.name).empty()) fail(node, "a camera has no label");
    const auto sensor = sensors_.find(node.attribute("sensor_id").value());
    if (sensor == sensors_.end()) fail(node, "camera " + image.name + " has no sensor");
    const auto t = reals<16>(transform);
    for (std::size_t i = 0; i < 3; ++i) {
      for (std::size_t j = 0; j < 3; ++j) image.pose.r[i][j] = t[4 * j + i];
      image.pose.offset[i] = t[4 * i + 3];
    }
    image.pose.is_centre = true;
    const bool is_affine = t[12] == 0.0 && t[13] == 0.0 && t[14] == 0.0 && t[15] == 1.0;
    if (!is_affine || !is_rotation(image.pose.r, kRotationTolerance)) {
      fail(transform, "camera " + image.name + ": the transform is no rotation and shift");
    }
    if (sensor->second.camera < 0) {
      sensor->second.camera = static_cast<std::int32_t>(result_.cameras.size());
      result_.cameras.push_back(camera_of(sensor->first, sensor->second.node));
    }
    image.camera = sensor->second.camera;
    result_.images.push_back(std::move(image));
  }

  SourceCamera camera_of(const std::string& id, const pugi::xml_node& sensor) const {
    pugi::xml_node calibration = sensor.find_child_by_attribute("calibration", "class", "adjusted");
    if (!calibration) calibration = sensor.child("calibration");
    if (!calibration) fail(sensor, "sensor " + id + " has no calibration");
    for (const pugi::xml_node& node : {sensor, calibration}) {
      const std::string type = node.attribute("type").as_string("frame");
      if (type == "frame") continue;
      fail(node, "the camera model '" + type + "' has no exact counterpart");
    }
    for (const char* name : {"k4", "p3", "p4", "b2"}) {
      if (real(calibration, name) == 0.0) continue;
      fail(calibration,
           std::string("sensor ") + id + ": " + name + " has no exact counterpart unless it is 0");
    }
    pugi::xml_node resolution = calibration.child("resolution");
    if (!resolution) resolution = sensor.child("resolution");
    SourceCamera camera;
    camera.id = id;
    camera.model = "frame";
    camera.own = Lens::f | Lens::pp | Lens::k1 | Lens::k2 | Lens::k3 | Lens::p1 | Lens::p2;
    if (real(calibration, "b1") != 0.0) camera.own = camera.own | Lens::b1;
    camera.columns = resolution.attribute("width").as_int();
    camera.rows = resolution.attribute("height").as_int();
    if (camera.columns < 1 || camera.rows < 1 ||
        std::max(camera.columns, camera.rows) > static_cast<std::int32_t>(kMaxPixels)) {
      fail(sensor, "sensor " + id + " has no resolution");
    }
    camera.fy = real(calibration, "f");
    camera.fx = camera.fy + real(calibration, "b1");
    if (!(camera.fx > 0.0) || !(camera.fy > 0.0)) {
      fail(calibration, "sensor " + id + ": the focal length is not positive");
    }
    camera.cx = 0.5 * camera.columns + real(calibration, "cx");
    camera.cy = 0.5 * camera.rows + real(calibration, "cy");
    camera.k = {real(calibration, "k1"), real(calibration, "k2"), real(calibration, "k3")};
    // Its P1 belongs to r^2 + 2 x^2.
    camera.p = {real(calibration, "p2"), real(calibration, "p1")};
    return camera;
  }

  const Source& source_;
  pugi::xml_document document_;
  std::unordered_map<std::string, Sensor> sensors_;
  Reconstruction result_;
  std::int64_t not_aligned_ = 0;
};

}  // namespace

Reconstruction read_metashape(const Source& source) { return MetashapeReader(source).read(); }

}  // namespace vorn::exchange

#else

namespace vorn::exchange {

Reconstruction read_metashape(const Source&) {
  throw ExchangeError(
      "this program was built without XML (Debian: libpugixml-dev) and cannot read Metashape");
}

}  // namespace vorn::exchange

#endif
