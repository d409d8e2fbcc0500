#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/owned_list.h"
#include "geometry/image_geometry.h"
#include "lsq/adj_object.h"
#include "lsq/normal/design_block.h"
#include "text/token_reader.h"

namespace vorn {

// Polynomial in time with three components: component c is the sum over k of coeffs[k][c] * tau^k,
// tau being the time since a reference time [s].
class TimePolynomial {
 public:
  // Number of unknowns, three per order.
  std::int32_t num_values() const { return static_cast<std::int32_t>(3 * coeffs.size()); }
  // Components at tau, by Horner's scheme.
  Vec3 value_at(double tau) const;
  // Derivatives (2 x 3m) of image coordinates with respect to the coefficients, given those with
  // respect to the three components: columns `first` to `first` + 2 of `components`. Column 3k + c
  // is the column of component c times tau^k. The block's index is left alone.
  void get_derivs(double tau, const Matrix& components, std::int32_t first, Matrix& derivs) const;
  // Makes the parameter records of the object that owns the polynomial.
  void init_params(AdjObject& owner);
  // Reads the number m of triples, then for each order and component coefficient and standard
  // deviation. An unreadable m, or one below 1, gives no triple. Reading stops where the input
  // ends; what is missing of the last triple is 0. The owner names the coefficients in findings.
  void read(TokenReader& in, const AdjObject& owner);

  std::vector<Vec3> coeffs;
  std::vector<Vec3> coeff_std_devs;
};

// Systematic offset of the perspective centres of one or more exterior orientations, a polynomial
// in time. Parameters: X, Y, Z of order 0, then of order 1, and so on, in the unit of object space
// (per second, per second squared, ...).
class PosCorrection : public AdjObject {
 public:
  std::string_view get_type_name() const override { return "position correction"; }
  std::string_view get_keyword() const override { return "pos-corr"; }
  std::string get_param_name(std::int32_t i) const override;  // "Xo[0]", "Yo[0]", ...
  void init_params() override { polynomial.init_params(*this); }

  // Reads the record body behind the identifier: orientations up to "stop-dep", reference time,
  // polynomial. Always 1; what cannot be read stays empty or 0.
  [[nodiscard]] int read(TokenReader& in);
  // Hands the correction to every orientation it lists. 1, or -1 with a message on standard output.
  [[nodiscard]] int bind_to_eos(const OwnedList<ImageGeometry>& geometries);
  // Offset at time t.
  Vec3 value_at(double t) const { return polynomial.value_at(t - t0); }
  // Derivatives of image coordinates at time t, from columns 0 to 2 of the orientation's block.
  void get_derivs(double t, const DesignBlock& eo_block, DesignBlock& block) const;

  std::vector<std::string> eo_ids;  // orientations it applies to, in file order
  TimePolynomial polynomial;
  double t0 = 0;  // reference time [s]
};

// The same for the three rotation parameters of exterior orientations, in their parametrisation.
class AttCorrection : public AdjObject {
 public:
  std::string_view get_type_name() const override { return "attitude correction"; }
  std::string_view get_keyword() const override { return "att-corr"; }
  std::string get_param_name(std::int32_t i) const override;  // "a1[0]", "a2[0]", ...
  void init_params() override { polynomial.init_params(*this); }

  // As for position corrections.
  [[nodiscard]] int read(TokenReader& in);
  [[nodiscard]] int bind_to_eos(const OwnedList<ImageGeometry>& geometries);
  Vec3 value_at(double t) const { return polynomial.value_at(t - t0); }
  // Derivatives of image coordinates at time t, from columns 3 to 5 of the orientation's block.
  void get_derivs(double t, const DesignBlock& eo_block, DesignBlock& block) const;

  std::vector<std::string> eo_ids;
  TimePolynomial polynomial;
  double t0 = 0;
};

// Read a file of corrections into the list. A correction whose identifier is listed already takes
// the place of the older one, with a message on standard output. 1, also for an empty file; -1 with
// a message.
[[nodiscard]] int read_pos_correction_file(TokenReader& in, OwnedList<PosCorrection>& list);
[[nodiscard]] int read_att_correction_file(TokenReader& in, OwnedList<AttCorrection>& list);

}  // namespace vorn
