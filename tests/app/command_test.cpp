// The command, run as a shell runs it.

#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>

#include "support/project_test.h"

#ifdef VORN_COMMAND

#include <sys/wait.h>

namespace vorn {
namespace {

using testing::HasSubstr;
using testing::Not;

class Command : public test::ProjectTest {
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

  std::string output_;
  std::string errors_;
};

TEST_F(Command, TellsUsage) {
  EXPECT_EQ(run("--version"), 0);
  EXPECT_TRUE(output_.starts_with("vorn ")) << output_;
  for (const char* help : {"--help", "adjust --help", "grid -h"}) {
    EXPECT_EQ(run(help), 0);
    EXPECT_THAT(output_, HasSubstr("Usage")) << help;
  }
  for (const char* wrong : {"", "adjust", "ajust", "ajust p.ctl", "adjust a b",
                            "adjust --nonsense a", "grid", "list --cameras p.ctl"}) {
    EXPECT_EQ(run(wrong), 2) << wrong;
    EXPECT_EQ(output_, "") << wrong;
    EXPECT_NE(errors_, "") << wrong;
  }
}

TEST_F(Command, AdjustsAndSummarises) {
  const test::BundleRun library = test::run_bundle(control_file_);
  EXPECT_EQ(run("adjust project.ctl"), 0) << errors_;
  EXPECT_EQ(output_, library.output) << "standard output is the library's own";
  for (const char* part : {"sigma 0", "redundancy", "project.out"}) {
    EXPECT_THAT(errors_, HasSubstr(part));
  }
  EXPECT_FALSE(dir_.has("project.cam"));
  EXPECT_EQ(run("adjust --cameras " + control_file_), 0);
  EXPECT_THAT(errors_, HasSubstr("project.cam"));
  EXPECT_TRUE(dir_.has("project.cam"));

  EXPECT_EQ(run("project.ctl"), 0) << "adjusting needs no command";
  EXPECT_THAT(errors_, HasSubstr("sigma 0"));
  EXPECT_EQ(run("grid project.ctl"), 0);
  EXPECT_THAT(output_, HasSubstr("total distortion:\n"));
  EXPECT_EQ(run("list project.ctl"), 0);
  EXPECT_THAT(output_, HasSubstr("Change      Std.dev.\n"));
  EXPECT_THAT(output_, HasSubstr("Std.dev.   Ratio\n"));
  dir_.write("project.ctl", "camera lspar.txt");
  EXPECT_EQ(run("adjust project.ctl"), 1);
  EXPECT_THAT(output_, HasSubstr("ERROR: Reading camera file failed.\n"));
  EXPECT_THAT(errors_, HasSubstr("failed"));
}

TEST_F(Command, RefusesWhatItCannotReadOrWouldDestroy) {
  for (const char* path : {"missing.ctl", "."}) EXPECT_EQ(run("adjust " + std::string(path)), 1);
  for (const char* data : {"camera.txt", "lspar.txt", "eo.txt", "crds.txt", "ap.txt"}) {
    ASSERT_TRUE(dir_.has(data));
    EXPECT_EQ(run(data), 1);
    EXPECT_THAT(errors_, HasSubstr("no control file"));
    EXPECT_FALSE(dir_.has(std::filesystem::path(data).replace_extension("out").string()));
  }
  dir_.write("p.ext", "precious");
  dir_.write("p.cam", "precious");
  dir_.write("o.txt", "0 0 0 0 0 0 0 0 0 0 0 0 5 5 none none ./points.txt none");
  dir_.write("points.txt", "precious");
  for (const std::string& text :
       {std::string("image-geometry p.ext"), "params o.txt obj-crds " + dir_.path("points.txt"),
        std::string("camera p.cam stop-dep"), "camera x image-geometry " + dir_.path("p.ext")}) {
    dir_.write("p.ctl", text);
    EXPECT_EQ(run("adjust --cameras p.ctl"), 1) << text;
    EXPECT_THAT(errors_, HasSubstr("overwritten"));
  }
  EXPECT_EQ(dir_.read("p.ext") + dir_.read("p.cam") + dir_.read("points.txt"),
            "preciouspreciousprecious");
  // Without --cameras the camera file is no output.
  dir_.write("p.ctl", "camera p.cam");
  EXPECT_EQ(run("adjust p.ctl"), 1);
  EXPECT_THAT(errors_, Not(HasSubstr("overwritten")));
}

// A reader of the console that has gone, or a full disk, changes nothing.
TEST_F(Command, ConsoleThatCannotBeWritten) {
  for (const char* const streams :
       {" >/dev/full", " 2>/dev/full", " >/dev/full 2>&1", " >&- 2>&-"}) {
    const std::string command = "'" VORN_COMMAND "' adjust '" + control_file_ + "'" + streams;
    EXPECT_EQ(std::system(command.c_str()), 0) << streams;
  }
}

}  // namespace
}  // namespace vorn

#endif
