// Object-coordinates file and control-support file.

#include <array>
#include <memory>
#include <utility>

#include "sensors/object_point.h"

namespace vorn {

namespace {

bool is_end_word(std::string_view word) { return word == "stop-dep" || word == "-1"; }

// The point of that identifier, which loses its former values with a message, or a new one.
ObjectPoint& point_to_fill(OwnedList<ObjectPoint>& points, std::string_view id) {
  ObjectPoint* present = points.find(id);
  if (present != nullptr) {
    standard_output() << "ATTENTION: Object point " << id << " replaced.\n";
    return *present;
  }
  auto point = std::make_unique<ObjectPoint>();
  point->id = id;
  return points.append(std::move(point));
}

enum class RecordResult { record, end_of_file, failure };

bool parse_point_type(std::string_view word, PointType& type) {
  if (word == "in") {
    type = PointType::intersection;
  } else if (word == "co") {
    type = PointType::control;
  } else if (word == "ch") {
    type = PointType::check;
  } else {
    return false;
  }
  return true;
}

// Reads one control-support record with the comment lines before it. Where the input ends in place
// of a record, the record has an empty identifier, which no point carries.
RecordResult read_control_support(TokenReader& in, ControlSupport& record) {
  char first = 0;
  while (in.peek_char(first) && first == '#') in.skip_line();
  if (in.failed()) return RecordResult::record;
  if (!in.read_word(record.id)) {
    standard_output() << "ERROR: Cannot read point ID.\n";
    return RecordResult::failure;
  }
  if (is_end_word(record.id)) return RecordResult::end_of_file;

  std::string_view word;
  if (!in.read_word(word)) {
    standard_output() << "ERROR: Cannot read object point type.\n";
    return RecordResult::failure;
  }
  if (!parse_point_type(word, record.type)) {
    standard_output() << "ERROR: Invalid object point type: " << word << '\n';
    return RecordResult::failure;
  }
  if (record.type == PointType::intersection) return RecordResult::record;
  if (!in.read_word(word)) return RecordResult::failure;
  for (std::size_t k = 0; k < 3; ++k) {
    record.marked[k] = word.find("xyz"[k]) != std::string_view::npos;
  }
  return RecordResult::record;
}

}  // namespace

int read_obj_crds(TokenReader& in, OwnedList<ObjectPoint>& points) {
  std::string_view word;
  if (!in.read_word(word)) return -1;
  const bool common = word == "common-sdev";
  if (!common && word != "indiv-sdev") {
    standard_output() << "ERROR: Unknown file type: " << word << '\n';
    return -1;
  }
  double std_devs[3] = {};
  if (common && !in.read_triple(std_devs)) {
    standard_output() << "ERROR: Reading common std. dev. failed.\n";
    return -1;
  }
  while (in.read_word(word) && !is_end_word(word)) {
    double xyz[3];
    if (!in.read_triple(xyz)) {
      standard_output() << "ERROR: Reading coords. failed.\n";
      return -1;
    }
    if (!common && !in.read_triple(std_devs)) {
      standard_output() << "ERROR: Reading std. dev. failed.\n";
      return -1;
    }
    ObjectPoint& point = point_to_fill(points, word);
    point.xyz = std::to_array(xyz);
    point.std_devs = std::to_array(std_devs);
    point.has_coords = true;
    point.classify();
  }
  return 1;
}

int read_ctrl_supp(TokenReader& in, OwnedList<ObjectPoint>& points) {
  for (;;) {
    ControlSupport record;
    const RecordResult result = read_control_support(in, record);
    if (result == RecordResult::end_of_file) return 1;
    if (result == RecordResult::failure) {
      standard_output() << "ERROR: Set std. dev. from CS failed.\n";
      return -1;
    }
    ObjectPoint* point = points.find(record.id);
    if (point == nullptr) {
      standard_output() << "ERROR: Object point ID " << record.id << " not exist.\n";
      return -1;
    }
    if (point->set_from_cs(record) != 1) {
      standard_output() << "ERROR: Set std. dev. from CS failed: " << record.id << '\n';
      return -1;
    }
  }
}

}  // namespace vorn
