#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "lsq/normal/normal_factor.h"
#include "lsq/normal/point_batch.h"
#include "lsq/normal/reduced_matrix.h"

namespace vorn {

// The factor of structured normal equations: the object points are eliminated one by one, then the
// reduced normal equations are factorised (Brown 1958). The derivation stands at the head of
// point_elimination.cpp.
class PointElimination : public NormalFactor {
 public:
  explicit PointElimination(const NormalMatrix& normal) : NormalFactor(normal) {}

  // The order in which the blocks of the reduced part are factorised: one that keeps the factor
  // sparse, or that of the unknowns.
  enum class Order { fill_reducing, natural };
  // Takes memory for the factor; to be called once, before all else. False when it does not fit the
  // address space.
  [[nodiscard]] bool set_structure(Order order);

  [[nodiscard]] std::int32_t factorise() override;
  void substitute(const Vector& b, Vector& x) const override;
  [[nodiscard]] std::int32_t solve(const Vector& b, Vector& x) override;
  // Needs the natural order, and couplings that are stored.
  double lower(std::int32_t i, std::int32_t j) const override;
  void invert(Matrix& q) const override;

  // The two halves of `solve`, for those who solve the reduced equations elsewhere. Memory for S
  // without that of its factor, in place of `set_structure`.
  [[nodiscard]] bool set_reduced_structure();
  // Eliminates the points: S stands in `reduced`, its right-hand side in the order of its rows in
  // `rhs`, and x holds what `complete` needs. Codes as `factorise`.
  [[nodiscard]] std::int32_t reduce(const Vector& b, Vector& x, std::vector<double>& rhs);
  // x of the points from that of everything else, which `x` holds.
  void complete(Vector& x) const;

  // S, after `factorise` its factor.
  const ReducedMatrix& reduced() const { return reduced_; }
  // The points in batches, after `factorise`.
  const PointBatch& batches() const { return *batch_; }

 private:
  [[nodiscard]] std::int32_t factorise(const ForwardPass* forward);
  std::int32_t failing_unknown(std::int32_t row) const;
  std::vector<double> reduced_rhs(const Vector& b) const;
  void substitute_back(std::vector<double>& reduced, Vector& x) const;
  void substitute_batch(std::size_t batch, Couplings& couplings, Vector& x) const;
  std::size_t num_batches() const;
  std::size_t end_of(std::size_t batch) const;

  ReducedMatrix reduced_;              // S, then its factor
  std::unique_ptr<PointBatch> batch_;  // working memory of all factorisations
  bool factorised_ = false;
};

}  // namespace vorn
