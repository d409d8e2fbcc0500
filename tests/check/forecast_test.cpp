// What an adjustment is said to take.

#include "check/forecast.h"

#include <gtest/gtest.h>

#include <string>

#include "check/remaining_network.h"
#include "driver/bundle_project.h"
#include "geometry/eo_file.h"

namespace vorn {
namespace {

// The forecast for 600 images, each with four points that the two images behind it measure, too, or
// all images do.
std::string forecast(bool all_meet) {
  constexpr int kImages = 600;
  std::string orientations = "indiv-type ";
  std::string images;
  std::string measured;
  for (int i = 0; i < kImages; ++i) {
    const std::string k = std::to_string(i);
    orientations +=
        "ext-ori-opk-rot e" + k + " rad 0  1 2 3  1e31 1e31 1e31  0 0 0  1e31 1e31 1e31 ";
    images += "image-frame i" + k + " e" + k + " c ";
    measured += "i" + k + " 1 ";
    for (int p = all_meet ? 0 : 4 * i; p < (all_meet ? 4 : 4 * i + 12); ++p) {
      measured += "p" + std::to_string(p) + " 0 0 1 1 ";
    }
    measured += "-1 ";
  }
  BundleProject project;
  TokenReader in_orientations(orientations);
  TokenReader in_cameras("camera-frame c - 100 0 0 200 200");
  TokenReader in_images(images);
  TokenReader in_measured(measured);
  EXPECT_EQ(read_eo_file(in_orientations, project.image_geometries), 1);
  EXPECT_EQ(read_camera_file(in_cameras, project.cameras), 1);
  EXPECT_EQ(read_image_file(in_images, project.images, project.cameras), 1);
  EXPECT_EQ(read_image_crds_file(in_measured, project.images), 1);
  for (BundleImage& image : project.images) {
    EXPECT_TRUE(image.attach_geometry(project.image_geometries));
  }
  FindingList findings;
  add_forecast(project, RemainingNetwork(project), findings);
  return findings.findings().front().message;
}

TEST(Forecast, FollowsTheStructureOfTheNetwork) {
  const auto megabytes = [](const std::string& note) {
    return std::stoi(note.substr(note.find("about ") + 6));
  };
  const std::string strip = forecast(false);
  EXPECT_NE(strip.find("10800 unknowns (2400 object points, reduced system 3600)"),
            std::string::npos)
      << strip;
  EXPECT_LT(megabytes(strip), 8) << strip;
  const std::string together = forecast(true);
  EXPECT_NE(together.find("3612 unknowns (4 object points, reduced system 3600)"),
            std::string::npos)
      << together;
  EXPECT_NEAR(megabytes(together), 8 * 3600 * 3600 / 2 / 1'000'000, 3) << together;
}

}  // namespace
}  // namespace vorn
