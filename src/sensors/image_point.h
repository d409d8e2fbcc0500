#pragma once

#include <string>

namespace vorn {

// One measured image point, in the measuring system of its camera: metres for frame cameras, pixels
// for CCD and pushbroom cameras.
struct ImagePoint {
  std::string id;  // of the object point that it images
  double x = 0;
  double y = 0;
  double sx = 0;  // a-priori standard deviations
  double sy = 0;
};

}  // namespace vorn
