#include "quality/tables.h"

#include <array>
#include <cmath>
#include <string>

#include "quality/table_of.h"
#include "sensors/camera.h"

namespace vorn {
namespace {

std::string_view role_name(PointType type) {
  constexpr std::array<std::string_view, 4> kNames = {"none", "control", "intersection", "check"};
  return kNames[static_cast<std::size_t>(type)];
}

// ---- points -------------------------------------------------------------------------------------

template <std::int32_t axis>
void put_state(CellSink& sink, const PointResult& row, const QualityResults&) {
  sink.text(state_word(row.point->param(axis).state));
}
template <std::size_t axis>
void put_coordinate(CellSink& sink, const PointResult& row, const QualityResults&) {
  sink.number(row.point->xyz[axis]);
}
template <std::size_t axis>
void put_sd(CellSink& sink, const PointResult& row, const QualityResults&) {
  sink.number(row.sd(axis));
}
template <std::size_t element>
void put_covariance(CellSink& sink, const PointResult& row, const QualityResults&) {
  sink.number(row.covariance[element]);
}
template <std::size_t axis>
void put_semi_axis(CellSink& sink, const PointResult& row, const QualityResults&) {
  sink.number(row.semi_axes[axis]);
}
// The axes of an ellipsoid, kept for those who ask for the same ones several times on end, as the
// columns of a row do.
const std::array<Vec3, 3>& directions_of(const Symmetric3& covariance) {
  thread_local Symmetric3 kept_covariance{};
  thread_local std::array<Vec3, 3> kept = error_ellipsoid(kept_covariance).directions;
  if (covariance != kept_covariance) {
    kept = error_ellipsoid(covariance).directions;
    kept_covariance = covariance;
  }
  return kept;
}
template <std::size_t axis, std::size_t component>
void put_direction(CellSink& sink, const PointResult& row, const QualityResults&) {
  sink.number(directions_of(row.covariance)[axis][component]);
}

const std::vector<ColumnOf<PointResult>> kPointColumns = {
    {"id", "id", Needs::nothing,
     [](CellSink& s, const PointResult& r, const QualityResults&) { s.text(r.point->id); }},
    {"role", "text", Needs::nothing,
     [](CellSink& s, const PointResult& r, const QualityResults&) {
       s.text(role_name(r.point->type));
     }},
    {"rays", "count", Needs::nothing,
     [](CellSink& s, const PointResult& r, const QualityResults&) { s.count(r.rays); }},
    {"component", "count", Needs::figures,
     [](CellSink& s, const PointResult& r, const QualityResults&) { s.count(r.component); }},
    {"state_x", "text", Needs::nothing, put_state<0>},
    {"state_y", "text", Needs::nothing, put_state<1>},
    {"state_z", "text", Needs::nothing, put_state<2>},
    {"x", "m", Needs::nothing, put_coordinate<0>},
    {"y", "m", Needs::nothing, put_coordinate<1>},
    {"z", "m", Needs::nothing, put_coordinate<2>},
    {"sd_x", "m", Needs::figures, put_sd<0>},
    {"sd_y", "m", Needs::figures, put_sd<1>},
    {"sd_z", "m", Needs::figures, put_sd<2>},
    {"cov_xy", "m2", Needs::figures, put_covariance<1>},
    {"cov_xz", "m2", Needs::figures, put_covariance<2>},
    {"cov_yz", "m2", Needs::figures, put_covariance<4>},
    {"axis_a", "m", Needs::figures, put_semi_axis<0>},
    {"axis_b", "m", Needs::figures, put_semi_axis<1>},
    {"axis_c", "m", Needs::figures, put_semi_axis<2>},
    {"axis_a_x", "1", Needs::figures, put_direction<0, 0>},
    {"axis_a_y", "1", Needs::figures, put_direction<0, 1>},
    {"axis_a_z", "1", Needs::figures, put_direction<0, 2>},
    {"axis_b_x", "1", Needs::figures, put_direction<1, 0>},
    {"axis_b_y", "1", Needs::figures, put_direction<1, 1>},
    {"axis_b_z", "1", Needs::figures, put_direction<1, 2>},
    {"axis_c_x", "1", Needs::figures, put_direction<2, 0>},
    {"axis_c_y", "1", Needs::figures, put_direction<2, 1>},
    {"axis_c_z", "1", Needs::figures, put_direction<2, 2>},
    {"angle", "rad", Needs::figures,
     [](CellSink& s, const PointResult& r, const QualityResults&) { s.number(r.angle); }},
    {"redundancy", "1", Needs::figures,
     [](CellSink& s, const PointResult& r, const QualityResults&) { s.number(r.redundancy); }},
};

// ---- unknowns -----------------------------------------------------------------------------------

template <class Row>
void put_object_type(CellSink& sink, const Row& row, const QualityResults&) {
  sink.text(object_type_name(object_type_of(*row.unknown.object)));
}
template <class Row>
void put_object_id(CellSink& sink, const Row& row, const QualityResults&) {
  sink.text(row.unknown.object->id);
}
template <class Row>
void put_parameter(CellSink& sink, const Row& row, const QualityResults&) {
  sink.text(parameter_name(row.unknown));
}
template <class Row>
void put_unit(CellSink& sink, const Row& row, const QualityResults&) {
  sink.text(parameter_unit(row.unknown));
}

const std::vector<ColumnOf<ParameterResult>> kParameterColumns = {
    {"object_type", "text", Needs::nothing, put_object_type<ParameterResult>},
    {"object_id", "id", Needs::nothing, put_object_id<ParameterResult>},
    {"parameter", "text", Needs::nothing, put_parameter<ParameterResult>},
    {"unit", "text", Needs::nothing, put_unit<ParameterResult>},
    {"state", "text", Needs::nothing,
     [](CellSink& s, const ParameterResult& r, const QualityResults&) {
       s.text(state_word(r.unknown.record().state));
     }},
    {"initial", "unit", Needs::nothing,
     [](CellSink& s, const ParameterResult& r, const QualityResults&) {
       s.number(r.unknown.record().initial);
     }},
    {"value", "unit", Needs::nothing,
     [](CellSink& s, const ParameterResult& r, const QualityResults&) {
       s.number(*r.unknown.record().value);
     }},
    {"sd", "unit", Needs::figures,
     [](CellSink& s, const ParameterResult& r, const QualityResults&) { s.number(r.sd); }},
    {"ratio_to_zero", "1", Needs::figures,
     [](CellSink& s, const ParameterResult& r, const QualityResults&) {
       s.number(r.unknown.is_fixed() ? kUndefined : std::fabs(*r.unknown.record().value) / r.sd);
     }},
    {"ratio_to_initial", "1", Needs::figures,
     [](CellSink& s, const ParameterResult& r, const QualityResults&) {
       const ParamRecord& record = r.unknown.record();
       s.number(r.unknown.is_fixed() ? kUndefined
                                     : std::fabs(*record.value - record.initial) / r.sd);
     }},
};

const std::vector<ColumnOf<ObservedResult>> kObservedColumns = {
    {"object_type", "text", Needs::nothing, put_object_type<ObservedResult>},
    {"object_id", "id", Needs::nothing, put_object_id<ObservedResult>},
    {"parameter", "text", Needs::nothing, put_parameter<ObservedResult>},
    {"unit", "text", Needs::nothing, put_unit<ObservedResult>},
    {"given", "unit", Needs::nothing,
     [](CellSink& s, const ObservedResult& r, const QualityResults&) { s.number(r.given()); }},
    {"s", "unit", Needs::nothing,
     [](CellSink& s, const ObservedResult& r, const QualityResults&) { s.number(r.s()); }},
    {"v", "unit", Needs::nothing,
     [](CellSink& s, const ObservedResult& r, const QualityResults&) { s.number(r.v); }},
    {"r", "1", Needs::figures,
     [](CellSink& s, const ObservedResult& r, const QualityResults&) { s.number(r.r); }},
    {"w", "1", Needs::figures,
     [](CellSink& s, const ObservedResult& r, const QualityResults&) {
       s.number(standardised(r.v, r.s(), r.r));
     }},
    {"tau", "1", Needs::figures,
     [](CellSink& s, const ObservedResult& r, const QualityResults& all) {
       s.number(all.tau(standardised(r.v, r.s(), r.r)));
     }},
    {"mdb", "unit", Needs::figures,
     [](CellSink& s, const ObservedResult& r, const QualityResults& all) {
       s.number(smallest_detectable(r.s(), r.r, all.settings.delta0));
     }},
    {"effect", "unit", Needs::figures,
     [](CellSink& s, const ObservedResult& r, const QualityResults& all) {
       s.number((1.0 - r.r) * smallest_detectable(r.s(), r.r, all.settings.delta0));
     }},
    {"error", "unit", Needs::figures,
     [](CellSink& s, const ObservedResult& r, const QualityResults&) {
       s.number(estimated_error(r.v, r.r));
     }},
    {"log10_p", "1", Needs::figures,
     [](CellSink& s, const ObservedResult& r, const QualityResults&) {
       s.number(observed_test(r).log10_p);
     }},
};

// ---- image points -------------------------------------------------------------------------------

template <std::size_t i>
void put_residual(CellSink& sink, const ImagePointResult& row, const QualityResults&) {
  sink.short_number(row.v[i]);
}
template <std::size_t i>
void put_prior_sd(CellSink& sink, const ImagePointResult& row, const QualityResults&) {
  sink.short_number(row.s[i]);
}
template <std::size_t i>
void put_redundancy(CellSink& sink, const ImagePointResult& row, const QualityResults&) {
  sink.short_number(row.r[i]);
}
template <std::size_t i>
void put_w(CellSink& sink, const ImagePointResult& row, const QualityResults&) {
  sink.short_number(standardised(row.v[i], row.s[i], row.r[i]));
}
template <std::size_t i>
void put_tau(CellSink& sink, const ImagePointResult& row, const QualityResults& results) {
  sink.short_number(results.tau(standardised(row.v[i], row.s[i], row.r[i])));
}
template <std::size_t i>
void put_mdb(CellSink& sink, const ImagePointResult& row, const QualityResults& results) {
  sink.short_number(smallest_detectable(row.s[i], row.r[i], results.settings.delta0));
}
template <std::size_t i>
void put_effect(CellSink& sink, const ImagePointResult& row, const QualityResults&) {
  sink.short_number(row.effect[i]);
}
template <std::size_t i>
void put_error(CellSink& sink, const ImagePointResult& row, const QualityResults&) {
  sink.short_number(estimated_error(row.v[i], row.r[i]));
}

const std::vector<ColumnOf<ImagePointResult>> kImagePointColumns = {
    {"image", "id", Needs::nothing,
     [](CellSink& s, const ImagePointResult& r, const QualityResults& all) {
       s.text(all.images[static_cast<std::size_t>(r.image)].image->id);
     }},
    {"point", "id", Needs::nothing,
     [](CellSink& s, const ImagePointResult& r, const QualityResults&) { s.text(r.point->id); }},
    {"vx", "m", Needs::nothing, put_residual<0>},
    {"vy", "m", Needs::nothing, put_residual<1>},
    {"sx", "m", Needs::nothing, put_prior_sd<0>},
    {"sy", "m", Needs::nothing, put_prior_sd<1>},
    {"rx", "1", Needs::figures, put_redundancy<0>},
    {"ry", "1", Needs::figures, put_redundancy<1>},
    {"rxy", "1", Needs::figures,
     [](CellSink& s, const ImagePointResult& r, const QualityResults&) { s.short_number(r.rxy); }},
    {"wx", "1", Needs::figures, put_w<0>},
    {"wy", "1", Needs::figures, put_w<1>},
    {"tau_x", "1", Needs::figures, put_tau<0>},
    {"tau_y", "1", Needs::figures, put_tau<1>},
    {"t", "1", Needs::figures,
     [](CellSink& s, const ImagePointResult& r, const QualityResults&) {
       s.short_number(joint_test(r).t);
     }},
    {"t_dof", "count", Needs::figures,
     [](CellSink& s, const ImagePointResult& r, const QualityResults&) {
       s.count(joint_test(r).degrees_of_freedom);
     }},
    {"t_log10_p", "1", Needs::figures,
     [](CellSink& s, const ImagePointResult& r, const QualityResults&) {
       s.short_number(joint_test(r).log10_p);
     }},
    {"mdb_x", "m", Needs::figures, put_mdb<0>},
    {"mdb_y", "m", Needs::figures, put_mdb<1>},
    {"effect_x", "m", Needs::figures, put_effect<0>},
    {"effect_y", "m", Needs::figures, put_effect<1>},
    {"error_x", "m", Needs::figures, put_error<0>},
    {"error_y", "m", Needs::figures, put_error<1>},
};

// ---- constraints, images, correlations, check points, suspects ----------------------------------

const std::vector<ColumnOf<ConstraintResult>> kConstraintColumns = {
    {"object_type", "text", Needs::nothing,
     [](CellSink& s, const ConstraintResult& r, const QualityResults&) {
       s.text(object_type_name(object_type_of(*r.object)));
     }},
    {"object_id", "id", Needs::nothing,
     [](CellSink& s, const ConstraintResult& r, const QualityResults&) { s.text(r.object->id); }},
    {"constraint", "text", Needs::nothing,
     [](CellSink& s, const ConstraintResult& r, const QualityResults&) { s.text(r.constraint); }},
    {"misclosure", "1", Needs::nothing,
     [](CellSink& s, const ConstraintResult& r, const QualityResults&) { s.number(r.misclosure); }},
    {"r", "1", Needs::figures,
     [](CellSink& s, const ConstraintResult& r, const QualityResults&) { s.number(r.r); }},
};

const std::vector<ColumnOf<ImageResult>> kImageColumns = {
    {"id", "id", Needs::nothing,
     [](CellSink& s, const ImageResult& r, const QualityResults&) { s.text(r.image->id); }},
    {"orientation", "id", Needs::nothing,
     [](CellSink& s, const ImageResult& r, const QualityResults&) {
       s.text(r.image->geometry_id);
     }},
    {"camera", "id", Needs::nothing,
     [](CellSink& s, const ImageResult& r, const QualityResults&) { s.text(r.image->camera_id); }},
    {"points", "count", Needs::nothing,
     [](CellSink& s, const ImageResult& r, const QualityResults&) { s.count(r.points); }},
    {"rms_vx", "m", Needs::nothing,
     [](CellSink& s, const ImageResult& r, const QualityResults&) { s.number(r.rms[0]); }},
    {"rms_vy", "m", Needs::nothing,
     [](CellSink& s, const ImageResult& r, const QualityResults&) { s.number(r.rms[1]); }},
    {"redundancy", "1", Needs::figures,
     [](CellSink& s, const ImageResult& r, const QualityResults&) { s.number(r.redundancy); }},
    {"max_w", "1", Needs::figures,
     [](CellSink& s, const ImageResult& r, const QualityResults&) { s.number(r.max_w); }},
};

template <Unknown CorrelationResult::*which>
void put_type_of(CellSink& sink, const CorrelationResult& row, const QualityResults&) {
  sink.text(object_type_name(object_type_of(*(row.*which).object)));
}
template <Unknown CorrelationResult::*which>
void put_id_of(CellSink& sink, const CorrelationResult& row, const QualityResults&) {
  sink.text((row.*which).object->id);
}
template <Unknown CorrelationResult::*which>
void put_parameter_of(CellSink& sink, const CorrelationResult& row, const QualityResults&) {
  sink.text(parameter_name(row.*which));
}

const std::vector<ColumnOf<CorrelationResult>> kCorrelationColumns = {
    {"kind", "text", Needs::figures,
     [](CellSink& s, const CorrelationResult& r, const QualityResults&) {
       s.text(correlation_kind(r.a, r.b));
     }},
    {"object_type_1", "text", Needs::figures, put_type_of<&CorrelationResult::a>},
    {"object_id_1", "id", Needs::figures, put_id_of<&CorrelationResult::a>},
    {"parameter_1", "text", Needs::figures, put_parameter_of<&CorrelationResult::a>},
    {"object_type_2", "text", Needs::figures, put_type_of<&CorrelationResult::b>},
    {"object_id_2", "id", Needs::figures, put_id_of<&CorrelationResult::b>},
    {"parameter_2", "text", Needs::figures, put_parameter_of<&CorrelationResult::b>},
    {"r", "1", Needs::figures,
     [](CellSink& s, const CorrelationResult& r, const QualityResults&) { s.number(r.r); }},
};

template <std::size_t axis>
void put_difference(CellSink& sink, const CheckPointResult& row, const QualityResults&) {
  sink.number(row.difference[axis]);
}
template <std::size_t axis>
void put_check_sd(CellSink& sink, const CheckPointResult& row, const QualityResults&) {
  sink.number(row.sd[axis]);
}

const std::vector<ColumnOf<CheckPointResult>> kCheckPointColumns = {
    {"id", "id", Needs::nothing,
     [](CellSink& s, const CheckPointResult& r, const QualityResults&) { s.text(r.point->id); }},
    {"dx", "m", Needs::nothing, put_difference<0>},
    {"dy", "m", Needs::nothing, put_difference<1>},
    {"dz", "m", Needs::nothing, put_difference<2>},
    {"sd_x", "m", Needs::figures, put_check_sd<0>},
    {"sd_y", "m", Needs::figures, put_check_sd<1>},
    {"sd_z", "m", Needs::figures, put_check_sd<2>},
};

const std::vector<ColumnOf<SuspectResult>> kSuspectColumns = {
    {"rank", "count", Needs::figures,
     [](CellSink& s, const SuspectResult& r, const QualityResults& all) {
       s.count(&r - all.suspects.data() + 1);
     }},
    {"kind", "text", Needs::figures,
     [](CellSink& s, const SuspectResult& r, const QualityResults&) { s.text(suspect_kind(r)); }},
    {"id", "id", Needs::figures,
     [](CellSink& s, const SuspectResult& r, const QualityResults&) {
       s.text(r.image != nullptr ? r.image->id : r.parameter.object->id);
     }},
    {"item", "id", Needs::figures,
     [](CellSink& s, const SuspectResult& r, const QualityResults&) {
       s.text(r.image != nullptr ? r.image_point->id : parameter_name(r.parameter));
     }},
    {"t", "1", Needs::figures,
     [](CellSink& s, const SuspectResult& r, const QualityResults&) { s.number(r.test.t); }},
    {"t_dof", "count", Needs::figures,
     [](CellSink& s, const SuspectResult& r, const QualityResults&) {
       s.count(r.test.degrees_of_freedom);
     }},
    {"t_log10_p", "1", Needs::figures,
     [](CellSink& s, const SuspectResult& r, const QualityResults&) { s.number(r.test.log10_p); }},
    {"worst_of_image", "flag", Needs::figures,
     [](CellSink& s, const SuspectResult& r, const QualityResults&) { s.flag(r.worst_of_image); }},
    {"worst_of_point", "flag", Needs::figures,
     [](CellSink& s, const SuspectResult& r, const QualityResults&) { s.flag(r.worst_of_point); }},
};

template <class Row>
std::unique_ptr<ResultTable> table(std::string_view name, const QualityResults& results,
                                   const std::vector<Row>& rows,
                                   const std::vector<ColumnOf<Row>>& columns) {
  return std::make_unique<TableOf<Row>>(name, results, rows, columns);
}

}  // namespace

std::vector<std::unique_ptr<ResultTable>> tables_of(const QualityResults& all) {
  std::vector<std::unique_ptr<ResultTable>> tables;
  tables.push_back(table("points", all, all.points, kPointColumns));
  tables.push_back(table("parameters", all, all.parameters, kParameterColumns));
  tables.push_back(table("image_points", all, all.image_points, kImagePointColumns));
  tables.push_back(table("observed_parameters", all, all.observed_parameters, kObservedColumns));
  tables.push_back(table("constraints", all, all.constraints, kConstraintColumns));
  tables.push_back(table("images", all, all.images, kImageColumns));
  if (all.has_figures) {
    tables.push_back(table("correlations", all, all.correlations, kCorrelationColumns));
  }
  tables.push_back(table("check_points", all, all.check_points, kCheckPointColumns));
  if (all.has_figures) tables.push_back(table("suspects", all, all.suspects, kSuspectColumns));
  return tables;
}

}  // namespace vorn
