// What readers return, keep and print for the texts in tests/data/readers.

#include <filesystem>
#include <sstream>

#include "driver/bundle_project.h"
#include "geometry/eo_file.h"
#include "lsq/ls_params.h"
#include "support/captured_output.h"
#include "support/temp_dir.h"

namespace vorn {
namespace {

// A reader's result, and a number that tells what it has read.
using Outcome = std::pair<int, int>;

template <class Read, class... Others>
int read_text(std::string_view text, Read read, Others&... others) {
  TokenReader in(text);
  return read(in, others...);
}

template <class List>
int size_of_last(const List& list) {
  if (list.num_slots() == 0) return 0;
  const auto& last = *list[list.num_slots() - 1];
  EXPECT_EQ(last.polynomial.coeffs.size(), last.polynomial.coeff_std_devs.size());
  return static_cast<int>(10 * last.eo_ids.size() + 100 * last.polynomial.coeffs.size());
}

// Evaluated from left to right.
Outcome read_by(const std::string& reader, TokenReader& in) {
  BundleProject p;
  auto& pos = p.pos_corrections;
  auto& att = p.att_corrections;
  if (reader == "pos-cor") {
    return {read_pos_correction_file(in, pos), pos.num_slots() + size_of_last(pos)};
  }
  if (reader == "att-cor") {
    return {read_att_correction_file(in, att), att.num_slots() + size_of_last(att)};
  }
  if (reader == "camera") return {read_camera_file(in, p.cameras), p.cameras.count()};
  if (reader == "control") return {p.read_control_file(in), p.cameras.count()};
  if (reader == "ls-params") return {ls_params().read(in), ls_params().max_iterations};
  if (reader == "obj-crds") return {read_obj_crds(in, p.object_points), p.object_points.count()};
  if (reader == "ap-set") return {read_ap_set_file(in, p.ap_sets), p.ap_sets.num_slots()};
  if (reader == "eo-file") {
    return {read_eo_file(in, p.image_geometries), p.image_geometries.num_slots()};
  }
  read_text("common-sdev 1e31 1e31 1e31 a 1 2 3", read_obj_crds, p.object_points);
  if (reader == "ctrl-supp") {
    return {read_ctrl_supp(in, p.object_points), static_cast<int>(p.object_points[0]->type)};
  }
  read_text("camera-frame F - 100 0 0 200 200 camera-ccd C - 50 0 0 101 101 10 10",
            read_camera_file, p.cameras);
  if (reader == "image") return {read_image_file(in, p.images, p.cameras), p.images.count()};
  read_text("image-frame F1 G F image-frame C1 G C", read_image_file, p.images, p.cameras);
  EXPECT_EQ(reader, "image-crds");
  return {read_image_crds_file(in, p.images),
          p.images[0]->count_points() + p.images[1]->count_points()};
}

// One case of the file; begins with what is its first line.
void expect_case(const std::string& head, const std::string& text, const std::string& output) {
  std::istringstream words(head);
  std::string reader;
  Outcome expected;
  if (!(words >> reader >> expected.first >> expected.second)) return;
  SCOPED_TRACE(head + " of: " + text);
  ls_params() = LSParams();
  TokenReader in(text);
  EXPECT_EQ(test::captured_output([&] { EXPECT_EQ(read_by(reader, in), expected); }), output);
}

TEST(Readers, AcceptAndReject) {
  const test::TempDir dir;
  dir.write("cam", "camera-frame k - 100 0 0 200 200");
  dir.write("bad", "?");
  dir.write("empty", "");
  dir.write("directory/file", "");
  std::istringstream cases(test::file_text(VORN_SOURCE_DIR "/tests/data/readers/cases.txt"));
  std::filesystem::current_path(dir.path());
  int count = 0;
  std::string head, text, output;
  for (std::string line; std::getline(cases, line);) {
    if (line.starts_with("| ")) {
      output += line.substr(2) + '\n';
    } else if (line.starts_with('>')) {
      text += (text.empty() ? "" : "\n") + line.substr(std::min<std::size_t>(line.size(), 2));
    } else if (!line.empty() && !line.starts_with('#')) {
      expect_case(head, text, output);
      ++count;
      head = line;
      text = output = "";
    }
  }
  expect_case(head, text, output);
  EXPECT_GT(count, 100);
}

TEST(Options, EveryFieldHasItsPlace) {
  const auto printed = [](const Options& options) {
    return test::written_text([&](TextWriter& out) { options.print_options(out); });
  };
  const std::string all_off = printed(Options());
  std::size_t switch_at = 0;
  for (std::size_t field = 0; field < 12; ++field) {
    std::string text = "0 0 0 0 0 0 0 0 0 0 0 0 5 5 none none none none";
    const std::string cut = text.substr(0, 2 * field);
    text[2 * field] = '1';
    Options options;
    TokenReader in(text);
    ASSERT_EQ(options.read_options(in), 1);
    std::string expected = all_off;
    switch_at = expected.find("off\n", switch_at + 1);
    EXPECT_EQ(printed(options), expected.replace(switch_at, 3, "on"));
    for (const std::string& broken : {cut, cut + "2", cut + "on"}) {
      TokenReader bad(broken);
      test::captured_output([&] { EXPECT_EQ(Options().read_options(bad), -1) << broken; });
    }
  }
}

}  // namespace
}  // namespace vorn
