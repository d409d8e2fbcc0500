#pragma once

// Kernels that form the columns of a batch of object points from image points (kernels_impl.h).

#include "lsq/linalg/kernel_lanes.h"
#include "lsq/linalg/kernel_transpose.h"
#include "lsq/linalg/kernels.h"

namespace vorn {
namespace {

// G = L^-1 A_p'P of eight rays, 3 x 2: the columns of x and y, row r of ray k at [r][k].
struct Gains {
  double x[3][8];
  double y[3][8];
};

// L^-1 w for the columns of eight points.
inline void divide_gains(const double (&factors)[8][8], Index k, Lanes (&w)[3]) {
  const auto factor = [&](int i) { return load(factors[i] + k); };
  w[0] = w[0] * factor(0);
  w[1] = subtract_product(w[1], w[0], factor(3)) * factor(1);
  w[2] = subtract_product(subtract_product(w[2], w[0], factor(4)), w[1], factor(5)) * factor(2);
}

inline void find_gains(const PackedRays& rays, const double* factors, Gains& gains) {
  double of_points[8][8];
  const auto factor_of = [&](Index k) { return factors + Index{kFactorStride} * rays.points[k]; };
  transpose_rows(factor_of, of_points);
  for (Index k = 0; k < 8; k += VORN_LANES) {
    const Lanes weight_x = spread(1.0) / load(rays.cofactors + k);
    const Lanes weight_y = spread(1.0) / load(rays.cofactors + 8 + k);
    Lanes x[3];
    Lanes y[3];
    for (Index r = 0; r < 3; ++r) {
      x[r] = weight_x * load(rays.point_x + 8 * r + k);
      y[r] = weight_y * load(rays.point_y + 8 * r + k);
    }
    divide_gains(of_points, k, x);
    divide_gains(of_points, k, y);
    for (Index r = 0; r < 3; ++r) {
      store(gains.x[r] + k, x[r]);
      store(gains.y[r] + k, y[r]);
    }
  }
}

// V of one ray in one piece += its gains times its rows of A_r, eight elements each.
inline void add_ray(double* v, const double* x, const double* y, const Gains& gains, Index ray) {
  for (Index c = 0; c < kPieceWidth; c += VORN_LANES) {
    const Lanes in_x = load(x + c);
    const Lanes in_y = load(y + c);
    for (Index r = 0; r < 3; ++r) {
      double* const at = v + r * kPieceWidth + c;
      const Lanes with_x = multiply_add(in_x, spread(gains.x[r][ray]), load(at));
      store(at, multiply_add(in_y, spread(gains.y[r][ray]), with_x));
    }
  }
}

void add_columns(const RowPiece* pieces, std::int32_t num_pieces, const PackedRays& rays,
                 const double* factors) {
  Gains gains;
  find_gains(rays, factors, gains);
  for (const RowPiece* piece = pieces; piece != pieces + num_pieces; ++piece) {
    double x[8][8];
    double y[8][8];
    const auto rows_of = [&](const double* columns) {
      return [=](Index j, Index k) { return load(columns + 8 * (piece->column + j) + k); };
    };
    line_up(rows_of(rays.x), x[0], piece->width, 8, 8);
    line_up(rows_of(rays.y), y[0], piece->width, 8, 8);
    for (Index ray = 0; ray < rays.count; ++ray) {
      const std::uint64_t point = std::uint64_t{1} << rays.points[ray];
      add_ray(piece->v + columns_of(piece->points, point), x[ray], y[ray], gains, ray);
    }
  }
}

}  // namespace
}  // namespace vorn
