#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace vorn {

// Vector of n 64-bit floats.
class Vector {
 public:
  Vector() = default;
  explicit Vector(std::int32_t n) { resize(n); }
  Vector(const Vector& other) { *this = other; }
  Vector(Vector&&) noexcept = default;
  Vector& operator=(const Vector& other);
  Vector& operator=(Vector&&) noexcept = default;
  ~Vector() = default;

  // Takes new memory when the length differs (contents undefined); otherwise does nothing.
  void resize(std::int32_t n) {
    if (n != n_) take(n);
  }
  void zero();
  std::int32_t size() const { return n_; }
  double* data() { return values_.get(); }
  const double* data() const { return values_.get(); }
  double& operator[](std::int32_t i) { return values_[static_cast<std::size_t>(i)]; }
  double operator[](std::int32_t i) const { return values_[static_cast<std::size_t>(i)]; }

 private:
  void take(std::int32_t n);

  std::int32_t n_ = 0;
  std::unique_ptr<double[]> values_;
};

// Matrix of rows x cols 64-bit floats, stored as one row-major block; A[i][j] is row i, column j.
class Matrix {
 public:
  Matrix() = default;
  Matrix(std::int32_t rows, std::int32_t cols) { resize(rows, cols); }
  Matrix(const Matrix& other) { *this = other; }
  Matrix(Matrix&&) noexcept = default;
  Matrix& operator=(const Matrix& other);
  Matrix& operator=(Matrix&&) noexcept = default;
  ~Matrix() = default;

  // Takes new memory when either dimension differs (contents undefined); otherwise does nothing.
  void resize(std::int32_t rows, std::int32_t cols) {
    if (rows != rows_ || cols != cols_) take(rows, cols);
  }
  void zero();
  // Copies rows x cols values from a row-major array.
  void set_from(const double* array);
  // Copies the upper triangle into the lower one.
  void symmetrise();
  std::int32_t rows() const { return rows_; }
  std::int32_t cols() const { return cols_; }
  double* operator[](std::int32_t i) { return values_.get() + offset(i); }
  const double* operator[](std::int32_t i) const { return values_.get() + offset(i); }

 private:
  void take(std::int32_t rows, std::int32_t cols);
  std::size_t offset(std::int32_t i) const {
    return static_cast<std::size_t>(i) * static_cast<std::size_t>(cols_);
  }

  std::int32_t rows_ = 0;
  std::int32_t cols_ = 0;
  std::unique_ptr<double[]> values_;
};

}  // namespace vorn
