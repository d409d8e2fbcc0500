#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "text/text_writer.h"
#include "text/token_reader.h"

namespace vorn {

// The parameters/options of a project, in the order of the file and of the report block.
struct Options {
  bool single_ray = false;
  bool print_check_approximations = false;
  bool print_check_rays = false;
  bool print_intersection = false;
  bool print_image_coords = false;
  bool print_object_coords = false;
  bool print_exterior_orientations = false;
  bool print_ap_sets = false;
  bool print_pos_corrections = false;
  bool print_att_corrections = false;
  bool debug_upari_table = false;
  bool debug_intersection = false;
  std::int32_t grid_x = 5;  // grid points of the printed AP-set corrections
  std::int32_t grid_y = 5;
  // Files for the normal equations; "none" writes no file.
  std::string structure_file = "none";
  std::string matrix_file = "none";
  std::string rhs_file = "none";
  std::string solution_file = "none";

  // Reads a parameters/options file. 1, or -1 with a message on standard output; fields read before
  // a failure keep their new values.
  [[nodiscard]] int read_options(TokenReader& in);
  // The same in silence: false, with the message in `failure`.
  [[nodiscard]] bool read_fields(TokenReader& in, std::string_view& failure);
  // Writes the report block.
  void print_options(TextWriter& out) const;
};

}  // namespace vorn
