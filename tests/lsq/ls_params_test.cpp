#include "lsq/ls_params.h"

#include <gtest/gtest.h>

#include <string>

#include "support/captured_output.h"
#include "support/ls_params_guard.h"

namespace vorn {
namespace {

constexpr const char* kStart = "5e-6 7 1 1 0 0 .1 .2 .3 .4 ";
constexpr const char* kLimits = "1e-20 1e20 1e-21 1e21 ";
constexpr const char* kWeights = "1e8 1e9 .9 2 .002 2.5 1e-3 10 ";

TEST(LSParams, FileIsAcceptedOrRefused) {
  struct Case {
    std::string text;
    int result;
    const char* output;
  };
  const std::string start = kStart;
  const std::string head = start + kLimits + kWeights;
  const char* const negative = "ERROR: Limits of std. devs. must be >= than zero.\n";
  const char* const sminu = "ERROR: sminu must be less than smin.\n";
  const char* const smaxu = "ERROR: smaxu must be greater than smax.\n";
  const Case cases[] = {
      {head + "mm gon native", 1, ""},
      {head + "mm gon lapack behind", 1, ""},
      {start + "-1 1e20 1e-21 1e21", -1, negative},
      {start + "1e-20 -1 1e-21 1e21", -1, negative},
      {start + "1e-20 1e20 -1 -1", -1, negative},
      {start + "1e-20 1e20 1e-20 1e21", -1, sminu},
      {start + "1e-20 1e20 1e-19 1e19", -1, sminu},
      {start + "1e-20 1e20 1e-21 1e20", -1, smaxu},
      // A failed number stores 0 and ends all reading; the default limits are in order.
      {"", -1, "Reading unit of object coords. failed.\n"},
      {"5e-6 many", -1, "Reading unit of object coords. failed.\n"},
      {start + "x", -1, sminu},
      {start + "1e-20 x", -1, ""},
      {head, -1, "Reading unit of object coords. failed.\n"},
      {head + "rad", -1, "Unknown unit of object coords.: rad\n"},
      {head + "unk", -1, "Unknown unit of object coords.: unk\n"},
      {head + "m", -1, "Reading unit of rotation angles failed.\n"},
      {head + "m m", -1, "Unknown unit of rot. angles: m\n"},
      {head + "m rad", -1, "Unknown adjustment interface: \n"},
      {head + "m rad Native", -1, "Unknown adjustment interface: Native\n"},
  };
  for (const Case& c : cases) {
    const test::LSParamsGuard guard;
    TokenReader in(c.text);
    // With smax 0 the default smaxu still lies above, so that only the units fail.
    const std::string expected =
        c.text == start + "1e-20 x" ? "Reading unit of object coords. failed.\n" : c.output;
    EXPECT_EQ(test::captured_output([&] { EXPECT_EQ(ls_params().read(in), c.result); }), expected)
        << c.text;
  }
}

TEST(LSParams, FailureKeepsWhatWasReadBefore) {
  const test::LSParamsGuard guard;
  LSParams& settings = ls_params();
  TokenReader broken("5e-6 7 1 2 0 0");
  test::captured_output([&] { settings.read(broken); });
  EXPECT_EQ(settings.sigma0_apriori, 5e-6);
  EXPECT_EQ(settings.max_iterations, 7);
  EXPECT_TRUE(settings.check_points && settings.check_position && settings.check_rotation);
  EXPECT_EQ(settings.limit_points, 0.001);

  // An unreadable residual limit keeps the old one, and unknown units keep the old factor.
  settings.residual_limit = 3e-5;
  const std::string head = std::string(kStart) + kLimits + "1e8 1e9 .9 2 .002 2.5 1e-3 ";
  const std::string no_number = head + "ten mm gon native";
  const std::string no_unit = head + "10 furlong";
  TokenReader unreadable(no_number);
  test::captured_output([&] { EXPECT_EQ(settings.read(unreadable), -1); });
  EXPECT_EQ(settings.residual_limit, 3e-5);
  EXPECT_EQ(settings.apv_limit, 1e-3);
  TokenReader unknown_unit(no_unit);
  test::captured_output([&] { EXPECT_EQ(settings.read(unknown_unit), -1); });
  EXPECT_EQ(settings.residual_limit, 1e-5);
  EXPECT_EQ(settings.unit_object.code, 0);
  EXPECT_EQ(settings.unit_object.factor, 1.0);
}

TEST(LSParams, PrintsTheInterface) {
  const test::LSParamsGuard guard;
  const char* const names[] = {"native", "lapack", ""};
  for (std::int32_t code = 0; code < 3; ++code) {
    ls_params().interface = code;
    const std::string text = test::written_text([](TextWriter& out) { ls_params().print(out); });
    EXPECT_TRUE(text.ends_with("interface               :  " + std::string(names[code]) + "\n\n"));
  }
}

}  // namespace
}  // namespace vorn
