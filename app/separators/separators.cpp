#include "app/separators/separators.h"

#include "lsq/normal/nested_dissection.h"

#ifdef VORN_HAS_METIS

#include <metis.h>

#include <limits>
#include <vector>

namespace vorn::app {
namespace {

class Metis final : public Separator {
 public:
  void cut(const Graph& graph, std::vector<Side>& sides) override {
    sides.clear();
    constexpr auto kMost = static_cast<std::size_t>(std::numeric_limits<idx_t>::max());
    if (graph.neighbours.size() >= kMost) return;
    std::vector<idx_t> first(graph.first.begin(), graph.first.end());
    std::vector<idx_t> neighbours(graph.neighbours.begin(), graph.neighbours.end());
    std::vector<idx_t> where(static_cast<std::size_t>(graph.size()));
    idx_t options[METIS_NOPTIONS];
    METIS_SetDefaultOptions(options);
    options[METIS_OPTION_SEED] = 1;
    // A side may be a fifth larger than half: smaller separators are worth it.
    options[METIS_OPTION_UFACTOR] = 200;
    idx_t size = graph.size();
    idx_t between = 0;
    if (METIS_ComputeVertexSeparator(&size, first.data(), neighbours.data(), nullptr, options,
                                     &between, where.data()) != METIS_OK) {
      return;
    }
    constexpr Side kSides[] = {kLeft, kRight, kBetween};
    for (const idx_t side : where) sides.push_back(kSides[side]);
  }
};

}  // namespace

bool has_metis() { return true; }

void use_metis() {
  static Metis metis;
  use_separator(&metis);
}

}  // namespace vorn::app

#else

namespace vorn::app {

bool has_metis() { return false; }
void use_metis() {}

}  // namespace vorn::app

#endif
