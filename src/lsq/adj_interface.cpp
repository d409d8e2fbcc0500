#include "lsq/adj_interface.h"

namespace vorn {

int AdjInterfaceNative::solve(NormalMatrix& n, const Vector& b, Vector& x, Vector& p) {
  if (const int code = n.factorise(p); code != 0) {
    standard_output() << "ERROR: Cholesky decomposition failed.\n";
    return code;
  }
  if (const int code = n.substitute(p, b, x); code != 0) {
    standard_output() << "ERROR: Backsubstitution failed.\n";
    return code;
  }
  return 0;
}

int AdjInterfaceNative::invert(const NormalMatrix& n, Matrix& q, const Vector& p) {
  const int code = n.invert(p, q);
  if (code != 0) standard_output() << "ERROR: Backsubstitution failed.\n";
  return code;
}

}  // namespace vorn
