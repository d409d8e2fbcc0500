#include "session_tables.h"

#include <cstdint>
#include <map>
#include <string_view>
#include <utility>

#include "driver/bundle_project.h"
#include "geometry/ext_orientation.h"
#include "report/run_ending.h"

namespace vorn::session {
namespace {

// A column by name, unit, and what a row puts there.
template <class Row>
struct ColumnOf {
  std::string_view name;
  std::string_view unit;
  void (*put)(CellSink& sink, const Row& row);
};

template <class Row>
class TableOf final : public ResultTable {
 public:
  template <std::size_t n>
  TableOf(std::string_view table_name, std::vector<Row> rows, const ColumnOf<Row> (&all)[n])
      : ResultTable(table_name), rows_(std::move(rows)) {
    for (const ColumnOf<Row>& column : all) {
      puts_.push_back(column.put);
      columns.push_back({column.name, column.unit});
    }
  }
  std::size_t num_rows() const override { return rows_.size(); }
  void put(std::size_t row, std::size_t column, CellSink& sink) const override {
    puts_[column](sink, rows_[row]);
  }

 private:
  std::vector<Row> rows_;
  std::vector<void (*)(CellSink&, const Row&)> puts_;
};

// ---- statistics: one row ------------------------------------------------------------------------

struct RunRow {
  const BundleProject* project;
  const QualityResults* results;
};
using Statistics = QualityStatistics;

template <auto member>
void put_count(CellSink& sink, const RunRow& row) {
  sink.count(row.results->statistics.*member);
}
template <auto member>
void put_number(CellSink& sink, const RunRow& row) {
  sink.number(row.results->statistics.*member);
}
template <auto sums, auto part>
void put_part(CellSink& sink, const RunRow& row) {
  sink.number(row.results->statistics.*sums.*part);
}

constexpr ColumnOf<RunRow> kStatistics[] = {
    {"converged", "flag", [](CellSink& s, const RunRow& r) { s.flag(r.project->converged); }},
    {"iterations", "count",
     [](CellSink& s, const RunRow& r) { s.count(r.project->num_iterations); }},
    {"images", "count", put_count<&Statistics::images>},
    {"points", "count", put_count<&Statistics::points>},
    {"image_points", "count", put_count<&Statistics::image_points>},
    {"unknowns", "count", put_count<&Statistics::unknowns>},
    {"observed_parameters", "count", put_count<&Statistics::observed_parameters>},
    {"fixed_parameters", "count", put_count<&Statistics::fixed_parameters>},
    {"constraints", "count", put_count<&Statistics::constraints>},
    {"redundancy", "count", put_count<&Statistics::redundancy>},
    {"vtpv", "m2",
     [](CellSink& s, const RunRow& r) { s.number(r.results->statistics.vtpv.total()); }},
    {"vtpv_image", "m2", put_part<&Statistics::vtpv, &SumsByKind::image>},
    {"vtpv_observed", "m2", put_part<&Statistics::vtpv, &SumsByKind::observed>},
    {"vtpv_constraints", "m2", put_part<&Statistics::vtpv, &SumsByKind::constraints>},
    {"sigma0_prior", "m",
     [](CellSink& s, const RunRow& r) { s.number(r.results->settings.sigma0_prior); }},
    {"sigma0_posterior", "m", put_number<&Statistics::sigma0_posterior>},
    {"sigma0_used", "m",
     [](CellSink& s, const RunRow& r) {
       s.number(r.results->has_figures ? r.results->statistics.sigma0_used : kUndefined);
     }},
    {"rms_vx", "m", put_number<&Statistics::rms_vx>},
    {"rms_vy", "m", put_number<&Statistics::rms_vy>},
    {"global_test", "1", put_part<&Statistics::global_test, &GlobalTest::statistic>},
    {"global_test_lower", "1", put_part<&Statistics::global_test, &GlobalTest::lower>},
    {"global_test_upper", "1", put_part<&Statistics::global_test, &GlobalTest::upper>},
    {"global_test_passed", "flag",
     [](CellSink& s, const RunRow& r) { s.flag(r.results->statistics.global_test.passed); }},
    {"distance_to_minimum", "1", put_number<&Statistics::distance_to_minimum>},
};

// ---- iterations ---------------------------------------------------------------------------------

using Iteration = const IterationStatistics*;

template <auto group>
void put_mean(CellSink& sink, const Iteration& row) {
  const GroupChange& change = row->*group;
  sink.number(change.count > 0 ? change.mean() : kUndefined);
}
template <auto group>
void put_max(CellSink& sink, const Iteration& row) {
  const GroupChange& change = row->*group;
  sink.number(change.count > 0 ? change.max : kUndefined);
}
template <auto part>
void put_moving(CellSink& sink, const Iteration& row) {
  if (row->open_object == nullptr) return sink.text({});
  const NamedParameter open = open_parameter(*row);
  sink.text(open.*part);
}

constexpr ColumnOf<Iteration> kIterations[] = {
    {"iteration", "count", [](CellSink& s, const Iteration& r) { s.count(r->number); }},
    {"sigma0", "m", [](CellSink& s, const Iteration& r) { s.number(r->sigma0); }},
    {"vtpv", "m2", [](CellSink& s, const Iteration& r) { s.number(r->vtpv); }},
    {"redundancy", "count", [](CellSink& s, const Iteration& r) { s.count(r->counts.value()); }},
    {"mean_change_points", "m", put_mean<&IterationStatistics::points>},
    {"max_change_points", "m", put_max<&IterationStatistics::points>},
    {"mean_change_centres", "m", put_mean<&IterationStatistics::centres>},
    {"max_change_centres", "m", put_max<&IterationStatistics::centres>},
    {"mean_change_rotations", "1", put_mean<&IterationStatistics::rotations>},
    {"max_change_rotations", "1", put_max<&IterationStatistics::rotations>},
    {"seconds", "s", [](CellSink& s, const Iteration& r) { s.number(r->cpu_seconds); }},
    {"converged", "flag",
     [](CellSink& s, const Iteration& r) { s.flag(r->open_object == nullptr); }},
    {"moving_type", "text", put_moving<&NamedParameter::kind>},
    {"moving_id", "id", put_moving<&NamedParameter::id>},
    {"moving_parameter", "text", put_moving<&NamedParameter::name>},
};

// ---- orientations -------------------------------------------------------------------------------

struct OrientationRow {
  const ImageGeometry* geometry = nullptr;
  const ExtOrientation* orientation = nullptr;  // null for other geometries
  Vec3 sd{kUndefined, kUndefined, kUndefined};  // of the centre
};

template <std::size_t axis>
void put_centre(CellSink& sink, const OrientationRow& row) {
  sink.number(row.orientation != nullptr ? row.orientation->projection_centre()[axis] : kUndefined);
}
template <std::size_t axis>
void put_centre_sd(CellSink& sink, const OrientationRow& row) {
  sink.number(row.sd[axis]);
}
template <std::size_t i, std::size_t k>
void put_rotation(CellSink& sink, const OrientationRow& row) {
  sink.number(row.orientation != nullptr ? row.orientation->rotation_matrix()[i][k] : kUndefined);
}

constexpr ColumnOf<OrientationRow> kOrientations[] = {
    {"id", "id", [](CellSink& s, const OrientationRow& r) { s.text(r.geometry->id); }},
    {"type", "text",
     [](CellSink& s, const OrientationRow& r) { s.text(r.geometry->get_keyword()); }},
    {"time", "s",
     [](CellSink& s, const OrientationRow& r) { s.number(r.geometry->exposure_time); }},
    {"x0", "m", put_centre<0>},
    {"y0", "m", put_centre<1>},
    {"z0", "m", put_centre<2>},
    {"sd_x0", "m", put_centre_sd<0>},
    {"sd_y0", "m", put_centre_sd<1>},
    {"sd_z0", "m", put_centre_sd<2>},
    {"r11", "1", put_rotation<0, 0>},
    {"r12", "1", put_rotation<0, 1>},
    {"r13", "1", put_rotation<0, 2>},
    {"r21", "1", put_rotation<1, 0>},
    {"r22", "1", put_rotation<1, 1>},
    {"r23", "1", put_rotation<1, 2>},
    {"r31", "1", put_rotation<2, 0>},
    {"r32", "1", put_rotation<2, 1>},
    {"r33", "1", put_rotation<2, 2>},
};

std::vector<OrientationRow> orientations_of(const BundleProject& project,
                                            const QualityResults& results) {
  std::map<const AdjObject*, Vec3> sds;
  if (results.has_figures) {
    for (const ParameterResult& row : results.parameters) {
      if (row.unknown.k < 3) {
        sds[row.unknown.object][static_cast<std::size_t>(row.unknown.k)] = row.sd;
      }
    }
  }
  std::vector<OrientationRow> rows;
  for (const ImageGeometry& geometry : project.image_geometries) {
    OrientationRow& row = rows.emplace_back();
    row.geometry = &geometry;
    row.orientation = dynamic_cast<const ExtOrientation*>(&geometry);
    const auto sd = sds.find(&geometry);
    if (row.orientation != nullptr && sd != sds.end()) row.sd = sd->second;
  }
  return rows;
}

// ---- groups of observations ---------------------------------------------------------------------

constexpr ColumnOf<GroupResult> kGroups[] = {
    {"group", "text", [](CellSink& s, const GroupResult& r) { s.text(r.group); }},
    {"id", "id", [](CellSink& s, const GroupResult& r) { s.text(r.id); }},
    {"observations", "count", [](CellSink& s, const GroupResult& r) { s.count(r.observations); }},
    {"redundancy", "1", [](CellSink& s, const GroupResult& r) { s.number(r.redundancy); }},
    {"vtpv", "m2", [](CellSink& s, const GroupResult& r) { s.number(r.vtpv); }},
    {"factor", "1", [](CellSink& s, const GroupResult& r) { s.number(r.factor); }},
    {"factor_lower", "1", [](CellSink& s, const GroupResult& r) { s.number(r.factor_lower); }},
    {"factor_upper", "1", [](CellSink& s, const GroupResult& r) { s.number(r.factor_upper); }},
    {"sd_factor", "1", [](CellSink& s, const GroupResult& r) { s.number(r.sd_factor); }},
};

std::vector<Iteration> pointers_to(const std::vector<IterationStatistics>& iterations) {
  std::vector<Iteration> rows;
  for (const IterationStatistics& iteration : iterations) rows.push_back(&iteration);
  return rows;
}

}  // namespace

std::vector<std::unique_ptr<ResultTable>> tables_of_session(const BundleProject& project,
                                                            const QualityResults& results) {
  std::vector<std::unique_ptr<ResultTable>> tables;
  tables.push_back(std::make_unique<TableOf<RunRow>>(
      "statistics", std::vector<RunRow>{{&project, &results}}, kStatistics));
  tables.push_back(std::make_unique<TableOf<Iteration>>(
      "iterations", pointers_to(results.iterations), kIterations));
  tables.push_back(std::make_unique<TableOf<OrientationRow>>(
      "orientations", orientations_of(project, results), kOrientations));
  for (auto& table : tables_of(results)) tables.push_back(std::move(table));
  if (results.has_figures) {
    tables.push_back(std::make_unique<TableOf<GroupResult>>("groups", results.groups, kGroups));
  }
  return tables;
}

}  // namespace vorn::session
