#include "report/residuals.h"

#include <gtest/gtest.h>

#include <string>

#include "report/small_project.h"
#include "support/captured_output.h"

namespace vorn {
namespace {

using test::captured_errors;
using test::captured_output;
using test::written_text;

// Image I1 has residuals of (20, 0), (-3, -15) and (5, -5) um, and a point M that does not exist;
// image I2 has no points.
class ResidualsTest : public test::SmallProjectTest {
 protected:
  ResidualsTest() {
    read_cameras("camera-frame C - 100 0 0 200 200");
    read_images("image-frame I1 G C image-frame I2 G C");
    read_image_coords(
        "I1 1 A 0.009980 0.020000 1e-6 1e-6 "
        "     B 0.030003 0.040015 2e-6 0.5e-6 "
        "     M 0 0 1 1 "
        "     D 0.049995 0.060005 1e-6 1e-6");
    read_points("common-sdev 1e31 1e31 1e31 A 0.01 0.02 0 B 0.03 0.04 0 D 0.05 0.06 0",
                "B co xy stop-dep");
    project_.redundancy = 4;
  }
  std::string section() {
    return written_text([&](TextWriter& out) { project_.print_residuals(out); });
  }
};

TEST_F(ResidualsTest, Section) {
  EXPECT_EQ(section(),
            "Residuals of image coords.\n"
            "==========================\n"
            "Limit for printing residuals:  10.00 um\n"
            "\n"
            "BundleImage ID : I1\n"
            "\n"
            "  Point ID       vx/um      vy/um     |v|/um\n"
            "\n"
            "         A       20.00       0.00      20.00\n"
            "         B       -3.00     -15.00      15.30   control point for X Y\n"
            "ATTENTION: Object point M not found\n"
            "\n"
            "Number of points       :   3\n"
            "RMS of residuals       :        12.03         9.13\n"
            "Average of residuals   :         7.33        -6.67\n"
            "\n"
            "BundleImage ID : I2\n"
            "\n"
            "  Point ID       vx/um      vy/um     |v|/um\n"
            "\n"
            "\n"
            "Number of points       :   0\n"
            "RMS of residuals       :         -nan         -nan\n"
            "Average of residuals   :         -nan         -nan\n"
            "\n"
            "\n"
            "Summary for all image points of all images\n"
            "------------------------------------------\n"
            "                                vx/um        vy/um\n"
            "\n"
            "Total number of points :   3\n"
            "RMS of residuals       :        12.03         9.13\n"
            "Average of residuals   :         7.33        -6.67\n"
            "\n"
            "Contribution to vtpv and sigma 0:   1.352e-09 m^2   18.39 um\n"
            "Redundancy :   4\n"
            "\n");
}

TEST_F(ResidualsTest, LimitAndRedundancy) {
  const std::string row_of_d = "         D        5.00      -5.00       7.07\n";
  EXPECT_EQ(section().find(row_of_d), std::string::npos);
  ls_params().residual_limit = 4e-6;
  EXPECT_NE(section().find(row_of_d), std::string::npos);
  for (const std::int32_t redundancy : {0, -3}) {
    project_.redundancy = redundancy;
    EXPECT_NE(section().find(" m^2   undefined, no redundancy!\nRedundancy :   " +
                             std::to_string(redundancy) + "\n\n"),
              std::string::npos);
  }
}

TEST_F(ResidualsTest, Records) {
  std::string records;
  const std::string messages = captured_output(
      [&] { records = captured_errors([&] { project_.write_residuals(error_output()); }); });
  EXPECT_EQ(messages, "ATTENTION: Object point M not found\n");
  EXPECT_EQ(records,
            "I1\n"
            "         A      20.000      0.000\n"
            "         B      -3.000    -15.000\n"
            "         D       5.000     -5.000\n"
            "stop-dep\n"
            "I2\n"
            "stop-dep\n"
            "stop-dep\n");
}

// Pixels are turned into image coordinates, their standard deviations too.
TEST_F(ResidualsTest, PixelCamera) {
  read_cameras("camera-ccd P - 50 0 0 101 101 10 10");
  read_images("image-frame I3 G P");
  read_image_coords("I3 1 A 70 30 0.1 0.2");
  std::vector<PointResidual> residuals;
  const BundleImage& image = *project_.images.find("I3");
  compute_residuals(image, project_.object_points, residuals);
  ASSERT_EQ(residuals.size(), 1U);
  const Pair measured = image.camera->pixel_to_image({70, 30});
  EXPECT_NEAR(residuals[0].vx, 0.01 - measured[0], 1e-15);
  EXPECT_NEAR(residuals[0].vy, 0.02 - measured[1], 1e-15);
  EXPECT_NEAR(residuals[0].px, 1, 1e-12);
  EXPECT_NEAR(residuals[0].py, 0.25, 1e-12);
}

}  // namespace
}  // namespace vorn
