#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "geometry/vec3.h"
#include "lsq/adj_object.h"
#include "lsq/normal/design_block.h"
#include "text/text_writer.h"
#include "text/token_reader.h"

namespace vorn {

// Design-matrix blocks of one image point (2 rows each, x then y) as `get_derivs` fills them.
struct PointDerivs {
  DesignBlock point;     // 2x3, object point
  DesignBlock geometry;  // 2xn, the geometry's own parameters
  DesignBlock pos;       // 2x3m, position correction, where the geometry carries one
  DesignBlock att;       // 2x3m, attitude correction, likewise
  Matrix b;              // 2x2, derivatives with respect to the observed image coordinates
};

inline constexpr Quantity kExposureTime = {"the exposure time"};

// Base of every model that maps object space to an image. Image vectors are (x, y, z) with the
// third component supplied by the caller: images pass z = -c, c the principal distance. All in
// metres.
class ImageGeometry : public AdjObject {
 public:
  explicit ImageGeometry(std::uint32_t num_values);

  void init_params() override;
  std::int32_t check_convergence(const Vector& corrections) const override;

  // Reads the record after its type keyword. 1, or -1 with a message on standard output; values
  // read before a failure stay.
  [[nodiscard]] virtual int read(TokenReader& in);
  // Writes the record of the orientation result file, type keyword included.
  virtual void write(TextWriter& out) const;
  // Writes the report block.
  virtual void print(TextWriter& out) const;
  // Image coordinates of an object point: image[2] is input, image[0] and image[1] are results.
  [[nodiscard]] virtual bool projection(const Vec3& object_point, Vec3& image) const = 0;
  // Intersects the rays of two images; `gap` is the distance between the rays.
  [[nodiscard]] virtual bool intersection(const ImageGeometry& other, const Vec3& image_this,
                                          const Vec3& image_other, Vec3& object_point,
                                          double& gap) const = 0;
  // Fills the design blocks of one image point. image[2] is z.
  [[nodiscard]] virtual bool get_derivs(const Vec3& image, const Vec3& object_point,
                                        PointDerivs& derivs) = 0;
  // Not implemented by any geometry: says so on standard output and returns true.
  virtual bool calc_approx();
  // Recomputes what follows from the parameter values.
  virtual void update() {}
  virtual bool has_pos_correction() const { return false; }
  virtual bool has_att_correction() const { return false; }

  std::int32_t num_values() const { return num_values_; }
  double& value(std::int32_t k) { return values_[static_cast<std::size_t>(k)]; }
  double value(std::int32_t k) const { return values_[static_cast<std::size_t>(k)]; }
  double& std_dev(std::int32_t k) { return std_devs_[static_cast<std::size_t>(k)]; }
  double std_dev(std::int32_t k) const { return std_devs_[static_cast<std::size_t>(k)]; }

  double exposure_time = 0;  // [s], at which position and attitude corrections are evaluated

 protected:
  // Makes b the 2x2 identity: conditions are formed in the observed image coordinates themselves.
  static void set_identity(Matrix& b);

 private:
  std::int32_t num_values_;
  std::unique_ptr<double[]> values_;
  std::unique_ptr<double[]> std_devs_;
};

}  // namespace vorn
