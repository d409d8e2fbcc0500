#pragma once

#include <array>
#include <cstdint>

#include "base/dual.h"
#include "base/row_pair.h"
#include "geometry/vec3.h"

// The formulas of the models of additional parameters, for one point or for several side by side:
// T is a number or Lanes.

namespace vorn {

enum class APFormula {
  gap,
  australis,
  p12,
  p44,
  inner_orientation,
  radial,
  decentering,
  in_plane,
  out_of_plane
};

// What the formulas take of a parameter set.
struct APTerms {
  APFormula formula;
  std::int32_t num_ap;   // number of parameters
  const double* values;  // theirs, not owned
  double grid_width;     // b of the models that are orthogonal over a grid [m], otherwise 0
};

// ---- where the terms go -------------------------------------------------------------------------

// The two rows of a derivative block, filled from left to right.
template <class T, class Row>
class Rows {
 public:
  explicit Rows(const RowPair<Row>& rows) : at_(rows) {}
  // Derivatives of dx and dy with respect to the next parameter.
  void put(const T& dx, const T& dy) {
    at_.x[next_] = dx;
    at_.y[next_++] = dy;
  }
  // One parameter for each term that acts on dx, then as many that act on dy.
  template <class... Term>
  void put_on_both(const Term&... terms) {
    (put(terms, 0.0), ...);
    (put(0.0, terms), ...);
  }

 private:
  RowPair<Row> at_;
  std::int32_t next_ = 0;
};

// The correction itself: the sum of the derivatives times the parameters, taken in the same order
// as rows.
template <class T>
class Sum {
 public:
  explicit Sum(const double* values) : value_(values) {}
  void put(const T& dx, const T& dy) {
    total_[0] += dx * *value_;
    total_[1] += dy * *value_++;
  }
  template <class... Term>
  void put_on_both(const Term&... terms) {
    ((total_[0] += terms * *value_++), ...);
    ((total_[1] += terms * *value_++), ...);
  }
  const std::array<T, 2>& total() const { return total_; }

 private:
  const double* value_;
  std::array<T, 2> total_{0.0, 0.0};
};

// Rows and correction in one go, from terms that carry their derivatives with respect to the image
// point; the sum carries them, too.
template <class T, class Row>
class Linearised {
 public:
  Linearised(const double* values, const RowPair<Row>& rows, std::array<Dual<T>, 2>& sum)
      : value_(values), at_(rows), sum_(sum) {}
  // A term is a number with derivatives, or a constant.
  template <class TermX, class TermY>
  void put(const TermX& dx, const TermY& dy) {
    add(dx, at_.x[next_], sum_[0]);
    add(dy, at_.y[next_++], sum_[1]);
    ++value_;
  }
  template <class... Term>
  void put_on_both(const Term&... terms) {
    (put(terms, 0.0), ...);
    (put(0.0, terms), ...);
  }

 private:
  void add(const Dual<T>& term, T& element, Dual<T>& sum) const {
    element = term.value;
    sum += term * *value_;
  }
  void add(double term, T& element, Dual<T>& sum) const {
    element = term;
    if (term != 0.0) sum.value += term * *value_;
  }

  const double* value_;
  RowPair<Row> at_;
  std::int32_t next_ = 0;
  std::array<Dual<T>, 2>& sum_;
};

// ---- terms that models share --------------------------------------------------------------------

// dxp, dyp, dc
template <class Terms, class T>
void put_inner_orientation(Terms& terms, const Vec3Of<T>& p) {
  const auto& [x, y, z] = p;
  terms.put(1.0, 0.0);
  terms.put(0.0, 1.0);
  terms.put(-x / z, -y / z);
}

// K1, K2, K3
template <class Terms, class T>
void put_radial(Terms& terms, const Vec3Of<T>& p) {
  const T x = p[0];
  const T y = p[1];
  const T r2 = x * x + y * y;
  const T r4 = r2 * r2;
  const T r6 = r4 * r2;
  terms.put(x * r2, y * r2);
  terms.put(x * r4, y * r4);
  terms.put(x * r6, y * r6);
}

// P1, P2
template <class Terms, class T>
void put_decentering(Terms& terms, const Vec3Of<T>& p) {
  const T x = p[0];
  const T y = p[1];
  const T xy2 = 2 * x * y;
  terms.put(3 * x * x + y * y, xy2);
  terms.put(xy2, x * x + 3 * y * y);
}

// ---- terms of the models ------------------------------------------------------------------------

// Each model puts the derivatives of (dx, dy), one parameter after the other, into the rows of a
// derivative block or into the correction. Below, (x, y, z) is the reduced image point [m], z = -c,
// and r2 = x^2 + y^2; dx and dy are the corrections of the image coordinates.

// Inner orientation and the common distortions:
//   dx = dxp - dc x/z - sx x + a1 y + x (K1 r2 + K2 r2^2 + K3 r2^3) + P1 (3x^2 + y^2) + 2 P2 xy
//   dy = dyp - dc y/z        + a1 x + y (K1 r2 + K2 r2^2 + K3 r2^3) + 2 P1 xy + P2 (x^2 + 3y^2)
struct GAP {
  template <class Terms, class T>
  static void put(Terms& terms, const Vec3Of<T>& point, const APTerms&) {
    const T x = point[0];
    const T y = point[1];
    put_inner_orientation(terms, point);
    terms.put(-x, 0.0);
    terms.put(y, x);
    put_radial(terms, point);
    put_decentering(terms, point);
  }
};

// The same effects in the Australis convention:
//   dx = dxp - dc x/z + x (K1 r2 + K2 r2^2 + K3 r2^3) + P1 (r2 + 2x^2) + 2 P2 xy + b1 x + b2 y
//   dy = dyp - dc y/z + y (K1 r2 + K2 r2^2 + K3 r2^3) + 2 P1 xy + P2 (r2 + 2y^2)
struct Australis {
  template <class Terms, class T>
  static void put(Terms& terms, const Vec3Of<T>& point, const APTerms&) {
    const T x = point[0];
    const T y = point[1];
    const T r2 = x * x + y * y;
    put_inner_orientation(terms, point);
    put_radial(terms, point);
    terms.put(r2 + 2 * x * x, 2 * x * y);
    terms.put(2 * x * y, r2 + 2 * y * y);
    terms.put(x, 0.0);
    terms.put(y, 0.0);
  }
};

// dx = dxp - dc x/z,  dy = dyp - dc y/z
struct DistanceAndPoint {
  template <class Terms, class T>
  static void put(Terms& terms, const Vec3Of<T>& point, const APTerms&) {
    put_inner_orientation(terms, point);
  }
};

// (dx, dy) = (x, y) (K1 r2 + K2 r2^2 + K3 r2^3)
struct Radial {
  template <class Terms, class T>
  static void put(Terms& terms, const Vec3Of<T>& point, const APTerms&) {
    put_radial(terms, point);
  }
};

// dx = P1 (3x^2 + y^2) + 2 P2 xy,  dy = 2 P1 xy + P2 (x^2 + 3y^2)
struct Decentering {
  template <class Terms, class T>
  static void put(Terms& terms, const Vec3Of<T>& point, const APTerms&) {
    put_decentering(terms, point);
  }
};

// dx = a1 x + a2 y + a3 xy + a4 y^2 + a5 x^2y + a6 xy^2 + a7 x^2y^2
// dy = a8 xy + a9 x^2 + a10 x^2y + a11 xy^2 + a12 x^2y^2
struct InPlane {
  template <class Terms, class T>
  static void put(Terms& terms, const Vec3Of<T>& point, const APTerms&) {
    const T x = point[0];
    const T y = point[1];
    const T xy = x * y;
    const T x2y = x * xy;
    const T xy2 = xy * y;
    const T x2y2 = xy * xy;
    for (const T& dx : {x, y, xy, y * y, x2y, xy2, x2y2}) terms.put(dx, 0.0);
    for (const T& dy : {xy, x * x, x2y, xy2, x2y2}) terms.put(0.0, dy);
  }
};

// (dx, dy) = (x, y)/z (a13 (x^2 - y^2) + a14 x^2y^2 + a15 (x^4 - y^4))
struct OutOfPlane {
  template <class Terms, class T>
  static void put(Terms& terms, const Vec3Of<T>& point, const APTerms&) {
    const auto& [x, y, z] = point;
    const T u = x / z;
    const T v = y / z;
    const T x2 = x * x;
    const T y2 = y * y;
    for (const T& term : {x2 - y2, x2 * y2, x2 * x2 - y2 * y2}) terms.put(term * u, term * v);
  }
};

// Polynomials orthogonal over a grid of 3 x 3 points (Ebner, 1976).
struct P12 {
  template <class Terms, class T>
  static void put(Terms& terms, const Vec3Of<T>& point, const APTerms& set) {
    const T x = point[0];
    const T y = point[1];
    const double k = 0.6666666666666666 * (set.grid_width * set.grid_width);
    const T X = x * x - k;
    const T Y = y * y - k;
    terms.put(x, -y);
    terms.put(y, x);
    terms.put(-2 * X, x * y);
    terms.put(x * y, -2 * Y);
    terms.put(Y, 0.0);
    terms.put(0.0, X);
    terms.put(x * Y, 0.0);
    terms.put(0.0, y * X);
    terms.put(y * X, 0.0);
    terms.put(0.0, x * Y);
    terms.put(X * Y, 0.0);
    terms.put(0.0, X * Y);
  }
};

// Polynomials orthogonal over a grid of 5 x 5 points (Gruen, 1978).
// Auxiliary polynomials of degree 2 to 4, orthogonal over the grid:
//   X = x^2 - b^2/2,  A = x^2 - 0.85 b^2,  U = x^2 (x^2 - 31/28 b^2) + 9/70 b^4
// and Y, B, V likewise.
struct P44 {
  template <class Terms, class T>
  static void put(Terms& terms, const Vec3Of<T>& point, const APTerms& set) {
    constexpr double kFactor = -10.0 / 7.0;
    const T x = point[0];
    const T y = point[1];
    const T xy = x * y;
    const double b2 = set.grid_width * set.grid_width;
    const double q = 31.0 / 28.0 * b2;
    const double t = 9.0 / 70.0 * (b2 * b2);
    const T X = x * x - b2 / 2;
    const T Y = y * y - b2 / 2;
    const T A = x * x - 0.85 * b2;
    const T B = y * y - 0.85 * b2;
    const T U = x * x * (x * x - q) + t;
    const T V = y * y * (y * y - q) + t;
    terms.put(x, -y);
    terms.put(y, x);
    terms.put(xy, kFactor * Y);
    terms.put(Y, 0.0);
    terms.put(0.0, X);
    terms.put(kFactor * X, xy);
    terms.put_on_both(x * A, y * X, x * Y, y * B);
    terms.put_on_both(U, xy * A, X * Y, xy * B, V);
    terms.put_on_both(y * U, x * Y * A, y * X * B, x * V);
    terms.put_on_both(Y * U, xy * A * B, X * V);
    terms.put_on_both(y * B * U, x * A * V);
    terms.put_on_both(U * V);
  }
};

// ---- what follows from the terms ---------------------------------------------------------------

// Calls take(model) for the model of a formula.
template <class Take>
decltype(auto) with_model(APFormula formula, Take take) {
  switch (formula) {
    case APFormula::gap:
      return take(GAP());
    case APFormula::australis:
      return take(Australis());
    case APFormula::p12:
      return take(P12());
    case APFormula::p44:
      return take(P44());
    case APFormula::inner_orientation:
      return take(DistanceAndPoint());
    case APFormula::radial:
      return take(Radial());
    case APFormula::decentering:
      return take(Decentering());
    case APFormula::in_plane:
      return take(InPlane());
    default:
      return take(OutOfPlane());
  }
}

// The derivatives of the corrections with respect to the parameters of a set, at a reduced point.
template <class T, class Row>
void fill_set_columns(const APTerms& set, const Vec3Of<T>& point, const RowPair<Row>& rows) {
  Rows<T, Row> terms(rows);
  with_model(set.formula, [&](auto model) { model.put(terms, point, set); });
}

// The correction (dx, dy).
template <class T>
std::array<T, 2> correction_of(const APTerms& set, const Vec3Of<T>& point) {
  Sum<T> sum(set.values);
  with_model(set.formula, [&](auto model) { model.put(sum, point, set); });
  return sum.total();
}

// Both, the correction with its derivatives with respect to x and y, added to `sum`.
template <class T, class Row>
void linearise_set(const APTerms& set, const Vec3Of<T>& point, const RowPair<Row>& rows,
                   std::array<Dual<T>, 2>& sum) {
  Linearised<T, Row> terms(set.values, rows, sum);
  const Vec3Of<Dual<T>> variables{Dual<T>(point[0], 1.0, 0.0), Dual<T>(point[1], 0.0, 1.0),
                                  Dual<T>(point[2], 0.0, 0.0)};
  with_model(set.formula, [&](auto model) { model.put(terms, variables, set); });
}

}  // namespace vorn
