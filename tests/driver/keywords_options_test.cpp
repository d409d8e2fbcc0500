#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "driver/keywords.h"
#include "driver/options.h"
#include "support/captured_output.h"

namespace vorn {
namespace {

TEST(Keywords, CodesFollowTheTable) {
  TokenReader words(
      "params ls-params camera camera-frame camera-ccd camera-ccd-tr camera-pushbroom image "
      "image-frame image-scanner image-geometry ext-ori ext-ori-opk-rot ext-ori-pok-rot "
      "ext-ori-opk-fix ext-ori-australis ext-ori-quaternion dlt ext-ori-kratky pmf-linear "
      "image-crds obj-crds ctrl-supp ap-set gap australis p12 p44 inner-or radial-dist "
      "decentering-dist in-plane-dist out-of-plane-dist pos-cor att-cor patb-params patb-photos "
      "patb-control patb-orient oc-transform stop-dep");
  std::string_view word;
  std::int32_t code = 0;
  while (words.read_word(word)) {
    EXPECT_EQ(lookup_keyword(word), Keyword{++code}) << word;
  }
  EXPECT_EQ(code, 41);
  EXPECT_EQ(Keyword::stop_dep, Keyword{41});
  for (const char* text :
       {"", "STOP-DEP", "Camera", "camera ", "came", "camera-", "ext-ori-opk-ro"}) {
    EXPECT_EQ(lookup_keyword(text), Keyword::none) << text;
  }
}

std::string printed(const Options& options) {
  return test::written_text([&](TextWriter& out) { options.print_options(out); });
}

TEST(Options, EveryFieldHasItsPlace) {
  const std::string all_off = printed(Options());
  std::size_t switch_at = 0;
  for (int field = 0; field < 12; ++field) {
    std::string text;
    for (int i = 0; i < 12; ++i) text += i == field ? "1 " : "0 ";
    Options options;
    text += "5 5 none none none none";
    TokenReader in(text);
    ASSERT_EQ(options.read_options(in), 1);
    std::string expected = all_off;
    switch_at = expected.find("off\n", switch_at + 1);
    EXPECT_EQ(printed(options), expected.replace(switch_at, 3, "on"));
  }
  Options options;
  TokenReader in("1 1 1 1 1 1 1 1 1 1 1 1 -3 +4 s.pbm nm.txt none x 1 2 3");
  ASSERT_EQ(options.read_options(in), 1);
  EXPECT_EQ(options.grid_x, -3);
  EXPECT_EQ(options.grid_y, 4);
  EXPECT_EQ(options.structure_file + ' ' + options.matrix_file + ' ' + options.rhs_file + ' ' +
                options.solution_file,
            "s.pbm nm.txt none x");
}

TEST(Options, FailuresNameTheirGroup) {
  const std::string complete = "0 0 0 0 0 0 0 0 0 0 0 0 3 4 a b c d";
  const char* const messages[] = {"Reading single-ray option failed.\n",
                                  "Reading output flags failed.\n",
                                  "Reading output flags for unknown parameters failed.\n",
                                  "Reading debug flags failed.\n",
                                  "Reading output flags of AP corrections failed.\n",
                                  "Reading filename of normal matrix structure failed.\n",
                                  "Reading filename of normal matrix failed.\n",
                                  "Reading filename of right hand side vector failed.\n",
                                  "Reading filename of solution vector failed.\n"};
  const int group_of_field[] = {0, 1, 1, 1, 1, 2, 2, 2, 2, 2, 3, 3, 4, 4, 5, 6, 7, 8};
  for (std::size_t field = 0; field < 18; ++field) {
    const std::size_t at = field < 15 ? 2 * field : 28 + 2 * (field - 14);
    std::vector<std::string> broken = {complete.substr(0, at)};
    if (field < 12) {
      broken.push_back(complete.substr(0, at) + "2" + complete.substr(at + 1));
      broken.push_back(complete.substr(0, at) + "on" + complete.substr(at + 1));
    }
    for (const std::string& text : broken) {
      Options options;
      TokenReader in(text);
      EXPECT_EQ(test::captured_output([&] { EXPECT_EQ(options.read_options(in), -1); }),
                messages[group_of_field[field]])
          << text;
      EXPECT_EQ(options.grid_x, field > 12 ? 3 : 5);
      EXPECT_EQ(options.solution_file, "none");
    }
  }
}

}  // namespace
}  // namespace vorn
