#include "geometry/linear_geometries.h"

#include <cstddef>

#include "lsq/linalg/cholesky.h"

namespace vorn {

// ---- direct linear transformation --------------------------------------------------------------

std::string DirectLinearTransf::get_param_name(std::int32_t i) const {
  if (i < 0 || i >= num_values()) return ImageGeometry::get_param_name(i);
  return "L" + std::to_string(i + 1);
}

double DirectLinearTransf::denominator(const Vec3& p) const {
  return value(8) * p[0] + value(9) * p[1] + value(10) * p[2] + 1;
}

double DirectLinearTransf::x_at(const Vec3& p, double d) const {
  return (value(0) * p[0] + value(1) * p[1] + value(2) * p[2] + value(3)) / d;
}

double DirectLinearTransf::y_at(const Vec3& p, double d) const {
  return (value(4) * p[0] + value(5) * p[1] + value(6) * p[2] + value(7)) / d;
}

bool DirectLinearTransf::projection(const Vec3& object_point, Vec3& image) const {
  const double d = denominator(object_point);
  if (d == 0.0) error_output() << "DEP::projection: zero denominator.\n";
  image[0] = x_at(object_point, d);
  image[1] = y_at(object_point, d);
  return true;
}

bool DirectLinearTransf::get_derivs(const Vec3&, const Vec3& object_point, PointDerivs& derivs) {
  Matrix& a_point = derivs.point.a;
  Matrix& a = derivs.geometry.a;
  a_point.resize(2, 3);
  a.resize(2, 11);
  derivs.geometry.index = index;

  const double d = denominator(object_point);
  if (d == 0.0) error_output() << "DirectLinearTransf::get_derivs: zero denominator.\n";
  const double x = x_at(object_point, d);
  const double y = y_at(object_point, d);
  a.zero();
  a[0][3] = 1 / d;
  a[1][7] = 1 / d;
  for (std::int32_t k = 0; k < 3; ++k) {
    const double coordinate = object_point[static_cast<std::size_t>(k)];
    a[0][k] = coordinate / d;
    a[1][4 + k] = coordinate / d;
    a[0][8 + k] = -coordinate * x / d;
    a[1][8 + k] = -coordinate * y / d;
    a_point[0][k] = (value(k) - value(8 + k) * x) / d;
    a_point[1][k] = (value(4 + k) - value(8 + k) * y) / d;
  }
  set_identity(derivs.b);
  return true;
}

bool DirectLinearTransf::intersection(const ImageGeometry& other, const Vec3&, const Vec3&, Vec3&,
                                      double&) const {
  if (dynamic_cast<const DirectLinearTransf*>(&other) == nullptr) {
    error_output() << "DirectLinearTransf::intersection: Incompatible image geometries!\n";
    return false;
  }
  standard_output() << "DirectLinearTransf::intersection: Not implemented yet!\n";
  return false;
}

// ---- linear PMF model --------------------------------------------------------------------------

std::string PMFLinear::get_param_name(std::int32_t i) const {
  if (i < 0 || i >= num_values()) return ImageGeometry::get_param_name(i);
  return (i < 4 ? "a" : "b") + std::to_string(i % 4);
}

bool PMFLinear::projection(const Vec3& object_point, Vec3& image) const {
  for (std::int32_t row = 0; row < 2; ++row) {
    const std::int32_t first = 4 * row;
    image[static_cast<std::size_t>(row)] = value(first) + value(first + 1) * object_point[0] +
                                           value(first + 2) * object_point[1] +
                                           value(first + 3) * object_point[2];
  }
  return true;
}

bool PMFLinear::get_derivs(const Vec3&, const Vec3& object_point, PointDerivs& derivs) {
  Matrix& a_point = derivs.point.a;
  Matrix& a = derivs.geometry.a;
  a_point.resize(2, 3);
  a.resize(2, 8);
  derivs.geometry.index = index;

  a.zero();
  for (std::int32_t row = 0; row < 2; ++row) {
    const std::int32_t first = 4 * row;
    a[row][first] = 1;
    for (std::int32_t k = 0; k < 3; ++k) {
      a[row][first + 1 + k] = object_point[static_cast<std::size_t>(k)];
      a_point[row][k] = value(first + 1 + k);
    }
  }
  set_identity(derivs.b);
  return true;
}

bool PMFLinear::intersection(const ImageGeometry& other, const Vec3& image_this,
                             const Vec3& image_other, Vec3& object_point, double&) const {
  const auto* const partner = dynamic_cast<const PMFLinear*>(&other);
  if (partner == nullptr) {
    error_output() << "PMFLinear::intersection: Incompatible image geometries!\n";
    return false;
  }
  Matrix normal(3, 3);
  Vector rhs(3);
  normal.zero();
  rhs.zero();
  const auto add_image = [&normal, &rhs](const PMFLinear& geometry, const Vec3& image) {
    for (std::int32_t row = 0; row < 2; ++row) {
      const std::int32_t first = 4 * row;
      const double l = image[static_cast<std::size_t>(row)] - geometry.value(first);
      for (std::int32_t i = 0; i < 3; ++i) {
        const double a_i = geometry.value(first + 1 + i);
        for (std::int32_t j = 0; j < 3; ++j) normal[i][j] += a_i * geometry.value(first + 1 + j);
        rhs[i] += a_i * l;
      }
    }
  };
  add_image(*this, image_this);
  add_image(*partner, image_other);

  Vector diagonal;
  Vector solution;
  if (cholesky(normal, diagonal) != 0) {
    standard_output() << "ERROR: Decomposition of normal matrix failed.\n";
    return false;
  }
  (void)back_substitution(normal, diagonal, rhs, solution);  // the shapes fit
  object_point = {solution[0], solution[1], solution[2]};
  return true;
}

}  // namespace vorn
