#include "app/mpi/mpi_share.h"

#include <malloc.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <string_view>
#include <utility>

#include "app/mpi/mumps_solver.h"
#include "base/place.h"
#include "driver/bundle_project.h"
#include "lsq/project_number.h"

namespace vorn::app {
namespace {

// Points without an object-point record come behind those with one, by the image that measures them
// first and their place there.
constexpr std::uint64_t kAdded = std::uint64_t{1} << 62U;

// The same in every process: that of the standard library has no key.
std::uint64_t hash_of(std::string_view id) { return std::hash<std::string_view>()(id); }

// ---- image points on their way -----------------------------------------------------------------

struct PlacedPoint {
  std::int32_t place;
  std::unique_ptr<ImagePoint> point;
};

void append_point(std::string& bytes, std::int32_t at, const ImagePoint& point) {
  append(bytes, at);
  append_text(bytes, point.id);
  for (const double value : {point.x, point.y, point.sx, point.sy}) append(bytes, value);
}

PlacedPoint take_point(std::string_view& bytes) {
  PlacedPoint placed{take<std::int32_t>(bytes), std::make_unique<ImagePoint>()};
  ImagePoint& point = *placed.point;
  point.id = take_text(bytes);
  for (double* const value : {&point.x, &point.y, &point.sx, &point.sy}) {
    *value = take<double>(bytes);
  }
  return placed;
}

// ---- object points on their way ----------------------------------------------------------------

// What the report says of an object point.
struct PointRecord {
  double initial[3];
  Vec3 xyz;
  Vec3 std_devs;
  PointType type;
  bool check[3];
};

void append_point(std::string& bytes, std::uint64_t key, const ObjectPoint& point) {
  PointRecord record{{}, point.xyz, point.std_devs, point.type, {}};
  for (std::size_t c = 0; c < 3; ++c) {
    record.initial[c] = point.param(static_cast<std::int32_t>(c)).initial;
    record.check[c] = point.check[c];
  }
  append(bytes, key);
  append_text(bytes, point.id);
  append(bytes, record);
}

std::unique_ptr<ObjectPoint> take_object_point(std::string_view& bytes) {
  auto point = std::make_unique<ObjectPoint>();
  point->id = take_text(bytes);
  const auto record = take<PointRecord>(bytes);
  point->std_devs = record.std_devs;
  point->type = record.type;
  point->has_coords = true;
  std::copy_n(record.check, 3, point->check);
  // The initial values of others are nowhere shown.
  if (record.type != PointType::intersection) {
    std::copy_n(record.initial, 3, point->xyz.begin());
    point->init_params();
  }
  point->xyz = record.xyz;
  return point;
}

}  // namespace

MpiShare::~MpiShare() { use_project_numbers(nullptr); }

// ---- reading -----------------------------------------------------------------------------------

void MpiShare::meet(const OwnedList<BundleImage>& images) {
  for (std::int32_t slot = 0; slot < images.num_slots(); ++slot) {
    const auto owner = static_cast<std::int64_t>(slot) * processes_.size() / images.num_slots();
    images_.try_emplace(images[slot], ImagePart{static_cast<std::int32_t>(owner), 0, {}});
  }
}

bool MpiShare::insert(BundleImage& image, std::unique_ptr<ImagePoint> point) {
  ImagePart& part = images_.at(&image);
  const std::int32_t at = part.num_seen++;
  const auto [entry, is_new] = owners_.try_emplace(hash_of(point->id), part.owner);
  if (entry->second != processes_.rank()) return true;
  const bool added = image.insert_point(std::move(point));
  if (added) part.places.push_back(at);
  return added;
}

void MpiShare::keep_own_points(BundleProject& project) {
  OwnedList<ObjectPoint> own;
  for (std::int32_t slot = 0; slot < project.object_points.num_slots(); ++slot) {
    const auto owner = owners_.find(hash_of(project.object_points[slot]->id));
    if ((owner == owners_.end() ? 0 : owner->second) != processes_.rank()) continue;
    keys_.push_back(static_cast<Key>(slot));
    own.append(project.object_points.take_out(slot));
  }
  project.object_points = std::move(own);
  owners_ = {};
  malloc_trim(0);
}

// ---- numbers -----------------------------------------------------------------------------------

void MpiShare::order_points(const BundleProject& project) {
  const OwnedList<ObjectPoint>& points = project.object_points;
  for (std::int32_t number = 0; number < project.images.num_slots(); ++number) {
    const BundleImage* const image = project.images[number];
    if (image == nullptr) continue;
    const auto part = images_.find(image);
    for (std::int32_t slot = 0; slot < image->points.num_slots(); ++slot) {
      const std::size_t next = keys_.size();
      if (next == place(points.num_slots())) return;
      const ImagePoint& measured = *image->points[slot];
      if (measured.object_point != points[static_cast<std::int32_t>(next)]) continue;
      keys_.push_back(kAdded | static_cast<Key>(number) << 31U |
                      static_cast<Key>(part->second.places[place(slot)]));
    }
  }
}

void MpiShare::number_unknowns(const BundleProject& project) {
  std::string own;
  for (std::int32_t slot = 0; slot < project.object_points.num_slots(); ++slot) {
    if (project.object_points[slot] != nullptr) append(own, keys_[place(slot)]);
  }
  struct Entry {
    Key key;
    int rank;
  };
  std::vector<Entry> all;
  processes_.gather(own, [&](int rank, std::string_view bytes) {
    while (!bytes.empty()) all.push_back({take<Key>(bytes), rank});
  });
  std::sort(all.begin(), all.end(), [](const Entry& a, const Entry& b) { return a.key < b.key; });
  const std::string numbers = processes_.scatter([&](int rank) {
    std::string bytes;
    for (std::size_t number = 0; number < all.size(); ++number) {
      if (all[number].rank == rank) append(bytes, static_cast<std::int32_t>(number));
    }
    return bytes;
  });
  numbers_.clear();
  for (std::string_view bytes = numbers; !bytes.empty();) {
    numbers_.push_back(take<std::int32_t>(bytes));
  }
  num_points_ = in_total(static_cast<std::int32_t>(numbers_.size()));
  use_project_numbers([this](std::int32_t unknown) { return number_of(unknown); });
}

std::int32_t MpiShare::number_of(std::int32_t unknown) const {
  const auto own = static_cast<std::int32_t>(numbers_.size());
  return unknown < 3 * own ? 3 * numbers_[place(unknown / 3)] + unknown % 3
                           : 3 * (num_points_ - own) + unknown;
}

std::unique_ptr<AdjInterface> MpiShare::make_solver() {
  return std::make_unique<MumpsSolver>(processes_,
                                       [this](std::int32_t unknown) { return number_of(unknown); });
}

std::vector<UnknownValue> MpiShare::values_above(const Vector& rhs, double limit) {
  Vector complete = rhs;
  const std::size_t first_reduced = 3 * numbers_.size();
  const auto reduced = std::span(complete.data(), place(complete.size())).subspan(first_reduced);
  processes_.add_up(reduced);
  // What is everybody's is the first process's to tell.
  if (!is_first()) {
    std::fill(reduced.begin(), reduced.end(), -std::numeric_limits<double>::infinity());
  }
  std::string own;
  for (const UnknownValue& large : vorn::values_above(complete, limit)) {
    append(own, UnknownValue{number_of(large.unknown), large.value});
  }
  std::vector<UnknownValue> all;
  processes_.gather(own, [&](int /*rank*/, std::string_view bytes) {
    while (!bytes.empty()) all.push_back(take<UnknownValue>(bytes));
  });
  std::sort(all.begin(), all.end(),
            [](const UnknownValue& a, const UnknownValue& b) { return a.unknown < b.unknown; });
  return all;
}

// ---- report ------------------------------------------------------------------------------------

void MpiShare::merge(std::span<const PointText> points, std::string& text) {
  if (is_alone()) return;
  std::string own;
  for (std::size_t k = 0; k < points.size(); ++k) {
    const std::size_t end = k + 1 < points.size() ? points[k + 1].begin : text.size();
    append(own, keys_[place(points[k].slot)]);
    append_text(own, std::string_view(text).substr(points[k].begin, end - points[k].begin));
  }
  struct Line {
    Key key;
    std::string text;
  };
  std::vector<Line> lines;
  processes_.gather(own, [&](int /*rank*/, std::string_view bytes) {
    while (!bytes.empty()) {
      const Key key = take<Key>(bytes);
      lines.push_back({key, std::string(take_text(bytes))});
    }
  });
  std::sort(lines.begin(), lines.end(), [](const Line& a, const Line& b) { return a.key < b.key; });
  text.clear();
  for (const Line& line : lines) text += line.text;
}

void MpiShare::complete(BundleImage& image) {
  if (is_alone()) return;
  const auto part = images_.find(&image);
  std::string own;
  for (std::int32_t slot = 0; slot < image.points.num_slots(); ++slot) {
    const ImagePoint* const point = image.points[slot];
    if (point != nullptr) append_point(own, part->second.places[place(slot)], *point);
  }
  std::vector<PlacedPoint> all;
  processes_.gather(own, [&](int /*rank*/, std::string_view bytes) {
    while (!bytes.empty()) all.push_back(take_point(bytes));
  });
  if (!is_first()) return;
  std::sort(all.begin(), all.end(),
            [](const PlacedPoint& a, const PlacedPoint& b) { return a.place < b.place; });
  own_points_ = std::exchange(image.points, {});
  for (PlacedPoint& placed : all) image.points.append(std::move(placed.point));
}

void MpiShare::release(BundleImage& image) {
  if (!is_alone() && is_first()) image.points = std::exchange(own_points_, {});
}

void MpiShare::gather_points(BundleProject& project) {
  if (is_alone()) return;
  // What the iterations needed makes room.
  project.observations = {};
  project.normal.resize(0);
  project.markers.resize(0);
  struct Entry {
    Key key;
    std::unique_ptr<ObjectPoint> point;
  };
  std::string own;
  std::vector<Entry> all;
  for (std::int32_t slot = 0; slot < project.object_points.num_slots(); ++slot) {
    const ObjectPoint* const point = project.object_points[slot];
    if (point == nullptr) continue;
    const Key key = keys_[place(slot)];
    if (is_first()) {
      all.push_back({key, project.object_points.take_out(slot)});
    } else {
      append_point(own, key, *point);
    }
  }
  processes_.gather(own, [&](int /*rank*/, std::string_view bytes) {
    while (!bytes.empty()) {
      const Key key = take<Key>(bytes);
      all.push_back({key, take_object_point(bytes)});
    }
  });
  if (!is_first()) return;
  std::sort(all.begin(), all.end(), [](const Entry& a, const Entry& b) { return a.key < b.key; });
  project.object_points.clear();
  for (Entry& entry : all) project.object_points.append(std::move(entry.point));
}

}  // namespace vorn::app
