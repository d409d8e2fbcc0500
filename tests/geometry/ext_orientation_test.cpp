#include "geometry/ext_orientation.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>

#include "calibration/corrections.h"
#include "geometry/eo_angles.h"
#include "geometry/eo_quaternion.h"
#include "geometry/linear_geometries.h"
#include "geometry_support.h"
#include "lsq/normal_matrix.h"
#include "support/captured_output.h"

namespace vorn {
namespace {

using test::captured_errors;
using test::captured_output;
using test::from_record;
using test::GeometryTest;
using test::written_text;

// An orientation without rotation at a given place.
std::unique_ptr<EOAnglesPOKRot> upright(const std::string& centre) {
  return from_record<EOAnglesPOKRot>("i rad 0 " + centre + " 1 1 1 0 0 0 1 1 1");
}

// Every point of the ray Xo + s R p has the image p.
TEST_F(GeometryTest, ProjectionInvertsTheRay) {
  const std::unique_ptr<ExtOrientation> orientations[] = {
      from_record<EOAnglesPOKRot>("a deg 0 1 2 3 1 1 1 20 -30 140 1 1 1"),
      from_record<EOAnglesOPKRot>("b gon 0 -5e5 5e6 900 1 1 1 -9 8 170 1 1 1"),
      from_record<EOAnglesOPKFix>("c rad 0 1 2 3 1 1 1 1.1 -0.3 2 1 1 1"),
      from_record<EOAustralis>("d deg 0 1 2 3 1 1 1 -120 10 3 1 1 1"),
      from_record<EOQuaternion>("e 0 1 2 3 1 1 1 0.5 -1.5 0.25 1 1 1 1 1"),
  };
  for (const auto& orientation : orientations) {
    SCOPED_TRACE(orientation->get_type_name());
    const Vec3 p = {0.031, -0.047, -0.152};
    const Vec3 ray = orientation->rotation_matrix() * p;
    for (const double s : {3.0, 4000.0}) {
      Vec3 image = {7, 7, p[2]};
      EXPECT_TRUE(orientation->projection(orientation->projection_centre() + s * ray, image));
      EXPECT_NEAR(image[0], p[0], 1e-9);
      EXPECT_NEAR(image[1], p[1], 1e-9);
      EXPECT_EQ(image[2], p[2]);
    }
  }
}

TEST_F(GeometryTest, PointAtTheHeightOfTheCentre) {
  const auto orientation = upright("0 0 100");
  Vec3 image = {0, 0, -0.1};
  EXPECT_EQ(captured_errors([&] {
              EXPECT_TRUE(orientation->projection({5, 0, 100}, image));
            }),
            "DEP::projection: zero denominator.\n");
  EXPECT_TRUE(std::isinf(image[0]));
  EXPECT_TRUE(std::isnan(image[1]));
  PointDerivs derivs;
  EXPECT_EQ(captured_output([&] {
              EXPECT_FALSE(orientation->get_derivs({0, 0, -0.1}, {5, 0, 100}, derivs));
            }),
            "ERROR: ExtOrientation::get_derivs: Zero denominator.\n");
}

TEST_F(GeometryTest, IntersectionOfRays) {
  struct Case {
    const char* other_centre;
    Vec3 image_this;
    Vec3 image_other;
    Vec3 point;
    double gap;
  };
  const Case cases[] = {
      {"10 0 0", {0, 0, -1}, {-1, 0, -1}, {0, 0, -10}, 0},    // meeting
      {"10 4 0", {1, 0, -1}, {-1, 0, -1}, {5, 2, -5}, 4},     // skew
      {"10 0 0", {-1, 0, -1}, {1, 0, -1}, {5, 0, 5}, 0},      // behind both
      {"10 0 0", {2, 0, -2}, {-0.1, 0, -0.1}, {5, 0, -5}, 0}  // lengths do not matter
  };
  const auto orientation = upright("0 0 0");
  for (const Case& c : cases) {
    const auto other = upright(c.other_centre);
    Vec3 point{};
    double gap = -1;
    EXPECT_TRUE(orientation->intersection(*other, c.image_this, c.image_other, point, gap));
    for (std::size_t k = 0; k < 3; ++k) EXPECT_NEAR(point[k], c.point[k], 1e-14);
    EXPECT_NEAR(gap, c.gap, 1e-14);
  }
}

TEST_F(GeometryTest, IntersectionThatFails) {
  const auto orientation = upright("0 0 0");
  const auto other = upright("10 0 0");
  const PMFLinear linear;
  Vec3 point = {1, 2, 3};
  double gap = 4;
  EXPECT_EQ(
      captured_errors([&] {
        EXPECT_FALSE(orientation->intersection(*other, {0.3, 0.2, -1}, {0.3, 0.2, -1}, point, gap));
        EXPECT_FALSE(orientation->intersection(linear, {}, {}, point, gap));
      }),
      "DEP::intersection: rays are parallel.\n"
      "ExtOrientation::intersection: Incompatible image geometries!\n");
  EXPECT_EQ(point, (Vec3{1, 2, 3}));
  EXPECT_EQ(gap, 4);
}

TEST_F(GeometryTest, CorrectionsAreEvaluatedAtTheExposure) {
  PosCorrection pos;
  AttCorrection att;
  TokenReader pos_record("stop-dep 1 2  10 1 20 1 30 1  1 1 2 1 3 1");
  TokenReader att_record("stop-dep 3 1  0.1 1 0.2 1 0.3 1");
  pos.read(pos_record);
  att.read(att_record);
  const auto angles = from_record<EOAnglesOPKRot>("a rad 3 1 1 1 1 1 1 0.5 0.5 0.5 1 1 1");
  const auto quaternion = from_record<EOQuaternion>("b 3 1 1 1 1 1 1 1 0 0 0 1 1 1 1");
  for (ExtOrientation* orientation : {static_cast<ExtOrientation*>(angles.get()),
                                      static_cast<ExtOrientation*>(quaternion.get())}) {
    orientation->set_pos_correction(pos);
    orientation->set_att_correction(att);
    orientation->update();
    EXPECT_EQ(orientation->projection_centre(), (Vec3{13, 25, 37}));
    EXPECT_EQ(orientation->value(0), 1);
  }
  EXPECT_EQ(angles->rotation_matrix(), angles->matrix_from_params({0.6, 0.7, 0.8, 0}));
  EXPECT_EQ(angles->value(3), 0.5);
  EXPECT_EQ(quaternion->rotation_matrix(), (Mat3{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}}));
}

TEST_F(GeometryTest, ConvergenceByKindOfParameter) {
  struct Case {
    bool position, rotation;
    double change[6];
    std::int32_t expected;
  };
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const Case cases[] = {
      {true, true, {0.1, -0.1, 0.1, 0.01, -0.01, 0.01}, -1},  // limits themselves pass
      {true, true, {0, -0.2, 0, 0.02, 0, 0}, 1},
      {false, true, {0, -0.2, 0, 0, -0.02, 0}, 4},
      {true, false, {0, 0, 0, 1, 1, 1}, -1},
      {true, true, {nan, nan, nan, nan, nan, 0.02}, 5},
  };
  const auto orientation = upright("0 0 0");
  orientation->index = 2;
  ls_params().limit_position = 0.1;
  ls_params().limit_rotation = 0.01;
  ls_params().check_geometry = false;
  for (const Case& c : cases) {
    ls_params().check_position = c.position;
    ls_params().check_rotation = c.rotation;
    Vector corrections(8);
    corrections.zero();
    for (std::int32_t k = 0; k < 6; ++k) corrections[2 + k] = c.change[k];
    EXPECT_EQ(orientation->check_convergence(corrections), c.expected);
  }
}

// The condition at (q) pulls |q|^2 towards 1 with the weight of constraints.
TEST_F(GeometryTest, QuaternionIsHeldAtUnitLength) {
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

// An angle type, with output in other units than metres and radians.
TEST_F(GeometryTest, ListingsOfAngles) {
  ls_params().unit_object.set("cm");
  ls_params().unit_angles.set("deg");
  const auto orientation =
      from_record<EOAnglesPOKRot>("st1 gon 12.5 150 200 -300 25 0 1e31 100 0 0 0.5 1e31 0");
  EXPECT_EQ(written_text([&](TextWriter& out) { orientation->print(out); }),
            "Station ID    :  st1\n"
            "Exposure time :       12.5000\n"
            "Type          :  EO (phi-omega-kappa, rotated)\n"
            "\n"
            "  Param.     State         Value       Std.dev.\n"
            "\n"
            "  Xo         obs           1.500          0.250\n"
            "  Yo         eli           2.000        0.0e+00\n"
            "  Zo         unk          -3.000        1.0e+31\n"
            "  phi        obs        90.00000        0.45000\n"
            "  omega      unk         0.00000        1.0e+31\n"
            "  kappa      eli         0.00000        0.0e+00\n"
            "\n"
            "Rotation matrix:\n"
            "    0.0000000   0.0000000   1.0000000\n"
            "    0.0000000   1.0000000  -0.0000000\n"
            "   -1.0000000   0.0000000   0.0000000\n");
  orientation->init_params();
  orientation->index = 1;
  Vector corrections(7);
  corrections.zero();
  corrections[1] = 50;
  corrections[5] = -0.5;
  EXPECT_EQ(written_text([&](TextWriter& out) { orientation->print_changes(out, corrections); }),
            "Station ID :  st1\n"
            "Type       :  EO (phi-omega-kappa, rotated)\n"
            "Index      :  1\n"
            "\n"
            "  Name       State       Approx.         Change       Adjusted\n"
            "\n"
            "  Xo         obs           1.500          0.500          2.000\n"
            "  Yo         eli           2.000          0.000          2.000\n"
            "  Zo         unk          -3.000          0.000         -3.000\n"
            "  phi        obs        90.00000        0.00000       90.00000\n"
            "  omega      unk         0.00000      -28.64789      -28.64789\n"
            "  kappa      eli         0.00000        0.00000        0.00000\n"
            "\n");
  orientation->apply_corrections(corrections);
  EXPECT_EQ(written_text([&](TextWriter& out) { orientation->print_results(out); }),
            "Station ID :  st1\n"
            "Type       :  EO (phi-omega-kappa, rotated)\n"
            "Index      :  1\n"
            "\n"
            "  Param.    State      Initial      Adjusted        Change      Std.dev.\n"
            "\n"
            "  Xo        obs          1.500         2.000         0.500         0.250\n"
            "  Yo        eli          2.000         2.000         0.000       0.0e+00\n"
            "  Zo        unk         -3.000        -3.000         0.000       1.0e+31\n"
            "  phi       obs       90.00000      90.00000       0.00000       0.45000\n"
            "  omega     unk        0.00000     -28.64789     -28.64789       1.0e+31\n"
            "  kappa     eli        0.00000       0.00000       0.00000       0.0e+00\n"
            "\n"
            "Rotation matrix:\n"
            "    0.0000000  -0.4794255   0.8775826\n"
            "    0.0000000   0.8775826   0.4794255\n"
            "   -1.0000000  -0.0000000   0.0000000\n");
}

// Elsewhere numbers of the rotation have no unit, and changes are listed as stored.
TEST_F(GeometryTest, ListingsOfQuaternions) {
  ls_params().unit_object.set("km");
  ls_params().unit_angles.set("deg");
  const auto orientation =
      from_record<EOQuaternion>("st1 0 1.5 2 -3 0.25 0 1e31 0.5 0.5 0.5 0.5 0.001 0 1e31 1");
  orientation->init_params();
  orientation->index = 0;
  Vector corrections(7);
  corrections.zero();
  corrections[0] = 0.5;
  corrections[6] = 0.25;
  const std::string changes =
      written_text([&](TextWriter& out) { orientation->print_changes(out, corrections); });
  EXPECT_NE(changes.find("  Xo         obs           1.500          0.500          2.000\n"
                         "  Yo         eli           2.000          0.000          2.000\n"),
            std::string::npos)
      << changes;
  EXPECT_NE(changes.find("  q3         obs        0.500000       0.250000       0.750000\n\n"),
            std::string::npos)
      << changes;
  orientation->apply_corrections(corrections);
  const std::string results =
      written_text([&](TextWriter& out) { orientation->print_results(out); });
  EXPECT_TRUE(
      results.ends_with("  Xo        obs       1500.000      2000.000       500.000       250.000\n"
                        "  Yo        eli       2000.000      2000.000         0.000       0.0e+00\n"
                        "  Zo        unk      -3000.000     -3000.000         0.000       1.0e+31\n"
                        "  q0        obs       0.500000      0.500000      0.000000      0.001000\n"
                        "  q1        eli       0.500000      0.500000      0.000000       0.0e+00\n"
                        "  q2        unk       0.500000      0.500000      0.000000       1.0e+31\n"
                        "  q3        obs       0.500000      0.750000      0.250000      1.000000\n"
                        "\n"
                        "Rotation matrix:\n"
                        "   -0.3125000  -0.2500000   1.2500000\n"
                        "    1.2500000  -0.3125000   0.2500000\n"
                        "    0.2500000   1.2500000   0.3125000\n"))
      << results;
}

}  // namespace
}  // namespace vorn
