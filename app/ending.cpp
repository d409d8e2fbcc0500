#include "app/ending.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "app/name_list.h"
#include "lsq/ls_params.h"
#include "text/file_system.h"
#include "text/text_writer.h"

namespace vorn::app {
namespace {

constexpr double kMicrometres = 1e6;

// "3 what: a, b, c".
void print_names(std::string_view label, const std::vector<std::string>& names,
                 std::string_view what) {
  if (names.empty()) return;
  TextWriter& err = error_output();
  err << label << static_cast<std::uint64_t>(names.size()) << ' ' << what << ": "
      << first_names(names) << '\n';
}

void print_removals(const std::vector<Removal>& removals) {
  struct Group {
    RemovalReason reason;
    std::string_view kind;
    std::string_view says;
  };
  constexpr Group kGroups[] = {
      {RemovalReason::too_few_rays, "object point", "points with fewer than two rays"},
      {RemovalReason::too_few_points, "image", "images with fewer than three points"},
      {RemovalReason::unused, "image", "images without orientation"},
      {RemovalReason::unused, "camera", "cameras without image"},
      {RemovalReason::unused, "object point", "points that nothing measures"},
      {RemovalReason::unused, "orientation", "orientations without image"},
      {RemovalReason::unused, "parameter set", "parameter sets without camera"},
      {RemovalReason::unused, "position correction", "position corrections without orientation"},
      {RemovalReason::unused, "attitude correction", "attitude corrections without orientation"},
  };
  std::string_view label = "  removed     ";
  for (const Group& group : kGroups) {
    std::vector<std::string> names;
    for (const Removal& removal : removals) {
      if (removal.reason == group.reason && removal.kind == group.kind) names.push_back(removal.id);
    }
    if (names.empty()) continue;
    print_names(label, names, group.says);
    label = "              ";
  }
}

void print_largest(const std::vector<LargeResidual>& residuals) {
  TextWriter& err = error_output();
  std::string_view label = "  residuals   ";
  for (const LargeResidual& residual : residuals) {
    err << label << fixed(2, 10)(residual.length_m * kMicrometres) << " um, "
        << fixed(1)(residual.in_sigmas) << " times its std. dev.: point " << residual.point
        << " in image " << residual.image << '\n';
    label = "              ";
  }
}

void print_sigma0(const RunSummary& summary) {
  TextWriter& err = error_output();
  err << "  sigma 0     ";
  if (summary.sigma0 == 0.0) {
    err << "undefined, no redundancy\n";
    return;
  }
  err << fixed(3)(summary.sigma0 * kMicrometres) << " um, "
      << fixed(2)(summary.sigma0 / ls_params().sigma0_apriori) << " times the a-priori value\n";
}

void print_completed(const RunSummary& summary, const RunRequest& request) {
  TextWriter& err = error_output();
  if (summary.ending.converged) err << "\nAdjustment completed\n";
  print_sigma0(summary);
  err << "  redundancy  " << summary.redundancy << "\n  iterations  " << summary.iterations << '\n';
  print_removals(summary.ending.removals);
  print_largest(summary.ending.largest);
  std::string_view label = "  files       ";
  for (const std::string& name : files_of(summary, request)) {
    err << label << name << '\n';
    label = "              ";
  }
}

void print_not_converged(const RunSummary& summary) {
  const NamedParameter& open = summary.ending.open;
  TextWriter& err = error_output();
  err << "\nNOT CONVERGED after " << summary.iterations
      << (summary.iterations == 1 ? " iteration" : " iterations");
  if (!open.id.empty()) {
    err << " (" << open.kind << ' ' << open.id << ", " << open.name << " still moves)";
  }
  err << '\n';
}

void print_lost(const std::vector<LostObject>& lost) {
  constexpr std::size_t kMaxNamed = 10;
  TextWriter& err = error_output();
  for (std::size_t i = 0; i < std::min(lost.size(), kMaxNamed); ++i) {
    err << "vorn: " << in_words(lost[i]) << '\n';
  }
  if (lost.size() > kMaxNamed) {
    err << "vorn: and for " << static_cast<std::uint64_t>(lost.size() - kMaxNamed) << " others\n";
  }
}

void print_failed(const RunSummary& summary) {
  TextWriter& err = error_output();
  if (summary.ending.non_finite.iteration != 0) {
    err << "vorn: " << in_words(summary.ending.non_finite) << '\n';
  }
  print_lost(summary.ending.lost);
  if (!summary.started) {
    err << "vorn: the control file cannot be read\n";
  } else if (summary.failures.empty()) {
    if (!summary.ending.removals.empty()) print_removals(summary.ending.removals);
    err << "vorn: the adjustment failed; the messages above and the report say why: "
        << summary.files.failed << "\nvorn: results of earlier runs are as they were\n";
  }
}

void print_failures(const RunSummary& summary) {
  TextWriter& err = error_output();
  for (const OutputFailure& failure : summary.failures) {
    err << "vorn: not complete: " << failure.path << ": " << failure.reason << '\n';
  }
  if (!summary.failures.empty()) err << "vorn: results of earlier runs are as they were\n";
}

}  // namespace

std::string in_words(const NonFiniteValue& value) {
  const std::string when =
      "the numbers cease to be finite in iteration " + std::to_string(value.iteration);
  if (value.image.empty()) return when + ": the corrections themselves";
  return when + ", first at point " + value.point + " in image " + value.image;
}

std::string in_words(const LostObject& lost) {
  return "too few measurements are left for " + lost.kind + ' ' + lost.id +
         ": remove its record from the file of " + lost.keyword + ", or measure more";
}

void print_ending(const RunSummary& summary, const RunRequest& request, bool quiet) {
  print_failures(summary);
  if (summary.result != 1) return print_failed(summary);
  if (!summary.failures.empty()) return;
  if (!summary.ending.converged) print_not_converged(summary);
  if (!quiet) print_completed(summary, request);
}

std::vector<std::string> files_of(const RunSummary& summary, const RunRequest& request) {
  std::vector<std::string> files = summary.files.opened(request.with_cameras);
  files.insert(files.end(), summary.more_files.begin(), summary.more_files.end());
  return files;
}

ExitStatus status_of(const RunSummary& summary) {
  if (summary.result != 1 || !summary.failures.empty()) return kFailed;
  return summary.ending.converged ? kSuccess : kNotConverged;
}

ExitStatus checked_console(ExitStatus status) {
  flush_console();
  const int error = standard_output().error();
  if (error == 0 || error == EPIPE) return status;
  error_output() << "vorn: standard output is not complete: " << error_text(error) << '\n';
  flush_console();
  return kFailed;
}

}  // namespace vorn::app
