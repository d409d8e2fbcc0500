#include "driver/bundle_project.h"

namespace vorn {

BundleProject::~BundleProject() { clear(); }

void BundleProject::clear() {
  images.clear();
  cameras.clear();
  object_points.clear();
  image_geometries.clear();
  ap_sets.clear();
  pos_corrections.clear();
  att_corrections.clear();
}

}  // namespace vorn
