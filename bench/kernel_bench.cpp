// The kernels of the normal equations: dense Cholesky factorisation, beside OpenBLAS where it is
// installed, and the elimination of a batch of object points.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include "base/cache_size.h"
#include "lsq/linalg/kernels.h"
#include "lsq/linalg/tile_inverse.h"
#include "lsq/linalg/tile_matrix.h"

#ifdef VORN_BENCH_LAPACK
extern "C" void dpotrf_(const char* uplo, const int* n, double* a, const int* lda, int* info);
#endif

namespace {

double element(std::int32_t i, std::int32_t j) {
  return 1.0 / (1.0 + std::abs(i - j)) + (i == j ? 2.0 : 0.0);
}

// The name that the system gives the processor.
std::string processor() {
  std::ifstream info("/proc/cpuinfo");
  for (std::string line; std::getline(info, line);) {
    if (line.starts_with("model name")) return line.substr(line.find(':') + 2);
  }
  return "unknown";
}

// Which processor a figure belongs to stands above the figures.
[[maybe_unused]] const bool told_processor = [] {
  benchmark::AddCustomContext("processor", processor());
  benchmark::AddCustomContext("second-level cache that blocks are made for [KiB]",
                              std::to_string(vorn::second_level_cache() / 1024));
  return true;
}();

void report_flops(benchmark::State& state, double flops) {
  state.counters["flop/s"] =
      benchmark::Counter(flops, benchmark::Counter::kIsIterationInvariantRate);
}

void dense_cholesky(benchmark::State& state) {
  const auto n = static_cast<std::int32_t>(state.range(0));
  const auto tile_size = static_cast<std::int32_t>(state.range(1));
  vorn::TilePattern pattern((n + tile_size - 1) / tile_size);
  for (std::int32_t r = 0; r < pattern.num_tiles(); ++r) {
    for (std::int32_t c = 0; c <= r; ++c) pattern.mark(r, c);
  }
  vorn::TileMatrix matrix;
  if (!matrix.set_structure(n, tile_size, pattern)) state.SkipWithError("too large");
  for (auto _ : state) {
    state.PauseTiming();
    matrix.zero();
    for (std::int32_t j = 0; j < n; ++j) {
      for (std::int32_t i = j; i < n; ++i) matrix.element(i, j) = element(i, j);
    }
    state.ResumeTiming();
    if (matrix.factorise() != 0) state.SkipWithError("not positive definite");
  }
  state.SetLabel(vorn::kernels().name);
  report_flops(state, std::pow(static_cast<double>(n), 3) / 3);
}
BENCHMARK(dense_cholesky)
    ->Args({1000, 96})
    ->Args({4000, 48})
    ->Args({4000, 96})
    ->Unit(benchmark::kMillisecond);

// All elements of the inverse of a dense matrix: the selected inverse on a full pattern.
void dense_inverse(benchmark::State& state) {
  const auto n = static_cast<std::int32_t>(state.range(0));
  constexpr std::int32_t kTile = 96;
  vorn::TilePattern pattern((n + kTile - 1) / kTile);
  for (std::int32_t r = 0; r < pattern.num_tiles(); ++r) {
    for (std::int32_t c = 0; c <= r; ++c) pattern.mark(r, c);
  }
  vorn::TileMatrix matrix;
  if (!matrix.set_structure(n, kTile, pattern)) state.SkipWithError("too large");
  matrix.zero();
  for (std::int32_t j = 0; j < n; ++j) {
    for (std::int32_t i = j; i < n; ++i) matrix.element(i, j) = element(i, j);
  }
  if (matrix.factorise() != 0) state.SkipWithError("not positive definite");
  for (auto _ : state) {
    vorn::TileInverse inverse;
    if (!inverse.compute(matrix)) state.SkipWithError("too large");
  }
  state.SetLabel(vorn::kernels().name);
  report_flops(state, std::pow(static_cast<double>(n), 3) * 2 / 3);
}
BENCHMARK(dense_inverse)->Arg(1000)->Arg(4000)->Unit(benchmark::kMillisecond);

#ifdef VORN_BENCH_LAPACK
void openblas_dpotrf(benchmark::State& state) {
  const auto n = static_cast<int>(state.range(0));
  std::vector<double> a(static_cast<std::size_t>(n) * static_cast<std::size_t>(n));
  for (auto _ : state) {
    state.PauseTiming();
    for (int j = 0; j < n; ++j) {
      for (int i = 0; i < n; ++i) {
        a[static_cast<std::size_t>(j) * static_cast<std::size_t>(n) + static_cast<std::size_t>(i)] =
            element(i, j);
      }
    }
    state.ResumeTiming();
    int info = 0;
    dpotrf_("L", &n, a.data(), &n, &info);
    if (info != 0) state.SkipWithError("not positive definite");
  }
  report_flops(state, std::pow(static_cast<double>(n), 3) / 3);
}
BENCHMARK(openblas_dpotrf)->Arg(1000)->Arg(4000)->Unit(benchmark::kMillisecond);
#endif

// 64 points that all images of a close-range network see.
void eliminate_batch(benchmark::State& state) {
  constexpr std::int32_t kTile = 96;
  constexpr std::int32_t kPerTile = kTile / 6;
  const auto images = static_cast<std::int32_t>(state.range(0));
  const std::int32_t num_tiles = (images + kPerTile - 1) / kPerTile;
  vorn::TilePattern pattern(num_tiles);
  for (std::int32_t r = 0; r < num_tiles; ++r) {
    for (std::int32_t c = 0; c <= r; ++c) pattern.mark(r, c);
  }
  vorn::TileMatrix matrix;
  if (!matrix.set_structure(6 * images, kTile, pattern)) state.SkipWithError("too large");
  matrix.zero();
  std::vector<double> v(64 * 24, 0.5);
  std::vector<vorn::BatchPiece> pieces;
  for (std::int32_t i = 0; i < images; ++i) {
    pieces.push_back({~std::uint64_t{0}, v.data(), i / kPerTile, 6 * (i % kPerTile), 6});
  }
  const auto in_row = [&](std::int32_t row) {
    return vorn::TilePieces{pieces.data() + row * kPerTile,
                            pieces.data() + std::min((row + 1) * kPerTile, images)};
  };
  for (auto _ : state) {
    for (std::int32_t r = 0; r < num_tiles; ++r) {
      for (std::int32_t c = 0; c <= r; ++c) {
        vorn::kernels().subtract_pairs(matrix.tile(r, c), kTile, in_row(r), in_row(c));
      }
    }
  }
  report_flops(state, 64.0 * 216.0 * images * (images + 1) / 2);
}
BENCHMARK(eliminate_batch)->Arg(16)->Arg(200)->Unit(benchmark::kMicrosecond);

}  // namespace
