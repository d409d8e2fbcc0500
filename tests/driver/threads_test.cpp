// Whole projects, worked at by one and by several threads.

#include "app/threads/threads.h"

#include <filesystem>
#include <map>
#include <new>
#include <vector>

#include "base/workers.h"
#include "driver/run.h"
#include "quality/quality.h"
#include "support/project_test.h"
#include "support/text_compare.h"
#include "support/thread_team.h"

namespace vorn {
namespace {

using test::SyntheticSpec;

// All files of a run and what it prints, without times.
using Files = std::map<std::string, std::string>;

// Bit by bit.
std::string figures(const std::string& path) {
  std::string bits;
  const auto add = [&bits](double x) { bits.append(reinterpret_cast<const char*>(&x), sizeof x); };
  RunRequest request;
  request.path = path;
  request.outputs = OutputMode::discarded;
  request.inspect = [&](BundleProject& project) {
    const QualityResults results = find_quality(project, {});
    EXPECT_TRUE(results.has_figures);
    for (const PointResult& row : results.points) {
      for (const double element : row.covariance) add(element);
      for (const double x : {row.semi_axes[0], row.angle, row.redundancy}) add(x);
    }
    for (const ParameterResult& row : results.parameters) add(row.sd);
    for (const ImagePointResult& row : results.image_points) {
      for (const double x : {row.r[0], row.r[1], row.rxy, row.effect[0], row.effect[1]}) add(x);
    }
    for (const CorrelationResult& row : results.correlations) add(row.r);
    for (const auto& [kind, count] : results.correlations_over_limit) {
      bits += kind + std::to_string(count);
    }
    for (const ToleranceResult& row : results.smallest_tolerances) {
      add(row.value);
      bits += std::to_string(row.unknown.number());
    }
  };
  test::captured_output([&] { EXPECT_EQ(run_project(request).result, 1); });
  return bits;
}

Files run(const SyntheticSpec& spec) {
  const test::TempDir dir;
  make_synthetic_project(spec).write(dir);
  ls_params() = LSParams();
  const test::BundleRun run = test::run_bundle(dir.path("project.ctl"), 1);
  EXPECT_EQ(run.result, 1) << run.output;
  Files files = {{"standard output", run.output}, {"error stream", run.errors}};
  for (const auto& entry : std::filesystem::directory_iterator(dir.path())) {
    files[entry.path().filename().string()] = test::without_times(test::file_text(entry.path()));
  }
  files["figures of quality"] = figures(dir.path("project.ctl"));
  return files;
}

class Threads : public testing::TestWithParam<SyntheticSpec> {};

TEST_P(Threads, EndWithTheSameBytes) {
  const Files alone = run(GetParam());
#ifdef __SANITIZE_THREAD__
  const std::vector<std::size_t> counts = {2};  // whoever races does so in twos
#else
  const std::vector<std::size_t> counts = {2, 3, 7};
#endif
  for (const std::size_t count : counts) {
    const test::ThreadTeam team(count);
    EXPECT_EQ(run(GetParam()), alone) << count << " threads";
  }
}

// Several chunks of observations and batches of points; many images, so that there are several
// tiles; types of orientation that are not taken in packs.
INSTANTIATE_TEST_SUITE_P(
    Projects, Threads,
    testing::Values(
        SyntheticSpec{.ap_sets = {"p12"}, .images = 24, .points = 1500},
        SyntheticSpec{.cameras = {"camera-frame", "camera-ccd"},
                      .orientations = {"ext-ori-pok-rot", "ext-ori-quaternion"},
                      .ap_sets = {"gap"},
                      .images = 60,
                      .points = 130},
        SyntheticSpec{.cameras = {"camera-pushbroom"}, .images = 9, .points = 150, .triples = 1},
        SyntheticSpec{.orientations = {"ext-ori-opk-rot", "dlt"}, .images = 9, .points = 150}));

// The program's own threads: every part once, and exceptions come out.
TEST(Workers, DoEveryPartOnceAndHandExceptionsOver) {
  for (const std::size_t count : {1U, 2U, 5U}) {
    if (count > 1 && !app::has_threads()) continue;
    app::use_threads(count);
    EXPECT_EQ(workers().count(), count);
    std::vector<int> done(1000, 0);
    for_each_range(done.size(), 7, [&](std::size_t begin, std::size_t end, std::size_t worker) {
      EXPECT_LT(worker, count);
      for (std::size_t k = begin; k < end; ++k) ++done[k];
    });
    EXPECT_EQ(done, std::vector<int>(1000, 1));
    const auto run_out = [](std::size_t k, std::size_t) {
      if (k == 60) throw std::bad_alloc();
    };
    EXPECT_THROW(workers().run(100, run_out), std::bad_alloc) << count;
  }
  app::use_threads(1);
}

}  // namespace
}  // namespace vorn
