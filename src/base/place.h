#pragma once

#include <cstddef>
#include <cstdint>

namespace vorn {

// Where a number of an unknown, point, block or image, which is never negative, stands in a vector.
inline std::size_t place(std::int32_t number) { return static_cast<std::size_t>(number); }

}  // namespace vorn
