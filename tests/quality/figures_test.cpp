// The figures of quality of simulated projects: against the full inverse, laws that hold for every
// adjustment, and a simulation.

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <map>
#include <numeric>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "driver/bundle_project.h"
#include "driver/run.h"
#include "geometry/eo_quaternion.h"
#include "lsq/stages/normal_equations.h"
#include "lsq/stages/observation_equations.h"
#include "quality/distributions.h"
#include "quality/final_system.h"
#include "quality/inner_datum.h"
#include "quality/quality.h"
#include "quality/summary.h"
#include "support/project_test.h"

namespace vorn {
namespace {

using test::SyntheticProject;
using test::SyntheticSpec;

// Adjusts a simulated project and hands it over; settings are those of a fresh process.
void with_adjusted(const SyntheticProject& files,
                   const std::function<void(BundleProject&)>& visit) {
  const test::TempDir dir;
  files.write(dir);
  ls_params() = LSParams();
  RunRequest request;
  request.path = dir.path("project.ctl");
  request.inspect = visit;
  test::captured_output([&] { EXPECT_EQ(run_project(request).result, 1); });
}

const std::vector<SyntheticSpec>& specs() {
  static const std::vector<SyntheticSpec> kSpecs = {
      {.points = 20, .y_noise = 1.5},
      {.cameras = {"camera-ccd", "camera-frame"},
       .orientations = {"ext-ori-quaternion", "ext-ori-pok-rot"},
       .ap_sets = {"inner-or", "radial-dist"},
       .images = 8,
       .points = 30,
       .y_noise = 0.6},
      {.cameras = {"camera-pushbroom"}, .images = 8, .points = 120, .triples = 2},
      {.orientations = {"ext-ori-quaternion"},
       .ap_sets = {"australis"},
       .images = 12,
       .points = 90},
      // Of these types some have equations that are formed one by one.
      {.orientations = {"ext-ori-opk-rot", "dlt"}, .images = 8, .points = 30},
  };
  return kSpecs;
}

// Design rows, weights and conditions of a project as full matrices; fixed unknowns have no column.
struct FullSystem {
  std::vector<std::vector<double>> rows;        // sqrt(p) a, two for each image point
  std::vector<std::vector<double>> conditions;  // of quaternions
  std::vector<double> cofactors;                // U x U

  // Column of Q A'P^1/2.
  std::vector<double> spread(std::size_t row) const {
    const std::size_t n = rows[row].size();
    std::vector<double> column(n);
    for (std::size_t k = 0; k < n; ++k) {
      if (rows[row][k] == 0.0) continue;
      for (std::size_t j = 0; j < n; ++j) column[j] += cofactors[j * n + k] * rows[row][k];
    }
    return column;
  }

  explicit FullSystem(const BundleProject& project) {
    const auto n = static_cast<std::size_t>(project.unknowns.num_unknowns());
    std::vector<bool> fixed(n);
    std::vector<double> own(n);
    for (std::int32_t i = 0; i < project.unknowns.num_objects(); ++i) {
      const AdjObject& object = project.unknowns[i];
      for (std::uint32_t k = 0; k < object.num_params(); ++k) {
        const ParamRecord& record = object.param(static_cast<std::int32_t>(k));
        const std::size_t u = static_cast<std::size_t>(object.index) + k;
        fixed[u] = record.state == ParamState::eliminated;
        if (record.state == ParamState::observed) own[u] = record.weight;
      }
    }
    add_rows(project, fixed);
    project.unknowns.for_each<EOQuaternion>([&](const EOQuaternion& orientation) {
      std::vector<double>& condition = conditions.emplace_back(n);
      for (std::int32_t k = 3; k < 7; ++k) {
        const auto u = static_cast<std::size_t>(orientation.index + k);
        if (!fixed[u]) condition[u] = orientation.value(k);
      }
    });
    invert(fixed, own);
  }

 private:
  void add_rows(const BundleProject& project, const std::vector<bool>& fixed) {
    PointEquation equation;
    for (const BundleImage& image : project.images) {
      ObservationEquations equations(image, Derivatives::exact);
      for (const ImagePoint& point : image.points) {
        const ObjectPoint& object = *object_point_of(point, project.object_points);
        ASSERT_EQ(equations.linearise(observation_of(point, *image.camera), object.xyz, equation),
                  ObservationEquations::Outcome::formed);
        for (std::size_t i = 0; i < 2; ++i) {
          std::vector<double>& row = rows.emplace_back(fixed.size());
          const double root = std::sqrt(i == 0 ? equation.weights.xx : equation.weights.yy);
          const auto put = [&](std::int32_t u, double a) {
            const auto at = static_cast<std::size_t>(u);
            if (!fixed[at]) row[at] = root * a;
          };
          for (std::int32_t k = 0; k < 3; ++k) {
            put(object.index + k, equation.point[3 * i + static_cast<std::size_t>(k)]);
          }
          std::size_t column = i * static_cast<std::size_t>(equation.stride);
          for (const AdjObject* depends : objects_of(image)) {
            for (std::uint32_t k = 0; k < depends->num_params(); ++k) {
              put(depends->index + static_cast<std::int32_t>(k), equation.rows[column++]);
            }
          }
        }
      }
    }
  }

  // Gauss-Jordan with pivoting of N, bordered by the conditions, scaled to a unit diagonal.
  void invert(const std::vector<bool>& fixed, const std::vector<double>& own) {
    const std::size_t n = fixed.size();
    const std::size_t m = n + conditions.size();
    std::vector<double> a(m * m);
    for (const std::vector<double>& row : rows) {
      for (std::size_t i = 0; i < n; ++i) {
        if (row[i] == 0.0) continue;
        for (std::size_t j = 0; j < n; ++j) a[i * m + j] += row[i] * row[j];
      }
    }
    std::vector<double> scale(m, 1.0);
    for (std::size_t i = 0; i < n; ++i) {
      a[i * m + i] = fixed[i] ? 1.0 : a[i * m + i] + own[i];
      scale[i] = 1.0 / std::sqrt(a[i * m + i]);
    }
    for (std::size_t k = 0; k < conditions.size(); ++k) {
      for (std::size_t i = 0; i < n; ++i) {
        a[(n + k) * m + i] = a[i * m + n + k] = conditions[k][i];
      }
    }
    for (std::size_t i = 0; i < m; ++i) {
      for (std::size_t j = 0; j < m; ++j) a[i * m + j] *= scale[i] * scale[j];
    }
    std::vector<double> q(m * m);
    for (std::size_t i = 0; i < m; ++i) q[i * m + i] = 1.0;
    for (std::size_t c = 0; c < m; ++c) {
      std::size_t pivot = c;
      for (std::size_t i = c; i < m; ++i) {
        if (std::fabs(a[i * m + c]) > std::fabs(a[pivot * m + c])) pivot = i;
      }
      for (std::size_t j = 0; j < m; ++j) {
        std::swap(a[c * m + j], a[pivot * m + j]);
        std::swap(q[c * m + j], q[pivot * m + j]);
      }
      const double inverse = 1.0 / a[c * m + c];
      for (std::size_t j = 0; j < m; ++j) {
        a[c * m + j] *= inverse;
        q[c * m + j] *= inverse;
      }
      for (std::size_t i = 0; i < m; ++i) {
        const double factor = a[i * m + c];
        if (i == c || factor == 0.0) continue;
        for (std::size_t j = 0; j < m; ++j) {
          a[i * m + j] -= factor * a[c * m + j];
          q[i * m + j] -= factor * q[c * m + j];
        }
      }
    }
    cofactors.resize(n * n);
    for (std::size_t i = 0; i < n; ++i) {
      for (std::size_t j = 0; j < n; ++j) {
        const bool none = fixed[i] || fixed[j];
        cofactors[i * n + j] = none ? 0.0 : q[i * m + j] * scale[i] * scale[j];
      }
    }
  }
};

TEST(Figures, AgreeWithTheFullInverse) {
  for (const SyntheticSpec& spec : specs()) {
    SCOPED_TRACE(spec.orientations.front());
    with_adjusted(make_synthetic_project(spec), [](BundleProject& project) {
      const FullSystem full(project);
      const QualityResults results = find_quality(project, {});
      ASSERT_TRUE(results.has_figures);
      const auto n = static_cast<std::size_t>(project.unknowns.num_unknowns());
      const double sigma0 = results.statistics.sigma0_used;
      const auto sd_of = [&](std::int32_t u) {
        const auto at = static_cast<std::size_t>(u);
        return sigma0 * std::sqrt(full.cofactors[at * n + at]);
      };
      for (const ParameterResult& row : results.parameters) {
        const double sd = sd_of(row.unknown.number());
        EXPECT_NEAR(row.sd, sd, 1e-9 * sd);
      }
      for (const PointResult& row : results.points) {
        for (std::int32_t k = 0; k < 3; ++k) {
          const double sd = sd_of(row.point->index + k);
          EXPECT_NEAR(row.sd(static_cast<std::size_t>(k)), sd, 1e-9 * sd);
        }
      }
      for (std::size_t i = 0; i < full.rows.size(); ++i) {
        const ImagePointResult& row = results.image_points[i / 2];
        const std::vector<double> column = full.spread(i);
        const auto product_with = [&](std::size_t other) {
          return std::inner_product(column.begin(), column.end(), full.rows[other].begin(), 0.0);
        };
        EXPECT_NEAR(row.r[i % 2], 1.0 - product_with(i), 1e-9);
        EXPECT_NEAR(row.rxy, -product_with(i ^ 1U), 1e-9);
        const std::int32_t at = object_point_of(*row.point, project.object_points)->index;
        const double shift = std::hypot(column[static_cast<std::size_t>(at)],
                                        column[static_cast<std::size_t>(at) + 1],
                                        column[static_cast<std::size_t>(at) + 2]);
        const double s = row.s[i % 2];
        const double effect = results.settings.sigma0_prior / s * shift *
                              smallest_detectable(s, row.r[i % 2], results.settings.delta0);
        EXPECT_NEAR(row.effect[i % 2], effect, 1e-7 * effect);
      }
    });
  }
}

// What the rays of a point give together, found image by image.
TEST(Figures, SumUpTheRaysOfPoints) {
  for (const SyntheticSpec& spec : specs()) {
    SCOPED_TRACE(spec.orientations.back());
    with_adjusted(make_synthetic_project(spec), [](BundleProject& project) {
      const QualityResults results = find_quality(project, {});
      const std::size_t n = results.points.size();
      std::vector<double> redundancy(n, 0.0);
      std::vector<std::vector<Vec3>> lines(n);
      std::vector<bool> has_angle(n, true);
      for (const ImagePointResult& row : results.image_points) {
        const ObjectPoint& point = *object_point_of(*row.point, project.object_points);
        const auto at = static_cast<std::size_t>(row.object_point);
        EXPECT_EQ(results.points[at].point, &point);
        redundancy[at] += row.r[0] + row.r[1];
        const BundleImage& image = *results.images[static_cast<std::size_t>(row.image)].image;
        const auto* const orientation = dynamic_cast<const ExtOrientation*>(image.geometry);
        has_angle[at] = has_angle[at] && orientation != nullptr;
        if (orientation == nullptr) continue;
        lines[at].push_back(point.xyz - orientation->projection_centre());
      }
      for (std::size_t k = 0; k < n; ++k) {
        EXPECT_NEAR(results.points[k].redundancy, redundancy[k], 1e-12);
        EXPECT_EQ(is_defined(results.points[k].angle), has_angle[k] && lines[k].size() > 1);
        double largest = 0.0;
        for (const Vec3& a : lines[k]) {
          for (const Vec3& b : lines[k]) {
            const Vec3 normal = cross(a, b);
            const double angle = std::atan2(std::sqrt(dot(normal, normal)), std::fabs(dot(a, b)));
            largest = std::max(largest, angle);
          }
        }
        if (is_defined(results.points[k].angle)) {
          EXPECT_NEAR(results.points[k].angle, largest, 1e-9);
        }
      }
    });
  }
}

// Without conditions large blocks do not store the couplings of their points for the figures,
// either.
TEST(Figures, AreTheSameWithCouplingsThatAreFormedAgain) {
  using Couplings = NormalMatrix::PointCouplings;
  std::map<Couplings, QualityResults> results;
  for (const Couplings couplings : {Couplings::stored, Couplings::formed}) {
    with_adjusted(make_synthetic_project(SyntheticSpec{.images = 12, .points = 90}),
                  [&](BundleProject& project) {
                    ASSERT_TRUE(project.normal.set_structure(find_structure(project), couplings));
                    project.observations.set_up(project.images, project.object_points,
                                                project.settings.derivatives(), project.normal);
                    results[couplings] = find_quality(project, {});
                    EXPECT_EQ(project.normal.stores_couplings(), couplings == Couplings::stored);
                  });
  }
  const QualityResults& stored = results[Couplings::stored];
  const QualityResults& formed = results[Couplings::formed];
  ASSERT_TRUE(stored.has_figures && formed.has_figures);
  for (std::size_t k = 0; k < stored.image_points.size(); ++k) {
    for (std::size_t i = 0; i < 2; ++i) {
      EXPECT_NEAR(formed.image_points[k].r[i], stored.image_points[k].r[i], 1e-12);
    }
  }
  EXPECT_NEAR(formed.statistics.distance_to_minimum, stored.statistics.distance_to_minimum, 1e-9);
}

// Fixes the first point in space.
SyntheticProject with_fixed_point(SyntheticProject project) {
  std::string& text = project.files.at("obj.txt");
  const std::regex first(R"(p1 (\S+ \S+ \S+)\s+\S+ \S+ \S+)");
  EXPECT_TRUE(std::regex_search(text, first)) << text;
  text = std::regex_replace(text, first, "p1 $1 1e-31 1e-31 1e-31");
  return project;
}

// Seen from the points of the inner datum nothing moves: sums over their rows of Q_S vanish, with
// the weights of each of the seven motions (C Q_S = 0). A point that was fixed belongs to them.
TEST(InnerDatum, TakesEveryMotionOut) {
  const std::vector<std::string> some = {"p1", "p3", "p5", "p8", "p13", "p17"};
  const SyntheticProject free = make_synthetic_project(specs().front());
  const std::pair<SyntheticProject, std::vector<std::string>> cases[] = {
      {free, {}}, {free, some}, {with_fixed_point(free), {}}, {with_fixed_point(free), some}};
  for (const auto& [files, listed] : cases) {
    with_adjusted(files, [&, &listed = listed](BundleProject& project) {
      const FullSystem full(project);
      const auto n = static_cast<std::size_t>(project.unknowns.num_unknowns());
      FinalSystem system(project);
      ASSERT_EQ(system.factorise(), 0);
      ASSERT_TRUE(system.invert());
      const InnerDatum datum(project, system, listed);
      ASSERT_TRUE(datum.is_usable());
      const auto cofactor = [&](std::int32_t i, std::int32_t j) {
        return full.cofactors[static_cast<std::size_t>(i) * n + static_cast<std::size_t>(j)] +
               datum.change(i, j);
      };
      for (std::int32_t j = 0; j < project.unknowns.num_unknowns(); j += 5) {
        std::array<double, 7> sums{};
        double size = 0.0;
        for (const ObjectPoint& point : project.object_points) {
          const bool counts = listed.empty() || std::count(listed.begin(), listed.end(), point.id);
          if (!counts) continue;
          const Vec3& p = point.xyz;
          Vec3 q{};
          for (std::int32_t k = 0; k < 3; ++k) {
            q[static_cast<std::size_t>(k)] = cofactor(point.index + k, j);
          }
          const Vec3 turned = cross(p, q);
          for (std::size_t k = 0; k < 3; ++k) {
            sums[k] += q[k];
            sums[3 + k] += turned[k];
          }
          sums[6] += dot(p, q);
          size += (1.0 + std::sqrt(dot(p, p))) * std::sqrt(dot(q, q));
        }
        for (const double sum : sums) EXPECT_NEAR(sum, 0.0, 1e-6 * size) << "unknown " << j;
      }
    });
  }
}

TEST(Figures, KeepTheLawsOfEveryAdjustment) {
  for (const SyntheticSpec& spec : specs()) {
    SCOPED_TRACE(spec.orientations.front());
    with_adjusted(make_synthetic_project(spec), [](BundleProject& project) {
      const QualityResults results = find_quality(project, {});
      const QualityStatistics& statistics = results.statistics;
      EXPECT_EQ(statistics.redundancy, project.redundancy);
      EXPECT_NEAR(statistics.redundancy_sum.total(), statistics.redundancy, 1e-6);
      EXPECT_NEAR(statistics.sigma0_posterior, project.sigma0, 1e-3 * project.sigma0);
      double of_groups = 0.0;
      for (const GroupResult& group : results.groups) of_groups += group.redundancy;
      EXPECT_NEAR(of_groups, statistics.redundancy, 1e-6);
      for (const ParameterResult& row : results.parameters) {
        EXPECT_EQ(row.sd == 0.0, row.unknown.is_fixed());
      }
      for (const CorrelationResult& row : results.correlations) {
        EXPECT_GE(std::fabs(row.r), results.settings.correlation_limit);
        EXPECT_LE(std::fabs(row.r), 1.0 + 1e-9);
      }
      for (const ConstraintResult& row : results.constraints) EXPECT_NEAR(row.misclosure, 0, 1e-9);
    });
  }
}

// Far from the origin of the object space nothing changes.
TEST(Figures, DoNotDependOnThePlaceOfTheOrigin) {
  with_adjusted(make_synthetic_project(specs().front()), [](BundleProject& project) {
    const QualityResults before = find_quality(project, {.prior = true});
    constexpr double kShift = 5.5e6;
    for (ObjectPoint& point : project.object_points) point.xyz[0] += kShift;
    for (ImageGeometry& geometry : project.image_geometries) {
      geometry.value(0) += kShift;
      geometry.update();
    }
    const QualityResults after = find_quality(project, {.prior = true});
    for (std::size_t i = 0; i < before.points.size(); ++i) {
      for (std::size_t k = 0; k < 3; ++k) {
        EXPECT_NEAR(after.points[i].sd(k) / before.points[i].sd(k), 1.0, 1e-6);
      }
    }
    for (std::size_t i = 0; i < before.parameters.size(); ++i) {
      EXPECT_NEAR(after.parameters[i].sd / before.parameters[i].sd, 1.0, 1e-6);
    }
  });
}

// An error planted in one coordinate stands out as the worst of all and is what it was.
TEST(Figures, FindAPlantedError) {
  with_adjusted(test::make_synthetic_project({.points = 30}), [](BundleProject& project) {
    QualityResults results = find_quality(project, {});
    const auto checked = std::max_element(
        results.image_points.begin(), results.image_points.end(),
        [](const ImagePointResult& a, const ImagePointResult& b) { return a.r[0] < b.r[0]; });
    ASSERT_GT(checked->r[0], 0.5);
    // The residuals that an error gives: -R e (Baarda 1968).
    const double error = 20.0 * checked->s[0];
    checked->v[0] -= checked->r[0] * error;
    checked->v[1] -= checked->rxy * error * checked->s[1] / checked->s[0];
    results.suspects.clear();
    find_suspects(results);
    ASSERT_FALSE(results.suspects.empty());
    const SuspectResult& first = results.suspects.front();
    EXPECT_EQ(first.image_point, checked->point);
    EXPECT_TRUE(first.worst_of_image);
    EXPECT_TRUE(first.worst_of_point);
    EXPECT_LT(first.test.log10_p, -40.0);
    EXPECT_NEAR(estimated_error(checked->v[0], checked->r[0]) / error, 1.0, 0.2);
  });
}

TEST(JointTest, HasTheDegreesOfFreedomOfItsMatrix) {
  ImagePointResult row;
  row.s = {1e-6, 2e-6};
  row.v = {3e-6, 2e-6};  // u = (3, 1)
  row.r = {0.5, 0.25};
  row.rxy = 0.0;
  JointTest test = joint_test(row);
  EXPECT_EQ(test.degrees_of_freedom, 2);
  EXPECT_NEAR(test.t, 9.0 / 0.5 + 1.0 / 0.25, 1e-12);
  // The redundancy of a point with two rays lies across the epipolar plane: M = 0.8 e e'.
  row.r = {0.8 * 0.36, 0.8 * 0.64};
  row.rxy = 0.8 * 0.48;
  test = joint_test(row);
  EXPECT_EQ(test.degrees_of_freedom, 1);
  EXPECT_NEAR(test.t, (3 * 0.6 + 0.8) * (3 * 0.6 + 0.8) / 0.8, 1e-9);
  row.r = {1e-7, 1e-7};
  row.rxy = 0.0;
  test = joint_test(row);
  EXPECT_EQ(test.degrees_of_freedom, 0);
  EXPECT_TRUE(std::isnan(test.t));
}

// Errors of the adjusted values against what the standard deviations promise, and test values.
TEST(Figures, PredictWhatNoiseDoes) {
  constexpr std::uint64_t kCopies = 60;
  double squares = 0.0;
  double test_squares = 0.0;
  std::size_t count = 0;
  std::size_t tests = 0;
  for (std::uint64_t seed = 1; seed <= kCopies; ++seed) {
    const SyntheticProject files = test::make_synthetic_project({.points = 16, .seed = seed});
    with_adjusted(files, [&](BundleProject& project) {
      const QualityResults results = find_quality(project, {.prior = true});
      for (const ParameterResult& row : results.parameters) {
        const double truth =
            files.truth.at(row.unknown.object->id)[static_cast<std::size_t>(row.unknown.k)];
        const double error = (*row.unknown.record().value - truth) / row.sd;
        squares += error * error;
        ++count;
      }
      for (const ImagePointResult& row : results.image_points) {
        for (std::size_t i = 0; i < 2; ++i) {
          const double w = standardised(row.v[i], row.s[i], row.r[i]);
          if (!is_defined(w)) continue;
          test_squares += w * w;
          ++tests;
        }
      }
    });
  }
  // The parameters of one copy are correlated: as if each copy gave six values.
  EXPECT_NEAR(squares / static_cast<double>(count), 1.0, 4.0 * std::sqrt(2.0 / (6.0 * kCopies)));
  EXPECT_NEAR(test_squares / static_cast<double>(tests), 1.0, 0.05);
}

}  // namespace
}  // namespace vorn
