#pragma once

#include <string>
#include <string_view>

#include "geometry/image_geometry.h"

namespace vorn {

// Direct linear transformation with eleven parameters. With D = L9 X + L10 Y + L11 Z + 1,
//
//   x = (L1 X + L2 Y + L3 Z + L4) / D,   y = (L5 X + L6 Y + L7 Z + L8) / D.
//
// The third component of image vectors is ignored.
class DirectLinearTransf : public ImageGeometry {
 public:
  DirectLinearTransf() : ImageGeometry(11) {}

  std::string_view get_type_name() const override { return "DLT"; }
  // In upper case, unlike the keyword that readers of files know.
  std::string_view get_keyword() const override { return "DLT"; }
  std::string get_param_name(std::int32_t i) const override;

  // Always true. D = 0 is reported on the error stream and gives values that are not finite.
  bool projection(const Vec3& object_point, Vec3& image) const override;
  // Not implemented: false, with a message.
  bool intersection(const ImageGeometry& other, const Vec3& image_this, const Vec3& image_other,
                    Vec3& object_point, double& gap) const override;
  // As `projection`.
  bool get_derivs(const Vec3& image, const Vec3& object_point, PointDerivs& derivs) override;
  // Whether D = 0 there; prints nothing.
  bool is_singular_at(const Vec3& object_point) const { return denominator(object_point) == 0.0; }

 private:
  double denominator(const Vec3& p) const;
  // Projected coordinates; `d` is the denominator.
  double x_at(const Vec3& p, double d) const;
  double y_at(const Vec3& p, double d) const;
};

// Parallel projection: x = a0 + a1 X + a2 Y + a3 Z, y = b0 + b1 X + b2 Y + b3 Z. The third
// component of image vectors is ignored.
class PMFLinear : public ImageGeometry {
 public:
  PMFLinear() : ImageGeometry(8) {}

  std::string_view get_type_name() const override { return "PMF linear"; }
  std::string_view get_keyword() const override { return "pmf-linear"; }
  std::string get_param_name(std::int32_t i) const override;

  bool projection(const Vec3& object_point, Vec3& image) const override;
  // Least-squares solution of the four linear equations; `gap` is not set. False, with a message,
  // when the directions do not fix a point or the other geometry is of another type.
  bool intersection(const ImageGeometry& other, const Vec3& image_this, const Vec3& image_other,
                    Vec3& object_point, double& gap) const override;
  bool get_derivs(const Vec3& image, const Vec3& object_point, PointDerivs& derivs) override;
};

}  // namespace vorn
