#include "quality/diagnosis_datum.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <string_view>

#include "geometry/ext_orientation.h"

namespace vorn {
namespace {

// Class of the observation that an unknown with a weight of its own is.
std::string_view class_of(const AdjObject& object, std::int32_t k) {
  if (dynamic_cast<const ObjectPoint*>(&object) != nullptr) {
    return k < 2 ? "control_horizontal" : "control_height";
  }
  if (dynamic_cast<const ExtOrientation*>(&object) == nullptr) return "orientation_coefficients";
  return k < 3 ? "orientation_position" : "orientation_rotation";
}

void add_product(const Row7& row, double weight, Square7& sum) {
  for (std::size_t i = 0; i < row.size(); ++i) {
    if (row[i] == 0.0) continue;  // as half of what motions do to a point is
    for (std::size_t j = 0; j < row.size(); ++j) sum[i][j] += weight * row[i] * row[j];
  }
}

}  // namespace

// G'NG and G'diag(N)G of one part, and what the first consists of.
struct DatumAnalysis::Sums {
  RowTriangle held;
  Square7 diagonal{};
  std::map<std::string_view, Row7> by_class;  // of the diagonal of G'NG
};

DatumAnalysis::DatumAnalysis(const Network& network) : network_(network) {
  for (const NetworkPart& from : network.parts()) {
    std::vector<Vec3> places;
    for (const ObjectPoint* point : from.points) places.push_back(point->xyz);
    for (const ImageGeometry* geometry : from.geometries) {
      const auto* const orientation = dynamic_cast<const ExtOrientation*>(geometry);
      if (orientation != nullptr) places.push_back(orientation->projection_centre());
    }
    // Relative to the first one, so that large coordinates keep their digits.
    const double share = places.empty() ? 0.0 : 1.0 / static_cast<double>(places.size());
    Vec3 centre{};
    for (const Vec3& place : places) centre = centre + share * (place - places.front());
    if (!places.empty()) centre = centre + places.front();
    double squares = 0.0;
    for (const Vec3& place : places) squares += share * dot(place - centre, place - centre);

    Part& part = parts_.emplace_back();
    part.motions = SimilarityMotions(centre);
    part.length = squares > 0.0 ? std::sqrt(squares) : 1.0;
    for (const ImageGeometry* geometry : from.geometries) {
      part.geometries.emplace(geometry, part.motions.of_geometry(*geometry));
    }
  }
}

void DatumAnalysis::add(const LinearisedPoint& at) {
  Part& part = parts_[static_cast<std::size_t>(network_.part_of(at.point))];
  const std::array<Row7, 3> point = part.motions.of_place(at.point.xyz);
  // The geometry's columns are the first ones behind the point's.
  const std::vector<Row7>& geometry = part.geometries.at(at.image.geometry);
  const PointEquation& equation = at.equation;
  const auto add = [&](const double* of_point, const double* of_geometry, double weight) {
    Row7 row{};
    for (std::size_t m = 0; m < kNumMotions; ++m) {
      for (std::size_t k = 0; k < 3; ++k) row[m] += of_point[k] * point[k][m];
      for (std::size_t k = 0; k < geometry.size(); ++k) row[m] += of_geometry[k] * geometry[k][m];
    }
    add_product(row, weight, part.image_gram);
  };
  add(equation.point, equation.rows.data(), equation.weights.xx);
  add(equation.point + 3, equation.rows.data() + equation.stride, equation.weights.yy);
}

// Calls visit(object, k, row of G) for the unknowns of a part that similarity motions change.
template <class Visit>
void DatumAnalysis::for_each_unknown(std::size_t part, Visit visit) const {
  for (const ObjectPoint* point : network_.parts()[part].points) {
    const std::array<Row7, 3> rows = parts_[part].motions.of_place(point->xyz);
    for (std::size_t k = 0; k < rows.size(); ++k) {
      visit(*point, static_cast<std::int32_t>(k), rows[k]);
    }
  }
  for (const ImageGeometry* geometry : network_.parts()[part].geometries) {
    const std::vector<Row7>& rows = parts_[part].geometries.at(geometry);
    for (std::size_t k = 0; k < rows.size(); ++k) {
      visit(*geometry, static_cast<std::int32_t>(k), rows[k]);
    }
  }
}

// Fixed unknowns count with the weight that the images give them, in both sums.
DatumAnalysis::Sums DatumAnalysis::sums_of(std::size_t part, const UnknownWeights& weights) const {
  Sums sums;
  for_each_unknown(part, [&](const AdjObject& object, std::int32_t k, const Row7& row) {
    const std::int32_t u = object.index + k;
    add_product(row, weights.diagonal(u), sums.diagonal);
    const double weight =
        weights.role(u) == UnknownRole::fixed ? weights.image_weight(u) : weights.own_weight(u);
    if (!(weight > 0.0)) return;
    Row7 weighted = row;
    for (double& v : weighted) v *= std::sqrt(weight);
    sums.held.add(weighted);
    Row7& of_class = sums.by_class[class_of(object, k)];
    for (std::size_t m = 0; m < row.size(); ++m) of_class[m] += weighted[m] * weighted[m];
  });
  // The square root of the images' share, row by row.
  Matrix gram(7, 7);
  for (std::int32_t i = 0; i < 7; ++i) {
    const Row7& row = parts_[part].image_gram[static_cast<std::size_t>(i)];
    std::copy(row.begin(), row.end(), gram[i]);
    sums.by_class["image_coordinates"][static_cast<std::size_t>(i)] =
        row[static_cast<std::size_t>(i)];
  }
  const SymmetricEigen eigen = eigen_of_symmetric(std::move(gram));
  for (std::int32_t e = 0; e < 7; ++e) {
    Row7 row;
    const double root = std::sqrt(std::max(eigen.values[e], 0.0));
    for (std::int32_t k = 0; k < 7; ++k) {
      row[static_cast<std::size_t>(k)] = root * eigen.vectors[k][e];
    }
    sums.held.add(row);
  }
  return sums;
}

std::vector<NetworkComponent> DatumAnalysis::components(const UnknownWeights& weights) {
  std::vector<NetworkComponent> components;
  for (std::size_t p = 0; p < parts_.size(); ++p) {
    const NetworkPart& from = network_.parts()[p];
    NetworkComponent& component = components.emplace_back();
    component.component = static_cast<std::int32_t>(p) + 1;
    component.images = static_cast<std::int32_t>(from.images.size());
    component.points = static_cast<std::int32_t>(from.points.size());
    component.control_points = static_cast<std::int32_t>(from.held_points.size());
    const Sums sums = sums_of(p, weights);
    const Eigen7& eigen = parts_[p].eigen = generalised_eigen(sums.held, sums.diagonal);
    component.quotients = eigen.values;
    std::vector<Row7> free;
    while (free.size() < kNumMotions && eigen.values[free.size()] < kFreeQuotient) {
      free.push_back(eigen.vectors[free.size()]);
    }
    component.defect = static_cast<std::int32_t>(free.size());
    component.motions = simple_motions(free, parts_[p].motions.centre(), parts_[p].length);
    for (std::size_t m = 0; m < kNumMotions; ++m) {
      BasicMotion& basic = component.basic[m];
      double held = 0.0;
      for (const auto& [name, squares] : sums.by_class) held += squares[m];
      if (!(sums.diagonal[m][m] > 0.0)) continue;
      basic.quotient = held / sums.diagonal[m][m];
      if (basic.quotient < kFreeQuotient) continue;
      constexpr double kNothing = 1e-12;
      for (const auto& [name, squares] : sums.by_class) {
        if (squares[m] > kNothing * held) basic.held_by.emplace_back(name, squares[m] / held);
      }
    }
  }
  return components;
}

std::vector<DatumAnalysis::Changes> DatumAnalysis::free_changes() const {
  std::vector<Changes> all;
  for (std::size_t p = 0; p < parts_.size(); ++p) {
    const Eigen7& eigen = parts_[p].eigen;
    for (std::size_t e = 0; e < kNumMotions && eigen.values[e] < kFreeQuotient; ++e) {
      Changes& changes = all.emplace_back();
      for_each_unknown(p, [&](const AdjObject& object, std::int32_t k, const Row7& row) {
        double change = 0.0;
        for (std::size_t m = 0; m < kNumMotions; ++m) change += row[m] * eigen.vectors[e][m];
        changes.emplace_back(object.index + k, change);
      });
    }
  }
  return all;
}

}  // namespace vorn
