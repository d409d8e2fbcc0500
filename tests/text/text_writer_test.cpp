#include "text/text_writer.h"

#include <gtest/gtest.h>

#include <string>

#include "support/temp_dir.h"

namespace vorn {
namespace {

TEST(TextWriter, WritesEverythingInOrderOrNowhere) {
  const test::TempDir dir;
  const std::string large(200'000, 'x');
  TextWriter out;
  out << "lost" << 1 << large;
  EXPECT_FALSE(out.open(dir.path()));
  ASSERT_TRUE(out.open(dir.path("text")));
  std::string expected = large;
  for (int i = 0; i < 20'000; ++i) {
    out << i << '\n';
    expected += std::to_string(i) + '\n';
    if (i == 10'000) out << large;
    if (i == 10'000) expected += large;
  }
  out << right_aligned("ab", 4) << left_aligned("ab", 4) << '|' << right_aligned("abc", 2);
  out.integer(-7, 5) << std::int64_t{-9'000'000'000} << std::uint64_t{18'000'000'000'000'000'000U};
  // Opening the next file closes the one before.
  ASSERT_TRUE(out.open(dir.path("other")));
  out << "else";
  out.close();
  out << "lost";
  EXPECT_EQ(large + dir.read("text"),
            expected + "  abab  |abc   -7-900000000018000000000000000000");
  EXPECT_EQ(dir.read("other"), "else");
}

}  // namespace
}  // namespace vorn
