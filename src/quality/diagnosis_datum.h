#pragma once

#include <unordered_map>
#include <utility>
#include <vector>

#include "quality/diagnosis_network.h"
#include "quality/diagnosis_system.h"

namespace vorn {

// What holds the datum of each part of a network: the similarity motions of its points and
// orientations against the normal equations, by the generalised eigenvalues of (G'NG, G'diag(N)G).
// Single motions do not do: with two control points none of the seven is free, but one combination
// is.
class DatumAnalysis {
 public:
  explicit DatumAnalysis(const Network& network);

  // The images' share in G'NG, which is zero but for rounding: G is right. Where the network is
  // known to be regular it can be left out.
  void add(const LinearisedPoint& at);
  // The parts with their quotients and motions, once all observation equations were seen.
  [[nodiscard]] std::vector<NetworkComponent> components(const UnknownWeights& weights);
  // The free motions of the parts as changes of their unknowns, after `components` and in their
  // order; what is not named does not move.
  using Changes = std::vector<std::pair<std::int32_t, double>>;
  [[nodiscard]] std::vector<Changes> free_changes() const;

 private:
  struct Part {
    SimilarityMotions motions;
    double length = 1.0;  // root mean square distance from the centre
    Square7 image_gram{};
    Eigen7 eigen{};
    std::unordered_map<const ImageGeometry*, std::vector<Row7>> geometries;
  };
  struct Sums;

  template <class Visit>
  void for_each_unknown(std::size_t part, Visit visit) const;
  Sums sums_of(std::size_t part, const UnknownWeights& weights) const;

  const Network& network_;
  std::vector<Part> parts_;
};

}  // namespace vorn
