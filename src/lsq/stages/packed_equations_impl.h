#pragma once

#include "base/lanes.h"
#include "calibration/camera_formulas.h"
#include "lsq/stages/packed_equations.h"

// The observation equations of packs, from the formulas that serve one point, too, with N numbers
// per vector. Each instruction set has an N of its own, so that no two versions are one function to
// the linker.

namespace vorn {

// The parameter sets of an image's camera, for the camera's formulas.
class PackedSets {
 public:
  explicit PackedSets(const PackedImage& image)
      : begin_(image.sets.data()), end_(begin_ + image.sets.size()) {}
  template <class Visit>
  void for_each(Visit visit) const {
    for (const APTerms* set = begin_; set != end_; ++set) visit(*set);
  }

 private:
  const APTerms* begin_;
  const APTerms* end_;
};

// N of the eight points, from a lane on.
template <std::size_t N>
class PackedFormer {
 public:
  PackedFormer(const PackedImage& image, const PackedPoints& points, const PackedDesign& design,
               std::int32_t lane)
      : image_(image),
        observed_{load(points.observed[0], lane), load(points.observed[1], lane)},
        object_{load(points.object[0], lane), load(points.object[1], lane),
                load(points.object[2], lane)},
        point_{row(design.point.x, lane), row(design.point.y, lane)},
        rows_{row(design.rows.x, lane), row(design.rows.y, lane)} {}

  // The design rows, and the misclosures if they have a place.
  bool form(Pack* misclosure, std::int32_t lane) {
    const Perspective& perspective = *image_.perspective;
    PointState<Number> state = state_of(perspective, object_);
    if (any_is_zero(state.u[2])) return false;
    const Number z(-image_.camera.c);
    fill_centre_columns(perspective, z, state, rows_, point_);
    fill_rotation_columns(perspective, state, rows_.from(3));
    const Vec3Of<Number> ideal = image_of(z, state.u);
    if (image_.exact) {
      form_exact(ideal, misclosure, lane);
    } else {
      form_documented(ideal, misclosure, lane);
    }
    return true;
  }

 private:
  using Number = Lanes<N>;
  using Row = LaneRow<N>;
  using Pair = std::array<Number, 2>;

  static Number load(const Pack& pack, std::int32_t lane) {
    return Number::load(pack.data() + lane);
  }
  static Row row(Pack* packs, std::int32_t lane) { return Row(packs->data() + lane); }

  std::int32_t num_orientation_columns() const {
    return 3 + image_.perspective->num_rotation_params;
  }

  [[gnu::flatten]] void form_documented(const Vec3Of<Number>& ideal, Pack* misclosure,
                                        std::int32_t lane) {
    const PackedSets sets(image_);
    const Vec3Of<Number> camera_vector = reduced(image_.camera, sets, observed_);
    RowPair<Row> columns = rows_.from(num_orientation_columns());
    sets.for_each([&](const APTerms& set) {
      fill_set_columns(set, camera_vector, columns);
      columns = columns.from(set.num_ap);
    });
    fill_correction_columns(columns);
    if (misclosure != nullptr) store(completed(image_.camera, sets, ideal), misclosure, lane);
  }

  void form_exact(const Vec3Of<Number>& ideal, Pack* misclosure, std::int32_t lane) {
    const PackedSets sets(image_);
    const std::int32_t num_columns = num_orientation_columns();
    RowPair<Row> columns = rows_.from(num_columns);
    const std::array<Dual<Number>, 2> image = linearised(image_.camera, sets, ideal, columns);
    apply_chain_rule(image, point_, 3);
    apply_chain_rule(image, rows_, num_columns);
    sets.for_each([&](const APTerms& set) { columns = columns.from(set.num_ap); });
    fill_correction_columns(columns);
    if (misclosure != nullptr) store({image[0].value, image[1].value}, misclosure, lane);
  }

  // From the columns of the orientation, whatever these are.
  void fill_correction_columns(RowPair<Row> columns) const {
    const PackedImage::Correction* correction = image_.corrections.data();
    for (std::size_t left = image_.corrections.size(); left > 0; --left, ++correction) {
      const std::int32_t count = correction->num_values;
      fill_time_columns(correction->tau, count, rows_.x + correction->first, columns.x);
      fill_time_columns(correction->tau, count, rows_.y + correction->first, columns.y);
      columns = columns.from(count);
    }
  }

  void store(const Pair& computed, Pack* misclosure, std::int32_t lane) const {
    const Pair l = misclosure_of(observed_, computed);
    for (std::size_t k = 0; k < 2; ++k) l[k].store(misclosure[k].data() + lane);
  }

  const PackedImage& image_;
  Pair observed_;
  Vec3Of<Number> object_;
  RowPair<Row> point_;
  RowPair<Row> rows_;
};

template <std::size_t N>
bool form_packed_design(const PackedImage& image, const PackedPoints& points,
                        const PackedDesign& design) {
  for (std::int32_t lane = 0; lane < Pack::kSize; lane += int{N}) {
    if (!PackedFormer<N>(image, points, design, lane).form(design.misclosure, lane)) return false;
  }
  return true;
}

template <std::size_t N>
[[gnu::flatten]] bool find_packed_coords(const PackedImage& image, const Vec3Of<Pack>& object,
                                         PackPair& coords) {
  using Number = Lanes<N>;
  for (std::int32_t lane = 0; lane < Pack::kSize; lane += int{N}) {
    Vec3Of<Number> point;
    for (std::size_t k = 0; k < 3; ++k) point[k] = Number::load(object[k].data() + lane);
    const PointState<Number> state = state_of(*image.perspective, point);
    if (any_is_zero(state.u[2])) return false;
    const Vec3Of<Number> ideal = image_of(Number(-image.camera.c), state.u);
    const std::array<Number, 2> computed = completed(image.camera, PackedSets(image), ideal);
    for (std::size_t k = 0; k < 2; ++k) computed[k].store(coords[k].data() + lane);
  }
  return true;
}

}  // namespace vorn
