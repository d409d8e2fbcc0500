#pragma once

#if defined(__i386__) || defined(__x86_64__)
#include <xmmintrin.h>
#else
#include <cfenv>
#endif

namespace vorn {

// Floating-point arithmetic as the library needs it, for the life of the object: rounding to
// nearest, no exception trapped, gradual underflow and, on x86, the full 64-bit significand of the
// x87 unit. A host may come with any other state: 24-bit significands (Direct3D sets them),
// denormals flushed to zero, traps for divisions by zero. At the end its state returns, pending
// flags included: flags that this run has raised would otherwise trap in the host.
#if defined(__i386__) || defined(__x86_64__)

// The C libraries of Windows give back only a part of the state, so it is moved here.
class FloatingPointState {
 public:
  FloatingPointState() : sse_(_mm_getcsr()) {
    asm volatile("fnstenv %0\n\tfninit" : "=m"(x87_));
    _mm_setcsr(kSseDefault);
  }
  ~FloatingPointState() {
    asm volatile("fldenv %0" : : "m"(x87_));
    _mm_setcsr(sse_);
  }
  FloatingPointState(const FloatingPointState&) = delete;
  FloatingPointState& operator=(const FloatingPointState&) = delete;

 private:
  static constexpr unsigned int kSseDefault = 0x1F80;

  unsigned char x87_[28];  // what fnstenv stores
  unsigned int sse_;
};

#else

class FloatingPointState {
 public:
  FloatingPointState() {
    std::fegetenv(&host_);
    std::fesetenv(FE_DFL_ENV);
  }
  ~FloatingPointState() { std::fesetenv(&host_); }
  FloatingPointState(const FloatingPointState&) = delete;
  FloatingPointState& operator=(const FloatingPointState&) = delete;

 private:
  std::fenv_t host_;
};

#endif

}  // namespace vorn
