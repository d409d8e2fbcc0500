// vorn adjust: one run of a project.

#include "app/estimation_options.h"
#include "app/project_run.h"
#include "app/quality_output.h"

namespace vorn::app {
namespace {

class AdjustCommand final : public Command {
 public:
  void define(CLI::App& parser) override {
    project_.define(parser);
    parser.add_flag("--cameras", project_.request.with_cameras,
                    "also write the camera result file");
    define_estimation_options(parser, project_.request.settings);
    quality_.define(parser);
  }
  ExitStatus run() override { return quality_.run(project_); }

 private:
  ProjectRun project_;
  QualityOutput quality_;
};

}  // namespace

std::unique_ptr<Command> make_adjust_command() { return std::make_unique<AdjustCommand>(); }

}  // namespace vorn::app
