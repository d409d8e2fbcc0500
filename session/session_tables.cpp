#include "session_tables.h"

#include <cstdint>
#include <map>
#include <string_view>
#include <utility>

#include "driver/bundle_project.h"
#include "geometry/ext_orientation.h"
#include "quality/table_of.h"
#include "report/run_ending.h"

namespace vorn::session {
namespace {

// ---- statistics: one row ------------------------------------------------------------------------

// All but the project stands in the results.
using Run = const BundleProject*;
using Statistics = QualityStatistics;

template <auto member>
void put_count(CellSink& sink, const Run&, const QualityResults& results) {
  sink.count(results.statistics.*member);
}
template <auto member>
void put_number(CellSink& sink, const Run&, const QualityResults& results) {
  sink.number(results.statistics.*member);
}
template <auto sums, auto part>
void put_part(CellSink& sink, const Run&, const QualityResults& results) {
  sink.number(results.statistics.*sums.*part);
}

constexpr ColumnOf<Run> kStatistics[] = {
    {"converged", "flag", Needs::nothing,
     [](CellSink& s, const Run& run, const QualityResults&) { s.flag(run->converged); }},
    {"iterations", "count", Needs::nothing,
     [](CellSink& s, const Run& run, const QualityResults&) { s.count(run->num_iterations); }},
    {"images", "count", Needs::nothing, put_count<&Statistics::images>},
    {"points", "count", Needs::nothing, put_count<&Statistics::points>},
    {"image_points", "count", Needs::nothing, put_count<&Statistics::image_points>},
    {"unknowns", "count", Needs::nothing, put_count<&Statistics::unknowns>},
    {"observed_parameters", "count", Needs::nothing, put_count<&Statistics::observed_parameters>},
    {"fixed_parameters", "count", Needs::nothing, put_count<&Statistics::fixed_parameters>},
    {"constraints", "count", Needs::nothing, put_count<&Statistics::constraints>},
    {"redundancy", "count", Needs::nothing, put_count<&Statistics::redundancy>},
    {"vtpv", "m2", Needs::nothing,
     [](CellSink& s, const Run&, const QualityResults& all) {
       s.number(all.statistics.vtpv.total());
     }},
    {"vtpv_image", "m2", Needs::nothing, put_part<&Statistics::vtpv, &SumsByKind::image>},
    {"vtpv_observed", "m2", Needs::nothing, put_part<&Statistics::vtpv, &SumsByKind::observed>},
    {"vtpv_constraints", "m2", Needs::nothing,
     put_part<&Statistics::vtpv, &SumsByKind::constraints>},
    {"sigma0_prior", "m", Needs::nothing,
     [](CellSink& s, const Run&, const QualityResults& all) {
       s.number(all.settings.sigma0_prior);
     }},
    {"sigma0_posterior", "m", Needs::nothing, put_number<&Statistics::sigma0_posterior>},
    {"sigma0_used", "m", Needs::nothing,
     [](CellSink& s, const Run&, const QualityResults& all) {
       s.number(all.has_figures ? all.statistics.sigma0_used : kUndefined);
     }},
    {"rms_vx", "m", Needs::nothing, put_number<&Statistics::rms_vx>},
    {"rms_vy", "m", Needs::nothing, put_number<&Statistics::rms_vy>},
    {"global_test", "1", Needs::nothing,
     put_part<&Statistics::global_test, &GlobalTest::statistic>},
    {"global_test_lower", "1", Needs::nothing,
     put_part<&Statistics::global_test, &GlobalTest::lower>},
    {"global_test_upper", "1", Needs::nothing,
     put_part<&Statistics::global_test, &GlobalTest::upper>},
    {"global_test_passed", "flag", Needs::nothing,
     [](CellSink& s, const Run&, const QualityResults& all) {
       s.flag(all.statistics.global_test.passed);
     }},
    {"distance_to_minimum", "1", Needs::nothing, put_number<&Statistics::distance_to_minimum>},
};

// ---- iterations ---------------------------------------------------------------------------------

template <auto group>
void put_mean(CellSink& sink, const IterationStatistics& row, const QualityResults&) {
  const GroupChange& change = row.*group;
  sink.number(change.count > 0 ? change.mean() : kUndefined);
}
template <auto group>
void put_max(CellSink& sink, const IterationStatistics& row, const QualityResults&) {
  const GroupChange& change = row.*group;
  sink.number(change.count > 0 ? change.max : kUndefined);
}
template <auto part>
void put_moving(CellSink& sink, const IterationStatistics& row, const QualityResults&) {
  if (row.open_object == nullptr) return sink.text({});
  const NamedParameter open = open_parameter(row);
  sink.text(open.*part);
}

constexpr ColumnOf<IterationStatistics> kIterations[] = {
    {"iteration", "count", Needs::nothing,
     [](CellSink& s, const IterationStatistics& r, const QualityResults&) { s.count(r.number); }},
    {"sigma0", "m", Needs::nothing,
     [](CellSink& s, const IterationStatistics& r, const QualityResults&) { s.number(r.sigma0); }},
    {"vtpv", "m2", Needs::nothing,
     [](CellSink& s, const IterationStatistics& r, const QualityResults&) { s.number(r.vtpv); }},
    {"redundancy", "count", Needs::nothing,
     [](CellSink& s, const IterationStatistics& r, const QualityResults&) {
       s.count(r.counts.value());
     }},
    {"mean_change_points", "m", Needs::nothing, put_mean<&IterationStatistics::points>},
    {"max_change_points", "m", Needs::nothing, put_max<&IterationStatistics::points>},
    {"mean_change_centres", "m", Needs::nothing, put_mean<&IterationStatistics::centres>},
    {"max_change_centres", "m", Needs::nothing, put_max<&IterationStatistics::centres>},
    {"mean_change_rotations", "1", Needs::nothing, put_mean<&IterationStatistics::rotations>},
    {"max_change_rotations", "1", Needs::nothing, put_max<&IterationStatistics::rotations>},
    {"seconds", "s", Needs::nothing,
     [](CellSink& s, const IterationStatistics& r, const QualityResults&) {
       s.number(r.cpu_seconds);
     }},
    {"converged", "flag", Needs::nothing,
     [](CellSink& s, const IterationStatistics& r, const QualityResults&) {
       s.flag(r.open_object == nullptr);
     }},
    {"moving_type", "text", Needs::nothing, put_moving<&NamedParameter::kind>},
    {"moving_id", "id", Needs::nothing, put_moving<&NamedParameter::id>},
    {"moving_parameter", "text", Needs::nothing, put_moving<&NamedParameter::name>},
};

// ---- orientations -------------------------------------------------------------------------------

struct OrientationRow {
  const ImageGeometry* geometry = nullptr;
  const ExtOrientation* orientation = nullptr;  // null for other geometries
  Vec3 sd{kUndefined, kUndefined, kUndefined};  // of the centre
};

template <std::size_t axis>
void put_centre(CellSink& sink, const OrientationRow& row, const QualityResults&) {
  sink.number(row.orientation != nullptr ? row.orientation->projection_centre()[axis] : kUndefined);
}
template <std::size_t axis>
void put_centre_sd(CellSink& sink, const OrientationRow& row, const QualityResults&) {
  sink.number(row.sd[axis]);
}
template <std::size_t i, std::size_t k>
void put_rotation(CellSink& sink, const OrientationRow& row, const QualityResults&) {
  sink.number(row.orientation != nullptr ? row.orientation->rotation_matrix()[i][k] : kUndefined);
}

constexpr ColumnOf<OrientationRow> kOrientations[] = {
    {"id", "id", Needs::nothing,
     [](CellSink& s, const OrientationRow& r, const QualityResults&) { s.text(r.geometry->id); }},
    {"type", "text", Needs::nothing,
     [](CellSink& s, const OrientationRow& r, const QualityResults&) {
       s.text(r.geometry->get_keyword());
     }},
    {"time", "s", Needs::nothing,
     [](CellSink& s, const OrientationRow& r, const QualityResults&) {
       s.number(r.geometry->exposure_time);
     }},
    {"x0", "m", Needs::nothing, put_centre<0>},
    {"y0", "m", Needs::nothing, put_centre<1>},
    {"z0", "m", Needs::nothing, put_centre<2>},
    {"sd_x0", "m", Needs::nothing, put_centre_sd<0>},
    {"sd_y0", "m", Needs::nothing, put_centre_sd<1>},
    {"sd_z0", "m", Needs::nothing, put_centre_sd<2>},
    {"r11", "1", Needs::nothing, put_rotation<0, 0>},
    {"r12", "1", Needs::nothing, put_rotation<0, 1>},
    {"r13", "1", Needs::nothing, put_rotation<0, 2>},
    {"r21", "1", Needs::nothing, put_rotation<1, 0>},
    {"r22", "1", Needs::nothing, put_rotation<1, 1>},
    {"r23", "1", Needs::nothing, put_rotation<1, 2>},
    {"r31", "1", Needs::nothing, put_rotation<2, 0>},
    {"r32", "1", Needs::nothing, put_rotation<2, 1>},
    {"r33", "1", Needs::nothing, put_rotation<2, 2>},
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
    {"group", "text", Needs::figures,
     [](CellSink& s, const GroupResult& r, const QualityResults&) { s.text(r.group); }},
    {"id", "id", Needs::figures,
     [](CellSink& s, const GroupResult& r, const QualityResults&) { s.text(r.id); }},
    {"observations", "count", Needs::figures,
     [](CellSink& s, const GroupResult& r, const QualityResults&) { s.count(r.observations); }},
    {"redundancy", "1", Needs::figures,
     [](CellSink& s, const GroupResult& r, const QualityResults&) { s.number(r.redundancy); }},
    {"vtpv", "m2", Needs::figures,
     [](CellSink& s, const GroupResult& r, const QualityResults&) { s.number(r.vtpv); }},
    {"factor", "1", Needs::figures,
     [](CellSink& s, const GroupResult& r, const QualityResults&) { s.number(r.factor); }},
    {"factor_lower", "1", Needs::figures,
     [](CellSink& s, const GroupResult& r, const QualityResults&) { s.number(r.factor_lower); }},
    {"factor_upper", "1", Needs::figures,
     [](CellSink& s, const GroupResult& r, const QualityResults&) { s.number(r.factor_upper); }},
    {"sd_factor", "1", Needs::figures,
     [](CellSink& s, const GroupResult& r, const QualityResults&) { s.number(r.sd_factor); }},
};

}  // namespace

std::vector<std::unique_ptr<ResultTable>> tables_of_session(const BundleProject& project,
                                                            const QualityResults& results) {
  std::vector<std::unique_ptr<ResultTable>> tables;
  tables.push_back(std::make_unique<TableOf<Run, std::vector<Run>>>(
      "statistics", results, std::vector<Run>{&project}, kStatistics));
  tables.push_back(std::make_unique<TableOf<IterationStatistics>>("iterations", results,
                                                                  results.iterations, kIterations));
  tables.push_back(std::make_unique<TableOf<OrientationRow, std::vector<OrientationRow>>>(
      "orientations", results, orientations_of(project, results), kOrientations));
  for (auto& table : tables_of(results)) tables.push_back(std::move(table));
  if (results.has_figures) {
    tables.push_back(
        std::make_unique<TableOf<GroupResult>>("groups", results, results.groups, kGroups));
  }
  return tables;
}

}  // namespace vorn::session
