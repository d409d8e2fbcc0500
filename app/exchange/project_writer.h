#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "app/exchange/reconstruction.h"
#include "text/text_writer.h"

namespace vorn::exchange {

// What holds the seven freedoms of a reconstruction.
enum class Datum : std::uint8_t {
  image,   // six values of one image and a coordinate of a second one
  points,  // seven coordinates of three points
  none,    // nothing: control or observed positions do
};

// What a project has beyond the reconstruction.
struct ProjectSettings {
  std::string name = "project";
  double pixel_size = 5e-6;  // [m]; no format has one, and any value gives the same residuals
  double sigma = 1.0;        // of image coordinates [px]
  bool free_own = false;     // frees what each camera's own model adjusts
  Lens free = Lens::none;    // frees these parameters of all cameras
  Datum datum = Datum::image;
};

// A control point; measured in the images by rays to the point of this index.
struct ControlPoint {
  std::int32_t point = 0;
  Vec3 std_devs{};
  bool is_check =
      false;  // takes no part: its given coordinates are compared with the adjusted ones
};

// Names of the files of a project, as its control file refers to them.
inline constexpr const char* kProjectFiles[] = {
    "params.txt",       "ls-params.txt",    "cameras.txt",       "images.txt",
    "orientations.txt", "image-coords.txt", "object-coords.txt", "ap-sets.txt"};
// One more, where there are check points.
inline constexpr const char* kCheckPointFile = "check-points.txt";

// Throws ExchangeError for what cannot be the name of a control file in the project's folder.
void check_project_name(const std::string& name);

// Writes the project's files and its control file NAME.ctl into a folder that exists. Throws
// ExchangeError when a file cannot be written.
void write_project(const Reconstruction& model, const std::vector<ControlPoint>& control,
                   const ProjectSettings& settings, const std::string& directory);

// The options of a new project: nothing is listed; points that are seen once stay or go.
void write_params(TextWriter& out, bool keep_single_rays);
// Its least-squares parameters: the standard deviation of an image coordinate, and the correction
// of points and projection centres [object unit] that counts as none.
void write_ls_params(TextWriter& out, double sigma0_m, double limit);

// The comment that tells an export the pixel size of a camera without pixels.
std::string pixel_size_comment(const std::string& format, double pixel_size);

}  // namespace vorn::exchange
