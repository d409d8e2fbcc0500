#pragma once

#include <memory>

#include "calibration/ap_set.h"
#include "text/keywords.h"

namespace vorn {

// Base of the two models that are orthogonal over a regular grid of image points.
class APSetP : public APSet {
 public:
  using APSet::APSet;

  int read(TokenReader& in) override;
  void write(TextWriter& out) const override;
  void print(TextWriter& out) const override;

  double grid_width = 0.0;  // b: the outer points of the grid lie at -b and +b [m]
};

// What follows from the terms of a model: Model::put(terms, point) puts the derivatives of (dx,
// dy), one parameter after the other, into the rows of a derivative block or into the correction;
// for one point or for a pack of points.
template <class Model, class Base = APSet>
class APSetOf : public Base {
 public:
  using Base::Base;

  void get_derivs(const Vec3& point, DesignBlock& block) const override;
  Pair get_correction(const Vec3& point) const override;
  void get_packed_derivs(const Vec3Of<Pack>& point, const RowPair<Pack>& rows) const override;
  PackPair get_packed_correction(const Vec3Of<Pack>& point) const override;
  void linearise(const Vec3& point, const RowPair<double>& rows,
                 std::array<Dual<double>, 2>& sum) const override;
  void linearise(const Vec3Of<Pack>& point, const RowPair<Pack>& rows,
                 std::array<Dual<Pack>, 2>& sum) const override;

 private:
  template <class T>
  void linearise_at(const Vec3Of<T>& point, const RowPair<T>& rows,
                    std::array<Dual<T>, 2>& sum) const;
  const Model& model() const { return static_cast<const Model&>(*this); }
};

// The nine models of additional parameters. Below, (x, y, z) is the reduced image point [m], z =
// -c, and r2 = x^2 + y^2; dx and dy are the corrections of the image coordinates.

// Inner orientation and the common distortions:
//   dx = dxp - dc x/z - sx x + a1 y + x (K1 r2 + K2 r2^2 + K3 r2^3) + P1 (3x^2 + y^2) + 2 P2 xy
//   dy = dyp - dc y/z        + a1 x + y (K1 r2 + K2 r2^2 + K3 r2^3) + 2 P1 xy + P2 (x^2 + 3y^2)
class APSetGAP : public APSetOf<APSetGAP> {
 public:
  APSetGAP();
  template <class Terms, class T>
  void put(Terms& terms, const Vec3Of<T>& point) const;
};

// The same effects in the Australis convention:
//   dx = dxp - dc x/z + x (K1 r2 + K2 r2^2 + K3 r2^3) + P1 (r2 + 2x^2) + 2 P2 xy + b1 x + b2 y
//   dy = dyp - dc y/z + y (K1 r2 + K2 r2^2 + K3 r2^3) + 2 P1 xy + P2 (r2 + 2y^2)
class APSetAustralis : public APSetOf<APSetAustralis> {
 public:
  APSetAustralis();
  template <class Terms, class T>
  void put(Terms& terms, const Vec3Of<T>& point) const;
};

// dx = dxp - dc x/z,  dy = dyp - dc y/z
class APSetIO : public APSetOf<APSetIO> {
 public:
  APSetIO();
  template <class Terms, class T>
  void put(Terms& terms, const Vec3Of<T>& point) const;
};

// (dx, dy) = (x, y) (K1 r2 + K2 r2^2 + K3 r2^3)
class APSetRadial : public APSetOf<APSetRadial> {
 public:
  APSetRadial();
  template <class Terms, class T>
  void put(Terms& terms, const Vec3Of<T>& point) const;
};

// dx = P1 (3x^2 + y^2) + 2 P2 xy,  dy = 2 P1 xy + P2 (x^2 + 3y^2)
class APSetDecentering : public APSetOf<APSetDecentering> {
 public:
  APSetDecentering();
  template <class Terms, class T>
  void put(Terms& terms, const Vec3Of<T>& point) const;
};

// dx = a1 x + a2 y + a3 xy + a4 y^2 + a5 x^2y + a6 xy^2 + a7 x^2y^2
// dy = a8 xy + a9 x^2 + a10 x^2y + a11 xy^2 + a12 x^2y^2
class APSetInPlane : public APSetOf<APSetInPlane> {
 public:
  APSetInPlane();
  template <class Terms, class T>
  void put(Terms& terms, const Vec3Of<T>& point) const;
};

// (dx, dy) = (x, y)/z (a13 (x^2 - y^2) + a14 x^2y^2 + a15 (x^4 - y^4))
class APSetOutOfPlane : public APSetOf<APSetOutOfPlane> {
 public:
  APSetOutOfPlane();
  template <class Terms, class T>
  void put(Terms& terms, const Vec3Of<T>& point) const;
};

// Polynomials orthogonal over a grid of 3 x 3 points (Ebner, 1976).
class APSetP12 : public APSetOf<APSetP12, APSetP> {
 public:
  APSetP12();
  template <class Terms, class T>
  void put(Terms& terms, const Vec3Of<T>& point) const;
};

// Polynomials orthogonal over a grid of 5 x 5 points (Gruen, 1978).
class APSetP44 : public APSetOf<APSetP44, APSetP> {
 public:
  APSetP44();
  template <class Terms, class T>
  void put(Terms& terms, const Vec3Of<T>& point) const;
};

// An empty set of the model that a keyword of the AP-set file names; null for any other keyword.
std::unique_ptr<APSet> make_ap_set(Keyword keyword);

}  // namespace vorn
