#include "lsq/adj_object_list.h"

#include <algorithm>
#include <new>
#include <typeinfo>

#include "base/workers.h"
#include "lsq/ls_params.h"

namespace vorn {

void AdjObjectList::add(AdjObject& object) {
  object.init_params();
  list(object);
}

void AdjObjectList::list(AdjObject& object) {
  // An object without its unknowns would leave the adjustment in silence.
  if (!object.has_params_allocated()) throw std::bad_alloc();
  object.index = num_unknowns_;
  const AdjObject* const last = objects_.empty() ? nullptr : objects_.back();
  if (last == nullptr || typeid(object) != typeid(*last)) {
    runs_.push_back({num_objects(), num_objects()});
  }
  ++runs_.back().end;
  objects_.push_back(&object);
  const auto num_params = static_cast<std::int32_t>(object.num_params());
  std::int32_t num_weighted = 0;
  for (std::int32_t k = 0; k < num_params; ++k) {
    const ParamState state = object.param(k).state;
    ++num_in_state_[static_cast<std::size_t>(state)];
    if (state == ParamState::eliminated) eliminated_.push_back(num_unknowns_ + k);
    if (state != ParamState::unknown) ++num_weighted;
  }
  if (num_weighted > 0) weighted_.push_back(&object);
  num_unknowns_ += num_params;
  if (const std::int32_t constraints = object.get_num_constraints(); constraints != 0) {
    constrained_.push_back(&object);
    num_constraints_ += constraints;
  }
}

const AdjObject& AdjObjectList::object_of(std::int32_t unknown) const {
  const auto behind =
      std::upper_bound(objects_.begin(), objects_.end(), unknown,
                       [](std::int32_t u, const AdjObject* object) { return u < object->index; });
  return **(behind - 1);
}

void AdjObjectList::add_constraints(NormalMatrix& normal, Vector& rhs, double& lPl) const {
  for (const AdjObject* object : constrained_) object->add_constraints(normal, rhs, lPl);
}

void AdjObjectList::add_weights(NormalMatrix& normal, Vector& rhs, double& lPl) const {
  for (const AdjObject* object : weighted_) object->add_weights(normal, rhs, lPl);
}

void AdjObjectList::apply_corrections(const Vector& corrections) {
  constexpr std::size_t kGrain = 1024;
  for_each_range(objects_.size(), kGrain, [&](std::size_t begin, std::size_t end, std::size_t) {
    for (std::size_t i = begin; i < end; ++i) objects_[i]->apply_corrections(corrections);
  });
}

void AdjObjectList::print_table(TextWriter& out) const {
  constexpr NumberFormat kSetting = scientific(2, 8);
  const LSParams& settings = ls_params();
  out << "Unknown parameters\n"
         "==================\n"
         "Std. dev. of unit weight             :  "
      << kSetting(settings.sigma0_apriori)
      << "\n"
         "Limit of std. dev. to indicate that\n"
         "  unknown should be eliminated       :  "
      << kSetting(settings.smin)
      << "\n"
         "  value is an unknown                :  "
      << kSetting(settings.smax)
      << "\n"
         "Weight for suppression of unknowns   :  "
      << kSetting(settings.weight_suppression)
      << "\n"
         "State: unk=unknown, obs=observed, eli=eliminated\n"
         "  Index   Name               ID   State      Weight\n";
  for (const AdjObject* object : objects_) object->print_unknowns(out);
}

}  // namespace vorn
