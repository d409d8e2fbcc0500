#pragma once

#include <memory>

#include "calibration/ap_set.h"
#include "driver/keywords.h"

namespace vorn {

// The nine models of additional parameters. Below, (x, y, z) is the reduced image point [m], z =
// -c, and r2 = x^2 + y^2; dx and dy are the corrections of the image coordinates.

// Inner orientation and the common distortions:
//   dx = dxp - dc x/z - sx x + a1 y + x (K1 r2 + K2 r2^2 + K3 r2^3) + P1 (3x^2 + y^2) + 2 P2 xy
//   dy = dyp - dc y/z        + a1 x + y (K1 r2 + K2 r2^2 + K3 r2^3) + 2 P1 xy + P2 (x^2 + 3y^2)
class APSetGAP : public APSet {
 public:
  APSetGAP();
  void get_derivs(const Vec3& point, DesignBlock& block) const override;
  Pair get_correction(const Vec3& point) const override;
};

// The same effects in the Australis convention:
//   dx = dxp - dc x/z + x (K1 r2 + K2 r2^2 + K3 r2^3) + P1 (r2 + 2x^2) + 2 P2 xy + b1 x + b2 y
//   dy = dyp - dc y/z + y (K1 r2 + K2 r2^2 + K3 r2^3) + 2 P1 xy + P2 (r2 + 2y^2)
class APSetAustralis : public APSet {
 public:
  APSetAustralis();
  void get_derivs(const Vec3& point, DesignBlock& block) const override;
  Pair get_correction(const Vec3& point) const override;
};

// dx = dxp - dc x/z,  dy = dyp - dc y/z
class APSetIO : public APSet {
 public:
  APSetIO();
  void get_derivs(const Vec3& point, DesignBlock& block) const override;
  Pair get_correction(const Vec3& point) const override;
};

// (dx, dy) = (x, y) (K1 r2 + K2 r2^2 + K3 r2^3)
class APSetRadial : public APSet {
 public:
  APSetRadial();
  void get_derivs(const Vec3& point, DesignBlock& block) const override;
  Pair get_correction(const Vec3& point) const override;
};

// dx = P1 (3x^2 + y^2) + 2 P2 xy,  dy = 2 P1 xy + P2 (x^2 + 3y^2)
class APSetDecentering : public APSet {
 public:
  APSetDecentering();
  void get_derivs(const Vec3& point, DesignBlock& block) const override;
  Pair get_correction(const Vec3& point) const override;
};

// dx = a1 x + a2 y + a3 xy + a4 y^2 + a5 x^2y + a6 xy^2 + a7 x^2y^2
// dy = a8 xy + a9 x^2 + a10 x^2y + a11 xy^2 + a12 x^2y^2
class APSetInPlane : public APSet {
 public:
  APSetInPlane();
  void get_derivs(const Vec3& point, DesignBlock& block) const override;
  Pair get_correction(const Vec3& point) const override;
};

// (dx, dy) = (x, y)/z (a13 (x^2 - y^2) + a14 x^2y^2 + a15 (x^4 - y^4))
class APSetOutOfPlane : public APSet {
 public:
  APSetOutOfPlane();
  void get_derivs(const Vec3& point, DesignBlock& block) const override;
  Pair get_correction(const Vec3& point) const override;
};

// Base of the two models that are orthogonal over a regular grid of image points.
class APSetP : public APSet {
 public:
  using APSet::APSet;

  int read(TokenReader& in) override;
  void write(TextWriter& out) const override;
  void print(TextWriter& out) const override;

  double grid_width = 0.0;  // b: the outer points of the grid lie at -b and +b [m]
};

// Polynomials orthogonal over a grid of 3 x 3 points (Ebner, 1976).
class APSetP12 : public APSetP {
 public:
  APSetP12();
  void get_derivs(const Vec3& point, DesignBlock& block) const override;
  Pair get_correction(const Vec3& point) const override;
};

// Polynomials orthogonal over a grid of 5 x 5 points (Gruen, 1978).
class APSetP44 : public APSetP {
 public:
  APSetP44();
  void get_derivs(const Vec3& point, DesignBlock& block) const override;
  Pair get_correction(const Vec3& point) const override;
};

// An empty set of the model that a keyword of the AP-set file names; null for any other keyword.
std::unique_ptr<APSet> make_ap_set(Keyword keyword);

}  // namespace vorn
