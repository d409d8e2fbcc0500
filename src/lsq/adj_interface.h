#pragma once

#include <memory>

#include "lsq/linalg/matrix.h"
#include "lsq/normal/normal_factor.h"
#include "lsq/normal/normal_matrix.h"
#include "text/text_writer.h"

namespace vorn {

class PointElimination;

// A solver of the normal equations N x = b. It keeps the factor of the matrix that it solved last.
class AdjInterface {
 public:
  AdjInterface() = default;
  AdjInterface(const AdjInterface&) = delete;
  AdjInterface& operator=(const AdjInterface&) = delete;

  // Factorises N and solves for x; p receives the diagonal of the factor. 0, or a code with a
  // message on standard output: k > 0 when N is not positive definite at row k (counted from 1),
  // -3 when b has a wrong length.
  [[nodiscard]] virtual int solve(const NormalMatrix& n, const Vector& b, Vector& x, Vector& p) = 0;
  // Full symmetric inverse of the N that `solve` has factorised; p as it left it. 0, or -2 with a
  // message when p has a wrong length.
  [[nodiscard]] virtual int invert(const NormalMatrix& n, Matrix& q, const Vector& p) = 0;
  virtual ~AdjInterface() = default;

  // As `solve`, without a message for a matrix that is not positive definite.
  [[nodiscard]] virtual int try_solve(const NormalMatrix& n, const Vector& b, Vector& x,
                                      Vector& p) = 0;
  // Writes all elements of N: its upper triangle, and below it the factor of the last solution,
  // zeros before the first.
  virtual void write_matrix(TextWriter& out, const NormalMatrix& n) const = 0;
  // Gives away its factor, with the order and the memory, where it eliminates the points of its
  // matrix in an order that keeps the reduced part sparse; null otherwise. It solves nothing then
  // without taking memory anew.
  [[nodiscard]] virtual std::unique_ptr<PointElimination> take_elimination();
};

// The built-in solver.
class AdjInterfaceNative : public AdjInterface {
 public:
  // How the matrix is factorised: by the dense routines, row by row in the order of the unknowns,
  // for small systems; by elimination of the points, with the reduced part in an order that keeps
  // it sparse; or the same in the order of the unknowns, for those who want to see the factor.
  enum class Method { dense, eliminate, eliminate_in_order };
  explicit AdjInterfaceNative(Method method = Method::dense) : method_(method) {}

  // Takes memory for the factor of a matrix, whose structure is complete. False when it does not
  // fit the address space.
  [[nodiscard]] bool prepare(const NormalMatrix& n);

  // A matrix that was not prepared is prepared first; std::bad_alloc when that fails.
  [[nodiscard]] int solve(const NormalMatrix& n, const Vector& b, Vector& x, Vector& p) override;
  [[nodiscard]] int invert(const NormalMatrix& n, Matrix& q, const Vector& p) override;
  [[nodiscard]] int try_solve(const NormalMatrix& n, const Vector& b, Vector& x,
                              Vector& p) override;
  void write_matrix(TextWriter& out, const NormalMatrix& n) const override;
  [[nodiscard]] std::unique_ptr<PointElimination> take_elimination() override;

 private:
  Method method_;
  std::unique_ptr<NormalFactor> factor_;
};

}  // namespace vorn
