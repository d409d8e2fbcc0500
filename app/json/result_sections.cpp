#include "app/json/result_sections.h"

#ifdef VORN_HAS_JSON

#include "app/json/json_stream.h"

namespace vorn::app {

void write_document_head(JsonWriter& json, std::string_view format, const QualityResults& results) {
  json.key("format").text(format);
  json.key("format_version").text("1.0");
  json.key("program").begin_object();
  json.key("name").text("vorn");
  json.key("version").text(VORN_VERSION);
  json.end_object();
  json.key("project").begin_object();
  json.key("control_file").text(results.control_file);
  json.end_object();
  constexpr std::string_view kStatus[] = {"converged", "not_converged", "failed"};
  json.key("status").text(kStatus[static_cast<std::size_t>(results.status)]);
}

void write_item(JsonWriter& json, const Unknown& unknown) {
  json.key("object_type").text(object_type_name(object_type_of(*unknown.object)));
  json.key("object_id").text(unknown.object->id);
  json.key("parameter").text(parameter_name(unknown));
}

namespace {

void write_global_test(JsonWriter& json, const GlobalTest& test, const QualityResults& results) {
  json.key("global_test");
  if (!is_defined(test.statistic)) return json.null();
  json.begin_object();
  json.key("statistic").number(test.statistic);
  json.key("degrees_of_freedom").integer(results.statistics.redundancy);
  json.key("lower").number(test.lower);
  json.key("upper").number(test.upper);
  json.key("confidence").number(results.settings.confidence);
  json.key("passed").flag(test.passed);
  json.end_object();
}

void write_figure_statistics(JsonWriter& json, const QualityResults& results) {
  const QualityStatistics& statistics = results.statistics;
  json.key("sigma0_used").number(statistics.sigma0_used);
  const SumsByKind& sums = statistics.redundancy_sum;
  json.key("redundancy_sum").begin_object();
  json.key("image_observations").number(sums.image);
  json.key("observed_parameters").number(sums.observed);
  json.key("constraints").number(sums.constraints);
  json.key("total").number(sums.total());
  json.end_object();
  json.key("distance_to_minimum");
  if (is_defined(statistics.distance_to_minimum)) {
    json.begin_object();
    json.key("value").number(statistics.distance_to_minimum);
    write_item(json, statistics.farthest);
    json.end_object();
  } else {
    json.null();
  }
  json.key("correlations_over_limit").begin_object();
  for (const auto& [kind, count] : results.correlations_over_limit) json.key(kind).integer(count);
  json.end_object();
}

// The largest absolute correction of a group; undefined where nothing was corrected.
double largest(const GroupChange& change) { return change.count > 0 ? change.max : kUndefined; }

}  // namespace

void write_settings(JsonWriter& json, const QualityResults& results) {
  const QualitySettings& settings = results.settings;
  json.key("settings").begin_object();
  json.key("derivatives").text(settings.rigorous_iterations ? "rigorous" : "approximate");
  json.key("figure_derivatives");
  results.has_figures ? json.text("rigorous") : json.null();
  json.key("datum").text(settings.inner_datum ? "inner" : "given");
  json.key("sigma0_prior").number(settings.sigma0_prior);
  json.key("standard_deviations").text(settings.prior ? "prior" : "posterior");
  json.key("alpha").number(settings.alpha);
  json.key("power").number(settings.power);
  json.key("delta0").number(settings.delta0);
  json.key("confidence").number(settings.confidence);
  json.key("correlation_limit").number(settings.correlation_limit);
  json.key("significance_limit").number(settings.significance_limit);
  json.key("length_unit").text("m");
  json.key("angle_unit").text("rad");
  json.end_object();
}

void write_statistics(JsonWriter& json, const QualityResults& results) {
  const QualityStatistics& statistics = results.statistics;
  json.key("statistics").begin_object();
  json.key("images").integer(statistics.images);
  json.key("points").integer(statistics.points);
  json.key("image_points").integer(statistics.image_points);
  json.key("image_observations").integer(2 * std::int64_t{statistics.image_points});
  json.key("unknowns").integer(statistics.unknowns);
  json.key("observed_parameters").integer(statistics.observed_parameters);
  json.key("fixed_parameters").integer(statistics.fixed_parameters);
  json.key("constraints").integer(statistics.constraints);
  json.key("redundancy").integer(statistics.redundancy);
  json.key("vtpv").number(statistics.vtpv.total());
  json.key("vtpv_image").number(statistics.vtpv.image);
  json.key("vtpv_observed").number(statistics.vtpv.observed);
  json.key("vtpv_constraints").number(statistics.vtpv.constraints);
  json.key("sigma0_posterior").number(statistics.sigma0_posterior);
  write_global_test(json, statistics.global_test, results);
  json.key("rms_vx").number(statistics.rms_vx);
  json.key("rms_vy").number(statistics.rms_vy);
  if (results.has_figures) write_figure_statistics(json, results);
  json.end_object();
}

void write_iterations(JsonWriter& json, const QualityResults& results) {
  json.key("iterations").begin_array();
  for (const IterationStatistics& row : results.iterations) {
    json.begin_object();
    json.key("iteration").integer(row.number);
    json.key("vtpv_predicted").number(row.vtpv);
    json.key("sigma0_predicted").number(row.sigma0 > 0.0 ? row.sigma0 : kUndefined);
    json.key("max_change_point").number(largest(row.points));
    json.key("max_change_centre").number(largest(row.centres));
    json.key("max_change_rotation").number(largest(row.rotations));
    json.key("max_change_geometry").number(largest(row.geometries));
    json.end_object();
  }
  json.end_array();
}

void write_groups(JsonWriter& json, const QualityResults& results) {
  json.key("groups").begin_array();
  for (const GroupResult& row : results.groups) {
    json.begin_object();
    json.key("group").text(row.group);
    json.key("id");
    row.id.empty() ? json.null() : json.text(row.id);
    json.key("observations").integer(row.observations);
    json.key("redundancy").number(row.redundancy);
    json.key("vtpv").number(row.vtpv);
    json.key("factor").number(row.factor);
    json.key("factor_lower").number(row.factor_lower);
    json.key("factor_upper").number(row.factor_upper);
    json.key("sd_factor").number(row.sd_factor);
    json.end_object();
  }
  json.end_array();
}

}  // namespace vorn::app

#endif
