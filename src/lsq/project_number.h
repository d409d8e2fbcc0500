#pragma once

#include <cstdint>
#include <functional>

namespace vorn {

// The number of an unknown as the report shows it. It is that of this process, unless the process
// has but a share of the object points (`PointShare`) and has said how the whole project counts.
std::int32_t project_number(std::int32_t unknown);
using ProjectNumber = std::function<std::int32_t(std::int32_t unknown)>;
void use_project_numbers(ProjectNumber number);

}  // namespace vorn
