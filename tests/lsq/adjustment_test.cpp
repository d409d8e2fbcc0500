// Objects with parameters, lists that own them, and the loop over them.

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "base/owned_list.h"
#include "driver/bundle_project.h"
#include "lsq/adj_object.h"
#include "lsq/adj_object_list.h"
#include "lsq/ls_params.h"
#include "lsq/normal/normal_matrix.h"
#include "lsq/stages/statistics.h"
#include "sensors/object_point.h"
#include "support/captured_output.h"
#include "support/noise.h"
#include "support/project_test.h"

namespace vorn {
namespace {

using testing::HasSubstr;

// An object of nothing but a parameter.
class Parameter : public AdjObject {
 public:
  Parameter(double v, double sdev) : value(v), std_dev(sdev) {}
  void init_params() override {
    alloc_params(1);
    set_param(0, value, std_dev);
  }
  double value;
  double std_dev;
};

TEST(AdjObject, StateAndWeightFollowFromStandardDeviation) {
  const double smin = ls_params().smin;
  const double smax = ls_params().smax;
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  const struct {
    double sigma;
    std::string_view state;
    double weight;
  } cases[] = {{1e-3, "obs", 1e-6},
               {smin, "obs", (1e-6 / smin) * (1e-6 / smin)},
               {smax, "obs", (1e-6 / smax) * (1e-6 / smax)},
               {std::nextafter(smin, 0.0), "eli", 1e10},
               {std::nextafter(smax, kInfinity), "unk", 0.0},
               {-1.0, "eli", 1e10},
               {kInfinity, "unk", 0.0},
               {std::numeric_limits<double>::quiet_NaN(), "unk", 0.0}};
  for (const auto& c : cases) {
    Parameter object(2.0, c.sigma);
    object.init_params();
    EXPECT_EQ(object.state_name(0), c.state) << c.sigma;
    EXPECT_DOUBLE_EQ(object.param(0).weight, c.weight) << c.sigma;
  }
}

// Changed by exactly 1.96 standard deviations; expected files of whole runs show the listings.
TEST(AdjObject, SignificanceExceedsItsLimit) {
  Parameter object(-2.0, 1.0);
  AdjObjectList list;
  list.add(object);
  object.value = -0.04;
  for (const std::string verdict : {"not", "is"}) {
    EXPECT_THAT(test::written_text([&](TextWriter& out) { object.print_significance(out); }),
                testing::HasSubstr("  1.000e+00     2.0  " + verdict + " significant\n"));
    ls_params().significance_limit = 1.9599;
  }
}

TEST(AdjObjectList, SumsAndFindsChangesOfPointsThatAreNotHeld) {
  constexpr std::int32_t kPoints = 5;
  const double nan = std::numeric_limits<double>::quiet_NaN();
  std::vector<ObjectPoint> points(kPoints);
  Parameter before(0.0, 1e-3);
  AdjObjectList list;
  list.add(before);
  for (ObjectPoint& point : points) {
    point.std_devs[1] = &point == &points[3] ? 0.0 : ls_params().smaxu;
    list.add(point);
  }
  EXPECT_THAT(list.eliminated(), testing::ElementsAre(11));
  const struct {
    double z3, z4;  // beside -k/8 for coordinate k and 99 for the one that is held
    std::int32_t largest;
    double max;
  } cases[] = {
      {1.0, 2.0, 15, 2.0}, {2.0, 2.0, 12, 2.0}, {0.0, nan, 14, 1.75}, {nan, 0.5, 14, 1.75}};
  for (const auto& c : cases) {
    Vector corrections(list.num_unknowns());
    for (std::int32_t u = 0; u < corrections.size(); ++u) corrections[u] = u / -8.0;
    corrections[0] = 1000.0;
    corrections[11] = 99.0;
    corrections[12] = c.z3;
    corrections[15] = c.z4;
    IterationStatistics statistics;
    find_changes(list, corrections, statistics);
    EXPECT_EQ(statistics.points.count, 3 * kPoints - 1);
    double sum = 0.0;
    for (std::int32_t u = 1; u < corrections.size(); ++u) {
      if (u != 11) sum += std::abs(corrections[u]);
    }
    EXPECT_THAT(statistics.points.sum, testing::NanSensitiveDoubleEq(sum));
    EXPECT_EQ(statistics.points.max, c.max);
    ASSERT_NE(statistics.points.object, nullptr);
    EXPECT_EQ(statistics.points.object->index + statistics.points.param, c.largest);
    EXPECT_EQ(statistics.centres.count, 0);
  }
}

// One free parameter x and the conditions x = target, twice as `apart` when that is not zero;
// Newton's method for x^3 = target when `cubic`.
class Spring : public AdjObject {
 public:
  explicit Spring(double wanted) : target(wanted) { id = "s"; }

  void init_params() override {
    alloc_params(1);
    set_param(0, x, 1e31);
  }
  std::int32_t get_num_constraints() const override { return num_constraints; }
  void add_constraints(NormalMatrix& normal, Vector& rhs, double& lPl) const override {
    for (const double side : {-apart, apart}) {
      const double a = cubic ? 3 * x * x : 1.0;
      const double l = target + side - (cubic ? x * x * x : x);
      normal.add(index, index, pull * a * a);
      rhs[index] += pull * a * l;
      lPl += pull * l * l;
    }
  }
  std::int32_t check_convergence(const Vector& corrections) const override {
    return std::fabs(corrections[index]) > 1e-6 ? 0 : -1;
  }

  double target;
  double x = 1.0;
  double pull = 1e-12;
  double apart = 0.0;
  bool cubic = false;
  std::int32_t num_constraints = 2;
};

class IterationTest : public testing::Test {
 protected:
  // Runs the loop; returns the report, and keeps what went to standard output.
  std::string iterate(int expected) {
    const std::int32_t size = project_.unknowns.num_unknowns();
    project_.normal.resize(size);
    project_.normal.zero();
    for (Vector* vector : {&project_.rhs, &project_.markers, &project_.solution}) {
      vector->resize(size);
      vector->zero();
    }
    project_.solver = std::make_unique<AdjInterfaceNative>();
    TextWriter report;
    EXPECT_TRUE(report.open(dir_.path("report")));
    output_ = test::captured_output([&] { EXPECT_EQ(project_.iterate(report), expected); });
    report.close();
    return test::without_times(dir_.read("report"));
  }

  test::TempDir dir_;
  BundleProject project_;
  std::string output_;
};

TEST_F(IterationTest, EndsByCriterionOrByNumber) {
  // The cube root of 2 from 1 takes five steps to 1e-6.
  for (const std::int32_t max : {10, 6, 5, 4, 0, -3}) {
    ls_params().max_iterations = max;
    Spring cubic(2.0);
    cubic.cubic = true;
    project_.unknowns = AdjObjectList();
    project_.unknowns.add(cubic);
    const std::string run = std::to_string(std::clamp(max, 0, 5));
    const char* const verdict = max > 5 ? "\n*** Iteration criterion limit has been reached.\n"
                                        : "\n*** WARNING: Maximum number of iterations has been "
                                          "reached.\n";
    EXPECT_THAT(iterate(1), HasSubstr(verdict + ("\nNumber of iterations: " + run) + '\n')) << max;
    EXPECT_EQ(std::to_string(project_.num_iterations), run);
    EXPECT_NEAR(cubic.x, max > 3 ? std::cbrt(2.0) : 1.0, 1e-4);
  }
}

TEST_F(IterationTest, StatisticsFollowRedundancy) {
  // Conditions 1 to both sides of one unknown: v'Pv = 2 x 1e-12.
  Spring spring(2.0);
  spring.apart = 1.0;
  ls_params().max_iterations = 1;
  ls_params().apv_limit = 1e-12;
  const auto start_with = [&](std::int32_t constraints, double x) {
    spring.num_constraints = constraints;
    spring.x = x;
    project_.unknowns = {};
    project_.unknowns.add(spring);
  };
  // The right-hand side of the only iteration was not zero; its comparison is signed.
  const struct {
    std::int32_t constraints;
    double start;
    const char* expected;
  } cases[] = {{9, -1.0,
                "Redundancy              :  8\nvtpv                    :  2.00e-12\n"
                "Sigma 0 a posteriori    :  0.50 um\n"},
               {9, -1.0, "A'Pv[0] is large: 6.0e-12\n\nNumber of A'Pv-values > limit : 1\n\n"},
               {9, 9.0, "A'Pv limit:  1.0e-12\n\nNumber of A'Pv-values > limit : 0\n"},
               {1, 5.0,
                "Redundancy              :  0\nvtpv                    :  2.00e-12\n"
                "Sigma 0 a posteriori    :  undefined, no redundancy!\n"}};
  for (const auto& c : cases) {
    start_with(c.constraints, c.start);
    EXPECT_THAT(iterate(1), HasSubstr(c.expected));
    EXPECT_DOUBLE_EQ(spring.x, 2.0);
  }
  // Only a wrong count makes the redundancy negative where the equations can be solved.
  start_with(-1, 5.0);
  EXPECT_THAT(iterate(-1), testing::EndsWith("*** ERROR: Negative redundancy.\n"));
  EXPECT_EQ(spring.x, 5.0) << "corrections of a failed iteration are not applied";
}

TEST_F(IterationTest, SingularInfiniteAndNoEquations) {
  Spring good(1.0);
  Spring loose(1.0);
  loose.pull = 0.0;
  project_.unknowns.add(good);
  project_.unknowns.add(loose);
  EXPECT_THAT(iterate(-1), testing::EndsWith("*** ERROR: Solving of normal equations failed.\n"));
  EXPECT_EQ(output_,
            "ERROR: Cholesky decomposition failed.\n"
            "ATTENTION: BMatrix is >>> not <<< positive definite at row/column 1\n");
  loose.pull = 1.0;
  loose.target = std::numeric_limits<double>::quiet_NaN();
  EXPECT_THAT(iterate(1), HasSubstr("Number of iterations: 1\n"))
      << "a correction that is no number exceeds no limit";
  project_.unknowns = AdjObjectList();
  project_.options.matrix_file = dir_.path("matrix");
  project_.options.solution_file = dir_.path("no/such/directory");
  EXPECT_THAT(iterate(1), HasSubstr("Number of unknowns      :  0"));
  EXPECT_EQ(dir_.read("matrix"), "0 0\n");
  EXPECT_EQ(output_, "ERROR: Cannot write  solution vector file.\n");
}

struct Item {
  std::string id;
  int serial;
};

// Random operations on a list and on a plain vector, where serial -1 stands for an emptied slot and
// a linear scan tells what the list must find.
void run_random_operations(std::uint64_t seed, std::size_t num_ids, int steps) {
  test::Noise noise(seed);
  OwnedList<Item> list;
  std::vector<Item> model;
  // Identifiers around the length at which hashing changes its step, and the empty one.
  const auto random_id = [&] {
    return std::string(noise.below(2) * 7, 'i') +
           std::to_string(noise.below(num_ids)).substr(noise.below(2));
  };
  for (int step = 0; step < steps; ++step) {
    const std::string id = random_id();
    const std::int32_t slot = list.slot_of(id);
    const std::size_t choice = noise.below(10);
    if (choice < 5 || slot == OwnedList<Item>::kNone) {
      list.append(std::make_unique<Item>(Item{id, step}));
      model.push_back({id, step});
    } else if (choice < 7) {
      list.replace(slot, std::make_unique<Item>(Item{id, step}));
      model[static_cast<std::size_t>(slot)].serial = step;
    } else {
      // Any slot, also one that is not the first of its identifier.
      const std::size_t any = noise.below(model.size());
      if (model[any].serial < 0) continue;
      ASSERT_EQ(list.take_out(static_cast<std::int32_t>(any))->serial, model[any].serial);
      model[any].serial = -1;
    }
    for (const std::string& wanted : {id, random_id()}) {
      const auto found = std::find_if(model.begin(), model.end(), [&](const Item& item) {
        return item.serial >= 0 && item.id == wanted;
      });
      const bool none = found == model.end();
      ASSERT_EQ(list.slot_of(wanted), none ? OwnedList<Item>::kNone : found - model.begin());
      ASSERT_EQ(list.find(wanted) == nullptr, none);
      ASSERT_TRUE(none || list.find(wanted)->serial == found->serial);
    }
  }
  std::erase_if(model, [](const Item& item) { return item.serial < 0; });
  std::size_t walked = 0;
  for (const Item& item : list) ASSERT_EQ(item.serial, model.at(walked++).serial);
  EXPECT_EQ(walked, model.size());
  EXPECT_EQ(list.count(), static_cast<std::int32_t>(walked));
  list.clear();
  EXPECT_TRUE(list.find("1") == nullptr && list.count() + list.num_slots() == 0);
}

TEST(OwnedList, FindsWhatALinearScanFinds) {
  for (std::uint64_t seed = 0; seed < 40; ++seed) {
    SCOPED_TRACE(seed);
    ASSERT_NO_FATAL_FAILURE(run_random_operations(seed, seed % 4 < 2 ? 8 : 400, 1200));
  }
}

}  // namespace
}  // namespace vorn
