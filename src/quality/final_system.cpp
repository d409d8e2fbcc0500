#include "quality/final_system.h"

#include <new>

#include "driver/bundle_project.h"
#include "lsq/ls_params.h"
#include "lsq/normal/image_normals.h"
#include "lsq/stages/observation_equations.h"

namespace vorn {

FinalSystem::FinalSystem(BundleProject& project)
    : project_(project),
      normal_(project.normal),
      sigma0_(ls_params().sigma0_apriori),
      conditions_(project.unknowns),
      factor_(project.normal) {
  project.solver.reset();
}

bool FinalSystem::form() {
  project_.rhs.zero();
  project_.lPl = 0.0;
  normal_.zero();
  PointEquation equation;
  for (const BundleImage& image : project_.images) {
    ObservationEquations equations(image);
    ImageNormals normals(normal_, blocks_of(image, normal_));
    std::vector<std::int32_t> starts(normals.blocks().size());
    for (const ImagePoint& point : image.points) {
      const ObjectPoint* const object_point = object_point_of(point, project_.object_points);
      if (object_point == nullptr) continue;
      if (equations.linearise(observation_of(point, *image.camera), object_point->xyz, equation) !=
          ObservationEquations::Outcome::formed) {
        return false;
      }
      const std::int32_t number = object_point->index / 3;
      for (std::size_t k = 0; k < starts.size(); ++k) {
        starts[k] = normal_.coupling_start(number, normals.blocks()[k]);
      }
      normals.add({normal_.point_rows(number), starts.data(), object_point->index}, equation,
                  project_.rhs);
    }
    normals.finish(project_.rhs, project_.lPl);
  }
  project_.unknowns.add_weights(normal_, project_.rhs, project_.lPl);
  conditions_.apply(normal_, project_.rhs);
  return true;
}

std::int32_t FinalSystem::factorise() {
  if (!form()) return -1;
  if (!factor_.set_structure(PointElimination::Order::fill_reducing)) throw std::bad_alloc();
  return factor_.factorise();
}

void FinalSystem::invert() { cofactors_.emplace(normal_, factor_); }

Vector FinalSystem::step() const {
  Vector step;
  factor_.substitute(project_.rhs, step);
  return step;
}

double FinalSystem::reduced_cofactor(std::int32_t i, std::int32_t j) const {
  if (is_fixed(i) || is_fixed(j)) return 0.0;
  return cofactors_->reduced(i, j) - conditions_.excess(i, j);
}

void FinalSystem::reduced_column(std::int32_t i, Vector& column) const {
  const std::int32_t n = normal_.size();
  column.resize(n);
  for (std::int32_t j = normal_.num_point_unknowns(); j < n; ++j)
    column[j] = reduced_cofactor(i, j);
}

void FinalSystem::point_cofactors(std::int32_t point, PointCofactors& cofactors) {
  cofactors_->of_point(point, cofactors);
  // What conditions add stands on the diagonal of fixed coordinates.
  constexpr std::size_t kDiagonal[] = {0, 3, 5};
  for (std::int32_t axis = 0; axis < 3; ++axis) {
    if (is_fixed(3 * point + axis)) cofactors.own[kDiagonal[axis]] = 0.0;
  }
}

}  // namespace vorn
