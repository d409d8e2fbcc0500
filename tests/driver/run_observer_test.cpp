// What an observer of a run is told, and what becomes of its answers.

#include <gmock/gmock.h>

#include <functional>
#include <tuple>

#include "driver/run.h"
#include "support/project_test.h"

namespace vorn {
namespace {

// Keeps what it is told in words; answers by a function of them.
class Recorder : public RunObserver {
 public:
  ObserverAnswer on_stage(RunStage stage) override { return answer(std::string(name_of(stage))); }
  ObserverAnswer on_progress(RunStage stage, double fraction) override {
    EXPECT_GE(fraction, fractions[stage]);
    EXPECT_LE(fraction, 1.0);
    fractions[stage] = fraction;
    ++tellings;
    return answer(std::string(name_of(stage)) + " goes on");
  }
  ObserverAnswer on_iteration(const IterationStatistics& statistics) override {
    return answer(std::to_string(statistics.number));
  }

  std::string heard;
  std::map<RunStage, double> fractions;
  int tellings = 0;
  std::string word;  // what is answered with `with`
  ObserverAnswer with = ObserverAnswer::go_on;

 private:
  ObserverAnswer answer(const std::string& event) {
    if (!event.ends_with("goes on")) heard += event + ' ';
    return event == word ? with : ObserverAnswer::go_on;
  }
};

class RunObserverTest : public test::ProjectTest {
 protected:
  RunSummary run(RunObserver* observer) {
    ls_params() = LSParams();
    RunSummary summary;
    console_ = test::captured_output([&] {
      summary = run_project(
          {.path = control_file_, .outputs = OutputMode::replaced, .observer = observer});
    });
    return summary;
  }
  std::string console_;
};

TEST_F(RunObserverTest, HearsOfEverythingAndChangesNothing) {
  ASSERT_EQ(run(nullptr).result, 1);
  const std::string report = test::without_times(dir_.read("project.out"));
  Recorder recorder;
  const RunSummary summary = run(&recorder);
  EXPECT_EQ(summary.result, 1);
  EXPECT_EQ(test::without_times(dir_.read("project.out")), report);
  std::string iterations;
  for (int i = 1; i <= summary.iterations; ++i) iterations += std::to_string(i) + ' ';
  EXPECT_EQ(recorder.heard, "reading initialisation iterations " + iterations + "writing ");
  EXPECT_EQ(recorder.fractions[RunStage::reading], 1.0);
  EXPECT_EQ(recorder.fractions[RunStage::writing], 1.0);
  EXPECT_LT(recorder.tellings, 250);
}

TEST_F(RunObserverTest, IsObeyed) {
  ASSERT_EQ(run(nullptr).result, 1);
  const std::string earlier = dir_.read("project.ext");
  constexpr auto kFinish = ObserverAnswer::finish;
  constexpr auto kStop = ObserverAnswer::stop;
  const std::tuple<const char*, ObserverAnswer, std::int32_t> kCases[] = {
      {"reading", kFinish, 1},
      {"initialisation", kFinish, 1},
      {"2", kFinish, 2},
      {"reading", kStop, 0},
      {"reading goes on", kStop, 0},
      {"initialisation", kStop, 0},
      {"iterations", kStop, 0},
      {"2", kStop, 2},
      {"writing", kStop, -1},
      {"writing goes on", kStop, -1}};
  for (const auto& [word, with, iterations] : kCases) {
    Recorder recorder;
    recorder.word = word;
    recorder.with = with;
    const RunSummary summary = run(&recorder);
    EXPECT_EQ(summary.result, with == kFinish ? 1 : 0) << word;
    EXPECT_EQ(summary.stopped, with == kStop) << word;
    if (iterations >= 0) {
      EXPECT_EQ(summary.iterations, iterations) << word;
    }
    if (with == kFinish) {
      EXPECT_THAT(dir_.read("project.out"), testing::HasSubstr("ended from outside")) << word;
      dir_.write("project.ext", earlier);
      continue;
    }
    EXPECT_EQ(dir_.read("project.ext"), earlier) << word;
    EXPECT_THAT(dir_.read("project.failed.out"),
                testing::EndsWith("*** ERROR: The run was stopped from outside.\n"));
  }
}

}  // namespace
}  // namespace vorn
