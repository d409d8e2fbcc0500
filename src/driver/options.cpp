#include "driver/options.h"

#include <initializer_list>
#include <string_view>

#include "text/text_checks.h"

namespace vorn {
namespace {

// Reads one field.
void read_field(TokenReader& in, bool& field, std::string_view name) { in.read(field, {name}); }
void read_field(TokenReader& in, std::int32_t& field, std::string_view name) {
  in.read(field, {name, Range::not_negative});
}
void read_field(TokenReader& in, std::string& field, std::string_view name) {
  // The group's state is tested behind its last field.
  static_cast<void>(in.need_name(field, name));
}

template <class T>
struct NamedField {
  T* field;
  std::string_view name;
};

// Reads a group of fields. `failure` becomes `message`, and the result false, when any of them
// cannot be read.
template <class T>
bool read_group(TokenReader& in, std::initializer_list<NamedField<T>> fields,
                std::string_view message, std::string_view& failure) {
  for (const NamedField<T>& field : fields) read_field(in, *field.field, field.name);
  if (in.failed()) failure = message;
  return in.ok();
}

void print_switch(TextWriter& out, std::string_view label, bool value) {
  out << label << (value ? "on\n" : "off\n");
}

}  // namespace

bool Options::read_fields(TokenReader& in, std::string_view& failure) {
  in.begin_record({"options"});
  constexpr std::size_t kNumbers = 14;
  constexpr std::size_t kFiles = 4;
  report_few_numbers(in, kNumbers, "params", [&](std::string_view word) {
    // The names of files, none of which is a number.
    TokenReader names(in.text_from(word));
    std::size_t count = 0;
    while (count < kFiles && names.read_word(word) && !is_number(word)) ++count;
    return count == kFiles;
  });
  return read_group<bool>(in, {{&single_ray, "the single-ray option"}},
                          "Reading single-ray option failed.\n", failure) &&
         read_group<bool>(in,
                          {{&print_check_approximations, "print check approximations"},
                           {&print_check_rays, "print check rays"},
                           {&print_intersection, "print intersection results"},
                           {&print_image_coords, "print image coordinates"}},
                          "Reading output flags failed.\n", failure) &&
         read_group<bool>(in,
                          {{&print_object_coords, "print object coordinates"},
                           {&print_exterior_orientations, "print exterior orientations"},
                           {&print_ap_sets, "print additional-parameter sets"},
                           {&print_pos_corrections, "print position corrections"},
                           {&print_att_corrections, "print attitude corrections"}},
                          "Reading output flags for unknown parameters failed.\n", failure) &&
         read_group<bool>(in,
                          {{&debug_upari_table, "debug the table of unknowns"},
                           {&debug_intersection, "debug the intersection"}},
                          "Reading debug flags failed.\n", failure) &&
         read_group<std::int32_t>(in,
                                  {{&grid_x, "grid points in x"}, {&grid_y, "grid points in y"}},
                                  "Reading output flags of AP corrections failed.\n", failure) &&
         read_group<std::string>(in, {{&structure_file, "the file of the matrix structure"}},
                                 "Reading filename of normal matrix structure failed.\n",
                                 failure) &&
         read_group<std::string>(in, {{&matrix_file, "the file of the normal matrix"}},
                                 "Reading filename of normal matrix failed.\n", failure) &&
         read_group<std::string>(in, {{&rhs_file, "the file of the right-hand side"}},
                                 "Reading filename of right hand side vector failed.\n", failure) &&
         read_group<std::string>(in, {{&solution_file, "the file of the solution"}},
                                 "Reading filename of solution vector failed.\n", failure);
}

int Options::read_options(TokenReader& in) {
  std::string_view failure;
  if (read_fields(in, failure)) return 1;
  standard_output() << failure;
  return -1;
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
