#pragma once

#include <cstdint>

#include "lsq/linalg/tile_matrix.h"

namespace vorn {

// The elements of Z = (L L')^-1 in the tiles that L has: of the inverse of a sparse matrix those
// that its own pattern, with the fill-in, asks for. Nothing else of the inverse is needed to
// compute them (Takahashi, Fagan and Chin 1973; Erisman and Tinney 1975), so that the inverse takes
// the memory of the factor once more and about twice the arithmetic of the factorisation. The
// derivation stands at the head of tile_inverse.cpp.
class TileInverse {
 public:
  // `factor` is factorised. False when the tiles do not fit the address space.
  [[nodiscard]] bool compute(const TileMatrix& factor);

  // Element (i, j) of Z, in any order; it must stand in a tile that exists.
  double at(std::int32_t i, std::int32_t j) const { return i >= j ? z_.at(i, j) : z_.at(j, i); }
  bool has(std::int32_t i, std::int32_t j) const;
  // The lower triangle; the tiles of the diagonal are full.
  const TileMatrix& tiles() const { return z_; }

 private:
  TileMatrix z_;
};

}  // namespace vorn
