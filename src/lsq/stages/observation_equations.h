#pragma once

#include <cstdint>
#include <vector>

#include "calibration/camera_formulas.h"
#include "geometry/ext_orientation.h"
#include "geometry/linear_geometries.h"
#include "lsq/adjustment_settings.h"
#include "lsq/normal/image_normals.h"
#include "lsq/normal/normal_structure.h"
#include "lsq/stages/packed_equations.h"
#include "sensors/bundle_image.h"

namespace vorn {

// What was measured of one image point, in image units [m], and its cofactors: the squares of the
// standard deviations divided by that of unit weight.
struct Observation {
  Pair xy;
  Pair cofactors;
};
Observation observation_of(const ImagePoint& point, const Camera& camera);

// The objects whose parameters the observations of an image depend on, besides the object points,
// in the order of their unknowns: geometry, parameter sets, corrections. The columns of the design
// rows are their parameters, one object after the other.
std::vector<const AdjObject*> objects_of(const BundleImage& image);

// The image's share in the structure of the normal equations: a group of the blocks that its
// observations touch, with a ray to each object point. Every object has its unknown number by then.
void add_structure(const BundleImage& image, const OwnedList<ObjectPoint>& object_points,
                   NormalStructure& structure);
// The blocks of the normal matrix that the observations of an image touch besides object points,
// ascending.
std::vector<std::int32_t> blocks_of(const BundleImage& image, const NormalMatrix& normal);

// Whether the observation equations of an image are formed in packs, too: the geometries that
// central perspective gives take them.
bool takes_packs(const BundleImage& image);
// What packs take of such an image.
PackedImage packed_image_of(const BundleImage& image, const ExtOrientation& orientation,
                            Derivatives derivatives);

// Linearises the observation equations of the points of one image,
//
//   (x, y) + v = p + dp(p),   p = projection(object point)
//
// at the current values of all parameters: (x, y) measured, v residuals, p the ideal image point,
// dp the corrections of the camera's parameter sets and principal point. With J = I + d(dp)/dp the
// exact derivatives are J dp/du for every parameter u of geometry, point and corrections, and the
// models' rows at p for the sets. The documented ones leave J out and take the rows at the measured
// point.
class ObservationEquations {
 public:
  // Every object that the image depends on has its unknown number.
  explicit ObservationEquations(const BundleImage& image,
                                Derivatives derivatives = Derivatives::documented);
  ObservationEquations(const ObservationEquations&) = delete;
  ObservationEquations& operator=(const ObservationEquations&) = delete;

  enum class Outcome {
    formed,
    not_derivable,  // the geometry has no derivatives there
    not_weighable   // the cofactors are not positive definite
  };
  // The equation of one point. Prints nothing but what linear transformations print where they are
  // singular.
  [[nodiscard]] Outcome linearise(const Observation& observation, const Vec3& object_point,
                                  PointEquation& equation);
  bool is_singular_at(const Vec3& object_point) const {
    return transformation_ != nullptr && transformation_->is_singular_at(object_point);
  }
  bool takes_packs() const { return takes_packs_; }
  // Design rows and misclosures of eight points at once, for images that take packs. False when the
  // geometry has no derivatives at one of them. Several threads may be at it, each with equations
  // of its own.
  [[nodiscard]] bool linearise(const PackedPoints& points, PackedEquations& equations) const {
    return form(points, equations, equations.misclosure);
  }
  // The design rows alone.
  [[nodiscard]] bool find_rows(const PackedPoints& points, PackedEquations& equations) const {
    return form(points, equations, nullptr);
  }
  // Says on standard output why the equation of a point could not be formed.
  void print_failure(Outcome outcome, const Vec3& object_point);

 private:
  // The blocks of the design matrix side by side.
  void line_up(PointEquation& equation) const;
  // Replaces the columns by the derivatives of the observation equation; returns the computed image
  // coordinates.
  Pair make_exact(const Vec3& object_point, PointEquation& equation) const;
  [[nodiscard]] bool form(const PackedPoints& points, PackedEquations& equations,
                          Pack* misclosure) const;

  const BundleImage& image_;
  Derivatives derivatives_;
  ExtOrientation* const orientation_;  // the image's geometry, if it is one
  const DirectLinearTransf* const transformation_;
  bool takes_packs_;
  PackedImage packed_;  // where it takes packs
  FormPackedDesign form_packed_ = packed_formulas().form_design;
  std::int32_t width_ = 0;      // of the design rows
  std::int32_t set_width_ = 0;  // of the columns of all parameter sets
  // Working memory of `linearise`, in the order of the columns of the rows.
  PointDerivs derivs_;
  std::vector<DesignBlock> ap_derivs_;
  std::vector<const DesignBlock*> design_;
  Matrix cofactors_;
};

// As BundleImage::add_observations, with derivatives of choice (image_observations.cpp).
[[nodiscard]] int add_observations(const BundleImage& image, Derivatives derivatives,
                                   const OwnedList<ObjectPoint>& object_points,
                                   NormalMatrix& normal, Vector& rhs, double& lPl,
                                   std::int32_t& count);

}  // namespace vorn
