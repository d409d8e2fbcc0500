#pragma once

#include <cstdint>

#include "lsq/adjustment_settings.h"
#include "lsq/linalg/matrix.h"
#include "lsq/normal/image_normals.h"
#include "lsq/normal/normal_matrix.h"
#include "lsq/normal/normal_structure.h"
#include "lsq/stages/observation_equations.h"
#include "lsq/stages/observation_table.h"

namespace vorn {

class BundleProject;

// The normal equations N x = n of a project at its current values, in memory of somebody's own.
struct NormalEquations {
  NormalMatrix normal;
  ObservationTable observations;
  Vector rhs;
  double lPl = 0.0;                   // weighted sum of squared misclosures
  std::int32_t num_observations = 0;  // two per image point

  // Finds structure and order and takes memory. False when the matrix does not fit the address
  // space. The project has been initialised.
  [[nodiscard]] bool set_up(const BundleProject& project, Derivatives derivatives);
};

// Forms the equations: observations with the derivatives that were asked for, then constraints,
// then weights of observed and eliminated unknowns. 1, or -1 with a message on standard output when
// an observation equation cannot be formed.
[[nodiscard]] int form_normal_equations(const BundleProject& project, Derivatives derivatives,
                                        NormalEquations& equations);
// The same in parts that belong to somebody else. `observations` may be empty; otherwise it was set
// up for `normal` with the same derivatives.
[[nodiscard]] int form_normal_equations(const BundleProject& project, Derivatives derivatives,
                                        ObservationTable& observations, NormalMatrix& normal,
                                        Vector& rhs, double& lPl, std::int32_t& count);
// The observations alone.
[[nodiscard]] int add_all_observations(const BundleProject& project, Derivatives derivatives,
                                       ObservationTable& observations, NormalMatrix& normal,
                                       Vector& rhs, double& lPl, std::int32_t& count);

// The structure of the normal equations: which unknowns meet in an observation.
NormalStructure find_structure(const BundleProject& project);

// Calls visit(image, image point, object point, equation) for the observation equation of every
// image point, image by image in the order of the lists. The columns of the equation's rows are the
// parameters of objects_of(image), one object after the other. Image points without an object point
// are passed over. False, at once, when an equation cannot be formed.
template <class Visit>
bool for_each_equation(const OwnedList<BundleImage>& images,
                       const OwnedList<ObjectPoint>& object_points, Derivatives derivatives,
                       Visit visit) {
  PointEquation equation;
  for (const BundleImage& image : images) {
    ObservationEquations equations(image, derivatives);
    for (const ImagePoint& point : image.points) {
      const ObjectPoint* const object_point = object_point_of(point, object_points);
      if (object_point == nullptr) continue;
      if (equations.linearise(observation_of(point, *image.camera), object_point->xyz, equation) !=
          ObservationEquations::Outcome::formed) {
        return false;
      }
      visit(image, point, *object_point, equation);
    }
  }
  return true;
}

}  // namespace vorn
