// Parts of a work handed over in their order.

#include "base/in_turn.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <vector>

#include "support/thread_team.h"

namespace vorn {
namespace {

using Parts = std::vector<std::size_t>;

Parts first_parts(std::size_t count) {
  Parts parts(count);
  std::iota(parts.begin(), parts.end(), std::size_t{0});
  return parts;
}

TEST(InTurn, HandsPartsOverInOrderHoweverTheyAreFinished) {
  Parts order = first_parts(5);
  do {
    InTurn in_turn(order.size());
    Parts taken;
    for (const std::size_t part : order) {
      in_turn.finish(part, [&](std::size_t next) { taken.push_back(next); });
    }
    EXPECT_EQ(taken, first_parts(order.size()));
  } while (std::next_permutation(order.begin(), order.end()));
}

// What is finished while another part is being taken waits for the end of that.
TEST(InTurn, TakesOnePartAtATime) {
  InTurn in_turn(3);
  Parts begun;
  Parts ended;
  in_turn.finish(0, [&](std::size_t part) {
    begun.push_back(part);
    if (part == 0) {
      for (const std::size_t other : {2U, 1U}) {
        in_turn.finish(other, [](std::size_t k) { FAIL() << k << " taken within 0"; });
      }
    }
    EXPECT_EQ(ended, first_parts(begun.size() - 1));
    ended.push_back(part);
  });
  EXPECT_EQ(ended, first_parts(3));

  constexpr std::size_t kMany = 20000;
  test::ThreadTeam team(4);
  InTurn of_many(kMany);
  Parts taken;  // without a lock: by one thread at a time
  team.run(kMany, [&](std::size_t k, std::size_t) {
    of_many.finish(k, [&](std::size_t next) { taken.push_back(next); });
  });
  EXPECT_EQ(taken, first_parts(kMany));
}

}  // namespace
}  // namespace vorn
