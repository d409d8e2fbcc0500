#pragma once

#include <cstdint>

namespace vorn {

class ObjectPoint;

// An object point that would have sunk a damped iteration, and what was done about it.
struct HeldPoint {
  enum class Reason : std::uint8_t {
    at_centre,      // approximate coordinates in the plane of a projection centre: intersected anew
    behind,         // approximate coordinates behind an image: intersected anew
    crossing,       // its step led behind an image, where the fit was worse: held at its place
    parallel_rays,  // its rays are nearly parallel: held where they do not fix it
    still_behind,   // behind an image at the end
  };
  const ObjectPoint* point = nullptr;
  Reason reason = Reason::behind;
  std::int32_t iterations = 0;  // in which it was held
};

}  // namespace vorn
