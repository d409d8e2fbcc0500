#include "lsq/stages/observation_equations.h"

#include <algorithm>
#include <utility>

#include "calibration/ap_set.h"
#include "calibration/corrections.h"
#include "lsq/ls_params.h"
#include "sensors/camera.h"
#include "sensors/object_point.h"

namespace vorn {

namespace {

// The corrections that act on an image's geometry; null where there is none.
struct Corrections {
  const AdjObject* pos = nullptr;
  const AdjObject* att = nullptr;
};

Corrections corrections_of(const ImageGeometry* geometry) {
  const auto* const orientation = dynamic_cast<const ExtOrientation*>(geometry);
  if (orientation == nullptr) return {};
  Corrections corrections;
  if (orientation->has_pos_correction()) corrections.pos = orientation->pos_correction();
  if (orientation->has_att_correction()) corrections.att = orientation->att_correction();
  return corrections;
}

}  // namespace

Observation observation_of(const ImagePoint& point, const Camera& camera) {
  Observation observation;
  observation.xy = camera.pixel_to_image({point.x, point.y});
  const double sigma0 = ls_params().sigma0_apriori;
  const Pair sdev = camera.sdev_to_image({point.sx, point.sy});
  for (std::size_t k = 0; k < 2; ++k) {
    const double ratio = sdev[k] / sigma0;
    observation.cofactors[k] = ratio * ratio / point.weight_factor;
  }
  return observation;
}

std::vector<const AdjObject*> objects_of(const BundleImage& image) {
  std::vector<const AdjObject*> objects = {image.geometry};
  const auto add = [&objects](const AdjObject* object) {
    // A correction without coefficients has no unknowns.
    if (object != nullptr && object->num_params() > 0) objects.push_back(object);
  };
  for (const APSet* set : image.camera->ap_sets) add(set);
  const Corrections corrections = corrections_of(image.geometry);
  add(corrections.pos);
  add(corrections.att);
  return objects;
}

std::vector<std::int32_t> blocks_of(const BundleImage& image, const NormalMatrix& normal) {
  std::vector<std::int32_t> blocks;
  for (const AdjObject* object : objects_of(image)) {
    const std::int32_t block = normal.block_of(object->index);
    if (blocks.empty() || blocks.back() != block) blocks.push_back(block);
  }
  return blocks;
}

void add_structure(const BundleImage& image, const OwnedList<ObjectPoint>& object_points,
                   NormalStructure& structure) {
  std::vector<std::int32_t> blocks;
  for (const AdjObject* object : objects_of(image)) {
    blocks.push_back(structure.block_of(object->index));
  }
  structure.add_group(std::move(blocks));
  for (const ImagePoint& point : image.points) {
    const ObjectPoint* const object_point = object_point_of(point, object_points);
    if (object_point != nullptr) structure.add_ray(object_point->index / 3);
  }
}

bool takes_packs(const BundleImage& image) {
  const auto& sets = image.camera->ap_sets;
  return dynamic_cast<const ExtOrientation*>(image.geometry) != nullptr &&
         std::find(sets.begin(), sets.end(), nullptr) == sets.end();
}

PackedImage packed_image_of(const BundleImage& image, const ExtOrientation& orientation,
                            Derivatives derivatives) {
  PackedImage packed;
  packed.perspective = &orientation.perspective();
  packed.camera = image.camera->inner_orientation();
  packed.exact = derivatives == Derivatives::exact;
  for (const APSet* set : image.camera->ap_sets) packed.sets.push_back(set->terms());
  const auto add = [&](const auto& correction, std::int32_t first) {
    packed.corrections.push_back(
        {orientation.exposure_time - correction.t0, correction.polynomial.num_values(), first});
  };
  if (orientation.has_pos_correction()) add(*orientation.pos_correction(), 0);
  if (orientation.has_att_correction()) add(*orientation.att_correction(), 3);
  return packed;
}

ObservationEquations::ObservationEquations(const BundleImage& image, Derivatives derivatives)
    : image_(image),
      derivatives_(derivatives),
      orientation_(dynamic_cast<ExtOrientation*>(image.geometry)),
      transformation_(dynamic_cast<const DirectLinearTransf*>(image.geometry)),
      takes_packs_(vorn::takes_packs(image)),
      ap_derivs_(image.camera->ap_sets.size()),
      cofactors_(2, 2) {
  cofactors_.zero();
  for (const AdjObject* object : objects_of(image)) {
    width_ += static_cast<std::int32_t>(object->num_params());
  }
  // The order of registration, so that unknown numbers ascend from block to block.
  design_ = {&derivs_.geometry};
  for (std::size_t i = 0; i < ap_derivs_.size(); ++i) {
    if (image.camera->ap_sets[i] == nullptr) continue;
    ap_derivs_[i].a.resize(2, image.camera->ap_sets[i]->num_ap());
    ap_derivs_[i].a.zero();
    set_width_ += ap_derivs_[i].a.cols();
    design_.push_back(&ap_derivs_[i]);
  }
  const Corrections corrections = corrections_of(image.geometry);
  if (corrections.pos != nullptr) design_.push_back(&derivs_.pos);
  if (corrections.att != nullptr) design_.push_back(&derivs_.att);
  if (takes_packs_) packed_ = packed_image_of(image, *orientation_, derivatives);
}

ObservationEquations::Outcome ObservationEquations::linearise(const Observation& observation,
                                                              const Vec3& object_point,
                                                              PointEquation& equation) {
  const bool exact = derivatives_ == Derivatives::exact;
  const Camera& camera = *image_.camera;
  const Vec3 camera_vector =
      exact ? Vec3{0.0, 0.0, -camera.c} : camera.image_to_camera(observation.xy);
  const bool derived = orientation_ != nullptr
                           ? orientation_->find_derivs(camera_vector, object_point, derivs_)
                           : image_.geometry->get_derivs(camera_vector, object_point, derivs_);
  if (!derived) return Outcome::not_derivable;
  if (!exact) camera.get_derivs(camera_vector, ap_derivs_);

  cofactors_[0][0] = observation.cofactors[0];
  cofactors_[1][1] = observation.cofactors[1];
  if (equation.width != width_ || equation.rows.empty()) equation.resize(width_);
  std::copy_n(derivs_.point.a[0], 6, equation.point);
  line_up(equation);
  const Pair computed =
      exact ? make_exact(object_point, equation) : image_.object_to_image(object_point);
  const Pair misclosure = misclosure_of(observation.xy, computed);
  std::copy(misclosure.begin(), misclosure.end(), equation.misclosure);
  return weights_of(derivs_.b, cofactors_, equation.weights) ? Outcome::formed
                                                             : Outcome::not_weighable;
}

void ObservationEquations::line_up(PointEquation& equation) const {
  double* x = equation.rows.data();
  for (const DesignBlock* block : design_) {
    const std::int32_t width = block->a.cols();
    if (width > 0) {
      std::copy_n(block->a[0], width, x);
      std::copy_n(block->a[1], width, x + equation.stride);
    }
    x += width;
  }
}

Pair ObservationEquations::make_exact(const Vec3& object_point, PointEquation& equation) const {
  Vec3 ideal{0.0, 0.0, -image_.camera->c};
  // A projection that fails leaves what it could form.
  static_cast<void>(image_.geometry->projection(object_point, ideal));
  double* const x = equation.rows.data();
  double* const y = x + equation.stride;
  const std::int32_t sets = image_.geometry->num_values();
  const std::array<Dual<double>, 2> image = image_.camera->linearise(ideal, {x + sets, y + sets});
  apply_chain_rule(image, RowPair<double*>{equation.point, equation.point + 3}, 3);
  const RowPair<double*> rows{x, y};
  apply_chain_rule(image, rows, sets);
  const std::int32_t corrections = sets + set_width_;
  apply_chain_rule(image, rows.from(corrections), width_ - corrections);
  return {image[0].value, image[1].value};
}

bool ObservationEquations::form(const PackedPoints& points, PackedEquations& equations,
                                Pack* misclosure) const {
  const auto width = static_cast<std::size_t>(width_);
  if (equations.x.size() < width) {
    equations.x.resize(width);
    equations.y.resize(width);
  }
  return form_packed_(packed_, points,
                      {{equations.point_x, equations.point_y},
                       {equations.x.data(), equations.y.data()},
                       misclosure});
}

void ObservationEquations::print_failure(Outcome outcome, const Vec3& object_point) {
  if (outcome == Outcome::not_weighable) {
    standard_output() << "ERROR: Decomposition of weight matrix failed.\n";
  } else if (outcome == Outcome::not_derivable && orientation_ != nullptr) {
    // Called for what it says when it fails, once more.
    static_cast<void>(
        orientation_->get_derivs({0.0, 0.0, -image_.camera->c}, object_point, derivs_));
  }
}

}  // namespace vorn
