#include "lsq/adj_object_list.h"

#include <new>

#include "base/workers.h"
#include "lsq/ls_params.h"

namespace vorn {

void AdjObjectList::add(AdjObject& object) {
  object.init_params();
  // An object without its unknowns would leave the adjustment in silence.
  if (!object.has_params_allocated()) throw std::bad_alloc();
  object.index = num_unknowns_;
  objects_.push_back(&object);
  num_unknowns_ += static_cast<std::int32_t>(object.num_params());
  if (const std::int32_t constraints = object.get_num_constraints(); constraints != 0) {
    constrained_.push_back(&object);
    num_constraints_ += constraints;
  }
  for (std::size_t state = 0; state < num_in_state_.size(); ++state) {
    num_in_state_[state] += object.count_state(static_cast<ParamState>(state));
  }
  const auto num_free = static_cast<std::uint32_t>(object.count_state(ParamState::unknown));
  if (num_free != object.num_params()) weighted_.push_back(&object);
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
