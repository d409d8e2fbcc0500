// Directions taken out of the normal equations: N := P N P + c n n', P = I - n n'.

#include <algorithm>
#include <cstddef>
#include <span>
#include <vector>

#include "lsq/normal/normal_matrix.h"

namespace vorn {
namespace {

// B := P B = B - n (n'B) for m rows of B, `stride` apart.
void project_rows(double* b, std::ptrdiff_t stride, std::int32_t width, std::span<const double> n) {
  for (std::int32_t c = 0; c < width; ++c) {
    double along = 0.0;
    const double* from = b + c;
    for (const double component : n) {
      along += component * *from;
      from += stride;
    }
    double* to = b + c;
    for (const double component : n) {
      *to -= component * along;
      to += stride;
    }
  }
}

// B := B P for some rows of B, `stride` apart.
void project_columns(double* b, std::ptrdiff_t stride, std::int32_t rows,
                     std::span<const double> n) {
  for (std::int32_t r = 0; r < rows; ++r) project_rows(b + r * stride, 1, 1, n);
}

// N := P N P + c n n' for a diagonal block, w x w, full; n begins at row `first`.
void take_out_of_block(std::vector<double>& block, std::int32_t w, std::int32_t first,
                       const NormalMatrix::Direction& direction) {
  const std::span<const double> n = direction.n;
  project_rows(block.data() + std::ptrdiff_t{first} * w, w, w, n);
  project_columns(block.data() + first, w, w, n);
  double* row = block.data() + std::ptrdiff_t{first} * w + first;
  for (const double component : n) {
    for (std::size_t c = 0; c < n.size(); ++c) row[c] += direction.weight * component * n[c];
    row += w;
  }
}

}  // namespace

void NormalMatrix::take_out(std::span<const Direction> directions, Vector& b) {
  std::vector<std::vector<const Direction*>> by_block(blocks_.size());
  for (const Direction& direction : directions) {
    project_columns(b.data() + direction.index, 0, 1, direction.n);
    if (direction.index < num_point_unknowns()) {
      take_out_of_point(direction);
    } else {
      by_block[place(block_of(direction.index))].push_back(&direction);
    }
  }
  for (std::int32_t a = 0; a < num_blocks(); ++a) {
    for (const BlockPair& pair : pairs_[place(a)]) {
      double* const elements = pair_values_.data() + pair.offset;
      if (pair.other == a) {
        take_out_of_diagonal(a, elements, by_block[place(a)]);
        continue;
      }
      const std::ptrdiff_t width = block_width(pair.other);
      for (const Direction* d : by_block[place(a)]) {
        project_rows(elements + (d->index - block_index(a)) * width, width, block_width(pair.other),
                     d->n);
      }
      for (const Direction* d : by_block[place(pair.other)]) {
        project_columns(elements + (d->index - block_index(pair.other)), width, block_width(a),
                        d->n);
      }
    }
  }
  for (std::int32_t point = 0; point < num_points_; ++point) {
    for (const PointBlock& at : blocks_of(point)) {
      double* const coupling = point_rows(point).coupling + at.start;
      for (const Direction* d : by_block[place(at.block)]) {
        project_columns(coupling + (d->index - block_index(at.block)), block_width(at.block), 3,
                        d->n);
      }
    }
  }
}

// In the diagonal element of `pairs_` the upper triangle counts.
void NormalMatrix::take_out_of_diagonal(std::int32_t block, double* elements,
                                        const std::vector<const Direction*>& directions) {
  if (directions.empty()) return;
  const std::int32_t w = block_width(block);
  std::vector<double> full(place(w) * place(w));
  const auto at = [w](std::int32_t r, std::int32_t c) { return place(r) * place(w) + place(c); };
  for (std::int32_t r = 0; r < w; ++r) {
    for (std::int32_t c = 0; c < w; ++c) {
      full[at(r, c)] = elements[at(std::min(r, c), std::max(r, c))];
    }
  }
  for (const Direction* d : directions) {
    take_out_of_block(full, w, d->index - block_index(block), *d);
  }
  std::copy(full.begin(), full.end(), elements);
}

void NormalMatrix::take_out_of_point(const Direction& direction) {
  const std::int32_t point = direction.index / 3;
  const std::int32_t first = direction.index % 3;
  const PointRows rows = point_rows(point);
  double* const d = rows.diagonal;
  std::vector<double> full = {d[0], d[1], d[2], d[1], d[3], d[4], d[2], d[4], d[5]};
  take_out_of_block(full, 3, first, direction);
  const double upper[] = {full[0], full[1], full[2], full[4], full[5], full[8]};
  std::copy_n(upper, 6, d);
  for (const PointBlock& at : blocks_of(point)) {
    const std::ptrdiff_t width = block_width(at.block);
    project_rows(rows.coupling + at.start + first * width, width, block_width(at.block),
                 direction.n);
  }
}

}  // namespace vorn
