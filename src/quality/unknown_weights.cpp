#include "quality/unknown_weights.h"

#include "driver/bundle_project.h"

namespace vorn {

UnknownWeights::UnknownWeights(const BundleProject& project, const NormalMatrix& normal)
    : image_diagonal_(normal.size()),
      own_weights_(normal.size()),
      roles_(static_cast<std::size_t>(normal.size()), UnknownRole::active) {
  own_weights_.zero();
  for (std::int32_t u = 0; u < size(); ++u) image_diagonal_[u] = normal.at(u, u);
  for (std::int32_t i = 0; i < project.unknowns.num_objects(); ++i) {
    const AdjObject& object = project.unknowns[i];
    for (std::int32_t k = 0; k < static_cast<std::int32_t>(object.num_params()); ++k) {
      const std::int32_t u = object.index + k;
      const ParamRecord& parameter = object.param(k);
      if (parameter.state == ParamState::observed) own_weights_[u] = parameter.weight;
      UnknownRole& role = roles_[static_cast<std::size_t>(u)];
      if (parameter.state == ParamState::eliminated) {
        role = UnknownRole::fixed;
      } else if (!(diagonal(u) > 0.0)) {  // negated: what is not a number counts as nothing
        role = UnknownRole::unobserved;
      }
    }
  }
}

}  // namespace vorn
