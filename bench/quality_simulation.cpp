// What the figures of quality promise, against many noisy copies of a project.
//
//   quality_simulation PROJECT.ctl [COPIES]
//
// The adjusted project is taken for the truth. Each copy gets new measurements and given values,
// the true ones plus normal noise of their standard deviations, and is adjusted with exact
// derivatives. The results go to standard error, the run's own words to standard output.

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <vector>

#include "driver/bundle_project.h"
#include "driver/run.h"
#include "quality/distributions.h"
#include "quality/quality.h"

namespace {

using namespace vorn;

constexpr double kTenSigma = 10.0;
constexpr std::size_t kEnoughRays = 4;

// The true values of an unknown, of what was measured in an image.
struct TrueValue {
  Unknown unknown;
  double value;
};
struct TruePoint {
  ImagePoint* point;
  const BundleImage* image;
  Pair xy;  // in the measuring system of the camera
};

class Simulation {
 public:
  Simulation(BundleProject& project, int copies)
      : project_(project), copies_(copies), promised_(find_quality(project, promise())) {
    for (const PointResult& row : promised_.points) {
      for (std::int32_t k = 0; k < 3; ++k) {
        add_truth({row.point, k}, row.sd(static_cast<std::size_t>(k)));
      }
    }
    for (const ParameterResult& row : promised_.parameters) add_truth(row.unknown, row.sd);
    for (const ImageResult& row : promised_.images) {
      for (std::size_t i = 0; i < static_cast<std::size_t>(row.points); ++i) {
        const ImagePoint& point = *promised_.image_points[row.first + i].point;
        const ObjectPoint& object = *object_point_of(point, project.object_points);
        const Pair xy = row.image->camera->image_to_pixel(row.image->object_to_image(object.xyz));
        points_.push_back({const_cast<ImagePoint*>(&point), row.image, xy});
      }
    }
    squares_.assign(sds_.size(), 0.0);
  }

  void run() {
    const std::vector<std::size_t> checked = checked_points(1);
    const std::vector<std::size_t> well_checked = checked_points(kEnoughRays);
    for (int copy = 0; copy < copies_; ++copy) {
      make_copy();
      if (!adjust()) continue;
      ++done_;
      compare();
      if (!checked.empty()) find_smallest(one_of(checked));
      if (!well_checked.empty()) find_large(one_of(well_checked));
    }
  }

  void print() const {
    std::size_t inside = 0;
    std::size_t free = 0;
    double ratio = 0.0;
    const double low = chi_square_quantile(0.025, done_);
    const double high = chi_square_quantile(0.975, done_);
    for (std::size_t i = 0; i < sds_.size(); ++i) {
      if (sds_[i] == 0.0) continue;
      ++free;
      ratio += squares_[i] / done_;
      inside += low <= squares_[i] && squares_[i] <= high ? 1U : 0U;
    }
    const auto n = static_cast<double>(tests_);
    const double variance = w2_ / n;
    std::fprintf(stderr,
                 "copies %d\nvariance of errors / predicted, mean of %zu unknowns: %.4f\n"
                 "  within the 95 %% band: %.2f %% of the unknowns\n"
                 "w: mean %.4f, variance %.4f, kurtosis %.3f, beyond 1.96: %.3f %%\n"
                 "errors of the smallest detectable size found: %d of %d (80 %% promised)\n"
                 "errors of 10 sigma in points of %zu rays and more ranked first: %d of %d\n",
                 done_, free, ratio / static_cast<double>(free),
                 100.0 * static_cast<double>(inside) / static_cast<double>(free), w1_ / n, variance,
                 w4_ / n / (variance * variance), 100.0 * static_cast<double>(beyond_) / n, found_,
                 small_, kEnoughRays, ranked_, large_);
  }

 private:
  static QualityRequest promise() {
    QualityRequest request;
    request.prior = true;
    return request;
  }
  const ImagePointResult& row(std::size_t i) const { return promised_.image_points[i]; }

  void add_truth(const Unknown& unknown, double sd) {
    truth_.push_back({unknown, *unknown.record().value});
    sds_.push_back(sd);
  }

  // New measurements and given values; the unknowns start from the truth.
  void make_copy() {
    for (const TrueValue& at : truth_) {
      const ParamRecord& record = at.unknown.record();
      const bool observed = at.unknown.is_observed();
      *record.value = at.value + (observed ? *record.std_dev * normal_(random_) : 0.0);
    }
    for (std::int32_t i = 0; i < project_.unknowns.num_objects(); ++i) {
      project_.unknowns[i].init_params();
    }
    for (const TruePoint& at : points_) {
      at.point->x = at.xy[0] + at.point->sx * normal_(random_);
      at.point->y = at.xy[1] + at.point->sy * normal_(random_);
    }
  }

  // The same copy once more with an error of the smallest detectable size.
  void find_smallest(std::size_t victim) {
    const ImagePointResult& hit = row(victim);
    const std::size_t axis = axis_of(victim);
    plant(victim, smallest_detectable(hit.s[axis], hit.r[axis], promised_.settings.delta0));
    if (!adjust()) return;
    ++small_;
    found_ += std::fabs(w_of(victim, axis)) > critical_ ? 1 : 0;
  }
  // A copy with an error of ten standard deviations.
  void find_large(std::size_t victim) {
    make_copy();
    plant(victim, kTenSigma * row(victim).s[axis_of(victim)]);
    if (!adjust()) return;
    ++large_;
    ranked_ += is_first(victim) ? 1 : 0;
  }

  void plant(std::size_t victim, double error) {
    const TruePoint& at = points_[victim];
    Pair image = at.image->camera->pixel_to_image({at.point->x, at.point->y});
    image[axis_of(victim)] += error;
    const Pair pixel = at.image->camera->image_to_pixel(image);
    at.point->x = pixel[0];
    at.point->y = pixel[1];
  }

  // The coordinate of an image point that is checked better.
  std::size_t axis_of(std::size_t i) const { return row(i).r[0] >= row(i).r[1] ? 0 : 1; }
  // The image points whose object point has enough rays and that are checked.
  std::vector<std::size_t> checked_points(std::size_t rays) const {
    std::vector<std::size_t> checked;
    for (std::size_t i = 0; i < points_.size(); ++i) {
      const ObjectPoint& object = *object_point_of(*points_[i].point, project_.object_points);
      const auto number = static_cast<std::size_t>(object.index / 3);
      if (static_cast<std::size_t>(promised_.points[number].rays) < rays) continue;
      if (row(i).r[axis_of(i)] >= 0.01) checked.push_back(i);
    }
    return checked;
  }
  std::size_t one_of(const std::vector<std::size_t>& candidates) {
    return candidates[random_() % candidates.size()];
  }

  bool adjust() {
    for (const TrueValue& at : truth_) *at.unknown.record().value = at.value;
    for (ImageGeometry& geometry : project_.image_geometries) geometry.update();
    if (project_.solver == nullptr) {
      auto solver = std::make_unique<AdjInterfaceNative>(AdjInterfaceNative::Method::eliminate);
      if (!solver->prepare(project_.normal)) return false;
      project_.solver = std::move(solver);
    }
    project_.observations.set_up(project_.images, project_.object_points, Derivatives::exact,
                                 project_.normal);
    project_.iterations.clear();
    TextWriter nowhere;
    return project_.iterate(nowhere) == 1;
  }

  Pair residual_of(std::size_t i) const {
    const TruePoint& at = points_[i];
    const ObjectPoint& object = *object_point_of(*at.point, project_.object_points);
    const Pair computed = at.image->object_to_image(object.xyz);
    const Pair measured = at.image->camera->pixel_to_image({at.point->x, at.point->y});
    return {computed[0] - measured[0], computed[1] - measured[1]};
  }
  double w_of(std::size_t i, std::size_t axis) const {
    return standardised(residual_of(i)[axis], row(i).s[axis], row(i).r[axis]);
  }

  void compare() {
    for (std::size_t i = 0; i < truth_.size(); ++i) {
      if (sds_[i] == 0.0) continue;
      const double error = (*truth_[i].unknown.record().value - truth_[i].value) / sds_[i];
      squares_[i] += error * error;
    }
    for (std::size_t i = 0; i < points_.size(); ++i) {
      for (std::size_t axis = 0; axis < 2; ++axis) {
        const double w = w_of(i, axis);
        if (!is_defined(w)) continue;
        ++tests_;
        w1_ += w;
        w2_ += w * w;
        w4_ += w * w * w * w;
        beyond_ += std::fabs(w) > kNinetyFive ? 1 : 0;
      }
    }
  }

  bool is_first(std::size_t victim) const {
    const auto probability = [this](std::size_t i) {
      ImagePointResult tested = row(i);
      tested.v = residual_of(i);
      return joint_test(tested).log10_p;
    };
    const double smallest = probability(victim);
    for (std::size_t i = 0; i < points_.size(); ++i) {
      if (i != victim && probability(i) < smallest) return false;
    }
    return true;
  }

  static constexpr double kNinetyFive = 1.959963984540054;

  BundleProject& project_;
  int copies_;
  QualityResults promised_;
  double critical_ = normal_quantile(1.0 - 0.5 * promised_.settings.alpha);
  std::vector<TrueValue> truth_;
  std::vector<double> sds_;
  std::vector<TruePoint> points_;
  std::mt19937_64 random_{1};
  std::normal_distribution<double> normal_;
  int done_ = 0;
  std::vector<double> squares_;
  std::size_t tests_ = 0;
  std::size_t beyond_ = 0;
  double w1_ = 0.0;
  double w2_ = 0.0;
  double w4_ = 0.0;
  int small_ = 0;  // copies with an error of the smallest detectable size
  int found_ = 0;
  int large_ = 0;  // with one of ten standard deviations
  int ranked_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3) {
    std::fprintf(stderr, "usage: quality_simulation PROJECT.ctl [COPIES]\n");
    return 2;
  }
  constexpr int kCopies = 500;
  const int copies = argc == 3 ? std::atoi(argv[2]) : kCopies;
  vorn::RunRequest request;
  request.path = argv[1];
  request.settings.rigorous = true;
  request.inspect = [copies](vorn::BundleProject& project) {
    Simulation simulation(project, copies);
    simulation.run();
    simulation.print();
  };
  const bool completed = vorn::run_project(request).result == 1;
  vorn::flush_console();
  return completed ? 0 : 1;
}
