#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "base/owned_list.h"
#include "lsq/linalg/kernels.h"
#include "lsq/normal/couplings.h"
#include "lsq/normal/image_normals.h"
#include "lsq/normal/normal_matrix.h"
#include "lsq/stages/observation_equations.h"
#include "sensors/bundle_image.h"
#include "sensors/object_point.h"

namespace vorn {

// The image points of all images in the order in which the normal matrix keeps the object points:
// batch by batch of points, within a batch image by image. What the points of a batch touch stays
// in the cache while their observations are added. Where all images take packs, couplings of the
// points can be formed again, batch by batch, instead of being stored.
class ObservationTable : public CouplingSource {
 public:
  // Resolves all image points. Every object has its unknown number, and the matrix its structure;
  // when it does not store couplings, the table becomes its source of them, which needs images that
  // take packs.
  void set_up(const OwnedList<BundleImage>& images, const OwnedList<ObjectPoint>& object_points,
              Derivatives derivatives, NormalMatrix& normal);
  bool is_empty() const { return num_observations() == 0; }
  // The same observations with other derivatives from now on.
  void set_derivatives(const OwnedList<BundleImage>& images, Derivatives derivatives,
                       NormalMatrix& normal);

  // Clears the normal matrix and adds all observations; `count` grows by 2 per observed point.
  // Image points without an object point are reported on standard output and passed over. False,
  // with nothing printed, when the equations of a point cannot be formed, or not silently; what was
  // added so far is of no use then.
  [[nodiscard]] bool add(NormalMatrix& normal, Vector& rhs, double& lPl, std::int32_t& count);

  std::unique_ptr<CouplingFormer> make_former() const override;

 private:
  // Observations of one image within a batch.
  struct Segment {
    std::int32_t image;
    std::int32_t place;  // of the image among those of the chunk
    std::int32_t count;
  };
  // Where the entries of a batch begin.
  struct BatchStart {
    std::size_t segment;
    std::size_t observation;
    std::size_t place;
  };
  // Consecutive batches from one on, and the images that they meet.
  struct Chunk {
    std::size_t batch;
    std::vector<std::int32_t> images;
  };
  // The object points of the running batch.
  struct Batch {
    Vec3 xyz[kBatchPoints];
    std::int32_t index[kBatchPoints];
    NormalMatrix::PointRows rows[kBatchPoints];
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
  };
  class Sorter;
  class Former;

  std::size_t num_observations() const {
    return batches_.empty() ? 0 : batches_.back().observation;
  }
  static Next after(const Next& next, const Image& image);
  std::span<const ObjectPoint* const> points_of_batch(std::size_t batch) const;
  std::span<const Segment> segments_of_batch(std::size_t batch) const;
  Next first_of_batch(std::size_t batch) const;
  void load(std::size_t number, Batch& batch) const;
  void find_chunks();
  // Calls take(image, points, pack) for all observations of a segment, eight at a
  // time, side by side. False, at once, when `take` says so.
  template <class Take>
  [[nodiscard]] bool for_each_pack(const Segment& segment, const Batch& batch, Next& next,
                                   PackedEquations& packed, Take take) const;
  [[nodiscard]] bool add(const Chunk& chunk, Work& work, NormalMatrix& normal, Vector& rhs) const;
  [[nodiscard]] bool add(const Segment& segment, Work& work, Vector& rhs) const;
  [[nodiscard]] bool add_packed(const Segment& segment, Work& work, Vector& rhs) const;
  [[nodiscard]] bool add_chunks(NormalMatrix& normal, Vector& rhs);
  void add_sums(const Chunk& chunk, const Work& work);

  std::vector<std::unique_ptr<Image>> images_;
  NormalMatrix* normal_ = nullptr;
  std::vector<const ObjectPoint*> points_;  // in the order of the normal matrix
  std::vector<BatchStart> batches_;         // a last one marks the end
  // Those who sort the observations touch these first, each its part.
  std::unique_ptr<Segment[]> segments_;
  std::unique_ptr<Observation[]> observations_;
  // Of each observation: its object point's place in the batch, then where the image's blocks start
  // within the coupling of the point.
  std::unique_ptr<std::int32_t[]> places_;
  std::vector<const ImagePoint*> unresolved_;  // without object point, in the order of the images
  std::vector<Chunk> chunks_;                  // a last one marks the end
  std::vector<std::unique_ptr<Work>> idle_;    // nobody works with them
  bool takes_packs_ = true;                    // all images do
};

}  // namespace vorn
