// Files that fail: outputs that cannot be written, inputs that are no files or hold nonsense.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "support/bundle_run.h"
#include "support/ls_params_guard.h"
#include "support/synthetic_project.h"

#ifndef _WIN32
#include <sys/stat.h>

namespace vorn {
namespace {

namespace fs = std::filesystem;
using test::BundleRun;

const std::vector<std::string> kResults = {
    "project.out",    "project.cam", "project.ext",   "project.ocs", "project.res", "project.apset",
    "project.gcpres", "project.chp", "structure.pbm", "matrix.txt",  "rhs.txt",     "solution.txt"};

class FileFaults : public testing::Test {
 protected:
  FileFaults()
      : project_(test::make_synthetic_project({.cameras = {"camera-ccd", "camera-frame"},
                                               .ap_sets = {"gap"},
                                               .images = 3,
                                               .points = 12,
                                               .control = 5,
                                               .check = 2,
                                               .position_triples = 1,
                                               .attitude_triples = 1})) {
    project_.files["params.txt"] =
        "0 0 0 0 0 0 0 0 0 0 0 0 3 3 structure.pbm matrix.txt rhs.txt solution.txt\n";
    control_file_ = project_.write(dir_);
  }

  BundleRun run() {
    const test::LSParamsGuard guard;
    return test::run_bundle(control_file_, 1);
  }

  // The result files that are plain files now, without times.
  std::map<std::string, std::string> results() {
    std::map<std::string, std::string> texts;
    for (const std::string& name : kResults) {
      const fs::path path = dir_.path(name);
      if (fs::is_regular_file(fs::symlink_status(path))) {
        texts[name] = test::without_times(dir_.read(name));
      }
    }
    return texts;
  }

  void remove_results() {
    for (const std::string& name : kResults) fs::remove_all(dir_.path(name));
  }

  void expect_inputs_unchanged() {
    for (const auto& [name, text] : project_.files) EXPECT_EQ(dir_.read(name), text) << name;
  }

  test::TempDir dir_;
  test::SyntheticProject project_;
  std::string control_file_;
};

TEST_F(FileFaults, OutputsThatCannotBeWritten) {
  ASSERT_EQ(run().result, 1);
  const std::map<std::string, std::string> expected = results();
  ASSERT_EQ(expected.size(), kResults.size());
  const auto place = [this](const std::string& name, bool disk_full) {
    if (disk_full) {
      fs::create_symlink("/dev/full", dir_.path(name));
    } else {
      fs::create_directory(dir_.path(name));
    }
  };
  for (const bool disk_full : {true, false}) {
    for (const std::string& name : kResults) {
      remove_results();
      place(name, disk_full);
      const BundleRun one = run();
      EXPECT_EQ(one.result, 1) << name;
      // Only the files of the normal equations have a message; the run goes on without all others.
      const bool reported = !disk_full && name.find("project") == std::string::npos;
      EXPECT_EQ(one.output.find("ERROR: Cannot write") != std::string::npos, reported) << name;
      std::map<std::string, std::string> others = expected;
      others.erase(name);
      EXPECT_EQ(results(), others) << name;
    }
    remove_results();
    for (const std::string& name : kResults) place(name, disk_full);
    EXPECT_EQ(run().result, 1);
  }
  expect_inputs_unchanged();
}

#ifdef VORN_COMMAND
TEST_F(FileFaults, ConsoleThatCannotBeWritten) {
  for (const char* const streams :
       {" >/dev/full", " 2>/dev/full", " >/dev/full 2>&1", " >&- 2>&-"}) {
    const std::string command = "'" VORN_COMMAND "' adjust '" + control_file_ + "'" + streams;
    EXPECT_EQ(std::system(command.c_str()), 0) << streams;
  }
}
#endif

struct BadInput {
  std::string name;
  void (*put)(const fs::path& path);
  bool is_opened;
};

const std::vector<BadInput> kBadInputs = {
    {"nothing", [](const fs::path&) {}, false},
    {"directory", [](const fs::path& path) { fs::create_directory(path); }, false},
    {"link to nothing", [](const fs::path& path) { fs::create_symlink("nowhere", path); }, false},
    {"link to itself", [](const fs::path& path) { fs::create_symlink(path, path); }, false},
    {"pipe", [](const fs::path& path) { ASSERT_EQ(mkfifo(path.c_str(), 0600), 0); }, false},
    {"unreadable", [](const fs::path& path) { fs::create_symlink("/proc/self/mem", path); }, false},
    {"/dev/null", [](const fs::path& path) { fs::create_symlink("/dev/null", path); }, true},
    {"/dev/zero", [](const fs::path& path) { fs::create_symlink("/dev/zero", path); }, true},
    {"empty file", [](const fs::path& path) { std::ofstream{path}; }, true},
};

TEST_F(FileFaults, DataFilesThatAreNone) {
  for (const BadInput& bad : kBadInputs) {
    for (const auto& [name, text] : project_.files) {
      if (name == "project.ctl") continue;
      // 64 megabytes of it are read: a few files will do.
      if (bad.name == "/dev/zero" && name != "obj.txt" && name != "ap.txt") continue;
      SCOPED_TRACE(bad.name + " for " + name);
      fs::remove(dir_.path(name));
      bad.put(dir_.path(name));
      const BundleRun with_fault = run();
      if (!bad.is_opened) {
        EXPECT_EQ(with_fault.result, 0);
        EXPECT_THAT(with_fault.output,
                    testing::HasSubstr("ERROR: Cannot open input file: " + name + '\n'));
      } else if (with_fault.result == 0) {
        // Lists may be empty; what follows from that has its own reason.
        EXPECT_NE((with_fault.output + dir_.read("project.out")).find("ERROR"), std::string::npos);
      }
      fs::remove_all(dir_.path(name));
      dir_.write(name, text);
    }
  }
  EXPECT_EQ(run().result, 1);
}

TEST_F(FileFaults, ControlFilesThatAreNone) {
  for (const BadInput& bad : kBadInputs) {
    SCOPED_TRACE(bad.name);
    // The control file would be one of the outputs if it were a link into another directory.
    fs::remove_all(control_file_);
    bad.put(control_file_);
    const BundleRun with_fault = run();
    EXPECT_TRUE(bad.is_opened || with_fault.result == 0);
    fs::remove_all(control_file_);
  }
}

// The file disappears and comes back while runs ask for it, open it and read it.
TEST_F(FileFaults, DataFileThatComesAndGoes) {
  std::atomic<bool> done = false;
  const std::string path = dir_.path("obj.txt");
  const std::string aside = dir_.path("aside.txt");
  std::thread mover([&] {
    while (!done) {
      std::rename(path.c_str(), aside.c_str());
      std::rename(aside.c_str(), path.c_str());
    }
  });
  std::int32_t completed = 0;
  constexpr std::int32_t kRuns = 40;
  for (std::int32_t i = 0; i < kRuns; ++i) {
    const BundleRun one = run();
    completed += one.result;
    if (one.result == 0) {
      EXPECT_THAT(one.output, testing::HasSubstr("ERROR: Cannot open input file: obj.txt\n"));
    }
  }
  done = true;
  mover.join();
  RecordProperty("completed", std::to_string(completed));
  EXPECT_EQ(run().result, 1);
  expect_inputs_unchanged();
}

}  // namespace
}  // namespace vorn
#endif
