#include "quality/final_system.h"

#include <limits>
#include <new>

#include "driver/bundle_project.h"
#include "lsq/ls_params.h"
#include "lsq/stages/normal_equations.h"

namespace vorn {
namespace {

// A factor with memory: the solver's, whose order fits the matrix, where it has one that serves.
std::unique_ptr<PointElimination> take_factor(BundleProject& project) {
  std::unique_ptr<PointElimination> factor;
  if (project.solver != nullptr) factor = project.solver->take_elimination();
  project.solver.reset();
  if (factor != nullptr) return factor;
  factor = std::make_unique<PointElimination>(project.normal);
  if (!factor->set_structure(PointElimination::Order::fill_reducing)) throw std::bad_alloc();
  return factor;
}

}  // namespace

FinalSystem::FinalSystem(BundleProject& project)
    : project_(project),
      normal_(project.normal),
      sigma0_(ls_params().sigma0_apriori),
      conditions_(project.unknowns),
      factor_(take_factor(project)),
      inverse_(*factor_) {
  // Conditions change them; without any they can be formed again where they are needed.
  if (!conditions_.is_empty()) normal_.store_couplings();
}

bool FinalSystem::form() {
  constexpr Derivatives kExact = Derivatives::exact;
  // Small systems have no table.
  if (!project_.observations.is_empty()) {
    project_.observations.set_derivatives(project_.images, kExact, normal_);
  }
  std::int32_t count = 0;
  if (add_all_observations(project_, kExact, project_.observations, normal_, project_.rhs,
                           project_.lPl, count) != 1) {
    return false;
  }
  weights_ = UnknownWeights(project_, normal_);
  project_.unknowns.add_weights(normal_, project_.rhs, project_.lPl);
  conditions_.apply(normal_, project_.rhs);
  return true;
}

std::int32_t FinalSystem::factorise() {
  if (!form()) return -1;
  if (project_.settings.rigorous) return factor_->factorise();
  return factor_->solve(project_.rhs, project_.solution);
}

const Vector& FinalSystem::step() const { return project_.solution; }

Vector FinalSystem::solve(const Vector& rhs) const {
  Vector x;
  factor_->substitute(rhs, x);
  return x;
}

void FinalSystem::find_column(std::int32_t i, Vector& column) const {
  Vector unit(normal_.size());
  unit.zero();
  unit[i] = 1.0;
  factor_->substitute(unit, column);
  for (std::int32_t j = normal_.num_point_unknowns(); j < normal_.size(); ++j) {
    column[j] -= conditions_.excess(i, j);
  }
}

void FinalSystem::find_reduced_column(std::int32_t i, bool may_solve, Vector& column) const {
  const std::int32_t n = normal_.size();
  column.resize(n);
  for (std::int32_t j = normal_.num_point_unknowns(); j < n; ++j) {
    const bool known = has_cofactor(i, j);
    if (!known && may_solve) return find_column(i, column);
    column[j] = known ? cofactor(i, j) : std::numeric_limits<double>::quiet_NaN();
  }
}

}  // namespace vorn
