#include "lsq/adj_interface.h"

#include <new>

#include "lsq/normal/dense_factor.h"
#include "lsq/normal/point_elimination.h"

namespace vorn {
namespace {

int failed_substitution(int code) {
  standard_output() << "ERROR: Backsubstitution failed.\n";
  return code;
}

}  // namespace

std::unique_ptr<PointElimination> AdjInterface::take_elimination() { return nullptr; }

bool AdjInterfaceNative::prepare(const NormalMatrix& n) {
  factor_.reset();
  if (method_ == Method::dense) {
    factor_ = std::make_unique<DenseFactor>(n);
    return true;
  }
  const auto order = method_ == Method::eliminate ? PointElimination::Order::fill_reducing
                                                  : PointElimination::Order::natural;
  auto elimination = std::make_unique<PointElimination>(n);
  if (!elimination->set_structure(order)) return false;
  factor_ = std::move(elimination);
  return true;
}

int AdjInterfaceNative::try_solve(const NormalMatrix& n, const Vector& b, Vector& x, Vector& p) {
  const bool is_prepared = factor_ != nullptr && &factor_->matrix() == &n;
  if (!is_prepared && !prepare(n)) throw std::bad_alloc();
  if (b.size() != n.size()) return failed_substitution(-3);
  const std::int32_t failed = factor_->solve(b, x);
  p = factor_->diagonal();
  return failed;
}

int AdjInterfaceNative::solve(const NormalMatrix& n, const Vector& b, Vector& x, Vector& p) {
  const int failed = try_solve(n, b, x, p);
  if (failed > 0) standard_output() << "ERROR: Cholesky decomposition failed.\n";
  return failed;
}

int AdjInterfaceNative::invert(const NormalMatrix& n, Matrix& q, const Vector& p) {
  if (p.size() != n.size()) return failed_substitution(-2);
  factor_->invert(q);
  return 0;
}

std::unique_ptr<PointElimination> AdjInterfaceNative::take_elimination() {
  if (method_ != Method::eliminate) return nullptr;
  // What this method prepares.
  return std::unique_ptr<PointElimination>(static_cast<PointElimination*>(factor_.release()));
}

void AdjInterfaceNative::write_matrix(TextWriter& out, const NormalMatrix& n) const {
  constexpr NumberFormat kElement = scientific(12);
  const auto lower = [this](std::int32_t i, std::int32_t j) {
    return factor_ == nullptr ? 0.0 : factor_->lower(i, j);
  };
  out << n.size() << ' ' << n.size() << '\n';
  for (std::int32_t i = 0; i < n.size(); ++i) {
    for (std::int32_t j = 0; j < n.size(); ++j) {
      out << kElement(i <= j ? n.at(i, j) : lower(i, j)) << ' ';
    }
    out << '\n';
  }
}

}  // namespace vorn
