#include "lsq/normal/nested_dissection.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "base/brought.h"
#include "base/place.h"

namespace vorn {
namespace {

using Nodes = std::vector<std::int32_t>;
using Sides = std::vector<Separator::Side>;

// What a cut costs: the nodes between, times the part over four times the product of the shares of
// both sides, which is one for halves and grows like the part over the smaller side: few nodes that
// cut a corner off do not help the rest.
double cost_of(std::size_t left, std::size_t between, std::size_t right) {
  if (left == 0 || right == 0) return std::numeric_limits<double>::infinity();
  const auto l = static_cast<double>(left);
  const auto r = static_cast<double>(right);
  const auto b = static_cast<double>(between);
  const double all = l + b + r;
  return b * all * all / (4.0 * l * r);
}

double cost_of(const Sides& sides) {
  std::size_t counts[3] = {0, 0, 0};
  for (const Separator::Side side : sides) ++counts[side];
  return cost_of(counts[Separator::kLeft], counts[Separator::kBetween], counts[Separator::kRight]);
}

// The nodes of a connected graph by their distance from one at the rim. `first` level after level
// where it begins, and the end.
struct Levels {
  explicit Levels(const Graph& graph) : of(place(graph.size()), -1) {
    const std::int32_t rim = rim_node(graph, 0, std::vector<bool>(of.size(), false));
    of[place(rim)] = 0;
    order.push_back(rim);
    for (std::size_t next = 0; next < order.size(); ++next) {
      const std::int32_t level = of[place(order[next])];
      if (place(level) == first.size()) first.push_back(next);
      for (const std::int32_t node : graph.of(order[next])) {
        if (of[place(node)] >= 0) continue;
        of[place(node)] = level + 1;
        order.push_back(node);
      }
    }
    first.push_back(order.size());
  }

  Nodes of;
  Nodes order;
  std::vector<std::size_t> first;
};

// The best level between two others; of its nodes those stay between that meet the level behind it.
void cut_by_levels(const Graph& graph, Sides& sides) {
  sides.clear();
  const Levels levels(graph);
  double lowest = std::numeric_limits<double>::infinity();
  std::size_t best = 0;
  for (std::size_t level = 1; level + 2 < levels.first.size(); ++level) {
    const std::size_t begin = levels.first[level];
    const std::size_t end = levels.first[level + 1];
    const double cost = cost_of(begin, end - begin, levels.order.size() - end);
    if (cost >= lowest) continue;
    lowest = cost;
    best = level;
  }
  if (best == 0) return;
  const auto middle = static_cast<std::int32_t>(best);
  sides.resize(levels.of.size());
  for (std::int32_t node = 0; node < graph.size(); ++node) {
    const std::int32_t level = levels.of[place(node)];
    Separator::Side& side = sides[place(node)];
    side = level <= middle ? Separator::kLeft : Separator::kRight;
    if (level != middle) continue;
    const std::span<const std::int32_t> neighbours = graph.of(node);
    const bool meets_next =
        std::any_of(neighbours.begin(), neighbours.end(),
                    [&](std::int32_t other) { return levels.of[place(other)] == middle + 1; });
    if (meets_next) side = Separator::kBetween;
  }
}

// The graph between some nodes of another one, which are numbered in their order.
class PartGraph {
 public:
  explicit PartGraph(const Graph& whole) : whole_(whole), number_(place(whole.size()), -1) {}

  Graph of(const Nodes& nodes) {
    for (std::size_t k = 0; k < nodes.size(); ++k) {
      number_[place(nodes[k])] = static_cast<std::int32_t>(k);
    }
    Graph part;
    for (const std::int32_t node : nodes) {
      for (const std::int32_t other : whole_.of(node)) {
        if (number_[place(other)] >= 0) part.neighbours.push_back(number_[place(other)]);
      }
      part.first.push_back(part.neighbours.size());
    }
    for (const std::int32_t node : nodes) number_[place(node)] = -1;
    return part;
  }

 private:
  const Graph& whole_;
  Nodes number_;  // -1 for nodes that are not of the part
};

class Dissection {
 public:
  Dissection(const Graph& graph, std::size_t leaf) : part_graph_(graph), leaf_(leaf) {}

  // From the last node to the first, since a part's separator is known before what stands before
  // it.
  BlockOrder run(Nodes nodes, Nodes hubs) {
    BlockOrder order;
    order.blocks.assign(hubs.rbegin(), hubs.rend());
    parts_.push_back(std::move(nodes));
    while (!parts_.empty()) {
      const Nodes part = std::move(parts_.back());
      parts_.pop_back();
      const Nodes last = split(part);
      order.blocks.insert(order.blocks.end(), last.rbegin(), last.rend());
      order.fronts.push_back(static_cast<std::int32_t>(order.blocks.size()));
    }
    std::reverse(order.blocks.begin(), order.blocks.end());
    std::reverse(order.fronts.begin(), order.fronts.end());
    const auto count = static_cast<std::int32_t>(order.blocks.size());
    for (std::int32_t& front : order.fronts) front = count - front;
    return order;
  }

 private:
  // Puts the parts of a part on the list and returns what stands behind them.
  Nodes split(const Nodes& part) {
    if (part.size() <= leaf_) return part;
    const Graph graph = part_graph_.of(part);
    if (split_components(graph, part)) return {};
    Sides sides;
    cut_by_levels(graph, sides);
    double cost = cost_of(sides);
    if (Separator* const separator = brought<Separator*>()) {
      Sides others;
      separator->cut(graph, others);
      const double other_cost = cost_of(others);
      if (other_cost < cost) {
        cost = other_cost;
        sides.swap(others);
      }
    }
    // What cannot be cut with profit is full anyway.
    if (!(cost * 2.0 < static_cast<double>(part.size()))) return part;
    Nodes pieces[3];
    for (std::size_t k = 0; k < part.size(); ++k) pieces[sides[k]].push_back(part[k]);
    parts_.push_back(std::move(pieces[Separator::kLeft]));
    parts_.push_back(std::move(pieces[Separator::kRight]));
    return std::move(pieces[Separator::kBetween]);
  }

  // Whether the graph falls into components, which are parts then.
  bool split_components(const Graph& graph, const Nodes& part) {
    std::vector<bool> placed(part.size(), false);
    Nodes component;
    for (std::int32_t node = 0; node < graph.size(); ++node) {
      if (placed[place(node)]) continue;
      component.clear();
      append_levels(graph, node, placed, component);
      if (component.size() == part.size()) return false;
      std::sort(component.begin(), component.end());
      for (std::int32_t& member : component) member = part[place(member)];
      parts_.push_back(component);
    }
    return true;
  }

  PartGraph part_graph_;
  std::size_t leaf_;
  std::vector<Nodes> parts_;  // the last one stands behind the others
};

}  // namespace

BlockOrder dissection_order(const Graph& graph, std::size_t leaf) {
  Nodes hubs = hubs_of(graph);
  std::vector<bool> is_hub(place(graph.size()), false);
  for (const std::int32_t hub : hubs) is_hub[place(hub)] = true;
  Nodes nodes;
  for (std::int32_t node = 0; node < graph.size(); ++node) {
    if (!is_hub[place(node)]) nodes.push_back(node);
  }
  return Dissection(graph, leaf).run(std::move(nodes), std::move(hubs));
}

void use_separator(Separator* separator) { brought<Separator*>() = separator; }

}  // namespace vorn
