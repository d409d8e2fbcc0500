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

// What the list promises, by linear scans.
struct Model {
  std::vector<std::pair<std::string, int>> slots;  // serial -1: emptied

  std::int32_t slot_of(const std::string& id) const {
    for (std::size_t i = 0; i < slots.size(); ++i) {
      if (slots[i].second >= 0 && slots[i].first == id) return static_cast<std::int32_t>(i);
    }
    return OwnedList<Item>::kNone;
  }
};

void expect_equal(const OwnedList<Item>& list, const Model& model, const std::string& id) {
  const std::int32_t slot = model.slot_of(id);
  ASSERT_EQ(list.slot_of(id), slot) << id;
  const Item* const found = list.find(id);
  ASSERT_EQ(found == nullptr, slot < 0);
  if (found != nullptr) {
    ASSERT_EQ(found->serial, model.slots[static_cast<std::size_t>(slot)].second);
  }
}

void run_random_operations(std::uint64_t seed, std::size_t num_ids, int steps) {
  test::Noise noise(seed);
  OwnedList<Item> list;
  Model model;
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
      model.slots.emplace_back(id, step);
    } else if (choice < 7) {
      list.replace(slot, std::make_unique<Item>(Item{id, step}));
      model.slots[static_cast<std::size_t>(slot)].second = step;
    } else {
      // Any slot, also one that is not the first of its identifier.
      const std::size_t any = noise.below(model.slots.size());
      if (model.slots[any].second < 0) continue;
      const auto object = list.take_out(static_cast<std::int32_t>(any));
      ASSERT_EQ(object->serial, model.slots[any].second);
      model.slots[any].second = -1;
    }
    ASSERT_NO_FATAL_FAILURE(expect_equal(list, model, id));
    ASSERT_NO_FATAL_FAILURE(expect_equal(list, model, random_id()));
  }
  std::vector<int> walked;
  for (const Item& item : list) walked.push_back(item.serial);
  std::vector<int> expected;
  for (const auto& [id, serial] : model.slots) {
    if (serial >= 0) expected.push_back(serial);
    expect_equal(list, model, id);
  }
  EXPECT_EQ(walked, expected);
  EXPECT_EQ(list.count(), static_cast<std::int32_t>(expected.size()));
  EXPECT_EQ(list.num_slots(), static_cast<std::int32_t>(model.slots.size()));
  list.clear();
  EXPECT_EQ(list.find("1"), nullptr);
  EXPECT_EQ(list.count() + list.num_slots(), 0);
}

TEST(OwnedList, FindsWhatALinearScanFinds) {
  for (std::uint64_t seed = 0; seed < 40; ++seed) {
    SCOPED_TRACE(seed);
    ASSERT_NO_FATAL_FAILURE(run_random_operations(seed, seed % 4 < 2 ? 8 : 400, 1200));
  }
}

}  // namespace
}  // namespace vorn
