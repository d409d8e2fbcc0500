// What is said of motions that change no image and that nothing fixes.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "check/check.h"
#include "lsq/ls_params.h"
#include "support/captured_output.h"
#include "support/temp_dir.h"

namespace vorn {
namespace {

// Of what coordinates are held: of points a (0 0 0), b (10 0 0), c (0 10 0), d (5 5 5), then of the
// centres of two images.
struct Held {
  std::vector<std::string> points = {};   // such as "xz"
  std::vector<std::string> centres = {};  // likewise
  std::vector<bool> rotations = {};
};

std::string std_devs(const std::string& held) {
  std::string text;
  for (const char axis : {'x', 'y', 'z'}) {
    text += held.find(axis) == std::string::npos ? " 1e31" : " 1e-31";
  }
  return text;
}

class Datum : public testing::Test {
 protected:
  Datum() {
    dir_.write("c", "camera-frame c x 100 0 0 200 200");
    dir_.write("i", "image-frame A A c image-frame B B c");
    std::string measured;
    for (const char* image : {"A", "B"}) {
      measured += std::string(image) + " 1 a 0 0 1 1 b .01 0 1 1 c 0 .01 1 1 d .01 .01 1 1 -1 ";
    }
    dir_.write("m", measured);
  }
  void hold(const Held& held, bool quaternions) {
    const char* const places[] = {"a 0 0 0", "b 10 0 0", "c 0 10 0", "d 5 5 5"};
    std::string points = "indiv-sdev";
    for (std::size_t k = 0; k < 4; ++k) {
      points += '\n' + std::string(places[k]) +
                std_devs(k < held.points.size() ? held.points[k] : std::string());
    }
    dir_.write("o", points);
    std::string orientations = "indiv-type";
    for (std::size_t k = 0; k < 2; ++k) {
      const bool is_held = k < held.rotations.size() && held.rotations[k];
      const std::string sd = is_held ? " 1e-31" : " 1e31";
      orientations +=
          (quaternions ? "\next-ori-quaternion " : "\next-ori-opk-rot ") +
          std::string(k == 0 ? "A" : "B") + (quaternions ? " 0 " : " deg 0 ") +
          (k == 0 ? "0 0 90 " : "9 3 90 ") +
          std_devs(k < held.centres.size() ? held.centres[k] : std::string()) +
          (quaternions ? " 1 0.02 0.01 0" + sd + sd + sd + sd : " 1 2 3" + sd + sd + sd);
    }
    dir_.write("e", orientations);
  }
  // What is open, or the empty text.
  std::string open(const std::string& code = "datum", const std::string& more = {}) {
    dir_.write("p.ctl",
               "camera c image i image-geometry e image-crds m obj-crds o " + more + " stop-dep");
    ls_params() = LSParams();
    FindingList list;
    test::captured_output([&] {
      test::captured_errors([&] { EXPECT_TRUE(check_project(dir_.path("p.ctl"), list)); });
    });
    for (const Finding& finding : list.findings()) {
      if (name_of(finding.code) == code) return finding.message;
    }
    EXPECT_FALSE(list.has_errors()) << list.findings().front().message;
    return {};
  }

  test::TempDir dir_;
};

TEST_F(Datum, NamesTheMotionsThatNothingFixes) {
  // Rotations and scale are those about the middle of what is held: one about another place moves
  // that middle, which then is said to shift.
  const std::pair<Held, std::string> kCases[] = {
      {{},
       "shift X, shift Y, shift Z, rotation about X, rotation about Y, rotation about Z, scale"},
      {{{"xyz"}}, "rotation about X, rotation about Y, rotation about Z, scale"},
      {{{"xyz", "xyz"}}, "rotation about X"},
      {{{"xyz", "", "xyz"}}, "rotation about Y"},
      {{{"z", "z", "z"}}, "shift X, shift Y, rotation about Z, scale"},
      {{{"xyz", "xy", "z"}}, "shift Z, rotation about Y"},
      {{{"xyz", "xyz", "z"}}, ""},
      {{{"xyz", "xyz", "x", "z"}}, ""},
      // images
      {{{}, {"xyz"}, {true}}, "scale"},
      {{{}, {"xyz", "x"}, {true}}, ""},
      {{{}, {"xyz", "z"}, {true}}, "shift X, scale"},  // the centres are at one height
      {{{}, {}, {true}}, "shift X, shift Y, shift Z, scale"},
      {{{}, {}, {true, true}}, "shift X, shift Y, shift Z, scale"},
      {{{"xyz"}, {"z"}, {true}}, ""},
      {{{"xyz"}, {"xyz"}}, "rotation about Z"},  // the centre stands above the point
  };
  for (const auto& [held, expected] : kCases) {
    for (const bool quaternions : {false, true}) {
      hold(held, quaternions);
      EXPECT_EQ(open(), expected.empty() ? "" : "nothing fixes " + expected)
          << dir_.read("o") << '\n'
          << dir_.read("e");
    }
  }
}

// A free correction of the positions takes from held centres what they fix.
TEST_F(Datum, IsNotHeldByCentresThatAreCorrected) {
  hold({{}, {"xyz", "xyz"}, {true, true}}, false);
  EXPECT_EQ(open(), "");
  dir_.write("pos", "drift A B stop-dep 0 1  0 1e31 0 1e31 0 1e31");
  EXPECT_EQ(open("datum", "pos-cor pos"), "nothing fixes shift X, shift Y, shift Z, scale");
  dir_.write("pos", "drift A B stop-dep 0 1  0 1e-31 0 1e-31 0 1e-31");
  EXPECT_EQ(open("datum", "pos-cor pos"), "");
}

TEST_F(Datum, IsHeldByALinearModelThatIsFixed) {
  hold({}, false);
  std::string dlt = "indiv-type dlt A 0";
  for (int k = 0; k < 11; ++k) dlt += " 0.01 1e-31";
  const std::string other = dir_.read("e").substr(dir_.read("e").find("\next-ori-opk-rot B"));
  dir_.write("e", dlt + other);
  EXPECT_EQ(open(), "");
  dir_.write("e", dlt.substr(0, dlt.size() - 3) + "31" + other);
  EXPECT_NE(open(), "") << "one parameter is free";
}

TEST_F(Datum, IsMissedByImagesThatNoPointTies) {
  hold({{"xyz", "xyz", "xyz"}}, false);
  EXPECT_EQ(open(), "");
  dir_.write("i", dir_.read("i") + " image-frame C C c image-frame D D c");
  dir_.write("e", dir_.read("e") +
                      "\next-ori-opk-rot C deg 0 50 0 90 1e31 1e31 1e31 0 0 0 1e31 1e31 1e31"
                      "\next-ori-opk-rot D deg 0 59 0 90 1e31 1e31 1e31 0 0 0 1e31 1e31 1e31");
  std::string measured = dir_.read("m");
  for (const char* image : {"C", "D"}) {
    measured += std::string(image) + " 1 f 0 0 1 1 g .01 0 1 1 h 0 .01 1 1 -1 ";
  }
  dir_.write("m", measured);
  dir_.write("o", dir_.read("o") +
                      "\nf 50 0 0 1e31 1e31 1e31 g 60 0 0 1e31 1e31 1e31"
                      " h 50 10 0 1e31 1e31 1e31");
  EXPECT_EQ(open("islands").substr(0, 69),
            "no common point ties the images C, D to the others, and nothing fixes");
  // A point that all of them measure ties them.
  dir_.write("m", std::string(measured).replace(measured.find("C 1 f"), 5, "C 1 a 0 0 1 1 f"));
  EXPECT_EQ(open("islands"), "");
}

}  // namespace
}  // namespace vorn
