// The iteration loop with objects that bring their own equations, and the intersection of points.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <string>

#include "driver/bundle_project.h"
#include "geometry/eo_file.h"
#include "support/bundle_run.h"
#include "support/ls_params_guard.h"
#include "support/temp_dir.h"

namespace vorn {
namespace {

// One free parameter x with one equation: `pull` times the way to the target. Newton's method for
// x^3 = target when `cubic`.
class Spring : public AdjObject {
 public:
  explicit Spring(double wanted, bool is_cubic = false) : target(wanted), cubic(is_cubic) {}

  void init_params() override {
    alloc_params(1);
    set_param(0, x, std_dev);
  }
  std::int32_t get_num_constraints() const override { return num_constraints; }
  void add_constraints(NormalMatrix& normal, Vector& rhs, double& lPl) const override {
    const double a = cubic ? 3 * x * x : 1.0;
    const double l = target - (cubic ? x * x * x : x);
    normal.add(index, index, pull * a * a);
    rhs[index] += pull * a * l;
    lPl += pull * l * l;
  }
  std::int32_t check_convergence(const Vector& corrections) const override {
    return std::fabs(corrections[index]) > 1e-6 ? 0 : -1;
  }

  double target;
  bool cubic;
  double x = 1.0;
  double std_dev = 1e31;
  double pull = 1.0;
  std::int32_t num_constraints = 1;
};

class IterationTest : public testing::Test {
 protected:
  void add(Spring& spring, const char* id) {
    spring.id = id;
    project_.unknowns.add(spring);
  }
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

  test::LSParamsGuard guard_;
  test::TempDir dir_;
  BundleProject project_;
  std::string output_;
};

TEST_F(IterationTest, ReportsEveryStep) {
  Spring a(3.0);
  Spring b(-2.0);
  b.num_constraints = 2;
  add(a, "a");
  add(b, "b");
  project_.options.print_object_coords = project_.options.print_ap_sets = true;
  project_.options.structure_file = dir_.path("structure");
  project_.options.matrix_file = dir_.path("matrix");
  project_.options.rhs_file = dir_.path("rhs");
  project_.options.solution_file = dir_.path("no/such/directory");
  const std::string counts =
      "Average change of unknown parameters\n"
      " - object point coords.             :      ---   \n"
      " - perspective centre coords.       :      ---   \n"
      " - rotation parameters              :      ---   \n"
      " - geometry parameters              :      ---   \n"
      "Number of observations  :  0\n"
      "Number of unknowns      :  2 (thereof: 0 obs. 0 elim.)\n"
      "Number of constraints   :  3\n"
      "Redundancy              :  1\n"
      "vtpv                    :  0.00e+00\n"
      "Sigma 0 a posteriori    :  undefined, no redundancy!\n\n"
      "Elapsed cpu time per iteration: T s, solution only: T s\n\n";
  const std::string points = "Object point coordinates\n------------------------\n\n\n";
  EXPECT_EQ(iterate(1),
            "*** Start iteration loop\n\n"
            "Iteration number   1\n--------------------\n\n" +
                points + counts + "Iteration number   2\n--------------------\n\n" + points +
                counts +
                "\n*** Iteration criterion limit has been reached.\n"
                "\nNumber of iterations: 2\n"
                "Total cpu time for iterations : T s\n\n"
                "Check adjustment on A'Pv = 0\n"
                "----------------------------\n"
                "A'Pv limit:  1.0e-04\n"
                "\nNumber of A'Pv-values > limit : 0\n\n");
  EXPECT_EQ(output_,
            "Convergence check failed at\n"
            "  ID        : a\n"
            "  Type      : undefined\n"
            "  Parameter : x[0]\n\n"
            "ERROR: Cannot write  solution vector file.\n");
  EXPECT_EQ(a.x, 3.0);
  EXPECT_EQ(dir_.read("structure"), "P1\n2 2\n\n1 0 \n0 1 \n");
  EXPECT_EQ(
      dir_.read("matrix"),
      "2 2\n1.000000000000e+00 0.000000000000e+00 \n0.000000000000e+00 1.000000000000e+00 \n");
  EXPECT_EQ(dir_.read("rhs"), "2\n0.000000000000e+00\n0.000000000000e+00\n");
}

TEST_F(IterationTest, EndsByCriterionOrByNumber) {
  struct Case {
    std::int32_t max;
    std::int32_t run;
    const char* verdict;
  };
  const char* const reached = "\n*** Iteration criterion limit has been reached.\n";
  const char* const maximum = "\n*** WARNING: Maximum number of iterations has been reached.\n";
  // The cube root of 2 from 1 takes five steps to 1e-6.
  const Case cases[] = {{10, 5, reached}, {6, 5, reached}, {5, 5, maximum},
                        {4, 4, maximum},  {0, 0, maximum}, {-3, 0, maximum}};
  for (const Case& c : cases) {
    ls_params().max_iterations = c.max;
    Spring cubic(2.0, true);
    project_.unknowns = AdjObjectList();
    add(cubic, "c");
    project_.options.solution_file = dir_.path("solution");
    const std::string report = iterate(1);
    EXPECT_NE(report.find(c.verdict + ("\nNumber of iterations: " + std::to_string(c.run)) + '\n'),
              std::string::npos)
        << c.max << report;
    EXPECT_EQ(project_.num_iterations, c.run);
    EXPECT_EQ(report.find("Iteration number   " + std::to_string(c.run + 1)), std::string::npos);
    if (c.run == 0) {
      EXPECT_EQ(cubic.x, 1.0);
      EXPECT_EQ(dir_.read("solution"), "1\n0.000000000000e+00\n");
    }
  }
}

TEST_F(IterationTest, StatisticsFollowRedundancy) {
  // Two conditions on one unknown, 1 and 3 apart: v'Pv = 2 x 1.
  Spring spring(2.0);
  class Pair : public Spring {
   public:
    using Spring::Spring;
    void add_constraints(NormalMatrix& normal, Vector& rhs, double& lPl) const override {
      for (const double t : {target - 1.0, target + 1.0}) {
        normal.add(index, index, 1e-12);
        rhs[index] += 1e-12 * (t - x);
        lPl += 1e-12 * (t - x) * (t - x);
      }
    }
  } pair(2.0);
  pair.num_constraints = 9;
  pair.x = -1.0;
  add(pair, "p");
  ls_params().max_iterations = 1;
  std::string report = iterate(1);
  EXPECT_NE(report.find("Redundancy              :  8\nvtpv                    :  2.00e-12\n"
                        "Sigma 0 a posteriori    :  0.50 um\n"),
            std::string::npos)
      << report;
  // The right-hand side of the only iteration was not zero; its comparison is signed.
  ls_params().apv_limit = 1e-12;
  pair.x = -1.0;
  report = iterate(1);
  EXPECT_NE(report.find("A'Pv limit:  1.0e-12\nA'Pv[0] is large: 6.0e-12\n\n"
                        "Number of A'Pv-values > limit : 1\n\n"),
            std::string::npos)
      << report;
  pair.x = 9.0;
  report = iterate(1);
  EXPECT_NE(report.find("A'Pv limit:  1.0e-12\n\nNumber of A'Pv-values > limit : 0\n"),
            std::string::npos)
      << report;

  spring.num_constraints = -9;
  add(spring, "s");
  report = iterate(-1);
  EXPECT_TRUE(report.ends_with(":      ---   \n*** ERROR: Negative redundancy.\n")) << report;
  EXPECT_EQ(spring.x, 1.0) << "corrections of a failed iteration are not applied";
}

TEST_F(IterationTest, SingularAndInfiniteEquations) {
  Spring good(1.0);
  Spring loose(1.0);
  loose.pull = 0.0;
  add(good, "g");
  add(loose, "l");
  const std::string report = iterate(-1);
  EXPECT_EQ(report,
            "*** Start iteration loop\n\nIteration number   1\n--------------------\n\n"
            "*** ERROR: Solving of normal equations failed.\n");
  EXPECT_EQ(output_,
            "ERROR: Cholesky decomposition failed.\n"
            "ATTENTION: BMatrix is >>> not <<< positive definite at row/column 1\n");
  loose.pull = 1.0;
  loose.target = std::numeric_limits<double>::quiet_NaN();
  EXPECT_NE(iterate(1).find("Number of iterations: 1\n"), std::string::npos)
      << "a correction that is no number exceeds no limit";
  project_.unknowns = AdjObjectList();
  EXPECT_NE(iterate(1).find("Number of unknowns      :  0"), std::string::npos);
}

TEST_F(IterationTest, IntersectsMissingPoints) {
  TokenReader cameras("camera-frame k - 100 0 0 200 200");
  TokenReader geometries(
      "common-type ext-ori-opk-rot rad 0 0 1 1 1 1 1 1 L 0 0 15 0 0 0 R 4 0 15 0 0 0 S 8 0 15 0 0 "
      "0");
  TokenReader images("image-frame l L k image-frame r R k image-frame s S k");
  // "far" has parallel rays in l and r, "skew" rays that pass at a distance, "once" a single ray.
  TokenReader coords(
      "l .001 far 10 0 1 1 skew 20 1 1 1 once 0 0 1 1 -1 "
      "r .001 far 10 0 1 1 skew -20 -1 1 1 -1 s .001 far -70 0 1 1");
  read_camera_file(cameras, project_.cameras);
  read_eo_file(geometries, project_.image_geometries);
  read_image_file(images, project_.images, project_.cameras);
  read_image_crds_file(coords, project_.images);
  TokenReader known("common-sdev 1 1 1 known 5 6 7");
  read_obj_crds(known, project_.object_points);
  for (BundleImage& image : project_.images)
    ASSERT_TRUE(image.attach_geometry(project_.image_geometries));
  for (ImageGeometry& geometry : project_.image_geometries) geometry.update();

  EXPECT_EQ(project_.check_approximations(nullptr), 1);
  std::string output;
  const std::string errors = test::captured_errors([&] {
    output = test::written_text(
        [&](TextWriter& out) { EXPECT_EQ(project_.intersect_approximations(&out, true), 1); });
  });
  EXPECT_EQ(errors, "DEP::intersection: rays are parallel.\n");
  EXPECT_EQ(output, R"(Calculate object point approximations
=====================================
(By spatial intersection)

                             X/m            Y/m            Z/m         e/m

Point: far by            l            r            s [3]
             l -            r
                             0.000          0.000          0.000       0.000
             l -            s
                             1.000          0.000          5.000       0.000
             r -            s
                             4.500          0.000         10.000       0.000
            average :        1.833          0.000          5.000       0.000
Point: skew by            l            r [2]
             l -            r
                             2.000          0.000          5.025       0.200
            average :        2.000          0.000          5.025       0.200
Point: once by            l [1]
ATTENTION: Too few rays to compute object coordinates.
Number of intersection points : 2
Total average distance of rays: e_mean =     0.100 m

)");
  EXPECT_FALSE(project_.object_points.find("once")->has_coords);
  EXPECT_TRUE(project_.object_points.find("far")->has_coords);
  EXPECT_EQ(project_.object_points.find("known")->xyz, (Vec3{5, 6, 7}));

  output =
      test::written_text([&](TextWriter& out) { project_.intersect_approximations(&out, true); });
  EXPECT_EQ(output.substr(output.find("Number of inter")),
            "Number of intersection points : 0\nTotal average distance of rays: e_mean =    ---    "
            "m\n\n");
  EXPECT_EQ(test::captured_output([&] { project_.intersect_approximations(nullptr, true); }),
            "ATTENTION: Too few rays to compute object coordinates.\n");
}

}  // namespace
}  // namespace vorn
