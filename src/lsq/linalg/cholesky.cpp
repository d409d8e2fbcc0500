#include "lsq/linalg/cholesky.h"

#include <cmath>

namespace vorn {
namespace {

double dot(const double* a, const double* b, std::int32_t n) {
  double sum = 0.0;
  for (std::int32_t k = 0; k < n; ++k) sum += a[k] * b[k];
  return sum;
}

}  // namespace

int cholesky(Matrix& n, Vector& p) {
  if (n.rows() != n.cols()) return -1;
  const std::int32_t size = n.rows();
  p.resize(size);
  for (std::int32_t i = 0; i < size; ++i) {
    const double d = n[i][i] - dot(n[i], n[i], i);
    p[i] = d;
    // Negated, so that a pivot that is not a number fails.
    if (!(d > 0.0)) return i + 1;
    p[i] = std::sqrt(d);
    for (std::int32_t j = i + 1; j < size; ++j) {
      n[j][i] = (n[i][j] - dot(n[i], n[j], i)) / p[i];
    }
  }
  return 0;
}

int back_substitution(const Matrix& n, const Vector& p, const Vector& b, Vector& x) {
  if (n.rows() != n.cols()) return -1;
  const std::int32_t size = n.rows();
  if (p.size() != size) return -2;
  if (b.size() != size) return -3;
  x.resize(size);
  // L y = b, with y in the place of x.
  for (std::int32_t i = 0; i < size; ++i) x[i] = (b[i] - dot(n[i], x.data(), i)) / p[i];
  // L' x = y.
  for (std::int32_t i = size - 1; i >= 0; --i) {
    double sum = x[i];
    for (std::int32_t k = i + 1; k < size; ++k) sum -= n[k][i] * x[k];
    x[i] = sum / p[i];
  }
  return 0;
}

int invert_from_cholesky(Matrix& n, const Vector& p) {
  if (n.rows() != n.cols()) return -1;
  const std::int32_t size = n.rows();
  if (p.size() != size) return -2;
  for (std::int32_t i = size - 1; i >= 0; --i) {
    double sum = 1.0 / p[i];
    for (std::int32_t k = i + 1; k < size; ++k) sum -= n[k][i] * n[i][k];
    n[i][i] = sum / p[i];
    for (std::int32_t j = i - 1; j >= 0; --j) {
      sum = 0.0;
      for (std::int32_t k = j + 1; k < i; ++k) sum -= n[k][j] * n[k][i];
      for (std::int32_t k = i; k < size; ++k) sum -= n[k][j] * n[i][k];
      n[j][i] = sum / p[j];
    }
  }
  return 0;
}

}  // namespace vorn
