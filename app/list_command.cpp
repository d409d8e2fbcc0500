// vorn list: all unknowns of the adjusted project, with their changes and significance.

#include "app/project_run.h"
#include "driver/bundle_project.h"

namespace vorn::app {
namespace {

class ListCommand final : public Command {
 public:
  void define(CLI::App& parser) override {
    project_.define(parser);
    parser.add_flag("--results", results_, "only the listing of results");
    parser.add_flag("--significance", significance_, "only the listing with the significance test");
  }
  ExitStatus run() override {
    project_.request.inspect = [this](const BundleProject& project) { print(project); };
    return project_.run();
  }

 private:
  void print(const BundleProject& project) const {
    const bool both = results_ == significance_;
    if (both || results_) print_each(project.unknowns, &AdjObject::print_results);
    if (both || significance_) print_each(project.unknowns, &AdjObject::print_significance);
  }

  // A reader that goes away ends the listing.
  static void print_each(const AdjObjectList& unknowns,
                         void (AdjObject::*listing)(TextWriter& out) const) {
    TextWriter& out = standard_output();
    for (std::int32_t i = 0; i < unknowns.num_objects() && out.error() == 0; ++i) {
      (unknowns[i].*listing)(out);
    }
  }

  ProjectRun project_;
  bool results_ = false;
  bool significance_ = false;
};

}  // namespace

std::unique_ptr<Command> make_list_command() { return std::make_unique<ListCommand>(); }

}  // namespace vorn::app
