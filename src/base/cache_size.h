#pragma once

#include <cstddef>

namespace vorn {

// The second-level cache of a core [bytes]: as the system tells, else what processors at hand have
// at least.
std::size_t second_level_cache();

}  // namespace vorn
