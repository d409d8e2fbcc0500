#include "driver/options.h"

#include "support/captured_output.h"

namespace vorn {
namespace {

TEST(Options, EveryFieldHasItsPlace) {
  const auto printed = [](const Options& options) {
    return test::written_text([&](TextWriter& out) { options.print_options(out); });
  };
  const std::string all_off = printed(Options());
  std::size_t switch_at = 0;
  for (std::size_t field = 0; field < 12; ++field) {
    std::string text = "0 0 0 0 0 0 0 0 0 0 0 0 5 5 none none none none";
    const std::string cut = text.substr(0, 2 * field);
    text[2 * field] = '1';
    Options options;
    TokenReader in(text);
    ASSERT_EQ(options.read_options(in), 1);
    std::string expected = all_off;
    switch_at = expected.find("off\n", switch_at + 1);
    EXPECT_EQ(printed(options), expected.replace(switch_at, 3, "on"));
    for (const std::string& broken : {cut, cut + "2", cut + "on"}) {
      TokenReader bad(broken);
      test::captured_output([&] { EXPECT_EQ(Options().read_options(bad), -1) << broken; });
    }
  }
}

}  // namespace
}  // namespace vorn
