#include "lsq/stages/point_rays.h"

#include "base/place.h"
#include "base/workers.h"
#include "sensors/image_ranges.h"

namespace vorn {
namespace {

// The slots of the object points of all image points, image by image; -1 where there is none.
std::vector<std::int32_t> slots_of_points(const OwnedList<BundleImage>& images,
                                          const OwnedList<ObjectPoint>& object_points) {
  std::vector<std::size_t> first = {0};  // of each image
  for (std::int32_t k = 0; k < images.num_slots(); ++k) {
    const std::int32_t count = images[k] == nullptr ? 0 : images[k]->count_points();
    first.push_back(first.back() + place(count));
  }
  std::vector<std::int32_t> slots(first.back());
  for_each_range(num_slots(images), images_per_range(images),
                 [&](std::size_t begin, std::size_t end, std::size_t) {
                   std::size_t next = first[begin];
                   for_each_in(images, begin, end, [&](const BundleImage& image) {
                     for (const ImagePoint& point : image.points) {
                       const ObjectPoint* const found = object_point_of(point, object_points);
                       slots[next++] = found == nullptr ? -1 : found->slot;
                     }
                   });
                 });
  return slots;
}

void tell_slots(const OwnedList<ObjectPoint>& object_points) {
  for_each_range(num_slots(object_points), kElementsPerRange,
                 [&](std::size_t begin, std::size_t end, std::size_t) {
                   for (std::size_t slot = begin; slot < end; ++slot) {
                     const auto number = static_cast<std::int32_t>(slot);
                     if (object_points[number] != nullptr) object_points[number]->slot = number;
                   }
                 });
}

std::vector<std::size_t> count_slots(const std::vector<std::int32_t>& slots, std::size_t count) {
  std::vector<std::size_t> counts(count, 0);
  for (const std::int32_t slot : slots) {
    if (slot >= 0) ++counts[place(slot)];
  }
  return counts;
}

}  // namespace

std::vector<std::size_t> count_rays(const OwnedList<BundleImage>& images,
                                    const OwnedList<ObjectPoint>& object_points) {
  tell_slots(object_points);
  return count_slots(slots_of_points(images, object_points), num_slots(object_points));
}

PointRays::PointRays(const OwnedList<BundleImage>& images,
                     const OwnedList<ObjectPoint>& object_points)
    : first_(1, 0) {
  tell_slots(object_points);
  const std::vector<std::int32_t> slots = slots_of_points(images, object_points);
  for (const std::size_t count : count_slots(slots, num_slots(object_points))) {
    first_.push_back(first_.back() + count);
  }
  rays_.resize(first_.back());
  std::vector<std::size_t> next(first_.begin(), first_.end() - 1);
  std::size_t number = 0;
  for (BundleImage& image : images) {
    for (const ImagePoint& point : image.points) {
      const std::int32_t slot = slots[number++];
      if (slot >= 0) rays_[next[place(slot)]++] = {&image, &point};
    }
  }
}

}  // namespace vorn
