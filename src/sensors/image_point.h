#pragma once

#include <cstddef>
#include <string>

namespace vorn {

class ObjectPoint;

// Words of the record of an image point: its identifier, x, y and their standard deviations.
inline constexpr std::size_t kWordsPerImagePoint = 5;

// One measured image point, in the measuring system of its camera: metres for frame cameras, pixels
// for CCD and pushbroom cameras.
struct ImagePoint {
  std::string id;  // of the object point that it images
  double x = 0;
  double y = 0;
  double sx = 0;  // a-priori standard deviations
  double sy = 0;
  double weight_factor = 1.0;  // on the weights; robust estimation lowers it
  // The object point, once the project has looked it up; before that, its identifier says which it
  // is.
  ObjectPoint* object_point = nullptr;
};

}  // namespace vorn
