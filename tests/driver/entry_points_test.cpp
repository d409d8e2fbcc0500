// What a host sees of the two exported functions: results, files, current directory, streams.

#include <gtest/gtest.h>

#include <clocale>
#include <filesystem>
#include <locale>
#include <map>
#include <string>

#include "support/bundle_run.h"
#include "support/ls_params_guard.h"
#include "support/synthetic_project.h"

namespace vorn {
namespace {

using test::BundleRun;
using test::run_bundle;
using test::TempDir;

const char* const kOutputs[] = {"out", "ext", "ocs", "res", "apset", "gcpres", "chp"};

class EntryPoints : public testing::Test {
 protected:
  // A project of three frame images with a camera set.
  static test::SyntheticProject small_project() {
    return test::make_synthetic_project(
        {.ap_sets = {"radial-dist"}, .images = 3, .points = 12, .check = 2});
  }
  std::map<std::string, std::string> outputs(const std::string& stem) const {
    std::map<std::string, std::string> texts;
    for (const char* extension : kOutputs) {
      const std::string name = stem + '.' + extension;
      EXPECT_TRUE(dir_.has(name)) << name;
      texts[extension] = test::without_times(dir_.read(name));
    }
    return texts;
  }
  static std::string cwd() { return std::filesystem::current_path().string(); }

  TempDir dir_;
  test::LSParamsGuard guard_;
};

TEST_F(EntryPoints, SilentlyRefusesWhatIsNoFile) {
  std::filesystem::create_directory(dir_.path("project.ctl"));
  const std::string before = cwd();
  EXPECT_EQ(VornScanBundle(nullptr, 0) + VornBundle(nullptr, 1), 0);
  for (const std::string& path :
       {std::string(), dir_.path("missing.ctl"), dir_.path("no/such/dir/p.ctl"),
        dir_.path("project.ctl"), dir_.path("project.ctl/"), dir_.path(),
        std::string(100'000, 'x')}) {
    const BundleRun run = run_bundle(path, 1);
    EXPECT_EQ(run.result, 0);
    EXPECT_EQ(run.output + run.errors, "");
    EXPECT_EQ(cwd(), before);
  }
  EXPECT_FALSE(dir_.has("project.out"));
}

TEST_F(EntryPoints, FailedRunLeavesEmptyOutputs) {
  for (const char* extension : kOutputs) dir_.write(std::string("p.") + extension, "old");
  dir_.write("p.cam", "old");
  const BundleRun run = run_bundle(dir_.write("p.ctl", "nonsense file"), 1);
  EXPECT_EQ(run.result, 0);
  EXPECT_EQ(run.output, "ERROR: Unknown keyword: 'nonsense'\n");
  for (const auto& [extension, text] : outputs("p")) EXPECT_EQ(text, "") << extension;
  EXPECT_EQ(dir_.read("p.cam"), "old");
  EXPECT_FALSE(dir_.has("p.cal"));
  EXPECT_EQ(cwd(), dir_.path());
}

TEST_F(EntryPoints, EmptyProjectCompletes) {
  const BundleRun run = run_bundle(dir_.write("p.ctl", ""));
  EXPECT_EQ(run.result, 1);
  EXPECT_EQ(run.output + run.errors, "");
  const auto texts = outputs("p");
  EXPECT_EQ(texts.at("ext"), "indiv-type\nstop-dep\n");
  EXPECT_EQ(texts.at("ocs"), "stop-dep\n");
  EXPECT_EQ(texts.at("res"), "stop-dep\n");
  EXPECT_NE(texts.at("out").find("Redundancy                      :       0\n"), std::string::npos);
  EXPECT_NE(texts.at("out").find("Number of iterations: 1\n"), std::string::npos);
}

TEST_F(EntryPoints, OutputsStandBesideTheControlFile) {
  for (const auto& [name, text] : small_project().files) dir_.write("sub/dir.d/" + name, text);
  std::filesystem::copy_file(dir_.path("sub/dir.d/project.ctl"), dir_.path("sub/dir.d/a.b.ctl"));
  std::filesystem::copy_file(dir_.path("sub/dir.d/project.ctl"), dir_.path("sub/dir.d/plain"));
  struct Case {
    const char* from;
    std::string path;
    const char* stem;
  };
  const Case cases[] = {{"", "sub/dir.d/project.ctl", "sub/dir.d/project"},
                        {"sub", "./../sub//dir.d/a.b.ctl", "sub/dir.d/a.b"},
                        {"sub/dir.d", "plain", "sub/dir.d/plain"},
                        {"sub", dir_.path("sub/dir.d/project.ctl"), "sub/dir.d/project"}};
  std::map<std::string, std::string> first;
  for (const Case& c : cases) {
    std::filesystem::current_path(dir_.path(c.from));
    EXPECT_EQ(run_bundle(c.path).result, 1) << c.path;
    EXPECT_TRUE(std::filesystem::equivalent(cwd(), dir_.path("sub/dir.d")));
    const auto texts = outputs(c.stem);
    if (first.empty()) first = texts;
    EXPECT_EQ(texts, first) << "the same input gives the same bytes";
  }
  EXPECT_FALSE(dir_.has("sub/dir.d/project.cam"));
  EXPECT_FALSE(dir_.has("sub/dir.d/project.cal"));
}

TEST_F(EntryPoints, FlagAsksForTheCameraFile) {
  const std::string path = small_project().write(dir_);
  dir_.write("project.cam", "old");
  EXPECT_EQ(run_bundle(path, 0).result, 1);
  EXPECT_EQ(dir_.read("project.cam"), "old");
  test::captured_output([&] { EXPECT_EQ(VornBundle(path.c_str(), -5), 1); });
  const std::string report = dir_.read("project.out");
  const std::string cameras =
      report.substr(report.find("Cameras\n====="),
                    report.find("radial-dist   s1") - report.find("Cameras\n====="));
  EXPECT_EQ(dir_.read("project.cam"),
            "frame   k1   simulated\n"
            "   50.000000     0.100000    -0.200000\n"
            "   40.000000    30.000000\n"
            "stop-dep\n" +
                cameras);
}

TEST_F(EntryPoints, NeverOverwritesItsControlFile) {
  const std::string text = "stop-dep and what follows";
  for (const std::string extension :
       {"out", "ext", "ocs", "res", "apset", "gcpres", "chp", "cam"}) {
    const std::string path = dir_.write("p." + extension, text);
    EXPECT_EQ(run_bundle(path, 1).result, 0) << extension;
    EXPECT_EQ(dir_.read("p." + extension), text);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir_.path()), {}), 1);
    EXPECT_EQ(run_bundle(path, 0).result, extension == "cam" ? 1 : 0);
    EXPECT_EQ(dir_.read("p." + extension), text);
    for (const auto& entry : std::filesystem::directory_iterator(dir_.path())) {
      std::filesystem::remove(entry);
    }
  }
  EXPECT_EQ(run_bundle(dir_.write("p.cal", text), 1).result, 1);
  // Another name of the same file.
  std::filesystem::create_symlink(dir_.path("p.cal"), dir_.path("q.ctl"));
  std::filesystem::create_symlink(dir_.path("p.cal"), dir_.path("q.out"));
  EXPECT_EQ(run_bundle(dir_.path("q.ctl")).result, 0);
  EXPECT_EQ(dir_.read("p.cal"), text);
}

TEST_F(EntryPoints, UnwritableOutputsAreDiscarded) {
  const std::string path = small_project().write(dir_);
  std::filesystem::create_directory(dir_.path("project.out"));
  std::filesystem::create_directory(dir_.path("project.cam"));
  EXPECT_EQ(run_bundle(path, 1).result, 1);
  EXPECT_NE(dir_.read("project.ocs"), "");
}

TEST_F(EntryPoints, SettingsOutliveARun) {
  const test::SyntheticProject project = small_project();
  const std::string path = project.write(dir_);
  std::string without = project.files.at("project.ctl");
  const std::string second =
      dir_.write("second.ctl", test::replaced(without, "ls-params lspar.txt\n", ""));
  const char* const sigma = "Standard deviation of unit weight  :  ";
  EXPECT_EQ(run_bundle(second).result, 1);
  EXPECT_NE(dir_.read("second.out").find(std::string(sigma) + "1.00e-06"), std::string::npos);
  EXPECT_EQ(run_bundle(path).result, 1);
  EXPECT_EQ(run_bundle(second).result, 1);
  EXPECT_EQ(outputs("second"), outputs("project"));
  // Also what a failed run has read stays.
  dir_.write("lspar.txt", "3e-6 0 2");
  EXPECT_EQ(run_bundle(path).result, 0);
  EXPECT_EQ(run_bundle(second).result, 1);
  EXPECT_NE(dir_.read("second.out").find(std::string(sigma) + "3.00e-06"), std::string::npos);
  EXPECT_NE(dir_.read("second.out").find("Number of iterations: 0\n"), std::string::npos);
}

TEST_F(EntryPoints, LineEndsAndLocaleChangeNothing) {
  const test::SyntheticProject project = small_project();
  EXPECT_EQ(run_bundle(project.write(dir_)).result, 1);
  const auto expected = outputs("project");

  for (const auto& [name, text] : project.files) {
    std::string changed;
    for (const char c : text) changed += c == '\n' ? std::string("\r\n") : std::string(1, c);
    while (changed.ends_with('\n') || changed.ends_with('\r')) changed.pop_back();
    dir_.write(name, changed);
  }
  EXPECT_EQ(run_bundle(dir_.path("project.ctl")).result, 1);
  EXPECT_EQ(outputs("project"), expected);

  struct CommaPoint : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
  };
  const std::locale saved = std::locale::global(std::locale(std::locale(), new CommaPoint));
  for (const char* name : {"de_DE.UTF-8", "de_DE.utf8", "de_DE", "German"}) {
    if (std::setlocale(LC_ALL, name) != nullptr) break;
  }
  EXPECT_EQ(run_bundle(dir_.path("project.ctl")).result, 1);
  std::locale::global(saved);
  std::setlocale(LC_ALL, "C");
  EXPECT_EQ(outputs("project"), expected);
}

}  // namespace
}  // namespace vorn
