#include "lsq/param_reading.h"

#include <string>

namespace vorn {

bool read_parameter(TokenReader& in, const AdjObject& owner, std::int32_t k, double& value) {
  if (!in.listens()) return in.read(value);
  const std::string name = owner.get_param_name(k);
  return in.read(value, {name});
}

bool read_std_dev(TokenReader& in, const AdjObject& owner, std::int32_t k, double& std_dev) {
  if (!in.listens()) return in.read(std_dev);
  const std::string name = "the std. dev. of " + owner.get_param_name(k);
  return in.read(std_dev, {name, Range::not_negative});
}

}  // namespace vorn
