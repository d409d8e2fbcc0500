// What a host sees of the two exported functions: results, files, current directory, streams.

#include <gmock/gmock.h>

#include <atomic>
#include <clocale>
#include <filesystem>
#include <locale>
#include <thread>

#include "support/project_test.h"

namespace vorn {
namespace {

namespace fs = std::filesystem;
using test::BundleRun;
using test::run_bundle;
using testing::HasSubstr;

class EntryPoints : public test::ProjectTest {
 protected:
  std::map<std::string, std::string> outputs(const std::string& stem) const {
    std::map<std::string, std::string> texts;
    for (const char* extension : {"out", "ext", "ocs", "res", "apset", "gcpres", "chp"}) {
      const std::string name = stem + '.' + extension;
      EXPECT_TRUE(dir_.has(name)) << name;
      texts[extension] = test::without_times(dir_.read(name));
    }
    return texts;
  }
};

TEST_F(EntryPoints, SilentlyRefuseWhatIsNoFile) {
  fs::create_directory(dir_.path("p.ctl"));
  const fs::path before = fs::current_path();
  EXPECT_EQ(VornScanBundle(nullptr, 0) + VornBundle(nullptr, 1), 0);
  for (const std::string& path :
       {std::string(), dir_.path("missing.ctl"), dir_.path("no/dir/p.ctl"), dir_.path("p.ctl/"),
        std::string(100'000, 'x')}) {
    const BundleRun run = run_bundle(path, 1);
    EXPECT_EQ(run.result, 0);
    EXPECT_EQ(run.output + run.errors, "");
    EXPECT_EQ(fs::current_path(), before);
  }
  EXPECT_FALSE(dir_.has("p.out"));
}

TEST_F(EntryPoints, FailedRunsAndEmptyProjects) {
  for (const char* name : {"p.out", "p.ext", "p.chp", "p.cam"}) dir_.write(name, "old");
  const BundleRun failed = run_bundle(dir_.write("p.ctl", "nonsense file"), 1);
  EXPECT_EQ(failed.result, 0);
  EXPECT_EQ(failed.output, "ERROR: Unknown keyword: 'nonsense'\n");
  for (const auto& [extension, text] : outputs("p")) EXPECT_EQ(text, "") << extension;
  EXPECT_EQ(fs::current_path(), dir_.path());

  const BundleRun empty = run_bundle(dir_.write("p.ctl", ""));
  EXPECT_EQ(empty.result, 1);
  EXPECT_EQ(empty.output + empty.errors, "");
  const auto texts = outputs("p");
  EXPECT_EQ(texts.at("ext") + texts.at("ocs") + texts.at("res"),
            "indiv-type\nstop-dep\nstop-dep\nstop-dep\n");
  EXPECT_THAT(texts.at("out"), HasSubstr("Number of iterations: 1\n"));
  EXPECT_EQ(dir_.read("p.cam"), "old") << "neither run writes cameras";
}

TEST_F(EntryPoints, OutputsStandBesideTheControlFile) {
  for (const auto& [name, text] : project_.files) dir_.write("sub/dir.d/" + name, text);
  for (const char* copy : {"sub/dir.d/a.b.ctl", "sub/dir.d/plain"}) {
    fs::copy_file(dir_.path("project.ctl"), dir_.path(copy));
  }
  const std::string cases[][3] = {{"", "sub/dir.d/project.ctl", "sub/dir.d/project"},
                                  {"sub", "./../sub//dir.d/a.b.ctl", "sub/dir.d/a.b"},
                                  {"sub/dir.d", "plain", "sub/dir.d/plain"},
                                  {"sub", dir_.path("sub/dir.d/project.ctl"), "sub/dir.d/project"}};
  for (const auto& [from, path, stem] : cases) {
    fs::current_path(dir_.path(from));
    EXPECT_EQ(run_bundle(path).result, 1) << path;
    EXPECT_TRUE(fs::equivalent(fs::current_path(), dir_.path("sub/dir.d")));
    EXPECT_EQ(outputs(stem), outputs("sub/dir.d/project"));
  }
  EXPECT_FALSE(dir_.has("sub/dir.d/project.cam"));
}

TEST_F(EntryPoints, NeverOverwriteTheirControlFile) {
  const std::string text = "stop-dep and what follows";
  for (const std::string name : {"out", "ext", "ocs", "res", "apset", "gcpres", "chp", "cam"}) {
    const std::string path = dir_.write(name + "/p." + name, text);
    EXPECT_EQ(run_bundle(path, 1).result, 0) << name;
    EXPECT_EQ(std::distance(fs::directory_iterator(dir_.path(name)), {}), 1);
    EXPECT_EQ(run_bundle(path, 0).result, name == "cam" ? 1 : 0);
    EXPECT_EQ(test::file_text(path), text);
  }
  // Another name of the same file.
  dir_.write("p.txt", text);
  for (const char* link : {"q.ctl", "q.out"}) fs::create_symlink("p.txt", dir_.path(link));
  EXPECT_EQ(run_bundle(dir_.path("q.ctl")).result, 0);
  EXPECT_EQ(dir_.read("p.txt"), text);
}

TEST_F(EntryPoints, RunsShareSettings) {
  std::string text = project_.files.at("project.ctl");
  const std::string second = dir_.write("second.ctl", text.erase(text.find("ls-params"), 20));
  const std::string sigma = "Standard deviation of unit weight  :  ";
  EXPECT_EQ(run_bundle(second).result, 1);
  EXPECT_THAT(dir_.read("second.out"), HasSubstr(sigma + "1.00e-06"));
  EXPECT_EQ(run_bundle(control_file_).result, 1);
  EXPECT_EQ(run_bundle(second).result, 1);
  EXPECT_EQ(outputs("second"), outputs("project"));
  // Also what a failed run has read stays.
  dir_.write("lspar.txt", "3e-6 0 2");
  EXPECT_EQ(run_bundle(control_file_).result, 0);
  EXPECT_EQ(run_bundle(second).result, 1);
  EXPECT_THAT(dir_.read("second.out"), HasSubstr(sigma + "3.00e-06"));
  EXPECT_THAT(dir_.read("second.out"), HasSubstr("Number of iterations: 0\n"));
}

TEST_F(EntryPoints, StandardDeviationsOfMeasurementsArePositive) {
  std::string text = project_.files.at("crds.txt");
  const std::size_t end = text.find('\n', text.find(" p1 "));
  const std::size_t begin = text.rfind(' ', end) + 1;
  dir_.write("crds.txt", text.replace(begin, end - begin, "0"));
  const BundleRun refused = run();
  EXPECT_EQ(refused.result, 0);
  EXPECT_THAT(refused.output, HasSubstr("ERROR: Decomposition of weight matrix failed.\n"));
}

// One thread keeps on adjusting; another one calls until it has been refused three times.
TEST_F(EntryPoints, RefuseToRunBesideAnotherRun) {
  const test::TempDir other;
  project_.write(other);
  EXPECT_EQ(run().result, 1);
  const auto expected = outputs("project");
  std::atomic<int> refused = 0;
  const auto call = [&](const std::string& path) {
    if (VornBundle(path.c_str(), 1) == 0) ++refused;
  };
  std::atomic<bool> done = false;
  std::string errors;
  test::captured_output([&] {
    errors = test::captured_errors([&] {
      std::thread adjusting([&] {
        while (!done) call(control_file_);
      });
      while (refused < 3) call(other.path("project.ctl"));
      done = true;
      adjusting.join();
    });
  });
  const std::string message =
      "ERROR: Another run is under way in this process; this call does nothing.\n";
  EXPECT_EQ(errors.size(), static_cast<std::size_t>(refused) * message.size());
  EXPECT_THAT(errors, testing::EndsWith(message));
  EXPECT_EQ(outputs("project"), expected);
  EXPECT_EQ(run().result, 1);
}

TEST_F(EntryPoints, LineEndsAndLocaleChangeNothing) {
  EXPECT_EQ(run().result, 1);
  const auto expected = outputs("project");
  for (const auto& [name, text] : project_.files) {
    std::string changed;
    for (const char c : text) changed += c == '\n' ? std::string("\r\n") : std::string(1, c);
    dir_.write(name, changed.substr(0, changed.size() - 2));
  }
  struct CommaPoint : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    std::string do_grouping() const override { return "\3"; }
  };
  const std::locale saved = std::locale::global(std::locale(std::locale(), new CommaPoint));
  for (const char* name : {"de_DE.UTF-8", "de_DE", "German"}) {
    if (std::setlocale(LC_ALL, name) != nullptr) break;
  }
  EXPECT_EQ(run().result, 1);
  std::locale::global(saved);
  std::setlocale(LC_ALL, "C");
  EXPECT_EQ(outputs("project"), expected);
}

}  // namespace
}  // namespace vorn
