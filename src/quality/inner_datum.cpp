#include "quality/inner_datum.h"

#include <algorithm>
#include <cmath>
#include <set>

#include "driver/bundle_project.h"
#include "quality/final_system.h"

namespace vorn {
namespace {

double product_of(const Row7& a, const Row7& b) {
  double sum = 0.0;
  for (std::size_t k = 0; k < kNumMotions; ++k) sum += a[k] * b[k];
  return sum;
}

std::vector<const ObjectPoint*> datum_points(const BundleProject& project,
                                             const std::vector<std::string>& listed) {
  const std::set<std::string> wanted(listed.begin(), listed.end());
  std::vector<const ObjectPoint*> points;
  for (const ObjectPoint& point : project.object_points) {
    if (wanted.empty() || wanted.count(point.id) > 0) points.push_back(&point);
  }
  return points;
}

Vec3 centroid(const std::vector<const ObjectPoint*>& points) {
  Vec3 sum{};
  for (const ObjectPoint* point : points) sum = sum + point->xyz;
  return (1.0 / static_cast<double>(points.size())) * sum;
}

// X := A^-1 X for a symmetric positive definite A, 7 x 7, scaled to a unit diagonal; the rows of X
// are right-hand sides. False when A is singular.
bool solve(std::array<Row7, kNumMotions> a, std::vector<Row7>& x) {
  Row7 scale;
  for (std::size_t k = 0; k < kNumMotions; ++k) {
    if (!(a[k][k] > 0.0)) return false;
    scale[k] = 1.0 / std::sqrt(a[k][k]);
  }
  for (std::size_t i = 0; i < kNumMotions; ++i) {
    for (std::size_t j = 0; j <= i; ++j) {
      double sum = a[i][j] * scale[i] * scale[j];
      for (std::size_t k = 0; k < j; ++k) sum -= a[i][k] * a[j][k];
      constexpr double kSingular = 1e-12;
      if (i == j && !(sum > kSingular)) return false;
      a[i][j] = i == j ? std::sqrt(sum) : sum / a[j][j];
    }
  }
  for (Row7& row : x) {
    for (std::size_t i = 0; i < kNumMotions; ++i) {
      row[i] *= scale[i];
      for (std::size_t k = 0; k < i; ++k) row[i] -= a[i][k] * row[k];
      row[i] /= a[i][i];
    }
    for (std::size_t i = kNumMotions; i-- > 0;) {
      for (std::size_t k = i + 1; k < kNumMotions; ++k) row[i] -= a[k][i] * row[k];
      row[i] /= a[i][i];
    }
    for (std::size_t i = 0; i < kNumMotions; ++i) row[i] *= scale[i];
  }
  return true;
}

}  // namespace

InnerDatum::InnerDatum(const BundleProject& project, const FinalSystem& system,
                       const std::vector<std::string>& listed) {
  const std::vector<const ObjectPoint*> points = datum_points(project, listed);
  if (points.empty()) return;
  const std::size_t n = place(project.unknowns.num_unknowns());
  motions_.assign(n, {});
  cofactors_.assign(n, {});
  const SimilarityMotions similarity(centroid(points));
  for (const ObjectPoint& point : project.object_points) {
    const std::array<Row7, 3> rows = similarity.of_place(point.xyz);
    std::copy(rows.begin(), rows.end(), motions_.begin() + point.index);
  }
  for (const ImageGeometry& geometry : project.image_geometries) {
    const std::vector<Row7> rows = similarity.of_geometry(geometry);
    std::copy(rows.begin(), rows.end(), motions_.begin() + geometry.index);
  }
  // C, in the columns of the datum points.
  std::array<Row7, kNumMotions> gram{};
  std::vector<Row7> selection;
  for (const ObjectPoint* point : points) {
    for (std::int32_t k = 0; k < 3; ++k) {
      const Row7& g = selection.emplace_back(motions_[place(point->index + k)]);
      for (std::size_t i = 0; i < kNumMotions; ++i) {
        for (std::size_t j = 0; j < kNumMotions; ++j) gram[i][j] += g[i] * g[j];
      }
    }
  }
  if (!solve(gram, selection)) return;
  Vector rhs(static_cast<std::int32_t>(n));
  for (std::size_t motion = 0; motion < kNumMotions; ++motion) {
    rhs.zero();
    std::size_t row = 0;
    for (const ObjectPoint* point : points) {
      for (std::int32_t k = 0; k < 3; ++k, ++row) {
        const std::int32_t unknown = point->index + k;
        if (!system.is_fixed(unknown)) rhs[unknown] = selection[row][motion];
      }
    }
    const Vector column = system.solve(rhs);
    for (std::size_t i = 0; i < n; ++i) {
      cofactors_[i][motion] = column[static_cast<std::int32_t>(i)];
    }
  }
  std::size_t row = 0;
  for (const ObjectPoint* point : points) {
    for (std::int32_t k = 0; k < 3; ++k, ++row) {
      const Row7& f = cofactors_[place(point->index + k)];
      for (std::size_t i = 0; i < kNumMotions; ++i) {
        for (std::size_t j = 0; j < kNumMotions; ++j) kernel_[i][j] += selection[row][i] * f[j];
      }
    }
  }
  usable_ = true;
}

double InnerDatum::change(std::int32_t i, std::int32_t j) const {
  const Row7& gi = motions_[place(i)];
  const Row7& gj = motions_[place(j)];
  double sum = -product_of(gi, cofactors_[place(j)]) - product_of(cofactors_[place(i)], gj);
  for (std::size_t k = 0; k < kNumMotions; ++k) sum += gi[k] * product_of(kernel_[k], gj);
  return sum;
}

void InnerDatum::add_product(std::int32_t unknown, double a, Row7& product) const {
  const Row7& f = cofactors_[place(unknown)];
  for (std::size_t k = 0; k < kNumMotions; ++k) product[k] += a * f[k];
}

Vec3 InnerDatum::change_of_shift(std::int32_t point, const Row7& product) const {
  Vec3 change;
  for (std::size_t k = 0; k < 3; ++k) {
    change[k] = -product_of(motions_[3 * place(point) + k], product);
  }
  return change;
}

}  // namespace vorn
