// Import: what projects come to, and what is refused.

#include "app/exchange/import.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "app/exchange/readers.h"
#include "samples.h"
#include "support/captured_output.h"
#include "support/project_test.h"
#include "support/temp_dir.h"

namespace vorn::exchange {
namespace {

using testing::HasSubstr;

class Import : public testing::Test {
 protected:
  Import() {
    dir_.write("text/cameras.txt", test::kColmapCameras);
    dir_.write("text/images.txt", test::kColmapImages);
    dir_.write("text/points3D.txt", test::kColmapPoints);
    dir_.write("binary/cameras.bin", test::binary_cameras());
    dir_.write("binary/images.bin", test::binary_images());
    dir_.write("binary/points3D.bin", test::binary_points());
    dir_.write("bal.txt", test::kBal);
    dir_.write("bundle.out", test::kBundler);
  }
  // Imports into the folder "out"; the message of a refusal, or nothing.
  std::string import(const std::string& format, const std::string& source,
                     const std::function<void(ImportRequest&)>& ask = {}) {
    ImportRequest request;
    request.format = format;
    request.source = dir_.path(source);
    request.directory = dir_.path("out");
    if (ask) ask(request);
    std::string refusal;
    summary_ = test::captured_output([&] {
      try {
        import_project(request);
      } catch (const ExchangeError& error) {
        refusal = error.what();
      }
    });
    return refusal;
  }

  test::TempDir dir_;
  std::string summary_;
};

TEST_F(Import, TakesProjectionsOverExactly) {
  for (const auto& [format, source, counts] : std::vector<std::array<std::string, 3>>{
           {"colmap", "text", "3 images 4 points 12 rays"},
           {"colmap", "binary", "3 images 4 points 12 rays"},
           {"bal", "bal.txt", "2 images 3 points 6 rays"},
           {"bundler", "bundle.out", "2 images 3 points 6 rays"}}) {
    EXPECT_EQ(import(format, source), "");
    std::istringstream words(counts);
    for (std::string number, kind; words >> number >> kind;) {
      EXPECT_THAT(summary_, testing::ContainsRegex("  " + kind + " +" + number + "[ \n]"))
          << source;
    }
    EXPECT_THAT(summary_, testing::ContainsRegex("re-projections: [0-9.]+e-1[0-9] px"));
    EXPECT_TRUE(dir_.has("out/project.ctl"));
  }
  EXPECT_THAT(summary_, HasSubstr("1 cameras are not registered"));
  EXPECT_THAT(summary_, HasSubstr("1 measurements in cameras that are not registered"));
}

TEST_F(Import, SaysWhatWasLeftOut) {
  EXPECT_EQ(import("colmap", "text"), "");
  EXPECT_THAT(summary_, HasSubstr("1   further measurements of a point in the same image"));
  EXPECT_THAT(summary_, HasSubstr("1   points with fewer than two rays (1 rays)"));
  EXPECT_THAT(summary_, HasSubstr("1 names of images changed"));
  EXPECT_THAT(dir_.read("out/images.txt"),
              HasSubstr("image-frame left_view.jpg left_view.jpg 1\n"));
  EXPECT_THAT(dir_.read("out/images.txt"), HasSubstr("night/r\xC3\xA9union.jpg 2\n"));
  EXPECT_THAT(dir_.read("out/image-coords.txt"), HasSubstr("11 379.5 309.5 1 1\n"))
      << "the first of two measurements stays";

  dir_.write("text/points3D.txt",
             test::edited(test::kColmapPoints, "13 -0.2 -0.3 4.8", "13 3.88983 0.8246 -3.53"));
  EXPECT_EQ(import("colmap", "text", [](ImportRequest& r) { r.max_error_px = 5.0; }),
            dir_.path("text") + ": no point has two rays");
}

TEST_F(Import, GivesTextAndBinaryTheSameProject) {
  EXPECT_EQ(import("colmap", "text", [](ImportRequest& r) { r.directory += "/text"; }), "");
  EXPECT_EQ(import("colmap", "binary", [](ImportRequest& r) { r.directory += "/binary"; }), "");
  for (const char* name : kProjectFiles) {
    EXPECT_EQ(dir_.read(std::string("out/text/") + name),
              dir_.read(std::string("out/binary/") + name));
  }
}

// One pinhole image by hand: x = 500 (1/5) + 320 = 420 from the image's corner, one pixel's half
// less from the centre of the first pixel.
TEST_F(Import, CountsPixelsFromTheirCentres) {
  dir_.write("text/cameras.txt", "1 SIMPLE_PINHOLE 640 480 500 320 240\n");
  dir_.write("text/images.txt",
             "1 1 0 0 0 0 0 0 1 a\n420 140 1\n2 1 0 0 0 -1 0 0 1 b\n320 140 1\n");
  dir_.write("text/points3D.txt", "1 1 -1 5 0 0 0 0 1 0 2 0\n");
  EXPECT_EQ(import("colmap", "text"), "");
  EXPECT_THAT(summary_, HasSubstr("rms of a coordinate 0 px"));
  EXPECT_THAT(dir_.read("out/image-coords.txt"), HasSubstr("a 1\n1 419.5 139.5 1 1\n"));
  EXPECT_THAT(dir_.read("out/orientations.txt"), HasSubstr("a rad 0\n"));
}

TEST_F(Import, FreesWhatIsAskedFor) {
  const auto free_of = [&](const std::string& free) {
    EXPECT_EQ(import("colmap", "text", [&](ImportRequest& r) { r.free = free; }), "");
    std::istringstream sets(dir_.read("out/ap-sets.txt"));
    std::string states;
    for (std::string word; sets >> word;) {
      if (word == "australis") states += ' ';
      if (word == "1e31") states += '1';
      if (word == "1e-31") states += '0';
    }
    return states;
  };
  EXPECT_EQ(free_of("none"), " 0000000000 0000000000 0000000000");
  EXPECT_EQ(free_of("model"), " 0011000000 0011101110 0011111110");
  EXPECT_EQ(free_of("f,pp, k3"), " 1110010000 1110010000 1110010000");
  EXPECT_EQ(free_of("p1"), " 0000000100 0000000100 0000000100") << "P2 of the project";
  EXPECT_THAT(import("colmap", "text", [](ImportRequest& r) { r.free = "f,k9"; }),
              HasSubstr("cannot free 'k9'"));
}

TEST_F(Import, HoldsTheDatum) {
  const auto count = [&](const std::string& file, const std::string& word) {
    std::istringstream words(dir_.read("out/" + file));
    return std::count(std::istream_iterator<std::string>(words), {}, word);
  };
  for (const auto& [datum, orientations, points] :
       {std::tuple{"image", 7, 0}, {"points", 0, 7}, {"none", 0, 0}}) {
    EXPECT_EQ(import("colmap", "text", [&](ImportRequest& r) { r.datum = datum; }), "");
    EXPECT_EQ(count("orientations.txt", "1e-31"), orientations) << datum;
    EXPECT_EQ(count("object-coords.txt", "1e-31"), points) << datum;
  }
}

TEST_F(Import, ScalesObjectSpace) {
  EXPECT_EQ(import("bal", "bal.txt", [](ImportRequest& r) { r.scale = 100.0; }), "");
  EXPECT_THAT(dir_.read("out/object-coords.txt"), HasSubstr("0 50 100 0 1e31"));
}

// Only the direction of a quaternion counts, whatever its length.
TEST_F(Import, NormalisesQuaternions) {
  const auto numbers = [&] {
    std::istringstream words(dir_.read("out/orientations.txt"));
    std::vector<double> values;
    for (std::string word; words >> word;) values.push_back(std::strtod(word.c_str(), nullptr));
    return values;
  };
  EXPECT_EQ(import("colmap", "text"), "");
  const std::vector<double> expected = numbers();
  for (const char* q : {"9.9e199 0.5e199 -0.8e199 0.2e199", "0.99e-200 5e-202 -8e-202 2e-202"}) {
    dir_.write("text/images.txt", test::edited(test::kColmapImages, "0.99 0.05 -0.08 0.02", q));
    EXPECT_EQ(import("colmap", "text"), "");
    EXPECT_THAT(numbers(), testing::Pointwise(testing::DoubleNear(1e-12), expected));
  }
}

// Poses alone are a project, too; points that nothing measures are none.
TEST_F(Import, TakesPosesWithoutPoints) {
  dir_.write("text/images.txt", "1 1 0 0 0 0 0 0 1 a\n\n2 1 0 0 0 -1 0 0 1 b\n\n");
  EXPECT_EQ(import("colmap", "text"), dir_.path("text") +
                                          "/points3D.txt:2: point 11: its "
                                          "measurement 0 in image 1: the image has only 0");
  dir_.write("text/points3D.txt", "1 2 3 4 0 0 0 0\n");
  EXPECT_EQ(import("colmap", "text"), dir_.path("text") + ": no point has two rays");
  dir_.write("text/points3D.txt", "");
  EXPECT_EQ(import("colmap", "text"), "");
  EXPECT_THAT(summary_, HasSubstr("note: there are no points: cameras and orientations only"));
}

// A point without height is checked in plan; the name of a tie point gets a prefix.
TEST_F(Import, MakesCheckPoints) {
  dir_.write("gcp.txt",
             "EPSG:25832\n0 0 0 100 100 left view.jpg a\n0 0 0 120 90 réunion.jpg a\n"
             "9 0 1 500 120 left view.jpg b\n9 0 1 510 130 réunion.jpg b\n"
             "0 8 2 110 400 left view.jpg 11\n0 8 2 150 410 réunion.jpg 11\n"
             "7 7 NaN 300 300 left view.jpg d\n7 7 NaN 310 320 réunion.jpg d\n");
  const auto import_with = [&](const std::string& list, const char* check) {
    return import("colmap", "text", [&](ImportRequest& r) {
      r.control_list = list.empty() ? "" : dir_.path(list);
      r.check_points = check;
    });
  };
  EXPECT_EQ(import_with("gcp.txt", "b, 11,d"), "");
  EXPECT_EQ(dir_.read("out/check-points.txt"), "b ch xyz\ngcp_11 ch xyz\nd ch xy\nstop-dep\n");
  EXPECT_THAT(dir_.read("out/project.ctl"), HasSubstr("ctrl-supp       check-points.txt\nstop"));
  EXPECT_THAT(import_with("gcp.txt", "a,x"), HasSubstr("'x' is no point of the control list"));
  EXPECT_THAT(import_with("", "a"), HasSubstr("check points are points of a control list"));
  EXPECT_EQ(import_with("gcp.txt", ""), "");
  EXPECT_THAT(dir_.read("out/project.ctl"), testing::Not(HasSubstr("ctrl-supp")));
}

// Copes with what other programs and editors do to text.
TEST_F(Import, ReadsOddTexts) {
  std::string crlf;
  for (const char c : std::string(test::kColmapImages)) {
    crlf += c == '\n' ? "\r\n" : std::string(1, c);
  }
  dir_.write("text/images.txt", "\xEF\xBB\xBF\r\n" + crlf + "10 1 0 0 0 0 0 0 1 empty.jpg\r\n");
  dir_.write("text/cameras.txt",
             "\t\n" + test::edited(test::kColmapCameras, "1 SIMPLE", " 1\tSIMPLE"));
  dir_.write("text/rigs.txt", "");
  EXPECT_EQ(import("colmap", "text"), "");
  EXPECT_THAT(summary_, testing::ContainsRegex("images +4\n"));
  EXPECT_THAT(summary_, HasSubstr("rigs are not used"));

  const std::string same_names = test::edited(test::kColmapImages, "top.jpg", "left_view.jpg");
  dir_.write("text/images.txt", same_names);
  EXPECT_EQ(import("colmap", "text"), "");
  EXPECT_THAT(dir_.read("out/images.txt"), HasSubstr("left_view.jpg_2"));
  dir_.write("text/images.txt", test::edited(test::kColmapImages, "top.jpg", "stop-dep"));
  EXPECT_EQ(import("colmap", "text"), "");
}

struct Damage {
  const char* file;
  const char* from;
  const char* to;
  const char* message;
};

TEST_F(Import, RefusesDamagedTexts) {
  const std::vector<Damage> damages = {
      {"cameras.txt", "SIMPLE_RADIAL", "OPENCV_FISHEYE", "cameras.txt:2: "},
      {"cameras.txt", "1 SIMPLE_RADIAL 640 480 500 320.25 240.5 -0.1",
       "1 FOV 640 480 500 500 320 240 0.9", "cameras.txt:2: camera 1: the model FOV has no exact"},
      {"cameras.txt", "SIMPLE_RADIAL", "DIVISION", "cameras.txt:2: unknown camera model"},
      {"cameras.txt", "0.004 0 0 0", "0.004 0.1 0 0", "cameras.txt:4: camera 7: the rational"},
      {"cameras.txt", "240.5 -0.1", "240.5", "cameras.txt:2: ends where camera parameter"},
      {"cameras.txt", "240.5 -0.1", "240.5 -0.1 3", "cameras.txt:2: more than expected: '3'"},
      {"cameras.txt", "640 480 500", "640 480 -500", "focal length is not positive"},
      {"cameras.txt", "640 480", "0 480", "0 x 480 pixels"},
      {"cameras.txt", "640", "640.5", "'640.5' is no valid image width"},
      {"cameras.txt", "2 OPENCV", "1 OPENCV", "cameras.txt:3: camera 1 is there for the second"},
      {"cameras.txt", "-0.05", "nan", "cameras.txt:3: 'nan' is no valid"},
      {"images.txt", "0.99 0.05 -0.08 0.02", "0 0 0 0", "images.txt:2: image 1: the quaternion"},
      {"images.txt", "0.3 -0.1", "inf -0.1", "images.txt:2: 'inf' is no valid translation"},
      {"images.txt", " 2 night", " 3 night", "image 4: there is no camera 3"},
      {"images.txt", "4 0.98", "1 0.98", "images.txt:4: image 1 is there for the second time"},
      {"images.txt", "left view.jpg", "", "images.txt:2: image 1 has no name"},
      {"images.txt", "left view.jpg", "top.jpg", "images.txt:6: image 9: the name 'top.jpg'"},
      {"images.txt", "350.5 260.25 12", "350.5 260.25 -2", "images.txt:3: '-2' is no valid"},
      {"images.txt", "350.5 260.25 12", "350.5 260.25 99", "the image does not measure the point"},
      {"images.txt", "10 20 -1", "10 20 99", "images.txt:2: image 1: there is no point 99"},
      {"images.txt", "330 280 14", "330 280", "images.txt:3: ends where"},
      {"points3D.txt", "12 0.5 0.4", "11 0.5 0.4", "points3D.txt:3: point 11 is there"},
      {"points3D.txt", "12 0.5 0.4", "-12 0.5 0.4", "'-12' is no valid point identifier"},
      {"points3D.txt", "1 1 4 1 9 1", "1 1 4 1 8 1", "points3D.txt:3: point 12: its measurement 1"},
      {"points3D.txt", "1 1 4 1 9 1", "1 1 4 77 9 1", "the image has only 5"},
      {"points3D.txt", "1 1 4 1 9 1", "1 1 4 1 9", "points3D.txt:3: ends where"},
      {"points3D.txt", "1 1 4 1 9 1", "1 1 4 1", "the tracks hold 13 measurements, the images 14"},
      {"points3D.txt", "-0.2 -0.3", "1e999 -0.3", "'1e999' is no valid coordinate"},
      {"images.txt", "300 200 13", "1e300 200 13", "the residuals are beyond all numbers"},
      {"cameras.txt", "1 SIMPLE", "\x01\x02 SIMPLE", "'?\?' is no valid camera"},
  };
  for (const Damage& damage : damages) {
    const std::string original = dir_.read(std::string("text/") + damage.file);
    dir_.write(std::string("text/") + damage.file, test::edited(original, damage.from, damage.to));
    EXPECT_THAT(import("colmap", "text"), HasSubstr(damage.message)) << damage.to;
    EXPECT_FALSE(dir_.has("out")) << damage.message;
    dir_.write(std::string("text/") + damage.file, original);
  }
}

TEST_F(Import, RefusesOtherDamagedFiles) {
  const std::string bal = test::kBal;
  const std::string bundler = test::kBundler;
  const std::vector<std::tuple<const char*, std::string, const char*>> damages = {
      {"bal", test::edited(bal, "2 3 6", "2 3 7"), "bal:8: '0.01' is no valid camera"},
      {"bal", test::edited(bal, "2 3 6", "2 1000000000 6"), "too short"},
      {"bal", test::edited(bal, "2 3 6", "-2 3 6"), "too short"},
      {"bal", test::edited(bal, "1 0 12 38", "2 0 12 38"), "bal:3: camera 2: there are only 2"},
      {"bal", test::edited(bal, "1 0 12 38", "1 -1 12 38"), "point -1"},
      {"bal", test::edited(bal, "500", "0"), "camera 0: the focal length is not positive"},
      {"bal", bal + "1\n", "more than expected"},
      {"bal", bal.substr(0, bal.size() - 6), "ends where coordinate should stand"},
      {"bal", "", "ends where"},
      {"bal", "0 0 0", "bal: no image has an orientation"},
      {"bal", test::edited(bal, "0.01\n", "1e300\n"), "bal: image image0: its rotation cannot be"},
      {"bundler", "# Bundle file v0.3\n1 0\n0 0 0 0 0 0 0 0 0 0 0 0 0 0 0\n", "no image has an"},
      {"bundler", test::edited(bundler, "v0.3", "v0.2"), "bundler:1: only version 0.3"},
      {"bundler", test::edited(bundler, "0.8 0 0.6", "0.9 0 0.6"), "rotation matrix is none"},
      {"bundler", test::edited(bundler, "-0.6 0 0.8", "0.6 0 -0.8"), "rotation matrix is none"},
      {"bundler", test::edited(bundler, "3 0 7", "4 0 7"),
       "bundler:21: camera -1: there are only 3"},
      {"bundler", test::edited(bundler, "2 8 12 38", "3 8 12 38"), "camera 3: there are only 3"},
      {"bundler", test::edited(bundler, "510 -0.11", "-510 -0.11"), "focal length is negative"},
      {"bundler", bundler.substr(0, bundler.size() - 4), "ends where"},
  };
  for (const auto& [format, text, message] : damages) {
    dir_.write(format, text);
    EXPECT_THAT(import(format, format), HasSubstr(message));
    EXPECT_FALSE(dir_.has("out")) << message;
  }
}

// A file cut anywhere is refused, at every byte.
TEST_F(Import, RefusesCutFiles) {
  const std::array<std::string, 3> whole = {test::binary_cameras(), test::binary_images(),
                                            test::binary_points()};
  const auto refusal = [](const std::array<std::string, 3>& files) -> std::string {
    const auto source = [&](std::size_t i) {
      return Source(std::to_string(i), files[i], Source::Kind::binary);
    };
    try {
      read_colmap_binary(source(0), source(1), source(2));
    } catch (const ExchangeError& error) {
      return error.what();
    }
    return "";
  };
  EXPECT_EQ(refusal(whole), "");
  for (std::size_t i = 0; i < whole.size(); ++i) {
    std::array<std::string, 3> files = whole;
    for (std::size_t size = 0; size < whole[i].size(); ++size) {
      files[i] = whole[i].substr(0, size);
      ASSERT_THAT(refusal(files), HasSubstr(std::to_string(i) + ": byte ")) << size;
    }
    files[i] = whole[i] + '\0';
    EXPECT_THAT(refusal(files), HasSubstr("1 bytes more than the counts say"));
    files[i] = whole[i];
    files[i][7] = '\x7F';
    EXPECT_THAT(refusal(files), HasSubstr("too short"));
  }
}

TEST_F(Import, SaysWhichFilesAreMissing) {
  EXPECT_THAT(import("colmap", "nowhere"), HasSubstr("no such folder"));
  EXPECT_THAT(import("colmap", "bal.txt"), HasSubstr("is no folder"));
  EXPECT_THAT(import("bal", "nowhere"), HasSubstr("no such file"));
  EXPECT_THAT(import("bal", "text"), HasSubstr("is a directory"));
  EXPECT_THAT(import("vsfm", "text"), HasSubstr("unknown format 'vsfm'; there are colmap, bal"));
  std::filesystem::remove(dir_.path("text/images.txt"));
  EXPECT_THAT(import("colmap", "text"), HasSubstr("images.txt: no such file"));
  dir_.write("sparse/0/x", "");
  for (const char* part : {"cameras.bin", "images.bin", "points3D.bin"}) {
    dir_.write(std::string("sparse/1/") + part, dir_.read(std::string("binary/") + part));
  }
  EXPECT_THAT(import("colmap", "sparse"), HasSubstr("sparse/1"));
  for (const auto& ask : std::vector<std::function<void(ImportRequest&)>>{
           [](ImportRequest& r) { r.name = "a b"; }, [](ImportRequest& r) { r.name = "../x"; },
           [](ImportRequest& r) { r.sigma_px = 0; }, [](ImportRequest& r) { r.pixel_size_um = -1; },
           [](ImportRequest& r) { r.datum = "moon"; },
           [](ImportRequest& r) { r.scale = std::numeric_limits<double>::infinity(); }}) {
    EXPECT_NE(import("bal", "bal.txt", ask), "");
    EXPECT_FALSE(dir_.has("out"));
  }
}

// A disk that is full, or a limit, in the middle of a file.
TEST_F(Import, LeavesNoHalfProject) {
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  const rlimit limit{100, before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &limit);
  const std::string refusal = import("bal", "bal.txt");
  setrlimit(RLIMIT_FSIZE, &before);
  std::signal(SIGXFSZ, handler);
  EXPECT_THAT(refusal, HasSubstr("File too large"));
  EXPECT_FALSE(dir_.has("out"));
}

TEST_F(Import, LeavesOtherProjectsAlone) {
  EXPECT_EQ(import("bal", "bal.txt"), "");
  const std::string before = dir_.read("out/cameras.txt");
  EXPECT_THAT(import("colmap", "text", [](ImportRequest& r) { r.name = "other"; }),
              HasSubstr("holds another project"));
  dir_.write("text/cameras.txt", "");
  EXPECT_NE(import("colmap", "text"), "");
  EXPECT_EQ(dir_.read("out/cameras.txt"), before);
  EXPECT_EQ(import("bundler", "bundle.out"), "") << "the same name again replaces";
  EXPECT_NE(dir_.read("out/cameras.txt"), before);
}

// Nor a file of anybody else: the source, lists, what happens to have such a name, a project that
// was made otherwise.
TEST_F(Import, OverwritesNoOtherFiles) {
  const auto import_into = [this](const char* format, const char* source, const char* folder,
                                  const char* list = nullptr) {
    return import(format, source, [&](ImportRequest& r) {
      r.directory = dir_.path(folder);
      if (list != nullptr) r.control_list = dir_.path(list);
    });
  };
  dir_.write("mine/images.txt", "precious");
  dir_.write("made/project.ctl", "camera camera.txt image images.txt");
  for (const char* folder : {"out", "listed"}) {
    ASSERT_EQ(import_into("bal", "bal.txt", folder), "");
  }
  dir_.write("out/ap-sets.txt", dir_.read("bal.txt"));
  dir_.write("listed/check-points.txt", "EPSG:25832\n0 0 0 12 38 image0 a\n");
  const auto files = [this] {
    std::map<std::string, std::string> texts;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(dir_.path())) {
      if (entry.is_regular_file()) {
        texts[entry.path().string()] = test::file_text(entry.path().string());
      }
    }
    return texts;
  };
  const auto before = files();
  EXPECT_THAT(import_into("colmap", "text", "text"), HasSubstr("cannot stand in the folder"));
  EXPECT_THAT(import_into("bal", "bal.txt", "mine"), HasSubstr("images.txt: this is no file of"));
  EXPECT_THAT(import_into("bal", "bal.txt", "text"), HasSubstr("cameras.txt: this is no file of"));
  EXPECT_THAT(import_into("bal", "bal.txt", "made"), HasSubstr("project.ctl: this is not the"));
  EXPECT_THAT(import_into("bal", "out/ap-sets.txt", "out"), HasSubstr("would overwrite it"));
  EXPECT_THAT(import_into("colmap", "text", "listed", "listed/check-points.txt"),
              testing::Not(testing::IsEmpty()));
  EXPECT_EQ(files(), before);
}

}  // namespace
}  // namespace vorn::exchange
