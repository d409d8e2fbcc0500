#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "base/owned_list.h"
#include "lsq/adj_interface.h"
#include "lsq/adj_object_list.h"
#include "lsq/linalg/matrix.h"
#include "sensors/bundle_image.h"
#include "text/text_writer.h"

namespace vorn {

class BundleProject;

// An unknown by its number in the whole project, and a value that belongs to it.
struct UnknownValue {
  std::int32_t unknown;
  double value;
};

// The elements of a vector over the unknowns that are greater than a limit.
std::vector<UnknownValue> values_above(const Vector& values, double limit);

// Lines of one object point in a listing: they begin at `begin` of its text.
struct PointText {
  std::int32_t slot;  // of the point in this process's list
  std::size_t begin;
};

// The part of a project's object points that one of several processes adjusts, with all image
// points that measure them. Cameras, images, geometries, parameter sets and corrections are
// everybody's, and all processes go through the stages of the run together: each operation is
// called by all of them at the same place, but for those of reading and `is_first`. The first
// process has what belongs to nobody's points, and writes the files of the run.
//
// A run has no share unless a program has brought one (`use_point_share`).
class PointShare {
 public:
  PointShare() = default;
  virtual ~PointShare() = default;
  PointShare(const PointShare&) = delete;
  PointShare& operator=(const PointShare&) = delete;

  virtual bool is_first() const = 0;

  // ---- reading ----
  // Image points of these images follow.
  virtual void meet(const OwnedList<BundleImage>& images) = 0;
  // As BundleImage::insert_point for image points of the share; true for others, which are dropped.
  virtual bool insert(BundleImage& image, std::unique_ptr<ImagePoint> point) = 0;

  // ---- initialisation ----
  // All measured points are object points now, and none has been removed yet.
  virtual void order_points(const BundleProject& project) = 0;
  // The unknowns have their numbers in this process.
  virtual void number_unknowns(const BundleProject& project) = 0;
  // A solver of the normal equations whose parts the processes have formed: each gets the solution
  // for its own points and for all other unknowns.
  virtual std::unique_ptr<AdjInterface> make_solver() = 0;

  // ---- at any time ----
  // Each value becomes its sum over all processes, the same for all.
  virtual void add_up(std::span<double> values) = 0;

  // ---- report ----
  // Puts the lines about single points into the order of the whole project, for the first process.
  virtual void merge(std::span<const PointText> points, std::string& text) = 0;
  // As the function of that name for a right-hand side whose parts the processes have formed;
  // complete in the first process.
  virtual std::vector<UnknownValue> values_above(const Vector& rhs, double limit) = 0;
  // Brings all image points of an image to the first process, in their order, and takes them away.
  virtual void complete(BundleImage& image) = 0;
  virtual void release(BundleImage& image) = 0;
  // Brings all object points to the first process, in their order; they stay.
  virtual void gather_points(BundleProject& project) = 0;
};

// That of this process; null where one process has all points.
PointShare* point_share();
void use_point_share(PointShare* share);

// The sum over all processes.
double in_total(double value);
std::int32_t in_total(std::int32_t value);
AdjObjectList::Counts in_total(AdjObjectList::Counts counts);
// Whether something holds in all processes.
[[nodiscard]] bool holds_for_all(bool value);

// An image with all of its image points, as long as this object lives.
class CompleteImage {
 public:
  explicit CompleteImage(BundleImage& image) : share_(point_share()), image_(image) {
    if (share_ != nullptr) share_->complete(image_);
  }
  ~CompleteImage() {
    if (share_ != nullptr) share_->release(image_);
  }
  CompleteImage(const CompleteImage&) = delete;
  CompleteImage& operator=(const CompleteImage&) = delete;

 private:
  PointShare* share_;
  BundleImage& image_;
};

// A listing of object points in the order of their list, whoever has them.
class PointLines {
 public:
  explicit PointLines(TextWriter& out);
  ~PointLines();
  PointLines(const PointLines&) = delete;
  PointLines& operator=(const PointLines&) = delete;
  // What is written from here on is about the point of a slot; slots ascend.
  void begin(std::int32_t slot);
  // The listing is complete. Called once.
  void finish();

 private:
  PointShare* share_;
  TextWriter& out_;
  std::string text_;
  std::vector<PointText> points_;
};

}  // namespace vorn
