// The session library, called as from C.

#include "vorn/session.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <functional>
#include <iterator>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "support/project_test.h"

namespace vorn {
namespace {

using Numbers = std::vector<double>;

class SessionTest : public test::ProjectTest {
 protected:
  SessionTest() {
    EXPECT_EQ(vorn_session_open(control_file_.c_str(), &session_), VORN_OK);
    set("files", 0);
  }
  ~SessionTest() override { EXPECT_EQ(vorn_session_close(session_), VORN_OK); }

  void set(const char* name, double value) {
    EXPECT_EQ(vorn_session_set_number(session_, name, value), VORN_OK) << name;
  }
  Numbers numbers(const char* table, const char* column) {
    std::int64_t rows = 0;
    EXPECT_EQ(vorn_session_count_rows(session_, table, &rows), VORN_OK) << table;
    Numbers values(static_cast<std::size_t>(rows));
    EXPECT_EQ(vorn_session_numbers(session_, table, column, values.data(), rows, nullptr), VORN_OK)
        << table << '.' << column << ": " << vorn_session_error(session_);
    return values;
  }
  double statistic(const char* name) {
    double value = 0.0;
    EXPECT_EQ(vorn_session_statistic(session_, name, &value), VORN_OK) << name;
    return value;
  }

  vorn_session* session_ = nullptr;
};

TEST_F(SessionTest, GivesTheResultsOfTheAdjustment) {
  const std::string here = std::filesystem::current_path();
  ASSERT_EQ(vorn_session_run(session_), VORN_OK) << vorn_session_error(session_);
  EXPECT_EQ(std::filesystem::current_path(), here);
  EXPECT_FALSE(dir_.has("project.out")) << "no files were asked for";
  // Truth comes back within its standard deviations.
  std::int64_t count = 0;
  ASSERT_EQ(vorn_session_texts(session_, "points", "id", nullptr, 0, &count), VORN_ERROR_SIZE);
  std::vector<const char*> ids(static_cast<std::size_t>(count));
  ASSERT_EQ(vorn_session_texts(session_, "points", "id", ids.data(), count, nullptr), VORN_OK);
  const Numbers x = numbers("points", "x");
  const Numbers sd = numbers("points", "sd_x");
  ASSERT_EQ(x.size(), 8u);
  for (std::size_t i = 0; i < x.size(); ++i) {
    EXPECT_GT(sd[i], 0.0);
    EXPECT_LT(std::fabs(x[i] - project_.truth.at(ids[i])[0]), 5.0 * sd[i]) << ids[i];
  }
  // The whole is the sum of its parts.
  double squares = 0.0;
  for (const double v : numbers("image_points", "vx")) squares += v * v;
  EXPECT_NEAR(std::sqrt(squares / statistic("image_points")), statistic("rms_vx"), 1e-15);
  EXPECT_EQ(numbers("iterations", "sigma0").size(),
            static_cast<std::size_t>(statistic("iterations")));
  EXPECT_EQ(statistic("converged"), 1.0);
  const Numbers r = numbers("orientations", "r11");
  EXPECT_EQ(r.size(), 3u);
  // Every column of every table can be read, in its kind and in no other.
  std::int32_t tables = 0;
  ASSERT_EQ(vorn_session_count_tables(session_, &tables), VORN_OK);
  for (std::int32_t t = 0; t < tables; ++t) {
    const char* table = nullptr;
    ASSERT_EQ(vorn_session_table_name(session_, t, &table), VORN_OK);
    std::int32_t columns = 0;
    ASSERT_EQ(vorn_session_count_columns(session_, table, &columns), VORN_OK);
    for (std::int32_t c = 0; c < columns; ++c) {
      const char* name = nullptr;
      const char* unit = nullptr;
      ASSERT_EQ(vorn_session_column(session_, table, c, &name, &unit), VORN_OK);
      const bool text = std::string(unit) == "id" || std::string(unit) == "text";
      double number = 0.0;
      const char* word = nullptr;
      const auto other = text ? vorn_session_numbers(session_, table, name, &number, 0, nullptr)
                              : vorn_session_texts(session_, table, name, &word, 0, nullptr);
      EXPECT_EQ(other, VORN_ERROR_TYPE) << table << '.' << name;
      if (!text) numbers(table, name);
    }
  }
}

TEST_F(SessionTest, RunsOneAfterAnotherWithItsOwnSettings) {
  ASSERT_EQ(vorn_session_run(session_), VORN_OK);
  const double sigma0 = statistic("sigma0_posterior");
  set("max_iterations", 1);
  set("quality", 0);
  EXPECT_EQ(vorn_session_run(session_), VORN_NOT_CONVERGED);
  double value = 0.0;
  EXPECT_EQ(vorn_session_numbers(session_, "points", "sd_x", &value, 1, nullptr),
            VORN_ERROR_ARGUMENT);
  vorn_session* other = nullptr;
  ASSERT_EQ(vorn_session_open(control_file_.c_str(), &other), VORN_OK);
  EXPECT_EQ(vorn_session_run(other), VORN_OK) << "no setting reaches another session";
  EXPECT_EQ(vorn_session_statistic(other, "sigma0_posterior", &value), VORN_OK);
  EXPECT_EQ(value, sigma0);
  EXPECT_TRUE(dir_.has("project.ext"));
  EXPECT_EQ(statistic("iterations"), 1.0) << "its results stay";
  EXPECT_EQ(vorn_session_close(other), VORN_OK);
}

TEST_F(SessionTest, ObeysItsObserver) {
  struct Watch {
    vorn_session* session;
    std::int32_t answer;
    int iterations = 0;
  };
  const vorn_observer observer = [](const vorn_event* event, void* user) -> std::int32_t {
    auto& watch = *static_cast<Watch*>(user);
    EXPECT_EQ(vorn_session_run(watch.session), VORN_ERROR_ORDER);
    EXPECT_EQ(vorn_session_close(watch.session), VORN_ERROR_ORDER);
    if (event->kind != VORN_EVENT_ITERATION) return VORN_CONTINUE;
    ++watch.iterations;
    return watch.answer;
  };
  const std::pair<std::int32_t, std::int32_t> kCases[] = {
      {VORN_CONTINUE, VORN_OK}, {VORN_FINISH, VORN_NOT_CONVERGED}, {VORN_STOP, VORN_ERROR_STOPPED}};
  for (const auto& [answer, status] : kCases) {
    Watch watch{session_, answer};
    ASSERT_EQ(vorn_session_set_observer(session_, observer, &watch), VORN_OK);
    EXPECT_EQ(vorn_session_run(session_), status);
    EXPECT_EQ(watch.iterations == 1, answer != VORN_CONTINUE);
    std::int32_t tables = 0;
    EXPECT_EQ(vorn_session_count_tables(session_, &tables),
              status < 0 ? VORN_ERROR_ORDER : VORN_OK);
  }
}

TEST_F(SessionTest, SaysWhatIsWrong) {
  const auto finding_codes = [this] {
    std::string codes;
    std::int64_t count = 0;
    EXPECT_EQ(vorn_session_count_findings(session_, &count), VORN_OK);
    for (std::int64_t i = 0; i < count; ++i) {
      vorn_finding finding;
      EXPECT_EQ(vorn_session_finding(session_, i, &finding), VORN_OK);
      codes += std::string(finding.severity) + ' ' + finding.code + ' ' + finding.file + '\n';
    }
    vorn_finding finding;
    EXPECT_EQ(vorn_session_finding(session_, count, &finding), VORN_ERROR_RANGE);
    return codes;
  };
  vorn_session* none = session_;
  EXPECT_EQ(vorn_session_open(dir_.path("nothing").c_str(), &none), VORN_ERROR_FILE);
  EXPECT_EQ(none, nullptr);
  EXPECT_THAT(vorn_session_error(nullptr), testing::HasSubstr("nothing"));
  EXPECT_EQ(vorn_session_run(nullptr), VORN_ERROR_NULL);
  EXPECT_EQ(vorn_session_messages(nullptr), nullptr);
  double value = 0.0;
  EXPECT_EQ(vorn_session_statistic(session_, "redundancy", &value), VORN_ERROR_ORDER);
  for (const double bad : {-2.0, 1.5, std::nan("")}) {
    EXPECT_EQ(vorn_session_set_number(session_, "max_iterations", bad), VORN_ERROR_ARGUMENT);
  }
  EXPECT_EQ(vorn_session_set_number(session_, "nonsense", 1), VORN_ERROR_ARGUMENT);
  EXPECT_EQ(vorn_session_set_text(session_, "robust", "nonsense"), VORN_ERROR_ARGUMENT);

  dir_.write("crds.txt", "i1 1 p1 0,5 0 1 1");
  EXPECT_EQ(vorn_session_run(session_), VORN_ERROR_DATA);
  EXPECT_THAT(finding_codes(), testing::HasSubstr("error number-expected crds.txt"));
  EXPECT_THAT(vorn_session_messages(session_), testing::HasSubstr("ERROR: Reading"));
  EXPECT_EQ(vorn_session_check(session_), VORN_OK);
  EXPECT_THAT(finding_codes(), testing::HasSubstr("error number-expected crds.txt"));
  project_.write(dir_);
  EXPECT_EQ(vorn_session_run(session_), VORN_OK);
  EXPECT_EQ(std::string(vorn_session_error(session_)).empty(), false) << "the last reason stays";
  // Results that cannot be replaced.
  set("files", 1);
  std::filesystem::create_directory(dir_.path("project.ext"));
  EXPECT_EQ(vorn_session_run(session_), VORN_ERROR_FILE);
  EXPECT_THAT(vorn_session_error(session_), testing::HasSubstr("project.ext"));
  // The same after the adjustment: there are no results then.
  const auto blocked = dir_.path("project.ext");
  std::filesystem::remove(blocked);
  const vorn_observer block = [](const vorn_event* event, void* user) -> std::int32_t {
    const auto& path = *static_cast<const std::string*>(user);
    if (event->stage == VORN_STAGE_WRITING) std::filesystem::create_directory(path);
    return VORN_CONTINUE;
  };
  ASSERT_EQ(vorn_session_set_observer(session_, block, const_cast<std::string*>(&blocked)),
            VORN_OK);
  EXPECT_EQ(vorn_session_run(session_), VORN_ERROR_FILE);
  std::int32_t tables = 0;
  EXPECT_EQ(vorn_session_count_tables(session_, &tables), VORN_ERROR_ORDER);
}

// Neither a failed run nor a check leaves results that the files do not have any more.
TEST_F(SessionTest, KeepsNoResultsOfOtherFiles) {
  std::int32_t tables = 0;
  ASSERT_EQ(vorn_session_run(session_), VORN_OK);
  const double sigma0 = statistic("sigma0_posterior");
  std::int64_t found = 0;
  EXPECT_EQ(vorn_session_count_findings(session_, &found), VORN_OK);
  dir_.write("crds.txt", "i1 1 p1 0,5 0 1 1");
  EXPECT_EQ(vorn_session_run(session_), VORN_ERROR_DATA);
  EXPECT_EQ(vorn_session_count_tables(session_, &tables), VORN_ERROR_ORDER);
  project_.write(dir_);
  ASSERT_EQ(vorn_session_run(session_), VORN_OK) << vorn_session_error(session_);
  EXPECT_EQ(statistic("sigma0_posterior"), sigma0);
  std::int64_t findings = 0;
  EXPECT_EQ(vorn_session_count_findings(session_, &findings), VORN_OK);
  EXPECT_EQ(findings, found) << "those of the run before are gone";
  EXPECT_EQ(vorn_session_check(session_), VORN_OK);
  EXPECT_EQ(vorn_session_count_tables(session_, &tables), VORN_ERROR_ORDER);
  std::filesystem::remove(dir_.path("project.ctl"));
  EXPECT_EQ(vorn_session_check(session_), VORN_ERROR_FILE);
  EXPECT_EQ(vorn_session_run(session_), VORN_ERROR_FILE);
  EXPECT_THAT(vorn_session_error(session_), testing::HasSubstr("project.ctl"));
}

TEST_F(SessionTest, RefusesArgumentsThatItCannotUse) {
  ASSERT_EQ(vorn_session_run(session_), VORN_OK);
  constexpr double kUntouched = -7.0;
  std::vector<double> values(8, kUntouched);
  const char* text = nullptr;
  std::int32_t number = 0;
  std::int64_t count = 0;
  vorn_session* const s = session_;
  const std::pair<std::int32_t, std::int32_t> kCalls[] = {
      {vorn_session_set_number(s, nullptr, 1), VORN_ERROR_NULL},
      {vorn_session_set_number(s, "robust_scale", 0), VORN_ERROR_ARGUMENT},
      {vorn_session_set_number(s, "damped", 0.5), VORN_ERROR_ARGUMENT},
      {vorn_session_set_text(s, "robust", nullptr), VORN_ERROR_NULL},
      {vorn_session_set_text(s, "kernel", "abacus"), VORN_ERROR_ARGUMENT},
      {vorn_session_set_text(s, "damped", "1"), VORN_ERROR_ARGUMENT},
      {vorn_session_get_number(s, "nonsense", values.data()), VORN_ERROR_ARGUMENT},
      {vorn_session_get_number(s, "damped", nullptr), VORN_ERROR_NULL},
      {vorn_session_count_findings(s, nullptr), VORN_ERROR_NULL},
      {vorn_session_finding(s, -1, nullptr), VORN_ERROR_NULL},
      {vorn_session_count_tables(s, nullptr), VORN_ERROR_NULL},
      {vorn_session_table_name(s, -1, &text), VORN_ERROR_RANGE},
      {vorn_session_table_name(s, 999, &text), VORN_ERROR_RANGE},
      {vorn_session_count_rows(s, "nonsense", &count), VORN_ERROR_ARGUMENT},
      {vorn_session_count_columns(s, nullptr, &number), VORN_ERROR_NULL},
      {vorn_session_column(s, "points", 999, &text, &text), VORN_ERROR_RANGE},
      {vorn_session_column(s, "points", -1, &text, &text), VORN_ERROR_RANGE},
      {vorn_session_numbers(s, "points", "nonsense", values.data(), 8, &count),
       VORN_ERROR_ARGUMENT},
      {vorn_session_numbers(s, "points", "x", nullptr, 8, &count), VORN_ERROR_NULL},
      {vorn_session_numbers(s, "points", "x", values.data(), 7, &count), VORN_ERROR_SIZE},
      {vorn_session_numbers(s, "points", "x", values.data(), -1, nullptr), VORN_ERROR_SIZE},
      {vorn_session_texts(s, "points", "id", nullptr, 8, &count), VORN_ERROR_NULL},
      {vorn_session_statistic(s, "nonsense", values.data()), VORN_ERROR_ARGUMENT},
      {vorn_session_statistic(s, "redundancy", nullptr), VORN_ERROR_NULL},
  };
  for (std::size_t call = 0; call < std::size(kCalls); ++call) {
    EXPECT_EQ(kCalls[call].first, kCalls[call].second) << "call " << call;
  }
  EXPECT_EQ(values, Numbers(8, kUntouched)) << "a refused call writes nothing";
  EXPECT_EQ(count, 8) << "but for the number of rows";
  EXPECT_EQ(vorn_session_numbers(s, "points", "x", values.data(), 8, nullptr), VORN_OK);
  EXPECT_EQ(std::count(values.begin(), values.end(), kUntouched), 0);
}

TEST_F(SessionTest, TellsItsSettingsAndStatuses) {
  for (const char* const name : {"rigorous", "damped", "keep_robust", "quality", "prior",
                                 "inner_datum", "lenient", "files", "cameras", "allow_outside"}) {
    for (const double value : {1.0, 0.0}) {
      set(name, value);
      double told = -1.0;
      EXPECT_EQ(vorn_session_get_number(session_, name, &told), VORN_OK);
      EXPECT_EQ(told, value) << name;
    }
  }
  for (const auto& [name, value] : {std::pair("max_iterations", 7.0), {"robust_scale", 2.5}}) {
    set(name, value);
    double told = -1.0;
    EXPECT_EQ(vorn_session_get_number(session_, name, &told), VORN_OK);
    EXPECT_EQ(told, value) << name;
  }
  std::set<std::string> texts;
  for (std::int32_t status = VORN_ERROR_INTERNAL; status <= VORN_NO_FIGURES; ++status) {
    EXPECT_TRUE(texts.insert(vorn_status_text(status)).second) << status;
  }
  EXPECT_EQ(vorn_status_text(VORN_NO_FIGURES + 1), std::string("unknown status"));
  EXPECT_EQ(texts.count("unknown status"), 0U);
}

}  // namespace
}  // namespace vorn
