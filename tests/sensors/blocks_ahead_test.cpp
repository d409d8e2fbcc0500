// Image coordinates read by one worker and ahead by several.

#include "sensors/blocks_ahead.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "sensors/bundle_image.h"
#include "sensors/camera.h"
#include "support/captured_output.h"
#include "support/thread_team.h"
#include "text/findings.h"

namespace vorn {
namespace {

enum class Listener { none, heard, goes_on };

// Everything that reading a file leads to, as text; `given` is read before.
std::string reading(const std::string& given, const std::string& text, Listener listener) {
  OwnedList<Camera> cameras;
  cameras.append(std::make_unique<Camera>()).id = "C";
  OwnedList<BundleImage> images;
  for (const char* id : {"A", "B", "-1x", "D"}) {
    auto image = std::make_unique<BundleImage>();
    image->id = id;
    image->camera = cameras[0];
    images.append(std::move(image));
  }
  FindingList findings;
  findings.goes_on = listener == Listener::goes_on;
  std::string result;
  std::string said;
  result += "|errors " + test::captured_errors([&] {
              said = test::captured_output([&] {
                TokenReader before(given);
                result += std::to_string(read_image_crds_file(before, images));
                TokenReader in(text, "coords", listener == Listener::none ? nullptr : &findings);
                result += ' ' + std::to_string(read_image_crds_file(in, images)) + '|' +
                          std::to_string(in.failed()) + std::to_string(in.passed_over()) + '|' +
                          std::string(in.rest()) + '|' + std::string(in.last_word());
              });
            });
  result += "|said " + said;
  for (const BundleImage& image : images) {
    result += "\n" + image.id;
    for (const ImagePoint& point : image.points) {
      for (const double x : {point.x, point.y, point.sx, point.sy}) result += std::to_string(x);
      result += ' ' + point.id;
    }
    result += " in line " + std::to_string(findings.places.find(&image, 1).line);
  }
  for (const Finding& finding : findings.findings()) {
    result += "\n" + test::written_text([&](TextWriter& out) { print_finding(out, finding); });
  }
  return result;
}

TEST(BlocksAhead, ReadAsTheyWouldInTheirTurn) {
  const std::string a = "A 1\n1 1 2 .1 .1\n2 3 4 .1 .1\n-1\n";
  const std::string b = "B 2\n  1 5 6 .1 .1\n  3 7 8 .1 .1\n  stop-dep\n";
  const std::string d = "D 1\n1 1 2 .1 .1\n-1\n";
  const std::string texts[] = {
      a + b + d + "-1\n",
      a + b + d,                                                 // no end
      a + a + b + a + "stop-dep\nbehind it\n",                   // an image again
      "A 1\n1 1 2 .1 .1\n1 3 4 .1 .1\n-1\n" + b + "-1",          // a point again
      a + "B 1\n1 5 6 .1\n2 7 8 .1 .1\n3 7 8 .1 .1\n-1\n" + d,   // a value is missing
      a + "B 1\n1 5 6 .1 .1 9\n2 7 8 .1 .1\n-1\n" + d + "-1\n",  // one too many
      a + "B 1\n1 5,0 6 .1 .1\n2 7 8 -1 .1\n-1\n" + d + "-1\n",  // no number, none possible
      a + "B 1\n1 5 6 .1 .1\n" + d + "-1\n",                     // no end word
      "A 1 1 1 2 .1 .1 -1 B 1 1 1 2 .1 .1 -1 D 1\n1 1 2 .1 .1\n-1 A 1\n7 1 1 1 1\n-1\n-1\n",
      "A 1\n1 1 2\n-1 .1 .1\n2 3 4 .1 .1\n-1\n" + b + "-1\n",  // a value like an end word
      a + "X 1\n1 1 2 .1 .1\n-1\n" + b + "-1\n",               // no such image
      "A\n1 1 2 .1 .1\n-1\n" + b + "-1\n",                     // no factor
      "-1x 1\n1 1 2 .1 .1\n-1\n" + a + "B 0\n1 1 2 .1 .1\n-1\n" + d + "-1\n",
      a + "B 1\n1 (1,2) (.1,.1)\n2 (3) (1,1)\n-1\n" + d + "-1\n",
      "-1\n" + a,
      a + "B 1\n1 1",
      "",
  };
  for (const std::string& text : texts) {
    for (const std::string& given : {std::string("-1"), d + "-1"}) {
      for (const Listener listener : {Listener::none, Listener::heard, Listener::goes_on}) {
        const std::string alone = reading(given, text, listener);
        const test::ThreadTeam team(3);
        EXPECT_EQ(reading(given, text, listener), alone) << text;
      }
    }
  }
  EXPECT_NE(reading("-1", texts[0], Listener::none).find("|said \nA1.0000002.0"),
            std::string::npos);
}

}  // namespace
}  // namespace vorn
