#pragma once

// Vectors of VORN_LANES numbers, and what kernels do with them (kernels_impl.h).
//
// Sums and products are written on GCC's vector types, so that the compiler schedules and allocates
// registers; intrinsics serve fused operations and rows shorter than a vector. All memory is
// accessed unaligned: nothing here depends on the alignment of the stack.

#include <cstddef>
#include <cstdint>

#include "lsq/linalg/kernels.h"

#if VORN_FUSED
#include <immintrin.h>
#endif

namespace vorn {
namespace {

using Index = std::ptrdiff_t;
constexpr Index kLanes = VORN_LANES;

using Lanes = double __attribute__((vector_size(VORN_LANES * sizeof(double))));
// A typedef, because Clang drops the alignment of an alias declaration.
typedef double LanesInMemory
    __attribute__((vector_size(VORN_LANES * sizeof(double)), aligned(sizeof(double)), may_alias));

inline Lanes load(const double* p) { return *reinterpret_cast<const LanesInMemory*>(p); }
inline void store(double* p, Lanes v) { *reinterpret_cast<LanesInMemory*>(p) = v; }

// a * b + c and c - a * b, rounded once where the processor can, else twice.
#if VORN_FUSED
#if VORN_LANES == 8
inline Lanes multiply_add(Lanes a, Lanes b, Lanes c) { return _mm512_fmadd_pd(a, b, c); }
inline Lanes subtract_product(Lanes c, Lanes a, Lanes b) { return _mm512_fnmadd_pd(a, b, c); }
#else
inline Lanes multiply_add(Lanes a, Lanes b, Lanes c) { return _mm256_fmadd_pd(a, b, c); }
inline Lanes subtract_product(Lanes c, Lanes a, Lanes b) { return _mm256_fnmadd_pd(a, b, c); }
#endif
inline double multiply_add(double a, double b, double c) { return __builtin_fma(a, b, c); }
inline double subtract_product(double c, double a, double b) { return __builtin_fma(-a, b, c); }
#else
template <class T>
inline T multiply_add(T a, T b, T c) {
  return a * b + c;
}
template <class T>
inline T subtract_product(T c, T a, T b) {
  return c - a * b;
}
#endif

// The same number in all lanes, and the first `count` numbers of memory, zeros behind them; nothing
// behind them is read.
#if VORN_LANES == 8
inline Lanes spread(double x) { return _mm512_set1_pd(x); }
inline Lanes load_some(const double* p, Index count) {
  return _mm512_maskz_loadu_pd(static_cast<__mmask8>((1U << count) - 1U), p);
}
#elif VORN_LANES == 4
inline Lanes spread(double x) { return _mm256_set1_pd(x); }
inline Lanes load_some(const double* p, Index count) {
  const __m256i lane = _mm256_setr_epi64x(0, 1, 2, 3);
  return _mm256_maskload_pd(p, _mm256_cmpgt_epi64(_mm256_set1_epi64x(count), lane));
}
#else
inline Lanes spread(double x) { return Lanes{x, x}; }
inline Lanes load_some(const double* p, Index count) {
  return Lanes{count > 0 ? p[0] : 0.0, count > 1 ? p[1] : 0.0};
}
#endif

// Where a point, given by its bit, has its columns among those of a piece that it meets.
inline Index columns_of(std::uint64_t points, std::uint64_t point) {
  return Index{kPointColumns} * __builtin_popcountll(points & (point - 1));
}

}  // namespace
}  // namespace vorn
