#include "lsq/adj_interface.h"

namespace vorn {

int AdjInterfaceNative::solve(NormalMatrix& n, const Vector& b, Vector& x, Vector& p) {
  const std::int32_t code = n.solve(b, x, p);
  if (code > 0) standard_output() << "ERROR: Cholesky decomposition failed.\n";
  if (code < 0) standard_output() << "ERROR: Backsubstitution failed.\n";
  return code;
}

int AdjInterfaceNative::invert(const NormalMatrix& n, Matrix& q, const Vector& p) {
  const int code = n.invert(p, q);
  if (code != 0) standard_output() << "ERROR: Backsubstitution failed.\n";
  return code;
}

}  // namespace vorn
