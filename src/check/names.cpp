// Names against names.

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "check/check.h"
#include "driver/bundle_project.h"
#include "geometry/ext_orientation.h"

namespace vorn {
namespace {

// Reports names that lead nowhere in a list, unless the list is known to lack something.
class References {
 public:
  template <class List>
  References(const List& list, std::initializer_list<std::string_view> keywords,
             FindingListener& findings)
      : findings_(findings) {
    for (const auto& object : list) known_.push_back(object.id);
    for (const std::string_view keyword : keywords) {
      complete_ = complete_ && !findings.incomplete.contains(keyword);
    }
  }
  bool complete() const { return complete_; }

  // `who` names a `noun` of that identifier; `place` is that of the name.
  void report(RecordPlaces::Key place, FindingObject object, const std::string& who,
              std::string_view noun, std::string_view id) const {
    if (!complete_) return;
    const bool counted = findings_.only_counts(
        FindingCode::unknown_reference, findings_.places.find(place.first, place.second).file);
    add_finding(
        findings_, FindingCode::unknown_reference, place, std::move(object),
        who + " names the " + std::string(noun) + ' ' + quoted(id) + ", which does not exist",
        counted          ? std::string()
        : known_.empty() ? "the control file names no file with any"
                         : suggestion(id, known_));
  }

 private:
  FindingListener& findings_;
  std::vector<std::string_view> known_;
  bool complete_ = true;
};

void bind_images(BundleProject& project, FindingListener& findings) {
  const References geometries(project.image_geometries, {"image-geometry", "ext-ori"}, findings);
  for (BundleImage& image : project.images) {
    if (image.attach_geometry(project.image_geometries)) {
      image.used = true;
      continue;
    }
    geometries.report({&image.geometry_id, 0}, {"image", image.id, {}, {}},
                      "image " + printable(image.id), "image geometry", image.geometry_id);
  }
}

void bind_sets(BundleProject& project, FindingListener& findings) {
  const References cameras(project.cameras, {"camera"}, findings);
  for (APSet& set : project.ap_sets) {
    Camera* const camera = project.cameras.find(set.camera_id);
    if (camera == nullptr) {
      cameras.report({&set.camera_id, 0}, {"ap-set", set.id, {}, {}}, "ap set " + printable(set.id),
                     "camera", set.camera_id);
      continue;
    }
    // A used camera is one with images; the set alone uses nobody.
    const bool has_images = camera->used;
    static_cast<void>(set.bind_to_camera(project.cameras));
    camera->used = has_images;
  }
}

template <class Correction>
void bind_corrections(BundleProject& project, OwnedList<Correction>& list, std::string_view type,
                      std::string_view noun, FindingListener& findings) {
  const References geometries(project.image_geometries, {"image-geometry", "ext-ori"}, findings);
  for (Correction& correction : list) {
    const auto object = [&] { return FindingObject{std::string(type), correction.id, {}, {}}; };
    const std::string who = std::string(noun) + " correction " + printable(correction.id);
    bool complete = true;
    bool all_quaternions = true;
    std::size_t number = 0;
    for (const std::string& id : correction.eo_ids) {
      ++number;
      const ImageGeometry* const geometry = project.image_geometries.find(id);
      if (geometry == nullptr) {
        complete = false;
        geometries.report({&correction, number}, object(), who, "orientation", id);
      } else if (dynamic_cast<const ExtOrientation*>(geometry) == nullptr) {
        complete = false;
        add_finding(findings, FindingCode::unknown_reference, {&correction, number}, object(),
                    who + " names " + quoted(id) + ", which is no exterior orientation");
      } else {
        all_quaternions = all_quaternions && geometry->get_keyword() == "ext-ori-quaternion";
      }
    }
    if (correction.eo_ids.empty()) {
      add_finding(findings, FindingCode::unused, {&correction, 0}, object(),
                  who + " applies to no orientation");
    } else if (type == "att-correction" && complete && all_quaternions) {
      add_finding(findings, FindingCode::unused, {&correction, 0}, object(),
                  who + " has no effect: all its orientations are quaternions");
    }
    if (complete) static_cast<void>(correction.bind_to_eos(project.image_geometries));
  }
}

// Looks all points up once, for whatever comes.
void bind_points(BundleProject& project) {
  const OwnedList<ObjectPoint>& points = project.object_points;
  for (std::int32_t slot = 0; slot < points.num_slots(); ++slot) {
    if (points[slot] != nullptr) points[slot]->slot = slot;
  }
  for (BundleImage& image : project.images) {
    for (ImagePoint& measured : image.points) {
      measured.object_point = points.find(measured.id);
      if (measured.object_point != nullptr) ++measured.object_point->num_rays;
    }
  }
}

// Two images that name one orientation: one of them may have meant another. Empty when there are
// none.
std::string shared_geometry(const BundleProject& project) {
  std::unordered_map<const ImageGeometry*, const BundleImage*> first;
  for (const BundleImage& image : project.images) {
    if (image.geometry == nullptr) continue;
    const auto [entry, added] = first.try_emplace(image.geometry, &image);
    if (added) continue;
    return "images " + printable(entry->second->id) + " and " + printable(image.id) +
           " both name the image geometry " + printable(image.geometry->id);
  }
  return {};
}

void find_unused(const BundleProject& project, FindingListener& findings) {
  std::int64_t num_measured = 0;
  for (const BundleImage& image : project.images) num_measured += image.count_points();
  if (num_measured == 0) return;  // a finding of its own
  for (const BundleImage& image : project.images) {
    if (image.count_points() > 0 || project.images.find(image.id) != &image) continue;
    add_finding(findings, FindingCode::unused, {&image, 0}, {"image", image.id, {}, {}},
                "image " + printable(image.id) + " has no measurements");
  }
  for (const ObjectPoint& point : project.object_points) {
    // Of points with one identifier the first is meant.
    if (point.num_rays > 0 || project.object_points.find(point.id) != &point) continue;
    const bool control = point.type == PointType::control || point.type == PointType::check;
    add_finding(findings, FindingCode::unused, {&point, 0}, {"object-point", point.id, {}, {}},
                std::string(point.type == PointType::control ? "control point "
                            : control                        ? "check point "
                                                             : "point ") +
                    printable(point.id) + " is measured in no image",
                control ? "compare its identifier with those of the image points" : "");
  }
  const std::string shared = shared_geometry(project);
  for (const ImageGeometry& geometry : project.image_geometries) {
    if (geometry.used) continue;
    add_finding(findings, FindingCode::unused, {&geometry, 0},
                {"image-geometry", geometry.id, {}, {}},
                "image geometry " + printable(geometry.id) + " belongs to no image", shared);
  }
  for (const Camera& camera : project.cameras) {
    // Of cameras with one identifier only the first can be meant.
    if (camera.used || project.cameras.find(camera.id) != &camera) continue;
    add_finding(findings, FindingCode::unused, {&camera, 0}, {"camera", camera.id, {}, {}},
                "camera " + printable(camera.id) + " belongs to no image");
  }
}

}  // namespace

void check_names(BundleProject& project, FindingListener& findings) {
  bind_images(project, findings);
  bind_points(project);
  bind_sets(project, findings);
  bind_corrections(project, project.pos_corrections, "pos-correction", "position", findings);
  bind_corrections(project, project.att_corrections, "att-correction", "attitude", findings);
  if (findings.incomplete.empty()) find_unused(project, findings);
}

}  // namespace vorn
