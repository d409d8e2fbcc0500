#pragma once

#include <functional>
#include <optional>
#include <unordered_set>
#include <vector>

#include "geometry/ext_orientation.h"
#include "sensors/bundle_image.h"
#include "sensors/object_point.h"
#include "text/findings.h"

namespace vorn {

class BundleProject;

// A measured point and the object coordinates that the approximations give it.
struct StartRay {
  const BundleImage* image;
  const ImagePoint* measured;
  const ObjectPoint* object;  // null where the coordinates come from the other rays
  Vec3 xyz;
};

// Rays to the points whose coordinates are given.
std::vector<StartRay> start_rays(const BundleProject& project);

// Position and rotation of an image; U = R^T (X - Xo).
struct Pose {
  Vec3 centre{};
  Mat3 rotation{};
};

// What is read otherwise than the files say. Empty functions change nothing.
struct Reading {
  std::function<Pair(const StartRay&)> measured;  // image coordinates [m]
  std::function<Vec3(const StartRay&)> object;
  std::function<Pose(const ExtOrientation&)> pose;
  std::function<double(const Camera&)> distance;  // c [m]
};

// The point nearest to rays whose images have projection centres. Nothing when they are parallel.
[[nodiscard]] std::optional<Vec3> intersection(const std::vector<const StartRay*>& rays);
// Rays of points without coordinates, with those that their rays, but for the ones of the images
// `without`, give them. They may miss one another.
std::vector<StartRay> intersected_rays(const BundleProject& project,
                                       const std::unordered_set<const BundleImage*>& without = {});

Pair measured_in_image(const StartRay& ray);

// Residual of a ray [m]; HUGE_VAL for a point that cannot be projected. Points behind the camera do
// not fit, wherever they are projected.
double residual(const StartRay& ray, const Reading& reading = {});

// How the approximations fit on the whole. Rays to points whose coordinates are given stand before
// those that intersect.
struct StartFit {
  StartFit(const BundleProject& project, std::vector<StartRay> given);

  std::vector<StartRay> rays;
  std::vector<double> residuals;  // [m]
  std::size_t num_given;
  double extent_of_given;  // of the measurements [m]
  double extent = 0.0;
  double worst = 0.0;  // residual
};

// The value that a part of the values does not exceed.
double quantile(std::vector<double> values, double part);
inline double median(std::vector<double> values) { return quantile(std::move(values), 0.5); }

// Largest coordinate of the measurements, in image coordinates [m].
double extent_of(const std::vector<StartRay>& rays, const Reading& reading = {});

// ---- what is looked for

// Names the mistake that explains the start residuals best, if any does. True when one was found;
// those of axes and rotations are reported only where `axes_too` says so.
bool find_mistake(const BundleProject& project, const std::vector<StartRay>& rays, bool axes_too,
                  FindingListener& findings);
// Images whose measurements fit the orientations of one another, and points that are exchanged in
// an image. True when some were found.
bool find_exchanged(const BundleProject& project, const StartFit& fit, FindingListener& findings);
// Control, or all object points, that have nothing to do with the images. True when found.
bool find_foreign_control(const StartFit& fit, FindingListener& findings);
// Images, points and measurements whose residuals stand out from all others.
void find_gross(const BundleProject& project, const std::vector<StartRay>& rays,
                FindingListener& findings);

}  // namespace vorn
