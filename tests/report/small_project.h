#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "driver/bundle_project.h"
#include "support/ls_params_guard.h"

namespace vorn::test {

// Image coordinates are the object coordinates X and Y: residuals follow by subtraction.
class FlatGeometry : public ImageGeometry {
 public:
  FlatGeometry() : ImageGeometry(0) {}
  bool projection(const Vec3& object_point, Vec3& image) const override {
    image[0] = object_point[0];
    image[1] = object_point[1];
    return true;
  }
  bool intersection(const ImageGeometry&, const Vec3&, const Vec3&, Vec3&, double&) const override {
    return false;
  }
  bool get_derivs(const Vec3&, const Vec3&, PointDerivs&) override { return false; }
};

// A project read from texts, whose images share the flat geometry "G". The least-squares parameters
// are the defaults as long as the fixture lives.
class SmallProjectTest : public testing::Test {
 protected:
  SmallProjectTest() {
    auto geometry = std::make_unique<FlatGeometry>();
    geometry->id = "G";
    project_.image_geometries.append(std::move(geometry));
  }

  void read_cameras(std::string_view text) {
    TokenReader in(text);
    ASSERT_EQ(read_camera_file(in, project_.cameras), 1);
  }
  void read_images(std::string_view text) {
    TokenReader in(text);
    ASSERT_EQ(read_image_file(in, project_.images, project_.cameras), 1);
    for (BundleImage& image : project_.images) {
      ASSERT_TRUE(image.attach_geometry(project_.image_geometries));
      image.used = true;
    }
  }
  void read_image_coords(std::string_view text) {
    TokenReader in(text);
    ASSERT_EQ(read_image_crds_file(in, project_.images), 1);
  }
  void read_points(std::string_view coords, std::string_view control_support) {
    TokenReader in(coords);
    ASSERT_EQ(read_obj_crds(in, project_.object_points), 1);
    TokenReader support(control_support);
    ASSERT_EQ(read_ctrl_supp(support, project_.object_points), 1);
    for (ObjectPoint& point : project_.object_points) point.init_params();
  }
  ObjectPoint& point(std::string_view id) { return *project_.object_points.find(id); }

  LSParamsGuard guard_;
  BundleProject project_;
};

}  // namespace vorn::test
