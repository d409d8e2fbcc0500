#include "quality/image_figures.h"

#include <algorithm>
#include <cmath>

#include "base/place.h"
#include "geometry/ext_orientation.h"
#include "lsq/linalg/kernels.h"
#include "quality/final_system.h"
#include "quality/inner_datum.h"
#include "sensors/camera.h"

namespace vorn {

ImageFigures::ImageFigures(const BundleImage& image, const FinalSystem& system)
    : image_(&image),
      equations_(std::make_unique<ObservationEquations>(image, Derivatives::exact)),
      blocks_(blocks_of(image, system.normal())) {
  if (const auto* const orientation = dynamic_cast<const ExtOrientation*>(image.geometry)) {
    projection_centre_ = orientation->projection_centre();
  }
  const NormalMatrix& normal = system.normal();
  for (const std::int32_t block : blocks_) {
    for (std::int32_t k = 0; k < normal.block_width(block); ++k) {
      unknowns_.push_back(normal.block_index(block) + k);
    }
  }
  const std::size_t width = unknowns_.size();
  cofactors_.resize(width * width);
  for (std::size_t i = 0; i < width; ++i) {
    for (std::size_t j = 0; j < width; ++j) {
      cofactors_[i * width + j] = system.cofactor(unknowns_[i], unknowns_[j]);
    }
  }
}

bool RayFigures::fill(const ImageFigures& of, std::span<const Ray> rays) {
  const bool packed = of.equations().takes_packs();
  if (!(packed ? form(of, rays) : form_one_by_one(of, rays))) return false;
  line_up_coupling(of, rays);
  const auto width = static_cast<std::int32_t>(of.unknowns().size());
  kernels().project_packed_rows(projection_, {packed_.x.data()->data(), packed_.y.data()->data(),
                                              of.cofactors(), coupling_.data(), width, width});
  for (std::size_t k = 0; k < rays.size(); ++k) fill(of, rays[k], k);
  return true;
}

// The design rows of all of them.
bool RayFigures::form(const ImageFigures& of, std::span<const Ray> rays) {
  // Exact derivatives do not depend on what was measured.
  PackedPoints points{};
  for (int lane = 0; lane < Pack::kSize; ++lane) {
    // The last one serves the lanes that are left over, too.
    const Ray& ray = rays[std::min(place(lane), rays.size() - 1)];
    for (std::size_t i = 0; i < 3; ++i) points.object[i].set(lane, ray.point->xyz[i]);
  }
  return of.equations().find_rows(points, packed_);
}

bool RayFigures::form_one_by_one(const ImageFigures& of, std::span<const Ray> rays) {
  const std::size_t width = of.unknowns().size();
  packed_.x.resize(std::max(packed_.x.size(), width));
  packed_.y.resize(packed_.x.size());
  for (std::size_t k = 0; k < rays.size(); ++k) {
    const Observation observation = observation_of(*rays[k].row->point, *of.image().camera);
    if (of.equations().linearise(observation, rays[k].point->xyz, equation_) !=
        ObservationEquations::Outcome::formed) {
      return false;
    }
    const auto lane = static_cast<int>(k);
    for (std::size_t i = 0; i < 3; ++i) {
      packed_.point_x[i].set(lane, equation_.point[i]);
      packed_.point_y[i].set(lane, equation_.point[3 + i]);
    }
    for (std::size_t j = 0; j < width; ++j) {
      packed_.x[j].set(lane, equation_.rows[j]);
      packed_.y[j].set(lane, equation_.rows[place(equation_.stride) + j]);
    }
  }
  return true;
}

// The cofactors of the points with the unknowns of the image, out of those with all blocks.
void RayFigures::line_up_coupling(const ImageFigures& of, std::span<const Ray> rays) {
  const NormalMatrix& normal = system_.normal();
  const std::size_t width = of.unknowns().size();
  coupling_.resize(std::max(coupling_.size(), 3 * width * kMostRays));
  for (std::size_t k = 0; k < rays.size(); ++k) {
    const SelectedInverse::PointCofactors& cofactors = *rays[k].cofactors;
    double* to = coupling_.data() + k;
    auto at = cofactors.blocks.begin();
    for (const std::int32_t block : of.blocks()) {
      at = std::lower_bound(
          at, cofactors.blocks.end(), block,
          [](const NormalMatrix::PointBlock& x, std::int32_t b) { return x.block < b; });
      const double* from = cofactors.coupled + at->start;
      const std::size_t columns = place(normal.block_width(block));
      for (std::size_t r = 0; r < 3; ++r) {
        for (std::size_t c = 0; c < columns; ++c) to[(r * width + c) * kMostRays] = *from++;
      }
      to += columns * kMostRays;
    }
  }
}

// Of one image point, the k-th of those at work.
void RayFigures::fill(const ImageFigures& of, const Ray& ray, std::size_t k) {
  const auto lane = static_cast<int>(k);
  const auto project = [&](const Pack* a, const double(&coupled)[3][kMostRays]) {
    Projected projected{};
    for (std::size_t r = 0; r < 3; ++r) {
      projected.a[r] = a[r][lane];
      projected.c[r] = coupled[r][k];
    }
    for (std::size_t r = 0; r < 3; ++r) {
      const double* const q = ray.cofactors->own[r];
      const Vec3& row = projected.a;
      projected.point[r] = q[0] * row[0] + q[1] * row[1] + q[2] * row[2] + projected.c[r];
    }
    return projected;
  };
  const Projected x = project(packed_.point_x, projection_.kx);
  const Projected y = project(packed_.point_y, projection_.ky);
  // A Q A' of both equations, with a = (a_p, a_r): a_p Q_p a' + a_r (Q_rp a_p' + Q_rr a_r').
  const double xx = dot(x.a, x.point) + dot(x.c, x.a) + projection_.xx[k];
  const double xy = dot(x.a, y.point) + dot(x.c, y.a) + projection_.xy[k];
  const double yy = dot(y.a, y.point) + dot(y.c, y.a) + projection_.yy[k];
  // R = I - P^1/2 A Q A' P^1/2 (Foerstner 1987), P = diag((sigma0/s)^2).
  ImagePointResult& row = *ray.row;
  const double sigma0 = system_.sigma0_prior();
  const double root[2] = {sigma0 / row.s[0], sigma0 / row.s[1]};
  row.r = {std::clamp(1.0 - root[0] * root[0] * xx, 0.0, 1.0),
           std::clamp(1.0 - root[1] * root[1] * yy, 0.0, 1.0)};
  row.rxy = -root[0] * root[1] * xy;
  const double shifts[2] = {shift(of, ray, x, packed_.x.data(), lane),
                            shift(of, ray, y, packed_.y.data(), lane)};
  for (std::size_t i = 0; i < 2; ++i) {
    const double detectable = smallest_detectable(row.s[i], row.r[i], delta0_);
    row.effect[i] = root[i] * root[i] * detectable * shifts[i];
  }
}

// |Q_p a'|: how far an error of unit weight and size shifts the object point. `rest` is the row of
// everything else.
double RayFigures::shift(const ImageFigures& of, const Ray& ray, const Projected& projected,
                         const Pack* rest, int lane) const {
  Vec3 shift = projected.point;
  if (datum_ != nullptr) {
    const std::int32_t first = ray.point->index;
    Row7 along{};
    for (std::int32_t k = 0; k < 3; ++k) {
      datum_->add_product(first + k, projected.a[place(k)], along);
    }
    for (std::size_t j = 0; j < of.unknowns().size(); ++j) {
      datum_->add_product(of.unknowns()[j], rest[j][lane], along);
    }
    shift = shift + datum_->change_of_shift(first / 3, along);
  }
  return length(shift);
}

}  // namespace vorn
