#include "lsq/normal/normal_structure.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace vorn {
namespace {

using Order = std::vector<std::int32_t>;

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

}  // namespace vorn
