// vorn import: a reconstruction of another program as a project.

#include "app/command.h"
#include "app/exchange/import.h"

namespace vorn::app {
namespace {

class ImportCommand final : public Command {
 public:
  void define(CLI::App& parser) override {
    parser
        .add_option("FORMAT", request_.format, "colmap, bal, bundler, openmvg, opensfm, metashape")
        ->required();
    parser.add_option("SOURCE", request_.source, "file or folder of the reconstruction")
        ->required();
    parser.add_option("-o,--output", request_.directory, "folder of the new project")
        ->type_name("DIR")
        ->required();
    parser.add_option("--name", request_.name, "name of the control file")
        ->type_name("NAME")
        ->capture_default_str();
    parser.add_option("--pixel-size", request_.pixel_size_um, "size of a pixel [um]")
        ->type_name("UM")
        ->capture_default_str();
    parser.add_option("--sigma", request_.sigma_px, "standard deviation of image coordinates [px]")
        ->type_name("PX")
        ->capture_default_str();
    parser
        .add_option("--free", request_.free,
                    "lens parameters to adjust: none, model (those of the source's own model), "
                    "or a list of f, pp, cx, cy, k1, k2, k3, p1, p2, b1, b2")
        ->type_name("LIST")
        ->capture_default_str();
    parser
        .add_option("--datum", request_.datum,
                    "what holds position, rotation and scale: image (default), points, none")
        ->type_name("DATUM");
    parser.add_option("--scale", request_.scale, "factor of all object coordinates")
        ->type_name("S")
        ->capture_default_str();
    parser
        .add_option("--max-error", request_.max_error_px,
                    "leave out rays whose residual is larger than this")
        ->type_name("PX");
    parser
        .add_option("--gcp", request_.control_list, "control list (ODM's gcp_list.txt) to lay over")
        ->type_name("FILE");
    parser
        .add_option("--gcp-sigma", request_.control_sigma,
                    "standard deviation of control coordinates, in their unit")
        ->type_name("S")
        ->capture_default_str();
    parser
        .add_option("--check", request_.check_points,
                    "points of the control list that take no part and are checked")
        ->type_name("LIST");
  }
  ExitStatus run() override {
    exchange::import_project(request_);
    return kSuccess;
  }

 private:
  exchange::ImportRequest request_;
};

}  // namespace

std::unique_ptr<Command> make_import_command() { return std::make_unique<ImportCommand>(); }

}  // namespace vorn::app
