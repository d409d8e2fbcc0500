#include "lsq/normal/normal_structure.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace vorn {
namespace {

using Order = std::vector<std::int32_t>;

// Blocks that meet each block in a group or in a point, without itself.
class BlockGraph {
 public:
  BlockGraph(const NormalStructure& structure, const NormalStructure::PointBlocks& points) {
    const auto n = static_cast<std::size_t>(structure.num_blocks());
    neighbours_.resize(n);
    std::vector<std::vector<std::int32_t>> points_of(n);
    for (std::int32_t p = 0; p < structure.num_points(); ++p) {
      for (const std::int32_t b : points.of(p)) points_of[static_cast<std::size_t>(b)].push_back(p);
    }
    std::vector<std::vector<std::int32_t>> groups_of(n);
    for (std::int32_t g = 0; g < structure.num_groups(); ++g) {
      for (const std::int32_t b : structure.group(g)) {
        groups_of[static_cast<std::size_t>(b)].push_back(g);
      }
    }
    std::vector<std::int32_t> seen_by(n, -1);
    for (std::size_t b = 0; b < n; ++b) {
      seen_by[b] = static_cast<std::int32_t>(b);
      const auto meet = [&](std::span<const std::int32_t> blocks) {
        for (const std::int32_t other : blocks) {
          if (seen_by[static_cast<std::size_t>(other)] == static_cast<std::int32_t>(b)) continue;
          seen_by[static_cast<std::size_t>(other)] = static_cast<std::int32_t>(b);
          neighbours_[b].push_back(other);
        }
      };
      for (const std::int32_t g : groups_of[b]) meet(structure.group(g));
      for (const std::int32_t p : points_of[b]) {
        if (neighbours_[b].size() + 1 == n) break;
        meet(points.of(p));
      }
    }
  }

  std::int32_t size() const { return static_cast<std::int32_t>(neighbours_.size()); }
  const std::vector<std::int32_t>& neighbours(std::int32_t block) const {
    return neighbours_[static_cast<std::size_t>(block)];
  }
  std::size_t degree(std::int32_t block) const { return neighbours(block).size(); }

 private:
  std::vector<std::vector<std::int32_t>> neighbours_;
};

// Appends the blocks that can be reached from `start` level by level, each level by ascending
// degree.
void append_levels(const BlockGraph& graph, std::int32_t start, std::vector<bool>& placed,
                   Order& order) {
  placed[static_cast<std::size_t>(start)] = true;
  std::size_t next = order.size();
  order.push_back(start);
  for (; next < order.size(); ++next) {
    const std::size_t first = order.size();
    for (const std::int32_t block : graph.neighbours(order[next])) {
      if (placed[static_cast<std::size_t>(block)]) continue;
      placed[static_cast<std::size_t>(block)] = true;
      order.push_back(block);
    }
    std::stable_sort(
        order.begin() + static_cast<std::ptrdiff_t>(first), order.end(),
        [&](std::int32_t a, std::int32_t b) { return graph.degree(a) < graph.degree(b); });
  }
}

// A block at the rim of the part of the graph that holds `start`: the last one of a level structure
// has about the largest distance from its beginning (George and Liu 1979).
std::int32_t rim_block(const BlockGraph& graph, std::int32_t start,
                       const std::vector<bool>& placed) {
  std::int32_t rim = start;
  for (int round = 0; round < 2; ++round) {
    std::vector<bool> visited = placed;
    Order levels;
    append_levels(graph, rim, visited, levels);
    rim = levels.back();
  }
  return rim;
}

}  // namespace

std::int32_t NormalStructure::add_block(std::int32_t width) {
  block_of_.insert(block_of_.end(), static_cast<std::size_t>(width), num_blocks());
  widths_.push_back(width);
  return num_blocks() - 1;
}

std::int32_t NormalStructure::add_group(std::vector<std::int32_t> blocks) {
  groups_.push_back(std::move(blocks));
  return num_groups() - 1;
}

void NormalStructure::merge_blocks() {
  std::vector<Order> groups_of(widths_.size());
  for (std::int32_t g = 0; g < num_groups(); ++g) {
    for (const std::int32_t b : group(g)) groups_of[static_cast<std::size_t>(b)].push_back(g);
  }
  std::vector<std::int32_t> widths;
  Order merged(widths_.size());
  for (std::size_t b = 0; b < widths_.size(); ++b) {
    if (b > 0 && !groups_of[b].empty() && groups_of[b] == groups_of[b - 1]) {
      widths.back() += widths_[b];
    } else {
      widths.push_back(widths_[b]);
    }
    merged[b] = static_cast<std::int32_t>(widths.size()) - 1;
  }
  widths_ = std::move(widths);
  for (std::int32_t& block : block_of_) block = merged[static_cast<std::size_t>(block)];
  for (Order& blocks : groups_) {
    for (std::int32_t& block : blocks) block = merged[static_cast<std::size_t>(block)];
    blocks.erase(std::unique(blocks.begin(), blocks.end()), blocks.end());
  }
}

NormalStructure::PointBlocks NormalStructure::point_blocks() const {
  // The groups of each point, by counting.
  const auto n = static_cast<std::size_t>(num_points_);
  std::vector<std::size_t> first(n + 1, 0);
  for (const GroupRay& ray : rays_) ++first[static_cast<std::size_t>(ray.point) + 1];
  std::partial_sum(first.begin(), first.end(), first.begin());
  std::vector<std::int32_t> groups(rays_.size());
  std::vector<std::size_t> next(first.begin(), first.end() - 1);
  for (const GroupRay& ray : rays_) groups[next[static_cast<std::size_t>(ray.point)]++] = ray.group;

  PointBlocks result;
  result.first.reserve(n + 1);
  result.first.push_back(0);
  result.blocks.reserve(rays_.size() + n);
  std::vector<std::int32_t> seen_by(widths_.size(), -1);
  for (std::size_t p = 0; p < n; ++p) {
    const std::size_t begin = result.blocks.size();
    for (std::size_t k = first[p]; k < first[p + 1]; ++k) {
      for (const std::int32_t block : groups_[static_cast<std::size_t>(groups[k])]) {
        std::int32_t& seen = seen_by[static_cast<std::size_t>(block)];
        if (seen == static_cast<std::int32_t>(p)) continue;
        seen = static_cast<std::int32_t>(p);
        result.blocks.push_back(block);
      }
    }
    std::sort(result.blocks.begin() + static_cast<std::ptrdiff_t>(begin), result.blocks.end());
    result.first.push_back(result.blocks.size());
  }
  return result;
}

std::vector<std::int32_t> fill_reducing_order(const NormalStructure& structure,
                                              const NormalStructure::PointBlocks& points) {
  const auto n = static_cast<std::size_t>(structure.num_blocks());
  Order natural(n);
  std::iota(natural.begin(), natural.end(), 0);
  // Where every point meets a good part of all blocks, the factor is full in any order.
  if (points.blocks.size() * 4 > static_cast<std::size_t>(structure.num_points()) * n)
    return natural;

  const BlockGraph graph(structure, points);
  std::vector<bool> placed(n, false);
  Order hubs;
  for (std::int32_t b = 0; b < graph.size(); ++b) {
    if (graph.degree(b) * 3 < n) continue;
    hubs.push_back(b);
    placed[static_cast<std::size_t>(b)] = true;
  }
  Order order;
  order.reserve(n);
  for (std::int32_t b = 0; b < graph.size(); ++b) {
    if (placed[static_cast<std::size_t>(b)]) continue;
    append_levels(graph, rim_block(graph, b, placed), placed, order);
  }
  std::reverse(order.begin(), order.end());
  order.insert(order.end(), hubs.begin(), hubs.end());
  return order;
}

}  // namespace vorn
