// The control file: pairs of a keyword and the name of a data file.

#include "driver/control_file.h"

#include <string>
#include <string_view>

#include "driver/bundle_project.h"
#include "geometry/eo_file.h"
#include "lsq/ls_params.h"
#include "text/file_system.h"

namespace vorn {
namespace {

// Reads one data file into the project; each has a message of its own for a failure.
struct DataFileReader {
  Keyword keyword;
  int (*read)(TokenReader&, BundleProject&);
  std::string_view failure;
};

constexpr DataFileReader kReaders[] = {
    {Keyword::params,
     [](TokenReader& in, BundleProject& project) { return project.options.read_options(in); },
     "ERROR: Reading params./options file failed.\n"},
    {Keyword::ls_params, [](TokenReader& in, BundleProject&) { return ls_params().read(in); },
     "ERROR: Reading LS-parameters file failed.\n"},
    {Keyword::camera,
     [](TokenReader& in, BundleProject& project) { return read_camera_file(in, project.cameras); },
     "ERROR: Reading camera file failed.\n"},
    {Keyword::image,
     [](TokenReader& in, BundleProject& project) {
       return read_image_file(in, project.images, project.cameras);
     },
     "ERROR: Reading image file failed.\n"},
    {Keyword::image_geometry,
     [](TokenReader& in, BundleProject& project) {
       return read_eo_file(in, project.image_geometries);
     },
     "ERROR: Reading EO file failed.\n"},
    {Keyword::ext_ori,
     [](TokenReader& in, BundleProject& project) {
       return read_eo_file(in, project.image_geometries);
     },
     "ERROR: Reading EO file failed.\n"},
    {Keyword::image_crds,
     [](TokenReader& in, BundleProject& project) {
       return read_image_crds_file(in, project.images);
     },
     "ERROR: Reading image coords. file failed.\n"},
    {Keyword::obj_crds,
     [](TokenReader& in, BundleProject& project) {
       return read_obj_crds(in, project.object_points);
     },
     "ERROR: Reading object coords. file failed.\n"},
    {Keyword::ctrl_supp,
     [](TokenReader& in, BundleProject& project) {
       return read_ctrl_supp(in, project.object_points);
     },
     "ERROR: Reading CS file failed.\n"},
    {Keyword::ap_set,
     [](TokenReader& in, BundleProject& project) { return read_ap_set_file(in, project.ap_sets); },
     "ERROR: Reading AP set file failed.\n"},
    {Keyword::pos_cor,
     [](TokenReader& in, BundleProject& project) {
       return read_pos_correction_file(in, project.pos_corrections);
     },
     "ERROR: Reading position correction file failed.\n"},
    {Keyword::att_cor,
     [](TokenReader& in, BundleProject& project) {
       return read_att_correction_file(in, project.att_corrections);
     },
     "ERROR: Reading attitude correction file failed.\n"},
};

const DataFileReader* find_reader(Keyword keyword) {
  for (const DataFileReader& reader : kReaders) {
    if (reader.keyword == keyword) return &reader;
  }
  return nullptr;
}

}  // namespace

bool is_data_file_keyword(Keyword keyword) { return find_reader(keyword) != nullptr; }

int BundleProject::read_control_file(TokenReader& in) {
  // A keyword without a reader leaves the status as the data file before it left it.
  int status = -1;
  FileText file;
  std::string_view word;
  while (in.read_word(word)) {
    const Keyword keyword = lookup_keyword(word);
    if (keyword == Keyword::none) {
      standard_output() << "ERROR: Unknown keyword: '" << word << "'\n";
      return -1;
    }
    if (keyword == Keyword::stop_dep) return 1;
    std::string name;
    in.read_word(name);
    if (!file.load(name)) {
      standard_output() << "ERROR: Cannot open input file: " << name << '\n';
      return -1;
    }
    if (const DataFileReader* const reader = find_reader(keyword)) {
      TokenReader data(file.view());
      status = reader->read(data, *this);
      if (status != 1) standard_output() << reader->failure;
    }
    if (status != 1) {
      standard_output() << "ERROR: Reading input file failed: " << name << '\n';
      return -1;
    }
  }
  return 1;
}

}  // namespace vorn
