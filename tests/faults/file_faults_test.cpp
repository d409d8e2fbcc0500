// Files that fail: outputs that cannot be written, inputs that are no files, are cut short or hold
// nonsense.

#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <thread>

#include "support/project_test.h"

#ifndef _WIN32
#include <sys/stat.h>

namespace vorn {
namespace {

namespace fs = std::filesystem;
using test::BundleRun;

const std::vector<std::string> kResults = {
    "project.out",    "project.cam", "project.ext",   "project.ocs", "project.res", "project.apset",
    "project.gcpres", "project.chp", "structure.pbm", "matrix.txt",  "rhs.txt",     "solution.txt"};

class FileFaults : public test::ProjectTest {
 protected:
  // The result files that are plain files now, without times.
  std::map<std::string, std::string> results() {
    std::map<std::string, std::string> texts;
    for (const std::string& name : kResults) {
      if (fs::is_regular_file(fs::symlink_status(dir_.path(name)))) {
        texts[name] = test::without_times(dir_.read(name));
      }
    }
    return texts;
  }
};

TEST_F(FileFaults, OutputsThatCannotBeWritten) {
  std::string& options = project_.files["params.txt"];
  options = "0 0 0 0 0 0 0 0 0 0 0 0 3 3 structure.pbm matrix.txt rhs.txt solution.txt\n";
  project_.write(dir_);
  ASSERT_EQ(run().result, 1);
  const std::map<std::string, std::string> expected = results();
  ASSERT_EQ(expected.size(), kResults.size());
  const auto replace = [this](const std::string& name, bool disk_full) {
    fs::remove_all(dir_.path(name));
    if (disk_full) {
      fs::create_symlink("/dev/full", dir_.path(name));
    } else {
      fs::create_directory(dir_.path(name));
    }
  };
  for (const bool disk_full : {true, false}) {
    for (const std::string& name : kResults) {
      replace(name, disk_full);
      const BundleRun one = run();
      EXPECT_EQ(one.result, 1) << name;
      // Only the files of the normal equations have a message; the run goes on without all others.
      const bool reported = !disk_full && name.find("project") == std::string::npos;
      EXPECT_EQ(one.output.find("ERROR: Cannot write") != std::string::npos, reported) << name;
      std::map<std::string, std::string> others = expected;
      others.erase(name);
      EXPECT_EQ(results(), others) << name;
      fs::remove_all(dir_.path(name));
    }
    for (const std::string& name : kResults) replace(name, disk_full);
    EXPECT_EQ(run().result, 1);
    for (const std::string& name : kResults) fs::remove_all(dir_.path(name));
  }
  expect_inputs_unchanged();
}

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

TEST_F(FileFaults, InputsThatAreNone) {
  for (const BadInput& bad : kBadInputs) {
    for (const auto& [name, text] : project_.files) {
      // 64 megabytes of it are read: a few files will do.
      if (bad.name == "/dev/zero" && name != "obj.txt" && name != "ap.txt") continue;
      SCOPED_TRACE(bad.name + " for " + name);
      fs::remove(dir_.path(name));
      bad.put(dir_.path(name));
      const BundleRun with_fault = run();
      EXPECT_TRUE(bad.is_opened || with_fault.result == 0);
      if (name != "project.ctl") {
        // Lists may be empty; what follows from that has its own reason.
        expect_reason(with_fault);
        if (!bad.is_opened) {
          EXPECT_THAT(with_fault.output,
                      testing::HasSubstr("ERROR: Cannot open input file: " + name + '\n'));
        }
      }
      fs::remove_all(dir_.path(name));
      dir_.write(name, text);
    }
  }
  EXPECT_EQ(run().result, 1);
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
  for (int i = 0; i < 40; ++i) {
    const BundleRun one = run();
    EXPECT_EQ(one.result == 0,
              one.output.find("ERROR: Cannot open input file: obj.txt\n") != std::string::npos);
  }
  done = true;
  mover.join();
  EXPECT_EQ(run().result, 1);
  expect_inputs_unchanged();
}

// Every file is cut after each of its tokens, and each token is replaced by something odd.
TEST_F(FileFaults, DamagedTokens) {
  const std::string replacements[] = {"-1",   "2147483647", "1e999", "nan",
                                      "(",    "stop-dep",   "0",     std::string(100'000, '7'),
                                      "\xFF", "(1,2,3)",    "1e300"};
  std::size_t turn = 0;
  for (const auto& [file, text] : project_.files) {
    for (std::size_t begin = 0, end = 0; end < text.size();) {
      begin = text.find_first_not_of(" \n", end);
      if (begin == std::string::npos) break;
      end = std::min(text.find_first_of(" \n", begin), text.size());
      SCOPED_TRACE(file + ", up to " + std::to_string(end));
      dir_.write(file, text.substr(0, end));
      expect_reason(run());
      const std::string& replacement = replacements[turn++ % std::size(replacements)];
      // A large number of iterations is not an error.
      if (file == "lspar.txt" && begin == 5 && replacement == "2147483647") continue;
      dir_.write(file, text.substr(0, begin) + replacement + text.substr(end));
      expect_reason(run());
    }
    dir_.write(file, text);
  }
  EXPECT_EQ(run().result, 1) << "the undamaged project runs";
}

}  // namespace
}  // namespace vorn
#endif
