#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vorn {

// Why the checks before the adjustment remove an object.
enum class RemovalReason {
  too_few_rays,    // an object point that fewer than two images measure
  too_few_points,  // an image with fewer than three points
  unused,          // nothing refers to the object any more
};

// An object that is not there any more.
struct Removal {
  RemovalReason reason;
  std::string_view kind;  // "object point", "image", "camera", ...
  std::string id;
  std::int32_t count = 0;        // rays of the point, points of the image
  std::string geometry_id = {};  // of an image
  bool is_control = false;       // of an object point
};

}  // namespace vorn
