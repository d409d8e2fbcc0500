#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "geometry/collinearity.h"
#include "geometry/image_geometry.h"
#include "geometry/vec3.h"

namespace vorn {

class AttCorrection;
class PosCorrection;

// Exterior orientation of a central-perspective image. With Xo the projection centre, R the
// rotation from image to object space and U = R'(X - Xo), the collinearity equations are
//
//   x = z Ux/N,   y = z Uy/N,   N = Uz.
//
// Parameters: Xo, Yo, Zo [unit of object space], then those of the rotation, which the concrete
// types define. A position correction may add to Xo. `update` must follow every change of a
// parameter: it computes what `projection`, `intersection` and `get_derivs` work with.
class ExtOrientation : public ImageGeometry {
 public:
  // The parameters of the projection centre come first.
  static constexpr std::int32_t kNumCentreParams = 3;
  // Rotation parameters; three-angle types leave the last one 0.
  using RotationParams = std::array<double, 4>;

  void print_changes(TextWriter& out, const Vector& corrections) const override;
  void print_results(TextWriter& out) const override;
  std::int32_t check_convergence(const Vector& corrections) const override;

  int read(TokenReader& in) override;
  void write(TextWriter& out) const override;
  void print(TextWriter& out) const override;
  // Always true. A zero denominator is reported on the error stream and gives values that are not
  // finite.
  bool projection(const Vec3& object_point, Vec3& image) const override;
  // The point halfway between the rays where they are closest; `gap` is their distance there.
  // False, with a message on the error stream and nothing stored, for parallel rays and for another
  // geometry that is no exterior orientation.
  bool intersection(const ImageGeometry& other, const Vec3& image_this, const Vec3& image_other,
                    Vec3& object_point, double& gap) const override;
  // False, with a message on standard output, for a zero denominator.
  bool get_derivs(const Vec3& image, const Vec3& object_point, PointDerivs& derivs) override;
  // The same without a message.
  bool find_derivs(const Vec3& image, const Vec3& object_point, PointDerivs& derivs);
  // Whether an object point lies in the plane of the projection centre, where it has no image, and
  // whether it lies in front of the image, z being the third component of image vectors.
  bool is_singular_at(const Vec3& object_point) const { return depth(object_point) == 0.0; }
  bool is_in_front(double z, const Vec3& object_point) const {
    return depth(object_point) * z > 0.0;
  }
  void update() override;
  bool has_pos_correction() const override { return pos_correction_ != nullptr; }
  bool has_att_correction() const override { return false; }

  // Fills the rotation columns of the geometry's block and, where an attitude correction applies,
  // its block.
  virtual void get_rotation_derivs(DesignBlock& geometry, DesignBlock& att) const;
  virtual RotationParams params_from_matrix(const Mat3& r) const = 0;
  virtual Mat3 matrix_from_params(const RotationParams& params) const = 0;
  // Fills columns 3 and following of the geometry's 2xn block for the point of the running
  // `get_derivs`.
  void get_rot_param_derivs(Matrix& a) const;

  // Corrections that apply to this orientation; not owned. A quaternion orientation keeps an
  // attitude correction without using it.
  void set_pos_correction(const PosCorrection& correction) { pos_correction_ = &correction; }
  void set_att_correction(const AttCorrection& correction) { att_correction_ = &correction; }
  const PosCorrection* pos_correction() const { return pos_correction_; }
  const AttCorrection* att_correction() const { return att_correction_; }

  // As of the last `update`, corrections included.
  const Vec3& projection_centre() const { return perspective_.centre; }
  const Mat3& rotation_matrix() const { return perspective_.rotation; }
  const Perspective& perspective() const { return perspective_; }

 protected:
  explicit ExtOrientation(std::uint32_t num_rotation_params);

  // How listings show numbers: factors from internal units, and decimals of the rotation
  // parameters.
  struct ListingStyle {
    double length_factor;
    double rotation_factor;
    int rotation_decimals;
  };

  std::int32_t num_rotation_params() const { return num_values() - 3; }
  // "Xo", "Yo", "Zo", then the given names.
  std::string param_name(std::int32_t i, std::span<const std::string_view> rotation) const;

  // The pieces that readers, writers and listings of all types consist of.
  int read_exposure_and_centre(TokenReader& in);
  bool read_rotation(TokenReader& in);
  bool read_rotation_std_devs(TokenReader& in);
  void write_values(TextWriter& out, double rotation_factor) const;
  void print_in(TextWriter& out, const ListingStyle& style) const;
  void print_changes_in(TextWriter& out, const Vector& corrections,
                        const ListingStyle& style) const;
  void print_results_in(TextWriter& out, const ListingStyle& style) const;

  // Rotation parameters without attitude correction.
  RotationParams stored_rotation_params() const;
  // Sets centre, rotation parameters and R.
  void update_with(const RotationParams& params);
  const RotationParams& rotation_params() const { return rotation_params_; }

  // The axes of angles in image space, or the derivatives of R by the elements of a quaternion:
  // what `update` of a concrete type sets behind the rest.
  void set_axes(const Mat3& axes) { perspective_.axes = axes; }
  void set_matrix_derivs(const std::array<Mat3, 4>& derivs) { perspective_.matrix_derivs = derivs; }

 private:
  void print_matrix(TextWriter& out) const;
  // N, the third component of R'(X - Xo).
  double depth(const Vec3& object_point) const { return state_of(perspective_, object_point).u[2]; }

  Perspective perspective_;
  RotationParams rotation_params_{};
  const PosCorrection* pos_correction_ = nullptr;
  const AttCorrection* att_correction_ = nullptr;
  PointState<double> point_{};  // of the running `get_derivs`
};

// An exterior orientation with three rotation parameters, to which an attitude correction may add.
class ExtOrientation3 : public ExtOrientation {
 public:
  void update() override;
  bool has_att_correction() const override { return att_correction() != nullptr; }
  void get_rotation_derivs(DesignBlock& geometry, DesignBlock& att) const override;

 protected:
  ExtOrientation3() : ExtOrientation(3) {}
};

}  // namespace vorn
