#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "app/mpi/communicator.h"
#include "lsq/adj_interface.h"
#include "lsq/normal/point_elimination.h"

namespace vorn::app {

// Normal equations whose parts several processes have formed, each of its own points. Each
// eliminates its points, which leaves a part S_k of the reduced normal equations,
//
//   S = sum of S_k,   S_k = N_rr,k - sum of V'V over the points of process k
//
// MUMPS (Amestoy, Duff, L'Excellent, Koster 2001) takes the parts where they are, adds them up and
// factorises S on all processes. Then each process substitutes its own points.
class MumpsSolver final : public AdjInterface {
 public:
  // The number in the whole project of an unknown of this process.
  using Number = std::function<std::int32_t(std::int32_t unknown)>;
  MumpsSolver(Communicator& processes, Number number);
  ~MumpsSolver() override;

  // Codes are the same in all processes: k > 0 when a point's part of N is not positive definite at
  // row k of the whole project (counted from 1); -1 with a message on standard output when S is not
  // positive definite. Of the diagonal of the factor, p has the part of the points; the rest, which
  // MUMPS keeps to itself, is infinite. Throws std::runtime_error when MUMPS fails.
  [[nodiscard]] int solve(const NormalMatrix& n, const Vector& b, Vector& x, Vector& p) override;
  [[nodiscard]] int try_solve(const NormalMatrix& n, const Vector& b, Vector& x,
                              Vector& p) override;
  // Neither is there: no process has all of N.
  [[nodiscard]] int invert(const NormalMatrix& n, Matrix& q, const Vector& p) override;
  void write_matrix(TextWriter& out, const NormalMatrix& n) const override;

 private:
  struct Mumps;
  // Blocks of the reduced part that meet in this process, the second not before the first.
  using BlockPairs = std::vector<std::pair<std::int32_t, std::int32_t>>;

  void prepare(const NormalMatrix& n);
  [[nodiscard]] BlockPairs pairs_that_meet(const NormalMatrix& n) const;
  template <class Visit>
  void for_each_element(Visit visit) const;
  [[nodiscard]] bool take_elements();

  Communicator& processes_;
  Number number_;
  std::unique_ptr<PointElimination> elimination_;
  BlockPairs pairs_;
  std::unique_ptr<Mumps> mumps_;
};

}  // namespace vorn::app
