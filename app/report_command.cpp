// vorn report: one run of a project, and its page.

#include "app/estimation_options.h"
#include "app/project_run.h"
#include "app/quality_output.h"
#include "app/report_page/page.h"

namespace vorn::app {
namespace {

class ReportCommand final : public Command {
 public:
  void define(CLI::App& parser) override {
    project_.define(parser);
    parser.add_option("-o,--output", page_, "the page to write")
        ->type_name("REPORT.html")
        ->check(can_write_pages)
        ->required();
    define_estimation_options(parser, project_.request.settings);
  }
  ExitStatus run() override {
    quality_.ask_for_page(page_);
    return quality_.run(project_);
  }

 private:
  ProjectRun project_;
  QualityOutput quality_;
  std::string page_;
};

}  // namespace

std::unique_ptr<Command> make_report_command() { return std::make_unique<ReportCommand>(); }

}  // namespace vorn::app
