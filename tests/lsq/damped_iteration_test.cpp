// Damped steps, losses that weight large residuals down, and points that would sink a run.

#include "lsq/stages/damped_iteration.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <set>
#include <vector>

#include "driver/bundle_project.h"
#include "driver/run.h"
#include "lsq/stages/damped_system.h"
#include "lsq/stages/robust_loss.h"
#include "lsq/stages/weighted_squares.h"
#include "quality/exclusions.h"
#include "support/noise.h"
#include "support/project_test.h"

namespace vorn {
namespace {

using test::SyntheticSpec;
using testing::ElementsAre;
using testing::HasSubstr;

const SyntheticSpec kBlock = {
    .ap_sets = {"inner-or", "radial-dist"}, .images = 8, .points = 40, .seed = 3};

using Change = std::function<void(BundleProject&)>;

struct Solved {
  std::int32_t result = 0;
  double vtpv = 0.0;
  double sigma0 = 0.0;
  std::vector<IterationStatistics> iterations;
  std::vector<std::pair<std::string, HeldPoint::Reason>> held;
  std::set<std::string> light;  // image points with a small part of their weight: "image point"
  IterationEnding ending = IterationEnding::max_iterations;
  std::string report;
};

// Adjusts a simulated project after a change of what was read.
Solved solve(
    const SyntheticSpec& spec, const AdjustmentSettings& settings,
    const Change& change = [](BundleProject&) {}) {
  const test::TempDir dir;
  make_synthetic_project(spec).write(dir);
  ls_params() = LSParams();
  Solved solved;
  RunRequest request;
  request.path = dir.path("project.ctl");
  request.settings = settings;
  request.prepare = [&](BundleProject& project, TextWriter&) { change(project); };
  request.inspect = [&](BundleProject& project) {
    solved.vtpv = project.vtpv;
    solved.sigma0 = project.sigma0;
    solved.iterations = project.iterations;
    solved.ending = project.ending;
    for (const HeldPoint& held : project.held_points) {
      solved.held.emplace_back(held.point->id, held.reason);
    }
    for_each_image_point(project.images, project.object_points,
                         [&](const BundleImage& image, ImagePoint& point, const ObjectPoint&) {
                           if (point.weight_factor < 0.2) {
                             solved.light.insert(image.id + ' ' + point.id);
                           }
                         });
  };
  test::captured_output([&] { solved.result = run_project(request).result; });
  solved.report = dir.read("project.out");
  ls_params() = LSParams();
  return solved;
}

const AdjustmentSettings kRigorous = {.rigorous = true};
const AdjustmentSettings kSolve = {.rigorous = true, .damped = true};

// Approximate orientations and free points far from where they belong.
Change perturbed(double size) {
  return [size](BundleProject& project) {
    test::Noise noise(7);
    for (ImageGeometry& geometry : project.image_geometries) {
      for (std::int32_t k = 0; k < 6; ++k) {
        geometry.value(k) += (k < 3 ? 3.0 : 1.0) * size * noise.normal();
      }
      geometry.update();
    }
    for (ObjectPoint& point : project.object_points) {
      if (point.std_devs[0] < 1.0) continue;
      for (double& v : point.xyz) v += 3.0 * size * noise.normal();
    }
  };
}

constexpr double kFarOff = 0.4;

TEST(DampedIteration, ReachesTheMinimumFromAfar) {
  const Solved plain = solve(kBlock, kRigorous);
  ASSERT_EQ(plain.result, 1);
  const Solved damped = solve(kBlock, kSolve);
  EXPECT_NEAR(damped.vtpv / plain.vtpv, 1.0, 1e-9);
  EXPECT_NE(damped.ending, IterationEnding::max_iterations);

  const Solved found = solve(kBlock, kSolve, perturbed(kFarOff));
  EXPECT_EQ(found.result, 1);
  EXPECT_NEAR(found.vtpv / plain.vtpv, 1.0, 1e-6);
}

// Every attempt is there with its damping, its sum and its ratio, also in the report; a step is
// taken when the sum falls, and else the damping grows.
TEST(DampedIteration, TakesOnlyStepsThatLowerTheSum) {
  const Solved solved = solve(kBlock, kSolve, perturbed(kFarOff));
  ASSERT_EQ(solved.result, 1);
  std::size_t refused = 0;
  std::size_t taken = 0;
  double cost = solved.iterations.front().cost;
  for (const IterationStatistics& iteration : solved.iterations) {
    // Points that were placed anew after a step lower the sum further.
    EXPECT_LE(iteration.cost, cost * (1 + 1e-12));
    double damping = 0.0;
    for (const DampedStep& step : iteration.steps) {
      EXPECT_TRUE(step.damping > damping || step.held > 0);
      damping = step.damping;
      const bool last = &step == &iteration.steps.back();
      EXPECT_TRUE(step.accepted == last || &iteration == &solved.iterations.back());
      EXPECT_EQ(step.accepted, step.cost <= iteration.cost);
      EXPECT_TRUE(!step.accepted || step.cost == iteration.cost || step.ratio > 0.0);
      ++(step.accepted ? taken : refused);
    }
    cost = iteration.steps.back().cost;
  }
  EXPECT_GT(refused, 0U);
  // Near the minimum the sum falls by what the linear equations predict.
  EXPECT_NEAR(solved.iterations[solved.iterations.size() - 2].steps.back().ratio, 1.0, 0.1);
  const auto count = [&](const std::string& word) {
    std::size_t found = 0;
    for (std::size_t at = 0; (at = solved.report.find("   " + word, at)) != std::string::npos;
         ++at) {
      ++found;
    }
    return found;
  };
  EXPECT_EQ(count("taken"), taken);
  EXPECT_EQ(count("refused"), refused);
  EXPECT_THAT(solved.report, HasSubstr("*** Converged: "));
}

// The damped equations: (N + lambda D) x = n with the diagonal D of N, whose units cancel; N is as
// it was afterwards, and the decrease is that of the linearised sum of squares.
TEST(DampedSystem, SolvesForScaledSteps) {
  const test::TempDir dir;
  make_synthetic_project(kBlock).write(dir);
  RunRequest request;
  request.path = dir.path("project.ctl");
  request.settings = kSolve;
  request.inspect = [](BundleProject& project) {
    for (ObjectPoint& point : project.object_points) {
      if (point.std_devs[0] > 1.0) point.xyz[1] += 0.01;
    }
    DampedSystem system(project);
    std::int32_t observations = 0;
    ASSERT_TRUE(system.form(observations));
    const NormalMatrix& normal = project.normal;
    const std::int32_t size = project.unknowns.num_unknowns();
    const auto element = [&](std::int32_t i, std::int32_t j) {
      return normal.at(std::min(i, j), std::max(i, j));
    };
    std::vector<double> diagonal;
    for (std::int32_t i = 0; i < size; ++i) diagonal.push_back(element(i, i));
    for (const double lambda : {1e-3, 10.0}) {
      ASSERT_TRUE(system.solve(lambda));
      double decrease = 0.0;
      for (std::int32_t i = 0; i < size; ++i) {
        const double x = project.solution[i];
        const double d = diagonal[static_cast<std::size_t>(i)];
        ASSERT_EQ(element(i, i), d) << "the damping stays in the matrix";
        double product = 0.0;
        double largest = std::fabs(project.rhs[i]);
        for (std::int32_t j = 0; j < size; ++j) {
          product += element(i, j) * project.solution[j];
          largest = std::max(largest, std::fabs(element(i, j) * project.solution[j]));
        }
        EXPECT_NEAR(product + lambda * d * x, project.rhs[i], 1e-9 * largest) << i;
        decrease += x * (2.0 * project.rhs[i] - product);
      }
      EXPECT_GT(decrease, 0.0);
      EXPECT_NEAR(system.predicted_decrease() / decrease, 1.0, 1e-9);
    }
  };
  test::captured_output([&] { EXPECT_EQ(run_project(request).result, 1); });
}

TEST(Loss, WeightIsItsDerivative) {
  for (const RobustLoss kind :
       {RobustLoss::none, RobustLoss::huber, RobustLoss::cauchy, RobustLoss::geman_mcclure}) {
    const Loss loss(kind, 2.0);
    for (const double s : {0.01, 1.0, 3.9, 4.1, 25.0, 1e4}) {
      const double h = 1e-6 * s;
      EXPECT_NEAR(loss.weight(s), (loss(s + h) - loss(s - h)) / (2 * h), 1e-6) << s;
      EXPECT_LE(loss(s), s * (1 + 1e-12));
    }
    EXPECT_NEAR(loss.weight(1e-9), 1.0, 1e-8);
  }
}

// Errors of forty standard deviations in five image points.
const std::set<std::string> kPlanted = {"i1 p10", "i2 p14", "i4 p21", "i5 p30", "i7 p38"};
void plant(BundleProject& project) {
  for (BundleImage& image : project.images) {
    for (ImagePoint& point : image.points) {
      if (kPlanted.contains(image.id + ' ' + point.id)) point.x += 40.0 * point.sx;
    }
  }
}

class RobustStart : public testing::TestWithParam<RobustLoss> {};

TEST_P(RobustStart, WeightsGrossErrorsDown) {
  AdjustmentSettings settings = kSolve;
  const Solved clean = solve(kBlock, settings);
  const Solved spoilt = solve(kBlock, settings, plant);
  EXPECT_GT(spoilt.sigma0, 3 * clean.sigma0);

  settings.robust_loss = GetParam();
  const Solved finished = solve(kBlock, settings, plant);
  ASSERT_EQ(finished.result, 1);
  for (const std::string& name : kPlanted) {
    const std::size_t space = name.find(' ');
    EXPECT_THAT(finished.report, HasSubstr("      " + name.substr(0, space) + "       " +
                                           name.substr(space + 1) + ' '));
  }
  EXPECT_TRUE(finished.light.empty()) << "the given weights are back";
  EXPECT_NEAR(finished.vtpv / spoilt.vtpv, 1.0, 1e-6);

  settings.keep_robust = true;
  const Solved kept = solve(kBlock, settings, plant);
  EXPECT_THAT(kept.light, testing::IsSupersetOf(kPlanted));
  EXPECT_LT(kept.light.size(), kPlanted.size() + 3);
  EXPECT_LT(kept.sigma0, 0.5 * spoilt.sigma0);
}
INSTANTIATE_TEST_SUITE_P(Losses, RobustStart,
                         testing::Values(RobustLoss::huber, RobustLoss::cauchy,
                                         RobustLoss::geman_mcclure));

TEST(PointPlacement, BringsPointsBackBeforeTheirImages) {
  const double sigma0 = solve(kBlock, kSolve).sigma0;
  const Solved solved = solve(kBlock, kSolve, [](BundleProject& project) {
    project.object_points.find("p20")->xyz[2] += 12.0;  // above all images
    const ImageGeometry& first = *project.image_geometries.find("e1");
    project.object_points.find("p25")->xyz = {first.value(0), first.value(1), first.value(2)};
  });
  ASSERT_EQ(solved.result, 1);
  EXPECT_NEAR(solved.sigma0 / sigma0, 1.0, 1e-6);
  EXPECT_THAT(solved.held, ElementsAre(std::pair{"p20", HeldPoint::Reason::behind},
                                       std::pair{"p25", HeldPoint::Reason::at_centre}));
  EXPECT_THAT(solved.report, HasSubstr("ATTENTION: Object point p20 was behind an image"));
  EXPECT_THAT(solved.report, HasSubstr("ATTENTION: Object point p25 was in the plane of"));
}

// The first two images stand at one place; one point is measured in no other.
TEST(PointPlacement, HoldsPointsWithParallelRays) {
  SyntheticSpec spec;
  spec.twins = true;
  const Solved solved = solve(spec, kSolve, [&spec](BundleProject& project) {
    ImageGeometry* const first = project.image_geometries.find("e1");
    ImageGeometry* const second = project.image_geometries.find("e2");
    for (std::int32_t k = 0; k < 3; ++k) {
      second->value(k) = first->value(k);
    }
    TextWriter nowhere;
    std::vector<Exclusion> others;
    for (std::size_t i = 3; i <= spec.images; ++i) {
      others.push_back({true, {}, "i" + std::to_string(i), "p33"});
    }
    apply_exclusions(others, project, nowhere);
  });
  ASSERT_EQ(solved.result, 1);
  EXPECT_THAT(solved.held,
              testing::Contains(std::pair{std::string("p33"), HeldPoint::Reason::parallel_rays}));
  EXPECT_THAT(solved.report, HasSubstr("ATTENTION: Object point p33 was held along its rays"));
  EXPECT_LT(solved.sigma0, 3 * test::kSigmaImage);
}

}  // namespace
}  // namespace vorn
