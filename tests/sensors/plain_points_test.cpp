// Object points read line by line, by all workers, against the same list read word by word: one
// that begins in the line of its head.

#include "sensors/plain_points.h"

#include <gtest/gtest.h>

#include <string>

#include "support/captured_output.h"
#include "support/thread_team.h"
#include "text/findings.h"

namespace vorn {
namespace {

// Everything that reading a list leads to, as text.
std::string reading(const std::string& text, bool heard) {
  OwnedList<ObjectPoint> points;
  FindingList findings;
  std::string result;
  result += test::captured_output([&] {
    TokenReader in(text, "points", heard ? &findings : nullptr);
    result += std::to_string(read_obj_crds(in, points));
    result += std::to_string(in.failed()) + std::to_string(in.passed_over()) + '|' +
              std::string(in.rest()) + '|' + std::string(in.last_word()) + '|';
  });
  for (const ObjectPoint& point : points) {
    const Place place = findings.places.find(&point);
    result += '\n' + point.id + ' ' + std::to_string(static_cast<int>(point.type)) +
              std::to_string(point.has_coords) + " in line " + std::to_string(place.line) + ':';
    for (const double x : point.xyz) result += ' ' + std::to_string(x);
    for (const double sigma : point.std_devs) result += ' ' + std::to_string(sigma);
  }
  for (const Finding& finding : findings.findings()) {
    result += '\n' + finding.object.id + ' ' + finding.message;
  }
  return result;
}

TEST(PlainPoints, AreReadAsWordByWord) {
  const std::string a = "a 1.5 2 3e1 .1 .2 .3\n";
  const std::string b = " b\t4 5 -6 1e9 1e9 1e9 \r\n";
  std::string many;  // some ranges of lines
  for (int k = 0; k < 5000; ++k) many += std::to_string(k % 4999) + b.substr(2);
  const struct {
    std::string list;
    bool is_plain;
  } cases[] = {
      {a + b + "stop-dep\nbehind it\n", true},
      {a + "\n \n" + b + "  -1", true},
      {a + many + "-1 x\n" + b, true},  // one point twice
      {a + "-1x 1 2 3 1 1 1\n-1\n", true},
      {a + "b 1 2 3 1 1 1" + std::string(300000, ' ') + '\n' + many + "-1", true},
      {a + b, false},                                           // no end
      {a + "b 1 2 3 1 1\nc 1 2 3 1 1 1\n-1\n", false},          // too few
      {a + b + "d 1 2 3 1 1 1 1\nc 1 2 3 1 1 1\n-1\n", false},  // too many
      {a + "b 1 2 3-1 1 1\n-1\n", false},                       // two numbers in a word
      {a + "b 1 2 3x 1 1 1\n-1\n", false},                      // no number
      {a + "b 1 2 1e999 1 1 1\n-1\n", false},                   // beyond the largest one
      {a + "b (1,2,3) (1,1,1)\n-1\n", false},                   // lists
      {a + "b 1 2 3\n1 1 1\n" + b + "-1\n", false},             // a record of two lines
      {a + "b 1 2 3 1 1 1 c 1 2 3 1 1 1\n-1\n", false},         // two in a line
      {a + "b 1 2 3 1 -1 1\n" + many + "-1\n", false},          // no standard deviation
      {a + many + "b 1 2 3 -1\n-1 1 1\n" + a + "-1", false}     // a value like an end word
  };
  for (const auto& c : cases) {
    EXPECT_EQ(read_plain_points("\n" + c.list, nullptr).has_value(), c.is_plain) << c.list;
    EXPECT_FALSE(read_plain_points(c.list, nullptr)) << "behind the head in its line";
    for (const bool heard : {false, true}) {
      const std::string by_words = reading("\nindiv-sdev " + c.list, heard);
      EXPECT_EQ(reading("indiv-sdev\n" + c.list, heard), by_words) << c.list;
      const test::ThreadTeam team(3);
      EXPECT_EQ(reading("indiv-sdev\n" + c.list, heard), by_words) << c.list;
    }
  }
  const std::string common = "p 1 2 3\nq 4 5 6\n-1\n";
  EXPECT_EQ(reading("common-sdev 0 1 2\n" + common, true),
            reading("\ncommon-sdev 0 1 2 " + common, true));
  const Vec3 std_devs{0.0, 1.0, 2.0};
  EXPECT_TRUE(read_plain_points("\n" + common, &std_devs));
}

}  // namespace
}  // namespace vorn
