// The options of `vorn adjust` that say how the minimum is found and what it is worth.

#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <regex>
#include <sstream>

#include "support/project_test.h"

#ifdef VORN_COMMAND

#include <sys/wait.h>

namespace vorn {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class QualityCommand : public test::ProjectTest {
 protected:
  QualityCommand()
      : ProjectTest({.ap_sets = {"inner-or", "radial-dist"}, .images = 6, .points = 30}) {}

  int adjust(const std::string& options) {
    const std::string line = "cd '" + dir_.path() +
                             "' && '" VORN_COMMAND "' adjust -q project.ctl " + options +
                             " >stdout.txt 2>stderr.txt </dev/null";
    const int status = std::system(line.c_str());
    errors_ = dir_.read("stderr.txt");
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  // Takes the standard deviations of all control away but those of the first points.
  void keep_control(int points) {
    std::string text = project_.files.at("obj.txt");
    const std::regex observed("(p[0-9]+ [^\n]*\n) 2e-05 2e-05 2e-05\n");
    std::string freed;
    std::sregex_iterator match(text.begin(), text.end(), observed);
    std::size_t end = 0;
    for (int k = 0; match != std::sregex_iterator(); ++match, ++k) {
      freed += text.substr(end, static_cast<std::size_t>(match->position()) - end);
      freed += match->str(1) + (k < points ? " 2e-05 2e-05 2e-05\n" : " 1e31 1e31 1e31\n");
      end = static_cast<std::size_t>(match->position() + match->length());
    }
    dir_.write("obj.txt", freed + text.substr(end));
    dir_.write("cs.txt", "stop-dep\n");
  }
  // The text between the quotes, or the number, behind the first `"key":`.
  static std::string value_of(const std::string& document, const std::string& key) {
    std::smatch match;
    const std::regex pattern('"' + key + "\": ?\"?([^\",}\n]*)");
    return std::regex_search(document, match, pattern) ? match[1].str() : "none";
  }

  // How many objects of the list behind "key" have a value.
  static std::ptrdiff_t values_in_list(const std::string& document, const std::string& key) {
    const std::size_t begin = document.find('"' + key + '"');
    if (begin == std::string::npos) return -1;
    const std::size_t next = document.find("\"smallest_", begin + 1);
    const std::size_t end = std::min(
        {next, document.find("\"failed_at\"", begin), document.find("\"findings\"", begin)});
    const std::string list = document.substr(begin, end - begin);
    const std::regex value("\"value\":");
    return std::distance(std::sregex_iterator(list.begin(), list.end(), value), {});
  }

  std::string errors_;
};

TEST_F(QualityCommand, RefusesWrongOptions) {
  const std::pair<const char*, const char*> kWrong[] = {
      {"--robust tukey", "--robust"},
      {"--robust-scale 3", "--robust"},
      {"--robust huber --robust-scale 0", "--robust-scale"},
      {"--robust huber --robust-scale many", "--robust-scale"},
      {"--keep-robust", "--robust"},
      {"--prior", "--quality"},
      {"--datum inner", "--quality"},
      {"--quality --datum outer", "--datum"},
      {"--quality --datum-points x", "--datum"},
      {"--suggest x", "--quality"},
      {"--tables csv", "--json"},
      {"--quality --datum given --datum-points x", "--datum-points"},
      {"--json --tables xml", "--tables"},
      {"--exclude", "--exclude"},
  };
  for (const auto& [options, names] : kWrong) {
    EXPECT_EQ(adjust(options), 2) << options;
    EXPECT_THAT(errors_, HasSubstr(names)) << options;
  }
  EXPECT_FALSE(dir_.has("project.out"));
  EXPECT_EQ(adjust("--exclude missing.txt"), 1);
  EXPECT_THAT(errors_, HasSubstr("missing.txt: it cannot be read"));
  dir_.write("list.txt", "image-point i1\n");
  EXPECT_EQ(adjust("--exclude list.txt"), 1);
  EXPECT_THAT(errors_, AllOf(HasSubstr("list.txt"), HasSubstr("line 1")));
  EXPECT_EQ(adjust("--quality --datum inner --datum-points missing.txt"), 1);
  EXPECT_THAT(errors_, HasSubstr("missing.txt"));
}

// The documented files do not depend on what is written beside them.
TEST_F(QualityCommand, LeavesDocumentedFilesAlone) {
  ASSERT_EQ(adjust(""), 0) << errors_;
  const auto results = [&] {
    std::string all;
    for (const char* e : {"out", "ext", "ocs", "res", "apset", "gcpres", "chp"}) {
      all += test::without_times(dir_.read(std::string("project.") + e));
    }
    return all;
  };
  const std::string documented = results();
  EXPECT_FALSE(dir_.has("project.prec"));
  for (const char* options : {"--quality", "--json", "--quality --json --prior --suggest s.txt"}) {
    EXPECT_EQ(adjust(options), 0) << errors_;
    EXPECT_EQ(results(), documented) << options;
  }
  EXPECT_EQ(adjust("--rigorous"), 0) << errors_;
  EXPECT_NE(results(), documented) << "sets are free";
}

TEST_F(QualityCommand, WritesWhatWasAskedFor) {
  const struct {
    const char* options;
    const char* derivatives;
    const char* sds;
    const char* datum;
    const char* head;
  } kCases[] = {
      {"", "approximate", "posterior", "given", "Distance to the least-squares minimum"},
      {"--rigorous --prior", "rigorous", "prior", "given", "Standard deviations a priori"},
      {"--damped", "approximate", "posterior", "given", "Standard deviations a posteriori"},
      {"--solve --datum inner", "rigorous", "posterior", "inner", "Datum: inner"},
      {"--robust CAUCHY --keep-robust", "approximate", "posterior", "given", "Precision\n"},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(adjust(std::string("--quality --json ") + c.options), 0) << c.options << errors_;
    const std::string document = dir_.read("project.quality.json");
    EXPECT_EQ(value_of(document, "status"), "converged") << c.options;
    EXPECT_EQ(value_of(document, "derivatives"), c.derivatives) << c.options;
    EXPECT_EQ(value_of(document, "figure_derivatives"), "rigorous") << c.options;
    EXPECT_EQ(value_of(document, "standard_deviations"), c.sds) << c.options;
    EXPECT_EQ(value_of(document, "datum"), c.datum) << c.options;
    for (const char* list : {"smallest_tolerances", "smallest_pivots", "smallest_eigenvalues"}) {
      EXPECT_EQ(values_in_list(document, list), 10) << list;
    }
    EXPECT_THAT(dir_.read("project.prec"), HasSubstr(c.head)) << c.options;
    EXPECT_THAT(dir_.read("project.rel"), HasSubstr("Reliability\n")) << c.options;
  }
  EXPECT_EQ(adjust("--json"), 0);
  const std::string results = dir_.read("project.results.json");
  EXPECT_EQ(value_of(results, "status"), "converged");
  EXPECT_THAT(results, Not(HasSubstr("\"sd_x\"")));
}

TEST_F(QualityCommand, PutsTablesWhereItIsTold) {
  ASSERT_EQ(adjust("--quality --json --tables csv"), 0) << errors_;
  const std::string rows = dir_.read("project.image_points.csv");
  EXPECT_TRUE(rows.starts_with("image,point,vx,vy,sx,sy,rx,ry,rxy,wx,wy,"));
  EXPECT_EQ(std::count(rows.begin(), rows.end(), '\n'), 1 + 6 * 30);
  const std::string in_files = dir_.read("project.quality.json");
  EXPECT_THAT(in_files, HasSubstr("project.image_points.csv"));
  ASSERT_EQ(adjust("--quality --json --tables json"), 0) << errors_;
  const std::string document = dir_.read("project.quality.json");
  EXPECT_THAT(document, Not(HasSubstr(".csv")));
  EXPECT_GT(document.size(), in_files.size());
  ASSERT_EQ(adjust("--quality --json"), 0) << errors_;
  EXPECT_EQ(dir_.read("project.quality.json"), document) << "small tables stand in the document";
}

// A gross error is suggested, left out, and gone.
TEST_F(QualityCommand, SuggestsAndExcludes) {
  std::string text = project_.files.at("crds.txt");
  const std::regex line("(i3 1\n(?: p[0-9]+ [^\n]*\n){9} p10 )([^ ]+)");
  std::smatch match;
  ASSERT_TRUE(std::regex_search(text, match, line));
  const double x = std::stod(match[2]) + 2e-4;
  dir_.write("crds.txt",
             match.prefix().str() + match[1].str() + std::to_string(x) + match.suffix().str());
  ASSERT_EQ(adjust("--rigorous --quality --suggest list.txt --json"), 0) << errors_;
  EXPECT_THAT(dir_.read("list.txt"), HasSubstr("image-point i3 p10"));
  EXPECT_THAT(dir_.read("project.quality.json"), HasSubstr("suspect_image_point"));
  const double spoilt = std::stod(value_of(dir_.read("project.quality.json"), "sigma0_posterior"));
  ASSERT_EQ(adjust("--rigorous --quality --exclude list.txt --json"), 0) << errors_;
  EXPECT_THAT(dir_.read("project.out"), HasSubstr("Number of excluded observations  :  1\n"));
  EXPECT_LT(std::stod(value_of(dir_.read("project.quality.json"), "sigma0_posterior")),
            0.5 * spoilt);
}

// A list with a wrong identifier changes the figures or the observations; that is told.
TEST_F(QualityCommand, TellsWhatAListDoesNotFind) {
  dir_.write("datum.txt", "p1 p2 p3 p4 p99 stop-dep");
  EXPECT_EQ(adjust("--quality --datum inner --datum-points datum.txt"), 0) << errors_;
  EXPECT_THAT(errors_, HasSubstr("datum.txt: no point p99 was adjusted"));
  dir_.write("datum.txt", "stop-dep p1 p2 p3");
  EXPECT_EQ(adjust("--quality --datum inner --datum-points datum.txt"), 1);
  EXPECT_EQ(errors_, "vorn: datum.txt: it names no point\n");
  dir_.write("datum.txt", "p1 p2");
  EXPECT_EQ(adjust("--quality --json --datum inner --datum-points datum.txt"), 3) << errors_;
  EXPECT_THAT(errors_, HasSubstr("do not fix the similarity motions"));
  dir_.write("list.txt", "image-point i1 p1\nimage-point i1 nowhere\nparameter ap_set s9 dc\n");
  EXPECT_EQ(adjust("--exclude list.txt"), 0) << errors_;
  EXPECT_THAT(errors_, HasSubstr("list.txt: the project does not have 2 of its 3 observations"));
  EXPECT_THAT(dir_.read("project.out"), HasSubstr("Number of excluded observations  :  1\n"));
}

// A network without a datum has a document with status, message and diagnosis, whether the run
// fails or damped steps end at one of many minima.
TEST_F(QualityCommand, TellsWhyThereAreNoFigures) {
  ASSERT_EQ(adjust("--quality"), 0) << errors_;
  const std::string earlier = dir_.read("project.prec");
  keep_control(2);
  const auto expect_failed_document = [&](const std::string& file) {
    const std::string document = dir_.read(file);
    EXPECT_EQ(value_of(document, "status"), "failed");
    EXPECT_THAT(value_of(document, "message"), HasSubstr("Control in two points"));
    EXPECT_EQ(value_of(document, "code"), "two_control_points");
    EXPECT_THAT(document, Not(HasSubstr("\"sd_x\"")));
  };
  EXPECT_EQ(adjust("--rigorous --quality --json"), 1);
  EXPECT_THAT(errors_, HasSubstr("error: Control in two points"));
  expect_failed_document("project.quality.json");
  EXPECT_EQ(dir_.read("project.prec"), earlier) << "earlier results are as they were";

  EXPECT_EQ(adjust("--solve --quality --progress json"), 3);
  EXPECT_THAT(errors_, HasSubstr(R"("end","status":"not_converged","exit_status":3,)"));
  EXPECT_EQ(adjust("--solve --quality --json"), 3) << "there are results, but not all";
  EXPECT_THAT(errors_, AllOf(HasSubstr("the minimum is one of many"),
                             HasSubstr("help: Add a third control point")));
  expect_failed_document("project.quality.json");
  EXPECT_TRUE(dir_.read("project.prec").starts_with("There are no figures of quality."));
  EXPECT_THAT(dir_.read("project.rel"), HasSubstr("Control in two points"));

  EXPECT_EQ(adjust("--solve --json"), 0) << "a minimum was asked for, and found\n" << errors_;
  EXPECT_THAT(errors_, HasSubstr("the minimum is one of many"));
  const std::string results = dir_.read("project.results.json");
  EXPECT_EQ(value_of(results, "status"), "converged");
  EXPECT_EQ(value_of(results, "code"), "two_control_points");

  dir_.write("eo.txt", "nonsense");
  std::filesystem::remove(dir_.path("project.quality.json"));
  EXPECT_EQ(adjust("--quality --json"), 1);
  const std::string document = dir_.read("project.quality.json");
  EXPECT_EQ(value_of(document, "status"), "failed");
  EXPECT_THAT(document, HasSubstr("before it had normal equations"));
}

// Fenced blocks "```text NAME.prec" of the page hold lines of the example NAME.
TEST(QualityFiles, HaveTheLinesOfThePage) {
  const std::string page = test::file_text(VORN_SOURCE_DIR "/docs/reading-the-report.md");
  const std::string opening = "\n```text ";
  int blocks = 0;
  for (std::size_t at = 0; (at = page.find(opening, at)) != std::string::npos; ++blocks) {
    at += opening.size();
    const std::size_t begin = page.find('\n', at) + 1;
    const std::string file = page.substr(at, begin - 1 - at);
    at = page.find("\n```\n", begin);
    const std::string name = file.substr(0, file.rfind('.'));
    const test::TempDir dir;
    std::filesystem::copy(std::filesystem::path(VORN_SOURCE_DIR "/examples") / name, dir.path(),
                          std::filesystem::copy_options::recursive);
    const std::string line = "cd '" + dir.path() + "' && '" VORN_COMMAND "' adjust -q " + name +
                             ".ctl --quality >out.txt 2>err.txt </dev/null";
    ASSERT_EQ(std::system(line.c_str()), 0) << dir.read("err.txt");
    const std::string actual = '\n' + dir.read(file);
    std::istringstream lines(page.substr(begin, at - begin));
    for (std::string shown; std::getline(lines, shown);) {
      EXPECT_NE(actual.find('\n' + shown + '\n'), std::string::npos) << file << ": " << shown;
    }
  }
  EXPECT_EQ(blocks, 2);
}

}  // namespace
}  // namespace vorn

#endif
