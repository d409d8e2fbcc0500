#include <gtest/gtest.h>

#include <string>

#include "calibration/ap_models.h"
#include "report/small_project.h"
#include "support/captured_output.h"

namespace vorn {
namespace {

using test::written_text;

class SectionsTest : public test::SmallProjectTest {
 protected:
  // Coordinates after the adjustment.
  void adjust(const char* id, const Vec3& xyz) { point(id).xyz = xyz; }
  std::string check_points() {
    return written_text([&](TextWriter& out) { project_.print_check_points(out); });
  }
  std::string control_points() {
    return written_text([&](TextWriter& out) { project_.print_control_residuals(out); });
  }
  std::string object_points() {
    return written_text([&](TextWriter& out) { project_.print_object_points(out); });
  }
};

TEST_F(SectionsTest, CheckPoints) {
  read_points("common-sdev 1e31 1e31 1e31 C1 1 2 3 I 0 0 0 C2 10 20 30",
              "C1 ch xyz C2 ch z stop-dep");
  adjust("C1", {1.5, 2, 2.75});
  adjust("C2", {11, 20, 29});
  EXPECT_EQ(check_points(),
            "Check point analysis\n"
            "====================\n"
            "\n"
            "Point ID    X-new/m      Y-new/m      Z-new/m        DX/m      DY/m      DZ/m\n"
            "\n"
            "      C1        1.500        2.000        2.750      -0.500     0.000     0.250\n"
            "      C2       11.000       20.000       29.000       ---       ---       1.000\n"
            "Summary of check point analysis\n"
            "-------------------------------\n"
            "Empirical accuracy in object space.\n"
            "\n"
            "                                  DX/m      DY/m      DZ/m\n"
            "\n"
            "Number of differences       :          1         1         2\n"
            "Maximum of abs. differences :      0.500     0.000     1.000\n"
            "Average of differences      :     -0.500     0.000     0.625\n"
            "RMS of differences          :      0.500     0.000     0.729\n"
            "\n");
}

// Only observed coordinates have residuals; the limits of "observed" belong to it.
TEST_F(SectionsTest, ControlPoints) {
  read_points("indiv-sdev G1 1 2 3 0.01 1e-30 1e31 I 0 0 0 1e31 1e31 1e31 G2 5 6 7 1e-31 1e30 1",
              "stop-dep");
  adjust("G1", {1.002, 1.999, 4});
  adjust("G2", {5, 6.003, 7});
  EXPECT_EQ(control_points(),
            "Control point residuals\n"
            "=======================\n"
            "\n"
            "Point ID        X/m          Y/m          Z/m      vX/m      vY/m      vZ/m\n"
            "\n"
            "      G1        1.002        1.999        4.000       0.002    -0.001     ---  \n"
            "      G2        5.000        6.003        7.000       ---       0.003     0.000\n"
            "Std. dev. from control point residuals\n"
            "--------------------------------------\n"
            "                                 vX/m      vY/m      vZ/m\n"
            "\n"
            "Number of residuals        :          1         2         1\n"
            "Maximum of abs. residuals  :      0.002     0.003     0.000\n"
            "Average of residuals       :      0.002     0.001     0.000\n"
            "RMS of residuals           :      0.002     0.002     0.000\n"
            "\n");
}

TEST_F(SectionsTest, PointAnalysisWithoutPoints) {
  const std::string zeros = "     0.000     0.000     0.000\n";
  EXPECT_NE(check_points().find("DZ/m\n\nSummary of"), std::string::npos);
  EXPECT_NE(check_points().find("differences       :          0         0         0\n"
                                "Maximum of abs. differences : " +
                                zeros + "Average of differences      : " + zeros +
                                "RMS of differences          : " + zeros + "\n"),
            std::string::npos);
}

TEST_F(SectionsTest, ObjectPoints) {
  read_points("common-sdev 1e31 1e31 1e31 A 1 2 3 B 4 5 6 D 7 8 9", "B co z D ch x stop-dep");
  EXPECT_EQ(object_points(),
            "Object point coordinates\n"
            "========================\n"
            "Object point type:\n"
            "in=intersection, co=control point, ch=check point\n"
            "\n"
            "Point ID       X/m         Y/m         Z/m      sX/m      sY/m      sZ/m\n"
            "\n"
            "       A       1.000       2.000       3.000   1.0e+31   1.0e+31   1.0e+31   in\n"
            "       B       4.000       5.000       6.000   1.0e+31   1.0e+31   1.0e-31   co\n"
            "       D       7.000       8.000       9.000   1.0e+31   1.0e+31   1.0e+31   ch\n"
            "\n"
            "Number of object points with type\n"
            "  intersection  :  1\n"
            "  control       :  1\n"
            "  check         :  1\n"
            "  total         :  3\n"
            "\n");
  point("A").type = PointType::none;
  const std::string text = object_points();
  EXPECT_EQ(text.substr(text.find("  intersection")),
            "  intersection  :  0\n"
            "  control       :  1\n"
            "  check         :  1\n"
            "  total         :  2\n"
            "WARNING: 1 invalid points found!\n"
            "\n");
}

TEST_F(SectionsTest, ListsOfObjects) {
  read_cameras("camera-frame C one 100 0 0 200 200 camera-frame D two 50 0 0 30 20");
  const auto print_of = [](const auto& object) {
    return written_text([&](TextWriter& out) { object.print(out); });
  };
  const auto write_of = [](const auto& object) {
    return written_text([&](TextWriter& out) { object.write(out); });
  };
  TokenReader in("inner-or A C 0 1 0 1 0 1 decentering-dist B D 0 1 0 1");
  ASSERT_EQ(read_ap_set_file(in, project_.ap_sets), 1);
  const Camera& c = *project_.cameras[0];
  const Camera& d = *project_.cameras[1];
  const APSet& a = *project_.ap_sets[0];
  const APSet& b = *project_.ap_sets[1];
  const ImageGeometry& g = *project_.image_geometries[0];
  EXPECT_EQ(written_text([&](TextWriter& out) { project_.print_cameras(out); }),
            "Cameras\n=======\n\n" + print_of(c) + print_of(d) + "\n");
  EXPECT_EQ(written_text([&](TextWriter& out) { project_.write_cameras(out); }),
            write_of(c) + write_of(d) + "stop-dep\n");
  EXPECT_EQ(written_text([&](TextWriter& out) { project_.print_ap_sets(out); }),
            "Additional parameter sets\n=========================\n\n" + print_of(a) + print_of(b));
  EXPECT_EQ(written_text([&](TextWriter& out) { project_.write_ap_sets(out); }),
            write_of(a) + write_of(b) + "stop-dep\n");
  EXPECT_EQ(written_text([&](TextWriter& out) { project_.print_exterior_orientations(out); }),
            "Exterior orientations\n=====================\n\n" + print_of(g));
  EXPECT_EQ(written_text([&](TextWriter& out) { project_.write_exterior_orientations(out); }),
            "indiv-type\n" + write_of(g) + "stop-dep\n");
}

TEST_F(SectionsTest, ObjectPointRecordsAndEmptySlots) {
  read_points("common-sdev 0.5 0.5 1e31 A 1 2 3 B 4 5 6", "stop-dep");
  project_.object_points.remove(0);
  const std::string record =
      "         B       4.000       5.000       6.000       0.500       0.500     1.0e+31\n";
  EXPECT_EQ(written_text([&](TextWriter& out) { project_.write_object_points(out); }),
            record + "stop-dep\n");
  project_.object_points.clear();
  EXPECT_EQ(written_text([&](TextWriter& out) { project_.write_object_points(out); }),
            "stop-dep\n");
}

TEST_F(SectionsTest, ImageCoordinates) {
  read_cameras("camera-frame C - 100 0 0 200 200");
  read_images("image-frame I1 G C image-frame I2 G C");
  read_image_coords("I1 0.001 P 1.5 -2 0.01 0.02");
  EXPECT_EQ(written_text([&](TextWriter& out) { project_.print_image_coords(out); }),
            "Image coordinates\n"
            "=================\n"
            "\n"
            "BundleImage ID : I1\n"
            "\n"
            "Number of points   :  1\n"
            "Coord. system type :  image\n"
            "\n"
            "      ID     x/mm       y/mm     sx/mm    sy/mm\n"
            "\n"
            "       P     1.5000    -2.0000   0.0100   0.0200\n"
            "\n"
            "BundleImage ID : I2\n"
            "\n"
            "Number of points   :  0\n"
            "Coord. system type :  image\n"
            "\n"
            "      ID     x/mm       y/mm     sx/mm    sy/mm\n"
            "\n"
            "\n");
}

}  // namespace
}  // namespace vorn
