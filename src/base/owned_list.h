#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "base/hash_id.h"

namespace vorn {

// Owning list of heap objects in input order, found by identifier.
//
// A removal empties a slot and closes no gap, so slot numbers stay valid. `find` gives what a
// linear scan for the exact text would give, the first match, in constant time: a hash table holds,
// for each identifier, the first slot that carries it. Lists in which identifiers repeat also know
// the next slot of the same identifier. T has a public member `id` convertible to std::string_view
// that does not change while it is listed.
template <class T>
class OwnedList {
 public:
  static constexpr std::int32_t kNone = -1;

  std::int32_t num_slots() const { return static_cast<std::int32_t>(slots_.size()); }
  // The object of a slot, null when the slot was emptied.
  T* operator[](std::int32_t slot) const { return slots_[static_cast<std::size_t>(slot)].get(); }
  // Number of slots that are not empty.
  std::int32_t count() const { return count_; }

  // First slot whose object carries the identifier, or kNone.
  std::int32_t slot_of(std::string_view id) const {
    return table_.empty() ? kNone : table_[probe(id)];
  }
  T* find(std::string_view id) const {
    const std::int32_t slot = slot_of(id);
    return slot == kNone ? nullptr : (*this)[slot];
  }

  // As `find` for each of the texts id_of(k), k below `count`: found(k, object or null). Memory is
  // asked some identifiers ahead for what the search for them looks at.
  template <class IdOf, class Found>
  void find_each(std::size_t count, IdOf id_of, Found found) const {
    constexpr std::size_t kAhead = 8;
    constexpr std::size_t kRing = 2 * kAhead;
    if (table_.empty()) {
      for (std::size_t k = 0; k < count; ++k) found(k, static_cast<T*>(nullptr));
      return;
    }
    std::size_t homes[kRing];
    for (std::size_t step = 0; step < count + kRing; ++step) {
      if (step >= kRing) {
        const std::size_t k = step - kRing;
        const std::int32_t slot = table_[probe(id_of(k), homes[k % kRing])];
        found(k, slot == kNone ? nullptr : (*this)[slot]);
      }
      if (step >= kAhead && step - kAhead < count) {
        const std::int32_t slot = table_[homes[(step - kAhead) % kRing]];
        if (slot != kNone) __builtin_prefetch((*this)[slot]);
      }
      if (step < count) {
        homes[step % kRing] = home_of(id_of(step));
        __builtin_prefetch(&table_[homes[step % kRing]]);
      }
    }
  }

  // Makes room in the table for so many identifiers.
  void reserve(std::size_t count) {
    while (count * 4 > table_.size() * 3) grow();
  }

  T& append(std::unique_ptr<T> object) {
    if ((slots_.size() + 1) * 4 > table_.size() * 3) grow();
    T& added = *object;
    const std::int32_t slot = num_slots();
    const std::size_t place = probe(added.id);
    slots_.push_back(std::move(object));
    if (!same_.empty()) same_.push_back({kNone, slot});
    ++count_;
    if (table_[place] == kNone) {
      table_[place] = slot;
    } else {
      repeat(table_[place], slot);
    }
    return added;
  }

  // Puts the object into the slot of another one with the same identifier, which is destroyed.
  T& replace(std::int32_t slot, std::unique_ptr<T> object) {
    at(slot) = std::move(object);
    return *at(slot);
  }

  // Appends the object, or puts it into the place of the first one with its identifier, which is
  // destroyed. True when there was one.
  bool put(std::unique_ptr<T> object) {
    const std::int32_t slot = slot_of(object->id);
    if (slot == kNone) {
      append(std::move(object));
    } else {
      replace(slot, std::move(object));
    }
    return slot != kNone;
  }

  // Empties a slot and hands its object over.
  std::unique_ptr<T> take_out(std::int32_t slot) {
    const std::size_t place = probe(at(slot)->id);
    --count_;
    if (table_[place] != slot) return std::move(at(slot));
    std::int32_t next = next_same(slot);
    while (next != kNone && !at(next)) next = next_same(next);
    if (next != kNone) {
      same(next).last = same(slot).last;
      table_[place] = next;
      return std::move(at(slot));
    }
    std::unique_ptr<T> object = std::move(at(slot));
    erase(place);
    return object;
  }
  void remove(std::int32_t slot) { take_out(slot); }

  // Gives back memory beyond what the list needs as it is.
  void fit() { slots_.shrink_to_fit(); }

  void clear() {
    slots_.clear();
    same_.clear();
    table_.clear();
    count_ = 0;
  }

  // Walks over the objects in list order and skips empty slots.
  class Iterator {
   public:
    Iterator(const OwnedList* list, std::int32_t slot) : list_(list), slot_(slot) { skip(); }
    T& operator*() const { return *(*list_)[slot_]; }
    Iterator& operator++() {
      ++slot_;
      skip();
      return *this;
    }
    bool operator!=(const Iterator& other) const { return slot_ != other.slot_; }

   private:
    void skip() {
      while (slot_ < list_->num_slots() && (*list_)[slot_] == nullptr) ++slot_;
    }
    const OwnedList* list_;
    std::int32_t slot_;
  };
  Iterator begin() const { return {this, 0}; }
  Iterator end() const { return {this, num_slots()}; }

 private:
  // Other slots with the identifier of a slot.
  struct Same {
    std::int32_t next;
    std::int32_t last;  // kept at the first one only
  };

  std::unique_ptr<T>& at(std::int32_t slot) { return slots_[static_cast<std::size_t>(slot)]; }
  Same& same(std::int32_t slot) { return same_[static_cast<std::size_t>(slot)]; }
  std::int32_t next_same(std::int32_t slot) { return same_.empty() ? kNone : same(slot).next; }

  // Notes that the last slot carries the identifier of an earlier one.
  void repeat(std::int32_t first, std::int32_t slot) {
    for (std::int32_t i = static_cast<std::int32_t>(same_.size()); i <= slot; ++i) {
      same_.push_back({kNone, i});
    }
    same(same(first).last).next = slot;
    same(first).last = slot;
  }

  // Where the search for an identifier begins.
  std::size_t home_of(std::string_view id) const {
    return static_cast<std::size_t>(hash_id(id)) & (table_.size() - 1);
  }

  // Place of the identifier in the table, or the free place where it belongs.
  std::size_t probe(std::string_view id) const { return probe(id, home_of(id)); }
  std::size_t probe(std::string_view id, std::size_t place) const {
    const std::size_t mask = table_.size() - 1;
    while (table_[place] != kNone && std::string_view((*this)[table_[place]]->id) != id) {
      place = (place + 1) & mask;
    }
    return place;
  }

  // Frees a place of the table, closing up the run of places behind it.
  void erase(std::size_t hole) {
    const std::size_t mask = table_.size() - 1;
    table_[hole] = kNone;
    for (std::size_t place = (hole + 1) & mask; table_[place] != kNone;
         place = (place + 1) & mask) {
      const std::size_t home = home_of((*this)[table_[place]]->id);
      if (((place - home) & mask) < ((place - hole) & mask)) continue;
      table_[hole] = std::exchange(table_[place], kNone);
      hole = place;
    }
  }

  void grow() {
    std::vector<std::int32_t> old(table_.empty() ? 16 : table_.size() * 2, kNone);
    old.swap(table_);
    for (const std::int32_t slot : old) {
      if (slot != kNone) table_[probe((*this)[slot]->id)] = slot;
    }
  }

  std::vector<std::unique_ptr<T>> slots_;
  std::vector<Same> same_;           // empty until an identifier repeats
  std::vector<std::int32_t> table_;  // power of two, open addressing; first slots
  std::int32_t count_ = 0;
};

}  // namespace vorn
