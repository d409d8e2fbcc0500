// vorn diff: what two adjustments say about the same unknowns, in units of their sigmas.

#include <algorithm>
#include <cmath>
#include <map>
#include <numbers>

#include "app/command.h"
#include "app/estimation_options.h"
#include "app/held_run.h"
#include "app/name_list.h"
#include "text/text_writer.h"

namespace vorn::app {
namespace {

// An unknown by its names, and what one adjustment says of it.
using UnknownName = std::pair<std::string, std::string>;  // "point 17", "X"
struct Estimate {
  double value = 0.0;
  double sd = 0.0;
  bool is_angle = false;
};
using Estimates = std::map<UnknownName, Estimate>;

struct Difference {
  const UnknownName* name;
  double value;      // B - A
  double in_sigmas;  // of both adjustments together
};

Estimates estimates_of(const QualityResults& results) {
  constexpr const char* kAxes[] = {"X", "Y", "Z"};
  Estimates all;
  for (const PointResult& row : results.points) {
    for (std::size_t k = 0; k < 3; ++k) {
      all[{"point " + row.point->id, kAxes[k]}] = {row.point->xyz[k], row.sd(k), false};
    }
  }
  for (const ParameterResult& row : results.parameters) {
    const std::string type(object_type_name(object_type_of(*row.unknown.object)));
    all[{type + ' ' + row.unknown.object->id, parameter_name(row.unknown)}] = {
        *row.unknown.record().value, row.sd, parameter_unit(row.unknown) == "rad"};
  }
  return all;
}

// q and -q are one rotation (Kuipers 1999): the quaternions of `b` take the sign of those of `a`.
void align_quaternions(const Estimates& a, Estimates& b) {
  constexpr const char* kParts[] = {"q0", "q1", "q2", "q3"};
  for (const auto& [name, estimate] : a) {
    if (name.second != kParts[0] || b.find(name) == b.end()) continue;
    double product = 0.0;
    for (const char* const part : kParts) {
      product += a.at({name.first, part}).value * b.at({name.first, part}).value;
    }
    if (product >= 0.0) continue;
    for (const char* const part : kParts) b.at({name.first, part}).value *= -1.0;
  }
}

// B - A; of angles the smallest.
double difference_of(const Estimate& a, const Estimate& b) {
  constexpr double kTurn = 2.0 * std::numbers::pi;
  const double difference = b.value - a.value;
  return a.is_angle ? std::remainder(difference, kTurn) : difference;
}

// d = |a - b| / sqrt(sa^2 + sb^2). Where neither has a standard deviation, unlike values are
// infinitely far apart.
double in_sigmas(const Estimate& a, const Estimate& b) {
  const double difference = std::fabs(difference_of(a, b));
  if (difference == 0.0) return 0.0;
  const double sd = std::hypot(std::isfinite(a.sd) ? a.sd : 0.0, std::isfinite(b.sd) ? b.sd : 0.0);
  return difference / sd;
}

class DiffCommand final : public Command {
 public:
  void define(CLI::App& parser) override {
    parser.add_option("A", a_, "control file of a project")->required();
    parser.add_option("B", b_, "control file of another one")->required();
    parser
        .add_option("--limit", limit_,
                    "largest difference in units of the sigmas of both results together")
        ->type_name("SIGMAS")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    parser.add_option("--list", most_, "list the largest differences, at most so many")
        ->type_name("N")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    define_estimation_options(parser, settings_);
    parser.footer(
        "Both projects are adjusted, and no file is written. Exit status: 0 within the limit, 1 "
        "beyond it or nothing to compare, 2 wrong usage or a project without results, 3 within the "
        "limit, but one of them has not converged.");
  }

  ExitStatus run() override {
    const auto a = run_in_memory(a_, settings_, -1, {});
    if (!a) return kWrongUsage;
    const Estimates of_a = estimates_of(a->results);
    const auto b = run_in_memory(b_, settings_, -1, {});
    if (!b) return kWrongUsage;
    Estimates of_b = estimates_of(b->results);
    align_quaternions(of_a, of_b);
    print_sigma0(a->results, b->results);
    const ExitStatus status = print(of_a, of_b);
    const bool converged =
        a->results.status == RunStatus::converged && b->results.status == RunStatus::converged;
    return status == kSuccess && !converged ? kNotConverged : status;
  }

 private:
  static void print_sigma0(const QualityResults& a, const QualityResults& b) {
    const auto micrometres = [](const QualityResults& results) {
      return fixed(3)(results.statistics.sigma0_posterior * 1e6);
    };
    standard_output() << "sigma 0        " << micrometres(a) << " um, " << micrometres(b) << " um\n"
                      << "redundancy     " << a.statistics.redundancy << ", "
                      << b.statistics.redundancy << '\n';
  }

  [[nodiscard]] ExitStatus print(const Estimates& a, const Estimates& b) const {
    std::vector<Difference> differences;
    for (const auto& [name, estimate] : a) {
      const auto other = b.find(name);
      if (other == b.end()) continue;
      differences.push_back(
          {&name, difference_of(estimate, other->second), in_sigmas(estimate, other->second)});
    }
    // Of equals the first by name.
    std::stable_sort(
        differences.begin(), differences.end(),
        [](const Difference& x, const Difference& y) { return x.in_sigmas > y.in_sigmas; });
    const auto beyond = std::count_if(
        differences.begin(), differences.end(),
        [this](const Difference& difference) { return !(difference.in_sigmas <= limit_); });
    TextWriter& out = standard_output();
    out << "compared       " << static_cast<std::uint64_t>(differences.size())
        << " unknowns; only in A " << static_cast<std::uint64_t>(a.size() - differences.size())
        << ", only in B " << static_cast<std::uint64_t>(b.size() - differences.size()) << '\n'
        << "beyond " << fixed(1)(limit_) << " sigmas  " << std::int64_t{beyond} << '\n';
    print_others("only in A", a, b);
    print_others("only in B", b, a);
    const std::size_t listed = std::min(differences.size(), static_cast<std::size_t>(most_));
    for (std::size_t i = 0; i < listed && differences[i].in_sigmas > 0.0; ++i) {
      const Difference& row = differences[i];
      out << "  " << fixed(2, 10)(row.in_sigmas) << " sigmas  " << scientific(3, 11)(row.value)
          << "  " << row.name->first << ' ' << row.name->second << '\n';
    }
    return beyond > 0 || differences.empty() ? kFailed : kSuccess;
  }

  // The objects of `some` that `others` do not have.
  void print_others(std::string_view label, const Estimates& some, const Estimates& others) const {
    std::vector<std::string> names;
    for (const auto& [name, estimate] : some) {
      const bool is_new = names.empty() || names.back() != name.first;
      if (is_new && others.find(name) == others.end()) names.push_back(name.first);
    }
    if (names.empty()) return;
    standard_output() << "  " << label << ": "
                      << first_names(names, static_cast<std::size_t>(most_)) << '\n';
  }

  std::string a_;
  std::string b_;
  double limit_ = 3.0;
  std::int32_t most_ = 10;
  AdjustmentSettings settings_;
};

}  // namespace

std::unique_ptr<Command> make_diff_command() { return std::make_unique<DiffCommand>(); }

}  // namespace vorn::app
