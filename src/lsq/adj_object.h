#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "lsq/linalg/matrix.h"
#include "text/text_writer.h"

namespace vorn {

class NormalMatrix;

// Role of a parameter in the adjustment.
enum class ParamState : std::int32_t {
  unknown = 0,     // "unk": free, no a-priori observation
  observed = 1,    // "obs": carries an a-priori observation of itself
  eliminated = 2,  // "eli": held at its value by the suppression weight
};

// State that an a-priori standard deviation gives: observed within [smin, smax] of the
// least-squares parameters (limits included), eliminated below, unknown above and when it is not a
// number.
ParamState state_of_sd(double sigma);
// "unk", "obs" or "eli".
std::string_view state_label(ParamState state);

// One adjustable parameter. Value and standard deviation live in the owning object.
struct ParamRecord {
  double initial = 0;       // value when the record was made
  double* value = nullptr;  // current value
  const double* std_dev = nullptr;
  ParamState state = ParamState::unknown;
  double weight = 0;  // of the a-priori observation: (sigma0/sigma)^2, the suppression weight, or 0
};

// Base of everything whose numbers the adjustment may change: object points, image geometries,
// additional-parameter sets, position and attitude corrections. Parameter k is unknown number
// index + k of the adjustment. Objects are neither copied nor moved, since records point into them.
class AdjObject {
 public:
  AdjObject() = default;
  AdjObject(const AdjObject&) = delete;
  AdjObject& operator=(const AdjObject&) = delete;

  virtual ~AdjObject() = default;
  // Number of condition equations that the object adds to the normal equations.
  virtual std::int32_t get_num_constraints() const { return 0; }
  // Adds the condition equations to the normal matrix, the right-hand side and l'Pl.
  virtual void add_constraints(NormalMatrix& normal, Vector& rhs, double& lPl) const;
  virtual std::string_view get_type_name() const { return "undefined"; }
  virtual std::string_view get_keyword() const { return "undef"; }
  virtual std::string get_param_name(std::int32_t i) const;
  // Makes the parameter records from the object's own values and standard deviations.
  virtual void init_params() {}
  // Listings: corrections of one iteration; results; results with significance test.
  virtual void print_changes(TextWriter& out, const Vector& corrections) const;
  virtual void print_results(TextWriter& out) const;
  virtual void print_significance(TextWriter& out) const;
  // Number of the first parameter whose absolute correction exceeds its convergence limit, or -1.
  virtual std::int32_t check_convergence(const Vector& corrections) const;
  // Adds the absolute corrections of the parameters that are not eliminated to `sum`, their number
  // to `count`.
  virtual void sum_abs_corrections(const Vector& corrections, double& sum,
                                   std::int32_t& count) const;

  std::uint32_t num_params() const { return num_params_; }
  const ParamRecord& param(std::int32_t k) const { return params_[static_cast<std::size_t>(k)]; }

  // Makes n empty records. 1, or -2 when there is no memory for them; the object has none then.
  int alloc_params(std::uint32_t n);
  // Whether the last records found memory.
  bool has_params_allocated() const { return allocated_; }
  // Fills record k from references to the value and its standard deviation.
  void set_param(std::int32_t k, double& value, const double& std_dev);
  std::int32_t count_state(ParamState state) const;
  // Adds the a-priori observations and the suppression weights of the parameters.
  void add_weights(NormalMatrix& normal, Vector& rhs, double& vtpv) const;
  // Adds the corrections to all parameters that are not eliminated; returns their number.
  std::int32_t apply_corrections(const Vector& corrections);
  // Label of record k's state.
  std::string_view state_name(std::int32_t k) const;
  // Label that a standard deviation gives; a value that is not a number is reported on standard
  // output and gives an empty label.
  static std::string_view state_name_of_sd(double sigma);
  // Rows of the table of unknowns, one per parameter, and an empty line.
  void print_unknowns(TextWriter& out) const;

  std::string id;
  bool used = false;        // set by whoever comes to depend on the object
  std::int32_t index = -1;  // number of the first parameter; -1 until registered

 protected:
  double correction_of(std::int32_t k, const Vector& corrections) const {
    return corrections[index + k];
  }
  // Header and rows of the listing of an iteration, numbers scientific, and an empty line.
  void print_change_rows(TextWriter& out, const Vector& corrections) const;

 private:
  std::uint32_t num_params_ = 0;
  bool allocated_ = true;
  std::unique_ptr<ParamRecord[]> params_;
};

}  // namespace vorn
