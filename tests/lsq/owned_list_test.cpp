#include "lsq/owned_list.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/noise.h"

namespace vorn {
namespace {

struct Item {
  std::string id;
  int serial;
};

// Random operations on a list and on a plain vector, where serial -1 stands for an emptied slot and
// a linear scan tells what the list must find.
void run_random_operations(std::uint64_t seed, std::size_t num_ids, int steps) {
  test::Noise noise(seed);
  OwnedList<Item> list;
  std::vector<std::pair<std::string, int>> model;
  // Identifiers around the length at which hashing changes its step, and the empty one.
  const auto random_id = [&] {
    return std::string(noise.below(2) * 7, 'i') +
           std::to_string(noise.below(num_ids)).substr(noise.below(2));
  };
  const auto expect_same = [&](const std::string& id) {
    std::size_t i = 0;
    while (i < model.size() && (model[i].second < 0 || model[i].first != id)) ++i;
    const bool found = i < model.size();
    ASSERT_EQ(list.slot_of(id), found ? static_cast<std::int32_t>(i) : OwnedList<Item>::kNone);
    ASSERT_EQ(list.find(id) != nullptr, found);
    ASSERT_TRUE(!found || list.find(id)->serial == model[i].second);
  };
  for (int step = 0; step < steps; ++step) {
    const std::string id = random_id();
    const std::int32_t slot = list.slot_of(id);
    const std::size_t choice = noise.below(10);
    if (choice < 5 || slot == OwnedList<Item>::kNone) {
      list.append(std::make_unique<Item>(Item{id, step}));
      model.emplace_back(id, step);
    } else if (choice < 7) {
      list.replace(slot, std::make_unique<Item>(Item{id, step}));
      model[static_cast<std::size_t>(slot)].second = step;
    } else {
      // Any slot, also one that is not the first of its identifier.
      const std::size_t any = noise.below(model.size());
      if (model[any].second < 0) continue;
      ASSERT_EQ(list.take_out(static_cast<std::int32_t>(any))->serial, model[any].second);
      model[any].second = -1;
    }
    ASSERT_NO_FATAL_FAILURE(expect_same(id));
    ASSERT_NO_FATAL_FAILURE(expect_same(random_id()));
  }
  std::erase_if(model, [](const auto& slot) { return slot.second < 0; });
  std::vector<std::pair<std::string, int>> walked;
  for (const Item& item : list) walked.emplace_back(item.id, item.serial);
  EXPECT_EQ(walked, model);
  EXPECT_EQ(list.count(), static_cast<std::int32_t>(model.size()));
  list.clear();
  EXPECT_TRUE(list.find("1") == nullptr && list.count() + list.num_slots() == 0);
}

TEST(OwnedList, FindsWhatALinearScanFinds) {
  for (std::uint64_t seed = 0; seed < 40; ++seed) {
    SCOPED_TRACE(seed);
    ASSERT_NO_FATAL_FAILURE(run_random_operations(seed, seed % 4 < 2 ? 8 : 400, 1200));
  }
}

}  // namespace
}  // namespace vorn
