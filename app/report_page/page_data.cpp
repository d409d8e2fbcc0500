#include "app/report_page/page_data.h"

#include <algorithm>
#include <cmath>
#include <functional>

#include "app/json/json_stream.h"
#include "app/json/result_sections.h"
#include "app/report_page/camera_data.h"
#include "app/report_page/lights.h"
#include "app/report_page/packed_column.h"
#include "app/report_page/page_tables.h"
#include "geometry/ext_orientation.h"
#include "sensors/camera.h"

namespace vorn::app {
namespace {

// Roles of points as the page numbers them.
int role_code(const ObjectPoint& point) {
  if (point.type == PointType::control) return 1;
  return point.type == PointType::check ? 2 : 0;
}

template <class Rows, class Value>
void number_column(JsonWriter& json, std::string_view name, const Rows& rows, Value value) {
  json.key(name).begin_array();
  for (const auto& row : rows) json.short_number(value(row));
  json.end_array();
}

template <class Rows, class Value>
void float_column(JsonWriter& json, std::string_view name, const Rows& rows, Value value) {
  std::vector<double> values;
  values.reserve(rows.size());
  for (const auto& row : rows) values.push_back(value(row));
  json.key(name).begin_object();
  json.key("f32").text(packed_floats(values));
  json.end_object();
}

void write_counts(JsonWriter& json, const QualityResults& results) {
  const auto count = [&](int role) {
    return std::count_if(results.points.begin(), results.points.end(),
                         [role](const PointResult& p) { return role_code(*p.point) == role; });
  };
  json.key("counts").begin_object();
  json.key("control").integer(count(1));
  json.key("check").integer(count(2));
  json.end_object();
}

void write_lights(JsonWriter& json, const QualityResults& results) {
  json.key("lights").begin_array();
  for (const Light& light : find_lights(results)) {
    json.begin_object();
    json.key("name").text(light.name);
    json.key("title").text(light.title);
    json.key("light").text(colour_name(light.colour));
    json.key("value").text(light.value);
    json.key("limits").text(light.limits);
    json.key("sentence").text(light.sentence);
    json.end_object();
  }
  json.end_array();
}

// Residual of a control point (adjusted - given), difference of a check point (given - adjusted); 0
// where the coordinate is not given.
double vector_of(const PointResult& result, std::size_t c) {
  const ObjectPoint& point = *result.point;
  const auto k = static_cast<std::int32_t>(c);
  const double change = point.xyz[c] - point.param(k).initial;
  if (point.type == PointType::check) return point.check[c] ? -change : 0.0;
  const bool given = point.param(k).state != ParamState::unknown;
  return point.type == PointType::control && given ? change : 0.0;
}

void write_points(JsonWriter& json, const QualityResults& results) {
  const std::vector<PointResult>& points = results.points;
  constexpr std::string_view kAxes[] = {"x", "y", "z"};
  json.key("points").begin_object();
  json.key("id").begin_array();
  for (const PointResult& p : points) json.text(p.point->id);
  json.end_array();
  json.key("role").begin_array();
  for (const PointResult& p : points) json.integer(role_code(*p.point));
  json.end_array();
  json.key("rays").begin_array();
  for (const PointResult& p : points) json.integer(p.rays);
  json.end_array();
  for (std::size_t c = 0; c < 3; ++c) {
    json.key(kAxes[c]).begin_array();
    for (const PointResult& p : points) json.coordinate(p.point->xyz[c]);
    json.end_array();
    float_column(json, std::string("d") + std::string(kAxes[c]), points,
                 [c](const PointResult& p) { return vector_of(p, c); });
  }
  if (results.has_figures) {
    for (std::size_t c = 0; c < 3; ++c) {
      float_column(json, std::string("sd_") + std::string(kAxes[c]), points,
                   [c](const PointResult& p) { return p.sd(c); });
    }
    constexpr std::pair<std::string_view, std::size_t> kCovariances[] = {
        {"cov_xy", 1}, {"cov_xz", 2}, {"cov_yz", 4}};
    for (const auto& [name, k] : kCovariances) {
      float_column(json, name, points, [k = k](const PointResult& p) { return p.covariance[k]; });
    }
    float_column(json, "angle", points, [](const PointResult& p) { return p.angle; });
  }
  json.end_object();
}

// Only images with a projection centre can be drawn.
void write_images(JsonWriter& json, const QualityResults& results) {
  struct Drawn {
    const ImageResult* image;
    const ExtOrientation* orientation;
  };
  std::vector<Drawn> drawn;
  for (const ImageResult& image : results.images) {
    const auto* const orientation = dynamic_cast<const ExtOrientation*>(image.image->geometry);
    if (orientation != nullptr) drawn.push_back({&image, orientation});
  }
  json.key("images").begin_object();
  json.key("id").begin_array();
  for (const Drawn& d : drawn) json.text(d.image->image->id);
  json.end_array();
  constexpr std::string_view kAxes[] = {"x", "y", "z"};
  for (std::size_t c = 0; c < 3; ++c) {
    json.key(kAxes[c]).begin_array();
    for (const Drawn& d : drawn) json.coordinate(d.orientation->projection_centre()[c]);
    json.end_array();
  }
  number_column(json, "c", drawn, [](const Drawn& d) { return d.image->image->camera->c; });
  number_column(json, "width", drawn, [](const Drawn& d) { return d.image->image->camera->sx; });
  number_column(json, "height", drawn, [](const Drawn& d) { return d.image->image->camera->sy; });
  for (std::size_t r = 0; r < 3; ++r) {
    for (std::size_t c = 0; c < 3; ++c) {
      const std::string name = "r" + std::to_string(r) + std::to_string(c);
      number_column(json, name, drawn,
                    [r, c](const Drawn& d) { return d.orientation->rotation_matrix()[r][c]; });
    }
  }
  json.end_object();
}

}  // namespace

void write_page_data(TextWriter& out, const PageInput& input) {
  const QualityResults& results = input.results;
  JsonWriter json(out, JsonPlace::markup);
  json.begin_object();
  write_document_head(json, "vorn-report", results);
  json.key("ending").text(input.ending);
  write_statistics(json, results);
  write_counts(json, results);
  write_settings(json, results);
  write_lights(json, results);
  json.key("network").begin_object();
  write_points(json, results);
  write_images(json, results);
  json.end_object();
  write_cameras(json, results);
  write_iterations(json, results);
  write_groups(json, results);
  write_tables(json, input);
  json.end_object();
}

}  // namespace vorn::app
