// Rotations and image geometries at their limits, and their derivatives; whole runs show the usual.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <iterator>
#include <limits>
#include <numbers>
#include <sstream>
#include <string>
#include <vector>

#include "calibration/corrections.h"
#include "geometry/eo_angles.h"
#include "geometry/eo_file.h"
#include "geometry/eo_quaternion.h"
#include "geometry/ext_orientation.h"
#include "geometry/image_geometry.h"
#include "geometry/linear_geometries.h"
#include "geometry/rotations.h"
#include "lsq/ls_params.h"
#include "lsq/normal/normal_matrix.h"
#include "support/captured_output.h"

namespace vorn {
namespace {

using test::captured_errors;
using test::captured_output;

constexpr double kPi = std::numbers::pi;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr Vec3 kAngles[] = {{0.1, -0.2, 0.3}, {3.1, 1.5, -3.1}, {-2, -1.2, 1.8}, {0.2, 0.1, kPi}};

// Every type converts the matrix of a record and gets back the same R.
TEST(Rotations, MatricesAreConvertedByTheTypeOfTheFile) {
  for (const Vec3& angles : kAngles) {
    const Mat3 r = opk_rot::matrix_from_params(angles);
    for (const std::string keyword : {"ext-ori-pok-rot", "ext-ori-opk-rot", "ext-ori-opk-fix",
                                      "ext-ori-australis", "ext-ori-quaternion"}) {
      SCOPED_TRACE(keyword);
      std::ostringstream text;
      text << "common-type " << keyword << " deg 0 1 1 1 1 4 5 6 a 1 2 3" << std::setprecision(17);
      for (std::size_t i = 0; i < 9; ++i) text << ' ' << r[i / 3][i % 3];
      const std::string file = text.str();
      TokenReader in(file);
      OwnedList<ImageGeometry> geometries;
      ASSERT_EQ(read_eo_file(in, geometries), 1);
      auto& orientation = dynamic_cast<ExtOrientation&>(*geometries[0]);
      orientation.update();
      for (std::size_t i = 0; i < 9; ++i) {
        EXPECT_NEAR(orientation.rotation_matrix()[i / 3][i % 3], r[i / 3][i % 3], 1e-12);
      }
      for (std::int32_t k = 3; k < orientation.num_values(); ++k) {
        EXPECT_DOUBLE_EQ(orientation.std_dev(k), std::min(k + 1, 6) * kPi / 180);
      }
    }
  }
}

TEST(Rotations, QuaternionOfHalfTurns) {
  // The last one about (2, 1, 2)/3.
  for (const quaternion::Params& q : {quaternion::Params{1, 0, 0, 0},
                                      {0, 1, 0, 0},
                                      {0, 0, 1, 0},
                                      {0, 0, 0, 1},
                                      {0, 2. / 3, 1. / 3, 2. / 3}}) {
    const quaternion::Params recovered =
        quaternion::params_from_matrix(quaternion::matrix_from_params(q));
    for (std::size_t k = 0; k < 4; ++k) EXPECT_NEAR(recovered[k], q[k], 1e-15);
  }
  // About an axis within a coordinate plane the one product that is left meets a zero square root.
  EXPECT_TRUE(std::isnan(quaternion::params_from_matrix({{{0, 1, 0}, {1, 0, 0}, {0, 0, -1}}})[1]));
}

// A geometry read from a record without its type keyword, ready to project.
template <class Geometry, class... Arguments>
std::unique_ptr<Geometry> from_record(std::string_view record, const Arguments&... arguments) {
  auto geometry = std::make_unique<Geometry>(arguments...);
  TokenReader in(record);
  EXPECT_EQ(geometry->read(in), 1) << record;
  geometry->update();
  return geometry;
}

// An orientation without rotation at a given place.
std::unique_ptr<EOAngles> upright(const std::string& centre) {
  return from_record<EOAngles>("i rad 0 " + centre + " 1 1 1 0 0 0 1 1 1", kAnglesPOKRot);
}

TEST(ImageGeometry, ZeroDenominators) {
  const auto orientation = upright("0 0 100");
  const auto dlt =
      from_record<DirectLinearTransf>("d 0 1 1 2 1 3 1 4 1 5 1 6 1 7 1 8 1 0 1 0 1 -1 1");
  Vec3 image = {0, 0, -0.1};
  Vec3 image_dlt{};
  PointDerivs derivs;
  std::string output;
  EXPECT_EQ(captured_errors([&] {
              output = captured_output([&] {
                EXPECT_TRUE(orientation->projection({5, 0, 100}, image));
                EXPECT_FALSE(orientation->get_derivs({0, 0, -0.1}, {5, 0, 100}, derivs));
                EXPECT_TRUE(dlt->projection({0, 0, 1}, image_dlt));
                EXPECT_TRUE(dlt->get_derivs(image_dlt, {0, 0, 1}, derivs));
              });
            }),
            "DEP::projection: zero denominator.\nDEP::projection: zero denominator.\n"
            "DirectLinearTransf::get_derivs: zero denominator.\n");
  EXPECT_EQ(output, "ERROR: ExtOrientation::get_derivs: Zero denominator.\n");
  EXPECT_TRUE(std::isinf(image[0]) && std::isnan(image[1]));
  EXPECT_TRUE(std::isinf(image_dlt[0]) && std::isinf(image_dlt[1]));
}

TEST(ImageGeometry, IntersectionOfRays) {
  const struct {
    const char* other_centre;
    Vec3 image_this, image_other, point;
    double gap;
  } cases[] = {
      {"10 0 0", {0, 0, -1}, {-1, 0, -1}, {0, 0, -10}, 0},    // meeting
      {"10 4 0", {1, 0, -1}, {-1, 0, -1}, {5, 2, -5}, 4},     // skew
      {"10 0 0", {-1, 0, -1}, {1, 0, -1}, {5, 0, 5}, 0},      // behind both
      {"10 0 0", {2, 0, -2}, {-0.1, 0, -0.1}, {5, 0, -5}, 0}  // lengths do not matter
  };
  const auto orientation = upright("0 0 0");
  for (const auto& c : cases) {
    Vec3 point{};
    double gap = -1;
    EXPECT_TRUE(orientation->intersection(*upright(c.other_centre), c.image_this, c.image_other,
                                          point, gap));
    for (std::size_t k = 0; k < 3; ++k) EXPECT_NEAR(point[k], c.point[k], 1e-14);
    EXPECT_NEAR(gap, c.gap, 1e-14);
  }
  const auto pmf = from_record<PMFLinear>("p 0 1 1 2 1 3 1 4 1 5 1 6 1 7 1 8 1");
  const auto other = from_record<PMFLinear>("q 0 -1 1 1 1 0 1 2 1 3 1 -4 1 2 1 1 1");
  const Vec3 truth = {3, -2, 7};
  Vec3 image{};
  Vec3 image_other{};
  EXPECT_TRUE(pmf->projection(truth, image));
  EXPECT_TRUE(other->projection(truth, image_other));
  Vec3 point{};
  double gap = -1;
  EXPECT_TRUE(pmf->intersection(*other, image, image_other, point, gap));
  for (std::size_t k = 0; k < 3; ++k) EXPECT_NEAR(point[k], truth[k], 1e-10);
  EXPECT_EQ(gap, -1);
}

TEST(ImageGeometry, IntersectionsThatFail) {
  const auto orientation = upright("0 0 0");
  const auto shifted = upright("10 0 0");
  const auto singular = from_record<PMFLinear>("p 0 1 1 1 1 0 1 0 1 5 1 0 1 1 1 0 1");
  const DirectLinearTransf dlt;
  const struct {
    const ImageGeometry &one, &other;
    const char *output, *errors;
  } cases[] = {
      {*orientation, *shifted, "", "DEP::intersection: rays are parallel.\n"},
      {*orientation, dlt, "", "ExtOrientation::intersection: Incompatible image geometries!\n"},
      {dlt, dlt, "DirectLinearTransf::intersection: Not implemented yet!\n", ""},
      {dlt, *shifted, "", "DirectLinearTransf::intersection: Incompatible image geometries!\n"},
      {*singular, *singular, "ERROR: Decomposition of normal matrix failed.\n", ""},
      {*singular, dlt, "", "PMFLinear::intersection: Incompatible image geometries!\n"}};
  for (const auto& c : cases) {
    Vec3 point = {1, 2, 3};
    double gap = 4;
    const Vec3 image = {0.3, 0.2, -1};
    std::string output;
    EXPECT_EQ(captured_errors([&] {
                output = captured_output(
                    [&] { EXPECT_FALSE(c.one.intersection(c.other, image, image, point, gap)); });
              }),
              c.errors);
    EXPECT_EQ(output, c.output);
    EXPECT_TRUE(gap == 4 && point == (Vec3{1, 2, 3}));
  }
}

TEST(ImageGeometry, ConvergenceByKindOfParameter) {
  const auto orientation = upright("0 0 0");
  const auto pmf = from_record<PMFLinear>("p 0 1 1 2 1 3 1 4 1 5 1 6 1 7 1 8 1");
  LSParams& settings = ls_params();
  settings.limit_position = 0.1;
  settings.limit_rotation = settings.limit_geometry = 0.01;
  const struct {
    bool position, rotation;
    std::vector<double> change;
    std::int32_t orientation, pmf;
  } cases[] = {{true, true, {0.1, -0.1, 0.1, 0.01, -0.01, 0.01}, -1, 0},  // limits themselves pass
               {true, true, {0, -0.2, 0, 0.02, 0, 0}, 1, 1},
               {false, true, {0, 0, 0, 0, -0.02, 0}, 4, 4},
               {true, false, {0, 0, 0, 0, 0, 1}, -1, 5},
               {true, true, {kNaN, kNaN, kNaN, kNaN, kNaN, 0.02}, 5, 5}};
  for (const auto& c : cases) {
    settings.check_position = c.position;
    settings.check_rotation = c.rotation;
    Vector corrections(10);
    corrections.zero();
    orientation->index = pmf->index = 2;
    for (std::int32_t k = 0; k < 6; ++k) corrections[2 + k] = c.change[static_cast<std::size_t>(k)];
    EXPECT_EQ(orientation->check_convergence(corrections), c.orientation);
    settings.check_geometry = true;
    EXPECT_EQ(pmf->check_convergence(corrections), c.pmf);
    settings.check_geometry = false;
    EXPECT_EQ(pmf->check_convergence(corrections), -1);
  }
}

// The condition at (q) pulls |q|^2 towards 1 with the weight of constraints.
TEST(ImageGeometry, QuaternionIsHeldAtUnitLength) {
  const auto orientation = from_record<EOQuaternion>("a 0 0 0 0 1 1 1 1 0.5 0 -0.25 1 1 1 1");
  orientation->index = 1;
  ls_params().weight_constraints = 16;
  NormalMatrix normal;
  normal.resize(8);
  normal.zero();
  Vector rhs(8);
  rhs.zero();
  double vtpv = 1;
  EXPECT_EQ(orientation->get_num_constraints(), 1);
  orientation->add_constraints(normal, rhs, vtpv);
  const double row[] = {0, 0, 0, 0, 2, 1, 0, -0.5};
  const double reduced = 1 - 1 - 0.25 - 0.0625;
  for (std::int32_t i = 0; i < 8; ++i) {
    EXPECT_EQ(rhs[i], row[i] * 16 * reduced);
    for (std::int32_t j = i; j < 8; ++j) EXPECT_EQ(normal.at(i, j), row[i] * 16 * row[j]);
  }
  EXPECT_EQ(vtpv, 1 + 16 * reduced * reduced);
}

// Analytic derivatives of every image geometry against central differences.

// Orientations above, beside and below the object, with small and with large angles.
const char* const kModels[] = {
    "ext-ori-pok-rot i deg 5 500 -900 800  1 1 1  130 -50 -160  1 1 1",
    "ext-ori-opk-rot i deg 5 500 -900 800  1 1 1  65 40 20  1 1 1",
    "ext-ori-opk-fix i rad 5 100 210 1500  1 1 1  0.15 0.25 -0.4  1 1 1",
    "ext-ori-australis i deg 5 300 -700 90  1 1 1  -20 12 85  1 1 1",
    "ext-ori-quaternion i 5 100 210 1500  1 1 1  0.9 0.1 -0.2 0.4  1 1 1 1",
    "dlt i 0 1e-4 1 2e-5 1 -1e-5 1 0.01 1 3e-5 1 -2e-4 1 5e-5 1 -0.02 1 1e-3 1 -2e-3 1 5e-4 1",
    "pmf-linear i 0 0.01 1 1e-4 1 2e-5 1 -1e-5 1 -0.02 1 3e-5 1 -2e-4 1 5e-5 1"};

constexpr Vec3 kPoints[] = {{180, 150, 20}, {-40, 260, -35}, {100, 210, 0}};
constexpr Vec3 kImage = {0, 0, -0.15};

// Compares the column of one variable with the difference quotient; the tolerance is relative to
// the column, above what rounding makes of zeros.
void expect_column(ImageGeometry& geometry, const Vec3& point, const Matrix& a, std::int32_t column,
                   double& variable) {
  const double kept = variable;
  const double h = 1e-6 * std::max(1e-2, std::abs(kept));
  Vec3 image[3] = {kImage, kImage, kImage};
  for (const int side : {0, 2, 1}) {
    variable = kept + (side - 1) * h;
    geometry.update();
    EXPECT_TRUE(geometry.projection(point, image[side]));
  }
  const double width = (kept + h) - (kept - h);
  const double size = std::max(std::abs(a[0][column]), std::abs(a[1][column]));
  for (const std::int32_t row : {0, 1}) {
    const auto k = static_cast<std::size_t>(row);
    EXPECT_NEAR((image[2][k] - image[0][k]) / width, a[row][column], 2e-6 * size + 1e-16 / width)
        << "row " << row << ", column " << column;
  }
}

void expect_block(ImageGeometry& geometry, const Vec3& point, const DesignBlock& block,
                  const AdjObject& object) {
  SCOPED_TRACE(object.get_type_name());
  EXPECT_EQ(block.index, object.index);
  ASSERT_EQ(block.a.cols(), static_cast<std::int32_t>(object.num_params()));
  for (std::int32_t k = 0; k < block.a.cols(); ++k) {
    expect_column(geometry, point, block.a, k, *object.param(k).value);
  }
}

// Records of results: coordinates and their standard deviations in the unit of object space, what
// is fixed or free by its own words, angles in their unit.
TEST(ExtOrientation, WritesWhatItReads) {
  OwnedList<ImageGeometry> list;
  TokenReader in(
      "indiv-type ext-ori-opk-rot E gon 2.5  1000 -2000 3000  20 1e-31 1e31  10 -20 30  "
      "0.001 0.001 1e31");
  ASSERT_EQ(read_eo_file(in, list), 1);
  const auto words = [&] {
    const std::string text = test::written_text([&](TextWriter& out) { list[0]->write(out); });
    std::istringstream stream(text);
    return std::vector<std::string>(std::istream_iterator<std::string>(stream), {});
  };
  const std::vector<std::string> metres = words();
  ASSERT_EQ(metres.size(), 16U) << testing::PrintToString(metres);
  ASSERT_TRUE(ls_params().unit_object.set("mm"));
  const std::vector<std::string> millimetres = words();
  for (std::size_t i = 0; i < metres.size(); ++i) {
    const bool scaled = i >= 4 && i < 8;  // three coordinates and the one that is observed
    if (scaled) {
      EXPECT_NEAR(std::stod(millimetres[i]) / std::stod(metres[i]), ls_params().unit_object.factor,
                  1e-9)
          << i;
    } else {
      EXPECT_EQ(millimetres[i], metres[i]) << i;
    }
  }
  EXPECT_EQ(std::stod(metres[4]), 1000.0);
  EXPECT_EQ(std::stod(metres[7]), 20.0);
  EXPECT_EQ(std::stod(metres[8]), 1e-31);
  EXPECT_EQ(std::stod(metres[9]), 1e31);
}

TEST(Derivatives, OfAllModels) {
  PosCorrection pos;
  AttCorrection att;
  TokenReader pos_record("stop-dep 2.5 3  9 1 -7 1 5 1  3 1 2 1 -4 1  -2 1 1 1 0.5 1");
  TokenReader att_record(
      "stop-dep 6.5 3  0.02 1 -0.03 1 0.01 1  0.01 1 0.01 1 -0.02 1  0.01 1 0.02 1 0.03 1");
  ASSERT_EQ(pos.read(pos_record) + att.read(att_record), 2);
  pos.init_params();
  att.init_params();
  pos.index = 40;
  att.index = 60;
  PointDerivs derivs;  // shared, so that each model finds the sizes of the one before
  for (const std::string model : kModels) {
    OwnedList<ImageGeometry> list;
    const std::string text = "indiv-type " + model;
    TokenReader in(text);
    ASSERT_EQ(read_eo_file(in, list), 1);
    ImageGeometry& geometry = *list[0];
    auto* const orientation = dynamic_cast<ExtOrientation*>(&geometry);
    const bool angles = orientation != nullptr && orientation->num_values() == 6;
    geometry.index = 30;
    geometry.init_params();
    for (const bool corrected : {false, true}) {
      SCOPED_TRACE(model + (corrected ? ", corrected" : ""));
      if (corrected && orientation != nullptr) {
        orientation->set_pos_correction(pos);
        orientation->set_att_correction(att);
      }
      EXPECT_EQ(geometry.has_pos_correction(), corrected && orientation != nullptr);
      EXPECT_EQ(geometry.has_att_correction(), corrected && angles);
      geometry.update();
      for (Vec3 point : kPoints) {
        ASSERT_TRUE(geometry.get_derivs(kImage, point, derivs));
        for (std::int32_t k = 0; k < 3; ++k) {
          expect_column(geometry, point, derivs.point.a, k, point[static_cast<std::size_t>(k)]);
        }
        expect_block(geometry, point, derivs.geometry, geometry);
        if (geometry.has_pos_correction()) expect_block(geometry, point, derivs.pos, pos);
        if (geometry.has_att_correction()) expect_block(geometry, point, derivs.att, att);
        EXPECT_TRUE(derivs.b[0][0] == 1 && derivs.b[0][1] == 0);
        EXPECT_TRUE(derivs.b[1][0] == 0 && derivs.b[1][1] == 1);
      }
    }
  }
}

}  // namespace
}  // namespace vorn
