// Strict reading and the check of projects: each mistake is named where it stands, and nothing is
// named where there is none.

#include "check/check.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "driver/bundle_project.h"
#include "lsq/ls_params.h"
#include "support/captured_output.h"
#include "support/temp_dir.h"

namespace vorn {
namespace {

namespace fs = std::filesystem;

const fs::path kSource = VORN_SOURCE_DIR;
const std::vector<std::string> kTestProjects = {"frame-selfcal", "mixed-models", "pushbroom-drift"};
const std::vector<std::string> kExamples = {"aerial-block", "close-range-calibration",
                                            "pushbroom-strip"};

// The input files of a project in a directory of its own.
class Copy {
 public:
  explicit Copy(const fs::path& project) {
    for (const auto& entry : fs::directory_iterator(project)) {
      const fs::path& file = entry.path();
      if (file.extension() == ".ctl") control_ = file.filename().string();
      if (file.extension() != ".txt" && file.extension() != ".ctl") continue;
      names_.push_back(file.filename().string());
      dir_.write(names_.back(), test::file_text(file));
    }
    std::sort(names_.begin(), names_.end());
    if (fs::exists(project / (project.filename().string() + ".ctl"))) {
      control_ = project.filename().string() + ".ctl";
    }
  }
  const test::TempDir& dir() const { return dir_; }
  const std::vector<std::string>& names() const { return names_; }
  std::string control() const { return control_; }

  std::vector<Finding> check() const {
    ls_params() = LSParams();
    FindingList list;
    test::captured_output([&] {
      test::captured_errors([&] { EXPECT_TRUE(check_project(dir_.path(control_), list)); });
    });
    return list.findings();
  }

 private:
  test::TempDir dir_;
  std::vector<std::string> names_;
  std::string control_;
};

std::string shown(const std::vector<Finding>& findings) {
  return test::written_text([&](TextWriter& out) {
    for (const Finding& finding : findings) {
      out << name_of(finding.code) << ' ';
      print_finding(out, finding);
    }
  });
}

bool has(const std::vector<Finding>& findings, std::string_view code, const std::string& place) {
  return std::any_of(findings.begin(), findings.end(), [&](const Finding& finding) {
    std::string at = finding.file;
    if (finding.line > 0) {
      at += ':' + std::to_string(finding.line) + ':' + std::to_string(finding.column);
    }
    return name_of(finding.code) == code && at == place;
  });
}

TEST(Check, FindsNothingWrongWithGoodProjects) {
  std::vector<fs::path> projects;
  for (const std::string& name : kExamples) projects.push_back(kSource / "examples" / name);
  for (const std::string& name : kTestProjects) projects.push_back(kSource / "tests/data" / name);
  for (const fs::path& project : projects) {
    const std::vector<Finding> findings = Copy(project).check();
    for (const Finding& finding : findings) {
      EXPECT_NE(finding.severity(), Severity::error) << project << '\n' << shown({finding});
      // One test project has its angles in gon under the word "deg".
      const bool true_suspicion =
          project.filename() == "frame-selfcal" && finding.code == FindingCode::unit_suspect;
      EXPECT_TRUE(true_suspicion || name_of(finding.code).find("suspect") == std::string_view::npos)
          << project << '\n'
          << shown({finding});
    }
  }
}

// What is changed in a project, and the finding expected. An empty `from` appends.
struct Mistake {
  std::string project;
  std::string file;
  std::string from;
  std::string to;
  std::string code;
  std::string place;
  bool everywhere = false;
};

fs::path project_folder(const std::string& name) {
  const fs::path example = kSource / "examples" / name;
  return fs::exists(example) ? example : kSource / "tests/data" / name;
}

const std::vector<Mistake> kMistakes = {
    // texts
    {"frame-selfcal", "project.ctl", "eo.txt", "eo1.txt", "file-missing", "project.ctl:5:16"},
    {"frame-selfcal", "project.ctl", "ctrl-supp", "ctrl-sup", "keyword-unknown", "project.ctl:7:1"},
    {"frame-selfcal", "project.ctl", "ap-set ap.txt", "p12 ap.txt", "keyword-unknown",
     "project.ctl:8:1"},
    {"frame-selfcal", "project.ctl", "image-crds crds.txt", "stop-dep\nimage-crds crds.txt",
     "trailing-text", "project.ctl:10:1"},
    {"frame-selfcal", "project.ctl", "image-crds crds.txt", "stop-dep", "empty-project",
     "project.ctl"},
    {"frame-selfcal", "camera.txt", "camera-frame k1",
     "\xef\xbb\xbf"
     "camera-frame k1",
     "encoding", "camera.txt:1:1"},
    {"frame-selfcal", "image.txt", "i3 e3",
     "i3\xc2\xa0"
     "e3",
     "encoding", "image.txt:3:13"},
    {"frame-selfcal", "camera.txt", "camera-frame k2", "Camera-frame k2", "keyword-unknown",
     "camera.txt:3:1"},
    {"frame-selfcal", "eo.txt", "ext-ori-opk-rot e2 deg", "ext-ori-opk-rot e2 DEG",
     "keyword-unknown", "eo.txt:7:20"},
    {"frame-selfcal", "cs.txt", "p5 in", "p5 IN", "keyword-unknown", "cs.txt:4:4"},
    {"frame-selfcal", "cs.txt", "p6 ch xyz", "p6 ch XYZ", "keyword-unknown", "cs.txt:5:7"},
    {"frame-selfcal", "lspar.txt", "native", "Native", "keyword-unknown", "lspar.txt:8:7"},
    {"frame-selfcal", "crds.txt", "-3.921323337", "-3,921323337", "number-expected",
     "crds.txt:2:19"},
    {"frame-selfcal", "crds.txt", "0.003\n p2", "1d-3\n p2", "number-expected", "crds.txt:2:38"},
    {"frame-selfcal", "params.txt", "3 4", "3 4.0", "number-expected", "params.txt:5:3"},
    {"frame-selfcal", "params.txt", "1\n1 1 1 1", "on\n1 1 1 1", "number-expected",
     "params.txt:1:1"},
    {"frame-selfcal", "ap.txt", " 0 2e-05\n 0 1e35", " 0 2e-05\n 0 abc", "number-expected",
     "ap.txt:4:4"},
    {"frame-selfcal", "ap.txt", " 0 0.074626865672\n", "", "value-missing", "ap.txt:11:1"},
    {"frame-selfcal", "params.txt", " none none none\n", " none none\n", "value-missing",
     "params.txt:6:21"},
    {"pushbroom-drift", "camera.txt", "0.3", "0,3", "number-expected", "camera.txt:2:17"},
    {"pushbroom-drift", "position.txt", "stop-dep 0 2", "stop-dep 0 3", "value-missing",
     "position.txt:3:22"},
    {"pushbroom-drift", "position.txt", " stop-dep 0 2\n", " 0 2\n", "end-missing",
     "position.txt:1:25"},
    {"frame-selfcal", "cs.txt", "stop-dep", "", "end-missing", "cs.txt:8:9"},
    {"frame-selfcal", "camera.txt", "k2 spare", "k1 spare", "duplicate", "camera.txt:3:14"},
    {"frame-selfcal", "crds.txt", " p2 8.1894", " p1 8.1894", "duplicate", "crds.txt:3:2"},
    {"frame-selfcal", "image.txt", "i2 e2 k1", "i2 e2 k3", "unknown-reference", "image.txt:2:19"},
    {"frame-selfcal", "cs.txt", "p5 in", "P5 in", "unknown-reference", "cs.txt:4:1"},
    {"frame-selfcal", "crds.txt", "-1\ni2", "i2", "end-missing", "crds.txt:15:1"},
    {"frame-selfcal", "crds.txt", " p3 -2.1679590868 0.77920201513 0.003 0.003",
     " p3 -2.1679590868 0.77920201513 0.003", "value-missing", "crds.txt:5:2"},
    {"mixed-models", "crds.txt", "-1\ni2", "i2", "end-missing", "crds.txt:16:1"},
    {"frame-selfcal", "crds.txt", " p2 8.1894", "# a comment here\n p2 8.1894", "number-expected",
     "crds.txt:3:3"},
    {"frame-selfcal", "crds.txt", " p2 8.1894", " p 2 8.1894", "number-expected", "crds.txt:3:39"},
    {"frame-selfcal", "crds.txt", "i2 0.001", "i2", "value-missing", "crds.txt:17:2"},
    {"frame-selfcal", "lspar.txt", "0.8 1.0", "0.8", "value-missing", "lspar.txt:8:1"},
    {"frame-selfcal", "params.txt", "1 1 1 1\n", "1 1 1\n", "value-missing", "params.txt:6:1"},
    {"frame-selfcal", "image.txt", "i3 e3 k1", "i3 e3", "value-missing", "image.txt:4:1"},
    {"frame-selfcal", "cs.txt", "p5 in", "p4 co z", "duplicate", "cs.txt:4:1"},
    {"frame-selfcal", "image.txt", "image-frame i3", "stop-dep image-frame i3", "trailing-text",
     "image.txt:3:10"},
    {"frame-selfcal", "eo.txt", "ext-ori-opk-rot e2", "stop-dep\next-ori-opk-rot e2",
     "trailing-text", "eo.txt:8:1"},
    {"frame-selfcal", "crds.txt", "i2 0.001", "-1\ni2 0.001", "trailing-text", "crds.txt:17:1"},
    // names
    {"frame-selfcal", "image.txt", "i2 e2 k1", "i2 E2 k1", "unknown-reference", "image.txt:2:16"},
    {"frame-selfcal", "ap.txt", "gap s1 k1", "gap s1 kk", "unknown-reference", "ap.txt:1:8"},
    {"pushbroom-drift", "position.txt", "e3", "e33", "unknown-reference", "position.txt:1:16"},
    {"frame-selfcal", "obj.txt", "p1 1.07", "q1 9 9 9 0 0 0\np1 1.07", "unused", "obj.txt:2:1"},
    // values
    {"frame-selfcal", "camera.txt", "simulated 50", "simulated -50", "value-range",
     "camera.txt:1:27"},
    {"frame-selfcal", "lspar.txt", "3e-6 10", "0 10", "value-range", "lspar.txt:1:1"},
    {"frame-selfcal", "lspar.txt", "1e-31 1e31", "1e-29 1e31", "value-range", "lspar.txt:4:12"},
    {"frame-selfcal", "crds.txt", "0.003\n p2", "0\n p2", "value-range", "crds.txt:2:38"},
    {"frame-selfcal", "obj.txt", " 0.001 0.001 0.001\np2", " 0.001 -0.001 0.001\np2", "value-range",
     "obj.txt:3:8"},
    {"frame-selfcal", "lspar.txt", "3e-6", "3", "unit-suspect", "lspar.txt:1:1"},
    {"frame-selfcal", "lspar.txt", "1e-30 1e30", "1e30 1e-30", "value-range", "lspar.txt:4:6"},
    {"frame-selfcal", "lspar.txt", "1e10 1e10", "0 1e10", "value-range", "lspar.txt:5:1"},
    {"close-range-calibration", "camera.txt", "28.0", "28000", "unit-suspect", "camera.txt:2:3"},
    {"frame-selfcal", "camera.txt", "k1 simulated 50 (0.1,-0.2)", "k1 50 0.1 -0.2", "value-missing",
     "camera.txt:1:17"},
    {"frame-selfcal", "params.txt", "3 4", "3 -4", "value-range", "params.txt:5:3"},
    // what would make the approximations fit
    {"close-range-calibration", "orientations.txt", "ext-ori-opk-rot", "ext-ori-australis",
     "rotation-suspect", "orientations.txt:4:1"},
    {"aerial-block", "orientations.txt", "gon", "deg", "unit-suspect", "orientations.txt:2:18",
     true},
    {"aerial-block", "image-coords.txt", "  0.001", "  -0.001", "value-range",
     "image-coords.txt:1:6"},
    {"aerial-block", "image-coords.txt", "  0.001", "  1", "unit-suspect", "image-coords.txt:1:1",
     true},
    {"aerial-block", "camera.txt", "152.818", "15.2818", "unit-suspect", "camera.txt:2:3"},
    // what stands out
    {"aerial-block", "object-coords.txt", "383.891", "483.891", "gross-start",
     "object-coords.txt:3:1"},
    {"aerial-block", "orientations.txt", "  24747       50997", "  27747       50997",
     "gross-start", "orientations.txt:7:18"},
    {"aerial-block", "object-coords.txt", "30573.902   54099.248", "30573.902   50499.248",
     "gross-start", "object-coords.txt:4:1"},
    {"aerial-block", "image-coords.txt", "C1       53.1466   38.9595", "C1      -53.1466   38.9595",
     "gross-start", "image-coords.txt:3:3"},
    // network
    {"frame-selfcal", "image.txt", "stop-dep", "image-frame i6 e1 k2\nstop-dep", "unused",
     "image.txt:6:13"},
    {"frame-selfcal", "ap.txt", "stop-dep", "inner-or s2 k2 0 1e31 0 1e31 0 1e31", "undetermined",
     "ap.txt:12:10"},
    {"frame-selfcal", "ap.txt", "stop-dep", "inner-or s2 k1 0 1e31 0 1e31 0 1e31\nstop-dep",
     "undetermined", "ap.txt:12:10"},
};

TEST(Check, NamesEachMistakeWhereItStands) {
  for (const Mistake& mistake : kMistakes) {
    const Copy copy(project_folder(mistake.project));
    std::string text = copy.dir().read(mistake.file);
    std::size_t at = text.find(mistake.from);
    ASSERT_NE(at, std::string::npos) << mistake.from;
    do {
      text.replace(at, mistake.from.size(), mistake.to);
      at = text.find(mistake.from, at + mistake.to.size());
    } while (mistake.everywhere && at != std::string::npos);
    copy.dir().write(mistake.file, text);
    const std::vector<Finding> findings = copy.check();
    EXPECT_TRUE(has(findings, mistake.code, mistake.place))
        << "expected " << mistake.code << " at " << mistake.place << " of " << mistake.project
        << " for \"" << mistake.to << "\", found:\n"
        << shown(findings);
  }
}

// Mistakes of many words, by expressions and what takes the place of all that match.
TEST(Check, NamesWhatIsExchangedOrOfAnotherProject) {
  struct Case {
    std::string file;
    std::vector<std::pair<const char*, const char*>> steps;
    std::string code;
    std::vector<std::string> places;
  };
  const Case kCases[] = {
      // X and Y, or the sign of Z, of the observed points alone
      {"object-coords.txt",
       {{R"((\d+\.\d+) +(\d+\.\d+)( +\d+\.\d+ +0\.03))", "$2 $1$3"}},
       "axes-suspect",
       {"object-coords.txt:6:1"}},
      {"object-coords.txt",
       {{R"((\d+\.\d+ +0\.03))", "-$1"}},
       "axes-suspect",
       {"object-coords.txt:6:1"}},
      // the sign of the third angle, which is as small as the approximations are rough
      {"orientations.txt",
       {{R"((\n +-?\d+\.\d +-?\d+\.\d +)(-?\d+\.\d))", "$1-$2"}, {"--", ""}},
       "rotation-suspect",
       {"orientations.txt:2:18"}},
      {"object-coords.txt",
       {{R"((\d+\.\d+ +\d+\.\d+ +\d+\.\d+ +0\.03))", "9$1"}},
       "gross-start",
       {"object-coords.txt:6:1"}},
      // no point where it is measured
      {"orientations.txt",
       {{R"((\n +)(\d{5} +\d{5} ))", "$1-$2"}},
       "gross-start",
       {"object-coords.txt:2:1"}},
      // measurements of two images, and identifiers of two points in an image
      {"image-coords.txt",
       {{"101  0.001", "??"}, {"310  0.001", "101  0.001"}, {R"(\?\?)", "310  0.001"}},
       "gross-start",
       {"image-coords.txt:1:1", "orientations.txt:2:18"}},
      {"image-coords.txt",
       {{"N1        7", "C1        7"}, {"C1       53", "N1       53"}},
       "gross-start",
       {"image-coords.txt:2:3", "image-coords.txt:3:3"}},
  };
  for (const Case& mistake : kCases) {
    const Copy copy(project_folder("aerial-block"));
    std::string text = copy.dir().read(mistake.file);
    for (const auto& [from, to] : mistake.steps) {
      text = std::regex_replace(text, std::regex(from), to);
    }
    ASSERT_NE(text, copy.dir().read(mistake.file));
    copy.dir().write(mistake.file, text);
    const std::vector<Finding> findings = copy.check();
    for (const std::string& place : mistake.places) {
      EXPECT_TRUE(has(findings, mistake.code, place))
          << mistake.steps[0].first << ": expected " << mistake.code << " at " << place
          << ", found:\n"
          << shown(findings);
    }
  }
}

// A mistake is named once, and not by what follows from it.
TEST(Check, NamesNothingThatFollows) {
  const std::vector<Mistake> kAlone = {
      {"close-range-calibration", "image-coords.txt", "-1\n\nP02", "P02", "end-missing",
       "image-coords.txt:74:1"},
      {"close-range-calibration", "camera.txt", "28.0", "0.0", "value-range", "camera.txt:2:3"},
      {"aerial-block", "image-coords.txt", "102  0.001", "102  0", "value-range",
       "image-coords.txt:26:6"},
      {"pushbroom-strip", "orientations.txt", "-520.464", "1520.464", "gross-start",
       "orientations.txt:12:18"},
      {"close-range-calibration", "images.txt", "stop-dep", "image-frame P01 P01 slr\nstop-dep",
       "duplicate", "images.txt:21:13"},
  };
  for (const Mistake& mistake : kAlone) {
    const Copy copy(project_folder(mistake.project));
    std::string text = copy.dir().read(mistake.file);
    const std::size_t at = text.find(mistake.from);
    ASSERT_NE(at, std::string::npos) << mistake.from;
    copy.dir().write(mistake.file, text.replace(at, mistake.from.size(), mistake.to));
    const std::vector<Finding> findings = copy.check();
    EXPECT_TRUE(has(findings, mistake.code, mistake.place)) << shown(findings);
    EXPECT_EQ(std::count_if(findings.begin(), findings.end(),
                            [](const Finding& f) { return f.severity() != Severity::note; }),
              1)
        << shown(findings);
  }
}

// All mistakes of all files at once, and nothing that only follows from them.
TEST(Check, GoesOnBehindMistakes) {
  const Copy copy(kSource / "tests/data/frame-selfcal");
  const auto change = [&](const std::string& file, const std::string& from, const std::string& to) {
    std::string text = copy.dir().read(file);
    copy.dir().write(file, text.replace(text.find(from), from.size(), to));
  };
  change("camera.txt", "camera-frame k1", "camera k1");
  change("eo.txt", "ext-ori-opk-rot e2", "ext-ori-kop-rot e2");
  change("crds.txt", "-3.921323337", "-3,921323337");
  change("crds.txt", "4.2476278011", "4,2476278011");
  change("obj.txt", "0.24446341867", "abc");
  change("cs.txt", "p5 in", "p5 inner");
  const std::vector<Finding> findings = copy.check();
  for (const char* place : {"camera.txt:1:1", "eo.txt:7:1", "cs.txt:4:4"}) {
    EXPECT_TRUE(has(findings, "keyword-unknown", place)) << place << '\n' << shown(findings);
  }
  for (const char* place : {"crds.txt:2:19", "crds.txt:5:19", "obj.txt:2:32"}) {
    EXPECT_TRUE(has(findings, "number-expected", place)) << place << '\n' << shown(findings);
  }
  EXPECT_EQ(std::count_if(findings.begin(), findings.end(),
                          [](const Finding& f) { return f.severity() == Severity::error; }),
            6)
      << shown(findings);
}

// ---- the sweep ---------------------------------------------------------------------------------

bool is_number(std::string_view word) {
  TokenReader in(word);
  double value = 0.0;
  return in.read(value) && in.rest().empty();
}

// The numbers of a file, but the identifiers of points. Of large files not every one is taken.
std::vector<std::string_view> numbers_of(const std::string& name, const std::string& text) {
  const bool points = name.find("coords") != std::string::npos || name == "crds.txt" ||
                      name == "obj.txt" || name == "cs.txt" || name == "control.txt";
  std::vector<std::string_view> numbers;
  TokenReader in(text);
  for (std::string_view word; in.read_word(word) && word != "stop-dep" && word != "native";) {
    const std::size_t before =
        text.find_last_not_of(" \t", static_cast<std::size_t>(word.data() - text.data()) - 1);
    const bool starts_line =
        word.data() == text.data() || before == std::string::npos || text[before] == '\n';
    if (is_number(word) && word != "-1" && !(points && starts_line)) numbers.push_back(word);
  }
  const std::size_t step = numbers.size() / 60 + 1;
  std::vector<std::string_view> taken;
  for (std::size_t i = 0; i < numbers.size(); i += step) taken.push_back(numbers[i]);
  return taken;
}

TEST(StrictReading, NoUnreadableNumberPassesWithoutAFinding) {
  std::vector<fs::path> projects = {kSource / "examples/pushbroom-strip",
                                    kSource / "examples/close-range-calibration"};
  for (const std::string& name : kTestProjects) projects.push_back(kSource / "tests/data" / name);
  int count = 0;
  for (const fs::path& project : projects) {
    const Copy copy(project);
    const std::string control = copy.dir().read(copy.control());
    for (const std::string& name : copy.names()) {
      const std::string text = copy.dir().read(name);
      if (name.ends_with(".ctl") || control.find(' ' + name) == std::string::npos) continue;
      for (const std::string_view number : numbers_of(name, text)) {
        for (const std::string_view bad : {"0,5", "abc", "1.0d0"}) {
          const auto at = static_cast<std::size_t>(number.data() - text.data());
          copy.dir().write(name, std::string(text).replace(at, number.size(), bad));
          ls_params() = LSParams();
          fs::current_path(copy.dir().path());
          FindingList findings;
          BundleProject damaged;
          damaged.findings = &findings;
          TokenReader in(control, copy.control(), &findings);
          int result = 0;
          test::captured_output([&] { result = damaged.read_control_file(in); });
          EXPECT_TRUE(findings.has_errors()) << project << ' ' << name << ": " << number << " at "
                                             << at << " as " << bad << ", result " << result;
          ++count;
        }
      }
      copy.dir().write(name, text);
    }
  }
  EXPECT_GT(count, 1000);
  ls_params() = LSParams();
}

}  // namespace
}  // namespace vorn
