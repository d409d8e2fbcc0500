#pragma once

#include <ctime>

namespace vorn {

// Measures the process's cpu time from its construction on.
class CpuClock {
 public:
  // Elapsed cpu time [s].
  double seconds() const {
    return static_cast<double>(std::clock() - start_) / static_cast<double>(CLOCKS_PER_SEC);
  }

 private:
  std::clock_t start_ = std::clock();
};

}  // namespace vorn
