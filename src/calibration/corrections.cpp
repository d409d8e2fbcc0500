#include "calibration/corrections.h"

#include <algorithm>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "geometry/collinearity.h"
#include "geometry/ext_orientation.h"
#include "lsq/param_reading.h"
#include "text/records.h"

namespace vorn {

namespace {

std::string component_name(std::string_view prefix, std::string_view suffix, std::int32_t i) {
  std::string name(prefix);
  name += suffix;
  name += '[';
  name += std::to_string(i / 3);
  name += ']';
  return name;
}

void report_no_end(TokenReader& in, std::string_view word) {
  in.report(FindingCode::end_missing, word,
            "the list of orientations of " + describe(in.subject()) + " has no end word",
            "end it with \"stop-dep\"");
}

// A list without an end word swallows what follows it: a time, a count, and as many pairs as the
// count says.
void report_swallowed(TokenReader& in, std::span<const std::string_view> words) {
  if (!in.listens()) return;
  constexpr std::size_t kWordsPerTriple = 6;
  constexpr std::size_t kMostTriples = 20;
  for (std::size_t triples = 1; triples <= kMostTriples; ++triples) {
    const std::size_t tail = 2 + kWordsPerTriple * triples;
    if (tail > words.size()) return;
    const std::size_t at = words.size() - tail;
    if (words[at + 1] == std::to_string(triples)) return report_no_end(in, words[at]);
  }
}

template <class Correction>
int read_body(TokenReader& in, Correction& correction) {
  std::string_view eo_id;
  std::vector<std::string_view> words;
  while (in.read_word(eo_id) && !is_end_word(eo_id, EndWords::keyword)) {
    if (in.listens()) words.push_back(eo_id);
    in.remember(&correction, eo_id, correction.eo_ids.size() + 1);
    correction.eo_ids.emplace_back(eo_id);
  }
  report_swallowed(in, words);
  if (in.failed()) report_no_end(in, in.end_of_words());
  in.read(correction.t0, {"the reference time"});
  correction.polynomial.read(in, correction);
  return 1;
}

// Calls `attach(orientation)` for every listed orientation; `kind` begins the messages.
template <class Correction, class Attach>
int bind_each(Correction& correction, const OwnedList<ImageGeometry>& geometries,
              std::string_view kind, Attach attach) {
  for (const std::string& eo_id : correction.eo_ids) {
    ImageGeometry* const geometry = geometries.find(eo_id);
    if (geometry == nullptr) {
      standard_output() << "ERROR: " << kind << " correction " << correction.id << ": EO " << eo_id
                        << " not found.\n";
      return -1;
    }
    auto* const orientation = dynamic_cast<ExtOrientation*>(geometry);
    if (orientation == nullptr) {
      standard_output() << "ERROR: " << kind << " correction " << correction.id << ": EO " << eo_id
                        << " invalid image geometry.\n";
      return -1;
    }
    attach(*orientation);
    correction.used = true;
  }
  return 1;
}

template <class Correction>
int read_file(TokenReader& in, OwnedList<Correction>& list, std::string_view kind,
              std::string_view kind_in_sentence) {
  return read_records(in, EndWords::keyword, [&](std::string_view id) {
    auto correction = std::make_unique<Correction>();
    correction->id = id;
    in.begin_object(kind == "Position" ? "pos-correction" : "att-correction", correction.get());
    if (correction->read(in) != 1) {
      return reading_failed("ERROR: Read ", kind_in_sentence, " correction ", id, " failed.\n");
    }
    const Correction* const earlier = in.listens() ? list.find(id) : nullptr;
    if (earlier != nullptr) report_duplicate(in, earlier, "the later one counts");
    if (list.put(std::move(correction))) {
      standard_output() << "ATTENTION: " << kind << " correction " << id << " was replaced.\n";
    }
    return 1;
  });
}

}  // namespace

Vec3 TimePolynomial::value_at(double tau) const {
  Vec3 sum{};
  for (std::size_t k = coeffs.size(); k-- > 0;) {
    for (std::size_t c = 0; c < 3; ++c) sum[c] = sum[c] * tau + coeffs[k][c];
  }
  return sum;
}

void TimePolynomial::get_derivs(double tau, const Matrix& components, std::int32_t first,
                                Matrix& derivs) const {
  const std::int32_t n = num_values();
  derivs.resize(2, n);
  if (n == 0) return;
  for (std::int32_t row = 0; row < 2; ++row) {
    fill_time_columns(tau, n, components[row] + first, derivs[row]);
  }
}

void TimePolynomial::init_params(AdjObject& owner) {
  if (owner.alloc_params(static_cast<std::uint32_t>(num_values())) != 1) return;
  std::int32_t param = 0;
  for (std::size_t k = 0; k < coeffs.size(); ++k) {
    for (std::size_t c = 0; c < 3; ++c) {
      owner.set_param(param++, coeffs[k][c], coeff_std_devs[k][c]);
    }
  }
}

void TimePolynomial::read(TokenReader& in, const AdjObject& owner) {
  std::int32_t count = 0;
  if (!in.read(count, {"the number of coefficient triples", Range::positive})) return;
  for (std::int32_t k = 0; k < count && in.ok() && !in.only_blanks_left(); ++k) {
    Vec3& coeff = coeffs.emplace_back();
    Vec3& std_dev = coeff_std_devs.emplace_back();
    for (std::size_t c = 0; c < 3; ++c) {
      const auto i = static_cast<std::int32_t>(3 * static_cast<std::size_t>(k) + c);
      read_parameter(in, owner, i, coeff[c]);
      read_std_dev(in, owner, i, std_dev[c]);
    }
  }
  if (in.ok() && static_cast<std::size_t>(std::max(count, 0)) > coeffs.size()) {
    in.report(FindingCode::value_missing, in.end_of_words(),
              describe(in.subject()) + " has fewer coefficient triples than the " +
                  std::to_string(count) + " announced");
  }
}

std::string PosCorrection::get_param_name(std::int32_t i) const {
  static constexpr std::string_view kComponents[] = {"X", "Y", "Z"};
  return component_name(kComponents[i % 3], "o", i);
}

int PosCorrection::read(TokenReader& in) { return read_body(in, *this); }

int PosCorrection::bind_to_eos(const OwnedList<ImageGeometry>& geometries) {
  return bind_each(*this, geometries, "Position",
                   [this](ExtOrientation& eo) { eo.set_pos_correction(*this); });
}

void PosCorrection::get_derivs(double t, const DesignBlock& eo_block, DesignBlock& block) const {
  polynomial.get_derivs(t - t0, eo_block.a, 0, block.a);
  block.index = index;
}

std::string AttCorrection::get_param_name(std::int32_t i) const {
  static constexpr std::string_view kComponents[] = {"a1", "a2", "a3"};
  return component_name(kComponents[i % 3], "", i);
}

int AttCorrection::read(TokenReader& in) { return read_body(in, *this); }

int AttCorrection::bind_to_eos(const OwnedList<ImageGeometry>& geometries) {
  return bind_each(*this, geometries, "Attitude",
                   [this](ExtOrientation& eo) { eo.set_att_correction(*this); });
}

void AttCorrection::get_derivs(double t, const DesignBlock& eo_block, DesignBlock& block) const {
  polynomial.get_derivs(t - t0, eo_block.a, 3, block.a);
  block.index = index;
}

int read_pos_correction_file(TokenReader& in, OwnedList<PosCorrection>& list) {
  return read_file(in, list, "Position", "position");
}

int read_att_correction_file(TokenReader& in, OwnedList<AttCorrection>& list) {
  return read_file(in, list, "Attitude", "attitude");
}

}  // namespace vorn
