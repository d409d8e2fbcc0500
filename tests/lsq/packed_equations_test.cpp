// The observation equations of packs, in every version that the processor runs, against those of
// single points: the same bits.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "calibration/ap_set.h"
#include "driver/bundle_project.h"
#include "driver/run.h"
#include "lsq/normal/image_normals.h"
#include "lsq/stages/image_projection.h"
#include "lsq/stages/observation_equations.h"
#include "support/project_test.h"

namespace vorn {
namespace {

using test::SyntheticSpec;

// An image's points, eight at a time; the last one fills up the last pack.
class Points {
 public:
  Points(const BundleProject& project, const BundleImage& image) {
    for (const ImagePoint& point : image.points) {
      observations_.push_back(observation_of(point, *image.camera));
      object_.push_back(object_point_of(point, project.object_points)->xyz);
    }
  }
  std::size_t count() const { return object_.size(); }
  std::size_t at(std::size_t first, int lane) const {
    return std::min(first + static_cast<std::size_t>(lane), count() - 1);
  }
  const Observation& observation(std::size_t i) const { return observations_[i]; }
  const Vec3& object(std::size_t i) const { return object_[i]; }

  PackedPoints pack(std::size_t first, PackedEquations& equations) const {
    PackedPoints points;
    for (int lane = 0; lane < Pack::kSize; ++lane) {
      const std::size_t i = at(first, lane);
      for (std::size_t k = 0; k < 2; ++k) {
        points.observed[k].set(lane, observations_[i].xy[k]);
        equations.cofactors[k].set(lane, observations_[i].cofactors[k]);
      }
      for (std::size_t k = 0; k < 3; ++k) points.object[k].set(lane, object_[i][k]);
    }
    return points;
  }

 private:
  std::vector<Observation> observations_;
  std::vector<Vec3> object_;
};

// What a lane holds, in the form of a single point.
PointEquation equation_of(const PackedEquations& pack, std::int32_t width, int lane) {
  PointEquation equation;
  equation.resize(width);
  for (std::size_t k = 0; k < 3; ++k) {
    equation.point[k] = pack.point_x[k][lane];
    equation.point[3 + k] = pack.point_y[k][lane];
  }
  for (std::size_t k = 0; k < static_cast<std::size_t>(width); ++k) {
    equation.rows[k] = pack.x[k][lane];
    equation.rows[static_cast<std::size_t>(equation.stride) + k] = pack.y[k][lane];
  }
  for (std::size_t k = 0; k < 2; ++k) equation.misclosure[k] = pack.misclosure[k][lane];
  return equation;
}

// Numbers of an equation such that every bit can be seen, those of the first columns.
std::string bits_of(const PointEquation& equation, std::int32_t columns) {
  std::ostringstream bits;
  bits << std::hexfloat;
  for (const double number : equation.point) bits << number << '\n';
  for (std::int32_t k = 0; k < columns; ++k) {
    bits << equation.rows[static_cast<std::size_t>(k)] << ' '
         << equation.rows[static_cast<std::size_t>(equation.stride + k)] << '\n';
  }
  for (const double number : equation.misclosure) bits << number << '\n';
  return bits.str();
}

// Exact columns of corrections are not formed in the same order: the chain rule stands before the
// powers of time in packs, behind them at single points.
void expect_same(const PointEquation& packed, const PointEquation& single, std::int32_t columns) {
  ASSERT_EQ(bits_of(packed, columns), bits_of(single, columns));
  for (std::size_t k = 0; k < single.rows.size(); ++k) {
    ASSERT_NEAR(packed.rows[k], single.rows[k], 1e-15) << k;
  }
}

// Rows and misclosures, all of them and the rows alone.
void expect_bits_of_points(const BundleImage& image, const Points& points,
                           Derivatives derivatives) {
  ObservationEquations equations(image, derivatives);
  ASSERT_TRUE(equations.takes_packs());
  std::int32_t columns = image.geometry->num_values();
  for (const APSet* set : image.camera->ap_sets) columns += set->num_ap();
  PointEquation single;
  for (std::size_t first = 0; first < points.count(); first += Pack::kSize) {
    PackedEquations pack;
    PackedEquations rows_alone;
    const PackedPoints packed = points.pack(first, pack);
    ASSERT_TRUE(equations.linearise(packed, pack));
    ASSERT_TRUE(equations.find_rows(packed, rows_alone));
    std::copy(pack.misclosure, pack.misclosure + 2, rows_alone.misclosure);
    for (int lane = 0; lane < Pack::kSize; ++lane) {
      SCOPED_TRACE(image.id + ' ' + std::to_string(lane));
      const std::size_t i = points.at(first, lane);
      ASSERT_EQ(equations.linearise(points.observation(i), points.object(i), single),
                ObservationEquations::Outcome::formed);
      const bool all = derivatives == Derivatives::documented;
      for (const PackedEquations* formed : {&pack, &rows_alone}) {
        expect_same(equation_of(*formed, single.width, lane), single, all ? single.width : columns);
      }
    }
  }
}

// Whole packs and parts of one, with gaps.
void expect_coords_of_points(const BundleProject& project, const BundleImage& image) {
  std::vector<const ObjectPoint*> points;
  for (const ImagePoint& point : image.points) {
    points.push_back(points.size() % 5 == 2 ? nullptr
                                            : object_point_of(point, project.object_points));
  }
  std::vector<Pair> coords;
  ImageProjection(image).find_coords(points, coords);
  ASSERT_EQ(coords.size(), points.size());
  for (std::size_t k = 0; k < points.size(); ++k) {
    if (points[k] == nullptr) continue;
    EXPECT_EQ(coords[k], image.object_to_image(points[k]->xyz)) << image.id << ' ' << k;
  }
}

// Packs of one to eight points in the normal equations of an image.
void expect_sums_of_points(const BundleImage& image, const Points& points) {
  ObservationEquations equations(image);
  std::vector<std::int32_t> widths;
  for (const AdjObject* object : objects_of(image)) {
    widths.push_back(static_cast<std::int32_t>(object->num_params()));
  }
  for (std::int32_t count = 1; count <= Pack::kSize; ++count) {
    struct Sums {
      NormalMatrix normal;
      Vector rhs;
      double lPl = 0.0;
    } sums[2];
    for (const bool packed : {false, true}) {
      auto& [normal, rhs, lPl] = sums[packed ? 1 : 0];
      NormalStructure structure(Pack::kSize);
      std::vector<std::int32_t> blocks;
      for (const std::int32_t width : widths) blocks.push_back(structure.add_block(width));
      structure.add_group(blocks);
      for (std::int32_t k = 0; k < Pack::kSize; ++k) structure.add_ray(k);
      ASSERT_TRUE(normal.set_structure(structure));
      normal.zero();
      rhs.resize(structure.num_unknowns());
      rhs.zero();
      ImageNormals normals(normal, blocks);
      ImageSums added;
      normals.start(added);
      PackedEquations pack;
      pack.count = count;
      const PackedPoints in_pack = points.pack(0, pack);
      std::vector<std::vector<std::int32_t>> starts(Pack::kSize);
      PointEquation single;
      for (std::int32_t k = 0; k < count; ++k) {
        const auto i = static_cast<std::size_t>(k);
        for (const std::int32_t block : blocks) {
          starts[i].push_back(normal.coupling_start(k, block));
        }
        pack.targets[k] = {normal.point_rows(k), starts[i].data(), 3 * k};
        if (packed) continue;
        ASSERT_EQ(equations.linearise(points.observation(i), points.object(i), single),
                  ObservationEquations::Outcome::formed);
        normals.add(pack.targets[k], single, rhs, added);
      }
      if (packed) {
        ASSERT_TRUE(equations.linearise(in_pack, pack));
        ASSERT_TRUE(normals.add(pack, rhs, added));
      }
      normals.add(added);
      normals.finish(rhs, lPl);
    }
    EXPECT_EQ(sums[0].lPl, sums[1].lPl);
    for (std::int32_t i = 0; i < sums[0].rhs.size(); ++i) {
      ASSERT_EQ(sums[0].rhs[i], sums[1].rhs[i]) << image.id << ' ' << count << ' ' << i;
      for (std::int32_t j = i; j < sums[0].rhs.size(); ++j) {
        ASSERT_EQ(sums[0].normal.at(i, j), sums[1].normal.at(i, j)) << i << ' ' << j;
      }
    }
  }
}

class PackedEquationsTest : public testing::TestWithParam<std::string> {
 protected:
  // Runs a project with the kernels of the parameter and hands it over afterwards.
  void with_adjusted(const SyntheticSpec& spec, const std::function<void(BundleProject&)>& visit) {
    if (!use_kernels(GetParam())) GTEST_SKIP() << "not for this processor";
    const test::TempDir dir;
    make_synthetic_project(spec).write(dir);
    ls_params() = LSParams();
    RunRequest request;
    request.path = dir.path("project.ctl");
    request.inspect = visit;
    test::captured_output([&] { EXPECT_EQ(run_project(request).result, 1); });
  }
  ~PackedEquationsTest() override { EXPECT_TRUE(use_kernels("")); }
};

// All models of parameter sets, all types of orientation and both corrections.
TEST_P(PackedEquationsTest, LanesHoldTheBitsOfSinglePoints) {
  const SyntheticSpec specs[] = {
      {.cameras = std::vector<std::string>(10, "camera-frame"),
       .orientations = {"ext-ori-opk-rot", "ext-ori-pok-rot", "ext-ori-opk-fix",
                        "ext-ori-australis", "ext-ori-quaternion", "ext-ori-opk-rot"},
       .ap_sets = {"gap", "australis", "p12", "p44", "inner-or", "radial-dist", "decentering-dist",
                   "in-plane-dist", "out-of-plane-dist"},
       .images = 20,
       .points = 60},
      {.cameras = {"camera-frame", "camera-ccd"},
       .orientations = {"ext-ori-opk-rot", "ext-ori-quaternion"},
       .ap_sets = {"gap", "p12", "out-of-plane-dist"},
       .points = 27,
       .triples = 2}};
  for (const SyntheticSpec& spec : specs) {
    with_adjusted(spec, [](BundleProject& project) {
      for (const BundleImage& image : project.images) {
        const Points points(project, image);
        for (const Derivatives derivatives : {Derivatives::documented, Derivatives::exact}) {
          expect_bits_of_points(image, points, derivatives);
        }
        expect_coords_of_points(project, image);
        expect_sums_of_points(image, points);
      }
    });
  }
}

// A point in the plane of the projection centre, in any lane.
TEST_P(PackedEquationsTest, PointsWithoutImageGiveNoEquations) {
  with_adjusted({}, [](BundleProject& project) {
    const BundleImage& image = *project.images.begin();
    auto& orientation = dynamic_cast<ExtOrientation&>(*image.geometry);
    for (std::int32_t k = 0; k < 6; ++k) orientation.value(k) = k == 2 ? 100.0 : 0.0;
    orientation.update();
    const ObservationEquations equations(image);
    PackedEquations pack;
    PackedPoints points = Points(project, image).pack(0, pack);
    EXPECT_TRUE(equations.linearise(points, pack));
    for (int lane = 0; lane < Pack::kSize; ++lane) {
      PackedPoints singular = points;
      singular.object[2].set(lane, 100.0);
      EXPECT_FALSE(equations.linearise(singular, pack)) << lane;
      EXPECT_FALSE(equations.find_rows(singular, pack)) << lane;
    }
    ObjectPoint beside;
    beside.xyz = {10.0, 20.0, 0.0};
    ObjectPoint in_plane;
    in_plane.xyz = {10.0, 20.0, 100.0};
    std::vector<Pair> coords;
    const auto find = [&] {
      ImageProjection(image).find_coords(std::vector<const ObjectPoint*>{&beside, &in_plane},
                                         coords);
    };
    EXPECT_EQ(test::captured_errors(find), "DEP::projection: zero denominator.\n");
    EXPECT_EQ(coords[0], image.object_to_image(beside.xyz));
    EXPECT_FALSE(std::isfinite(coords[1][0]));
  });
}

INSTANTIATE_TEST_SUITE_P(Kernels, PackedEquationsTest,
                         testing::Values("baseline", "avx2", "avx512"),
                         [](const auto& instance) { return instance.param; });

}  // namespace
}  // namespace vorn
