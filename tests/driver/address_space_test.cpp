// Normal equations for which there is no room.

#include "support/project_test.h"

#if defined(__linux__) && !defined(__SANITIZE_ADDRESS__)

#include <sys/resource.h>

namespace vorn {
namespace {

TEST(AddressSpace, RefusesNormalEquationsWithoutRoom) {
  const test::TempDir dir;
  std::filesystem::copy(VORN_SOURCE_DIR "/examples/pushbroom-strip", dir.path("strip"));
  // A correction of 18,000 coefficients that all meet: 2.6 GB for their products alone.
  constexpr int kTriples = 6000;
  const std::string original = dir.read("strip/position-cor.txt");
  std::string correction = original.substr(0, original.find("stop-dep")) + "stop-dep\n0.0\n" +
                           std::to_string(kTriples) + '\n';
  for (int i = 0; i < kTriples; ++i) correction += "0 1e31 0 1e31 0 1e31\n";
  dir.write("strip/position-cor.txt", correction + "stop-dep\n");

  // Keeps the process from taking much more memory. A 32-bit process under an emulator ignores it;
  // its address space has no room for the project anyway.
  rlimit saved{};
  getrlimit(RLIMIT_AS, &saved);
  const rlimit limit = {rlim_t{1} << 30U, saved.rlim_max};
  setrlimit(RLIMIT_AS, &limit);
  EXPECT_EQ(test::run_bundle(dir.path("strip/pushbroom-strip.ctl")).result, 0);
  const std::string report = dir.read("strip/pushbroom-strip.out");
  EXPECT_TRUE(report.ends_with(" unknowns do not fit the address space.\n")) << report;

  // The process goes on.
  dir.write("strip/position-cor.txt", original);
  EXPECT_EQ(test::run_bundle(dir.path("strip/pushbroom-strip.ctl")).result, 1);
  setrlimit(RLIMIT_AS, &saved);
}

}  // namespace
}  // namespace vorn

#endif
