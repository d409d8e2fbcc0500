#pragma once

#include <cstddef>

#include "base/owned_list.h"
#include "sensors/bundle_image.h"

namespace vorn {

// Ranges of slots of a list, for work that workers share.

// So many elements of little work each, such as lines to write, make a range.
inline constexpr std::size_t kElementsPerRange = 1024;

// So many images have as many points together, in the mean.
std::size_t images_per_range(const OwnedList<BundleImage>& images);
// The same for work on images with all of their points, which the processes of a point share
// complete one after the other: all images then.
std::size_t complete_images_per_range(const OwnedList<BundleImage>& images);

// Calls visit(object) for the objects in the slots from `begin` to before `end`.
template <class T, class Visit>
void for_each_in(const OwnedList<T>& list, std::size_t begin, std::size_t end, Visit visit) {
  for (std::size_t slot = begin; slot < end; ++slot) {
    if (T* const object = list[static_cast<std::int32_t>(slot)]) visit(*object);
  }
}

template <class T>
std::size_t num_slots(const OwnedList<T>& list) {
  return static_cast<std::size_t>(list.num_slots());
}

}  // namespace vorn
