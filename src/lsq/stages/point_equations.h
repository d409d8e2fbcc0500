#pragma once

#include <cstdint>
#include <vector>

#include "geometry/ext_orientation.h"
#include "geometry/linear_geometries.h"
#include "lsq/normal/normal_matrix.h"
#include "lsq/normal/observation_group.h"
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
// in the order of their unknowns.
std::vector<const AdjObject*> objects_of(const BundleImage& image);

// The observation equations of the points of one image, in memory that all of them share.
class PointEquations {
 public:
  // Every object that the image depends on has its unknown number, and the matrix its structure.
  PointEquations(const BundleImage& image, NormalMatrix& normal);

  // The blocks of the normal matrix that the equations touch besides object points, ascending.
  const std::vector<std::int32_t>& blocks() const { return equations_.blocks(); }
  // Forgets what was summed up.
  void start() { equations_.start(); }

  enum class Outcome {
    added,
    not_derivable,  // the geometry has no derivatives there
    not_weighable   // the cofactors are not positive definite
  };
  // Adds the two equations of one point. Prints nothing but what linear transformations print where
  // they are singular.
  Outcome add(const Observation& observation, const Vec3& object_point,
              const EquationTarget& target, Vector& rhs);
  bool is_singular_at(const Vec3& object_point) const {
    return transformation_ != nullptr && transformation_->is_singular_at(object_point);
  }
  // Whether the image takes points in packs, too: the geometries that central perspective gives do.
  bool takes_packs() const { return takes_packs_; }
  // Adds up to eight points at once: their observations and object points side by side, the count
  // and the targets in `equations`.
  Outcome add(const PackPair& observed, const Vec3Of<Pack>& object_points,
              PackedEquations& equations, Vector& rhs);
  // Says on standard output why the equations of a point could not be added.
  void print_failure(Outcome outcome, const Vec3& object_point);
  // Adds what the points of the image have in common.
  void finish(Vector& rhs, double& lPl) { equations_.finish(rhs, lPl); }

 private:
  const BundleImage& image_;
  ExtOrientation* const orientation_;  // the image's geometry, if it is one
  const DirectLinearTransf* const transformation_;
  bool takes_packs_;
  ImageEquations equations_;
  PointDerivs derivs_;
  std::vector<DesignBlock> ap_derivs_;
  std::vector<const DesignBlock*> design_;
  Matrix cofactors_;
};

}  // namespace vorn
