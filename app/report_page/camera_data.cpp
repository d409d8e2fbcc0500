#include "app/report_page/camera_data.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <vector>

#include "app/report_page/packed_column.h"
#include "calibration/ap_set.h"
#include "quality/calibration.h"
#include "sensors/camera.h"

namespace vorn::app {
namespace {

// Above this many image points of a camera the page shows every second, third, ... of them.
constexpr std::size_t kMaxDrawnResiduals = 150000;
// Cells of the field of mean residuals: fine where there are enough points for it.
constexpr std::size_t kManyPoints = 20000;
// The distribution of w: bars from -5 to 5, those at the ends hold what lies beyond.
constexpr double kHistogramEnd = 5.0;
constexpr double kHistogramStep = 0.25;
constexpr std::size_t kHistogramBars = 40;
// Nodes of the grid that shows the effect of the parameters.
constexpr int kGridColumns = 17;
constexpr int kGridRows = 13;

// What the images of one camera have measured, over one another [m].
struct CameraPoints {
  const Camera* camera = nullptr;
  std::vector<double> x;
  std::vector<double> y;
  std::vector<double> vx;
  std::vector<double> vy;
  std::array<std::int64_t, kHistogramBars> w_counts{};
  bool has_w = false;

  void add(const ImagePointResult& result) {
    const Pair xy = camera->pixel_to_image({result.point->x, result.point->y});
    x.push_back(xy[0]);
    y.push_back(xy[1]);
    vx.push_back(result.v[0]);
    vy.push_back(result.v[1]);
    for (std::size_t k = 0; k < 2; ++k) {
      const double w = standardised(result.v[k], result.s[k], result.r[k]);
      if (!is_defined(w)) continue;
      has_w = true;
      const double place = std::floor((w + kHistogramEnd) / kHistogramStep);
      ++w_counts[static_cast<std::size_t>(std::clamp(place, 0.0, kHistogramBars - 1.0))];
    }
  }
};

std::vector<CameraPoints> points_by_camera(const QualityResults& results) {
  std::vector<CameraPoints> cameras;
  for (const ImageResult& image : results.images) {
    const Camera* const camera = image.image->camera;
    auto found = std::find_if(cameras.begin(), cameras.end(),
                              [camera](const CameraPoints& c) { return c.camera == camera; });
    if (found == cameras.end()) {
      found = cameras.insert(cameras.end(), CameraPoints{});
      found->camera = camera;
    }
    for (std::int32_t k = 0; k < image.points; ++k) {
      found->add(results.image_points[image.first + static_cast<std::size_t>(k)]);
    }
  }
  return cameras;
}

// Metres and their powers as millimetres: "1/m2" becomes "1/mm2" with the factor 1e-6.
double millimetre_factor(std::string& unit) {
  if (unit == "m") {
    unit = "mm";
    return 1e3;
  }
  if (!unit.starts_with("1/m")) return 1.0;
  const std::string power = unit.substr(3);
  unit = "1/mm" + power;
  return std::pow(1e-3, power.empty() ? 1 : std::stoi(power));
}

class ValueRows {
 public:
  explicit ValueRows(const std::array<double, 2>& pixel) : pixel_(pixel) {}

  // `axis` tells which pixel spacing applies; -1: the value is no length in the image.
  void add(const CalibratedValue& value, int axis) {
    std::string unit = value.unit;
    const double factor = millimetre_factor(unit);
    names_.push_back(value.name);
    units_.push_back(unit);
    values_.push_back(value.value * factor);
    sds_.push_back(value.sd * factor);
    const double pixel = axis < 0 ? 0.0 : pixel_[static_cast<std::size_t>(axis)];
    pixels_.push_back(pixel > 0.0 ? value.value / pixel : kUndefined);
    sd_pixels_.push_back(pixel > 0.0 ? value.sd / pixel : kUndefined);
  }

  void write(JsonWriter& json, bool with_sds) const {
    json.key("values").begin_object();
    texts(json, "parameter", names_);
    texts(json, "unit", units_);
    numbers(json, "value", values_);
    if (with_sds) numbers(json, "sd", sds_);
    numbers(json, "value_px", pixels_);
    if (with_sds) numbers(json, "sd_px", sd_pixels_);
    json.end_object();
  }

 private:
  static void texts(JsonWriter& json, std::string_view name, const std::vector<std::string>& list) {
    json.key(name).begin_array();
    for (const std::string& text : list) json.text(text);
    json.end_array();
  }
  static void numbers(JsonWriter& json, std::string_view name, const std::vector<double>& list) {
    json.key(name).begin_array();
    for (const double value : list) json.number(value);
    json.end_array();
  }

  std::array<double, 2> pixel_;
  std::vector<std::string> names_;
  std::vector<std::string> units_;
  std::vector<double> values_;
  std::vector<double> sds_;
  std::vector<double> pixels_;
  std::vector<double> sd_pixels_;
};

void write_values(JsonWriter& json, const Camera& camera, const CalibratedCamera* calibrated,
                  bool with_sds) {
  if (calibrated == nullptr) {
    ValueRows rows({0.0, 0.0});
    rows.add({"c", "m", camera.c, 0.0}, -1);
    rows.add({"xp", "m", camera.xp, 0.0}, -1);
    rows.add({"yp", "m", camera.yp, 0.0}, -1);
    rows.write(json, false);
    return;
  }
  ValueRows rows(calibrated->pixel);
  rows.add(calibrated->principal_distance, 0);
  rows.add(calibrated->principal_point[0], 0);
  rows.add(calibrated->principal_point[1], 1);
  for (const CalibratedValue& value : calibrated->others) rows.add(value, -1);
  rows.write(json, with_sds);
}

bool belongs_to(const Unknown& unknown, const Camera& camera) {
  return std::find(camera.ap_sets.begin(), camera.ap_sets.end(), unknown.object) !=
         camera.ap_sets.end();
}

void write_correlation(JsonWriter& json, const APCorrelation& correlation, const Camera& camera) {
  std::vector<std::size_t> chosen;
  for (std::size_t i = 0; i < correlation.parameters.size(); ++i) {
    if (belongs_to(correlation.parameters[i], camera)) chosen.push_back(i);
  }
  if (chosen.size() < 2) return;
  json.key("correlation").begin_object();
  json.key("parameter").begin_array();
  for (const std::size_t i : chosen) {
    const Unknown& unknown = correlation.parameters[i];
    // Sets may have parameters of one name.
    const auto same = std::count_if(chosen.begin(), chosen.end(), [&](std::size_t k) {
      return parameter_name(correlation.parameters[k]) == parameter_name(unknown);
    });
    json.text(parameter_name(unknown) + (same > 1 ? " " + unknown.object->id : ""));
  }
  json.end_array();
  json.key("r").begin_array();
  for (const std::size_t i : chosen) {
    json.begin_array();
    for (const std::size_t j : chosen) {
      json.short_number(correlation.r[i * correlation.parameters.size() + j]);
    }
    json.end_array();
  }
  json.end_array();
  json.end_object();
}

std::size_t cell_of(double value, double size, int cells) {
  const double place = std::floor((value / size + 0.5) * cells);
  return static_cast<std::size_t>(std::clamp(place, 0.0, cells - 1.0));
}

// Mean residuals of the cells of the format.
void write_field(JsonWriter& json, const CameraPoints& points) {
  const bool fine = points.x.size() >= kManyPoints;
  const int columns = fine ? 16 : 8;
  const int rows = fine ? 12 : 6;
  const auto cells = static_cast<std::size_t>(columns * rows);
  std::vector<std::int64_t> counts(cells);
  std::vector<double> vx(cells);
  std::vector<double> vy(cells);
  for (std::size_t i = 0; i < points.x.size(); ++i) {
    const std::size_t cell =
        cell_of(points.y[i], points.camera->sy, rows) * static_cast<std::size_t>(columns) +
        cell_of(points.x[i], points.camera->sx, columns);
    ++counts[cell];
    vx[cell] += points.vx[i];
    vy[cell] += points.vy[i];
  }
  const auto means = [&](std::string_view name, const std::vector<double>& sums) {
    json.key(name).begin_array();
    for (std::size_t k = 0; k < cells; ++k) {
      counts[k] == 0 ? json.null() : json.short_number(sums[k] / static_cast<double>(counts[k]));
    }
    json.end_array();
  };
  json.key("field").begin_object();
  json.key("columns").integer(columns);
  json.key("rows").integer(rows);
  json.key("count").begin_array();
  for (const std::int64_t count : counts) json.integer(count);
  json.end_array();
  means("vx", vx);
  means("vy", vy);
  json.end_object();
}

void write_residuals(JsonWriter& json, const CameraPoints& points) {
  const std::size_t step = (points.x.size() + kMaxDrawnResiduals - 1) / kMaxDrawnResiduals;
  const auto column = [&](std::string_view name, const std::vector<double>& values) {
    std::vector<double> drawn;
    for (std::size_t i = 0; i < values.size(); i += step) drawn.push_back(values[i]);
    double scale = 1.0;
    json.key(name).begin_object();
    json.key("i16").text(packed_shorts(drawn, scale));
    json.key("scale").number(scale);
    json.end_object();
  };
  if (points.x.empty()) return;
  json.key("residuals").begin_object();
  json.key("step").integer(static_cast<std::int64_t>(step));
  column("x", points.x);
  column("y", points.y);
  column("vx", points.vx);
  column("vy", points.vy);
  json.end_object();
}

void write_profile(JsonWriter& json, const CalibratedCamera& calibrated, bool with_sds) {
  const auto column = [&](std::string_view name, auto value) {
    json.key(name).begin_array();
    for (const DistortionRow& row : calibrated.distortion) json.short_number(value(row));
    json.end_array();
  };
  json.key("profile").begin_object();
  column("r", [](const DistortionRow& row) { return row.radius; });
  column("dr", [](const DistortionRow& row) { return row.radial; });
  if (with_sds) column("sd", [](const DistortionRow& row) { return row.sd; });
  json.end_object();
}

void write_grid(JsonWriter& json, const Camera& camera) {
  std::array<std::vector<double>, 4> columns;
  for (int row = 0; row < kGridRows; ++row) {
    for (int column = 0; column < kGridColumns; ++column) {
      const double x = camera.sx * (column / (kGridColumns - 1.0) - 0.5);
      const double y = camera.sy * (row / (kGridRows - 1.0) - 0.5);
      const Pair effect = camera.get_corrections({x - camera.xp, y - camera.yp, -camera.c});
      const std::array<double, 4> values = {x, y, effect[0], effect[1]};
      for (std::size_t k = 0; k < 4; ++k) columns[k].push_back(values[k]);
    }
  }
  constexpr std::array<std::string_view, 4> kNames = {"x", "y", "dx", "dy"};
  json.key("grid_columns").integer(kGridColumns);
  json.key("grid").begin_object();
  for (std::size_t k = 0; k < 4; ++k) {
    json.key(kNames[k]).begin_array();
    for (const double value : columns[k]) json.short_number(value);
    json.end_array();
  }
  json.end_object();
}

void write_histogram(JsonWriter& json, const CameraPoints& points) {
  if (!points.has_w) return;
  json.key("w_histogram").begin_object();
  json.key("from").number(-kHistogramEnd);
  json.key("step").number(kHistogramStep);
  json.key("counts").begin_array();
  for (const std::int64_t count : points.w_counts) json.integer(count);
  json.end_array();
  json.end_object();
}

}  // namespace

void write_cameras(JsonWriter& json, const QualityResults& results) {
  const std::vector<CalibratedCamera> calibrated = calibrated_cameras(results);
  json.key("cameras").begin_array();
  for (const CameraPoints& points : points_by_camera(results)) {
    const Camera& camera = *points.camera;
    const auto found = std::find_if(calibrated.begin(), calibrated.end(),
                                    [&](const CalibratedCamera& c) { return c.camera == &camera; });
    const CalibratedCamera* const values = found == calibrated.end() ? nullptr : &*found;
    json.begin_object();
    json.key("id").text(camera.id);
    json.key("type").text(camera.get_type_name());
    json.key("width").number(camera.sx);
    json.key("height").number(camera.sy);
    write_values(json, camera, values, results.has_figures);
    if (results.has_figures) write_correlation(json, results.ap_correlation, camera);
    write_field(json, points);
    write_residuals(json, points);
    if (values != nullptr) {
      write_profile(json, *values, results.has_figures);
      write_grid(json, camera);
    }
    if (results.has_figures) write_histogram(json, points);
    json.end_object();
  }
  json.end_array();
}

}  // namespace vorn::app
