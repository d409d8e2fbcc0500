#pragma once

#include <cfenv>

#if defined(__i386__) || defined(__x86_64__)
#include <xmmintrin.h>
#define VORN_HAS_X87 1
#endif

namespace vorn {

// Floating-point arithmetic as the library needs it, for the life of the object: rounding to
// nearest, no exception trapped, gradual underflow and, on x86, the full 64-bit significand of the
// x87 unit. A host may come with any other state: 24-bit significands (Direct3D sets them),
// denormals flushed to zero, traps for divisions by zero. At the end its state returns, pending
// flags included: flags that this run has raised would otherwise trap in the host.
class FloatingPointState {
 public:
  FloatingPointState() {
    std::fegetenv(&host_);
    std::fesetenv(FE_DFL_ENV);
#ifdef VORN_HAS_X87
    // The default environment of 32-bit Windows has 53-bit significands or 64, by the C library.
    const unsigned short control = kX87Control;
    asm volatile("fninit\n\tfldcw %0" : : "m"(control));
    _mm_setcsr(kSseControl);
#endif
  }
  ~FloatingPointState() { std::fesetenv(&host_); }
  FloatingPointState(const FloatingPointState&) = delete;
  FloatingPointState& operator=(const FloatingPointState&) = delete;

 private:
#ifdef VORN_HAS_X87
  static constexpr unsigned short kX87Control = 0x037F;
  static constexpr unsigned int kSseControl = 0x1F80;
#endif

  std::fenv_t host_;
};

}  // namespace vorn
