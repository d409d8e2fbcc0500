#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "base/place.h"
#include "geometry/vec3.h"
#include "lsq/linalg/matrix.h"
#include "quality/diagnosis_motions.h"

namespace vorn {

class BundleProject;
class FinalSystem;

// The datum of the free network, laid over all object points or some of them: Baarda's
// S-transformation (1973) of the cofactors that belong to the given datum,
//
//   Q_S = S Q S',   S = I - G C,   C = (G'BG)^-1 G'B,
//
// G the seven similarity motions of the points and orientations, B the selection of the points.
// Element by element, with F = QC' and K = CF, and with rows g of G and f of F,
//
//   q_S(i, j) = q(i, j) - g_i f_j' - f_i g_j' + g_i K g_j'.
class InnerDatum {
 public:
  // Solves for F. `points` are identifiers, empty for all points; those that the project does not
  // have are passed over. Not usable where the points do not fix the seven motions.
  InnerDatum(const BundleProject& project, const FinalSystem& system,
             const std::vector<std::string>& points);

  bool is_usable() const { return usable_; }
  // q_S(i, j) - q(i, j)
  double change(std::int32_t i, std::int32_t j) const;
  // What an observation with the derivatives `a` with respect to some unknowns adds to F'a'.
  void add_product(std::int32_t unknown, double a, Row7& product) const;
  // How the transformation changes Q_p a' of an object point: -G_p (F'a').
  [[nodiscard]] Vec3 change_of_shift(std::int32_t point, const Row7& product) const;

 private:
  std::vector<Row7> motions_;               // G, by unknowns
  std::vector<Row7> cofactors_;             // F, by unknowns
  std::array<Row7, kNumMotions> kernel_{};  // K
  bool usable_ = false;
};

}  // namespace vorn
