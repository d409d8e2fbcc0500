#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "base/pack.h"
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
  // Derivatives and image points of eight object points side by side, z being the third component
  // of the image vectors: the rows of the geometry's block, x and y, of the object point's block,
  // and the image points. False, with no message, when a denominator is zero.
  bool find_derivs(double z, const Vec3Of<Pack>& object_point, const RowPair<Pack>& geometry,
                   const RowPair<Pack>& point, Vec3Of<Pack>& image) const;
  // Fills the columns of the corrections that apply, from `column` on, from those of the geometry.
  void get_packed_correction_derivs(const RowPair<Pack>& rows, std::int32_t column) const;
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
  virtual void get_rot_param_derivs(Matrix& a) const = 0;

  // Corrections that apply to this orientation; not owned. A quaternion orientation keeps an
  // attitude correction without using it.
  void set_pos_correction(const PosCorrection& correction) { pos_correction_ = &correction; }
  void set_att_correction(const AttCorrection& correction) { att_correction_ = &correction; }
  const PosCorrection* pos_correction() const { return pos_correction_; }
  const AttCorrection* att_correction() const { return att_correction_; }

  // As of the last `update`, corrections included.
  const Vec3& projection_centre() const { return centre_; }
  const Mat3& rotation_matrix() const { return rotation_; }

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

  // A point, or eight, on the way into the image.
  template <class T>
  struct PointState {
    Vec3Of<T> d;   // X - Xo
    Vec3Of<T> u;   // R'd; u[2] is the denominator N
    T z_by_n;      // z/N
    T z_by_n_sqr;  // z/N^2

    // Elements of the column of a parameter p from dU/dp: dx/dp = z/N (dUx/dp - Ux/N dN/dp), dy/dp
    // likewise.
    void set_column(const RowPair<T>& a, std::int32_t column, const Vec3Of<T>& du) const {
      a.x[column] = z_by_n * du[0] - z_by_n_sqr * u[0] * du[2];
      a.y[column] = z_by_n * du[1] - z_by_n_sqr * u[1] * du[2];
    }
  };
  // The point of the running `get_derivs`.
  const PointState<double>& point() const { return point_; }
  // As get_rot_param_derivs for eight points.
  virtual void get_packed_rot_param_derivs(const PointState<Pack>& point,
                                           const RowPair<Pack>& a) const = 0;

 private:
  void print_matrix(TextWriter& out) const;
  // N, the third component of R'(X - Xo).
  double depth(const Vec3& object_point) const {
    return transposed_times(rotation_, object_point - centre_)[2];
  }
  template <class T>
  PointState<T> state_of(const Vec3Of<T>& object_point) const;
  // Divides by the denominator, and fills the columns of the projection centre and the object
  // point.
  template <class T>
  void fill_columns(const T& z, PointState<T>& state, const RowPair<T>& geometry,
                    const RowPair<T>& point) const;

  Vec3 centre_{};  // with position correction
  RotationParams rotation_params_{};
  Mat3 rotation_{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
  const PosCorrection* pos_correction_ = nullptr;
  const AttCorrection* att_correction_ = nullptr;
  PointState<double> point_{};
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
