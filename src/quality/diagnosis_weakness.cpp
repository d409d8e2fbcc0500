#include "quality/diagnosis_weakness.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <new>
#include <numeric>
#include <random>

#include "base/place.h"
#include "lsq/normal/selected_inverse.h"
#include "quality/diagnosis_algebra.h"

namespace vorn {
namespace {

using Column = std::vector<double>;

// Fraction of the diagonal that makes a singular system regular: far above rounding, far below what
// is determined.
constexpr double kFraction = 1e-12;
constexpr double kNullEigenvalue = 1e-14;

double product(const Column& a, const Column& b) {
  return std::inner_product(a.begin(), a.end(), b.begin(), 0.0);
}

void subtract(double factor, const Column& from, Column& y) {
  for (std::size_t i = 0; i < y.size(); ++i) y[i] -= factor * from[i];
}

// Changes of the unknowns of one part name the same unknowns in the same order.
bool of_one_part(const DatumAnalysis::Changes& a, const DatumAnalysis::Changes& b) {
  return a.size() == b.size() && !a.empty() && a.front().first == b.front().first;
}

double product(const DatumAnalysis::Changes& a, const DatumAnalysis::Changes& b) {
  double sum = 0.0;
  for (std::size_t i = 0; i < a.size(); ++i) sum += a[i].second * b[i].second;
  return sum;
}

}  // namespace

Weakness::Weakness(DiagnosedSystem& system, const std::vector<DatumAnalysis::Changes>& free_motions)
    : system_(system), factor_(system.normal()) {
  set_up_locked(free_motions);
  factorise();
}

void Weakness::set_up_locked(const std::vector<DatumAnalysis::Changes>& free_motions) {
  for (const DatumAnalysis::Changes& motion : free_motions) {
    DatumAnalysis::Changes scaled = motion;
    for (auto& [unknown, change] : scaled) {
      change *= system_.is_active(unknown) ? std::sqrt(system_.diagonal(unknown)) : 0.0;
    }
    for (const DatumAnalysis::Changes& other : locked_) {
      if (!of_one_part(other, scaled)) continue;
      const double factor = product(other, scaled);
      for (std::size_t i = 0; i < scaled.size(); ++i) scaled[i].second -= factor * other[i].second;
    }
    const double length = std::sqrt(product(scaled, scaled));
    if (!(length > 0.0)) continue;
    for (auto& [unknown, change] : scaled) change /= length;
    locked_.push_back(std::move(scaled));
  }
}

void Weakness::factorise() {
  if (!factor_.set_structure(PointElimination::Order::fill_reducing)) throw std::bad_alloc();
  bool passed = factor_.factorise() == 0;
  // Rounding may hide a free datum from the pivots.
  regular_ = passed && locked_.empty() &&
             (pivots().empty() || pivots().front().first >= kSmallestPivotRatio);
  for (double fraction = kFraction; !regular_ && fraction < 1e-6; fraction *= 100) {
    if (passed && fraction_ > 0.0) break;
    fraction_ = fraction;
    system_.regularise(fraction);
    passed = factor_.factorise() == 0;
  }
}

std::vector<std::pair<double, std::int32_t>> Weakness::pivots() const {
  std::vector<std::pair<double, std::int32_t>> ratios;
  for (std::int32_t u = 0; u < system_.size(); ++u) {
    if (!system_.is_active(u)) continue;
    const double pivot = factor_.diagonal()[u];
    const double ratio = pivot * pivot / system_.diagonal(u) - fraction_;
    ratios.emplace_back(std::max(ratio, 0.0), u);
  }
  std::sort(ratios.begin(), ratios.end());
  return ratios;
}

std::vector<std::pair<double, std::int32_t>> Weakness::tolerances() const {
  SelectedInverse inverse(factor_);
  if (!inverse.compute()) return {};
  std::vector<std::pair<double, std::int32_t>> values;
  const auto add = [&](std::int32_t u, double cofactor) {
    if (!system_.is_active(u)) return;
    const double value = 1 / (system_.diagonal(u) * (cofactor - system_.condition_cofactor(u)));
    // What the added fraction of the diagonal alone determines is not determined.
    constexpr double kOpen = 1e3;
    values.emplace_back(value > kOpen * fraction_ ? value : 0.0, u);
  };
  inverse.for_each_batch(true, [&](std::size_t, const auto& points, std::size_t) {
    for (const SelectedInverse::PointCofactors& point : points) {
      for (std::int32_t k = 0; k < 3; ++k) add(3 * point.point + k, point.own[k][k]);
    }
  });
  for (std::int32_t u = system_.normal().num_point_unknowns(); u < system_.size(); ++u) {
    add(u, inverse.at(u, u));
  }
  std::sort(values.begin(), values.end());
  return values;
}

void Weakness::take_out_locked(Column& y) const {
  for (const DatumAnalysis::Changes& motion : locked_) {
    double factor = 0.0;
    for (const auto& [unknown, change] : motion) factor += change * y[place(unknown)];
    for (const auto& [unknown, change] : motion) y[place(unknown)] -= factor * change;
  }
}

// y := D^1/2 (N + fraction D)^-1 D^1/2 y, without the free motions.
Weakness::Column Weakness::apply_inverse(const Column& y) const {
  Vector b(system_.size());
  Vector x;
  const auto scale = [this](std::int32_t u) {
    return system_.is_active(u) ? std::sqrt(system_.diagonal(u)) : 0.0;
  };
  for (std::int32_t u = 0; u < b.size(); ++u) b[u] = scale(u) * y[place(u)];
  factor_.substitute(b, x);
  Column z(y.size());
  for (std::int32_t u = 0; u < b.size(); ++u) z[place(u)] = scale(u) * x[u];
  take_out_locked(z);
  return z;
}

// A column of the scaled inverse, without the free motions.
Weakness::Column Weakness::inverse_column(std::int32_t unknown) const {
  Column unit(place(system_.size()), 0.0);
  unit[place(unknown)] = 1.0;
  take_out_locked(unit);
  return apply_inverse(unit);
}

// r^2 = Q_ab^2 / (Q_aa Q_bb). In the scaled inverse Q_bb is at least 1, so that few b need a column
// of their own.
std::vector<StrongCorrelation> Weakness::correlations(const std::vector<std::int32_t>& unknowns,
                                                      double limit) const {
  std::vector<StrongCorrelation> found;
  for (const std::int32_t a : unknowns) {
    const Column q = inverse_column(a);
    std::vector<std::pair<double, std::int32_t>> candidates;
    for (std::int32_t b = system_.normal().num_point_unknowns(); b < system_.size(); ++b) {
      const double bound = q[place(b)] * q[place(b)] / q[place(a)];
      if (b != a && bound >= limit * limit) candidates.emplace_back(-bound, b);
    }
    std::sort(candidates.begin(), candidates.end());
    if (candidates.size() > kMostCorrelated) candidates.resize(kMostCorrelated);
    for (const auto& [bound, b] : candidates) {
      const double r = q[place(b)] / std::sqrt(q[place(a)] * inverse_column(b)[place(b)]);
      if (std::fabs(r) >= limit) found.push_back({a, b, r});
    }
  }
  return found;
}

// Orthonormal vectors and what the inverse makes of them.
class Weakness::Basis {
 public:
  Basis(const Weakness& weakness, std::size_t limit) : weakness_(weakness), limit_(limit) {}

  std::size_t size() const { return vectors_.size(); }
  const Column& vector(std::size_t i) const { return vectors_[i]; }

  // Adds what is new in a vector; twice is enough (Parlett 1998, 6.9). False when nothing is.
  bool add(Column y) {
    if (vectors_.size() >= limit_) return false;
    const double before = std::sqrt(product(y, y));
    for (int pass = 0; pass < 2; ++pass) {
      weakness_.take_out_locked(y);
      for (const Column& other : vectors_) subtract(product(other, y), other, y);
    }
    const double length = std::sqrt(product(y, y));
    constexpr double kNothingNew = 1e-10;
    if (!(length > kNothingNew * before)) return false;
    for (double& v : y) v /= length;
    vectors_.push_back(std::move(y));
    return true;
  }
  bool add_random() {
    Column y(place(weakness_.system_.size()));
    for (std::size_t i = 0; i < y.size(); ++i) {
      const bool active = weakness_.system_.is_active(static_cast<std::int32_t>(i));
      y[i] = active ? static_cast<double>(random_()) / 4294967295.0 - 0.5 : 0.0;
    }
    return add(std::move(y));
  }
  // Applies the inverse to the next vector, and adds what comes of it.
  void expand() {
    Column z = weakness_.apply_inverse(vectors_[products_.size()]);
    Column& products = products_.emplace_back();
    for (const Column& other : vectors_) products.push_back(product(other, z));
    add(std::move(z));
  }
  std::size_t num_expanded() const { return products_.size(); }

  // The inverse on the vectors that were expanded.
  Matrix projected() const {
    const auto n = static_cast<std::int32_t>(products_.size());
    Matrix h(n, n);
    for (std::int32_t j = 0; j < n; ++j) {
      for (std::int32_t i = 0; i <= j; ++i) h[i][j] = products_[place(j)][place(i)];
    }
    return h;
  }

 private:
  const Weakness& weakness_;
  std::size_t limit_;
  std::mt19937 random_{20};
  std::vector<Column> vectors_;
  std::vector<Column> products_;
};

std::vector<WeakDirection> Weakness::directions_from(std::size_t block, std::size_t size,
                                                     std::size_t& num_null) const {
  Basis basis(*this, size);
  while (basis.size() < block && basis.add_random()) {
  }
  while (basis.num_expanded() < basis.size()) {
    basis.expand();
    if (basis.num_expanded() == basis.size()) basis.add_random();
  }
  const SymmetricEigen eigen = eigen_of_symmetric(basis.projected());
  std::vector<WeakDirection> found;
  num_null = 0;
  constexpr std::size_t kWanted = 10;
  for (std::int32_t e = eigen.values.size() - 1; e >= 0; --e) {
    const double value = 1 / eigen.values[e] - fraction_;
    const bool null = value < kNullEigenvalue;
    num_null += null ? 1 : 0;
    if (!null && found.size() >= kWanted) break;
    WeakDirection& direction = found.emplace_back();
    direction.eigenvalue = std::max(value, 0.0);
    direction.elements.assign(place(system_.size()), 0.0);
    for (std::size_t i = 0; i < basis.num_expanded(); ++i) {
      subtract(-eigen.vectors[static_cast<std::int32_t>(i)][e], basis.vector(i),
               direction.elements);
    }
  }
  return found;
}

std::vector<WeakDirection> Weakness::directions(std::size_t size) const {
  // A block finds as many directions of one eigenvalue as it has vectors.
  std::size_t num_null = 0;
  std::vector<WeakDirection> found;
  for (std::size_t block = 8; block <= 128; block *= 4) {
    found = directions_from(block, std::max(size, 3 * block), num_null);
    if (num_null < block) break;
  }
  separate(found, num_null);
  return found;
}

// Null vectors span a space; simple ones name their causes.
void Weakness::separate(std::vector<WeakDirection>& found, std::size_t num_null) const {
  if (num_null < 2) return;
  Matrix rows(static_cast<std::int32_t>(num_null), system_.size());
  for (std::size_t i = 0; i < num_null; ++i) {
    std::copy(found[i].elements.begin(), found[i].elements.end(),
              rows[static_cast<std::int32_t>(i)]);
  }
  separate_rows(rows);
  found.erase(found.begin() + rows.rows(), found.begin() + static_cast<std::ptrdiff_t>(num_null));
  for (std::int32_t i = 0; i < rows.rows(); ++i) {
    found[place(i)].elements.assign(rows[i], rows[i] + rows.cols());
  }
}

}  // namespace vorn
