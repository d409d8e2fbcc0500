// What a run would destroy, and paths.

#include "driver/output_guard.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "support/temp_dir.h"

namespace vorn {
namespace {

namespace fs = std::filesystem;
using Kind = ObstacleKind;
using testing::ElementsAre;
using testing::IsEmpty;

// A control file, "p.ctl", with data files that stand where the control file says.
class OutputGuard : public testing::Test {
 protected:
  OutputGuard() {
    write_control("camera cam.txt image img.txt params par.txt obj-crds obj.txt");
    for (const char* name : {"cam.txt", "img.txt", "obj.txt"}) dir_.write(name, "stop-dep\n");
    name_dumps("none", "none");
  }
  void write_control(const std::string& text) { dir_.write("p.ctl", text); }
  void name_dumps(const std::string& structure, const std::string& matrix) {
    dir_.write("par.txt",
               "0  0 0 0 0  0 0 0 0 0  0 0  5 5 " + structure + " " + matrix + " none none");
  }
  // The kinds of obstacles and the names of the files, "kind name".
  std::vector<std::string> found(const std::function<void(GuardRequest&)>& change = {}) const {
    GuardRequest request{dir_.path("p.ctl")};
    if (change) change(request);
    std::vector<std::string> all;
    for (const Obstacle& obstacle : find_obstacles(request)) {
      all.push_back(std::to_string(static_cast<int>(obstacle.kind)) + ' ' +
                    fs::path(obstacle.file).filename().string());
      EXPECT_FALSE(text_of(obstacle.kind).empty());
    }
    return all;
  }
  static std::string is(Kind kind, const std::string& file) {
    return std::to_string(static_cast<int>(kind)) + ' ' + file;
  }

  test::TempDir dir_;
};

TEST_F(OutputGuard, LetsGoodProjectsRun) {
  EXPECT_THAT(found(), IsEmpty());
  for (const char* earlier : {"p.out", "p.ext", "p.failed.out"}) dir_.write(earlier, "results");
  EXPECT_THAT(found(), IsEmpty()) << "results of an earlier run are replaced";
  write_control("");
  EXPECT_THAT(found(), IsEmpty()) << "an empty project harms nothing";
  write_control("stop-dep");
  EXPECT_THAT(found(), IsEmpty());
}

TEST_F(OutputGuard, KnowsAControlFile) {
  fs::remove(dir_.path("p.ctl"));
  EXPECT_THAT(found(), ElementsAre(is(Kind::control_file_missing, "p.ctl")));
  fs::create_directory(dir_.path("p.ctl"));
  EXPECT_THAT(found(), ElementsAre(is(Kind::control_file_is_directory, "p.ctl")));
  fs::remove(dir_.path("p.ctl"));
  for (const char* text : {"camera-frame K1 - 100 0 0 200 200\nstop-dep\n",  // a camera file
                           "i1 1\n p1 1 2 1 1\n-1\n",
                           "\x7f"
                           "ELF nonsense",
                           "cam.txt camera"}) {
    write_control(text);
    EXPECT_THAT(found(), ElementsAre(is(Kind::not_a_control_file, "p.ctl"))) << text;
  }
}

TEST_F(OutputGuard, KeepsDataFiles) {
  write_control("camera p.ext image img.txt");
  dir_.write("p.ext", "stop-dep");
  EXPECT_THAT(found(), ElementsAre(is(Kind::data_file_is_output, "p.ext")));
  write_control("camera p.cam");
  dir_.write("p.cam", "stop-dep");
  EXPECT_THAT(found(), IsEmpty()) << "no camera results are asked for";
  EXPECT_THAT(found([](GuardRequest& r) { r.with_cameras = true; }),
              ElementsAre(is(Kind::data_file_is_output, "p.cam")));
  // By its identity, not by its name.
  write_control("camera other.txt");
  dir_.write("p.res", "stop-dep");
  fs::create_hard_link(dir_.path("p.res"), dir_.path("other.txt"));
  EXPECT_THAT(found(), ElementsAre(is(Kind::data_file_is_output, "other.txt")));
  // Lists that the command reads are inputs, too.
  write_control("camera cam.txt");
  EXPECT_THAT(found([&](GuardRequest& r) { r.more_inputs = {dir_.path("p.res")}; }),
              ElementsAre(is(Kind::data_file_is_output, "p.res")));
}

TEST_F(OutputGuard, OutputsAreFilesOfTheirOwn) {
  fs::create_directory(dir_.path("p.ocs"));
  EXPECT_THAT(found(), ElementsAre(is(Kind::output_is_no_file, "p.ocs")));
  fs::remove(dir_.path("p.ocs"));
  const auto more = [&](std::vector<std::string> names) {
    for (std::string& name : names) name = dir_.path(name);
    return found([&](GuardRequest& r) { r.more_outputs = names; });
  };
  EXPECT_THAT(more({"page.html", "list.txt"}), IsEmpty());
  EXPECT_THAT(more({"p.res"}), ElementsAre(is(Kind::outputs_clash, "p.res")));
  EXPECT_THAT(more({"x", "./x"}), ElementsAre(is(Kind::outputs_clash, "x")));
  EXPECT_THAT(more({"p.ctl"}), ElementsAre(is(Kind::control_file_is_output, "p.ctl")));
  EXPECT_THAT(more({"img.txt"}), ElementsAre(is(Kind::data_file_is_output, "img.txt")));
  // Of a program that runs nothing: a result or a dump that would be a problem of a run is none.
  name_dumps("../n.txt", "none");
  fs::create_directory(dir_.path("p.ocs"));
  const auto replaced = [&](const std::string& name) {
    const auto obstacles = find_replaced_files({dir_.path("p.ctl"), false, false, {}, {name}});
    return obstacles.empty() ? "" : is(obstacles.front().kind, "");
  };
  EXPECT_EQ(replaced(dir_.path("page.html")), "");
  EXPECT_EQ(replaced(dir_.path("p.chp")), is(Kind::outputs_clash, ""));
  EXPECT_EQ(replaced(dir_.path("../n.txt")), is(Kind::outputs_clash, ""));
  EXPECT_EQ(replaced(dir_.path("./img.txt")), is(Kind::data_file_is_output, ""));
  fs::remove(dir_.path("p.ocs"));
  name_dumps("none", "none");
#ifndef _WIN32
  dir_.write("elsewhere", "mine");
  fs::create_symlink(dir_.path("elsewhere"), dir_.path("p.chp"));
  EXPECT_THAT(found(), ElementsAre(is(Kind::output_is_link, "p.chp")));
#endif
}

TEST_F(OutputGuard, DumpsStayInTheProject) {
  const auto allowing = [](GuardRequest& request) { request.allow_outside = true; };
  name_dumps("structure.pbm", "sub/../n.txt");
  EXPECT_THAT(found(), IsEmpty());
  name_dumps("../n.txt", "none");
  EXPECT_THAT(found(), ElementsAre(is(Kind::dump_outside, "n.txt")));
  EXPECT_THAT(found(allowing), IsEmpty());
  name_dumps("n.txt", "./n.txt");
  EXPECT_THAT(found(), ElementsAre(is(Kind::outputs_clash, "n.txt")));
  name_dumps("p.out", "none");
  EXPECT_THAT(found(allowing), ElementsAre(is(Kind::outputs_clash, "p.out")));
  name_dumps("cam.txt", "none");
  EXPECT_EQ(found(allowing).front(), is(Kind::data_file_is_output, "cam.txt"));
  // What an earlier run has written may be replaced, a letter may not.
  name_dumps("n.txt", "none");
  struct Row {
    const char* text;
    bool ours;
  };
  for (const auto& [text, ours] :
       {Row{"", true}, Row{"P1\n2 2\n1 0 0 1\n", true},
        Row{"2 2\n 1.000000000000e+00 -2.500000000000e-01\n", true}, Row{"2\n nan -inf\n", true},
        Row{"0\n", true}, Row{"Dear Sir,\n", false}, Row{"3 4 5\n", false},
        Row{"2 2\n1.0 2.0\n", false}}) {
    dir_.write("n.txt", text);
    EXPECT_EQ(found().empty(), ours) << text;
    EXPECT_THAT(found(allowing), IsEmpty());
  }
  // Of several options the last ones count.
  name_dumps("../n.txt", "none");
  dir_.write("par2.txt", "0  0 0 0 0  0 0 0 0 0  0 0  5 5 none none none none");
  write_control("params par.txt params par2.txt camera cam.txt");
  EXPECT_THAT(found(), IsEmpty());
}

TEST(Paths, AreSplitAtTheirLastSeparatorAndDot) {
  struct Row {
    const char* path;
    const char* directory;
    const char* base;
    const char* extension;
  };
  for (const auto& [path, directory, base, extension] :
       {Row{"p.ctl", "", "p", "ctl"}, Row{"a/b.c/p", "a/b.c/", "p", ""},
        Row{"/x/p.1.ctl", "/x/", "p.1", "ctl"}, Row{"p.", "", "p", ""}, Row{"", "", "", ""},
        Row{"a/", "a/", "", ""}, Row{"../p.ctl", "../", "p", "ctl"}}) {
    const PathParts parts = split_path(path);
    EXPECT_EQ(parts.directory, directory) << path;
    EXPECT_EQ(parts.base, base) << path;
    EXPECT_EQ(parts.extension, extension) << path;
  }
  const OutputNames names = output_names(split_path("/x/p.1.ctl"));
  EXPECT_EQ(names.gcpres, "/x/p.1.gcpres");
  EXPECT_EQ(names.failed, "/x/p.1.failed.out");
  EXPECT_EQ(names.opened(true).size(), names.opened(false).size() + 1);
}

}  // namespace
}  // namespace vorn
