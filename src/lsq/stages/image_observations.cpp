// What an image adds to the normal equations: the stages' part of BundleImage.

#include <vector>

#include "lsq/normal/image_normals.h"
#include "lsq/stages/observation_equations.h"
#include "sensors/bundle_image.h"
#include "sensors/object_point.h"
#include "text/text_writer.h"

namespace vorn {

int add_observations(const BundleImage& image, Derivatives derivatives,
                     const OwnedList<ObjectPoint>& object_points, NormalMatrix& normal, Vector& rhs,
                     double& lPl, std::int32_t& count) {
  using Outcome = ObservationEquations::Outcome;
  ObservationEquations equations(image, derivatives);
  ImageNormals normals(normal, blocks_of(image, normal));
  PointEquation equation;
  std::vector<std::int32_t> starts(normals.blocks().size());
  for (const ImagePoint& point : image.points) {
    const ObjectPoint* const object_point = object_point_of(point, object_points);
    if (object_point == nullptr) {
      standard_output() << "ATTENTION: Object point " << point.id << " not found.\n";
      continue;
    }
    const Outcome outcome =
        equations.linearise(observation_of(point, *image.camera), object_point->xyz, equation);
    if (outcome != Outcome::formed) {
      equations.print_failure(outcome, object_point->xyz);
      return -1;
    }
    const std::int32_t number = object_point->index / 3;
    for (std::size_t k = 0; k < starts.size(); ++k) {
      starts[k] = normal.coupling_start(number, normals.blocks()[k]);
    }
    normals.add({normal.point_rows(number), starts.data(), object_point->index}, equation, rhs);
    count += 2;
  }
  normals.finish(rhs, lPl);
  return 1;
}

int BundleImage::add_observations(const OwnedList<ObjectPoint>& object_points, NormalMatrix& normal,
                                  Vector& rhs, double& lPl, std::int32_t& count) const {
  return vorn::add_observations(*this, Derivatives::documented, object_points, normal, rhs, lPl,
                                count);
}

}  // namespace vorn
