#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "base/dual.h"
#include "base/owned_list.h"
#include "calibration/ap_formulas.h"
#include "geometry/image_geometry.h"
#include "lsq/adj_object.h"
#include "lsq/normal/design_block.h"
#include "sensors/camera.h"
#include "text/text_writer.h"
#include "text/token_reader.h"

namespace vorn {

struct Options;

// One printed grid of the effects of a set: those parameters k take part whose mask[k] is '1'.
struct EffectGrid {
  std::string_view caption;
  std::string_view mask;
};

// What distinguishes a model apart from its formulas.
struct APModel {
  APFormula formula;
  std::string_view keyword;
  std::string_view type_name;
  std::uint32_t num_ap;                             // number of parameters
  std::span<const std::string_view> param_names{};  // empty: "a1", "a2", ...
  std::span<const EffectGrid> effect_grids{};       // empty: one grid of all parameters
};

// A set of additional (self-calibration) parameters bound to one camera. Every model is linear in
// its parameters: the correction (dx, dy) of image coordinates at a reduced image point (x, y, z),
// in metres, is the 2xn derivative matrix that `get_derivs` gives, times the parameter values.
class APSet : public AdjObject {
 public:
  explicit APSet(const APModel& model);

  std::string_view get_type_name() const override { return model_.type_name; }
  std::string_view get_keyword() const override { return model_.keyword; }
  std::string get_param_name(std::int32_t i) const override;
  void init_params() override;

  // Reads the record body behind the type keyword. 1, or -1 when not even the identifier can be
  // read; numbers that are missing are 0.
  [[nodiscard]] virtual int read(TokenReader& in);
  // Writes the set in the layout of the AP-set file.
  virtual void write(TextWriter& out) const;
  // Writes the report listing.
  virtual void print(TextWriter& out) const;
  // Derivatives of (dx, dy) with respect to the parameters at a reduced point, 2xn, and the set's
  // index.
  void get_derivs(const Vec3& point, DesignBlock& block) const;
  // A slot without meaning: says so on the error stream.
  virtual void reserved_op();
  // Prints the set's effects on image coordinates over a grid of the camera's format, [mm] and
  // [um]. The third coordinate of the grid is +c, where measured points have -c. A missing camera
  // is reported on standard output, and no grid is printed then; nor is one of more than a million
  // points.
  virtual void print_grid_effects(TextWriter& out, const Options& options,
                                  const OwnedList<Camera>& cameras) const;

  // Binds the set to the camera it names. 1, or -1 with a message on standard output.
  [[nodiscard]] int bind_to_camera(const OwnedList<Camera>& cameras);
  // What the formulas take (calibration/ap_formulas.h).
  virtual APTerms terms() const { return {model_.formula, num_ap_, values(), 0.0}; }
  // Correction (dx, dy) [m] at a reduced image point: the derivatives times the parameters.
  Pair get_correction(const Vec3& point) const { return vorn::correction_of(terms(), point); }
  // The correction from those parameters k only whose character mask[k] is '1'.
  Pair get_correction_masked(const Vec3& point, std::string_view mask) const;

  std::int32_t num_ap() const { return num_ap_; }
  const double* values() const { return values_.get(); }
  double& value(std::int32_t k) { return values_[static_cast<std::size_t>(k)]; }
  double value(std::int32_t k) const { return values_[static_cast<std::size_t>(k)]; }
  double& std_dev(std::int32_t k) { return std_devs_[static_cast<std::size_t>(k)]; }
  double std_dev(std::int32_t k) const { return std_devs_[static_cast<std::size_t>(k)]; }

  std::string camera_id;

 protected:
  // The parts between which the grid models have their grid width.
  [[nodiscard]] bool read_ids(TokenReader& in);
  void read_params(TokenReader& in);
  void write_ids(TextWriter& out) const;
  void write_params(TextWriter& out) const;
  void print_ids(TextWriter& out) const;
  void print_params(TextWriter& out) const;

 private:
  APModel model_;
  std::int32_t num_ap_;
  std::unique_ptr<double[]> values_;
  std::unique_ptr<double[]> std_devs_;
  mutable DesignBlock derivs_;  // scratch of get_correction_masked
};

// Reads an AP-set file into the list. A set whose identifier is listed already takes the place of
// the older one, with a message. 1, also for an empty file; -1 with a message on standard output.
[[nodiscard]] int read_ap_set_file(TokenReader& in, OwnedList<APSet>& sets);

}  // namespace vorn
