// vorn adjust: one run of a project.

#include "app/project_run.h"

namespace vorn::app {
namespace {

class AdjustCommand final : public Command {
 public:
  void define(CLI::App& parser) override {
    project_.define(parser);
    parser.add_flag("--cameras", project_.request.with_cameras,
                    "also write the camera result file");
  }
  ExitStatus run() override { return project_.run(); }

 private:
  ProjectRun project_;
};

}  // namespace

std::unique_ptr<Command> make_adjust_command() { return std::make_unique<AdjustCommand>(); }

}  // namespace vorn::app
