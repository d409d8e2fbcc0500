#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "app/mpi/communicator.h"
#include "sensors/point_share.h"

namespace vorn::app {

// The share of one process of MPI. The images of the list are dealt out in consecutive parts of one
// length, and a point belongs to the process of the image that measures it first: what a process
// eliminates meets its own images and their neighbours only. Points that no image measures are the
// first process's.
class MpiShare final : public PointShare {
 public:
  explicit MpiShare(Communicator& processes) : processes_(processes) {}
  ~MpiShare() override;

  // Everything is read: drops the object points of others.
  void keep_own_points(BundleProject& project);

  bool is_first() const override { return processes_.is_first(); }
  void meet(const OwnedList<BundleImage>& images) override;
  bool insert(BundleImage& image, std::unique_ptr<ImagePoint> point) override;
  void order_points(const BundleProject& project) override;
  void number_unknowns(const BundleProject& project) override;
  std::unique_ptr<AdjInterface> make_solver() override;
  void add_up(std::span<double> values) override { processes_.add_up(values); }
  void merge(std::span<const PointText> points, std::string& text) override;
  std::vector<UnknownValue> values_above(const Vector& rhs, double limit) override;
  void complete(BundleImage& image) override;
  void release(BundleImage& image) override;
  void gather_points(BundleProject& project) override;

 private:
  // Where something stands in a list of the whole project: keys of one list ascend with the places.
  using Key = std::uint64_t;

  // What is known of an image's points.
  struct ImagePart {
    std::int32_t owner = 0;            // process of the points that it measures first
    std::int32_t num_seen = 0;         // points that were read
    std::vector<std::int32_t> places;  // of the own ones among them, by slot
  };

  bool is_alone() const { return processes_.size() == 1; }
  std::int32_t number_of(std::int32_t unknown) const;

  Communicator& processes_;
  std::unordered_map<const BundleImage*, ImagePart> images_;
  // Process of a measured point by the hash of its identifier, while the files are read. Points of
  // one hash have one owner.
  std::unordered_map<std::uint64_t, std::int32_t> owners_;
  std::vector<Key> keys_;              // of the object points, by slot
  std::vector<std::int32_t> numbers_;  // of the object points that are adjusted, in their order
  std::int32_t num_points_ = 0;        // that all processes adjust
  OwnedList<ImagePoint> own_points_;   // of the image that is complete
};

}  // namespace vorn::app
