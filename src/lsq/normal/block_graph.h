#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "lsq/normal/normal_structure.h"

namespace vorn {

// A graph without direction: the neighbours of node k < size(), without itself, are neighbours
// [first[k], first[k + 1]).
struct Graph {
  std::vector<std::size_t> first{0};
  std::vector<std::int32_t> neighbours;

  std::int32_t size() const { return static_cast<std::int32_t>(first.size()) - 1; }
  std::span<const std::int32_t> of(std::int32_t node) const {
    const auto k = static_cast<std::size_t>(node);
    return {neighbours.data() + first[k], first[k + 1] - first[k]};
  }
  std::size_t degree(std::int32_t node) const { return of(node).size(); }
};

// Which blocks of the reduced part meet in a group or in a point: the off-diagonal pattern of the
// reduced normal matrix.
Graph block_graph(const NormalStructure& structure, const NormalStructure::PointBlocks& points);
// Blocks that meet a third of all blocks and more, as the camera's parameter sets do: they stand at
// the end of every order.
std::vector<std::int32_t> hubs_of(const Graph& graph);

// The nodes that can be reached from `start` without those placed, which they are afterwards: level
// by level, each level by ascending degree, appended to `order`.
void append_levels(const Graph& graph, std::int32_t start, std::vector<bool>& placed,
                   std::vector<std::int32_t>& order);
// A node at the rim of the part of the graph that holds `start`: the last one of a level structure
// has about the largest distance from its beginning (George and Liu 1979).
std::int32_t rim_node(const Graph& graph, std::int32_t start, const std::vector<bool>& placed);

// An order of the blocks that keeps the factor sparse: reverse Cuthill-McKee (George and Liu 1981,
// 4.3), hubs at the end.
std::vector<std::int32_t> band_order(const Graph& graph);

}  // namespace vorn
