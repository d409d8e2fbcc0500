#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "lsq/normal/point_elimination.h"
#include "quality/diagnosis_datum.h"
#include "quality/diagnosis_system.h"

namespace vorn {

// A direction in the space of the unknowns: an eigenvector of N scaled to a unit diagonal. The
// squares of its elements add up to 1: they are the shares of the unknowns.
struct WeakDirection {
  double eigenvalue = 0.0;
  std::vector<double> elements;  // of all unknowns

  double share(std::size_t unknown) const { return elements[unknown] * elements[unknown]; }
};

// Two unknowns that the observations hardly tell apart. Of those that are hard to tell from one
// unknown, no more than kMostCorrelated are looked at.
constexpr std::size_t kMostCorrelated = 20;
struct StrongCorrelation {
  std::int32_t a = 0;
  std::int32_t b = 0;
  double r = 0.0;
};

// What the normal equations leave open, or nearly so.
class Weakness {
 public:
  // Factorises the system; one that is singular, or regular by rounding only, with a tiny fraction
  // of its diagonal added. `free_motions` are taken out of the directions.
  Weakness(DiagnosedSystem& system, const std::vector<DatumAnalysis::Changes>& free_motions);

  // Whether the factorisation needed no help.
  bool is_regular() const { return regular_; }
  // p_i^2/N_ii of all active unknowns, ascending.
  [[nodiscard]] std::vector<std::pair<double, std::int32_t>> pivots() const;
  // 1/(N_ii Q_ii) of all active unknowns, ascending; 0 for those that are open. Empty where the
  // inverse does not fit the address space.
  [[nodiscard]] std::vector<std::pair<double, std::int32_t>> tolerances() const;
  // Correlations of at least `limit` between the given unknowns and any others but object points.
  [[nodiscard]] std::vector<StrongCorrelation> correlations(
      const std::vector<std::int32_t>& unknowns, double limit) const;
  // Directions of the smallest eigenvalues, ascending, by block Lanczos iterations on the inverse
  // (Golub and Underwood 1977) with a basis of at most `size` vectors. Those that vanish but for
  // rounding stand for all of their space and come as simple as they can be combined.
  [[nodiscard]] std::vector<WeakDirection> directions(std::size_t size) const;

 private:
  using Column = std::vector<double>;
  class Basis;

  void set_up_locked(const std::vector<DatumAnalysis::Changes>& free_motions);
  void factorise();
  void take_out_locked(Column& y) const;
  Column apply_inverse(const Column& y) const;
  Column inverse_column(std::int32_t unknown) const;
  std::vector<WeakDirection> directions_from(std::size_t block, std::size_t size,
                                             std::size_t& num_null) const;
  void separate(std::vector<WeakDirection>& found, std::size_t num_null) const;

  DiagnosedSystem& system_;
  std::vector<DatumAnalysis::Changes> locked_;  // orthonormal, scaled
  PointElimination factor_;
  bool regular_ = false;
  double fraction_ = 0.0;  // of the diagonal, added
};

}  // namespace vorn
