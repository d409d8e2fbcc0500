#include "lsq/normal/batch_columns.h"

namespace vorn {

void BatchColumns::set_pieces(const ReducedMatrix& reduced, std::span<const MetPiece> met,
                              std::vector<std::int32_t>& places) {
  reduced_ = &reduced;
  places_ = places.data();
  pieces_.clear();
  std::size_t room = 0;
  for (const MetPiece& one : met) {
    const TilePiece& at = reduced.pieces()[place(one.piece)];
    places[place(one.piece)] = static_cast<std::int32_t>(pieces_.size());
    pieces_.push_back({one.points, nullptr, at.tile, at.offset, at.width});
    room += place(kPointColumns * std::popcount(one.points));
  }
  values_.assign(room, 0.0);
  double* next = values_.data();
  for (BatchPiece& piece : pieces_) {
    piece.v = next;
    next += place(kPointColumns * std::popcount(piece.points));
  }
}

}  // namespace vorn
