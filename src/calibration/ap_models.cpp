#include "calibration/ap_models.h"

#include <array>

namespace vorn {

namespace {

constexpr std::array<std::string_view, 10> kGAPNames = {"dxp", "dyp", "dc", "sx", "a1",
                                                        "K1",  "K2",  "K3", "P1", "P2"};
constexpr std::array<std::string_view, 10> kAustralisNames = {"dxp", "dyp", "dc", "K1", "K2",
                                                              "K3",  "P1",  "P2", "b1", "b2"};
constexpr std::array<std::string_view, 3> kIONames = {"dxp", "dyp", "dc"};
constexpr std::array<std::string_view, 3> kRadialNames = {"K1", "K2", "K3"};
constexpr std::array<std::string_view, 2> kDecenteringNames = {"P1", "P2"};
// The numbering goes on where the in-plane model ends.
constexpr std::array<std::string_view, 3> kOutOfPlaneNames = {"a13", "a14", "a15"};

// The principal point's shifts dxp and dyp are in no grid: they are the same everywhere.
constexpr std::array<EffectGrid, 5> kGAPGrids = {{
    {"inner orientation (dc only):\n\n", "0010000000"},
    {"radial symmetric distortion (K1, K2, K3):\n\n", "0000011100"},
    {"decentering distortion (P1, P2):\n\n", "0000000011"},
    {"in-plane distortion (sx, a1):\n\n", "0001100000"},
    {"total distortion:\n\n", "0011111111"},
}};
constexpr std::array<EffectGrid, 5> kAustralisGrids = {{
    {"inner orientation (dc only):\n\n", "0010000000"},
    {"radial symmetric distortion (K1, K2, K3):\n\n", "0001110000"},
    {"decentering distortion (P1, P2):\n\n", "0000001100"},
    {"in-plane distortion (b1, b2):\n\n", "0000000011"},
    {"total distortion:\n\n", "0011111111"},
}};
constexpr std::array<EffectGrid, 1> kIOGrids = {{{"inner orientation (dc only):\n\n", "001"}}};

constexpr APModel kGAP = {APFormula::gap, "gap", "GAP", 10, kGAPNames, kGAPGrids};
constexpr APModel kAustralis = {APFormula::australis, "australis",    "Australis", 10,
                                kAustralisNames,      kAustralisGrids};
constexpr APModel kP12 = {APFormula::p12, "p12", "12-parameter (Ebner)", 12};
constexpr APModel kP44 = {APFormula::p44, "p44", "44-parameter (Gruen)", 44};
constexpr APModel kIO = {
    APFormula::inner_orientation, "inner-or", "inner orientation", 3, kIONames, kIOGrids};
constexpr APModel kRadial = {APFormula::radial, "radial-dist", "radial distortion", 3,
                             kRadialNames};
constexpr APModel kDecentering = {APFormula::decentering, "decentering-dist",
                                  "decentering distortion", 2, kDecenteringNames};
constexpr APModel kInPlane = {APFormula::in_plane, "in-plane-dist", "in-plane distortion", 12};
constexpr APModel kOutOfPlane = {APFormula::out_of_plane, "out-of-plane-dist",
                                 "out-of-plane distortion", 3, kOutOfPlaneNames};

// ---- the models --------------------------------------------------------------------------------

struct ModelRow {
  Keyword keyword;
  std::unique_ptr<APSet> (*make)();
};

template <const APModel& kModel, class Set = APSet>
std::unique_ptr<APSet> make() {
  return std::make_unique<Set>(kModel);
}

constexpr ModelRow kModels[] = {
    {Keyword::gap, make<kGAP>},
    {Keyword::australis, make<kAustralis>},
    {Keyword::p12, make<kP12, APSetP>},
    {Keyword::p44, make<kP44, APSetP>},
    {Keyword::inner_or, make<kIO>},
    {Keyword::radial_dist, make<kRadial>},
    {Keyword::decentering_dist, make<kDecentering>},
    {Keyword::in_plane_dist, make<kInPlane>},
    {Keyword::out_of_plane_dist, make<kOutOfPlane>},
};

}  // namespace

int APSetP::read(TokenReader& in) {
  if (!read_ids(in)) return -1;
  in.read(grid_width, {"the grid width", Range::positive});
  grid_width *= 0.001;
  read_params(in);
  return 1;
}

void APSetP::write(TextWriter& out) const {
  write_ids(out);
  out << fixed(3, 6)(grid_width * 1000) << '\n';
  write_params(out);
}

void APSetP::print(TextWriter& out) const {
  print_ids(out);
  out << "Grid width  :  b = " << general(0, 3)(grid_width * 1000) << " mm\n";
  print_params(out);
}

APTerms APSetP::terms() const {
  APTerms terms = APSet::terms();
  terms.grid_width = grid_width;
  return terms;
}

std::unique_ptr<APSet> make_ap_set(Keyword keyword) {
  for (const ModelRow& row : kModels) {
    if (row.keyword == keyword) return row.make();
  }
  return nullptr;
}

std::vector<std::string_view> ap_model_keywords() {
  std::vector<std::string_view> keywords;
  for (const ModelRow& row : kModels) keywords.push_back(row.make()->get_keyword());
  return keywords;
}

}  // namespace vorn
