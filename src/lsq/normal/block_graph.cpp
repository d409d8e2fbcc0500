#include "lsq/normal/block_graph.h"

#include <algorithm>
#include <numeric>

#include "base/place.h"
#include "base/workers.h"

namespace vorn {
namespace {

using Order = std::vector<std::int32_t>;

}  // namespace

Graph block_graph(const NormalStructure& structure, const NormalStructure::PointBlocks& points) {
  const auto n = place(structure.num_blocks());
  // The points of each block, by counting.
  std::vector<std::size_t> first(n + 1, 0);
  for (const std::int32_t b : points.blocks) ++first[place(b) + 1];
  std::partial_sum(first.begin(), first.end(), first.begin());
  Order points_of(points.blocks.size());
  std::vector<std::size_t> next(first.begin(), first.end() - 1);
  for (std::int32_t p = 0; p < structure.num_points(); ++p) {
    for (const std::int32_t b : points.of(p)) points_of[next[place(b)]++] = p;
  }
  std::vector<Order> groups_of(n);
  for (std::int32_t g = 0; g < structure.num_groups(); ++g) {
    for (const std::int32_t b : structure.group(g)) groups_of[place(b)].push_back(g);
  }
  // The neighbours of a block, in the order in which its groups and points name them.
  const auto find_neighbours = [&](std::size_t b, Order& seen_by, Order& neighbours) {
    seen_by[b] = static_cast<std::int32_t>(b);
    const auto meet = [&](std::span<const std::int32_t> blocks) {
      for (const std::int32_t other : blocks) {
        if (seen_by[place(other)] == static_cast<std::int32_t>(b)) continue;
        seen_by[place(other)] = static_cast<std::int32_t>(b);
        neighbours.push_back(other);
      }
    };
    for (const std::int32_t g : groups_of[b]) meet(structure.group(g));
    for (std::size_t k = first[b]; k < first[b + 1] && neighbours.size() + 1 < n; ++k) {
      meet(points.of(points_of[k]));
    }
  };
  std::vector<Order> neighbours(n);
  std::vector<Order> seen_by(workers().count());
  constexpr std::size_t kGrain = 32;
  for_each_range(n, kGrain, [&](std::size_t begin, std::size_t end, std::size_t worker) {
    seen_by[worker].resize(n, -1);
    for (std::size_t b = begin; b < end; ++b) {
      find_neighbours(b, seen_by[worker], neighbours[b]);
    }
  });
  Graph graph;
  for (const Order& of_block : neighbours) {
    graph.neighbours.insert(graph.neighbours.end(), of_block.begin(), of_block.end());
    graph.first.push_back(graph.neighbours.size());
  }
  return graph;
}

std::vector<std::int32_t> hubs_of(const Graph& graph) {
  Order hubs;
  for (std::int32_t b = 0; b < graph.size(); ++b) {
    if (graph.degree(b) * 3 >= place(graph.size())) hubs.push_back(b);
  }
  return hubs;
}

void append_levels(const Graph& graph, std::int32_t start, std::vector<bool>& placed,
                   std::vector<std::int32_t>& order) {
  placed[place(start)] = true;
  std::size_t next = order.size();
  order.push_back(start);
  for (; next < order.size(); ++next) {
    const std::size_t first = order.size();
    for (const std::int32_t node : graph.of(order[next])) {
      if (placed[place(node)]) continue;
      placed[place(node)] = true;
      order.push_back(node);
    }
    std::stable_sort(
        order.begin() + static_cast<std::ptrdiff_t>(first), order.end(),
        [&](std::int32_t a, std::int32_t b) { return graph.degree(a) < graph.degree(b); });
  }
}

std::int32_t rim_node(const Graph& graph, std::int32_t start, const std::vector<bool>& placed) {
  std::int32_t rim = start;
  for (int round = 0; round < 2; ++round) {
    std::vector<bool> visited = placed;
    Order levels;
    append_levels(graph, rim, visited, levels);
    rim = levels.back();
  }
  return rim;
}

std::vector<std::int32_t> band_order(const Graph& graph) {
  std::vector<bool> placed(place(graph.size()), false);
  const Order hubs = hubs_of(graph);
  for (const std::int32_t hub : hubs) placed[place(hub)] = true;
  Order order;
  order.reserve(place(graph.size()));
  for (std::int32_t b = 0; b < graph.size(); ++b) {
    if (!placed[place(b)]) append_levels(graph, rim_node(graph, b, placed), placed, order);
  }
  std::reverse(order.begin(), order.end());
  order.insert(order.end(), hubs.begin(), hubs.end());
  return order;
}

}  // namespace vorn
