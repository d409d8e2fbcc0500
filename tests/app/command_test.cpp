// The command, run as a shell runs it.

#include <gmock/gmock.h>

#include <cmath>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "support/project_test.h"

#ifdef VORN_COMMAND

#include <sys/wait.h>
#include <unistd.h>

namespace vorn {
namespace {

using testing::HasSubstr;
using testing::Not;

class Command : public test::ProjectTest {
 protected:
  // Runs `vorn arguments` in the directory; the streams go to output_ and errors_.
  int run(const std::string& arguments, const std::string& before = {}) {
    return run_line(before + "'" VORN_COMMAND "' " + arguments);
  }
  int run_line(const std::string& words) {
    const std::string line =
        "cd '" + dir_.path() + "' && " + words + " >stdout.txt 2>stderr.txt </dev/null";
    const int status = std::system(line.c_str());
    output_ = dir_.read("stdout.txt");
    errors_ = dir_.read("stderr.txt");
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  // Puts a project of the tests in place of the synthetic one.
  void take_project(const std::string& name) {
    for (const auto& entry : std::filesystem::directory_iterator(
             std::filesystem::path(VORN_SOURCE_DIR) / "tests/data" / name)) {
      dir_.write(entry.path().filename().string(), test::file_text(entry.path()));
    }
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
  EXPECT_THAT(library.output, HasSubstr("Convergence check failed at"));
  EXPECT_EQ(run("adjust --verbose project.ctl"), 0) << errors_;
  EXPECT_EQ(output_, library.output) << "standard output is the library's own";
  EXPECT_EQ(run("adjust project.ctl"), 0) << errors_;
  EXPECT_EQ(output_, "") << "the ending tells what moves";
  for (const char* part : {"iteration   1   sigma 0", "still moves\n", "converged\n",
                           "times the a-priori value", "redundancy", "project.out", "in image"}) {
    EXPECT_THAT(errors_, HasSubstr(part));
  }
  EXPECT_EQ(run("adjust -q project.ctl"), 0);
  EXPECT_EQ(output_ + errors_, "");
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

// Words that cannot be read, and values that mean nothing: the run stops before the iterations and
// says where they stand; only --lenient goes on.
TEST_F(Command, StopsAtWhatMeansNothing) {
  take_project("frame-selfcal");
  struct Mistake {
    std::string file, from, to, told;
    int lenient;
  };
  const std::vector<Mistake> mistakes = {
      {"lspar.txt", "3e-6", "-3e-6", "lspar.txt:1:1: error: sigma 0", 0},
      {"params.txt", "3 4", "3 4.0", "params.txt:5:3: error: expected a whole number", 0},
      {"cs.txt", "p4 co", "p4 CO", "cs.txt:3:4: error: unknown role", 1},
      {"cs.txt", "co xy", "co XY", "cs.txt:3:7: error: unknown coordinates", 0},
      {"obj.txt", " 0.001 0.001 0.001\np2", " 0.001 -0.001 0.001\np2", "obj.txt:3:8: error: sY", 0},
      {"camera.txt", "simulated 50", "simulated 0", "camera.txt:1:27: error: c of camera k1", 1},
      {"crds.txt", "i1 0.001", "i1 0", "crds.txt:1:4: error: the scale factor", 1},
      {"image.txt", "image-frame i1", "stop-dep image-frame i1", "the project has no image", 1},
      {"obj.txt", "unseen", "stop-dep\nunseen", "obj.txt:29:1: warning: this is not read", 0},
  };
  for (const Mistake& mistake : mistakes) {
    const std::string text = dir_.read(mistake.file);
    std::string damaged = text;
    const std::size_t at = text.find(mistake.from);
    ASSERT_NE(at, std::string::npos) << mistake.from;
    dir_.write(mistake.file, damaged.replace(at, mistake.from.size(), mistake.to));
    const bool warned = mistake.told.find("warning") != std::string::npos;
    EXPECT_EQ(run("adjust project.ctl"), warned ? 0 : 1) << mistake.told;
    EXPECT_THAT(errors_, HasSubstr(mistake.told));
    EXPECT_EQ(run("adjust --lenient project.ctl"), mistake.lenient) << mistake.told;
    EXPECT_THAT(errors_, HasSubstr(mistake.told));
    dir_.write(mistake.file, text);
  }
}

TEST_F(Command, TakesNoUnreadableNumber) {
  take_project("frame-selfcal");
  const std::vector<std::string> forms = {"0,5", "abc", "1.0d0"};
  const std::regex number(R"x(\s([-+]?[0-9.]+([eE][-+]?[0-9]+)?)(?=\s))x");
  const std::regex told(R"x(\.txt:[0-9]+:[0-9]+: error: )x");
  std::size_t count = 0;
  for (const char* file : {"params.txt", "lspar.txt", "camera.txt", "eo.txt", "ap.txt", "image.txt",
                           "obj.txt", "cs.txt", "crds.txt"}) {
    const std::string text = dir_.read(file);
    for (std::sregex_iterator it(text.begin(), text.end(), number), end; it != end; ++it) {
      if (++count % 16 != 0) continue;
      const std::string& form = forms[count / 16 % forms.size()];
      const auto at = static_cast<std::size_t>(it->position(1));
      dir_.write(file,
                 std::string(text).replace(at, static_cast<std::size_t>(it->length(1)), form));
      EXPECT_EQ(run("adjust --quiet project.ctl"), 1) << file << " at " << at << " " << form;
      EXPECT_TRUE(std::regex_search(errors_, told)) << errors_;
    }
    dir_.write(file, text);
  }
  EXPECT_GT(count, 300U);
}

// The forms of the error stream; a pseudo-terminal where `script` makes one.
TEST_F(Command, TellsOfProgress) {
  EXPECT_EQ(run("--progress json project.ctl"), 0);
  EXPECT_EQ(output_, "");
  const std::regex object(R"x(\{"event":"(stage|progress|iteration|message|end)",.*\})x");
  std::map<std::string, int> events;
  std::istringstream lines(errors_);
  for (std::string line; std::getline(lines, line);) {
    std::smatch match;
    ASSERT_TRUE(std::regex_match(line, match, object)) << line;
    ++events[match[1]];
  }
  EXPECT_EQ(events["stage"], 4);
  EXPECT_EQ(events["end"], 1);
  EXPECT_GE(events["progress"], 10);
  EXPECT_GE(events["iteration"], 3);
  EXPECT_THAT(errors_, HasSubstr(R"("stage":"writing","fraction":1})"));
  EXPECT_THAT(errors_, HasSubstr(R"({"event":"end","status":"converged","exit_status":0,)"));

  dir_.write("project.ctl", "camera lspar.txt");
  EXPECT_EQ(run("adjust project.ctl --progress json"), 1);
  EXPECT_THAT(errors_, HasSubstr(R"({"event":"message","text":"lspar.txt:)"));
  EXPECT_THAT(errors_, HasSubstr(R"("end","status":"failed","exit_status":1,)"));
  EXPECT_EQ(run("adjust --progress nonsense project.ctl"), 2);

  project_.write(dir_);
  EXPECT_EQ(run("adjust --progress bar project.ctl"), 0);
  EXPECT_THAT(errors_, HasSubstr("\rreading        [####################"));
  EXPECT_THAT(errors_, HasSubstr("\rwriting        ["));
  EXPECT_THAT(errors_, HasSubstr("\riteration   1 "));
  EXPECT_EQ(run("adjust project.ctl"), 0);
  EXPECT_THAT(errors_, Not(HasSubstr("\r"))) << "no bar where there is no terminal";
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

// The files of an export are all new ones or all as they were, and never those of the project.
TEST_F(Command, ExportsAllFilesOrNone) {
  const auto files = [this] {
    std::map<std::string, std::string> texts;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(dir_.path("made"))) {
      if (entry.is_regular_file()) texts[entry.path()] = test::file_text(entry.path());
    }
    return texts;
  };
  std::filesystem::create_directory(dir_.path("made"));
  for (const std::string to :
       {"csv -o made", "geojson -o made", "ply -o made/x", "gpkg -o made/x"}) {
    const std::string line = "export " + to + " --given project.ctl";
    if (run(line) != 0) {
      EXPECT_THAT(errors_, HasSubstr("built without GDAL")) << to;
      continue;
    }
    EXPECT_EQ(run(line), 0) << "earlier files are replaced";
    const auto earlier = files();
    EXPECT_EQ(run(line, "ulimit -f 1; "), 1) << to;
    EXPECT_EQ(files(), earlier) << to;
  }
  for (const std::string given : {"", "--given "}) {
    EXPECT_EQ(run("export csv project.ctl -o no/../obj.txt " + given), 1);
    EXPECT_THAT(errors_, HasSubstr("would be overwritten: "));
  }
  expect_inputs_unchanged();
}

#ifdef VORN_GEOPACKAGE_MODULE
// A program whose module is not what it should be says so before it computes, and does all else.
TEST_F(Command, LoadsTheModuleForGeoPackageWhenItIsAskedFor) {
  namespace fs = std::filesystem;
  const fs::path command(VORN_COMMAND);
  const std::string own = dir_.path("tree/bin/vorn");
  const fs::path module =
      (fs::path(own).parent_path() / fs::relative(VORN_GEOPACKAGE_MODULE, command.parent_path()))
          .lexically_normal();
  fs::create_directories(fs::path(own).parent_path());
  fs::create_directories(module.parent_path());
  fs::copy_file(command, own);
  const auto expect_refusal = [&](const std::string& reason) {
    EXPECT_EQ(run_line("tree/bin/vorn export gpkg project.ctl -o x.gpkg"), 1);
    EXPECT_THAT(errors_, HasSubstr(reason));
    EXPECT_EQ(output_, "");
    EXPECT_FALSE(dir_.has("x.gpkg"));
  };
  expect_refusal("cannot load the module for GeoPackage: " + module.string() + ": cannot open");
  std::ofstream(module) << "no library";
  expect_refusal("cannot load the module for GeoPackage: " + module.string());
  fs::copy_file(VORN_FOREIGN_MODULE, module, fs::copy_options::overwrite_existing);
  expect_refusal(module.string() + ": is no module of version ");
  EXPECT_EQ(run_line("tree/bin/vorn export csv project.ctl -o made"), 0) << errors_;
  fs::copy_file(VORN_GEOPACKAGE_MODULE, module, fs::copy_options::overwrite_existing);
  EXPECT_EQ(run_line("tree/bin/vorn export gpkg project.ctl -o x.gpkg"), 0) << errors_;
}
#endif

// Files of the normal equations that the options name.
TEST_F(Command, RefusesDumpsThatWouldReplaceOtherFiles) {
  const auto run_with = [&](const std::string& names, const std::string& options = {}) {
    dir_.write("params.txt", "0 0 0 0 0 0 0 0 0 0 0 0 5 5 " + names);
    return run("adjust -q project.ctl " + options);
  };
  dir_.write("letter.txt", "1 5 Dear reader");
  dir_.write("sub/x", "");
  EXPECT_EQ(run_with("n.pbm n.txt sub/r.txt x.txt"), 0) << errors_;
  EXPECT_EQ(run_with("n.pbm n.txt sub/r.txt x.txt"), 0) << "files of an earlier run\n" << errors_;
  const std::pair<const char*, const char*> kRefused[] = {
      {"n.pbm n.pbm none none", "two outputs"},
      {"n.pbm none none ./n.pbm", "two outputs"},
      {"none none new.txt sub/../new.txt", "two outputs"},
      {"project.res none none none", "two outputs"},
      {"none ../vorn-outside.txt none none", "outside"},
      {"none none none /tmp/vorn-outside.txt", "outside"},
      {"none letter.txt none none", "holds something else"},
      {"none none sub none", "no file"},
  };
  for (const auto& [names, says] : kRefused) {
    EXPECT_EQ(run_with(names), 1) << names;
    EXPECT_THAT(errors_, HasSubstr(says)) << names;
  }
  EXPECT_EQ(dir_.read("letter.txt"), "1 5 Dear reader");
  EXPECT_EQ(run_with("none letter.txt none none", "--allow-outside"), 0) << errors_;
  EXPECT_NE(dir_.read("letter.txt"), "1 5 Dear reader");
}

TEST_F(Command, TellsAnHonestEnding) {
  // Convergence in the very last iteration that is allowed is convergence.
  ASSERT_EQ(run("project.ctl"), 0);
  const std::regex line("iteration +[0-9]+ ");
  const auto needed = static_cast<std::int32_t>(
      std::distance(std::sregex_iterator(errors_.begin(), errors_.end(), line), {}));
  ASSERT_GT(needed, 1);
  const std::string settings = dir_.read("lspar.txt");
  const auto allow = [&](std::int32_t iterations) {
    std::string text = settings;
    const std::size_t begin = text.find_first_not_of(" \n", text.find_first_of(" \n"));
    text.replace(begin, text.find_first_of(" \n", begin) - begin, std::to_string(iterations));
    dir_.write("lspar.txt", text);
  };
  allow(needed);
  EXPECT_EQ(run("project.ctl"), 0) << errors_;
  EXPECT_THAT(dir_.read("project.out"), HasSubstr("Maximum number of iterations"));
  allow(needed - 1);
  EXPECT_EQ(run("project.ctl"), 3) << errors_;
  EXPECT_THAT(errors_, HasSubstr("\nNOT CONVERGED after " + std::to_string(needed - 1)));
  EXPECT_THAT(errors_, HasSubstr("still moves)\n"));
  dir_.write("lspar.txt", settings);

  // A point that nothing measures.
  const std::string points = dir_.read("obj.txt");
  dir_.write("obj.txt", std::regex_replace(points, std::regex("stop-dep"),
                                           "lonely 1 2 3 1e31 1e31 1e31\nstop-dep"));
  EXPECT_EQ(run("project.ctl"), 0) << errors_;
  EXPECT_THAT(errors_, HasSubstr("removed     1 points with fewer than two rays: lonely\n"));
}

// Text of data files does not command the terminal.
TEST_F(Command, PrintsNoControlCharacters) {
  dir_.write("camera.txt", "camera-\x1b[31m\x7f\x07 c");
  EXPECT_EQ(run("project.ctl"), 1);
  EXPECT_THAT(output_, HasSubstr("camera-\\x1b[31m\\x7f\\x07"));
}

// Whatever ends a run, results of an earlier one are all there, or all new ones; nothing else is
// left but the report of the failure.
class EarlierResults : public Command {
 protected:
  EarlierResults() {
    project_.files["params.txt"] = "0 0 0 0 0 0 0 0 0 0 0 0 3 3 n.pbm n.txt r.txt x.txt\n";
    project_.write(dir_);
    // What this build can write.
    for (const char* const option : {" --json --tables csv", " --html page.html"}) {
      if (run("adjust missing.ctl" + std::string(option)) != 2) all_ += option;
    }
    EXPECT_EQ(run(all_), 0) << errors_;
    earlier_ = files();
    // The next results differ from these.
    std::string& settings = project_.files["lspar.txt"];
    settings.replace(0, settings.find_first_of(" \n"), "3e-6");
    project_.write(dir_);
  }
  // All files but those of the streams, without times.
  std::map<std::string, std::string> files() const {
    std::map<std::string, std::string> texts;
    for (const auto& entry : std::filesystem::directory_iterator(dir_.path())) {
      const std::string name = entry.path().filename().string();
      const bool output = name.starts_with("project.") && name != "project.ctl";
      if (output || name.size() == 5 || name == "page.html" || name.starts_with(".")) {
        texts[name] = test::without_times(dir_.read(name));
      }
    }
    return texts;
  }
  // Runs the project until it has told of some iterations, then signals it. What it says after
  // that.
  std::string interrupted(int signal, int iterations) {
    int ends[2] = {};
    EXPECT_EQ(pipe(ends), 0);
    const pid_t process = fork();
    if (process == 0) {
      dup2(ends[1], STDERR_FILENO);
      close(ends[0]);
      std::signal(signal, SIG_DFL);
      const std::string line = "cd '" + dir_.path() + "' && exec '" VORN_COMMAND "' " +
                               std::regex_replace(all_, std::regex(" -q"), "") + " >/dev/null";
      execl("/bin/sh", "sh", "-c", line.c_str(), nullptr);
      _exit(127);
    }
    close(ends[1]);
    std::string text;
    const auto read_some = [&] {
      char part[512];
      const ssize_t count = read(ends[0], part, sizeof part);
      if (count > 0) text.append(part, static_cast<std::size_t>(count));
      return count > 0;
    };
    const std::string last = "iteration   " + std::to_string(iterations);
    while (text.find(last) == std::string::npos && read_some()) {
    }
    kill(process, signal);
    text.clear();
    while (read_some()) {
    }
    close(ends[0]);
    int status = 0;
    waitpid(process, &status, 0);
    if (signal == SIGINT) {
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 4) << status;
    } else {
      EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << status;
    }
    return text;
  }
  // Names of the files that are not those of the earlier results.
  std::string changed(std::map<std::string, std::string> now) const {
    std::string names;
    for (const auto& [name, text] : earlier_) {
      if (now[name] != text) names += name + ' ';
      now.erase(name);
    }
    for (const auto& [name, text] : now) names += name + ' ';
    return names;
  }
  // Whether a run without options writes the file.
  static bool is_result(const std::string& name) {
    static const std::regex kResult("project[.](out|ext|ocs|res|apset|gcpres|chp)|[nrx][.].*");
    return std::regex_match(name, kResult);
  }
  void expect_earlier(bool report_kept = true) {
    std::map<std::string, std::string> now = files();
    EXPECT_EQ(now.erase("project.failed.out"), report_kept ? 1U : 0U);
    now.erase("project.failed.quality.json");
    EXPECT_EQ(changed(now), "");
    std::filesystem::remove(dir_.path("project.failed.out"));
  }

  // All results that there are.
  std::string all_ = "adjust -q project.ctl --cameras --quality --suggest s.txt";

  std::map<std::string, std::string> earlier_;
};

TEST_F(EarlierResults, SurviveFailures) {
  const std::pair<const char*, std::string> kDamages[] = {
      {"eo.txt", "nonsense"},
      {"crds.txt", "1 nonsense"},
      {"lspar.txt", "1e-6 10 0 0 1 1"},
      {"obj.txt", "indiv-sdev stop-dep"},
      {"project.ctl", "camera camera.txt Image image.txt"},
  };
  for (const auto& [name, text] : kDamages) {
    const std::string original = dir_.read(name);
    dir_.write(name, text);
    EXPECT_EQ(run(all_), 1) << name;
    EXPECT_THAT(errors_, HasSubstr("project.failed.out"));
    expect_earlier();
    dir_.write(name, original);
  }
  // Outputs that cannot be replaced.
  for (const char* const name :
       {"project.ext", "project.chp", "project.cam", "r.txt", "project.prec", "s.txt"}) {
    std::filesystem::remove(dir_.path(name));
    std::filesystem::create_symlink("elsewhere", dir_.path(name));
    EXPECT_EQ(run(all_), 1) << name;
    EXPECT_THAT(errors_, HasSubstr("is a link"));
    EXPECT_FALSE(dir_.has("elsewhere"));
    std::filesystem::remove(dir_.path(name));
    dir_.write(name, earlier_.at(name));
    expect_earlier(false);
  }
  // Files that may not grow: the first of them that is too long.
  for (const int blocks : {1, 2, 4, 8}) {
    EXPECT_EQ(run(all_, "ulimit -f " + std::to_string(blocks) + "; "), 1);
    EXPECT_THAT(errors_, HasSubstr("File too large"));
    expect_earlier();
  }
  EXPECT_EQ(run(all_), 0) << errors_;
  EXPECT_NE(changed(files()), "");
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) && __SIZEOF_POINTER__ == 8
// Where there is no room for the stacks of all threads, those work that can be started, and the run
// ends by itself.
TEST_F(EarlierResults, FewerThreadsWhereMemoryIsShort) {
  EXPECT_EQ(run("adjust project.ctl --threads 400", "ulimit -v 2000000; "), 0) << errors_;
}
#endif

// The document of a failed run takes the place of one that speaks of no results, of no other.
TEST_F(EarlierResults, DocumentsOfFailures) {
  if (!dir_.has("project.quality.json")) GTEST_SKIP() << "built without RapidJSON";
  const std::string original = dir_.read("eo.txt");
  const auto tells_failure = [this](const char* name) {
    return dir_.read(name).find("\"status\": \"failed\"") != std::string::npos;
  };
  dir_.write("eo.txt", "nonsense");
  EXPECT_EQ(run(all_), 1);
  EXPECT_FALSE(tells_failure("project.quality.json"));
  EXPECT_TRUE(tells_failure("project.failed.quality.json"));
  std::filesystem::remove(dir_.path("project.quality.json"));
  std::filesystem::remove(dir_.path("project.failed.quality.json"));
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(run(all_), 1);
    EXPECT_TRUE(tells_failure("project.quality.json"));
    EXPECT_FALSE(dir_.has("project.failed.quality.json"));
  }
  dir_.write("project.failed.quality.json", "of a project that is no more");
  dir_.write("eo.txt", original);
  EXPECT_EQ(run(all_), 0) << errors_;
  EXPECT_FALSE(tells_failure("project.quality.json"));
  EXPECT_FALSE(dir_.has("project.failed.quality.json"));
}

// Files that options of the command name, or that follow from them.
TEST_F(EarlierResults, AreNotReplacedByOtherOutputs) {
  dir_.write("none.txt", "stop-dep");
  dir_.write("datum.txt", "p1 p2 p3 p4 stop-dep");
  const std::pair<const char*, const char*> kRefused[] = {
      {"--suggest crds.txt", "a data file has the name"},
      {"--suggest project.ctl", "the name of one of its own outputs"},
      {"--suggest sub/../project.res", "two outputs"},
      {"--suggest project.prec", "two outputs"},
      {"--suggest r.txt", "two outputs"},
      {"--suggest none.txt --exclude none.txt", "a data file has the name"},
      {"--suggest datum.txt --datum inner --datum-points datum.txt", "a data file has the name"},
      {"--suggest link.txt", "is a link"},
      {"--suggest sub", "is no file"},
  };
  std::filesystem::create_directory(dir_.path("sub"));
  std::filesystem::create_symlink("elsewhere", dir_.path("link.txt"));
  for (const auto& [options, says] : kRefused) {
    EXPECT_EQ(run("-q project.ctl --quality " + std::string(options)), 1) << options;
    EXPECT_THAT(errors_, HasSubstr(says)) << options;
    expect_earlier(false);
  }
  EXPECT_EQ(run("-q project.ctl --quality --suggest sub/list.txt"), 0) << errors_;
  EXPECT_TRUE(dir_.has("sub/list.txt"));
}

// Whenever a signal comes: in the run, while results take their names, or behind all that.
TEST_F(EarlierResults, SurviveSignals) {
  ASSERT_EQ(run(all_), 0);
  const std::map<std::string, std::string> later = files();
  ASSERT_NE(later, earlier_);
  for (const char* const signal : {"TERM", "INT", "HUP"}) {
    for (int moment = 0; moment < 12; ++moment) {
      for (const auto& [name, text] : earlier_) dir_.write(name, text);
      // A shell without job control has its background processes ignore interrupts; timeout does
      // not.
      const std::string delay = std::to_string(0.001 * std::pow(1.5, moment));
      const int status = run(all_, "timeout -s " + std::string(signal) + " " + delay + " ");
      std::map<std::string, std::string> now = files();
      now.erase("project.failed.out");
      // An interrupt of the iterations leaves the results that there are, all of them.
      const bool finished = now["project.out"].find("ended from outside") != std::string::npos &&
                            now.size() == later.size();
      EXPECT_TRUE(now == earlier_ || now == later || finished)
          << signal << ' ' << delay << ' ' << status;
      EXPECT_TRUE(status != 0 || now == later) << "success means new results";
    }
  }
}

// The iterations do not end, and nobody reads what they tell: the signal comes in their midst.
TEST_F(EarlierResults, SurviveSignalsDuringIterations) {
  std::string& settings = project_.files["lspar.txt"];
  settings.replace(settings.find(" 20 "), 4, " 1000000 ");
  for (const char* const limit : {" 1e-7 1e-7 ", " 1e-9 1e-9 "}) {
    settings.replace(settings.find(limit), std::string(limit).size(), " 1e-300 1e-300 ");
  }
  // Their lines would fill more than a pipe.
  for (auto& [name, text] : project_.files) {
    text = std::regex_replace(text, std::regex("\\bp(?=[0-9]\\b)"), std::string(500, 'p'));
  }
  project_.write(dir_);
  for (const int iterations : {1, 3, 8}) {
    for (const int signal : {SIGTERM, SIGHUP}) {
      EXPECT_THAT(interrupted(signal, iterations), HasSubstr("earlier results are as they were"));
      EXPECT_THAT(dir_.read("project.failed.out"),
                  testing::EndsWith("*** ERROR: The run was interrupted by a signal.\n"));
      expect_earlier();
    }
  }
  // The first interrupt lets the running iteration be the last one.
  EXPECT_THAT(interrupted(SIGINT, 3), HasSubstr(", which the results are of\n"));
  EXPECT_THAT(dir_.read("project.out"), HasSubstr("iterations were ended from outside"));
  EXPECT_FALSE(dir_.has("project.failed.out"));
  EXPECT_EQ(files().size(), earlier_.size());
}

// A reader that goes away ends the listing, not the results; a full disk is a failure; closed
// streams let no message land in a result.
TEST_F(EarlierResults, ConsoleThatCannotBeWritten) {
  ASSERT_EQ(run(all_), 0);
  const std::map<std::string, std::string> later = files();
  const std::tuple<const char*, const char*, int> kCases[] = {
      {"adjust", " >/dev/full", 0},
      {"adjust --verbose", " >/dev/full", 1},
      {"list", " >/dev/full 2>&1", 1},
      {"grid", " >/dev/full", 1},
      {"adjust", " 2>/dev/full", 0},
      {"adjust", " >&- 2>&-", 0},
      {"adjust --verbose", " <&- >&- 2>&-", 1},
      {"list", " | head -1 >/dev/null", 0},
      {"list", " | true", 0},
  };
  const auto status_of = [this](const std::string& command, const std::string& streams) {
    const std::string line = "cd '" + dir_.path() + "'; set -o pipefail; '" VORN_COMMAND "' " +
                             command + " project.ctl" + streams;
    return WEXITSTATUS(std::system(("bash -c \"" + line + '"').c_str()));
  };
  EXPECT_EQ(status_of("check", " >/dev/full"), 1);
  EXPECT_EQ(status_of("check", " | true"), 0);
  EXPECT_EQ(status_of("check --json", " >/dev/full"), 1);
  for (const auto& [command, streams, expected] : kCases) {
    for (const auto& [name, text] : earlier_) dir_.write(name, text);
    EXPECT_EQ(status_of(command, streams), expected) << command << streams;
    std::map<std::string, std::string> now = files();
    for (const auto& [name, text] : earlier_) {
      if (!is_result(name)) now[name] = later.at(name);  // not asked for
    }
    EXPECT_TRUE(now == later) << command << streams;
  }
}

}  // namespace
}  // namespace vorn

#endif
