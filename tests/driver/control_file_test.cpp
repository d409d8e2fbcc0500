// The control file, and the two files of settings.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "driver/bundle_project.h"
#include "support/captured_output.h"
#include "support/ls_params_guard.h"
#include "support/temp_dir.h"

namespace vorn {
namespace {

TEST(ControlFile, StatusFollowsTheLastFileRead) {
  const test::TempDir dir;
  const test::LSParamsGuard guard;
  dir.write("cam", "camera-frame k - 100 0 0 200 200");
  dir.write("bad", "?");
  dir.write("empty", "");
  std::filesystem::create_directory(dir.path("directory"));
  std::filesystem::current_path(dir.path());
  const std::string failed = "ERROR: Reading input file failed: ";
  const std::string no_file = "ERROR: Cannot open input file: ";
  struct Case {
    const char* text;
    int result;
    int cameras;
    std::string last_output;
  };
  const Case cases[] = {
      {" \r\n\t", 1, 0, ""},
      {"stop-dep bad", 1, 0, ""},
      {"camera cam camera cam stop-dep x y", 1, 2, ""},
      {"camera\r\ncam\r\nstop-dep\r\n", 1, 1, ""},
      {"camera cam Camera", -1, 1, "ERROR: Unknown keyword: 'Camera'\n"},
      {"camera cam camera missing", -1, 1, no_file + "missing\n"},
      {"camera directory", -1, 0, no_file + "directory\n"},
      {"camera cam camera", -1, 1, no_file + "\n"},
      // A keyword without a reader keeps the status of the file before it.
      {"camera-frame cam", -1, 0, failed + "cam\n"},
      {"camera-frame missing", -1, 0, no_file + "missing\n"},
      {"camera cam camera-frame bad oc-transform bad camera cam", 1, 2, ""},
      {"camera cam gap missing", -1, 1, no_file + "missing\n"},
      {"params empty", -1, 0, "ERROR: Reading params./options file failed.\n" + failed + "empty\n"},
      {"ls-params empty", -1, 0,
       "ERROR: Reading LS-parameters file failed.\n" + failed + "empty\n"},
      {"camera bad", -1, 0, "ERROR: Reading camera file failed.\n" + failed + "bad\n"},
      {"image-geometry bad", -1, 0, "ERROR: Reading EO file failed.\n" + failed + "bad\n"},
      {"camera empty image empty image-crds empty ap-set empty pos-cor empty att-cor empty "
       "patb-params empty",
       1, 0, ""}};
  for (const Case& c : cases) {
    BundleProject project;
    TokenReader in(c.text);
    const std::string output =
        test::captured_output([&] { EXPECT_EQ(project.read_control_file(in), c.result); });
    EXPECT_TRUE(output.ends_with(c.last_output) && output.empty() == c.last_output.empty())
        << c.text << '\n'
        << output;
    EXPECT_EQ(project.cameras.count(), c.cameras) << c.text;
  }
}

TEST(LSParams, FileIsAcceptedOrRefused) {
  const std::string start = "5e-6 7 1 1 0 0 .1 .2 .3 .4 ";
  const std::string head = start + "1e-20 1e20 1e-21 1e21 1e8 1e9 .9 2 .002 2.5 1e-3 10 ";
  const char* const sminu = "ERROR: sminu must be less than smin.\n";
  struct Case {
    std::string text;
    const char* output;
  };
  const Case cases[] = {
      {head + "mm gon native", ""},
      {head + "mm gon lapack behind", ""},
      {start + "1e-20 -1 1e-21 1e21", "ERROR: Limits of std. devs. must be >= than zero.\n"},
      {start + "1e-20 1e20 1e-20 1e21", sminu},
      {start + "1e-20 1e20 1e-21 1e20", "ERROR: smaxu must be greater than smax.\n"},
      // A failed number stores 0 and ends all reading; the limits behind it keep their values.
      {"5e-6 many", "Reading unit of object coords. failed.\n"},
      {start + "x", sminu},
      {start + "1e-20 x", "Reading unit of object coords. failed.\n"},
      {head + "rad", "Unknown unit of object coords.: rad\n"},
      {head + "m", "Reading unit of rotation angles failed.\n"},
      {head + "m m", "Unknown unit of rot. angles: m\n"},
      {head + "m rad Native", "Unknown adjustment interface: Native\n"}};
  for (const Case& c : cases) {
    const test::LSParamsGuard guard;
    TokenReader in(c.text);
    EXPECT_EQ(test::captured_output(
                  [&] { EXPECT_EQ(ls_params().read(in), c.output[0] == '\0' ? 1 : -1); }),
              c.output)
        << c.text;
    EXPECT_EQ(ls_params().sigma0_apriori, 5e-6) << "what was read before a failure stays";
  }
}

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
