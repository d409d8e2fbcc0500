#include "lsq/adj_object.h"

#include <array>
#include <cmath>
#include <new>
#include <string_view>

#include "lsq/ls_params.h"
#include "lsq/normal/normal_matrix.h"
#include "lsq/project_number.h"

namespace vorn {
namespace {

constexpr NumberFormat kChange = scientific(3, 12);
constexpr NumberFormat kSignificance = scientific(3, 11);
constexpr NumberFormat kRatio = fixed(1, 6);
constexpr NumberFormat kUnknownNumber = general(5);
constexpr NumberFormat kWeight = scientific(2, 9);

void print_result_heads(TextWriter& out, const AdjObject& object) {
  out << "ID     :  " << object.id << '\n'
      << "Type   :  " << object.get_type_name() << '\n'
      << "Index  :  " << project_number(object.index) << "\n\n";
}

// Name, state, initial and current value, change and standard deviation of parameter k.
void print_result_columns(TextWriter& out, const AdjObject& object, std::int32_t k,
                          NumberFormat number) {
  const ParamRecord& param = object.param(k);
  out << "  " << left_aligned(object.get_param_name(k), 8) << "  "
      << left_aligned(object.state_name(k), 4) << "  " << number(param.initial) << "  "
      << number(*param.value) << "  " << number(*param.value - param.initial) << "  "
      << number(*param.std_dev);
}

}  // namespace

ParamState state_of_sd(double sigma) {
  const LSParams& settings = ls_params();
  if (settings.is_observed(sigma)) return ParamState::observed;
  return sigma < settings.smin ? ParamState::eliminated : ParamState::unknown;
}

std::string_view state_label(ParamState state) {
  constexpr std::array<std::string_view, 3> kLabels = {"unk", "obs", "eli"};
  const auto code = static_cast<std::size_t>(state);
  return code < kLabels.size() ? kLabels[code] : std::string_view();
}

void AdjObject::add_constraints(NormalMatrix&, Vector&, double&) const {}

std::string AdjObject::get_param_name(std::int32_t i) const {
  return "x[" + std::to_string(i) + "]";
}

int AdjObject::alloc_params(std::uint32_t n) {
  params_.reset(new (std::nothrow) ParamRecord[n]);
  allocated_ = params_ != nullptr;
  num_params_ = allocated_ ? n : 0;
  return allocated_ ? 1 : -2;
}

void AdjObject::set_param(std::int32_t k, double& value, const double& std_dev) {
  const ParamState state = state_of_sd(std_dev);
  double weight = 0.0;
  if (state == ParamState::observed) {
    const double ratio = ls_params().sigma0_apriori / std_dev;
    weight = ratio * ratio;
  } else if (state == ParamState::eliminated) {
    weight = ls_params().weight_suppression;
  }
  params_[static_cast<std::size_t>(k)] = {value, &value, &std_dev, state, weight};
}

std::int32_t AdjObject::count_state(ParamState state) const {
  std::int32_t count = 0;
  for (std::uint32_t k = 0; k < num_params_; ++k) count += params_[k].state == state ? 1 : 0;
  return count;
}

void AdjObject::add_weights(NormalMatrix& normal, Vector& rhs, double& vtpv) const {
  for (std::uint32_t k = 0; k < num_params_; ++k) {
    const ParamRecord& param = params_[k];
    if (param.state == ParamState::unknown) continue;
    const std::int32_t row = index + static_cast<std::int32_t>(k);
    const double d = param.initial - *param.value;
    normal.add(row, row, param.weight);
    rhs[row] += param.weight * d;
    vtpv += param.weight * d * d;
  }
}

std::int32_t AdjObject::apply_corrections(const Vector& corrections) {
  std::int32_t changed = 0;
  for (std::uint32_t k = 0; k < num_params_; ++k) {
    if (params_[k].state == ParamState::eliminated) continue;
    *params_[k].value += correction_of(static_cast<std::int32_t>(k), corrections);
    ++changed;
  }
  return changed;
}

std::int32_t AdjObject::check_convergence(const Vector&) const { return -1; }

void AdjObject::sum_abs_corrections(const Vector& corrections, double& sum,
                                    std::int32_t& count) const {
  for (std::uint32_t k = 0; k < num_params_; ++k) {
    if (params_[k].state == ParamState::eliminated) continue;
    sum += std::fabs(correction_of(static_cast<std::int32_t>(k), corrections));
    ++count;
  }
}

std::string_view AdjObject::state_name(std::int32_t k) const { return state_label(param(k).state); }

std::string_view AdjObject::state_name_of_sd(double sigma) {
  if (std::isnan(sigma)) {
    standard_output() << "ERROR: Invalid standard deviation: " << general()(sigma) << '\n';
    return {};
  }
  return state_label(state_of_sd(sigma));
}

void AdjObject::print_changes(TextWriter& out, const Vector& corrections) const {
  out << "ID    :  " << id << '\n'
      << "Type  :  " << get_type_name() << '\n'
      << "Index :  " << project_number(index) << "\n\n";
  print_change_rows(out, corrections);
}

void AdjObject::print_change_rows(TextWriter& out, const Vector& corrections) const {
  out << "  Name       State       Approx.         Change       Adjusted\n\n";
  for (std::int32_t k = 0; k < static_cast<std::int32_t>(num_params_); ++k) {
    const double value = *param(k).value;
    const double correction = correction_of(k, corrections);
    out << "  " << left_aligned(get_param_name(k), 8) << "   " << left_aligned(state_name(k), 4)
        << "   " << kChange(value) << "   " << kChange(correction) << "   "
        << kChange(value + correction) << '\n';
  }
  out << '\n';
}

void AdjObject::print_results(TextWriter& out) const {
  print_result_heads(out, *this);
  out << "  Param.    State      Initial      Adjusted        Change      Std.dev.\n\n";
  for (std::int32_t k = 0; k < static_cast<std::int32_t>(num_params_); ++k) {
    print_result_columns(out, *this, k, kChange);
    out << '\n';
  }
  out << '\n';
}

void AdjObject::print_significance(TextWriter& out) const {
  print_result_heads(out, *this);
  out << "  Param.    State     Initial     Adjusted       Change     Std.dev.   Ratio\n\n";
  for (std::int32_t k = 0; k < static_cast<std::int32_t>(num_params_); ++k) {
    const ParamRecord& record = param(k);
    const double ratio = std::fabs((*record.value - record.initial) / *record.std_dev);
    print_result_columns(out, *this, k, kSignificance);
    out << "  " << kRatio(ratio);
    if (record.state == ParamState::eliminated) {
      out << "  is eliminated";
    } else {
      out << (ratio > ls_params().significance_limit ? "  is significant" : "  not significant");
    }
    out << '\n';
  }
  out << '\n';
}

void AdjObject::print_unknowns(TextWriter& out) const {
  for (std::int32_t k = 0; k < static_cast<std::int32_t>(num_params_); ++k) {
    out << "  " << kUnknownNumber(index + k) << "   " << left_aligned(get_param_name(k), 8) << "   "
        << right_aligned(id, 10) << "   " << left_aligned(state_name(k), 5) << "   "
        << kWeight(param(k).weight) << '\n';
  }
  out << '\n';
}

}  // namespace vorn
