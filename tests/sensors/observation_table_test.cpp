// The table of observations against the images that add theirs one after the other.

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

#include "driver/bundle_project.h"
#include "driver/run.h"
#include "geometry/ext_orientation.h"
#include "geometry/linear_geometries.h"
#include "lsq/stages/normal_equations.h"
#include "support/captured_output.h"
#include "support/project_test.h"

namespace vorn {
namespace {

// What one of the two ways makes of the observations.
struct Sums {
  Matrix normal;
  Vector rhs;
  double lPl = 0.0;
  std::int32_t count = 0;
  bool added = false;
  std::string output;
};

template <class Add>
Sums sums_of(NormalMatrix& normal, Add add) {
  Sums sums;
  sums.rhs.resize(normal.size());
  sums.rhs.zero();
  sums.output = test::captured_output([&] { sums.added = add(sums); });
  sums.normal.resize(normal.size(), normal.size());
  for (std::int32_t i = 0; i < normal.size(); ++i) {
    for (std::int32_t j = i; j < normal.size(); ++j) sums.normal[i][j] = normal.at(i, j);
  }
  return sums;
}

Sums by_table(BundleProject& p) {
  p.normal.store_couplings();
  p.observations.set_up(p.images, p.object_points, p.settings.derivatives(), p.normal);
  return sums_of(p.normal,
                 [&p](Sums& s) { return p.observations.add(p.normal, s.rhs, s.lPl, s.count); });
}

Sums by_images(BundleProject& p) {
  ObservationTable none;
  return sums_of(p.normal, [&](Sums& s) {
    return add_all_observations(p, p.settings.derivatives(), none, p.normal, s.rhs, s.lPl,
                                s.count) == 1;
  });
}

void expect_same(const Sums& a, const Sums& b) {
  EXPECT_TRUE(a.added && b.added);
  EXPECT_EQ(a.count, b.count);
  EXPECT_EQ(a.output, b.output);
  EXPECT_NEAR(a.lPl, b.lPl, 1e-12 * b.lPl);
  for (std::int32_t i = 0; i < b.rhs.size(); ++i) {
    EXPECT_NEAR(a.rhs[i], b.rhs[i], 1e-12 * std::sqrt(b.normal[i][i] * b.lPl)) << i;
    for (std::int32_t j = i; j < b.rhs.size(); ++j) {
      const double scale = std::sqrt(b.normal[i][i] * b.normal[j][j]);
      EXPECT_NEAR(a.normal[i][j], b.normal[i][j], 1e-12 * scale) << i << ' ' << j;
    }
  }
}

// All types of cameras and sets, too many unknowns for the dense routines, and a number of points
// that no batch or pack divides; with corrections, which linear geometries do not take, or with all
// types of geometries.
class ObservationTableTest : public test::ProjectTest, public testing::WithParamInterface<bool> {
 protected:
  ObservationTableTest()
      : ProjectTest({.cameras = {"camera-frame", "camera-ccd", "camera-ccd-tr", "camera-pushbroom"},
                     .orientations = {"ext-ori-opk-rot", "ext-ori-quaternion", "ext-ori-pok-rot",
                                      "ext-ori-australis", "ext-ori-opk-fix",
                                      GetParam() ? "ext-ori-opk-rot" : "dlt",
                                      GetParam() ? "ext-ori-pok-rot" : "pmf-linear"},
                     .ap_sets = {"gap", "p12", "p44", "in-plane-dist", "radial-dist", "australis",
                                 "inner-or", "decentering-dist", "out-of-plane-dist"},
                     .images = 21,
                     .points = 101,
                     .triples = GetParam() ? std::size_t{2} : 0}) {}

  template <class Check>
  void after_run(Check check) {
    bool checked = false;
    run_project({.path = control_file_, .inspect = [&](const BundleProject& project) {
                   ASSERT_FALSE(project.observations.is_empty());
                   // The project itself is not constant.
                   check(const_cast<BundleProject&>(project));
                   checked = true;
                 }});
    EXPECT_TRUE(checked) << dir_.read("project.out");
  }
};

// Distortions that bend the image by some per cent.
void distort(BundleProject& p) {
  for (APSet& set : p.ap_sets) {
    for (std::int32_t k = 0; k < set.num_ap(); ++k) set.value(k) *= 30.0;
  }
}

// Compares the columns of some parameters with difference quotients of the misclosure, which falls
// as the computed image point moves. Steps move the image point by some 10 nm.
class DifferenceQuotients {
 public:
  DifferenceQuotients(const BundleImage& image, const ImagePoint& point, const ObjectPoint& object)
      : image_(image), object_(object), observed_(observation_of(point, *image.camera).xy) {}

  void expect(const double* x, const double* y, const AdjObject& of) const {
    SCOPED_TRACE(std::string(of.get_type_name()) + " and " +
                 std::string(image_.geometry->get_type_name()));
    for (std::int32_t k = 0; k < static_cast<std::int32_t>(of.num_params()); ++k) {
      double& value = *of.param(k).value;
      const double kept = value;
      const double size = std::hypot(x[k], y[k]);
      const double h = size > 0.0 ? 1e-8 / size : 1e-6;
      value = kept + h;
      const Pair after = misclosure();
      value = kept - h;
      const Pair before = misclosure();
      value = kept;
      for (const std::size_t i : {0U, 1U}) {
        EXPECT_NEAR((before[i] - after[i]) / ((kept + h) - (kept - h)), (i == 0 ? x : y)[k],
                    2e-6 * size)
            << "parameter " << k << ", row " << i;
      }
    }
    image_.geometry->update();
  }

 private:
  Pair misclosure() const {
    image_.geometry->update();
    return misclosure_of(observed_, image_.object_to_image(object_.xyz));
  }

  const BundleImage& image_;
  const ObjectPoint& object_;
  Pair observed_;
};

// All models of parameters, cameras, geometries and corrections: measured minus computed, derived
// with respect to everything.
TEST_P(ObservationTableTest, ExactDerivativesAreThoseOfTheObservationEquation) {
  after_run([](BundleProject& p) {
    distort(p);
    int checked = 0;
    EXPECT_TRUE(
        for_each_equation(p.images, p.object_points, Derivatives::exact,
                          [&](const BundleImage& image, const ImagePoint& point,
                              const ObjectPoint& object_point, const PointEquation& equation) {
                            if (image.index_of_point(point.id) % 25 != 0) return;
                            const DifferenceQuotients quotients(image, point, object_point);
                            quotients.expect(equation.point, equation.point + 3, object_point);
                            const double* x = equation.rows.data();
                            for (const AdjObject* object : objects_of(image)) {
                              quotients.expect(x, x + equation.stride, *object);
                              x += object->num_params();
                              ++checked;
                            }
                          }));
    EXPECT_GT(checked, 300);
  });
}

TEST_P(ObservationTableTest, AddsWhatTheImagesAdd) {
  after_run([](BundleProject& p) {
    expect_same(by_table(p), by_images(p));
    distort(p);
    p.settings.rigorous = true;
    expect_same(by_table(p), by_images(p));
    p.settings.rigorous = false;
    ImagePoint& lost = *p.images[1]->points[3];
    lost.object_point = nullptr;
    lost.id = "lost";
    const Sums sums = by_table(p);
    EXPECT_EQ(sums.output, "ATTENTION: Object point lost not found.\n");
    expect_same(sums, by_images(p));
  });
}

// Products of couplings that are formed again with a vector, and solutions with them, are those
// with couplings that are stored, but for rounding.
TEST_P(ObservationTableTest, FormsCouplingsAgain) {
  after_run([](BundleProject& p) {
    // Linear geometries take no packs.
    ASSERT_EQ(takes_packs(*p.images[5]), GetParam());
    if (!GetParam()) return;
    Vector x(p.normal.size());
    for (std::int32_t i = 0; i < x.size(); ++i) x[i] = std::sin(i + 1.0);
    const std::size_t num_points = p.normal.point_order().size();
    const std::int32_t formed_row = 3 * p.normal.point_order().back();
    const std::int32_t formed_column =
        p.normal.block_index(p.normal.blocks_of(p.normal.point_order().back()).front().block);
    const auto products_of_all = [&] {
      std::vector<double> products;
      Couplings couplings = p.normal.couplings();
      for (std::size_t k = 0; k < num_points; ++k) {
        const double* const product =
            couplings.multiply(k / kBatchPoints, x) + 3 * (k % kBatchPoints);
        products.insert(products.end(), product, product + 3);
      }
      return products;
    };
    const auto solve = [&](Vector& solution) {
      std::int32_t count = 0;
      ASSERT_EQ(form_normal_equations(p, p.settings.derivatives(), p.observations, p.normal, p.rhs,
                                      p.lPl, count),
                1);
      AdjInterfaceNative solver(AdjInterfaceNative::Method::eliminate);
      Vector diagonal;
      ASSERT_EQ(solver.solve(p.normal, p.rhs, solution, diagonal), 0);
    };
    for (const bool rigorous : {false, true}) {
      p.settings.rigorous = rigorous;
      ASSERT_TRUE(p.normal.set_structure(find_structure(p), NormalMatrix::PointCouplings::formed));
      p.observations.set_up(p.images, p.object_points, p.settings.derivatives(), p.normal);
      const std::vector<double> formed = products_of_all();
      EXPECT_THROW((void)p.normal.at(formed_row, formed_column), std::logic_error);
      Vector by_formed, by_stored;
      solve(by_formed);
      EXPECT_FALSE(p.normal.stores_couplings());
      p.normal.store_couplings();
      solve(by_stored);
      for (std::int32_t i = 0; i < x.size(); ++i) {
        EXPECT_NEAR(by_formed[i], by_stored[i], 1e-9 * std::abs(by_stored[i]) + 1e-15) << i;
      }
      EXPECT_TRUE(by_table(p).added);
      const std::vector<double> stored = products_of_all();
      double largest = 0.0;
      for (const double product : stored) largest = std::max(largest, std::abs(product));
      for (std::size_t k = 0; k < 3 * num_points; ++k) {
        EXPECT_NEAR(formed[k], stored[k], 1e-12 * largest) << k;
      }
    }
  });
}

TEST_P(ObservationTableTest, LeavesFailuresToTheImages) {
  after_run([](BundleProject& p) {
    const auto expect_failure = [&p](const char* message) {
      const Sums table = by_table(p);
      EXPECT_FALSE(table.added);
      EXPECT_EQ(table.output, "");
      const Sums images = by_images(p);
      EXPECT_FALSE(images.added);
      EXPECT_EQ(images.output, message);
    };
    for (const double sy : {0.0, 1e200}) {
      p.images[20]->points[7]->sy = sy;
      expect_failure("ERROR: Decomposition of weight matrix failed.\n");
    }
    if (auto* const transformation = dynamic_cast<DirectLinearTransf*>(p.images[5]->geometry)) {
      p.images[5]->points[7]->object_point->xyz = {1.0, 0.0, 0.0};
      transformation->value(8) = -1.0;
      EXPECT_EQ(test::captured_errors([&p] { EXPECT_FALSE(by_table(p).added); }), "");
    }
    const auto& station = dynamic_cast<const ExtOrientation&>(*p.images[0]->geometry);
    p.images[0]->points[7]->object_point->xyz = station.projection_centre();
    expect_failure("ERROR: ExtOrientation::get_derivs: Zero denominator.\n");
  });
}

INSTANTIATE_TEST_SUITE_P(WithCorrections, ObservationTableTest, testing::Bool());

}  // namespace
}  // namespace vorn
