#pragma once

#include <cstdint>
#include <functional>

#include "lsq/linalg/matrix.h"
#include "lsq/normal/image_normals.h"
#include "lsq/normal/normal_matrix.h"
#include "quality/diagnosis_network.h"
#include "quality/unknown_weights.h"

namespace vorn {

class BundleProject;

// The linearised observation equation of one image point, and whose it is.
struct LinearisedPoint {
  const BundleImage& image;
  const ObjectPoint& point;
  const PointEquation& equation;
};

// The normal equations of a project at its current values, for the question of what they leave
// open: those of the images, observed parameters with their weights, no weight of suppression, and
// conditions with a weight of the size that the images give. They stand in the normal matrix of the
// project. Image points whose equations cannot be formed are left out.
class DiagnosedSystem {
 public:
  // `visit`, where given, sees every observation equation.
  DiagnosedSystem(BundleProject& project,
                  const std::function<void(const LinearisedPoint&)>& visit = {});

  std::int32_t size() const { return weights_.size(); }
  const UnknownWeights& weights() const { return weights_; }
  bool is_active(std::int32_t u) const { return weights_.is_active(u); }
  double diagonal(std::int32_t u) const { return weights_.diagonal(u); }
  // Leaves an unknown out from now on.
  void pin(std::int32_t u);
  // What the condition of a quaternion leaves of the cofactor of an unknown, having a finite
  // weight.
  double condition_cofactor(std::int32_t u) const { return condition_cofactors_[u]; }

  // Adds `fraction` times the diagonal of N to it: in all since the beginning.
  void regularise(double fraction);
  const NormalMatrix& normal() const { return normal_; }
  NormalMatrix& normal() { return normal_; }

 private:
  void add_images(BundleProject& project, const std::function<void(const LinearisedPoint&)>& visit);
  void add_own_weights();
  void add_conditions(const BundleProject& project);
  void hold_inactive();
  void hold(std::int32_t u);

  NormalMatrix& normal_;
  UnknownWeights weights_;
  Vector condition_cofactors_;
  double regularised_ = 0.0;
};

}  // namespace vorn
