#include "quality/diagnosis_motions.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>

#include "calibration/corrections.h"
#include "geometry/eo_quaternion.h"
#include "geometry/ext_orientation.h"
#include "geometry/linear_geometries.h"

namespace vorn {
namespace {

constexpr std::size_t kRotation = 3;  // first column of w
constexpr std::size_t kScale = 6;

// Rotation parameters with attitude correction.
ExtOrientation::RotationParams effective_rotation(const ExtOrientation& orientation) {
  ExtOrientation::RotationParams params{};
  for (std::int32_t k = 3; k < orientation.num_values(); ++k) {
    params[static_cast<std::size_t>(k - 3)] = orientation.value(k);
  }
  if (orientation.has_att_correction()) {
    const Vec3 added = orientation.att_correction()->value_at(orientation.exposure_time);
    for (std::size_t k = 0; k < 3; ++k) params[k] += added[k];
  }
  return params;
}

// The object-space axis a of a parameter: dR/dp = [a]x R, the derivative by central differences.
Vec3 rotation_axis(const ExtOrientation& orientation, ExtOrientation::RotationParams params,
                   std::size_t k) {
  constexpr double kStep = 1e-5;
  const Mat3 r = orientation.matrix_from_params(params);
  const double value = params[k];
  params[k] = value + kStep;
  const Mat3 above = orientation.matrix_from_params(params);
  params[k] = value - kStep;
  const Mat3 below = orientation.matrix_from_params(params);
  // [a]x = dR/dp R', whose elements (2,1), (0,2), (1,0) are a.
  const auto element = [&](std::size_t i, std::size_t j) {
    return dot(above[i] - below[i], r[j]) / (2 * kStep);
  };
  return {(element(2, 1) - element(1, 2)) / 2, (element(0, 2) - element(2, 0)) / 2,
          (element(1, 0) - element(0, 1)) / 2};
}

// Changes of three angles by rotations of object space about X, Y, Z: the pseudo-inverse of the
// matrix of their axes, from its eigenvalues.
std::vector<Row7> rotations_of_angles(const ExtOrientation& orientation) {
  const ExtOrientation::RotationParams params = effective_rotation(orientation);
  std::array<Vec3, 3> axes;
  for (std::size_t k = 0; k < 3; ++k) axes[k] = rotation_axis(orientation, params, k);
  Matrix gram(3, 3);
  for (std::int32_t i = 0; i < 3; ++i) {
    for (std::int32_t j = 0; j < 3; ++j) {
      gram[i][j] = dot(axes[static_cast<std::size_t>(i)], axes[static_cast<std::size_t>(j)]);
    }
  }
  const SymmetricEigen eigen = eigen_of_symmetric(std::move(gram));
  std::vector<Row7> rows(3, Row7{});
  for (std::int32_t e = 0; e < 3; ++e) {
    constexpr double kLocked = 1e-12;
    if (!(eigen.values[e] > kLocked)) continue;
    Vec3 axis{};
    for (std::size_t k = 0; k < 3; ++k) {
      axis = axis + eigen.vectors[static_cast<std::int32_t>(k)][e] * axes[k];
    }
    for (std::size_t k = 0; k < 3; ++k) {
      for (std::size_t c = 0; c < 3; ++c) {
        rows[k][kRotation + c] +=
            eigen.vectors[static_cast<std::int32_t>(k)][e] * axis[c] / eigen.values[e];
      }
    }
  }
  return rows;
}

// Changes of a quaternion: dq = (0, w) q / 2, which keeps its length.
std::vector<Row7> rotations_of_quaternion(const ExtOrientation& orientation) {
  const ExtOrientation::RotationParams q = effective_rotation(orientation);
  const Vec3 vector = {q[1], q[2], q[3]};
  std::vector<Row7> rows(4, Row7{});
  for (std::size_t c = 0; c < 3; ++c) {
    Vec3 w{};
    w[c] = 0.5;
    const Vec3 change = q[0] * w + cross(w, vector);
    rows[0][kRotation + c] = -dot(w, vector);
    for (std::size_t k = 0; k < 3; ++k) rows[1 + k][kRotation + c] = change[k];
  }
  return rows;
}

// The velocity field v(X) = M X + m of one motion about a centre.
struct AffineField {
  Mat3 m;
  Vec3 offset;
};
AffineField field_of(std::size_t motion, const Vec3& centre) {
  AffineField field{};
  if (motion < kRotation) {
    field.offset[motion] = 1.0;
    return field;
  }
  for (std::size_t j = 0; j < 3; ++j) {
    Vec3 unit{};
    unit[j] = 1.0;
    Vec3 w{};
    if (motion < kScale) w[motion - kRotation] = 1.0;
    const Vec3 column = motion < kScale ? cross(w, unit) : unit;
    for (std::size_t i = 0; i < 3; ++i) field.m[i][j] = column[i];
  }
  field.offset = -(field.m * centre);
  return field;
}

// With the rows (l, l4) of a linear transformation, l'X + l4, constant at every moved point:
// dl = -M'l, dl4 = -l'm.
struct LinearRow {
  Vec3 l;
  double l4;
};
LinearRow moved(const Vec3& l, const AffineField& field) {
  return {-transposed_times(field.m, l), -dot(l, field.offset)};
}

// The direct linear transformation has the last element of its 3 x 4 matrix at 1: the changes are
// brought back to that.
void set_dlt(const DirectLinearTransf& geometry, const AffineField& field, std::size_t motion,
             std::vector<Row7>& rows) {
  const auto l_of = [&](std::int32_t first) {
    return Vec3{geometry.value(first), geometry.value(first + 1), geometry.value(first + 2)};
  };
  const LinearRow last = moved(l_of(8), field);
  for (const std::int32_t first : {0, 4, 8}) {
    const LinearRow change = moved(l_of(first), field);
    const auto at = static_cast<std::size_t>(first);
    for (std::size_t k = 0; k < 3; ++k) {
      rows[at + k][motion] = change.l[k] - l_of(first)[k] * last.l4;
    }
    if (first < 8) rows[at + 3][motion] = change.l4 - geometry.value(first + 3) * last.l4;
  }
}

void set_parallel(const PMFLinear& geometry, const AffineField& field, std::size_t motion,
                  std::vector<Row7>& rows) {
  for (const std::int32_t first : {0, 4}) {
    const LinearRow change = moved(
        {geometry.value(first + 1), geometry.value(first + 2), geometry.value(first + 3)}, field);
    const auto at = static_cast<std::size_t>(first);
    rows[at][motion] = change.l4;
    for (std::size_t k = 0; k < 3; ++k) rows[at + 1 + k][motion] = change.l[k];
  }
}

}  // namespace

std::array<Row7, 3> SimilarityMotions::of_place(const Vec3& place) const {
  const Vec3 r = place - centre_;
  return {{{1, 0, 0, 0, r[2], -r[1], r[0]},
           {0, 1, 0, -r[2], 0, r[0], r[1]},
           {0, 0, 1, r[1], -r[0], 0, r[2]}}};
}

std::vector<Row7> SimilarityMotions::of_geometry(const ImageGeometry& geometry) const {
  if (const auto* const orientation = dynamic_cast<const ExtOrientation*>(&geometry)) {
    const std::array<Row7, 3> centre = of_place(orientation->projection_centre());
    std::vector<Row7> rows(centre.begin(), centre.end());
    const bool quaternion = dynamic_cast<const EOQuaternion*>(&geometry) != nullptr;
    const std::vector<Row7> rotation =
        quaternion ? rotations_of_quaternion(*orientation) : rotations_of_angles(*orientation);
    rows.insert(rows.end(), rotation.begin(), rotation.end());
    return rows;
  }
  std::vector<Row7> rows(static_cast<std::size_t>(geometry.num_values()), Row7{});
  for (std::size_t motion = 0; motion < kNumMotions; ++motion) {
    const AffineField field = field_of(motion, centre_);
    if (const auto* const dlt = dynamic_cast<const DirectLinearTransf*>(&geometry)) {
      set_dlt(*dlt, field, motion, rows);
    } else if (const auto* const parallel = dynamic_cast<const PMFLinear*>(&geometry)) {
      set_parallel(*parallel, field, motion, rows);
    }
  }
  return rows;
}

// ---- simple motions ----------------------------------------------------------------------------

namespace {

// Parts of a unit row that count as none, and those that are rounding.
constexpr double kNegligible = 1e-5;
constexpr double kNoise = 1e-9;

// Combinations of t, w, s on their way to simple ones. Rotation and scale count by how far they
// move what lies `length` away.
class MotionRows {
 public:
  MotionRows(std::vector<Row7> rows, double length) : rows_(std::move(rows)), length_(length) {
    for (Row7& row : rows_) {
      for (std::size_t c = kRotation; c < row.size(); ++c) row[c] *= length;
      double sum = 0.0;
      for (const double v : row) sum += v * v;
      for (double& v : row) v /= std::sqrt(sum);
    }
    taken_.assign(rows_.size(), false);
  }

  // Takes the rows that have a part in the columns [first, end) and eliminates that part from all
  // others. The largest elements lead, so that axes fall on those of object space where they can.
  std::vector<std::size_t> take(std::size_t first, std::size_t end) {
    std::vector<std::size_t> pivots;
    while (true) {
      std::size_t pivot_row = rows_.size();
      std::size_t pivot = first;
      double largest = kNegligible;
      for (std::size_t r = 0; r < rows_.size(); ++r) {
        for (std::size_t c = first; !taken_[r] && c < end; ++c) {
          if (!(std::fabs(rows_[r][c]) > largest)) continue;
          largest = std::fabs(rows_[r][c]);
          pivot_row = r;
          pivot = c;
        }
      }
      if (pivot_row == rows_.size()) return pivots;
      taken_[pivot_row] = true;
      pivots.push_back(pivot_row);
      eliminate(pivot_row, pivot);
    }
  }

  Vec3 translation(std::size_t row) const { return part(row, 0, 1.0); }
  Vec3 rotation(std::size_t row) const { return part(row, kRotation, length_); }
  double scale(std::size_t row) const {
    const double s = rows_[row][kScale];
    return std::fabs(s) > kNegligible ? s / length_ : 0.0;
  }

 private:
  void eliminate(std::size_t pivot_row, std::size_t pivot) {
    const Row7 by = rows_[pivot_row];
    for (std::size_t r = 0; r < rows_.size(); ++r) {
      if (r == pivot_row) continue;
      const double factor = rows_[r][pivot] / by[pivot];
      for (std::size_t c = 0; c < by.size(); ++c) rows_[r][c] -= factor * by[c];
      rows_[r][pivot] = 0.0;
    }
  }
  // What is negligible beside the rest of the row is left out.
  Vec3 part(std::size_t row, std::size_t first, double unit) const {
    Vec3 v{};
    for (std::size_t k = 0; k < 3; ++k) {
      const double element = rows_[row][first + k];
      if (std::fabs(element) > kNoise) v[k] = element / unit;
    }
    return v;
  }

  std::vector<Row7> rows_;
  double length_;
  std::vector<bool> taken_;
};

// Unit vector whose largest component is positive.
Vec3 direction(const Vec3& v) {
  std::size_t largest = 0;
  for (std::size_t k = 1; k < 3; ++k) {
    if (std::fabs(v[k]) > std::fabs(v[largest])) largest = k;
  }
  return std::copysign(1.0, v[largest]) * unit(v);
}

// A rotation: at X = centre + w x t / |w|^2 nothing moves but along the axis. What does is a screw.
FreeMotion rotation_of(const Vec3& t, const Vec3& w, const Vec3& centre) {
  const double along = dot(t, w) / dot(w, w);
  const Vec3 left = along * w;
  const bool screw = dot(left, left) > kNegligible * kNegligible * (1.0 + dot(t, t));
  return {screw ? MotionKind::similarity : MotionKind::rotation, direction(w),
          centre + (1 / dot(w, w)) * cross(w, t)};
}

// What changes the scale leaves one place alone, X = centre + r with (s I + [w]x) r = -t:
// r = -(s^2 t - s w x t + (w't) w) / (s (s^2 + w'w)).
FreeMotion scale_of(const Vec3& t, const Vec3& w, double s, const Vec3& centre) {
  const double factor = -1 / (s * (s * s + dot(w, w)));
  const Vec3 r = factor * ((s * s) * t + (-s) * cross(w, t) + dot(w, t) * w);
  if (dot(w, w) == 0.0) return {MotionKind::scale, {}, centre + r};
  return {MotionKind::similarity, direction(w), centre + r};
}

}  // namespace

std::vector<FreeMotion> simple_motions(const std::vector<Row7>& combinations, const Vec3& centre,
                                       double length) {
  MotionRows rows(combinations, length);
  const std::vector<std::size_t> scales = rows.take(kScale, kScale + 1);
  const std::vector<std::size_t> rotations = rows.take(kRotation, kScale);
  const std::vector<std::size_t> translations = rows.take(0, kRotation);
  std::vector<FreeMotion> motions;
  for (const std::size_t row : translations) {
    motions.push_back({MotionKind::translation, direction(rows.translation(row)), {}});
  }
  for (const std::size_t row : rotations) {
    motions.push_back(rotation_of(rows.translation(row), rows.rotation(row), centre));
  }
  for (const std::size_t row : scales) {
    motions.push_back(scale_of(rows.translation(row), rows.rotation(row), rows.scale(row), centre));
  }
  const auto axis_of = [](const FreeMotion& motion) {
    std::size_t largest = 0;
    for (std::size_t k = 1; k < 3; ++k) {
      if (std::fabs(motion.axis[k]) > std::fabs(motion.axis[largest])) largest = k;
    }
    return std::pair(motion.kind, largest);
  };
  std::stable_sort(motions.begin(), motions.end(), [&](const FreeMotion& a, const FreeMotion& b) {
    return axis_of(a) < axis_of(b);
  });
  return motions;
}

}  // namespace vorn
