#include "lsq/stages/image_projection.h"

#include <algorithm>

#include "geometry/ext_orientation.h"
#include "lsq/stages/observation_equations.h"

namespace vorn {

ImageProjection::ImageProjection(const BundleImage& image) : image_(image) {
  if (!takes_packs(image)) return;
  packed_ = packed_image_of(image, static_cast<const ExtOrientation&>(*image.geometry),
                            Derivatives::documented);
}

void ImageProjection::find_coords(std::span<const ObjectPoint* const> points,
                                  std::vector<Pair>& coords) const {
  coords.resize(points.size());
  constexpr std::size_t kLanes = Pack::kSize;
  for (std::size_t first = 0; first < points.size(); first += kLanes) {
    const std::span some = points.subspan(first, std::min(kLanes, points.size() - first));
    // Lanes without a point follow the first one that there is.
    const auto any = std::find_if(some.begin(), some.end(), [](auto* point) { return point; });
    if (any == some.end()) continue;
    PackPair packed;
    bool found = packed_.has_value();
    if (found) {
      Vec3Of<Pack> object;
      for (std::size_t lane = 0; lane < kLanes; ++lane) {
        const ObjectPoint* const point = lane < some.size() ? some[lane] : nullptr;
        const Vec3& xyz = point != nullptr ? point->xyz : (*any)->xyz;
        for (std::size_t k = 0; k < 3; ++k) object[k].set(static_cast<int>(lane), xyz[k]);
      }
      found = find_packed_(*packed_, object, packed);
    }
    for (std::size_t lane = 0; lane < some.size(); ++lane) {
      if (some[lane] == nullptr) continue;
      const auto at = static_cast<int>(lane);
      coords[first + lane] =
          found ? Pair{packed[0][at], packed[1][at]} : image_.object_to_image(some[lane]->xyz);
    }
  }
}

}  // namespace vorn
