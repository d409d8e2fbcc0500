#include "geometry/eo_file.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "geometry/ext_orientation.h"
#include "geometry_support.h"
#include "support/reader_cases.h"

namespace vorn {
namespace {

using test::expect_reader;
using test::GeometryTest;

constexpr double kPi = 3.14159265358979323846;

int read_into_list(TokenReader& in, int& count) {
  OwnedList<ImageGeometry> geometries;
  const int result = read_eo_file(in, geometries);
  count = geometries.num_slots();
  return result;
}

TEST_F(GeometryTest, FilesThatAreReadAndFilesThatFail) {
  const std::string common = "common-type ext-ori-opk-rot rad 0 0 1 1 1 1 1 1 a 1 2 3 0 0 0 ";
  expect_reader(
      {{"", -1, 0, "ERROR: Reading keyword failed.\n"},
       {"ext-ori a 0", -1, 0, "ERROR: Unknown keyword: ext-ori\n"},
       {"indiv-type", 1, 0, ""},
       {"indiv-type ext-ori-kratky a", -1, 0,
        "ERROR: Unknown type of image geometry: ext-ori-kratky\n"
        "ERROR: Reading EO individual type failed.\n"},
       {"indiv-type pmf-linear a 0 1 1 2 1 3 1 4 1 5 1 6 1 7 1 8 1", 1, 1, ""},
       {"indiv-type pmf-linear a 0 1 1 2 1 3 1 4 1 5 1 6 1 7 1 8 1\n"
        "ext-ori-pok-rot a rad 0 1 2 3 1 1 1 0 0 0 1 1 1 stop-dep",
        1, 1, "ATTENTION: EO a was replaced.\n"},
       {common + "-1 b", 1, 1, ""},
       {common + "a 4 5 6 0 0 0", 1, 1, "ATTENTION: Exterior orientation a was replaced.\n"},
       {common + "b (1,2,3 0 0 0", -1, 1,
        "ERROR: Cannot read projection centre coords.\nERROR: Reading EO common type failed.\n"}},
      read_into_list);
}

TEST_F(GeometryTest, RecordsThatFail) {
  struct Case {
    const char* record;
    const char* message;
  };
  const Case individual[] = {
      {"pmf-linear", "Reading station ID failed."},
      {"dlt a x", "Cannot read exposure time."},
      {"dlt a 0 1 1 2", "Reading values and std. devs. failed."},
      {"ext-ori-pok-rot", "Reading ID failed."},
      {"ext-ori-pok-rot a", "Reading unit of rotation angles failed."},
      {"ext-ori-pok-rot a unk 0", "Unknown unit of rotation angles:unk"},
      {"ext-ori-pok-rot a rad x", "Cannot read exposure time."},
      {"ext-ori-opk-rot a rad 0 1 2 x", "Reading projection centre coords. failed."},
      {"ext-ori-opk-rot a rad 0 1 2 3 1 1", "Reading std. dev. of proj. centre coords. failed."},
      {"ext-ori-opk-fix a rad 0 1 2 3 1 1 1 0 0 -", "Reading rotation parameters failed."},
      {"ext-ori-australis a rad 0 1 2 3 1 1 1 0 0 0 1 1",
       "Reading std. dev. of rotation angles failed."},
      {"ext-ori-quaternion a 0 1 2 3 1 1 1 1 0 0 0 1 1 1",
       "Reading std. dev. of rotation parameters failed."}};
  const Case common[] = {{"", "Cannot read type of geometry."},
                         {"dlt rad", "Unknown type of image geometry: dlt"},
                         {"ext-ori-opk-rot", "Cannot read unit of rotation angles."},
                         {"ext-ori-opk-rot m 0 0", "Invalid unit of rotation angles: m"},
                         {"ext-ori-opk-rot rad 2 0", "Cannot read time flag."},
                         {"ext-ori-opk-rot rad 1 on", "Cannot read rotation matrix flag."},
                         {"ext-ori-opk-rot rad 0 0 (1,1 1 1 1", "Cannot read common std. devs."},
                         {"ext-ori-opk-rot rad 1 0 1 1 1 1 1 1 a", "Cannot read exposure time."},
                         {"ext-ori-opk-rot rad 0 1 1 1 1 1 1 1 a 1 2 3 1 0 0 0 1 0 0 0",
                          "Cannot read rotation matrix."},
                         {"ext-ori-quaternion rad 0 0 1 1 1 1 1 1 a 1 2 3 1 0 0 0",
                          "Cannot read rotation parameters."}};
  const std::string error = "ERROR: ";
  for (const auto& [record, message] : individual) {
    expect_reader({{std::string("indiv-type ") + record, -1, 0,
                    error + message +
                        "\nERROR: Reading exterior orientation failed.\n"
                        "ERROR: Reading EO individual type failed.\n"}},
                  read_into_list);
  }
  for (const auto& [record, message] : common) {
    expect_reader({{std::string("common-type ") + record, -1, 0,
                    error + message + "\nERROR: Reading EO common type failed.\n"}},
                  read_into_list);
  }
}

// A matrix is converted by the type of the file; all types get back the same R.
TEST_F(GeometryTest, CommonRecordsWithMatrix) {
  for (const char* type : {"ext-ori-opk-rot", "ext-ori-pok-rot", "ext-ori-opk-fix",
                           "ext-ori-australis", "ext-ori-quaternion"}) {
    SCOPED_TRACE(type);
    OwnedList<ImageGeometry> geometries;
    const std::string text =
        "common-type " + std::string(type) +
        " deg 0 1 1 1 1 4 5 6 a 1 2 3  0.36 0.48 -0.8  -0.8 0.6 0  0.48 0.64 0.6";
    TokenReader in(text);
    ASSERT_EQ(read_eo_file(in, geometries), 1);
    auto& orientation = dynamic_cast<ExtOrientation&>(*geometries.find("a"));
    orientation.update();
    EXPECT_EQ(orientation.get_keyword(), type);
    const double expected[] = {0.36, 0.48, -0.8, -0.8, 0.6, 0, 0.48, 0.64, 0.6};
    for (std::size_t i = 0; i < 9; ++i) {
      EXPECT_NEAR(orientation.rotation_matrix()[i / 3][i % 3], expected[i], 1e-15);
    }
    for (std::int32_t k = 3; k < orientation.num_values(); ++k) {
      EXPECT_DOUBLE_EQ(orientation.std_dev(k), std::min(k + 1, 6) * kPi / 180);
    }
  }
}

}  // namespace
}  // namespace vorn
