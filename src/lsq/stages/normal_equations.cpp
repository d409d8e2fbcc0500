#include "lsq/stages/normal_equations.h"

#include <cstddef>
#include <utility>

#include "driver/bundle_project.h"
#include "sensors/point_share.h"

namespace vorn {

NormalStructure find_structure(const BundleProject& project) {
  NormalStructure structure(project.object_points.count());
  const AdjObjectList& unknowns = project.unknowns;
  for (std::int32_t i = project.object_points.count(); i < unknowns.num_objects(); ++i) {
    structure.add_block(static_cast<std::int32_t>(unknowns[i].num_params()));
  }
  std::size_t image_points = 0;
  for (const BundleImage& image : project.images) {
    image_points += static_cast<std::size_t>(image.count_points());
  }
  structure.reserve_rays(image_points);
  for (const BundleImage& image : project.images) {
    add_structure(image, project.object_points, structure);
  }
  structure.merge_blocks();
  return structure;
}

bool NormalEquations::set_up(const BundleProject& project, Derivatives derivatives) {
  if (!normal.set_structure(find_structure(project))) return false;
  observations.set_up(project.images, project.object_points, derivatives, normal);
  rhs.resize(project.unknowns.num_unknowns());
  return true;
}

int add_all_observations(const BundleProject& project, Derivatives derivatives,
                         ObservationTable& observations, NormalMatrix& normal, Vector& rhs,
                         double& lPl, std::int32_t& count) {
  const auto clear_sums = [&] {
    rhs.zero();
    lPl = 0.0;
    count = 0;
  };
  clear_sums();
  if (!observations.is_empty()) {
    if (observations.add(normal, rhs, lPl, count)) return 1;
    // The images, one after the other, come upon the first failure and report it.
    clear_sums();
  }
  // What the images add, nobody forms again.
  normal.store_couplings();
  normal.zero();
  for (const BundleImage& image : project.images) {
    // The images' own operation serves the documented equations, as those who replace it expect.
    const int added =
        derivatives == Derivatives::documented
            ? image.add_observations(project.object_points, normal, rhs, lPl, count)
            : add_observations(image, derivatives, project.object_points, normal, rhs, lPl, count);
    if (added != 1) return -1;
  }
  return 1;
}

int form_normal_equations(const BundleProject& project, Derivatives derivatives,
                          ObservationTable& observations, NormalMatrix& normal, Vector& rhs,
                          double& lPl, std::int32_t& count) {
  if (add_all_observations(project, derivatives, observations, normal, rhs, lPl, count) != 1) {
    return -1;
  }
  if (point_share() != nullptr && !point_share()->is_first()) {
    project.unknowns.for_each<ObjectPoint>(
        [&](const ObjectPoint& point) { point.add_weights(normal, rhs, lPl); });
    return 1;
  }
  project.unknowns.add_constraints(normal, rhs, lPl);
  project.unknowns.add_weights(normal, rhs, lPl);
  return 1;
}

int form_normal_equations(const BundleProject& project, Derivatives derivatives,
                          NormalEquations& equations) {
  return form_normal_equations(project, derivatives, equations.observations, equations.normal,
                               equations.rhs, equations.lPl, equations.num_observations);
}

}  // namespace vorn
