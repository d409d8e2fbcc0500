#include "results.h"

#include <algorithm>
#include <limits>
#include <string>

#include "app/quality_document.h"
#include "conversion.h"
#include "driver/bundle_project.h"
#include "geometry/ext_orientation.h"
#include "sensors/camera_ccd.h"

namespace vorn::python {
namespace {

constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

py::array_t<double> array_of(std::initializer_list<std::size_t> shape) {
  return py::array_t<double>(std::vector<py::ssize_t>(shape.begin(), shape.end()));
}

py::str document_of(const QualityResults& results, const Diagnosis* diagnosis) {
  std::string text;
  TextWriter out(stderr);  // nothing reaches it: a writer without a stream discards what it takes
  out.capture(&text);
  app::print_quality_summary(out, results, diagnosis);
  out.flush();
  out.capture(nullptr);
  return text_of(text);
}

// Image by image: projection centre and rotation from image to object space. NaN where the geometry
// is no exterior orientation.
py::dict orientations_of(const QualityResults& results) {
  const std::size_t n = results.images.size();
  TextArray images(n);
  TextArray ids(n);
  TextArray types(n);
  py::array_t<double> centres = array_of({n, 3});
  py::array_t<double> rotations = array_of({n, 3, 3});
  std::fill_n(centres.mutable_data(), centres.size(), kNone);
  std::fill_n(rotations.mutable_data(), rotations.size(), kNone);
  for (std::size_t i = 0; i < n; ++i) {
    const BundleImage& image = *results.images[i].image;
    images.set(i, image.id);
    ids.set(i, image.geometry->id);
    types.set(i, image.geometry->get_keyword());
    const auto* const orientation = dynamic_cast<const ExtOrientation*>(image.geometry);
    if (orientation == nullptr) continue;
    std::copy_n(orientation->projection_centre().data(), 3, centres.mutable_data() + 3 * i);
    for (std::size_t k = 0; k < 3; ++k) {
      std::copy_n(orientation->rotation_matrix()[k].data(), 3,
                  rotations.mutable_data() + 9 * i + 3 * k);
    }
  }
  py::dict result;
  result["image"] = images.take();
  result["orientation"] = ids.take();
  result["type"] = types.take();
  result["centre"] = centres;
  result["rotation"] = rotations;
  return result;
}

py::list sets_of(const Camera& camera) {
  py::list sets;
  for (const APSet* set : camera.ap_sets) {
    py::dict values;
    for (std::int32_t k = 0; k < set->num_ap(); ++k) {
      values[text_of(set->get_param_name(k))] = set->value(k);
    }
    py::dict entry;
    entry["id"] = text_of(set->id);
    entry["model"] = text_of(set->get_keyword());
    entry["values"] = values;
    sets.append(entry);
  }
  return sets;
}

py::list cameras_of(const BundleProject& project) {
  py::list result;
  for (const Camera& camera : project.cameras) {
    py::dict entry;
    entry["id"] = text_of(camera.id);
    entry["type"] = text_of(camera.get_type_name());
    entry["comment"] = text_of(camera.comment);
    entry["c"] = camera.c;
    entry["xp"] = camera.xp;
    entry["yp"] = camera.yp;
    entry["width"] = camera.sx;
    entry["height"] = camera.sy;
    const auto* const ccd = dynamic_cast<const CameraCCD*>(&camera);
    entry["columns"] = ccd != nullptr ? py::object(py::int_(ccd->nc)) : py::none();
    entry["rows"] = ccd != nullptr ? py::object(py::int_(ccd->nr)) : py::none();
    entry["pixel_x"] = ccd != nullptr ? py::object(py::float_(ccd->pc)) : py::none();
    entry["pixel_y"] = ccd != nullptr ? py::object(py::float_(ccd->pr)) : py::none();
    entry["sets"] = sets_of(camera);
    result.append(entry);
  }
  return result;
}

// Measured image coordinates [m], in the order of the table of image points.
py::array_t<double> image_coordinates_of(const QualityResults& results) {
  py::array_t<double> array = array_of({results.image_points.size(), 2});
  double* to = array.mutable_data();
  for (const ImagePointResult& row : results.image_points) {
    const BundleImage& image = *results.images[static_cast<std::size_t>(row.image)].image;
    const Pair xy = image.camera->pixel_to_image({row.point->x, row.point->y});
    to = std::copy(xy.begin(), xy.end(), to);
  }
  return array;
}

}  // namespace

py::dict results_of(const BundleProject& project, const QualityResults& results,
                    const Diagnosis* diagnosis) {
  const py::gil_scoped_acquire lock;
  py::dict tables;
  for (const auto& table : tables_of(results)) tables[text_of(table->name)] = dict_of(*table);
  py::dict result;
  result["document"] = document_of(results, diagnosis);
  result["tables"] = tables;
  result["orientations"] = orientations_of(results);
  result["cameras"] = cameras_of(project);
  result["image_coordinates"] = image_coordinates_of(results);
  return result;
}

py::str document_of_failure(const Diagnosis& diagnosis) {
  const py::gil_scoped_acquire lock;
  return document_of({}, &diagnosis);
}

}  // namespace vorn::python
