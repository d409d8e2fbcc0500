#include "base/workers.h"

#include "base/brought.h"

namespace vorn {
namespace {

// The caller alone.
class Caller final : public Workers {
 public:
  std::size_t count() const override { return 1; }
  void run(std::size_t num_parts, const Part& part) override {
    for (std::size_t k = 0; k < num_parts; ++k) part(k, 0);
  }
};

}  // namespace

Workers& workers() {
  static Caller caller;
  Workers* const others = brought<Workers*>();
  return others == nullptr ? caller : *others;
}

void use_workers(Workers* workers) { brought<Workers*>() = workers; }

}  // namespace vorn
