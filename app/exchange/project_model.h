#pragma once

#include <string>

#include "app/exchange/lens_export.h"
#include "app/exchange/reconstruction.h"
#include "driver/bundle_project.h"

namespace vorn::exchange {

// A project in its present state as a reconstruction of another format: with LensForm::full cameras
// look along +z and pixels count from the corner of the first one, with LensForm::radial they look
// along -z and every image has a camera of its own. `frame_pixel` [m] is the pixel size of cameras
// that measure in lengths; 0: what an import has written into their comment, or 5 um. Notes say
// where a lens could only be fitted. Throws ExchangeError where there is no counterpart.
Reconstruction model_of_project(const BundleProject& project, LensForm form, double frame_pixel);

// What opens the state of a project as its files give it, without adjusting it: reads, binds and
// completes it. Messages go where those of a run go. Throws ExchangeError when it cannot be read.
class GivenProject {
 public:
  explicit GivenProject(const std::string& control_file);
  ~GivenProject();
  GivenProject(const GivenProject&) = delete;
  GivenProject& operator=(const GivenProject&) = delete;
  BundleProject& project() { return project_; }

 private:
  std::string directory_;
  BundleProject project_;
};

}  // namespace vorn::exchange
