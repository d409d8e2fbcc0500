// The order of large networks: what it keeps sparse, and that the equations it serves are solved.

#include "lsq/normal/nested_dissection.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>
#include <vector>

#include "app/separators/separators.h"
#include "lsq/linalg/tile_matrix.h"
#include "lsq/normal/normal_matrix.h"
#include "lsq/normal/point_elimination.h"
#include "support/noise.h"

namespace vorn {
namespace {

using Edges = std::vector<std::pair<std::int32_t, std::int32_t>>;

Graph graph_of(std::int32_t size, const Edges& edges) {
  std::vector<std::vector<std::int32_t>> neighbours(static_cast<std::size_t>(size));
  for (const auto& [a, b] : edges) {
    neighbours[static_cast<std::size_t>(a)].push_back(b);
    neighbours[static_cast<std::size_t>(b)].push_back(a);
  }
  Graph graph;
  for (const auto& of : neighbours) {
    graph.neighbours.insert(graph.neighbours.end(), of.begin(), of.end());
    graph.first.push_back(graph.neighbours.size());
  }
  return graph;
}

Edges grid(std::int32_t rows, std::int32_t columns, std::int32_t start = 0) {
  Edges edges;
  for (std::int32_t k = 0; k < rows * columns; ++k) {
    if (k % columns + 1 < columns) edges.emplace_back(start + k, start + k + 1);
    if (k + columns < rows * columns) edges.emplace_back(start + k, start + k + columns);
  }
  return edges;
}

// An aerial block: an image meets three neighbours on either side in its strip and seven in each
// strip beside it, so that a corner is cut off by far fewer images than the block is halved.
Edges aerial(std::int32_t strips, std::int32_t images) {
  Edges edges;
  for (std::int32_t k = 0; k < strips * images; ++k) {
    const std::int32_t at = k % images;
    for (std::int32_t d = -3; d <= 3; ++d) {
      if (at + d < 0 || at + d >= images) continue;
      if (d > 0) edges.emplace_back(k, k + d);
      if (k + images < strips * images) edges.emplace_back(k, k + images + d);
    }
  }
  return edges;
}

// Operations of the factorisation, node by node.
std::int64_t operations(const Graph& graph, const std::vector<std::int32_t>& order) {
  std::vector<std::int32_t> place(order.size());
  for (std::size_t k = 0; k < order.size(); ++k) {
    place[static_cast<std::size_t>(order[k])] = static_cast<std::int32_t>(k);
  }
  TilePattern pattern(graph.size());
  for (std::int32_t a = 0; a < graph.size(); ++a) {
    for (const std::int32_t b : graph.of(a)) {
      const auto [low, high] =
          std::minmax(place[static_cast<std::size_t>(a)], place[static_cast<std::size_t>(b)]);
      pattern.mark(high, low);
    }
  }
  return pattern.fill_in();
}

// Knows no cut, or one that is worse than any.
class PoorSeparator final : public Separator {
 public:
  explicit PoorSeparator(bool cuts) : cuts_(cuts) {}
  void cut(const Graph& graph, std::vector<Side>& sides) override {
    sides.assign(cuts_ ? static_cast<std::size_t>(graph.size()) : 0, kBetween);
    if (cuts_) sides.front() = kLeft;
  }

 private:
  bool cuts_;
};

class NestedDissection : public testing::Test {
 protected:
  void TearDown() override { use_separator(nullptr); }
};

TEST_F(NestedDissection, OrdersAllNodesAndSavesOperations) {
  Edges unconnected = grid(9, 30);
  for (const auto& edge : grid(30, 9, 270)) unconnected.push_back(edge);
  Edges with_hub = grid(30, 30);
  for (std::int32_t k = 0; k < 900; ++k) with_hub.emplace_back(k, 900);
  const struct {
    const char* name;
    Graph graph;
    double most;  // of the operations that the band takes
  } cases[] = {{"grid", graph_of(2500, grid(50, 50)), 0.75},
               {"aerial block", graph_of(4800, aerial(60, 80)), 0.65},
               {"two strips and three single nodes", graph_of(543, unconnected), 1.5},
               {"with a hub", graph_of(901, with_hub), 1.0},
               {"one node", graph_of(1, {}), 1.0},
               {"nothing", graph_of(0, {}), 1.0}};
  PoorSeparator none(false);
  PoorSeparator bad(true);
  for (const auto& c : cases) {
    const double band = static_cast<double>(operations(c.graph, band_order(c.graph)));
    const BlockOrder own = dissection_order(c.graph, 8);
    EXPECT_LE(static_cast<double>(operations(c.graph, own.blocks)), c.most * band) << c.name;
    std::vector<std::int32_t> sorted = own.blocks;
    std::sort(sorted.begin(), sorted.end());
    std::vector<std::int32_t> all(static_cast<std::size_t>(c.graph.size()));
    std::iota(all.begin(), all.end(), 0);
    EXPECT_EQ(sorted, all) << c.name;
    EXPECT_TRUE(std::is_sorted(own.fronts.begin(), own.fronts.end())) << c.name;
    // Parts are cut in the middle, more or less: two for each one above the size of leaves.
    EXPECT_LE(own.fronts.size(), all.size() / 3 + 2) << c.name;
    for (PoorSeparator* const separator : {&none, &bad}) {
      use_separator(separator);
      EXPECT_EQ(dissection_order(c.graph, 8).blocks, own.blocks) << c.name;
    }
    use_separator(nullptr);
    if (!app::has_metis()) continue;
    app::use_metis();
    EXPECT_LE(static_cast<double>(operations(c.graph, dissection_order(c.graph, 8).blocks)),
              c.most * band)
        << c.name;
    use_separator(nullptr);
  }
}

TEST_F(NestedDissection, FrontsStandBetweenPartsThatDoNotMeet) {
  const Graph graph = graph_of(1600, grid(40, 40));
  const BlockOrder order = dissection_order(graph, 20);
  ASSERT_GT(order.fronts.size(), 60U);
  // Of the nodes before the first front, none meets those up to the second one: two leaves.
  const auto end = static_cast<std::size_t>(order.fronts[2]);
  const auto middle = static_cast<std::size_t>(order.fronts[1]);
  for (std::size_t k = 0; k < middle; ++k) {
    for (const std::int32_t other : graph.of(order.blocks[k])) {
      const auto at = std::find(order.blocks.begin(), order.blocks.end(), other);
      const auto place = static_cast<std::size_t>(at - order.blocks.begin());
      EXPECT_FALSE(place >= middle && place < end);
    }
  }
}

// A star of 64 arms: a band is as wide as there are arms, what dissection leaves is next to
// nothing.
TEST_F(NestedDissection, LargeNetworksAreSolved) {
  constexpr std::int32_t kArms = 64;
  constexpr std::int32_t kLength = 64;
  constexpr std::int32_t kImages = kArms * kLength + 1;
  constexpr std::int32_t kWidth = 2;
  test::Noise noise(11);
  std::vector<std::int32_t> names(kImages);
  std::iota(names.begin(), names.end(), 0);
  for (std::size_t i = names.size(); i > 1; --i) std::swap(names[i - 1], names[noise.below(i)]);
  Edges pairs;
  for (std::int32_t k = 0; k + 1 < kImages; ++k) {
    const std::int32_t inner = k % kLength == 0 ? kImages - 1 : k - 1;
    pairs.emplace_back(names[static_cast<std::size_t>(k)], names[static_cast<std::size_t>(inner)]);
  }
  NormalStructure structure(kImages - 1);
  for (std::int32_t i = 0; i < kImages; ++i) structure.add_block(kWidth);
  std::vector<std::vector<std::int32_t>> seen(kImages);
  for (std::size_t p = 0; p < pairs.size(); ++p) {
    seen[static_cast<std::size_t>(pairs[p].first)].push_back(static_cast<std::int32_t>(p));
    seen[static_cast<std::size_t>(pairs[p].second)].push_back(static_cast<std::int32_t>(p));
  }
  for (std::int32_t i = 0; i < kImages; ++i) {
    structure.add_group({i});
    for (const std::int32_t p : seen[static_cast<std::size_t>(i)]) structure.add_ray(p);
  }
  NormalMatrix normal;
  ASSERT_TRUE(normal.set_structure(structure));
  normal.zero();
  const std::int32_t n = normal.size();
  struct Element {
    std::int32_t row, column;
    double value;
  };
  std::vector<Element> elements;
  for (std::int32_t i = 0; i < n; ++i) elements.push_back({i, i, 30.0});
  for (std::int32_t i = 0; i < kImages; ++i) {
    for (const std::int32_t p : seen[static_cast<std::size_t>(i)]) {
      for (std::int32_t k = 0; k < 3 * kWidth; ++k) {
        const std::int32_t column = normal.block_index(i) + k / 3;
        elements.push_back({3 * p + k % 3, column, std::sin(7.0 * i + p + k)});
      }
    }
  }
  Vector x_true(n);
  Vector b(n);
  b.zero();
  for (std::int32_t i = 0; i < n; ++i) x_true[i] = std::cos(i);
  for (const auto& [row, column, value] : elements) {
    normal.add(row, column, value);
    b[row] += value * x_true[column];
    if (row != column) b[column] += value * x_true[row];
  }
  PointElimination elimination(normal);
  ASSERT_TRUE(elimination.set_structure(PointElimination::Order::fill_reducing));
  EXPECT_GT(elimination.reduced().tiles.size(), structure.reduced_size()) << "not dissected";
  for (std::int32_t i = 0; i < kImages; ++i) {
    EXPECT_EQ(elimination.reduced().block_at(elimination.reduced().start(i) + 1), i);
  }
  Vector x;
  ASSERT_EQ(elimination.solve(b, x), 0);
  for (std::int32_t i = 0; i < n; ++i) ASSERT_NEAR(x[i], x_true[i], 1e-10) << i;
}

}  // namespace
}  // namespace vorn
