#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "geometry/vec3.h"

namespace vorn::exchange {

enum class Shape : std::uint8_t { none, point, line, polygon };
enum class FieldKind : std::uint8_t { text, integer, real };

struct Field {
  const char* name;
  FieldKind kind;
};
// A real value that is not finite is missing.
using FieldValue = std::variant<std::string, std::int64_t, double>;

struct Feature {
  std::vector<Vec3> vertices;  // of a polygon: the first one is the last one, too
  std::vector<FieldValue> values;
};

// A table of features, which geographic information systems open as a layer.
struct Layer {
  const char* name;
  Shape shape;
  std::vector<Field> fields;
  std::vector<Feature> features;
};

}  // namespace vorn::exchange
