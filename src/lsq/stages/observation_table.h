#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "base/owned_list.h"
#include "lsq/linalg/kernels.h"
#include "lsq/normal/image_normals.h"
#include "lsq/normal/normal_matrix.h"
#include "lsq/stages/observation_equations.h"
#include "sensors/bundle_image.h"
#include "sensors/object_point.h"

namespace vorn {

// The image points of all images in the order in which the normal matrix keeps the object points:
// batch by batch of points, within a batch image by image. What the points of a batch touch stays
// in the cache while their observations are added.
class ObservationTable {
 public:
  // Resolves all image points. Every object has its unknown number, and the matrix its structure.
  void set_up(const OwnedList<BundleImage>& images, const OwnedList<ObjectPoint>& object_points,
              Derivatives derivatives, NormalMatrix& normal);
  bool is_empty() const { return observations_.empty(); }

  // Clears the normal matrix and adds all observations; `count` grows by 2 per observed point.
  // Image points without an object point are reported on standard output and passed over. False,
  // with nothing printed, when the equations of a point cannot be formed, or not silently; what was
  // added so far is of no use then.
  [[nodiscard]] bool add(NormalMatrix& normal, Vector& rhs, double& lPl, std::int32_t& count);

 private:
  // Observations of one image within a batch.
  struct Segment {
    std::int32_t image;
    std::int32_t place;  // of the image among those of the chunk
    std::int32_t count;
  };
  // Consecutive batches: where they begin, and the images that they meet.
  struct Chunk {
    std::size_t batch;
    std::size_t segment;
    std::size_t observation;
    std::size_t place;
    std::vector<std::int32_t> images;
  };
  struct Point {
    const ObjectPoint* object_point;
    NormalMatrix::PointRows rows;
  };
  // The object points of the running batch.
  struct Batch {
    const Point* points;
    Vec3 xyz[kBatchPoints];
    std::int32_t index[kBatchPoints];
  };
  // One image: where its equations are formed, and where they are summed up.
  struct Image {
    Image(const BundleImage& image, Derivatives derivatives, NormalMatrix& normal)
        : equations(image, derivatives), normals(normal, blocks_of(image, normal)) {}

    ObservationEquations equations;
    ImageNormals normals;
  };
  // What is to be added next.
  struct Next {
    const Observation* observation;
    const std::int32_t* places;
  };
  // A chunk that is worked at.
  struct Work {
    std::vector<ImageSums> sums;  // of the chunk's images
    Next next;
    Batch batch;
    PointEquation equation;
    PackedEquations packed;
    bool formed = false;
  };
  class Sorter;

  static Next after(const Next& next, const Image& image);
  static void load(std::span<const Point> points, Batch& batch, const Vector& rhs);
  std::span<const Point> points_of_batch(std::size_t batch) const;
  void find_chunks();
  [[nodiscard]] bool add(const Chunk& chunk, Work& work, NormalMatrix& normal, Vector& rhs) const;
  [[nodiscard]] bool add(const Segment& segment, Work& work, Vector& rhs) const;
  [[nodiscard]] bool add_packed(const Segment& segment, Work& work, Vector& rhs) const;
  void add_sums(std::size_t first, std::size_t count);

  std::vector<std::unique_ptr<Image>> images_;
  std::vector<Point> points_;               // in the order of the normal matrix
  std::vector<std::int32_t> num_segments_;  // of each batch
  std::vector<Segment> segments_;
  std::vector<Observation> observations_;
  // Of each observation: its object point's place in the batch, then where the image's blocks start
  // within the coupling of the point.
  std::vector<std::int32_t> places_;
  std::vector<const ImagePoint*> unresolved_;  // without object point, in the order of the images
  std::vector<Chunk> chunks_;                  // a last one marks the end
  std::vector<Work> work_;
  bool takes_packs_ = true;  // all images do
};

}  // namespace vorn
