#pragma once

#include <cstdint>

#include "lsq/adj_object.h"
#include "text/token_reader.h"

namespace vorn {

// Reads the value of parameter k or its standard deviation, which must not be negative. Findings
// call it by the name that the object gives it.
bool read_parameter(TokenReader& in, const AdjObject& owner, std::int32_t k, double& value);
bool read_std_dev(TokenReader& in, const AdjObject& owner, std::int32_t k, double& std_dev);

}  // namespace vorn
