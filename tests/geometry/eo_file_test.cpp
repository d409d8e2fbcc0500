#include "geometry/eo_file.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <string_view>

#include "geometry/ext_orientation.h"
#include "geometry_support.h"
#include "support/captured_output.h"

namespace vorn {
namespace {

using test::captured_output;
using test::GeometryTest;
using test::written_text;

constexpr double kPi = 3.14159265358979323846;

int read_text(std::string_view text, OwnedList<ImageGeometry>& geometries) {
  TokenReader in(text);
  return read_eo_file(in, geometries);
}

// Reads a text that is fine.
void expect_read(std::string_view text, OwnedList<ImageGeometry>& geometries) {
  EXPECT_EQ(captured_output([&] { EXPECT_EQ(read_text(text, geometries), 1); }), "") << text;
}

TEST_F(GeometryTest, FilesThatAreReadAndFilesThatFail) {
  const std::string indiv =
      "ERROR: Reading exterior orientation failed.\n"
      "ERROR: Reading EO individual type failed.\n";
  const std::string common = "ERROR: Reading EO common type failed.\n";
  struct Case {
    std::string text;
    int result;
    int count;
    std::string output;
  };
  const Case cases[] = {
      {"", -1, 0, "ERROR: Reading keyword failed.\n"},
      {"ext-ori a 0", -1, 0, "ERROR: Unknown keyword: ext-ori\n"},
      // individual types
      {"indiv-type", 1, 0, ""},
      {"indiv-type stop-dep rest", 1, 0, ""},
      {"indiv-type ext-ori-kratky a", -1, 0,
       "ERROR: Unknown type of image geometry: ext-ori-kratky\n"
       "ERROR: Reading EO individual type failed.\n"},
      {"indiv-type DLT a", -1, 0,
       "ERROR: Unknown type of image geometry: DLT\nERROR: Reading EO individual type failed.\n"},
      {"indiv-type pmf-linear a 0 1 1 2 1 3 1 4 1 5 1 6 1 7 1 8 1", 1, 1, ""},
      {"indiv-type pmf-linear", -1, 0, "ERROR: Reading station ID failed.\n" + indiv},
      {"indiv-type dlt a x", -1, 0, "ERROR: Cannot read exposure time.\n" + indiv},
      {"indiv-type dlt a 0 1 1 2", -1, 0, "ERROR: Reading values and std. devs. failed.\n" + indiv},
      {"indiv-type ext-ori-pok-rot", -1, 0, "ERROR: Reading ID failed.\n" + indiv},
      {"indiv-type ext-ori-pok-rot a", -1, 0,
       "ERROR: Reading unit of rotation angles failed.\n" + indiv},
      {"indiv-type ext-ori-pok-rot a unk 0", -1, 0,
       "ERROR: Unknown unit of rotation angles:unk\n" + indiv},
      {"indiv-type ext-ori-pok-rot a rad x", -1, 0, "ERROR: Cannot read exposure time.\n" + indiv},
      {"indiv-type ext-ori-opk-rot a rad 0 1 2 x", -1, 0,
       "ERROR: Reading projection centre coords. failed.\n" + indiv},
      {"indiv-type ext-ori-opk-rot a rad 0 1 2 3 1 1", -1, 0,
       "ERROR: Reading std. dev. of proj. centre coords. failed.\n" + indiv},
      {"indiv-type ext-ori-opk-fix a rad 0 1 2 3 1 1 1 0 0 -", -1, 0,
       "ERROR: Reading rotation parameters failed.\n" + indiv},
      {"indiv-type ext-ori-australis a rad 0 1 2 3 1 1 1 0 0 0 1 1", -1, 0,
       "ERROR: Reading std. dev. of rotation angles failed.\n" + indiv},
      {"indiv-type ext-ori-quaternion", -1, 0, "ERROR: Reading ID failed.\n" + indiv},
      {"indiv-type ext-ori-quaternion a 0 1 2 3 1 1 1 1 0 0", -1, 0,
       "ERROR: Reading rotation parameters failed.\n" + indiv},
      {"indiv-type ext-ori-quaternion a 0 1 2 3 1 1 1 1 0 0 0 1 1 1", -1, 0,
       "ERROR: Reading std. dev. of rotation parameters failed.\n" + indiv},
      {"indiv-type ext-ori-quaternion a 0 1 2 3 1 1 1 1 0 0 0 1 1 1 1\n"
       "ext-ori-pok-rot a rad 0 1 2 3 1 1 1 0 0 0 1 1 1 ext-ori-pok-rot b rad",
       -1, 1, "ATTENTION: EO a was replaced.\nERROR: Cannot read exposure time.\n" + indiv},
      // common type
      {"common-type", -1, 0, "ERROR: Cannot read type of geometry.\n" + common},
      {"common-type dlt rad", -1, 0, "ERROR: Unknown type of image geometry: dlt\n" + common},
      {"common-type ext-ori-opk-rot", -1, 0,
       "ERROR: Cannot read unit of rotation angles.\n" + common},
      {"common-type ext-ori-opk-rot m 0 0", -1, 0,
       "ERROR: Invalid unit of rotation angles: m\n" + common},
      {"common-type ext-ori-opk-rot rad 2 0", -1, 0, "ERROR: Cannot read time flag.\n" + common},
      {"common-type ext-ori-opk-rot rad 1 on", -1, 0,
       "ERROR: Cannot read rotation matrix flag.\n" + common},
      {"common-type ext-ori-opk-rot rad 0 0 (1,1 1 1 1", -1, 0,
       "ERROR: Cannot read common std. devs.\n" + common},
      {"common-type ext-ori-opk-rot rad 0 0 1 1 1 (1,1,1)", -1, 0,
       "ERROR: Cannot read common std. devs.\n" + common},
      {"common-type ext-ori-opk-rot rad 0 0 1 1 1 1 1 1", 1, 0, ""},
      {"common-type ext-ori-opk-rot rad 1 0 1 1 1 1 1 1 a", -1, 0,
       "ERROR: Cannot read exposure time.\n" + common},
      {"common-type ext-ori-opk-rot rad 0 0 1 1 1 1 1 1 a 1 2 3 0 0 0 -1 b", 1, 1, ""},
      {"common-type ext-ori-opk-rot rad 0 0 1 1 1 1 1 1 a 1 2 3 0 0 0 b (1,2,3 0 0 0", -1, 1,
       "ERROR: Cannot read projection centre coords.\n" + common},
      {"common-type ext-ori-opk-rot rad 0 0 1 1 1 1 1 1 a 1 2 3 0 0", -1, 0,
       "ERROR: Cannot read rotation parameters.\n" + common},
      {"common-type ext-ori-opk-rot rad 0 1 1 1 1 1 1 1 a 1 2 3 1 0 0 0 1 0 0 0", -1, 0,
       "ERROR: Cannot read rotation matrix.\n" + common},
      {"common-type ext-ori-quaternion rad 0 0 1 1 1 1 1 1 a 1 2 3 1 0 0 0", -1, 0,
       "ERROR: Cannot read rotation parameters.\n" + common},
      {"common-type ext-ori-opk-rot rad 0 0 1 1 1 1 1 1 a 1 2 3 0 0 0 a 4 5 6 0 0 0", 1, 1,
       "ATTENTION: Exterior orientation a was replaced.\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    OwnedList<ImageGeometry> geometries;
    EXPECT_EQ(captured_output([&] { EXPECT_EQ(read_text(c.text, geometries), c.result); }),
              c.output);
    EXPECT_EQ(geometries.count(), c.count);
    EXPECT_EQ(geometries.num_slots(), c.count);
  }
}

TEST_F(GeometryTest, IndividualRecordConvertsAngles) {
  OwnedList<ImageGeometry> geometries;
  expect_read(
      "indiv-type\r\next-ori-opk-fix s1 deg 7.5\r\n 1 2 3\n 4 5 6\n 90 -45 0.5\n 0.1 0 1e31\r\n"
      "stop-dep\r\n",
      geometries);
  const ImageGeometry& geometry = *geometries.find("s1");
  EXPECT_EQ(geometry.exposure_time, 7.5);
  const double values[] = {1, 2, 3, kPi / 2, -kPi / 4, kPi / 360};
  const double std_devs[] = {4, 5, 6, kPi / 1800, 0, 1e31};
  for (std::int32_t k = 0; k < 6; ++k) {
    EXPECT_NEAR(geometry.value(k), values[k], 1e-15);
    EXPECT_DOUBLE_EQ(geometry.std_dev(k), std_devs[k]);
  }
}

TEST_F(GeometryTest, CommonRecordsShareTheHeader) {
  OwnedList<ImageGeometry> geometries;
  expect_read(
      "common-type ext-ori-pok-rot gon 1 0 (0.5,0,2) 0.02 1e31 0\n"
      "a 3 (10,20,30) 100 -50 200\n"
      "b 4 11 21 31 0 1e-40 0\n"
      "stop-dep",
      geometries);
  ASSERT_EQ(geometries.count(), 2);
  const ImageGeometry& a = *geometries.find("a");
  const double values[] = {10, 20, 30, kPi / 2, -kPi / 4, kPi};
  const double std_devs[] = {0.5, 0, 2, kPi * 1e-4, 1e31, 0};
  for (std::int32_t k = 0; k < 6; ++k) {
    EXPECT_DOUBLE_EQ(a.value(k), values[k]);
    EXPECT_DOUBLE_EQ(a.std_dev(k), std_devs[k]);
  }
  EXPECT_EQ(a.exposure_time, 3);
  EXPECT_EQ(geometries.find("b")->exposure_time, 4);
  // Angles are converted whatever their size, standard deviations only when observed.
  EXPECT_DOUBLE_EQ(geometries.find("b")->value(4), 1e-40 * kPi / 200);
}

// A matrix is converted by the type of the file; all types get back the same R.
TEST_F(GeometryTest, CommonRecordsWithMatrix) {
  for (const char* type : {"ext-ori-opk-rot", "ext-ori-pok-rot", "ext-ori-opk-fix",
                           "ext-ori-australis", "ext-ori-quaternion"}) {
    SCOPED_TRACE(type);
    OwnedList<ImageGeometry> geometries;
    expect_read("common-type " + std::string(type) +
                    " deg 0 1 1 1 1 4 5 6 a 1 2 3  0.36 0.48 -0.8  -0.8 0.6 0  0.48 0.64 0.6",
                geometries);
    auto& orientation = dynamic_cast<ExtOrientation&>(*geometries.find("a"));
    orientation.update();
    EXPECT_EQ(orientation.get_keyword(), type);
    EXPECT_EQ(orientation.exposure_time, 0);
    const Mat3 expected = {{{0.36, 0.48, -0.8}, {-0.8, 0.6, 0}, {0.48, 0.64, 0.6}}};
    for (std::size_t i = 0; i < 3; ++i) {
      for (std::size_t j = 0; j < 3; ++j) {
        EXPECT_NEAR(orientation.rotation_matrix()[i][j], expected[i][j], 1e-15);
      }
    }
    for (std::int32_t k = 3; k < orientation.num_values(); ++k) {
      EXPECT_DOUBLE_EQ(orientation.std_dev(k), std::min(k + 1, 6) * kPi / 180);
    }
  }
}

TEST_F(GeometryTest, WrittenRecords) {
  OwnedList<ImageGeometry> geometries;
  expect_read(
      "indiv-type ext-ori-pok-rot s1 deg 7.5 1 2 -3 0.5 0 1e31 90 0 -1 0.1 0 1e31\n"
      "ext-ori-quaternion s2 0 1 2 -3 0.5 0 1e31 1 0 -0.5 0.25 0.1 0 1e31 2\n"
      "dlt s3 0 1 1 2 1 3 1 4 1 5 1 6 1 7 1 8 1 9 1 10 1 11 1",
      geometries);
  ls_params().unit_angles.set("deg");
  ls_params().unit_object.set("cm");
  EXPECT_EQ(written_text([&](TextWriter& out) {
              geometries[0]->write(out);
              geometries[1]->write(out);
            }),
            "ext-ori-pok-rot s1 deg          7.5000\n"
            "          0.0100          0.0200         -0.0300\n"
            "          0.0050    0.000000e+00    1.000000e+31\n"
            "    9.000000e+01    0.000000e+00   -1.000000e+00\n"
            "    1.745329e-03    0.000000e+00    1.000000e+31\n"
            "ext-ori-quaternion s2          0.0000\n"
            "          0.0100          0.0200         -0.0300\n"
            "          0.0050    0.000000e+00    1.000000e+31\n"
            "    1.000000e+00    0.000000e+00   -5.000000e-01    2.500000e-01\n"
            "    1.000000e-01    0.000000e+00    1.000000e+31    2.000000e+00\n");
  EXPECT_TRUE(written_text([&](TextWriter& out) {
                geometries[2]->write(out);
              }).starts_with("DLT   s3       0.000000\n"));
}

}  // namespace
}  // namespace vorn
