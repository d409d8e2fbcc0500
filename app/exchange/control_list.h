#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "app/exchange/project_writer.h"
#include "app/exchange/reconstruction.h"
#include "app/exchange/source.h"

namespace vorn::exchange {

// A control list as ODM reads it ("gcp_list.txt"): a line with the coordinate system, then per
// measurement X Y Z, column and row in the image, the image's name, and optionally the point's
// name.

// Begins the identifier of a control point whose name a tie point has.
inline constexpr const char* kControlPrefix = "gcp_";

struct ListedPoint {
  std::string name;  // empty in the file: "gcp1", "gcp2", ...
  Vec3 xyz{};
  bool has_height = true;  // "NaN" stands for an unknown height
  std::size_t offset = 0;
};

struct ListedMeasurement {
  std::size_t point = 0;
  Pixel xy{};
  std::string_view names;  // the image's name and what follows it, which blanks in names make one
  std::size_t offset = 0;
};

struct ControlList {
  std::string system;  // the first line
  std::vector<ListedPoint> points;
  std::vector<ListedMeasurement> measurements;
};

// The names of the images say where in a line the name of the point begins. Measurements in images
// that are not among them keep an image of -1.
[[nodiscard]] ControlList read_control_list(const Source& source,
                                            const std::vector<SourceImage>& images,
                                            std::vector<std::int32_t>& image_of_measurement);

// Brings the model into the system of the list, by the similarity that fits the points that two
// images or more measure, and adds the points with their rays. Coordinates get the standard
// deviation `sigma`, unknown heights are free. Notes say what was fitted and what was left out.
// Throws ExchangeError when the list does not determine the similarity.
[[nodiscard]] std::vector<ControlPoint> add_control(Reconstruction& model, const Source& source,
                                                    double sigma);

}  // namespace vorn::exchange
