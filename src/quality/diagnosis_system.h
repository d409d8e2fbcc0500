#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "lsq/linalg/matrix.h"
#include "lsq/normal/image_normals.h"
#include "lsq/normal/normal_matrix.h"
#include "quality/diagnosis_network.h"

namespace vorn {

class BundleProject;

// The linearised observation equation of one image point, and whose it is.
struct LinearisedPoint {
  const BundleImage& image;
  const ObjectPoint& point;
  const PointEquation& equation;
};

// How an unknown takes part in the diagnosis.
enum class UnknownRole : std::uint8_t {
  active,
  fixed,
  unobserved,  // nothing depends on it: no image, no observation of its own
  pinned       // found to be undetermined by itself and left out
};

// The normal equations of a project at its current values, for the question of what they leave
// open: those of the images, observed parameters with their weights, no weight of suppression, and
// conditions with a weight of the size that the images give. They stand in the normal matrix of the
// project. Image points whose equations cannot be formed are left out and named.
class DiagnosedSystem {
 public:
  // `visit`, where given, sees every observation equation.
  DiagnosedSystem(BundleProject& project,
                  const std::function<void(const LinearisedPoint&)>& visit = {});

  std::int32_t size() const { return diagonal_.size(); }
  UnknownRole role(std::int32_t u) const { return roles_[static_cast<std::size_t>(u)]; }
  bool is_active(std::int32_t u) const { return role(u) == UnknownRole::active; }
  // Leaves an unknown out from now on.
  void pin(std::int32_t u);
  // What images say about an unknown, what it says itself, and both: the diagonal of N.
  double image_weight(std::int32_t u) const { return image_diagonal_[u]; }
  double own_weight(std::int32_t u) const { return own_weights_[u]; }
  double diagonal(std::int32_t u) const { return diagonal_[u]; }
  // What the condition of a quaternion leaves of the cofactor of an unknown, having a finite
  // weight.
  double condition_cofactor(std::int32_t u) const { return condition_cofactors_[u]; }
  // Points that an image measures from a place where no equation can be formed.
  const std::vector<const ObjectPoint*>& degenerate_points() const { return degenerate_; }

  // Adds `fraction` times the diagonal of N to it: in all since the beginning.
  void regularise(double fraction);
  const NormalMatrix& normal() const { return normal_; }
  NormalMatrix& normal() { return normal_; }

 private:
  void add_images(BundleProject& project, const std::function<void(const LinearisedPoint&)>& visit);
  void add_own_weights(const BundleProject& project);
  void add_conditions(const BundleProject& project);
  void set_roles(const BundleProject& project);
  void hold(std::int32_t u);

  NormalMatrix& normal_;
  Vector image_diagonal_;
  Vector own_weights_;
  Vector diagonal_;
  Vector condition_cofactors_;
  std::vector<UnknownRole> roles_;
  std::vector<const ObjectPoint*> degenerate_;
  double regularised_ = 0.0;
};

}  // namespace vorn
