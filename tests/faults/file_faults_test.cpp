// Files that fail: outputs that cannot be written, inputs that are no files, are cut short or hold
// nonsense.

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <thread>

#include "driver/bundle_project.h"
#include "driver/run.h"
#include "geometry/eo_file.h"
#include "support/project_test.h"

#ifndef _WIN32
#include <sys/resource.h>
#include <sys/stat.h>

namespace vorn {
namespace {

namespace fs = std::filesystem;
using test::BundleRun;

const std::vector<std::string> kResults = {
    "project.out",    "project.cam", "project.ext",   "project.ocs", "project.res", "project.apset",
    "project.gcpres", "project.chp", "structure.pbm", "matrix.txt",  "rhs.txt",     "solution.txt"};

class FileFaults : public test::ProjectTest {
 protected:
  // The result files that are plain files now, without times.
  std::map<std::string, std::string> results() {
    std::map<std::string, std::string> texts;
    for (const std::string& name : kResults) {
      if (fs::is_regular_file(fs::symlink_status(dir_.path(name)))) {
        texts[name] = test::without_times(dir_.read(name));
      }
    }
    return texts;
  }
};

TEST_F(FileFaults, OutputsThatCannotBeWritten) {
  std::string& options = project_.files["params.txt"];
  options = "0 0 0 0 0 0 0 0 0 0 0 0 3 3 structure.pbm matrix.txt rhs.txt solution.txt\n";
  project_.write(dir_);
  ASSERT_EQ(run().result, 1);
  const std::map<std::string, std::string> expected = results();
  ASSERT_EQ(expected.size(), kResults.size());
  const auto replace = [this](const std::string& name, bool disk_full) {
    fs::remove_all(dir_.path(name));
    if (disk_full) {
      fs::create_symlink("/dev/full", dir_.path(name));
    } else {
      fs::create_directory(dir_.path(name));
    }
  };
  for (const bool disk_full : {true, false}) {
    for (const std::string& name : kResults) {
      replace(name, disk_full);
      const BundleRun one = run();
      EXPECT_EQ(one.result, 1) << name;
      // The error stream names the file; those of the normal equations have a message of their own,
      // too. The run goes on without the file.
      EXPECT_EQ(one.errors.find("ERROR: Cannot write file: "), 0U) << name;
      EXPECT_THAT(one.errors, testing::HasSubstr(name + (disk_full ? ": No space left on device\n"
                                                                   : ": Is a directory\n")));
      EXPECT_EQ(std::count(one.errors.begin(), one.errors.end(), '\n'), 1) << one.errors;
      const bool reported = !disk_full && name.find("project") == std::string::npos;
      EXPECT_EQ(one.output.find("ERROR: Cannot write") != std::string::npos, reported) << name;
      std::map<std::string, std::string> others = expected;
      others.erase(name);
      EXPECT_EQ(results(), others) << name;
      fs::remove_all(dir_.path(name));
    }
    for (const std::string& name : kResults) replace(name, disk_full);
    const BundleRun none = run();
    EXPECT_EQ(none.result, 1);
    EXPECT_EQ(std::count(none.errors.begin(), none.errors.end(), '\n'),
              static_cast<std::ptrdiff_t>(kResults.size()));
    for (const std::string& name : kResults) fs::remove_all(dir_.path(name));
  }
  expect_inputs_unchanged();
}

struct BadInput {
  std::string name;
  void (*put)(const fs::path& path);
  bool is_opened;
};

const std::vector<BadInput> kBadInputs = {
    {"nothing", [](const fs::path&) {}, false},
    {"directory", [](const fs::path& path) { fs::create_directory(path); }, false},
    {"link to nothing", [](const fs::path& path) { fs::create_symlink("nowhere", path); }, false},
    {"link to itself", [](const fs::path& path) { fs::create_symlink(path, path); }, false},
    {"pipe", [](const fs::path& path) { ASSERT_EQ(mkfifo(path.c_str(), 0600), 0); }, false},
    {"unreadable", [](const fs::path& path) { fs::create_symlink("/proc/self/mem", path); }, false},
    {"/dev/null", [](const fs::path& path) { fs::create_symlink("/dev/null", path); }, true},
    {"/dev/zero", [](const fs::path& path) { fs::create_symlink("/dev/zero", path); }, true},
    {"empty file", [](const fs::path& path) { std::ofstream{path}; }, true},
};

TEST_F(FileFaults, InputsThatAreNone) {
  for (const BadInput& bad : kBadInputs) {
    for (const auto& [name, text] : project_.files) {
      // 64 megabytes of it are read: a few files will do.
      if (bad.name == "/dev/zero" && name != "obj.txt" && name != "ap.txt") continue;
      SCOPED_TRACE(bad.name + " for " + name);
      fs::remove(dir_.path(name));
      bad.put(dir_.path(name));
      const BundleRun with_fault = run();
      EXPECT_TRUE(bad.is_opened || with_fault.result == 0);
      if (name != "project.ctl") {
        // Lists may be empty; what follows from that has its own reason.
        expect_reason(with_fault);
        if (!bad.is_opened) {
          EXPECT_THAT(with_fault.output,
                      testing::HasSubstr("ERROR: Cannot open input file: " + name + '\n'));
        }
      }
      fs::remove_all(dir_.path(name));
      dir_.write(name, text);
    }
  }
  EXPECT_EQ(run().result, 1);
}

// The file disappears and comes back while runs ask for it, open it and read it.
TEST_F(FileFaults, DataFileThatComesAndGoes) {
  std::atomic<bool> done = false;
  const std::string path = dir_.path("obj.txt");
  const std::string aside = dir_.path("aside.txt");
  std::thread mover([&] {
    while (!done) {
      std::rename(path.c_str(), aside.c_str());
      std::rename(aside.c_str(), path.c_str());
    }
  });
  for (int i = 0; i < 40; ++i) {
    const BundleRun one = run();
    EXPECT_EQ(one.result == 0,
              one.output.find("ERROR: Cannot open input file: obj.txt\n") != std::string::npos);
  }
  done = true;
  mover.join();
  EXPECT_EQ(run().result, 1);
  expect_inputs_unchanged();
}

// Every file is cut after each of its tokens, and each token is replaced by something odd.
TEST_F(FileFaults, DamagedTokens) {
  const std::string replacements[] = {"-1",   "2147483647", "1e999", "nan",
                                      "(",    "stop-dep",   "0",     std::string(100'000, '7'),
                                      "\xFF", "(1,2,3)",    "1e300"};
  std::size_t turn = 0;
  for (const auto& [file, text] : project_.files) {
    for (std::size_t begin = 0, end = 0; end < text.size();) {
      begin = text.find_first_not_of(" \n", end);
      if (begin == std::string::npos) break;
      end = std::min(text.find_first_of(" \n", begin), text.size());
      SCOPED_TRACE(file + ", up to " + std::to_string(end));
      dir_.write(file, text.substr(0, end));
      expect_reason(run());
      const std::string& replacement = replacements[turn++ % std::size(replacements)];
      // A large number of iterations is not an error.
      if (file == "lspar.txt" && begin == 5 && replacement == "2147483647") continue;
      dir_.write(file, text.substr(0, begin) + replacement + text.substr(end));
      expect_reason(run());
    }
    dir_.write(file, text);
  }
  EXPECT_EQ(run().result, 1) << "the undamaged project runs";
}

// Inputs whose size is the attack: tokens of many megabytes, identifiers that repeat three
// hundred thousand times. All of them take time in proportion to their length.

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
  // Who looks for the cause does not fill a matrix that has no memory.
  RunRequest request{.path = dir_.path("strip/pushbroom-strip.ctl")};
  int diagnoses = 0;
  request.hear_diagnosis = [&diagnoses](const Diagnosis&) { ++diagnoses; };
  test::captured_output([&] { EXPECT_EQ(run_project(request).result, 0); });
  EXPECT_EQ(diagnoses, 0);

  // The process goes on.
  dir_.write("strip/position-cor.txt", original);
  EXPECT_EQ(test::run_bundle(dir_.path("strip/pushbroom-strip.ctl")).result, 1);
  setrlimit(RLIMIT_AS, &saved);
}

#endif

}  // namespace
}  // namespace vorn
#endif
