#pragma once

namespace vorn {

// Two rows of a design matrix, x and y. A row is a pointer to numbers, or what gives packs of them
// one after the other in the same way (LaneRow).
template <class Row>
struct RowPair {
  Row x;
  Row y;

  // The same rows from a later column on.
  RowPair from(int column) const { return {x + column, y + column}; }
};

}  // namespace vorn
