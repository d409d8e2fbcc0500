// vorn new, diff and simulate, run as a shell runs them.

#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "support/project_test.h"

#ifdef VORN_COMMAND

#include <sys/wait.h>

namespace vorn {
namespace {

using testing::HasSubstr;

class ProjectCommand : public test::ProjectTest {
 protected:
  explicit ProjectCommand(const test::SyntheticSpec& spec) : ProjectTest(spec) {}

  int run(const std::string& arguments) {
    const std::string line = "cd '" + dir_.path() + "' && '" VORN_COMMAND "' " + arguments +
                             " >stdout.txt 2>stderr.txt </dev/null";
    const int status = std::system(line.c_str());
    output_ = dir_.read("stdout.txt");
    errors_ = dir_.read("stderr.txt");
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  // The file of object points, one in a line.
  std::string object_points() const {
    return std::regex_replace(project_.files.at("obj.txt"), std::regex("\n "), " ");
  }

  std::string output_;
  std::string errors_;
};

// A digital camera, and the tables that somebody would have of its images.
class NewProjectCommand : public ProjectCommand {
 protected:
  NewProjectCommand() : ProjectCommand({.cameras = {"camera-ccd"}, .images = 6, .points = 40}) {
    std::istringstream camera(dir_.read("camera.txt"));
    std::string word;
    double c = 0.0;
    double xp = 0.0;
    double yp = 0.0;
    int columns = 0;
    int rows = 0;
    double pixel_um = 0.0;
    camera >> word >> word >> word >> c >> xp >> yp >> columns >> rows >> pixel_um;
    options_ = {{"-o", "made"},
                {"--sigma", "0.5"},
                {"--image-points", "points.csv"},
                {"--control", "control.csv"},
                {"--focal-length", std::to_string(c)},
                {"--camera", std::to_string(columns) + 'x' + std::to_string(rows)},
                {"--pixel-size", std::to_string(pixel_um)}};

    std::istringstream measured(dir_.read("crds.txt"));
    std::ostringstream points;
    points.precision(12);
    for (std::string image; measured >> image >> word && image != "stop-dep";) {
      double column = 0.0;
      double row = 0.0;
      for (std::string id; measured >> id && id != "-1";) {
        measured >> column >> row >> word >> word;
        // The new camera has its principal point in the middle.
        points << image << ';' << id << ';' << column - xp / pixel_um * 1e3 << ';'
               << row + yp / pixel_um * 1e3 << '\n';
      }
    }
    points_ = points.str();
    control_ = std::regex_replace(object_points(), std::regex("indiv-sdev\n|stop-dep\n"), "");
    control_ = std::regex_replace(control_, std::regex("[^\n]* 1e\\+31[^\n]*\n"), "");
    dir_.write("points.csv", "Image;Point;Column;Row\r\n" + points_);
    dir_.write("control.csv", "# of the survey\n" + control_);
  }
  // With options beside the usual ones, or in their place.
  int make(const std::string& more = {}) {
    std::string line = "new" + more;
    for (const auto& [option, value] : options_) {
      if (more.find(option + ' ') == std::string::npos) line += ' ' + option + ' ' + value;
    }
    return run(line);
  }

  std::vector<std::pair<std::string, std::string>> options_;
  std::string points_;
  std::string control_;
};

// Nothing but control says where the images are.
TEST_F(NewProjectCommand, MakesProjectsThatRun) {
  ASSERT_EQ(make(), 0) << errors_;
  EXPECT_THAT(output_, HasSubstr("6 images, 240 image points, 8 known points\n"));
  EXPECT_EQ(run("check made/project.ctl"), 0) << output_;
  EXPECT_THAT(output_, HasSubstr("0 errors, 0 warnings"));
  EXPECT_EQ(run("adjust made/project.ctl"), 0) << errors_;
  EXPECT_EQ(run("diff made/project.ctl project.ctl --limit 5"), 0) << output_;
  EXPECT_THAT(output_, HasSubstr("compared       120 unknowns"));

  EXPECT_EQ(make(), 1);
  EXPECT_THAT(errors_, HasSubstr("--force"));
  EXPECT_EQ(make(" --force --calibrate"), 0) << errors_;
  EXPECT_EQ(run("check made/project.ctl"), 0) << output_;

  // Tables are never replaced, whatever is allowed.
  std::filesystem::create_directory(dir_.path("tables"));
  for (const auto& [table, option] : {std::pair("image-points.txt", "--image-points"),
                                      std::pair("object-points.txt", "--control")}) {
    const std::string text = option[2] == 'i' ? points_ : control_;
    dir_.write("tables/" + std::string(table), text);
    EXPECT_EQ(make(" -o tables --force " + std::string(option) + " tables/" + table), 1);
    EXPECT_THAT(errors_, HasSubstr("the project would overwrite it"));
    EXPECT_EQ(dir_.read("tables/" + std::string(table)), text);
    EXPECT_FALSE(dir_.has("tables/project.ctl"));
    std::filesystem::remove(dir_.path("tables/" + std::string(table)));
  }

  // A check point takes no part; an orientation that is given is believed.
  dir_.write("control.csv",
             std::regex_replace(control_, std::regex("(p7 .*) .* .* .*\n"), "$1 check\n"));
  dir_.write("orientations.csv", "i1\t1\t2\t3\t0\t0\t0\nunused\t0\t0\t0\t0\t0\t0\n");
  EXPECT_EQ(make(" --force --orientations orientations.csv"), 0) << errors_;
  EXPECT_EQ(dir_.read("made/check-points.txt").substr(0, 10), "p7 ch xyz\n");
  EXPECT_THAT(dir_.read("made/orientations.txt"), HasSubstr("\ni1 1 2 3 "));
}

TEST_F(NewProjectCommand, SaysWhatIsWrongWithTables) {
  const std::string line = points_.substr(0, points_.find('\n') + 1);
  const struct {
    const char* file;
    std::string text;
    const char* says;
  } kDamages[] = {
      {"points.csv", "", "points.csv: there is no image point"},
      {"points.csv", "i0;p1;3,5;4\n",
       "points.csv:1: expected a number (the column), found \"3,5\""},
      {"points.csv", "i0;p1;3\n", "points.csv:1: the row is missing (column 4)"},
      {"points.csv", "i0,p 1,3,4\n", "points.csv:1: the point \"p 1\" cannot be an identifier"},
      {"points.csv", line + line, "points.csv:2: point p1 was measured in image i1 before"},
      {"points.csv", "i1,p1,3,99999\n", "lies outside the"},
      {"points.csv", "point,image,column,row\n", "columns must be image, point, column, row"},
      {"points.csv", std::string("i\0,", 4), "no plain text"},
      {"control.csv", "", "0 control points are measured"},
      {"control.csv", "p1 1 2 3\nq1 1 2 3\n", "1 control points are measured"},
      {"control.csv", "p0 1 2\n", "control.csv:1: Z is missing"},
      {"control.csv", "p0 1 2 3 0.1 0.1\n", "control.csv:1: sZ is missing"},
      {"control.csv", "p0,1,2,3,,0.01,0.01\n", "control.csv:1: sX is missing"},
      {"control.csv", "p0,1,2,3,,,0.01\n", "control.csv:1: sX is missing"},
      {"control.csv", "p0 1 2 3 0 0 0\n", "sX must be greater than 0"},
      {"control.csv", "p0 1 2 3\np0 1 2 3\n", "control.csv:2: point p0 was given before"},
      {"control.csv", "p1 1 2 3\np2 4 5 6\np3 9 8 8\n", "no approximate orientation of 6 of 6"},
      {"orientations.csv", "i0 1 2 3 4 5\n", "orientations.csv:1: kappa is missing"},
      {"orientations.csv", "i0 1 2 3 4 5 inf\n", "expected a number (kappa)"},
  };
  dir_.write("orientations.csv", "");
  for (const auto& [file, text, says] : kDamages) {
    const std::string intact = dir_.read(file);
    dir_.write(file, text);
    EXPECT_EQ(make(" --orientations orientations.csv"), 1) << says;
    EXPECT_THAT(errors_, HasSubstr(says));
    dir_.write(file, intact);
  }
  for (const char* const option : {"--sigma nan", "--sigma inf", "--pixel-size nan",
                                   "--focal-length 1e999", "--sigma 0", "--sigma -1"}) {
    EXPECT_EQ(make(' ' + std::string(option)), 2) << option;
  }
  for (const char* const name : {"../evil", "a/b", "''", "'a b'"}) {
    EXPECT_EQ(make(" --name " + std::string(name)), 1) << name;
    EXPECT_THAT(errors_, HasSubstr("is no name of a project")) << name;
  }
  for (const char* const camera : {"6000", "6000x", "x4000", "0x4000", "6000x4000x3", "a"}) {
    EXPECT_EQ(make(" --camera " + std::string(camera)), 2) << camera;
  }
  EXPECT_EQ(run("new -o made --camera 10x10 --pixel-size 5 --focal-length 50"), 2);
  EXPECT_EQ(make(" --image-points missing.csv"), 1);
  EXPECT_FALSE(dir_.has("made")) << "nothing is written before all is known";
}

class DiffCommand : public ProjectCommand {
 protected:
  DiffCommand()
      : ProjectCommand({.orientations = {"ext-ori-opk-rot", "ext-ori-quaternion"},
                        .images = 4,
                        .points = 20}) {}
};

TEST_F(DiffCommand, ComparesInUnitsOfSigmas) {
  EXPECT_EQ(run("diff project.ctl project.ctl --limit 0"), 0) << errors_;
  EXPECT_THAT(output_, HasSubstr("compared       86 unknowns; only in A 0, only in B 0"));
  EXPECT_FALSE(dir_.has("project.out")) << "no file is written";

  // The first control point moves by a thousand standard deviations, and loses its name.
  std::filesystem::create_directory(dir_.path("other"));
  for (auto [name, text] : project_.files) {
    if (name == "obj.txt") {
      text = std::regex_replace(text, std::regex("(p1 +-?[0-9]+.[0-9])[0-9]"), "$017");
    }
    dir_.write("other/" + name, text);
  }
  EXPECT_EQ(run("diff project.ctl other/project.ctl"), 1);
  EXPECT_THAT(output_, HasSubstr(" sigmas  "));
  EXPECT_EQ(run("diff project.ctl other/project.ctl --limit 1e9"), 0);
  for (const char* const name : {"obj.txt", "crds.txt"}) {
    dir_.write("other/" + std::string(name),
               std::regex_replace(project_.files[name], std::regex("\\bp1 "), "q "));
  }
  EXPECT_EQ(run("diff project.ctl other/project.ctl"), 0) << output_;
  EXPECT_THAT(output_, HasSubstr("only in A: point p1\n  only in B: point q\n"));

  dir_.write("other/lspar.txt",
             std::regex_replace(project_.files["lspar.txt"], std::regex(" 20 "), " 1 "));
  EXPECT_EQ(run("diff project.ctl other/project.ctl --limit 1e9"), 3);
  EXPECT_THAT(errors_, HasSubstr("not converged: other/project.ctl"));
  // As many iterations as no adjustment needs, none of which is small enough.
  dir_.write("other/lspar.txt",
             std::regex_replace(
                 std::regex_replace(project_.files["lspar.txt"], std::regex(" 20 "), " 1000000 "),
                 std::regex(" 1e-7 1e-7 1e-9 1e-9 "), " 0 0 0 0 "));
  EXPECT_EQ(run("diff project.ctl other/project.ctl"), 3);
  EXPECT_THAT(errors_, HasSubstr("not converged: other/project.ctl"));
  EXPECT_EQ(run("diff missing.ctl project.ctl"), 2);
  EXPECT_EQ(errors_, "vorn: there are no results of missing.ctl: no such control file\n");
  dir_.write("other/camera.txt", "nonsense");
  for (const char* const b : {"other/project.ctl", "missing.ctl", "project.ctl --limit -1", ""}) {
    EXPECT_EQ(run("diff project.ctl " + std::string(b)), 2) << b;
    EXPECT_NE(errors_, "");
  }
}

TEST_F(DiffCommand, KnowsThatQuaternionsOfBothSignsAreOneRotation) {
  std::filesystem::create_directory(dir_.path("other"));
  for (const auto& [name, text] : project_.files) dir_.write("other/" + name, text);
  const std::string before = project_.files["eo.txt"];
  const std::string part = R"( +(-?\d\.\d+(?:e-\d+)?))";
  const std::regex four("\n" + part + part + part + part + "\n");
  std::string after = std::regex_replace(before, four, "\n -$1 -$2 -$3 -$4\n");
  after = std::regex_replace(after, std::regex("--"), "");
  ASSERT_NE(after, before);
  dir_.write("other/eo.txt", after);
  EXPECT_EQ(run("diff project.ctl other/project.ctl --limit 0.001"), 0) << output_ << errors_;
}

// All kinds of observations.
class SimulateCommand : public ProjectCommand {
 protected:
  SimulateCommand()
      : ProjectCommand({.cameras = {"camera-ccd", "camera-frame"},
                        .orientations = {"ext-ori-opk-rot", "ext-ori-quaternion", "dlt"},
                        .ap_sets = {"gap", "p12"},
                        .images = 9,
                        .points = 40}) {}
  // The mean square of all differences, in units of their standard deviations.
  double mean_square(const std::string& a, const std::string& b) {
    EXPECT_LT(run("diff " + a + "/project.ctl " + b + "/project.ctl --rigorous --list 100000"), 2)
        << errors_;
    const std::regex row(" +([0-9.]+) sigmas ");
    double sum = 0.0;
    int count = 0;
    for (std::sregex_iterator match(output_.begin(), output_.end(), row), end; match != end;
         ++match, ++count) {
      sum += std::pow(std::stod((*match)[1]), 2);
    }
    return sum / count;
  }
};

TEST_F(SimulateCommand, CopiesGiveBackTheTruth) {
  ASSERT_EQ(run("simulate project.ctl --adjusted --copies 8 --seed 5 -o sim"), 0) << errors_;
  double sum = 0.0;
  for (int copy = 1; copy <= 8; ++copy) {
    sum += mean_square("sim/truth", "sim/copy-" + std::to_string(copy));
  }
  EXPECT_GT(sum / 8, 0.75);
  EXPECT_LT(sum / 8, 1.3);
  // Noise of one seed is the same, of another one is other noise.
  ASSERT_EQ(run("simulate project.ctl --adjusted --copies 1 --seed 6 -o again"), 0) << errors_;
  for (const char* const file : {"image-points.txt", "object-points.txt", "parameter-sets.txt"}) {
    const std::string text = dir_.read("again/copy-1/" + std::string(file));
    EXPECT_EQ(text, dir_.read("sim/copy-2/" + std::string(file)));
    EXPECT_NE(text, dir_.read("sim/copy-1/" + std::string(file)));
  }
  expect_inputs_unchanged();
}

TEST_F(SimulateCommand, TellsPrecisionWithoutMeasurements) {
  ASSERT_EQ(run("simulate project.ctl"), 0) << errors_;
  const std::string expected = output_;
  EXPECT_THAT(expected, HasSubstr("orientation Xo"));
  EXPECT_THAT(expected, HasSubstr("s1 K1"));
  // Other measured values, the same standard deviations.
  dir_.write("crds.txt", std::regex_replace(project_.files["crds.txt"],
                                            std::regex("(p[0-9]+ +-?[0-9]+)[.][0-9]"), "$1.5"));
  ASSERT_EQ(run("simulate project.ctl"), 0) << errors_;
  EXPECT_EQ(output_, expected);

  for (const char* const wrong : {"--copies 2", "-o x", "--copies 0 -o x", "--copies x -o x"}) {
    EXPECT_EQ(run("simulate project.ctl " + std::string(wrong)), 2) << wrong;
  }
  std::filesystem::create_directories(dir_.path("x/copy-2"));
  EXPECT_EQ(run("simulate project.ctl --copies 2 -o x"), 1);
  EXPECT_THAT(errors_, HasSubstr("--force"));
  EXPECT_FALSE(dir_.has("x/truth"));
  EXPECT_EQ(run("simulate project.ctl --copies 2 -o x --force"), 0) << errors_;
  // A copy of a copy does not replace it, nor what it is made of.
  const std::string truth = dir_.read("x/truth/image-points.txt");
  const std::string copy = dir_.read("x/copy-1/image-points.txt");
  EXPECT_EQ(run("simulate x/copy-1/project.ctl --copies 1 -o x --force"), 1);
  EXPECT_THAT(errors_, HasSubstr("the control file has the name of one of its own outputs"));
  dir_.write("of-x.ctl", std::regex_replace(dir_.read("x/copy-1/project.ctl"),
                                            std::regex("(\\S+ )(\\S+[.]txt)"), "$1x/copy-1/$2"));
  EXPECT_EQ(run("simulate of-x.ctl --copies 1 -o x --force"), 1);
  EXPECT_THAT(errors_, HasSubstr("a data file has the name of one of the outputs"));
  EXPECT_EQ(dir_.read("x/truth/image-points.txt"), truth);
  EXPECT_EQ(dir_.read("x/copy-1/image-points.txt"), copy);
  EXPECT_EQ(run("simulate missing.ctl"), 1);
  // Nothing fixes the datum.
  dir_.write("obj.txt", std::regex_replace(object_points(), std::regex("( [0-9.e-]+){3}\n"),
                                           " 1e31 1e31 1e31\n"));
  EXPECT_EQ(run("simulate project.ctl"), 1);
  EXPECT_THAT(errors_, HasSubstr("there are no results of project.ctl"));
}

}  // namespace
}  // namespace vorn

#endif
