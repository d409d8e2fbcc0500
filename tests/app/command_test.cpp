// The command, run as a shell runs it.

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "support/bundle_run.h"
#include "support/ls_params_guard.h"
#include "support/synthetic_project.h"

#ifdef VORN_COMMAND

#include <sys/wait.h>

namespace vorn {
namespace {

class Command : public testing::Test {
 protected:
  // Runs `vorn arguments` in the directory; the streams go to output_ and errors_.
  int run(const std::string& arguments) {
    const std::string line = "cd '" + dir_.path() + "' && '" VORN_COMMAND "' " + arguments +
                             " >stdout.txt 2>stderr.txt </dev/null";
    const int status = std::system(line.c_str());
    output_ = dir_.read("stdout.txt");
    errors_ = dir_.read("stderr.txt");
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  static bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
  }

  test::TempDir dir_;
  std::string output_;
  std::string errors_;
};

TEST_F(Command, TellsUsage) {
  EXPECT_EQ(run("--version"), 0);
  EXPECT_TRUE(output_.starts_with("vorn ")) << output_;
  for (const char* help : {"--help", "adjust --help", "grid -h"}) {
    EXPECT_EQ(run(help), 0);
    EXPECT_TRUE(has(output_, "Usage")) << help;
  }
  for (const char* wrong : {"", "adjust", "p.ctl", "adjust a b", "adjust --nonsense a", "grid",
                            "list --cameras p.ctl"}) {
    EXPECT_EQ(run(wrong), 2) << wrong;
    EXPECT_EQ(output_, "") << wrong;
    EXPECT_NE(errors_, "") << wrong;
  }
}

TEST_F(Command, AdjustsAndSummarises) {
  const test::SyntheticProject project = test::make_synthetic_project(
      {.ap_sets = {"gap"}, .images = 4, .points = 12, .control = 6, .check = 2});
  const std::string path = project.write(dir_);
  const test::LSParamsGuard guard;
  const test::TempDir elsewhere;
  const test::BundleRun library = test::run_bundle(project.write(elsewhere));
  EXPECT_EQ(run("adjust project.ctl"), 0) << errors_;
  EXPECT_EQ(output_, library.output) << "standard output is the library's own";
  EXPECT_TRUE(has(errors_, "sigma 0") && has(errors_, "redundancy") && has(errors_, "project.out"));
  EXPECT_FALSE(dir_.has("project.cam"));
  EXPECT_EQ(run("adjust --cameras " + path), 0);
  EXPECT_TRUE(dir_.has("project.cam") && has(errors_, "project.cam"));

  EXPECT_EQ(run("grid project.ctl"), 0);
  EXPECT_TRUE(has(output_, "total distortion:\n"));
  EXPECT_EQ(run("list project.ctl"), 0);
  EXPECT_TRUE(has(output_, "Change      Std.dev.\n") && has(output_, "Std.dev.   Ratio\n"));
  dir_.write("project.ctl", "camera lspar.txt");
  EXPECT_EQ(run("adjust project.ctl"), 1);
  EXPECT_TRUE(has(output_, "ERROR: Reading camera file failed.\n") && has(errors_, "failed"));
}

TEST_F(Command, RefusesWhatItCannotReadOrWouldDestroy) {
  for (const char* path : {"missing.ctl", "."}) EXPECT_EQ(run("adjust " + std::string(path)), 1);
  dir_.write("p.ext", "precious");
  dir_.write("p.cam", "precious");
  for (const std::string& text :
       {std::string("image-geometry p.ext"), std::string("camera p.cam stop-dep"),
        "camera x image-geometry " + dir_.path("p.ext")}) {
    dir_.write("p.ctl", text);
    EXPECT_EQ(run("adjust --cameras p.ctl"), 1) << text;
    EXPECT_TRUE(has(errors_, "overwritten")) << errors_;
  }
  EXPECT_EQ(dir_.read("p.ext") + dir_.read("p.cam"), "preciousprecious");
  // Without --cameras the camera file is no output.
  dir_.write("p.ctl", "camera p.cam");
  EXPECT_EQ(run("adjust p.ctl"), 1);
  EXPECT_FALSE(has(errors_, "overwritten"));
}

}  // namespace
}  // namespace vorn

#endif
