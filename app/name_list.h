#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

namespace vorn::app {

// "a, b, c", the first names of many: "a, b, ...".
inline std::string first_names(const std::vector<std::string>& names, std::size_t most = 10) {
  std::string text;
  for (std::size_t i = 0; i < std::min(names.size(), most); ++i) {
    text += (i > 0 ? ", " : "") + names[i];
  }
  return names.size() > most ? text + (most > 0 ? ", ..." : "...") : text;
}

}  // namespace vorn::app
