#pragma once

#include <cstdint>
#include <vector>

namespace vorn {

class BundleProject;

// Normal equations with damping, (N + lambda D) x = n, in the matrix of a project: D is the
// diagonal of N without the condition equations, so that steps do not depend on the units of the
// unknowns (Marquardt 1963). Of some object points the damping is raised, which holds them.
class DampedSystem {
 public:
  explicit DampedSystem(BundleProject& project);

  // How firmly an object point is held beyond the common damping.
  enum class Hold : std::uint8_t {
    none,
    weak,   // where its rays do not fix it
    place,  // at its place
  };

  // Forms the equations at the current values. False when that fails, with a message.
  [[nodiscard]] bool form(std::int32_t& num_observations);
  // Object points whose own part of N is singular but for rounding: their rays are nearly parallel.
  // They are held weakly; their numbers are returned.
  const std::vector<std::int32_t>& weak_points() const { return weak_points_; }
  // Holds points at their places, until the equations are formed again.
  void hold(const std::vector<std::int32_t>& points);
  // Solves for the corrections; they stand in the project's solution. False when the matrix is not
  // positive definite.
  [[nodiscard]] bool solve(double lambda);
  // By how much the weighted sum of squares falls according to the linearised equations.
  double predicted_decrease() const;

 private:
  void find_diagonal();
  void find_weak_points();

  BundleProject& project_;
  std::vector<double*> diagonal_;  // elements of N
  std::vector<double> formed_;     // their values without damping
  std::vector<double> scale_;      // D
  std::vector<Hold> holds_;        // of the object points
  std::vector<std::int32_t> weak_points_;
  double lambda_ = 0.0;
};

}  // namespace vorn
