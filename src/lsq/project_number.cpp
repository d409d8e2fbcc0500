#include "lsq/project_number.h"

#include <utility>

#include "base/brought.h"

namespace vorn {

std::int32_t project_number(std::int32_t unknown) {
  const ProjectNumber& number = brought<ProjectNumber>();
  return number ? number(unknown) : unknown;
}

void use_project_numbers(ProjectNumber number) { brought<ProjectNumber>() = std::move(number); }

}  // namespace vorn
