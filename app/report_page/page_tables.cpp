#include "app/report_page/page_tables.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <numbers>
#include <numeric>
#include <string>
#include <vector>

#include "sensors/camera.h"

namespace vorn::app {
namespace {

constexpr std::size_t kWorstResiduals = 2000;
constexpr double kMicrometres = 1e6;
constexpr double kMillimetres = 1e3;
constexpr double kDegrees = 180.0 / std::numbers::pi;

// A table on its way into the page: columns over rows that are numbered from 0.
class TableWriter {
 public:
  TableWriter(JsonWriter& json, std::string_view name, std::string_view title, std::size_t num_rows)
      : json_(json), num_rows_(num_rows) {
    json_.begin_object();
    json_.key("name").text(name);
    json_.key("title").text(title);
  }
  void note(std::string_view text) { json_.key("note").text(text); }

  // A column that the member "points" of the network holds already under the same name.
  void shared_text(std::string_view name, std::string_view head) {
    columns_.push_back({name, head, "", "text", -1, 1.0, false, {}, {}});
  }
  void shared_count(std::string_view name, std::string_view head) {
    columns_.push_back({name, head, "", "count", 0, 1.0, false, {}, {}});
  }
  void shared_number(std::string_view name, std::string_view head, std::string_view unit,
                     double factor, int decimals) {
    columns_.push_back({name, head, unit, "number", decimals, factor, false, {}, {}});
  }
  void text(std::string_view name, std::string_view head,
            std::function<std::string_view(std::size_t)> value, bool wide = false) {
    columns_.push_back({name, head, "", "text", -1, 1.0, wide, {}, std::move(value)});
  }
  void count(std::string_view name, std::string_view head,
             std::function<double(std::size_t)> value) {
    columns_.push_back({name, head, "", "count", 0, 1.0, false, std::move(value), {}});
  }
  // Shown as value * factor in the unit.
  void number(std::string_view name, std::string_view head, std::string_view unit, double factor,
              int decimals, std::function<double(std::size_t)> value) {
    columns_.push_back({name, head, unit, "number", decimals, factor, false, std::move(value), {}});
  }

  void finish() {
    json_.key("columns").begin_array();
    for (const Column& column : columns_) describe(column);
    json_.end_array();
    json_.key("rows").begin_object();
    for (const Column& column : columns_) {
      json_.key(column.name);
      if (!column.text && !column.number) {
        json_.begin_object();
        json_.key("of").text("points");
        json_.end_object();
        continue;
      }
      json_.begin_array();
      for (std::size_t row = 0; row < num_rows_; ++row) {
        column.text ? json_.text(column.text(row)) : json_.coordinate(column.number(row));
      }
      json_.end_array();
    }
    json_.end_object();
    json_.end_object();
  }

 private:
  struct Column {
    std::string_view name;
    std::string_view head;
    std::string_view unit;
    std::string_view kind;
    int decimals;
    double factor;
    bool wide;
    std::function<double(std::size_t)> number;
    std::function<std::string_view(std::size_t)> text;
  };

  void describe(const Column& column) {
    json_.begin_object();
    json_.key("name").text(column.name);
    json_.key("head").text(column.head);
    json_.key("kind").text(column.kind);
    if (!column.unit.empty()) json_.key("unit").text(column.unit);
    if (column.kind == "number") {
      json_.key("factor").number(column.factor);
      if (column.decimals >= 0) json_.key("decimals").integer(column.decimals);
      json_.key("absolute").flag(true);
    }
    if (column.wide) json_.key("wide").flag(true);
    json_.end_object();
  }

  JsonWriter& json_;
  std::size_t num_rows_;
  std::vector<Column> columns_;
};

struct Residual {
  const BundleImage* image = nullptr;
  const ImagePointResult* point = nullptr;
  double size = 0.0;  // what they are sorted by

  double w(std::size_t k) const { return standardised(point->v[k], point->s[k], point->r[k]); }
};

// The largest |w|, or without figures of quality the largest residuals in units of their a-priori
// standard deviations.
std::vector<Residual> worst_residuals(const QualityResults& results) {
  std::vector<Residual> residuals;
  for (const ImageResult& image : results.images) {
    for (std::int32_t i = 0; i < image.points; ++i) {
      Residual residual{image.image,
                        &results.image_points[image.first + static_cast<std::size_t>(i)]};
      for (std::size_t k = 0; k < 2; ++k) {
        const double size = results.has_figures
                                ? std::fabs(residual.w(k))
                                : std::fabs(residual.point->v[k] / residual.point->s[k]);
        if (size > residual.size) residual.size = size;
      }
      residuals.push_back(residual);
    }
  }
  const auto end =
      residuals.begin() + static_cast<std::ptrdiff_t>(std::min(kWorstResiduals, residuals.size()));
  std::partial_sort(residuals.begin(), end, residuals.end(),
                    [](const Residual& a, const Residual& b) {
                      return a.size != b.size ? a.size > b.size : a.point < b.point;
                    });
  residuals.erase(end, residuals.end());
  return residuals;
}

void write_residuals(JsonWriter& json, const QualityResults& results) {
  const std::vector<Residual> rows = worst_residuals(results);
  TableWriter table(json, "residuals", "Worst residuals of image points", rows.size());
  table.text("image", "Image", [&](std::size_t i) { return std::string_view(rows[i].image->id); });
  table.text("point", "Point",
             [&](std::size_t i) { return std::string_view(rows[i].point->point->id); });
  constexpr std::string_view kV[] = {"vx", "vy"};
  constexpr std::string_view kW[] = {"wx", "wy"};
  constexpr std::string_view kTau[] = {"tau_x", "tau_y"};
  constexpr std::string_view kR[] = {"rx", "ry"};
  constexpr std::string_view kMdb[] = {"mdb_x", "mdb_y"};
  for (std::size_t k = 0; k < 2; ++k) {
    table.number(kV[k], kV[k], "\u00b5m", kMicrometres, 2,
                 [&rows, k](std::size_t i) { return rows[i].point->v[k]; });
  }
  if (results.has_figures) {
    for (std::size_t k = 0; k < 2; ++k) {
      table.number(kW[k], kW[k], "", 1.0, 2, [&rows, k](std::size_t i) { return rows[i].w(k); });
    }
    for (std::size_t k = 0; k < 2; ++k) {
      table.number(kTau[k], k == 0 ? "tau x" : "tau y", "", 1.0, 2,
                   [&rows, &results, k](std::size_t i) { return results.tau(rows[i].w(k)); });
    }
    for (std::size_t k = 0; k < 2; ++k) {
      table.number(kR[k], kR[k], "", 1.0, 2,
                   [&rows, k](std::size_t i) { return rows[i].point->r[k]; });
    }
    for (std::size_t k = 0; k < 2; ++k) {
      table.number(kMdb[k], k == 0 ? "mdb x" : "mdb y", "\u00b5m", kMicrometres, 1,
                   [&rows, &results, k](std::size_t i) {
                     const ImagePointResult& p = *rows[i].point;
                     return smallest_detectable(p.s[k], p.r[k], results.settings.delta0);
                   });
    }
  }
  table.finish();
}

void write_images(JsonWriter& json, const QualityResults& results) {
  const std::vector<ImageResult>& rows = results.images;
  TableWriter table(json, "images", "Images", rows.size());
  table.text("id", "Image", [&](std::size_t i) { return std::string_view(rows[i].image->id); });
  table.text("camera", "Camera",
             [&](std::size_t i) { return std::string_view(rows[i].image->camera->id); });
  table.count("points", "Points", [&](std::size_t i) { return double(rows[i].points); });
  table.number("rms_vx", "RMS vx", "\u00b5m", kMicrometres, 2,
               [&](std::size_t i) { return rows[i].rms[0]; });
  table.number("rms_vy", "RMS vy", "\u00b5m", kMicrometres, 2,
               [&](std::size_t i) { return rows[i].rms[1]; });
  if (results.has_figures) {
    table.number("redundancy", "Redundancy", "", 1.0, 1,
                 [&](std::size_t i) { return rows[i].redundancy; });
    table.number("max_w", "Largest |w|", "", 1.0, 2, [&](std::size_t i) { return rows[i].max_w; });
  }
  table.finish();
}

// Decimals of millimetres that show two digits of most standard deviations of the points.
int millimetre_decimals(const QualityResults& results) {
  std::vector<double> sds;
  for (const PointResult& point : results.points) {
    if (results.has_figures && point.sd(0) > 0.0) sds.push_back(point.sd(0));
  }
  if (sds.empty()) return 1;
  const auto middle = sds.begin() + static_cast<std::ptrdiff_t>(sds.size() / 2);
  std::nth_element(sds.begin(), middle, sds.end());
  return std::clamp(1 - static_cast<int>(std::floor(std::log10(*middle * kMillimetres))), 0, 6);
}

constexpr std::string_view kAxes[] = {"x", "y", "z"};
constexpr std::string_view kHeads[] = {"X", "Y", "Z"};
constexpr std::string_view kSds[] = {"sd_x", "sd_y", "sd_z"};
constexpr std::string_view kSdHeads[] = {"Std. dev. X", "Std. dev. Y", "Std. dev. Z"};
constexpr std::string_view kDifferences[] = {"dx", "dy", "dz"};
constexpr std::string_view kDifferenceHeads[] = {"dX", "dY", "dZ"};

std::string_view role_word(const ObjectPoint& point) {
  if (point.type == PointType::control) return "control";
  return point.type == PointType::check ? "check" : "tie";
}

void write_points(JsonWriter& json, const QualityResults& results) {
  const std::vector<PointResult>& rows = results.points;
  const int decimals = millimetre_decimals(results);
  TableWriter table(json, "points", "Object points", rows.size());
  table.shared_text("id", "Point");
  table.text("role", "Role", [&](std::size_t i) { return role_word(*rows[i].point); });
  table.shared_count("rays", "Rays");
  for (std::size_t c = 0; c < 3; ++c) {
    table.shared_number(kAxes[c], kHeads[c], "m", 1.0, decimals + 3);
  }
  if (results.has_figures) {
    for (std::size_t c = 0; c < 3; ++c) {
      table.shared_number(kSds[c], kSdHeads[c], "mm", kMillimetres, decimals);
    }
    table.shared_number("angle", "Angle", "\u00b0", kDegrees, 1);
  }
  table.finish();
}

struct ControlRow {
  std::string object;
  const ObservedResult* observed;
};

void write_control(JsonWriter& json, const QualityResults& results) {
  std::vector<ControlRow> rows;
  for (const ObservedResult& observed : results.observed_parameters) {
    if (object_type_of(*observed.unknown.object) != ObjectType::object_point) continue;
    rows.push_back({parameter_name(observed.unknown), &observed});
  }
  const int decimals = millimetre_decimals(results);
  TableWriter table(json, "control", "Observed coordinates of control points", rows.size());
  table.text("point", "Point",
             [&](std::size_t i) { return std::string_view(rows[i].observed->unknown.object->id); });
  table.text("coordinate", "Coordinate",
             [&](std::size_t i) { return std::string_view(rows[i].object); });
  table.number("v", "v", "mm", kMillimetres, decimals,
               [&](std::size_t i) { return rows[i].observed->v; });
  table.number("s", "Std. dev. a priori", "mm", kMillimetres, decimals,
               [&](std::size_t i) { return rows[i].observed->s(); });
  if (results.has_figures) {
    table.number("r", "r", "", 1.0, 2, [&](std::size_t i) { return rows[i].observed->r; });
    table.number("w", "w", "", 1.0, 2, [&](std::size_t i) {
      return standardised(rows[i].observed->v, rows[i].observed->s(), rows[i].observed->r);
    });
    table.number("mdb", "mdb", "mm", kMillimetres, decimals, [&](std::size_t i) {
      return smallest_detectable(rows[i].observed->s(), rows[i].observed->r,
                                 results.settings.delta0);
    });
  }
  table.finish();
}

void write_checks(JsonWriter& json, const QualityResults& results) {
  const std::vector<CheckPointResult>& rows = results.check_points;
  const int decimals = millimetre_decimals(results);
  TableWriter table(json, "check_points", "Check points: given \u2212 adjusted", rows.size());
  table.text("id", "Point", [&](std::size_t i) { return std::string_view(rows[i].point->id); });
  for (std::size_t c = 0; c < 3; ++c) {
    table.number(kDifferences[c], kDifferenceHeads[c], "mm", kMillimetres, decimals,
                 [&rows, c](std::size_t i) { return rows[i].difference[c]; });
  }
  if (results.has_figures) {
    for (std::size_t c = 0; c < 3; ++c) {
      table.number(kSds[c], kSdHeads[c], "mm", kMillimetres, decimals,
                   [&rows, c](std::size_t i) { return rows[i].sd[c]; });
    }
  }
  table.finish();
}

std::string reason_of(const Removal& removal) {
  const std::string count = std::to_string(removal.count);
  switch (removal.reason) {
    case RemovalReason::too_few_rays:
      return "fewer than two rays (" + count + ")";
    case RemovalReason::too_few_points:
      return "fewer than three points (" + count + ")";
    default:
      return "nothing uses it";
  }
}

void write_removed(JsonWriter& json, std::span<const Removal> rows) {
  std::vector<std::string> objects;
  std::vector<std::string> reasons;
  for (const Removal& removal : rows) {
    objects.push_back(std::string(removal.kind) + ' ' + removal.id);
    reasons.push_back(reason_of(removal));
  }
  TableWriter table(json, "removed", "Removed objects", rows.size());
  table.text("object", "Object", [&](std::size_t i) { return std::string_view(objects[i]); });
  table.text(
      "text", "Reason", [&](std::size_t i) { return std::string_view(reasons[i]); }, true);
  table.finish();
}

// A row of the table of findings, of the files or of the network.
struct FindingRow {
  std::string_view severity;
  std::string place;
  std::string_view text;
  std::string_view help;
};

std::vector<FindingRow> finding_rows(const PageInput& input) {
  std::vector<FindingRow> rows;
  const auto add_checked = [&](Severity severity) {
    for (const Finding& found : input.checked) {
      if (found.severity() != severity) continue;
      const std::string line = found.line > 0 ? ':' + std::to_string(found.line) : std::string();
      rows.push_back({name_of(severity), found.file + line, found.message, found.help});
    }
  };
  const auto add_diagnosed = [&](FindingSeverity severity, Severity shown) {
    if (input.diagnosis == nullptr) return;
    for (const DiagnosisFinding& found : input.diagnosis->findings) {
      if (found.severity != severity) continue;
      rows.push_back({name_of(shown),
                      found.objects.empty() ? std::string() : in_words(found.objects.front()),
                      found.message, found.remedy});
    }
  };
  constexpr std::pair<Severity, FindingSeverity> kSeverities[] = {
      {Severity::error, FindingSeverity::error},
      {Severity::warning, FindingSeverity::warning},
      {Severity::note, FindingSeverity::info}};
  for (const auto& [checked, diagnosed] : kSeverities) {
    add_checked(checked);
    add_diagnosed(diagnosed, checked);
  }
  return rows;
}

void write_findings(JsonWriter& json, const PageInput& input) {
  const std::vector<FindingRow> rows = finding_rows(input);
  TableWriter table(json, "findings", "Findings", rows.size());
  table.text("severity", "Kind", [&](std::size_t i) { return rows[i].severity; });
  table.text("object", "Place", [&](std::size_t i) { return std::string_view(rows[i].place); });
  table.text(
      "text", "Finding", [&](std::size_t i) { return rows[i].text; }, true);
  table.text(
      "help", "What helps", [&](std::size_t i) { return rows[i].help; }, true);
  table.finish();
}

}  // namespace

void write_tables(JsonWriter& json, const PageInput& input) {
  json.key("tables").begin_array();
  write_residuals(json, input.results);
  write_images(json, input.results);
  write_points(json, input.results);
  write_control(json, input.results);
  write_checks(json, input.results);
  write_removed(json, input.removed);
  write_findings(json, input);
  json.end_array();
}

}  // namespace vorn::app
