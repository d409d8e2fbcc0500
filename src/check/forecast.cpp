#include "check/forecast.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "check/remaining_network.h"
#include "driver/bundle_project.h"
#include "lsq/normal/block_graph.h"

namespace vorn {
namespace {

// Which images meet in a point.
Graph meeting_images(const RemainingNetwork& network) {
  const std::vector<const BundleImage*>& images = network.images();
  std::unordered_map<const BundleImage*, std::int32_t> node;
  for (const BundleImage* image : images) {
    node.emplace(image, static_cast<std::int32_t>(node.size()));
  }
  std::vector<std::vector<std::int32_t>> points_of(images.size());
  std::vector<std::vector<std::int32_t>> images_of;
  for (const RemainingNetwork::Point& point : network.points()) {
    if (!point.used) continue;
    std::vector<std::int32_t>& nodes = images_of.emplace_back();
    for (const BundleImage* image : point.images) {
      const auto found = node.find(image);
      if (found == node.end()) continue;
      nodes.push_back(found->second);
      points_of[static_cast<std::size_t>(found->second)].push_back(
          static_cast<std::int32_t>(images_of.size() - 1));
    }
  }
  Graph graph;
  std::vector<std::int32_t> met(images.size(), -1);
  for (std::int32_t i = 0; i < static_cast<std::int32_t>(images.size()); ++i) {
    met[static_cast<std::size_t>(i)] = i;
    for (const std::int32_t point : points_of[static_cast<std::size_t>(i)]) {
      for (const std::int32_t other : images_of[static_cast<std::size_t>(point)]) {
        if (std::exchange(met[static_cast<std::size_t>(other)], i) != i) {
          graph.neighbours.push_back(other);
        }
      }
    }
    graph.first.push_back(graph.neighbours.size());
  }
  return graph;
}

// The factor of the reduced matrix in the order that keeps it a band: elements and multiplications.
struct FactorSize {
  double elements = 0.0;
  double operations = 0.0;
};

// `width` unknowns of an image, `common` ones that all images share, which stand at the end.
FactorSize factor_size(const Graph& graph, double width, double common) {
  const std::vector<std::int32_t> order = band_order(graph);
  std::vector<std::int32_t> place(order.size());
  for (std::size_t i = 0; i < order.size(); ++i) {
    place[static_cast<std::size_t>(order[i])] = static_cast<std::int32_t>(i);
  }
  FactorSize size;
  for (std::size_t i = 0; i < order.size(); ++i) {
    auto leftmost = static_cast<std::int32_t>(i);
    for (const std::int32_t other : graph.of(order[i])) {
      leftmost = std::min(leftmost, place[static_cast<std::size_t>(other)]);
    }
    const double height = width * (static_cast<double>(i) - leftmost + 1.0);
    size.elements += width * height;
    size.operations += 0.5 * width * height * height;
  }
  const double all = width * static_cast<double>(order.size());
  size.operations += common * size.elements + 0.5 * common * common * (all + common / 3.0);
  size.elements += common * (all + common / 2.0);
  return size;
}

std::string rounded(double value) { return std::to_string(static_cast<std::int64_t>(value)); }

}  // namespace

void add_forecast(const BundleProject& project, const RemainingNetwork& network,
                  FindingListener& findings) {
  double points = 0.0;
  double rays = 0.0;
  for (const RemainingNetwork::Point& point : network.points()) {
    if (!point.used) continue;
    points += 1.0;
    rays += static_cast<double>(point.images.size());
  }
  double of_images = 0.0;
  for (const ImageGeometry& geometry : project.image_geometries) {
    if (geometry.used) of_images += geometry.num_values();
  }
  double common = 0.0;
  for (const APSet& set : project.ap_sets) common += set.num_ap();
  for (const auto& correction : project.pos_corrections) {
    common += correction.polynomial.num_values();
  }
  for (const auto& correction : project.att_corrections) {
    common += correction.polynomial.num_values();
  }
  const double reduced = of_images + common;
  const Graph graph = meeting_images(network);
  const double width = graph.size() > 0 ? of_images / graph.size() : 0.0;
  const FactorSize factor = factor_size(graph, width, common);
  // A ray couples its point with six unknowns and more; its image point and record take the rest.
  constexpr double kBytes = 8.0;
  constexpr double kBytesOfRay = 400.0;
  constexpr double kBytesOfPoint = 300.0;
  constexpr double kMegabyte = 1e6;
  constexpr double kOperationsOfRay = 2000.0;
  constexpr double kOperationsPerSecond = 5e9;  // of a slow core
  const double memory = kBytes * factor.elements + kBytesOfRay * rays + kBytesOfPoint * points;
  const double operations = factor.operations + kOperationsOfRay * rays;
  findings.add({FindingCode::memory,
                {},
                0,
                0,
                {},
                rounded(3.0 * points + reduced) + " unknowns (" + rounded(points) +
                    " object points, reduced system " + rounded(reduced) + "), about " +
                    rounded(std::ceil(memory / kMegabyte)) + " MB and " +
                    rounded(std::ceil(operations / kOperationsPerSecond)) + " s per iteration",
                {}});
}

}  // namespace vorn
