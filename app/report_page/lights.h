#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "quality/results.h"

namespace vorn::app {

// One row of what a client looks at first: a figure, the limits it is held against, and what to do.
struct Light {
  enum class Colour { green, amber, red, grey };  // grey: cannot be judged

  std::string_view name;
  std::string_view title;
  Colour colour = Colour::grey;
  std::string value;
  std::string_view limits;
  std::string_view sentence;
};

// "green", "amber", "red", "grey".
[[nodiscard]] std::string_view colour_name(Light::Colour colour);

// Cells of a camera's format in which image points are counted.
constexpr int kCoverageColumns = 8;
constexpr int kCoverageRows = 6;

// The share of these cells that hold image points, at each camera with free additional parameters;
// the smallest counts. Not a number where there is no such camera.
[[nodiscard]] double coverage(const QualityResults& results);

// All lights, in their order.
[[nodiscard]] std::vector<Light> find_lights(const QualityResults& results);

}  // namespace vorn::app
