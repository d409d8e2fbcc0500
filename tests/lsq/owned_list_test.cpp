#include "lsq/owned_list.h"

#include <gtest/gtest.h>

#include <algorithm>

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
  std::vector<Item> model;
  // Identifiers around the length at which hashing changes its step, and the empty one.
  const auto random_id = [&] {
    return std::string(noise.below(2) * 7, 'i') +
           std::to_string(noise.below(num_ids)).substr(noise.below(2));
  };
  for (int step = 0; step < steps; ++step) {
    const std::string id = random_id();
    const std::int32_t slot = list.slot_of(id);
    const std::size_t choice = noise.below(10);
    if (choice < 5 || slot == OwnedList<Item>::kNone) {
      list.append(std::make_unique<Item>(Item{id, step}));
      model.push_back({id, step});
    } else if (choice < 7) {
      list.replace(slot, std::make_unique<Item>(Item{id, step}));
      model[static_cast<std::size_t>(slot)].serial = step;
    } else {
      // Any slot, also one that is not the first of its identifier.
      const std::size_t any = noise.below(model.size());
      if (model[any].serial < 0) continue;
      ASSERT_EQ(list.take_out(static_cast<std::int32_t>(any))->serial, model[any].serial);
      model[any].serial = -1;
    }
    for (const std::string& wanted : {id, random_id()}) {
      const auto found = std::find_if(model.begin(), model.end(), [&](const Item& item) {
        return item.serial >= 0 && item.id == wanted;
      });
      const bool none = found == model.end();
      ASSERT_EQ(list.slot_of(wanted), none ? OwnedList<Item>::kNone : found - model.begin());
      ASSERT_EQ(list.find(wanted) == nullptr, none);
      ASSERT_TRUE(none || list.find(wanted)->serial == found->serial);
    }
  }
  std::erase_if(model, [](const Item& item) { return item.serial < 0; });
  std::size_t walked = 0;
  for (const Item& item : list) ASSERT_EQ(item.serial, model.at(walked++).serial);
  EXPECT_EQ(walked, model.size());
  EXPECT_EQ(list.count(), static_cast<std::int32_t>(walked));
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
