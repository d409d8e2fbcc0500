#pragma once

namespace vorn {

// Principal distance and principal point of a camera [m].
struct InnerOrientation {
  double c;
  double xp;
  double yp;
};

}  // namespace vorn
