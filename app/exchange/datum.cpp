#include "app/exchange/datum.h"

#include <algorithm>
#include <cmath>

namespace vorn::exchange {
namespace {

std::size_t largest_axis(const Vec3& v) {
  std::size_t axis = 0;
  for (std::size_t k = 1; k < 3; ++k) {
    if (std::abs(v[k]) > std::abs(v[axis])) axis = k;
  }
  return axis;
}

// The points nearer to the middle than nine in ten: those far outside are badly determined.
std::vector<std::int32_t> inner_points(const Reconstruction& model) {
  Vec3 middle{};
  for (const SourcePoint& point : model.points) middle = middle + point.xyz;
  middle = (1.0 / static_cast<double>(model.points.size())) * middle;
  std::vector<std::int32_t> order(model.points.size());
  for (std::size_t i = 0; i < order.size(); ++i) order[i] = static_cast<std::int32_t>(i);
  const auto distance = [&](std::int32_t i) {
    return length(model.points[static_cast<std::size_t>(i)].xyz - middle);
  };
  const std::size_t kept = std::max<std::size_t>(3, order.size() - order.size() / 10);
  if (kept < order.size()) {
    std::nth_element(order.begin(), order.begin() + static_cast<std::ptrdiff_t>(kept), order.end(),
                     [&](std::int32_t a, std::int32_t b) { return distance(a) < distance(b); });
    order.resize(kept);
    std::sort(order.begin(), order.end());
  }
  return order;
}

// The point for which a measure is largest; the first of equals.
template <class Measure>
std::int32_t farthest(const std::vector<std::int32_t>& candidates, Measure measure) {
  std::int32_t best = candidates.front();
  double largest = -1.0;
  for (const std::int32_t i : candidates) {
    const double value = measure(i);
    if (value > largest) {
      largest = value;
      best = i;
    }
  }
  return best;
}

}  // namespace

ImageDatum choose_image_datum(const Reconstruction& model) {
  ImageDatum datum;
  if (model.images.empty()) return datum;
  const auto most = std::max_element(
      model.images.begin(), model.images.end(),
      [](const SourceImage& a, const SourceImage& b) { return a.rays.size() < b.rays.size(); });
  datum.image = static_cast<std::int32_t>(most - model.images.begin());
  std::vector<char> seen(model.points.size(), 0);
  for (const SourceRay& ray : most->rays) seen[static_cast<std::size_t>(ray.point)] = 1;
  double best = 0.0;
  for (std::size_t i = 0; i < model.images.size(); ++i) {
    const SourceImage& other = model.images[i];
    if (&other == &*most) continue;
    const auto common = std::count_if(other.rays.begin(), other.rays.end(), [&](const auto& ray) {
      return seen[static_cast<std::size_t>(ray.point)] != 0;
    });
    const Vec3 base = other.pose.centre() - most->pose.centre();
    const double score = length(base) * static_cast<double>(common);
    if (!(score > best)) continue;
    best = score;
    datum.second = {static_cast<std::int32_t>(i), largest_axis(base)};
  }
  return datum;
}

std::vector<HeldCoordinate> choose_point_datum(const Reconstruction& model) {
  if (model.points.size() < 3) return {};
  const std::vector<std::int32_t> candidates = inner_points(model);
  const auto at = [&](std::int32_t i) { return model.points[static_cast<std::size_t>(i)].xyz; };
  const Vec3 start = at(candidates.front());
  const std::int32_t a =
      farthest(candidates, [&](std::int32_t i) { return length(at(i) - start); });
  const std::int32_t b =
      farthest(candidates, [&](std::int32_t i) { return length(at(i) - at(a)); });
  const Vec3 line = at(b) - at(a);
  const auto normal = [&](std::int32_t i) { return cross(line, at(i) - at(a)); };
  const std::int32_t c = farthest(candidates, [&](std::int32_t i) { return length(normal(i)); });
  return {{a, 0}, {a, 1}, {a, 2}, {b, 0}, {b, 1}, {b, 2}, {c, largest_axis(normal(c))}};
}

}  // namespace vorn::exchange
