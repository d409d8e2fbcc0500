#pragma once

#include "lsq/linalg/matrix.h"
#include "lsq/normal/normal_matrix.h"

namespace vorn {

// A solver of the normal equations N x = b.
class AdjInterface {
 public:
  AdjInterface() = default;
  AdjInterface(const AdjInterface&) = delete;
  AdjInterface& operator=(const AdjInterface&) = delete;

  // Factorises N in place and solves for x; p receives the diagonal of the factor. 0, or a code
  // with a message on standard output: k > 0 when N is not positive definite at row k (counted from
  // 1).
  virtual int solve(NormalMatrix& n, const Vector& b, Vector& x, Vector& p) = 0;  // 0
  // Full symmetric inverse of an N that `solve` has factorised. 0, or a code with a message.
  virtual int invert(const NormalMatrix& n, Matrix& q, const Vector& p) = 0;  // 1
  virtual ~AdjInterface() = default;
};

// The built-in solver.
class AdjInterfaceNative : public AdjInterface {
 public:
  int solve(NormalMatrix& n, const Vector& b, Vector& x, Vector& p) override;
  int invert(const NormalMatrix& n, Matrix& q, const Vector& p) override;
};

}  // namespace vorn
