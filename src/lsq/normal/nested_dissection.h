#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "lsq/normal/block_graph.h"

namespace vorn {

// An order of the blocks, and the places in it, ascending, where the factorisation begins a new
// tile: what stands on either side of them has little in common.
struct BlockOrder {
  std::vector<std::int32_t> blocks;
  std::vector<std::int32_t> fronts;
};

// Nested dissection (George 1973): a separator cuts the graph in two parts that do not meet, each
// of which is cut again; the parts are factorised first, what separates them last. Parts of at most
// `leaf` nodes stay whole. Hubs stand at the end.
BlockOrder dissection_order(const Graph& graph, std::size_t leaf);

// Cuts graphs. The library's own way is a level of a level structure; a program may bring a better
// one (`use_separator`).
class Separator {
 public:
  Separator() = default;
  virtual ~Separator() = default;
  Separator(const Separator&) = delete;
  Separator& operator=(const Separator&) = delete;

  enum Side : std::int8_t { kLeft, kRight, kBetween };
  // Gives each node of a connected graph its side, so that no node of the left meets one of the
  // right; the same for the same graph. Leaves `sides` empty where it knows none.
  virtual void cut(const Graph& graph, std::vector<Side>& sides) = 0;
};

// From now on the better of this one's cut and the library's own counts; null stands for the
// library's alone. It outlives what it works at. Not while a project is being adjusted.
void use_separator(Separator* separator);

}  // namespace vorn
