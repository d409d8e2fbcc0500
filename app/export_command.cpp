// vorn export: a project in the format of another program.

#include "app/estimation_options.h"
#include "app/exchange/export.h"
#include "app/project_run.h"
#include "driver/paths.h"
#include "text/file_system.h"

namespace vorn::app {
namespace {

class ExportCommand final : public Command {
 public:
  void define(CLI::App& parser) override {
    parser
        .add_option("FORMAT", request_.format,
                    "colmap, colmap-binary, bal, bundler, ply, csv, geojson, gpkg")
        ->required();
    project_.define(parser);
    parser.add_option("-o,--output", request_.output, "file or folder to write")
        ->type_name("PATH")
        ->required();
    parser.add_flag("--given", given_, "the project as its files give it, not adjusted");
    parser
        .add_option("--pixel-size", request_.pixel_size_um,
                    "size of a pixel [um] of cameras that measure in lengths")
        ->type_name("UM");
    parser.add_option("--crs", request_.crs, "coordinate system of layers")->type_name("EPSG:CODE");
    parser
        .add_option("--exaggerate", request_.exaggeration,
                    "factor of vectors and ellipses in layers")
        ->type_name("F")
        ->capture_default_str();
    parser.add_flag("!--no-ellipses", request_.ellipses,
                    "layers without error ellipses, which take time in large projects");
    define_estimation_options(parser, project_.request.settings);
  }
  ExitStatus run() override {
    exchange::check_export(request_, project_.request.path);
    // A run changes the current directory.
    request_.output = absolute_path(request_.output);
    if (given_) {
      exchange::export_given_project(project_.request.path, request_);
      return kSuccess;
    }
    project_.request.inspect = [this](BundleProject& project) {
      exchange::export_project(project, request_);
    };
    return project_.run();
  }

 private:
  ProjectRun project_;
  exchange::ExportRequest request_;
  bool given_ = false;
};

}  // namespace

std::unique_ptr<Command> make_export_command() { return std::make_unique<ExportCommand>(); }

}  // namespace vorn::app
