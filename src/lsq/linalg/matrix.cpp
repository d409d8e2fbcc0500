#include "lsq/linalg/matrix.h"

#include <algorithm>

namespace vorn {

Vector& Vector::operator=(const Vector& other) {
  if (this == &other) return *this;
  resize(other.n_);
  std::copy_n(other.values_.get(), static_cast<std::size_t>(n_), values_.get());
  return *this;
}

void Vector::take(std::int32_t n) {
  values_.reset();
  n_ = 0;
  values_ = std::make_unique_for_overwrite<double[]>(static_cast<std::size_t>(n));
  n_ = n;
}

void Vector::zero() { std::fill_n(values_.get(), static_cast<std::size_t>(n_), 0.0); }

Matrix& Matrix::operator=(const Matrix& other) {
  if (this == &other) return *this;
  resize(other.rows_, other.cols_);
  set_from(other.values_.get());
  return *this;
}

void Matrix::take(std::int32_t rows, std::int32_t cols) {
  values_.reset();
  rows_ = 0;
  cols_ = 0;
  values_ = std::make_unique_for_overwrite<double[]>(static_cast<std::size_t>(rows) *
                                                     static_cast<std::size_t>(cols));
  rows_ = rows;
  cols_ = cols;
}

void Matrix::zero() { std::fill_n(values_.get(), offset(rows_), 0.0); }

void Matrix::set_from(const double* array) { std::copy_n(array, offset(rows_), values_.get()); }

void Matrix::symmetrise() {
  for (std::int32_t i = 0; i < rows_; ++i) {
    for (std::int32_t j = i + 1; j < cols_; ++j) (*this)[j][i] = (*this)[i][j];
  }
}

}  // namespace vorn
