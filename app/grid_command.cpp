// vorn grid: the effects of the adjusted additional-parameter sets on a grid of image points.

#include "app/project_run.h"
#include "driver/bundle_project.h"

namespace vorn::app {
namespace {

void print_grids(const BundleProject& project) {
  for (const APSet& set : project.ap_sets) {
    set.print_grid_effects(standard_output(), project.options, project.cameras);
  }
}

class GridCommand final : public Command {
 public:
  void define(CLI::App& parser) override { project_.define(parser); }
  ExitStatus run() override {
    project_.request.inspect = print_grids;
    return project_.run();
  }

 private:
  ProjectRun project_;
};

}  // namespace

std::unique_ptr<Command> make_grid_command() { return std::make_unique<GridCommand>(); }

}  // namespace vorn::app
