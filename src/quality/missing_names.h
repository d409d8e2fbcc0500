#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vorn {

class BundleProject;

// Tell on the error stream what a user's list names and the project does not have: a wrong
// identifier would otherwise change datum or observations without a word. `list` begins the
// sentences.
void tell_missing_points(std::string_view list, const std::vector<std::string>& ids,
                         const BundleProject& project);
void tell_missing_observations(std::string_view list, std::size_t listed, std::int64_t excluded);

}  // namespace vorn
