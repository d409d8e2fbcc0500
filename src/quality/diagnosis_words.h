#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "quality/diagnosis.h"

namespace vorn {

// The pieces that the sentences of findings are made of.

// "a", "a and b", "a, b and 5 more".
[[nodiscard]] std::string enumerated(const std::vector<std::string>& names);
// Identifiers behind the word for their type: "point 17", "points 17, 18 and 19".
[[nodiscard]] std::string counted(std::string_view type, const std::vector<std::string>& ids);
[[nodiscard]] std::vector<std::string> ids_of(const std::vector<DiagnosedItem>& items);

}  // namespace vorn
