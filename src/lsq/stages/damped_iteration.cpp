#include "lsq/stages/damped_iteration.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "base/cpu_clock.h"
#include "driver/bundle_project.h"
#include "geometry/eo_quaternion.h"
#include "lsq/ls_params.h"
#include "lsq/stages/damped_system.h"
#include "lsq/stages/iteration_report.h"
#include "lsq/stages/normal_equations.h"
#include "lsq/stages/point_placement.h"
#include "lsq/stages/robust_weights.h"
#include "lsq/stages/weighted_squares.h"

namespace vorn {
namespace {

// Damping in units of the diagonal of N.
constexpr double kFirstDamping = 1e-4;
constexpr double kLeastDamping = 1e-14;
constexpr double kMostDamping = 1e12;
// Where the undamped equations cannot be solved, the figures at the end rest on these.
constexpr double kResidualDamping = 1e-10;
// Relative decrease of the weighted sum of squares: below the first, corrections within their
// limits end the iterations; below the second, the sum is at its minimum but for rounding.
constexpr double kSmallDecrease = 1e-8;
constexpr double kNoDecrease = 1e-12;
// Damping shortens steps: there is room for more of them than the project asks for.
constexpr std::int32_t kMinDampedIterations = 200;
constexpr std::int32_t kRobustIterations = 50;
constexpr double kRobustDecrease = 1e-5;

constexpr NumberFormat kDamping = scientific(1, 9);
constexpr NumberFormat kCost = scientific(8, 16);
constexpr NumberFormat kRatio = fixed(3, 9);

class DampedIteration {
 public:
  DampedIteration(BundleProject& project, TextWriter& report)
      : project_(project),
        report_(report),
        system_(project),
        placement_(project),
        values_(static_cast<std::size_t>(project.unknowns.num_unknowns())) {}

  int run() {
    AdjustmentSettings& settings = project_.settings;
    normalise();
    placement_.place_all(project_.held_points);
    if (settings.robust_loss != RobustLoss::none) {
      loss_ = Loss(settings.robust_loss, settings.robust_scale);
      if (minimise(kRobustIterations) != 1) return -1;
      print_robust_weights(project_, report_);
      loss_ = Loss();
      if (!settings.keep_robust) reset_weights(project_);
    }
    const std::int32_t given = ls_params().max_iterations;
    if (minimise(given > 0 ? std::max(given, kMinDampedIterations) : 0) != 1) return -1;
    return finish();
  }

 private:
  bool is_robust() const { return loss_.kind() != RobustLoss::none; }

  // Iterates until the sum is at its minimum. 1 or -1.
  int minimise(std::int32_t max_iterations) {
    find_weighted_squares(project_, loss_, current_);
    lambda_ = kFirstDamping;
    project_.converged = false;
    if (!std::isfinite(current_.sum)) {
      report_ << "*** ERROR: The weighted sum of squares is not finite.\n";
      return -1;
    }
    project_.ended_from_outside = false;
    for (std::int32_t i = 0; i < max_iterations && !project_.converged; ++i) {
      if (iterate_once() != 1) return -1;
      if (!project_.on_iteration) continue;
      const ObserverAnswer answer = project_.on_iteration(project_.iterations.back());
      if (answer == ObserverAnswer::stop) {
        report_ << "*** ERROR: The iterations were stopped.\n";
        return -1;
      }
      if (answer == ObserverAnswer::finish) {
        project_.ended_from_outside = !project_.converged;
        break;
      }
    }
    return 1;
  }

  int iterate_once() {
    const CpuClock clock;
    IterationStatistics& statistics = project_.iterations.emplace_back();
    statistics.number = ++project_.num_iterations;
    statistics.cost = current_.sum;
    print_iteration_heading(statistics.number, report_);
    if (is_robust()) {
      reweight(project_, loss_);
      report_ << "Robust start: observations are weighted by their residuals\n\n";
    }
    std::int32_t observations = 0;
    if (!system_.form(observations)) {
      report_ << "ERROR: Setup of normal equations failed.\n";
      return -1;
    }
    note_weak_points();
    const bool accepted = find_step(statistics);
    find_changes(project_.unknowns, project_.solution, statistics);
    print_mean_changes(statistics, report_);
    statistics.counts = redundancy_of(project_.unknowns, observations);
    project_.redundancy = statistics.counts.value();
    set_sigma0(current_.sum);
    statistics.vtpv = project_.vtpv;
    statistics.sigma0 = project_.sigma0;
    print_statistics(statistics, report_);
    print_steps(statistics);
    find_open_parameter(project_.unknowns, project_.solution, statistics);
    decide(accepted, statistics);
    if (!project_.converged && !project_.on_iteration) print_open_parameter(statistics);
    statistics.cpu_seconds = clock.seconds();
    print_cpu_time(statistics, report_);
    return 1;
  }

  // Raises the damping until a step lowers the sum, and takes it. False when none does.
  bool find_step(IterationStatistics& statistics) {
    double growth = 2.0;
    save_values();
    std::vector<std::int32_t> crossing;
    for (;;) {
      const CpuClock clock;
      const bool solved = system_.solve(lambda_);
      statistics.solution_cpu_seconds += clock.seconds();
      DampedStep& step = statistics.steps.emplace_back();
      step.damping = lambda_;
      step.held = static_cast<std::int32_t>(crossing.size());
      const double predicted = solved ? system_.predicted_decrease() : 0.0;
      step.cost = std::numeric_limits<double>::infinity();
      if (solved) {
        apply_corrections();
        find_weighted_squares(project_, loss_, trial_);
        step.cost = trial_.sum;
        step.ratio = (current_.sum - trial_.sum) / predicted;
        decrease_ = (current_.sum - trial_.sum) / current_.sum;
        predicted_ = predicted / current_.sum;
      }
      // Negated, so that a sum that is not a number fails. At the minimum rounding decides; a step
      // that changes nothing is as good as none.
      if (step.cost < current_.sum || (step.cost == current_.sum && predicted_ < kNoDecrease)) {
        step.accepted = true;
        accept(step.ratio);
        place_held_points(crossing);
        return true;
      }
      restore_values();
      if (solved && predicted_ < kNoDecrease) return false;
      // Points that were led behind an image stay at their places before all others are slowed.
      if (solved && crossing.empty()) {
        crossing = crossing_points();
        if (!crossing.empty()) {
          system_.hold(crossing);
          note_crossing_points(crossing);
          continue;
        }
      }
      lambda_ = std::max(lambda_, kLeastDamping) * growth;
      growth *= 2.0;
      if (lambda_ > kMostDamping) return false;
    }
  }

  // The damping follows the gain ratio (Nielsen 1999), somewhat faster on the way down.
  void accept(double ratio) {
    if (lists_corrections()) {
      // Listings show approximate values beside their corrections.
      restore_values();
      list_all_corrections(project_, report_);
      apply_corrections();
    }
    std::swap(current_, trial_);
    const double gain = 2.0 * ratio - 1.0;
    lambda_ *= std::clamp(1.0 - gain * gain * gain, 0.1, 2.0);
    lambda_ = std::max(lambda_, kLeastDamping);
  }

  // Whether the iterations are over, and why.
  void decide(bool accepted, const IterationStatistics& statistics) {
    const bool within_limits = accepted && statistics.open_object == nullptr;
    if (accepted && placed_ > 0) return;
    if (is_robust()) {
      project_.converged = !accepted || decrease_ < kRobustDecrease;
      return;
    }
    if (!accepted || (decrease_ < kNoDecrease && predicted_ < kNoDecrease)) {
      project_.converged = true;
      project_.ending = within_limits ? IterationEnding::limits : IterationEnding::cost;
      return;
    }
    if (!within_limits || decrease_ >= kSmallDecrease) return;
    // A damped step within the limits says nothing: the next one is hardly damped.
    if (statistics.steps.back().damping > kLeastDamping) {
      lambda_ = kLeastDamping;
      return;
    }
    project_.converged = true;
    project_.ending = IterationEnding::limits;
  }

  // Leaves the undamped normal equations of the final values behind. 1 or -1.
  int finish() {
    BundleProject& p = project_;
    std::int32_t observations = 0;
    if (form_normal_equations(p, p.settings.derivatives(), p.observations, p.normal, p.rhs, p.lPl,
                              observations) != 1) {
      report_ << "ERROR: Setup of normal equations failed.\n";
      return -1;
    }
    const int failed = p.solver->try_solve(p.normal, p.rhs, p.solution, p.markers);
    p.failed_unknown = failed > 0 ? failed - 1 : -1;
    if (failed != 0) {
      report_ << "*** WARNING: The undamped normal equations are not positive definite at "
                 "row/column "
              << failed - 1 << ".\n";
      if (!system_.form(observations)) return -1;
      if (!system_.solve(0.0) && !system_.solve(kResidualDamping)) p.solution.zero();
    }
    // Damped steps reach a minimum even so: which of many depends on the approximate values.
    if (p.redundancy < 0) {
      report_ << "*** WARNING: There are " << -p.redundancy
              << " unknowns more than observations: nothing is checked, nothing is precise.\n";
    }
    find_weighted_squares(p, loss_, current_);
    set_sigma0(current_.sum);
    note_points_behind();
    print_ending();
    return 1;
  }

  void set_sigma0(double vtpv) {
    project_.vtpv = vtpv;
    project_.sigma0 = project_.redundancy > 0 ? std::sqrt(vtpv / project_.redundancy) : 0.0;
  }

  // ---- values of the unknowns ----

  template <class Visit>
  void for_each_value(Visit visit) {
    std::size_t i = 0;
    for (std::int32_t n = 0; n < project_.unknowns.num_objects(); ++n) {
      const AdjObject& object = project_.unknowns[n];
      const auto count = static_cast<std::int32_t>(object.num_params());
      for (std::int32_t k = 0; k < count; ++k) visit(*object.param(k).value, values_[i++]);
    }
  }
  void save_values() {
    for_each_value([](const double& value, double& saved) { saved = value; });
  }
  void restore_values() {
    for_each_value([](double& value, const double& saved) { value = saved; });
    for (ImageGeometry& geometry : project_.image_geometries) geometry.update();
  }
  void apply_corrections() {
    project_.unknowns.apply_corrections(project_.solution);
    normalise();
  }
  // Quaternions meet their condition exactly: its weight would forbid every turn that is not small.
  void normalise() {
    for (ImageGeometry& geometry : project_.image_geometries) {
      if (auto* const orientation = dynamic_cast<EOQuaternion*>(&geometry)) {
        orientation->normalise();
      }
      geometry.update();
    }
  }

  // ---- points that would sink a step ----

  // Numbers of the points that the trial leads from before an image to behind it.
  std::vector<std::int32_t> crossing_points() const {
    std::vector<std::int32_t> points;
    std::size_t i = 0;
    for_each_image_point(project_.images, project_.object_points,
                         [&](const BundleImage&, const ImagePoint&, const ObjectPoint& point) {
                           if (current_.in_front[i] && !trial_.in_front[i]) {
                             points.push_back(point.index / 3);
                           }
                           ++i;
                         });
    std::sort(points.begin(), points.end());
    points.erase(std::unique(points.begin(), points.end()), points.end());
    return points;
  }

  // Points that were held while all others moved may fit better elsewhere now.
  void place_held_points(const std::vector<std::int32_t>& numbers) {
    placed_ = 0;
    if (numbers.empty()) return;
    for (ObjectPoint& point : project_.object_points) {
      if (std::binary_search(numbers.begin(), numbers.end(), point.index / 3)) {
        placed_ += placement_.place(point) ? 1 : 0;
      }
    }
    if (placed_ > 0) find_weighted_squares(project_, loss_, current_);
  }

  void note(const ObjectPoint& point, HeldPoint::Reason reason) {
    for (HeldPoint& held : project_.held_points) {
      if (held.point == &point && held.reason == reason) {
        ++held.iterations;
        return;
      }
    }
    project_.held_points.push_back({&point, reason, 1});
  }
  void note_all(const std::vector<std::int32_t>& numbers, HeldPoint::Reason reason) {
    if (numbers.empty()) return;
    for (const ObjectPoint& point : project_.object_points) {
      if (std::binary_search(numbers.begin(), numbers.end(), point.index / 3)) note(point, reason);
    }
  }
  void note_crossing_points(const std::vector<std::int32_t>& numbers) {
    note_all(numbers, HeldPoint::Reason::crossing);
  }
  void note_weak_points() { note_all(system_.weak_points(), HeldPoint::Reason::parallel_rays); }
  void note_points_behind() {
    std::vector<std::int32_t> behind;
    std::size_t i = 0;
    for_each_image_point(project_.images, project_.object_points,
                         [&](const BundleImage&, const ImagePoint&, const ObjectPoint& point) {
                           if (!current_.in_front[i++]) behind.push_back(point.index / 3);
                         });
    std::sort(behind.begin(), behind.end());
    note_all(behind, HeldPoint::Reason::still_behind);
  }

  // ---- report ----

  bool lists_corrections() const {
    const Options& options = project_.options;
    return options.print_object_coords || options.print_exterior_orientations ||
           options.print_ap_sets || options.print_pos_corrections || options.print_att_corrections;
  }

  void print_steps(const IterationStatistics& statistics) {
    report_ << "Weighted sum of squares :  " << kCost(statistics.cost) << "\n\n"
            << "    Damping   Sum of squares       Ratio\n";
    for (const DampedStep& step : statistics.steps) {
      report_ << "  " << kDamping(step.damping) << ' ' << kCost(step.cost) << "   "
              << kRatio(step.ratio) << (step.accepted ? "   taken" : "   refused");
      if (step.held > 0) report_ << ", " << step.held << " object points held";
      report_ << '\n';
    }
    report_ << '\n';
  }

  void print_ending() {
    switch (project_.ending) {
      case IterationEnding::limits:
        report_ << "*** Converged: all corrections are within their limits.\n";
        break;
      case IterationEnding::cost:
        report_ << "*** Converged: the weighted sum of squares falls no more.\n";
        break;
      case IterationEnding::max_iterations:
        report_ << "*** WARNING: Not converged.\n";
        break;
    }
    report_ << "Weighted sum of squares :  " << kCost(current_.sum) << "\n\n";
    print_held_points(project_.held_points, report_);
  }

  BundleProject& project_;
  TextWriter& report_;
  DampedSystem system_;
  PointPlacement placement_;
  Loss loss_;
  WeightedSquares current_;
  WeightedSquares trial_;
  std::vector<double> values_;  // of all unknowns, before the step
  std::int32_t placed_ = 0;     // held points that found a better place after the last step
  double lambda_ = kFirstDamping;
  double decrease_ = 0.0;   // of the sum by the last step, relative
  double predicted_ = 0.0;  // by the linearised equations
};

}  // namespace

int iterate_damped(BundleProject& project, TextWriter& report) {
  return DampedIteration(project, report).run();
}

}  // namespace vorn
