#include "quality/diagnosis_algebra.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <utility>
#include <vector>

namespace vorn {
namespace {

constexpr int kMaxSweeps = 60;
constexpr double kRounding = 1e-16;

// Cosine and sine of the rotation that makes the off-diagonal element pq of [pp pq; pq qq] zero.
struct Rotation {
  double c;
  double s;
};
Rotation rotation_of(double pp, double pq, double qq) {
  const double theta = (qq - pp) / (2 * pq);
  const double t = (theta >= 0 ? 1.0 : -1.0) / (std::fabs(theta) + std::sqrt(1 + theta * theta));
  const double c = 1 / std::sqrt(1 + t * t);
  return {c, t * c};
}

void rotate(const Rotation& by, double& p, double& q) {
  const double old = p;
  p = by.c * old - by.s * q;
  q = by.s * old + by.c * q;
}

std::vector<std::int32_t> ascending_order(const Vector& values) {
  std::vector<std::int32_t> order(static_cast<std::size_t>(values.size()));
  std::iota(order.begin(), order.end(), 0);
  std::sort(order.begin(), order.end(),
            [&](std::int32_t a, std::int32_t b) { return values[a] < values[b]; });
  return order;
}

// One sweep over the elements above the diagonal. False when none of them was left to rotate.
bool sweep(Matrix& a, Matrix& vectors) {
  const std::int32_t n = a.rows();
  bool rotated = false;
  for (std::int32_t p = 0; p < n; ++p) {
    for (std::int32_t q = p + 1; q < n; ++q) {
      const double limit = kRounding * std::sqrt(std::fabs(a[p][p] * a[q][q]));
      if (!(std::fabs(a[p][q]) > limit) || a[p][q] == 0.0) continue;
      rotated = true;
      const Rotation by = rotation_of(a[p][p], a[p][q], a[q][q]);
      for (std::int32_t k = 0; k < n; ++k) rotate(by, a[k][p], a[k][q]);
      for (std::int32_t k = 0; k < n; ++k) rotate(by, a[p][k], a[q][k]);
      for (std::int32_t k = 0; k < n; ++k) rotate(by, vectors[k][p], vectors[k][q]);
      a[p][q] = 0.0;
      a[q][p] = 0.0;
    }
  }
  return rotated;
}

}  // namespace

SymmetricEigen eigen_of_symmetric(Matrix a) {
  const std::int32_t n = a.rows();
  a.symmetrise();
  Matrix vectors(n, n);
  vectors.zero();
  for (std::int32_t i = 0; i < n; ++i) vectors[i][i] = 1.0;
  for (int k = 0; k < kMaxSweeps && sweep(a, vectors); ++k) {
  }
  Vector diagonal(n);
  for (std::int32_t i = 0; i < n; ++i) diagonal[i] = a[i][i];
  const std::vector<std::int32_t> order = ascending_order(diagonal);
  SymmetricEigen eigen{Vector(n), Matrix(n, n)};
  for (std::int32_t j = 0; j < n; ++j) {
    const std::int32_t from = order[static_cast<std::size_t>(j)];
    eigen.values[j] = diagonal[from];
    for (std::int32_t i = 0; i < n; ++i) eigen.vectors[i][j] = vectors[i][from];
  }
  return eigen;
}

void RowTriangle::add(Row7 row) {
  for (std::size_t k = 0; k < row.size(); ++k) {
    if (row[k] == 0.0) continue;
    Row7& diagonal = rows_[k];
    const double length = std::hypot(diagonal[k], row[k]);
    const double c = diagonal[k] / length;
    const double s = row[k] / length;
    for (std::size_t j = k; j < row.size(); ++j) {
      const double old = diagonal[j];
      diagonal[j] = c * old + s * row[j];
      row[j] = c * row[j] - s * old;
    }
  }
}

namespace {

// Directions with T'DT = I as rows, from the eigenvectors of D scaled to a unit diagonal; those
// without D have none.
std::vector<Row7> unit_directions(const Square7& d, Square7& without) {
  Matrix scaled(7, 7);
  Row7 scale;
  for (std::size_t i = 0; i < 7; ++i) scale[i] = d[i][i] > 0.0 ? 1 / std::sqrt(d[i][i]) : 0.0;
  for (std::int32_t i = 0; i < 7; ++i) {
    for (std::int32_t j = 0; j < 7; ++j) {
      const auto r = static_cast<std::size_t>(i);
      const auto c = static_cast<std::size_t>(j);
      scaled[i][j] = d[r][c] * scale[r] * scale[c];
    }
  }
  const SymmetricEigen eigen = eigen_of_symmetric(std::move(scaled));
  constexpr double kNothing = 1e-12;
  std::vector<Row7> directions;
  std::size_t num_without = 0;
  for (std::int32_t k = 0; k < 7; ++k) {
    Row7 direction;
    for (std::int32_t i = 0; i < 7; ++i) {
      const auto at = static_cast<std::size_t>(i);
      direction[at] = eigen.vectors[i][k] * (scale[at] > 0.0 ? scale[at] : 1.0);
    }
    if (!(eigen.values[k] > kNothing)) {
      without[num_without++] = direction;
      continue;
    }
    for (double& v : direction) v /= std::sqrt(eigen.values[k]);
    directions.push_back(direction);
  }
  return directions;
}

double product(const Row7& a, const Row7& b) {
  return std::inner_product(a.begin(), a.end(), b.begin(), 0.0);
}

}  // namespace

Eigen7 generalised_eigen(const RowTriangle& r, const Square7& d) {
  Square7 without{};
  std::vector<Row7> directions = unit_directions(d, without);
  std::vector<Row7> images(directions.size());  // R times the directions
  for (std::size_t k = 0; k < directions.size(); ++k) {
    for (std::size_t i = 0; i < 7; ++i) images[k][i] = product(r.rows()[i], directions[k]);
  }
  bool rotated = true;
  for (int n = 0; n < kMaxSweeps && rotated; ++n) {
    rotated = false;
    for (std::size_t p = 0; p < images.size(); ++p) {
      for (std::size_t q = p + 1; q < images.size(); ++q) {
        const double pp = product(images[p], images[p]);
        const double qq = product(images[q], images[q]);
        const double pq = product(images[p], images[q]);
        if (!(std::fabs(pq) > kRounding * std::sqrt(pp * qq)) || pq == 0.0) continue;
        rotated = true;
        const Rotation by = rotation_of(pp, pq, qq);
        for (std::size_t i = 0; i < 7; ++i) {
          rotate(by, images[p][i], images[q][i]);
          rotate(by, directions[p][i], directions[q][i]);
        }
      }
    }
  }
  std::vector<std::pair<double, Row7>> pairs;
  for (std::size_t k = 0; k < images.size(); ++k) {
    pairs.emplace_back(product(images[k], images[k]), directions[k]);
  }
  for (std::size_t k = 0; pairs.size() < 7; ++k) pairs.emplace_back(1.0, without[k]);
  std::stable_sort(pairs.begin(), pairs.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  Eigen7 eigen;
  for (std::size_t k = 0; k < 7; ++k) std::tie(eigen.values[k], eigen.vectors[k]) = pairs[k];
  return eigen;
}

void separate_rows(Matrix& rows) {
  constexpr double kVanished = 1e-6;
  const std::int32_t n = rows.cols();
  std::vector<bool> done(static_cast<std::size_t>(rows.rows()), false);
  std::vector<std::int32_t> kept;
  while (true) {
    std::int32_t pivot_row = -1;
    std::int32_t pivot = 0;
    double largest = kVanished;
    for (std::int32_t r = 0; r < rows.rows(); ++r) {
      if (done[static_cast<std::size_t>(r)]) continue;
      for (std::int32_t c = 0; c < n; ++c) {
        if (!(std::fabs(rows[r][c]) > largest)) continue;
        largest = std::fabs(rows[r][c]);
        pivot_row = r;
        pivot = c;
      }
    }
    if (pivot_row < 0) break;
    done[static_cast<std::size_t>(pivot_row)] = true;
    kept.push_back(pivot_row);
    for (std::int32_t r = 0; r < rows.rows(); ++r) {
      const double factor = rows[r][pivot] / rows[pivot_row][pivot];
      if (r == pivot_row || factor == 0.0) continue;
      for (std::int32_t c = 0; c < n; ++c) rows[r][c] -= factor * rows[pivot_row][c];
      rows[r][pivot] = 0.0;
    }
  }
  Matrix result(static_cast<std::int32_t>(kept.size()), n);
  for (std::int32_t k = 0; k < result.rows(); ++k) {
    const double* const from = rows[kept[static_cast<std::size_t>(k)]];
    const double length = std::sqrt(std::inner_product(from, from + n, from, 0.0));
    for (std::int32_t c = 0; c < n; ++c) result[k][c] = from[c] / length;
  }
  rows = std::move(result);
}

}  // namespace vorn
