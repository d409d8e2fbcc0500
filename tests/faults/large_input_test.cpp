// Inputs whose size is the attack: tokens of many megabytes, identifiers that repeat three
// hundred thousand times. All of them take time in proportion to their length.

#include <gmock/gmock.h>

#include <ctime>

#include "driver/bundle_project.h"
#include "geometry/eo_file.h"
#include "support/project_test.h"

#ifdef __linux__
#include <sys/resource.h>
#endif

namespace vorn {
namespace {

constexpr std::size_t kTokenLength = 20'000'000;
constexpr std::int32_t kRepetitions = 300'000;

// Every test ends far beyond what is needed, also under a sanitizer, and far below a quadratic
// effort.
class LargeInput : public test::ProjectTest {
 protected:
  ~LargeInput() override {
    const double seconds = static_cast<double>(std::clock() - begin_) / CLOCKS_PER_SEC;
    EXPECT_LT(seconds, 100.0);
  }

 private:
  std::clock_t begin_ = std::clock();
};

TEST_F(LargeInput, FilesOfOneToken) {
  std::size_t turn = 0;
  for (const auto& [name, text] : project_.files) {
    SCOPED_TRACE(name);
    dir_.write(name, std::string(kTokenLength, "7x."[turn++ % 3]));
    // A list of corrections ends without a message where its file ends.
    const bool may_complete = name == "attitude.txt" || name == "position.txt";
    EXPECT_TRUE(run().result == 0 || may_complete);
    dir_.write(name, text);
  }
}

TEST_F(LargeInput, NumbersOfMillionsOfDigits) {
  const std::string digits(kTokenLength, '3');
  for (const std::string& text : {digits, "0." + digits, digits + "e-20000000", "1e" + digits,
                                  "0." + std::string(kTokenLength, '0') + "1"}) {
    TokenReader in(text);
    double value = -1.0;
    in.read(value);
    EXPECT_GE(value, 0.0);
  }
}

TEST_F(LargeInput, LongIdentifiersFromReadingToResults) {
  std::string sets = project_.files.at("ap.txt");
  dir_.write("ap.txt", sets.insert(sets.find("s1"), kTokenLength, 'i'));
  EXPECT_EQ(run().result, 1);
}

template <class List, class Read>
void read_repeated(std::string text, const std::string& record, List& list, Read read) {
  for (std::int32_t i = 0; i < kRepetitions; ++i) text += record;
  TokenReader in(text);
  EXPECT_EQ(read(in, list), 1);
}

// One identifier over and over: most kinds of objects replace the older one, cameras and images
// stay side by side.
TEST_F(LargeInput, RepeatedIdentifiers) {
  BundleProject p;
  test::captured_output([&] {
    read_repeated("", "camera-frame c x 150 0 0 230 230\n", p.cameras, read_camera_file);
    read_repeated("indiv-sdev\n", "p 1 2 3 4 5 6\n", p.object_points, read_obj_crds);
    read_repeated("indiv-type\n", "pmf-linear g 0 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1\n",
                  p.image_geometries, read_eo_file);
    read_repeated("", "radial-dist s c 1 1 1 1 1 1\n", p.ap_sets, read_ap_set_file);
    read_repeated("", "k g stop-dep 0 1 1 1 1 1 1 1\n", p.pos_corrections,
                  read_pos_correction_file);
    std::string images;
    for (std::int32_t i = 0; i < kRepetitions; ++i) images += "image-frame i g c\n";
    TokenReader in(images);
    EXPECT_EQ(read_image_file(in, p.images, p.cameras), 1);
    read_repeated("", "i 1 p 1 2 3 4 -1\n", p.images, read_image_crds_file);
  });
  EXPECT_EQ(p.cameras.count() + p.images.count(), 2 * kRepetitions);
  EXPECT_EQ(p.images.find("i")->points.count() + p.image_geometries.count(), 2);
  // The images of one identifier lose all but the first, which alone has points, one by one.
  test::captured_output([&] { p.check_rays_per_image(nullptr); });
  EXPECT_EQ(p.images.count(), 0);
}

// A point in so many images meets them in pairs when its coordinates are missing; nothing else may
// grow faster than the number of its images.
TEST_F(LargeInput, PointInManyImages) {
  std::string images;
  std::string coords;
  for (std::int32_t i = 0; i < 2'000; ++i) {
    const std::string id = std::to_string(i);
    images += "image-frame " + id + " g" + std::to_string(i % 2) + " c\n";
    coords += id + " 0.001 a 1 1 1 1 b 9 1 1 1 c 1 9 1 1 d 2 3 1 1 -1\n";
  }
  dir_.write("camera.txt", "camera-frame c x 150 0 0 230 230\n");
  dir_.write("image.txt", images);
  dir_.write("crds.txt", coords);
  dir_.write("eo.txt",
             "common-type ext-ori-opk-rot deg 0 0 (1,1,1) 1 1 1\n"
             "g0 0 0 100 0 0 0 g1 30 0 100 0 0 0\n");
  dir_.write("obj.txt", "indiv-sdev a 1 1 0 1 1 1 b 9 1 0 1 1 1 c 1 9 0 1 1 1\n");
  dir_.write("project.ctl",
             "camera camera.txt image image.txt image-geometry eo.txt image-crds crds.txt obj-crds "
             "obj.txt\n");
  run();
  EXPECT_THAT(dir_.read("project.out"),
              testing::HasSubstr("Images                      :    2000"));
}

#if defined(__linux__) && !defined(__SANITIZE_ADDRESS__)
TEST_F(LargeInput, RefusesNormalEquationsWithoutRoom) {
  std::filesystem::copy(VORN_SOURCE_DIR "/examples/pushbroom-strip", dir_.path("strip"));
  // A correction of 18,000 coefficients that all meet: 2.6 GB for their products alone.
  constexpr int kTriples = 6000;
  const std::string original = dir_.read("strip/position-cor.txt");
  std::string correction = original.substr(0, original.find("stop-dep")) + "stop-dep\n0.0\n" +
                           std::to_string(kTriples) + '\n';
  for (int i = 0; i < kTriples; ++i) correction += "0 1e31 0 1e31 0 1e31\n";
  dir_.write("strip/position-cor.txt", correction + "stop-dep\n");

  // Keeps the process from taking much more memory. A 32-bit process under an emulator ignores it;
  // its address space has no room for the project anyway.
  rlimit saved{};
  getrlimit(RLIMIT_AS, &saved);
  const rlimit limit = {rlim_t{1} << 30U, saved.rlim_max};
  setrlimit(RLIMIT_AS, &limit);
  EXPECT_EQ(test::run_bundle(dir_.path("strip/pushbroom-strip.ctl")).result, 0);
  const std::string report = dir_.read("strip/pushbroom-strip.out");
  EXPECT_TRUE(report.ends_with(" unknowns do not fit the address space.\n")) << report;

  // The process goes on.
  dir_.write("strip/position-cor.txt", original);
  EXPECT_EQ(test::run_bundle(dir_.path("strip/pushbroom-strip.ctl")).result, 1);
  setrlimit(RLIMIT_AS, &saved);
}

#endif

}  // namespace
}  // namespace vorn
