#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace vorn {

// Which unknowns of a bundle adjustment meet in an observation. The unknowns come in blocks: first
// `num_points` object points of three each, which never meet one another, then the blocks of
// everything else (geometries, parameter sets, corrections), the reduced part. An observation
// touches one point and the blocks of one group: those of an image.
class NormalStructure {
 public:
  explicit NormalStructure(std::int32_t num_points = 0) : num_points_(num_points) {}

  // Adds the next block of the reduced part; returns its number.
  std::int32_t add_block(std::int32_t width);
  // Adds a group of blocks; returns its number.
  std::int32_t add_group(std::vector<std::int32_t> blocks);
  // Makes one block of neighbours that belong to the same groups: what always appears together is
  // handled together. Blocks without a group stay as they are. Numbers of blocks change.
  void merge_blocks();
  // Says that observations of the group added last touch a point.
  void add_ray(std::int32_t point) { rays_.push_back({num_groups() - 1, point}); }
  void reserve_rays(std::size_t count) { rays_.reserve(count); }
  // Gives the memory of the rays back.
  void forget_rays() { std::vector<GroupRay>().swap(rays_); }

  std::int32_t num_points() const { return num_points_; }
  std::int32_t num_blocks() const { return static_cast<std::int32_t>(widths_.size()); }
  std::int32_t width(std::int32_t block) const { return widths_[static_cast<std::size_t>(block)]; }
  std::int32_t num_groups() const { return static_cast<std::int32_t>(groups_.size()); }
  const std::vector<std::int32_t>& group(std::int32_t g) const {
    return groups_[static_cast<std::size_t>(g)];
  }
  std::int32_t num_unknowns() const { return 3 * num_points_ + reduced_size(); }
  std::int32_t reduced_size() const { return static_cast<std::int32_t>(block_of_.size()); }
  // The block of an unknown of the reduced part.
  std::int32_t block_of(std::int32_t unknown) const {
    return block_of_[static_cast<std::size_t>(unknown - 3 * num_points_)];
  }

  // Distinct blocks that each point meets, ascending: those of point p stand at [first[p], first[p
  // + 1]).
  struct PointBlocks {
    std::vector<std::size_t> first;
    std::vector<std::int32_t> blocks;

    std::span<const std::int32_t> of(std::int32_t point) const {
      const auto p = static_cast<std::size_t>(point);
      return {blocks.data() + first[p], first[p + 1] - first[p]};
    }
  };
  PointBlocks point_blocks() const;

 private:
  struct GroupRay {
    std::int32_t group;
    std::int32_t point;
  };

  std::int32_t num_points_;
  std::vector<std::int32_t> widths_;
  std::vector<std::int32_t> block_of_;
  std::vector<std::vector<std::int32_t>> groups_;
  std::vector<GroupRay> rays_;
};

}  // namespace vorn
