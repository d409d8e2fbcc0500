#include <gtest/gtest.h>

#include <initializer_list>
#include <limits>
#include <memory>
#include <string>

#include "calibration/ap_models.h"
#include "report/small_project.h"
#include "support/captured_output.h"

namespace vorn {
namespace {

using test::written_text;

// The block of an image that measures the points.
std::string measured(const char* image, std::initializer_list<const char*> points) {
  std::string text = std::string(image) + " 1 ";
  for (const char* point : points) text += std::string(point) + " 0 0 1 1 ";
  return text + "-1 ";
}

// A and B are in all images, S, P and Q in one, N in none; S is fully controlled, P in plan only.
class RayCheckTest : public test::SmallProjectTest {
 protected:
  RayCheckTest() {
    read_cameras("camera-frame C - 100 0 0 200 200");
    read_images("image-frame I1 G C image-frame I2 G C image-frame I3 G C");
    read_image_coords(measured("I1", {"A", "B", "S"}) + measured("I2", {"A", "B", "P"}) +
                      measured("I3", {"Q", "B", "A"}));
    read_points("common-sdev 1e31 1e31 1e31 A 0 0 0 B 0 0 0 S 0 0 0 P 0 0 0 N 0 0 0 Q 0 0 0",
                "S co xyz P co xy stop-dep");
  }
  std::string check_points() {
    return written_text([&](TextWriter& out) { project_.check_rays_per_point(&out); });
  }
  std::string check_images() {
    return written_text([&](TextWriter& out) { project_.check_rays_per_image(&out); });
  }
};

TEST_F(RayCheckTest, Protocol) {
  project_.options.single_ray = true;
  EXPECT_EQ(check_points(),
            "Check number of rays per object point\n"
            "=====================================\n"
            "(Count number of rays per object point)\n"
            "Number of points to check : 6\n"
            "Single-ray option         : on\n"
            "\n"
            "<point ID>: <image ID> ... [<number of rays>]\n"
            "\n"
            "A: I1 I2 I3 [3]\n"
            "B: I1 I2 I3 [3]\n"
            "S: I1 [1] -> single ray\n"
            "P: I2 [1] -> removed\n"
            "ATTENTION: BundleImage I2 point P removed.\n"
            "\n"
            "N: [0] -> removed\n"
            "Q: I3 [1] -> removed\n"
            "ATTENTION: BundleImage I3 point Q removed.\n"
            "\n"
            "Number of removed object points: 3\n"
            "\n");
  EXPECT_EQ(point("A").num_rays, 3);
  EXPECT_TRUE(point("A").used && point("S").used);
  // What the first check took away counts in the second one.
  EXPECT_EQ(check_images(),
            "Check number of rays per image\n"
            "==============================\n"
            "(Count number of rays per image)\n"
            "Number of images to check : 3\n"
            "<image ID>: <number of rays>\n"
            "\n"
            "I1: 3\n"
            "I2: 2 -> removed\n"
            "I3: 2 -> removed\n"
            "Number of removed images: 2\n"
            "\n");
  // Emptied slots still count as slots.
  const std::string again = check_points();
  EXPECT_NE(again.find("Number of points to check : 6\n"), std::string::npos);
  EXPECT_NE(again.find("\n\nA: I1 [1] -> removed\n"), std::string::npos);
  EXPECT_NE(check_images().find("Number of images to check : 3\n<image ID>: <number of rays>\n\n"
                                "I1: 1 -> removed\nNumber of removed images: 1\n"),
            std::string::npos);
}

TEST_F(RayCheckTest, SilentCheckRemovesTheSame) {
  EXPECT_EQ(test::captured_output([&] {
              project_.check_rays_per_point(nullptr);
              project_.check_rays_per_image(nullptr);
            }),
            "");
  // Without the single-ray option S goes as well, and with it every image.
  EXPECT_EQ(project_.object_points.count(), 2);
  EXPECT_EQ(project_.images.count(), 0);
}

TEST_F(RayCheckTest, SingleRayNeedsThreeObservedCoordinates) {
  project_.options.single_ray = true;
  point("S").std_devs = {1e30, 1e-31, 1};
  point("P").std_devs = {1, 1, 1.1e30};
  point("Q").std_devs = {1, std::numeric_limits<double>::quiet_NaN(), 1};
  project_.check_rays_per_point(nullptr);
  EXPECT_NE(project_.object_points.find("S"), nullptr);
  EXPECT_EQ(project_.object_points.find("P"), nullptr);
  EXPECT_EQ(project_.object_points.find("Q"), nullptr);
}

// Images of the same name are images of their own; a point without an object point is nobody's ray.
TEST_F(RayCheckTest, ImagesOfOneName) {
  read_images("image-frame I1 G C");
  auto extra = std::make_unique<ImagePoint>();
  extra->id = "P";
  project_.images[3]->insert_point(std::move(extra));
  extra = std::make_unique<ImagePoint>();
  extra->id = "X";
  project_.images[0]->insert_point(std::move(extra));
  EXPECT_NE(check_points().find("\nP: I2 I1 [2]\n"), std::string::npos);
  EXPECT_TRUE(project_.images[0]->has_point("X"));
}

TEST_F(RayCheckTest, CleanUp) {
  read_cameras("camera-frame D - 100 0 0 200 200");
  read_images("image-frame I4 G C");
  project_.images[3]->used = false;
  point("A").used = point("B").used = true;
  project_.image_geometries[0]->used = false;
  project_.ap_sets.append(make_ap_set(Keyword::gap)).id = "AP";
  project_.pos_corrections.append(std::make_unique<PosCorrection>()).id = "POS";
  project_.att_corrections.append(std::make_unique<AttCorrection>()).id = "ATT";
  project_.att_corrections.append(std::make_unique<AttCorrection>()).used = true;
  EXPECT_EQ(written_text([&](TextWriter& out) { project_.clean_up(&out); }),
            "Clean up\n"
            "--------\n"
            "(Remove unused object points, EOs, Apsets, etc.)\n"
            "\n"
            "ATTENTION: BundleImage I4 removed.\n"
            "ATTENTION: Camera D removed.\n"
            "ATTENTION: Object point S removed.\n"
            "ATTENTION: Object point P removed.\n"
            "ATTENTION: Object point N removed.\n"
            "ATTENTION: Object point Q removed.\n"
            "ATTENTION: Station G removed.\n"
            "ATTENTION: AP set AP removed.\n"
            "ATTENTION: position correction POS removed.\n"
            "ATTENTION: attitude correction ATT removed.\n"
            "Number of removed ...\n"
            "  - images            : 1\n"
            "  - cameras           : 1\n"
            "  - object points     : 4\n"
            "  - EOs               : 1\n"
            "  - AP sets           : 1\n"
            "  - Position corr.    : 1\n"
            "  - Attitude corr.    : 1\n");
  EXPECT_EQ(project_.images.count(), 3);
  EXPECT_EQ(project_.att_corrections.count(), 1);
  EXPECT_EQ(project_.object_points.num_slots(), 6);
}

}  // namespace
}  // namespace vorn
