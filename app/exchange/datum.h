#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "app/exchange/reconstruction.h"

namespace vorn::exchange {

// A coordinate that is held: of which image or point, and which axis.
struct HeldCoordinate {
  std::int32_t index = -1;
  std::size_t axis = 0;
};

// The image with most points, all of which is held, and the coordinate of the projection centre of
// a second image that takes the scale: the one whose distance times common points is largest, and
// of it the coordinate that differs most. -1 where there is none.
struct ImageDatum {
  std::int32_t image = -1;
  HeldCoordinate second;
};
ImageDatum choose_image_datum(const Reconstruction& model);

// Three coordinates each of two points far apart, and one of a third point far from their line.
// Empty when there are fewer than three points.
std::vector<HeldCoordinate> choose_point_datum(const Reconstruction& model);

}  // namespace vorn::exchange
