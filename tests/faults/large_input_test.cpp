// Inputs whose size is the attack: tokens of many megabytes, identifiers that repeat three
// hundred thousand times. All of them take time in proportion to their length.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>
#include <string>

#include "driver/bundle_project.h"
#include "geometry/eo_file.h"
#include "support/bundle_run.h"
#include "support/ls_params_guard.h"
#include "support/synthetic_project.h"

namespace vorn {
namespace {

constexpr std::size_t kTokenLength = 20'000'000;
constexpr std::int32_t kRepetitions = 300'000;

// Far beyond what is needed, also under a sanitizer, and far below a quadratic effort.
class TimeLimit {
 public:
  ~TimeLimit() {
    const double seconds = static_cast<double>(std::clock() - begin_) / CLOCKS_PER_SEC;
    EXPECT_LT(seconds, 40.0);
  }

 private:
  std::clock_t begin_ = std::clock();
};

TEST(LargeInput, FilesOfOneToken) {
  const test::TempDir dir;
  const test::SyntheticProject project = test::make_synthetic_project(
      {.ap_sets = {"gap"}, .images = 3, .points = 5, .position_triples = 1, .attitude_triples = 1});
  project.write(dir);
  const std::string control_file = dir.path("project.ctl");
  std::int32_t turn = 0;
  const std::string characters = "7x.";
  for (const auto& [name, text] : project.files) {
    SCOPED_TRACE(name);
    const test::LSParamsGuard guard;
    const char character = characters[static_cast<std::size_t>(turn++) % characters.size()];
    dir.write(name, std::string(kTokenLength, character));
    {
      const TimeLimit limit;
      const test::BundleRun run = test::run_bundle(control_file);
      // A list of corrections ends without a message where its file ends.
      const bool may_complete = name == "attitude.txt" || name == "position.txt";
      EXPECT_TRUE(may_complete || run.result == 0);
    }
    dir.write(name, text);
  }
}

TEST(LargeInput, NumbersOfMillionsOfDigits) {
  const std::string digits(kTokenLength, '3');
  const TimeLimit limit;
  for (const std::string& text : {digits, "0." + digits, digits + "e-20000000", "1e" + digits,
                                  "0." + std::string(kTokenLength, '0') + "1"}) {
    TokenReader in(text);
    double value = -1.0;
    in.read(value);
    EXPECT_GE(value, 0.0);
  }
}

TEST(LargeInput, LongIdentifiersFromReadingToResults) {
  const test::TempDir dir;
  test::SyntheticProject project =
      test::make_synthetic_project({.ap_sets = {"gap"}, .images = 3, .points = 12});
  const std::string id(kTokenLength, 'i');
  for (auto& [name, text] : project.files) {
    if (name == "ap.txt") text = test::replaced(text, "gap ", "gap " + id);
  }
  const std::string control_file = project.write(dir);
  const test::LSParamsGuard guard;
  const TimeLimit limit;
  EXPECT_EQ(test::run_bundle(control_file).result, 1);
}

template <class Read>
void read_repeated(std::string text, const std::string& record, Read read) {
  for (std::int32_t i = 0; i < kRepetitions; ++i) text += record;
  TokenReader in(text);
  const TimeLimit limit;
  EXPECT_EQ(read(in), 1);
}

// One identifier over and over: most kinds of objects replace the older one, cameras and images
// stay side by side.
TEST(LargeInput, RepeatedIdentifiers) {
  BundleProject project;
  test::captured_output([&] {
    read_repeated("", "camera-frame c x 150 0 0 230 230\n",
                  [&](TokenReader& in) { return read_camera_file(in, project.cameras); });
    read_repeated("", "image-frame i g c\n", [&](TokenReader& in) {
      return read_image_file(in, project.images, project.cameras);
    });
    read_repeated("", "i 1 p 1 2 3 4 -1\n",
                  [&](TokenReader& in) { return read_image_crds_file(in, project.images); });
    read_repeated("indiv-sdev\n", "p 1 2 3 4 5 6\n",
                  [&](TokenReader& in) { return read_obj_crds(in, project.object_points); });
    read_repeated("indiv-type\n", "pmf-linear g 0 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1\n",
                  [&](TokenReader& in) { return read_eo_file(in, project.image_geometries); });
    read_repeated("", "radial-dist s c 1 1 1 1 1 1\n",
                  [&](TokenReader& in) { return read_ap_set_file(in, project.ap_sets); });
    read_repeated("", "k g stop-dep 0 1 1 1 1 1 1 1\n", [&](TokenReader& in) {
      return read_pos_correction_file(in, project.pos_corrections);
    });
  });
  EXPECT_EQ(project.cameras.count(), kRepetitions);
  EXPECT_EQ(project.images.count(), kRepetitions);
  EXPECT_EQ(project.images.find("i")->points.count(), 1);
  EXPECT_EQ(project.image_geometries.count(), 1);
  // The images of one identifier lose all but the first, which alone has points, one by one.
  const TimeLimit limit;
  test::captured_output([&] { project.check_rays_per_image(nullptr); });
  EXPECT_EQ(project.images.count(), 0);
}

// Numbers of records that a file states but does not hold take neither time nor memory.
TEST(LargeInput, CountsWithoutRecords) {
  const TimeLimit limit;
  for (const std::string count : {"2147483647", "-2147483648", "99999999999", "0", "-1"}) {
    OwnedList<PosCorrection> corrections;
    const std::string text = "k g stop-dep 0 " + count + " 1 2 3 4 5 6\n";
    TokenReader in(text);
    EXPECT_EQ(read_pos_correction_file(in, corrections), 1);
    EXPECT_LE(corrections.find("k")->polynomial.coeffs.size(), 1U);
  }
}

// A point in so many images meets them in pairs when its coordinates are missing; nothing else may
// grow faster than the number of its images.
TEST(LargeInput, PointInManyImages) {
  constexpr std::int32_t kImages = 2'000;
  const test::TempDir dir;
  std::string images;
  std::string coords;
  for (std::int32_t i = 0; i < kImages; ++i) {
    const std::string id = std::to_string(i);
    images += "image-frame " + id + " g" + std::to_string(i % 2) + " c\n";
    coords += id + " 0.001 a 1 1 1 1 b 9 1 1 1 c 1 9 1 1 d 2 3 1 1 -1\n";
  }
  dir.write("camera.txt", "camera-frame c x 150 0 0 230 230\n");
  dir.write("image.txt", images);
  dir.write("crds.txt", coords);
  dir.write("eo.txt",
            "common-type ext-ori-opk-rot deg 0 0 (1,1,1) 1 1 1\n"
            "g0 0 0 100 0 0 0 g1 30 0 100 0 0 0\n");
  dir.write("obj.txt", "indiv-sdev a 1 1 0 1 1 1 b 9 1 0 1 1 1 c 1 9 0 1 1 1\n");
  const std::string control_file = dir.write(
      "project.ctl",
      "camera camera.txt image image.txt image-geometry eo.txt image-crds crds.txt obj-crds "
      "obj.txt\n");
  const test::LSParamsGuard guard;
  const TimeLimit limit;
  const test::BundleRun run = test::run_bundle(control_file);
  EXPECT_TRUE(run.result == 0 || run.result == 1);
  EXPECT_THAT(dir.read("project.out"), testing::HasSubstr("Images                      :    2000"));
}

}  // namespace
}  // namespace vorn
