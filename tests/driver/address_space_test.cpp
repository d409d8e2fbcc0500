// Normal equations for which there is no room.

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <string>

#include "support/bundle_run.h"
#include "support/ls_params_guard.h"
#include "support/temp_dir.h"

#ifdef __linux__
#include <sys/resource.h>
#endif

namespace vorn {
namespace {

#if defined(__linux__) && !defined(__SANITIZE_ADDRESS__)

// Keeps the process from taking much more memory. A 32-bit process under an emulator ignores it;
// its address space has no room for the project below anyway.
class MemoryLimit {
 public:
  explicit MemoryLimit(std::size_t bytes) {
    getrlimit(RLIMIT_AS, &saved_);
    rlimit limit = saved_;
    limit.rlim_cur = bytes;
    setrlimit(RLIMIT_AS, &limit);
  }
  ~MemoryLimit() { setrlimit(RLIMIT_AS, &saved_); }
  MemoryLimit(const MemoryLimit&) = delete;
  MemoryLimit& operator=(const MemoryLimit&) = delete;

 private:
  rlimit saved_{};
};

TEST(AddressSpace, RefusesNormalEquationsWithoutRoom) {
  const test::TempDir dir;
  const test::LSParamsGuard guard;
  std::filesystem::copy(VORN_SOURCE_DIR "/examples/pushbroom-strip", dir.path("strip"));
  // A correction of 18,000 coefficients that all meet: 2.6 GB for their products alone.
  constexpr int kTriples = 6000;
  const std::string original = dir.read("strip/position-cor.txt");
  std::string correction = original.substr(0, original.find("stop-dep")) + "stop-dep\n0.0\n" +
                           std::to_string(kTriples) + '\n';
  for (int i = 0; i < kTriples; ++i) correction += "0 1e31 0 1e31 0 1e31\n";
  dir.write("strip/position-cor.txt", correction + "stop-dep\n");

  const MemoryLimit limit(std::size_t{1} << 30U);
  EXPECT_EQ(test::run_bundle(dir.path("strip/pushbroom-strip.ctl")).result, 0);
  const std::string report = dir.read("strip/pushbroom-strip.out");
  EXPECT_TRUE(report.ends_with(" unknowns do not fit the address space.\n")) << report;

  // The process goes on.
  dir.write("strip/position-cor.txt", original);
  EXPECT_EQ(test::run_bundle(dir.path("strip/pushbroom-strip.ctl")).result, 1);
}

#endif

}  // namespace
}  // namespace vorn
