// Object-coordinates file and control-support file.

#include <array>
#include <memory>
#include <optional>
#include <unordered_set>
#include <utility>
#include <vector>

#include "sensors/object_point.h"
#include "sensors/plain_points.h"
#include "text/records.h"
#include "text/text_checks.h"

namespace vorn {

namespace {

constexpr Quantity kCoordinates[] = {{"X"}, {"Y"}, {"Z"}};
constexpr Quantity kStdDevs[] = {
    {"sX", Range::not_negative}, {"sY", Range::not_negative}, {"sZ", Range::not_negative}};
constexpr std::array<std::string_view, 2> kFileTypes = {"indiv-sdev", "common-sdev"};
constexpr std::array<std::string_view, 3> kRoles = {"co", "in", "ch"};

// Lists the point of the running record. One of that identifier that is there already takes its
// values, with a message.
void put_point(TokenReader& in, OwnedList<ObjectPoint>& points,
               std::unique_ptr<ObjectPoint> point) {
  const std::string_view id = in.subject().id;
  ObjectPoint* const present = points.find(id);
  if (present == nullptr) {
    in.remember(point.get(), id);
    points.append(std::move(point));
    return;
  }
  report_duplicate(in, present, "the later one counts");
  in.remember(present, id);
  standard_output() << "ATTENTION: Object point " << id << " replaced.\n";
  present->xyz = point->xyz;
  present->std_devs = point->std_devs;
  present->has_coords = true;
  present->classify();
}

// Lists points that were read already.
void put_plain_points(TokenReader& in, OwnedList<ObjectPoint>& points, PlainPoints plain) {
  for (std::vector<PlainPoints::Record>& range : plain.ranges) {
    for (PlainPoints::Record& record : range) {
      in.pass(record.id);
      in.note_progress();
      in.begin_record({"object-point", record.id});
      put_point(in, points, std::move(record.point));
    }
  }
  in.pass(plain.end_word);
}

// Reads a list word by word.
int read_points(TokenReader& in, OwnedList<ObjectPoint>& points, const Vec3* common_std_devs) {
  const std::size_t words_per_record = common_std_devs != nullptr ? 4 : 7;
  report_broken_lines(in, words_per_record, "point", [](std::string_view) { return false; });
  const auto read_point = [&](std::string_view id) {
    in.begin_record({"object-point", id});
    double xyz[3];
    double std_devs[3];
    if (!in.read_triple(xyz, kCoordinates)) {
      return reading_failed("ERROR: Reading coords. failed.\n");
    }
    if (common_std_devs == nullptr && !in.read_triple(std_devs, kStdDevs)) {
      return reading_failed("ERROR: Reading std. dev. failed.\n");
    }
    auto point = std::make_unique<ObjectPoint>();
    point->id = id;
    point->xyz = std::to_array(xyz);
    point->std_devs = common_std_devs != nullptr ? *common_std_devs : std::to_array(std_devs);
    point->has_coords = true;
    point->classify();
    put_point(in, points, std::move(point));
    return 1;
  };
  return read_records(in, EndWords::keyword_or_minus_one, read_point, words_per_record);
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

void report_no_end(TokenReader& in, std::string_view word) {
  in.report(FindingCode::end_missing, word, "the file has no end word", "end it with \"stop-dep\"");
}

// Reads one control-support record with the comment lines before it. Where the input ends in place
// of a record, the record has an empty identifier, which no point carries.
RecordResult read_control_support(TokenReader& in, const OwnedList<ObjectPoint>& points,
                                  ControlSupport& record) {
  char first = 0;
  while (in.peek_char(first) && first == '#') in.skip_line();
  if (in.failed()) {
    report_no_end(in, in.end_of_words());
    return RecordResult::record;
  }
  std::string_view word;
  if (!in.read_word(word)) {
    standard_output() << "ERROR: Cannot read point ID.\n";
    return RecordResult::failure;
  }
  record.id = word;
  if (is_end_word(word, EndWords::keyword_or_minus_one)) return RecordResult::end_of_file;
  in.begin_record({"control-point", word});

  if (!in.need_word(word, "the role")) {
    standard_output() << "ERROR: Cannot read object point type.\n";
    return RecordResult::failure;
  }
  if (!parse_point_type(word, record.type)) {
    const bool ended = in.rest().find(kEndWord) != std::string_view::npos;
    if (!ended && points.find(record.id) == nullptr) {
      report_no_end(in, in.subject().id);
      in.skip_rest();
    } else {
      report_unknown_word(in, word, "role", kRoles);
    }
    standard_output() << "ERROR: Invalid object point type: " << word << '\n';
    return RecordResult::failure;
  }
  if (record.type == PointType::intersection) return RecordResult::record;
  if (!in.need_word(word, "the coordinates meant")) return RecordResult::failure;
  if (in.listens() && word.find_first_not_of("xyz") != std::string_view::npos) {
    in.report(FindingCode::keyword_unknown, word, "unknown coordinates " + quoted(word),
              "write the letters of the coordinates meant, as in \"xyz\" or \"z\"");
  }
  for (std::size_t k = 0; k < 3; ++k) {
    record.marked[k] = word.find("xyz"[k]) != std::string_view::npos;
  }
  return RecordResult::record;
}

}  // namespace

int read_obj_crds(TokenReader& in, OwnedList<ObjectPoint>& points) {
  std::string_view layout;
  if (!in.need_word(layout, "the file type")) return -1;
  const bool common = layout == "common-sdev";
  if (!common && layout != "indiv-sdev") {
    report_unknown_word(in, layout, "file type", kFileTypes);
    return reading_failed("ERROR: Unknown file type: ", layout, '\n');
  }
  double std_devs[3] = {};
  if (common && !in.read_triple(std_devs, kStdDevs)) {
    return reading_failed("ERROR: Reading common std. dev. failed.\n");
  }
  const Vec3 of_all = std::to_array(std_devs);
  const Vec3* const common_std_devs = common ? &of_all : nullptr;
  in.begin_record({"object-point"});
  std::optional<PlainPoints> plain = read_plain_points(in.rest(), common_std_devs);
  if (!plain) return read_points(in, points, common_std_devs);
  std::size_t count = static_cast<std::size_t>(points.count());
  for (const auto& range : plain->ranges) count += range.size();
  points.reserve(count);
  put_plain_points(in, points, *std::move(plain));
  return 1;
}

int read_ctrl_supp(TokenReader& in, OwnedList<ObjectPoint>& points) {
  std::unordered_set<const ObjectPoint*> seen;
  for (;;) {
    ControlSupport record;
    const RecordResult result = read_control_support(in, points, record);
    if (result == RecordResult::end_of_file) return 1;
    const std::string_view record_word = in.subject().id;
    const auto resumes = [&] {
      return in.resume(record_word, [](std::string_view) { return true; });
    };
    if (result == RecordResult::failure) {
      if (resumes()) continue;
      return reading_failed("ERROR: Set std. dev. from CS failed.\n");
    }
    ObjectPoint* const point = points.find(record.id);
    if (point != nullptr && in.listens()) {
      if (!seen.insert(point).second) {
        report_duplicate(in, point, "the later role holds", place_of::kRole);
      }
      in.remember(point, record_word, place_of::kRole);
    }
    if (point == nullptr) {
      report_unknown_reference(in, record_word, "object point", "obj-crds", points);
      if (resumes()) continue;
      return reading_failed("ERROR: Object point ID ", record.id, " not exist.\n");
    }
    if (point->set_from_cs(record) != 1) {
      return reading_failed("ERROR: Set std. dev. from CS failed: ", record.id, '\n');
    }
  }
}

}  // namespace vorn
