#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "driver/bundle_project.h"
#include "support/bundle_run.h"
#include "support/ls_params_guard.h"
#include "support/temp_dir.h"

namespace vorn {
namespace {

TEST(ControlFile, ReadsPairsOfKeywordAndFile) {
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
    std::string output;
  };
  const Case cases[] = {
      {"", 1, 0, ""},
      {" \r\n\t", 1, 0, ""},
      {"stop-dep bad", 1, 0, ""},
      {"camera cam camera cam stop-dep x y", 1, 2, ""},
      {"camera cam", 1, 1, ""},
      {"camera\r\ncam\r\nstop-dep\r\n", 1, 1, ""},
      {"Camera cam", -1, 0, "ERROR: Unknown keyword: 'Camera'\n"},
      {"camera cam nonsense", -1, 1, "ERROR: Unknown keyword: 'nonsense'\n"},
      {"camera cam camera missing", -1, 1, no_file + "missing\n"},
      {"camera directory", -1, 0, no_file + "directory\n"},
      {"camera cam camera", -1, 1, no_file + "\n"},
      // A keyword without a reader keeps the status of the file before it.
      {"camera-frame cam", -1, 0, failed + "cam\n"},
      {"camera-frame missing", -1, 0, no_file + "missing\n"},
      {"camera cam camera-frame bad oc-transform bad camera cam", 1, 2, ""},
      {"camera cam gap missing", -1, 1, no_file + "missing\n"},
      {"params empty", -1, 0,
       "Reading single-ray option failed.\nERROR: Reading params./options file failed.\n" + failed +
           "empty\n"},
      {"ls-params empty", -1, 0,
       "Reading unit of object coords. failed.\nERROR: Reading LS-parameters file failed.\n" +
           failed + "empty\n"},
      {"camera bad", -1, 0,
       "ERROR: Unknown camera type: ?\nERROR: Reading camera file failed.\n" + failed + "bad\n"},
      {"image bad", -1, 0,
       "ERROR: Unknown image type: ?\nERROR: Reading image file failed.\n" + failed + "bad\n"},
      {"image-geometry bad", -1, 0,
       "ERROR: Unknown keyword: ?\nERROR: Reading EO file failed.\n" + failed + "bad\n"},
      {"ext-ori empty", -1, 0,
       "ERROR: Reading keyword failed.\nERROR: Reading EO file failed.\n" + failed + "empty\n"},
      {"image-crds bad", -1, 0,
       "ERROR: BundleImage ? not found.\nERROR: Reading image coords. file failed.\n" + failed +
           "bad\n"},
      {"obj-crds bad", -1, 0,
       "ERROR: Unknown file type: ?\nERROR: Reading object coords. file failed.\n" + failed +
           "bad\n"},
      {"obj-crds empty", -1, 0,
       "ERROR: Reading object coords. file failed.\n" + failed + "empty\n"},
      {"ctrl-supp empty", -1, 0,
       "ERROR: Object point ID  not exist.\nERROR: Reading CS file failed.\n" + failed + "empty\n"},
      {"ap-set bad", -1, 0,
       "ERROR: Read AP set: Unknown type: ?\nERROR: Reading AP set file failed.\n" + failed +
           "bad\n"},
      {"camera empty image empty image-crds empty ap-set empty pos-cor empty att-cor empty "
       "patb-params empty",
       1, 0, ""},
  };
  for (const Case& c : cases) {
    BundleProject project;
    TokenReader in(c.text);
    EXPECT_EQ(test::captured_output([&] { EXPECT_EQ(project.read_control_file(in), c.result); }),
              c.output)
        << c.text;
    EXPECT_EQ(project.cameras.count(), c.cameras) << c.text;
  }
}

}  // namespace
}  // namespace vorn
