#include "quality/exclusions.h"

#include <algorithm>
#include <cstdint>

#include "driver/bundle_project.h"
#include "lsq/ls_params.h"
#include "quality/result_findings.h"
#include "text/file_system.h"

namespace vorn {
namespace {

// The words of a line.
std::vector<std::string> words_of(std::string_view line) {
  std::vector<std::string> words;
  constexpr std::string_view kBlanks = " \t\r\f\v";
  while (true) {
    const std::size_t begin = line.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos) return words;
    line.remove_prefix(begin);
    const std::size_t end = std::min(line.find_first_of(kBlanks), line.size());
    words.emplace_back(line.substr(0, end));
    line.remove_prefix(end);
  }
}

bool is_object_type(std::string_view word) {
  for (int type = 0; type < kNumObjectTypes; ++type) {
    if (object_type_name(static_cast<ObjectType>(type)) == word) return true;
  }
  return false;
}

// Whether a record has as many words, or more only in a comment.
bool has_words(const std::vector<std::string>& words, std::size_t count) {
  return words.size() == count || (words.size() > count && words[count][0] == '#');
}

// Empty, or what is wrong with the words of a record.
std::string read_record(const std::vector<std::string>& words, std::vector<Exclusion>& exclusions) {
  if (words[0] == "image-point") {
    if (!has_words(words, 3)) return "an image-point needs an image and a point";
    exclusions.push_back({true, {}, words[1], words[2]});
    return {};
  }
  if (words[0] != "parameter") {
    return "\"" + words[0] + "\" is no record; there are image-point and parameter";
  }
  if (!has_words(words, 4)) return "a parameter needs an object type, an object and a name";
  if (!is_object_type(words[1])) return "\"" + words[1] + "\" is no object type";
  exclusions.push_back({false, words[1], words[2], words[3]});
  return {};
}

// ---- applying -----------------------------------------------------------------------------------

// Frees one of `count` parameters that `name_of(k)` names and `std_dev_of(k)` weights. False when
// there is none of that name with a value of its own.
template <class NameOf, class StdDevOf>
bool free_parameter(std::string_view name, std::int32_t count, NameOf name_of,
                    StdDevOf std_dev_of) {
  for (std::int32_t k = 0; k < count; ++k) {
    if (name_of(k) != name) continue;
    double& std_dev = std_dev_of(k);
    if (state_of_sd(std_dev) == ParamState::unknown) return false;
    std_dev = ls_params().smaxu;
    return true;
  }
  return false;
}

template <class Correction>
bool free_coefficient(std::string_view name, Correction* correction) {
  if (correction == nullptr) return false;
  TimePolynomial& polynomial = correction->polynomial;
  return free_parameter(
      name, polynomial.num_values(), [&](std::int32_t k) { return correction->get_param_name(k); },
      [&](std::int32_t k) -> double& {
        return polynomial
            .coeff_std_devs[static_cast<std::size_t>(k / 3)][static_cast<std::size_t>(k % 3)];
      });
}

bool free_coordinate(std::string_view name, ObjectPoint* point) {
  if (point == nullptr) return false;
  const bool was_control = point->type == PointType::control;
  const bool freed = free_parameter(
      name, 3,
      [&](std::int32_t k) {
        return parameter_name({point, k});
      },
      [&](std::int32_t k) -> double& { return point->std_devs[static_cast<std::size_t>(k)]; });
  if (freed && was_control) point->classify();
  return freed;
}

template <class Object>
bool free_value(std::string_view name, std::int32_t count, Object* object) {
  return free_parameter(
      name, count, [&](std::int32_t k) { return object->get_param_name(k); },
      [&](std::int32_t k) -> double& { return object->std_dev(k); });
}

bool exclude_parameter(const Exclusion& exclusion, BundleProject& project) {
  const std::string_view type = exclusion.object_type;
  const std::string_view id = exclusion.object;
  if (type == object_type_name(ObjectType::object_point)) {
    return free_coordinate(exclusion.item, project.object_points.find(id));
  }
  if (type == object_type_name(ObjectType::orientation)) {
    ImageGeometry* const geometry = project.image_geometries.find(id);
    return geometry != nullptr && free_value(exclusion.item, geometry->num_values(), geometry);
  }
  if (type == object_type_name(ObjectType::ap_set)) {
    APSet* const set = project.ap_sets.find(id);
    return set != nullptr && free_value(exclusion.item, set->num_ap(), set);
  }
  if (type == object_type_name(ObjectType::position_correction)) {
    return free_coefficient(exclusion.item, project.pos_corrections.find(id));
  }
  return free_coefficient(exclusion.item, project.att_corrections.find(id));
}

bool exclude_image_point(const Exclusion& exclusion, BundleProject& project) {
  BundleImage* const image = project.images.find(exclusion.object);
  return image != nullptr && image->remove_point(exclusion.item);
}

// ---- suggesting ---------------------------------------------------------------------------------

void write_suggestion(TextWriter& out, const SuspectResult& row) {
  if (row.image != nullptr) {
    out << "image-point " << row.image->id << ' ' << row.image_point->id;
  } else {
    out << "parameter " << suspect_kind(row) << ' ' << row.parameter.object->id << ' '
        << parameter_name(row.parameter);
  }
  out << "   # log10 p = " << fixed(1)(row.test.log10_p) << '\n';
}

}  // namespace

bool read_exclusions(std::string_view text, std::vector<Exclusion>& exclusions,
                     std::string& error) {
  exclusions.clear();
  for (std::int64_t line = 1; !text.empty(); ++line) {
    const std::size_t end = text.find('\n');
    const std::vector<std::string> words = words_of(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (words.empty() || words[0][0] == '#') continue;
    if (words[0] == "stop-dep") return true;
    error = read_record(words, exclusions);
    if (error.empty()) continue;
    error = "line " + std::to_string(line) + ": " + error;
    return false;
  }
  return true;
}

bool load_exclusions(const std::string& path, std::vector<Exclusion>& exclusions,
                     std::string& error) {
  FileText text;
  if (text.load(path)) return read_exclusions(text.view(), exclusions, error);
  error = "it cannot be read";
  return false;
}

std::int64_t apply_exclusions(const std::vector<Exclusion>& exclusions, BundleProject& project,
                              TextWriter& report) {
  report << "Excluded observations\n"
            "---------------------\n\n";
  std::int64_t count = 0;
  for (const Exclusion& exclusion : exclusions) {
    const bool done = exclusion.is_image_point ? exclude_image_point(exclusion, project)
                                               : exclude_parameter(exclusion, project);
    count += done ? 1 : 0;
    report << (done ? "  " : "ATTENTION: Not in the project: ")
           << (exclusion.is_image_point ? "image point " : "given value of ");
    if (!exclusion.is_image_point) report << exclusion.object_type << ' ';
    report << exclusion.object << ' ' << exclusion.item << '\n';
  }
  report << "\nNumber of excluded observations  :  " << count << "\n\n";
  return count;
}

void write_suggested_exclusions(TextWriter& out, const QualityResults& results) {
  const QualityStatistics& statistics = results.statistics;
  const GlobalTest& global = statistics.global_test;
  const bool by_posterior = is_defined(global.statistic) && global.statistic > global.upper;
  const double ratio =
      by_posterior ? results.settings.sigma0_prior / statistics.sigma0_posterior : 1.0;
  out << "# Suggested by the adjustment of " << results.control_file
      << ": tests that fail at 0.05 / number of tests, the worst of their image and point.\n"
      << "# Tests refer to sigma 0 " << (by_posterior ? "a posteriori" : "a priori")
      << ". Look at each before it is left out: vorn adjust --exclude FILE.\n";
  for (const SuspectResult* row : clear_suspects(results, ratio * ratio)) {
    write_suggestion(out, *row);
  }
  out << "stop-dep\n";
}

}  // namespace vorn
