#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "base/owned_list.h"
#include "base/workers.h"
#include "lsq/adj_object.h"

namespace vorn {

// The table of unknowns: every object that takes part in the adjustment, in registration order,
// which fixes the numbering of the unknowns. It does not own the objects.
class AdjObjectList {
 public:
  // Numbers of parameters of one group of objects.
  struct Counts {
    std::int32_t total = 0;
    std::int32_t observed = 0;
    std::int32_t eliminated = 0;
  };

  // Makes the object's records, gives it the next free unknown number and lists it. Throws
  // std::bad_alloc when there is no memory for the records.
  void add(AdjObject& object);
  // The same for all objects of a list, whose records the workers make.
  template <class T>
  void add_all(const OwnedList<T>& objects) {
    constexpr std::size_t kGrain = 1024;
    const auto make = [&](std::size_t begin, std::size_t end, std::size_t) {
      for (std::size_t slot = begin; slot < end; ++slot) {
        if (T* const object = objects[static_cast<std::int32_t>(slot)]) object->init_params();
      }
    };
    for_each_range(static_cast<std::size_t>(objects.num_slots()), kGrain, make);
    for (T& object : objects) list(object);
  }
  std::int32_t num_objects() const { return static_cast<std::int32_t>(objects_.size()); }
  AdjObject& operator[](std::int32_t i) const { return *objects_[static_cast<std::size_t>(i)]; }
  std::int32_t num_unknowns() const { return num_unknowns_; }

  std::int32_t num_constraints() const { return num_constraints_; }
  std::int32_t count_state(ParamState state) const {
    return num_in_state_[static_cast<std::size_t>(state)];
  }
  void add_constraints(NormalMatrix& normal, Vector& rhs, double& lPl) const;
  void add_weights(NormalMatrix& normal, Vector& rhs, double& lPl) const;
  void apply_corrections(const Vector& corrections);
  // The numbers of the unknowns that are held, ascending.
  const std::vector<std::int32_t>& eliminated() const { return eliminated_; }
  // The object that an unknown is a parameter of.
  const AdjObject& object_of(std::int32_t unknown) const;

  // Objects of one class that stand together: [begin, end).
  struct Run {
    std::int32_t begin;
    std::int32_t end;
  };
  // Calls `visit(run)` for all runs of objects of class T, in order.
  template <class T, class Visit>
  void for_each_run(Visit visit) const {
    // One look at the class tree serves all objects of a run.
    for (const Run& run : runs_) {
      if (dynamic_cast<const T*>(&(*this)[run.begin]) != nullptr) visit(run);
    }
  }
  // Calls `visit(const T&)` for every listed object of class T, in order.
  template <class T, class Visit>
  void for_each(Visit visit) const {
    for_each_run<T>([&](const Run& run) {
      for (std::int32_t i = run.begin; i < run.end; ++i) visit(static_cast<const T&>((*this)[i]));
    });
  }
  template <class T>
  Counts count_group() const {
    Counts counts;
    for_each<T>([&counts](const T& object) {
      counts.total += static_cast<std::int32_t>(object.num_params());
      counts.observed += object.count_state(ParamState::observed);
      counts.eliminated += object.count_state(ParamState::eliminated);
    });
    return counts;
  }
  // The printed table of unknowns.
  void print_table(TextWriter& out) const;

 private:
  // Gives an object that has its records the next free unknown number.
  void list(AdjObject& object);

  std::vector<AdjObject*> objects_;
  std::vector<const AdjObject*> constrained_;  // those that have constraints
  std::vector<const AdjObject*> weighted_;     // those that have a parameter with a weight
  std::vector<Run> runs_;
  std::vector<std::int32_t> eliminated_;
  std::int32_t num_unknowns_ = 0;
  std::int32_t num_constraints_ = 0;
  std::array<std::int32_t, 3> num_in_state_{};
};

}  // namespace vorn
