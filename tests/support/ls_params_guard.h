#pragma once

#include "lsq/ls_params.h"

namespace vorn::test {

// Starts from the default least-squares parameters, which the whole process shares, and restores
// what was there.
class LSParamsGuard {
 public:
  LSParamsGuard() : saved_(ls_params()) { ls_params() = LSParams(); }
  ~LSParamsGuard() { ls_params() = saved_; }
  LSParamsGuard(const LSParamsGuard&) = delete;
  LSParamsGuard& operator=(const LSParamsGuard&) = delete;

 private:
  LSParams saved_;
};

}  // namespace vorn::test
