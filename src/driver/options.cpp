#include "driver/options.h"

#include <initializer_list>
#include <string_view>
#include <type_traits>

namespace vorn {
namespace {

// Reads a group of fields. `failure` becomes `message`, and the result false, when any of them
// cannot be read.
template <class T>
bool read_group(TokenReader& in, std::initializer_list<T*> fields, std::string_view message,
                std::string_view& failure) {
  for (T* field : fields) {
    if constexpr (std::is_same_v<T, std::string>) {
      in.read_word(*field);
    } else {
      in.read(*field);
    }
  }
  if (in.failed()) failure = message;
  return in.ok();
}

void print_switch(TextWriter& out, std::string_view label, bool value) {
  out << label << (value ? "on\n" : "off\n");
}

}  // namespace

bool Options::read_fields(TokenReader& in, std::string_view& failure) {
  return read_group(in, {&single_ray}, "Reading single-ray option failed.\n", failure) &&
         read_group(in,
                    {&print_check_approximations, &print_check_rays, &print_intersection,
                     &print_image_coords},
                    "Reading output flags failed.\n", failure) &&
         read_group(in,
                    {&print_object_coords, &print_exterior_orientations, &print_ap_sets,
                     &print_pos_corrections, &print_att_corrections},
                    "Reading output flags for unknown parameters failed.\n", failure) &&
         read_group(in, {&debug_upari_table, &debug_intersection}, "Reading debug flags failed.\n",
                    failure) &&
         read_group(in, {&grid_x, &grid_y}, "Reading output flags of AP corrections failed.\n",
                    failure) &&
         read_group(in, {&structure_file}, "Reading filename of normal matrix structure failed.\n",
                    failure) &&
         read_group(in, {&matrix_file}, "Reading filename of normal matrix failed.\n", failure) &&
         read_group(in, {&rhs_file}, "Reading filename of right hand side vector failed.\n",
                    failure) &&
         read_group(in, {&solution_file}, "Reading filename of solution vector failed.\n", failure);
}

int Options::read_options(TokenReader& in) {
  std::string_view failure;
  const bool complete = read_fields(in, failure);
  standard_output() << failure;
  return complete ? 1 : -1;
}

void Options::print_options(TextWriter& out) const {
  out << "Parameters/Options\n"
         "==================\n";
  print_switch(out, "Single ray option                    :  ", single_ray);
  print_switch(out, "Print check approximations           :  ", print_check_approximations);
  print_switch(out, "Print check rays                     :  ", print_check_rays);
  print_switch(out, "Print intersection results           :  ", print_intersection);
  print_switch(out, "Print image coords.                  :  ", print_image_coords);
  out << "Print unknown parameters\n";
  print_switch(out, "  - object coords.                   :  ", print_object_coords);
  print_switch(out, "  - exterior orientations            :  ", print_exterior_orientations);
  print_switch(out, "  - additional parameter sets        :  ", print_ap_sets);
  print_switch(out, "  - position corrections             :  ", print_pos_corrections);
  print_switch(out, "  - attitude corrections             :  ", print_att_corrections);
  print_switch(out, "Debug UPARI table                    :  ", debug_upari_table);
  print_switch(out, "Debug intersection                   :  ", debug_intersection);
  out << "Print AP set corrections\n"
      << "  - number of grid points in x and y :  " << grid_x << " x " << grid_y << '\n'
      << "Output of normal equations. Filename of ...\n"
      << "  - normal matrix structure          :  " << structure_file << '\n'
      << "  - normal matrix                    :  " << matrix_file << '\n'
      << "  - right hand side vector           :  " << rhs_file << '\n'
      << "  - solution vector                  :  " << solution_file << "\n\n";
}

}  // namespace vorn
