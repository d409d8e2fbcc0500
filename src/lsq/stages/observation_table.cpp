#include "lsq/stages/observation_table.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <utility>

#include "base/in_turn.h"
#include "base/place.h"
#include "base/workers.h"
#include "lsq/normal/batch_columns.h"
#include "text/text_writer.h"

namespace vorn {
namespace {

constexpr auto kBatch = static_cast<std::size_t>(kBatchPoints);

// Observed points of a project that is one chunk, of a chunk otherwise, and of each image of a
// chunk in the mean: sums of few are not worth adding up.
constexpr std::size_t kOneChunk = 32768;
constexpr std::size_t kFewest = 4096;
constexpr std::size_t kFewestPerImage = 64;

std::int32_t number_of(const ObjectPoint& point) { return point.index / 3; }

}  // namespace

// ---- set-up ------------------------------------------------------------------------------------

// Sorts the observations by the batches of their object points, by counting; within a batch the
// order of the images stays. Workers share the images in consecutive ranges, each of which has
// rooms of its own in the batches, behind those of the ranges before it.
class ObservationTable::Sorter {
 public:
  Sorter(ObservationTable& table, const OwnedList<BundleImage>& images,
         const OwnedList<ObjectPoint>& object_points)
      : table_(table),
        object_points_(object_points),
        normal_(*table.normal_),
        num_batches_((table.points_.size() + kBatch - 1) / kBatch) {
    for (const BundleImage& image : images) images_.push_back(&image);
    // Rooms take memory: a few ranges for each worker.
    constexpr std::size_t kRangesPerWorker = 4;
    const std::size_t most = workers().count() == 1 ? 1 : kRangesPerWorker * workers().count();
    grain_ = std::max<std::size_t>(1, (images_.size() + most - 1) / most);
    ranges_.resize((images_.size() + grain_ - 1) / grain_);
  }

  void sort() {
    for_each_range([this](Range& range, std::size_t begin, std::size_t end) {
      range.rooms.resize(num_batches_);
      for (std::size_t image = begin; image < end; ++image) count(image, range);
    });
    make_room();
    for_each_range([this](Range& range, std::size_t begin, std::size_t end) {
      for (std::size_t image = begin; image < end; ++image) put(image, range);
    });
  }

 private:
  // How much of a range a batch holds; later on, where its next entries go.
  struct Room {
    std::size_t observations = 0;
    std::size_t places = 0;
    std::size_t segments = 0;
    std::int32_t last_image = -1;
  };
  struct Range {
    std::vector<Room> rooms;                    // of all batches
    std::vector<const ImagePoint*> unresolved;  // in the order of the images
    std::vector<std::int32_t> ranks;            // of the object points of an image's points
  };

  template <class Visit>
  void for_each_range(Visit visit) {
    vorn::for_each_range(images_.size(), grain_,
                         [&](std::size_t begin, std::size_t end, std::size_t) {
                           visit(ranges_[begin / grain_], begin, end);
                         });
  }
  const std::vector<std::int32_t>& blocks_of(std::size_t image) const {
    return table_.images_[image]->normals.blocks();
  }

  // The places of the object points of an image's points in the order of the normal matrix; -1
  // where there is none.
  void find_ranks(std::size_t image, std::vector<std::int32_t>& ranks) const {
    ranks.clear();
    for (const ImagePoint& point : images_[image]->points) {
      const ObjectPoint* const found = object_point_of(point, object_points_);
      ranks.push_back(
          found == nullptr ? -1 : static_cast<std::int32_t>(normal_.rank_of(number_of(*found))));
    }
  }

  void count(std::size_t image, Range& range) const {
    const std::size_t num_places = 1 + blocks_of(image).size();
    const auto number = static_cast<std::int32_t>(image);
    find_ranks(image, range.ranks);
    auto rank = range.ranks.begin();
    for (const ImagePoint& point : images_[image]->points) {
      const std::int32_t at = *rank++;
      if (at < 0) {
        range.unresolved.push_back(&point);
        continue;
      }
      Room& room = range.rooms[place(at) / kBatch];
      ++room.observations;
      room.places += num_places;
      if (std::exchange(room.last_image, number) != number) ++room.segments;
    }
  }

  // From the sizes of the batches to their beginnings.
  void make_room() {
    BatchStart next{0, 0, 0};
    for (std::size_t b = 0; b < num_batches_; ++b) {
      table_.batches_.push_back(next);
      for (Range& range : ranges_) {
        Room& room = range.rooms[b];
        room.last_image = -1;
        next.segment += std::exchange(room.segments, next.segment);
        next.observation += std::exchange(room.observations, next.observation);
        next.place += std::exchange(room.places, next.place);
      }
    }
    table_.batches_.push_back(next);
    table_.observations_ = std::make_unique_for_overwrite<Observation[]>(next.observation);
    table_.places_ = std::make_unique_for_overwrite<std::int32_t[]>(next.place);
    table_.segments_ = std::make_unique_for_overwrite<Segment[]>(next.segment);
    for (const Range& range : ranges_) {
      table_.unresolved_.insert(table_.unresolved_.end(), range.unresolved.begin(),
                                range.unresolved.end());
    }
  }

  void put(std::size_t image, Range& range) const {
    const std::vector<std::int32_t>& blocks = blocks_of(image);
    const auto number = static_cast<std::int32_t>(image);
    find_ranks(image, range.ranks);
    // Points lie far apart: what is looked for is asked for.
    for (const std::int32_t at : range.ranks) {
      if (at >= 0) __builtin_prefetch(normal_.blocks_at(place(at)).data());
    }
    auto rank = range.ranks.begin();
    for (const ImagePoint& point : images_[image]->points) {
      const std::int32_t at = *rank++;
      if (at < 0) continue;
      Room& room = range.rooms[place(at) / kBatch];
      if (std::exchange(room.last_image, number) != number) {
        table_.segments_[room.segments++] = {number, 0, 0};
      }
      ++table_.segments_[room.segments - 1].count;
      table_.observations_[room.observations++] = observation_of(point, *images_[image]->camera);
      table_.places_[room.places++] = at % kBatchPoints;
      for (const std::int32_t block : blocks) {
        table_.places_[room.places++] = normal_.coupling_start_at(place(at), block);
      }
    }
  }

  ObservationTable& table_;
  const OwnedList<ObjectPoint>& object_points_;
  const NormalMatrix& normal_;
  std::vector<const BundleImage*> images_;
  std::size_t num_batches_;
  std::size_t grain_ = 1;  // images of a range
  std::vector<Range> ranges_;
};

void ObservationTable::set_up(const OwnedList<BundleImage>& images,
                              const OwnedList<ObjectPoint>& object_points, Derivatives derivatives,
                              NormalMatrix& normal) {
  *this = {};
  normal_ = &normal;
  if (!normal.stores_couplings()) normal.set_coupling_source(*this);
  set_derivatives(images, derivatives, normal);
  std::vector<const ObjectPoint*> by_number(static_cast<std::size_t>(normal.num_points()));
  for (const ObjectPoint& point : object_points) by_number[place(number_of(point))] = &point;
  points_.reserve(by_number.size());
  for (const std::int32_t number : normal.point_order()) {
    points_.push_back(by_number[static_cast<std::size_t>(number)]);
  }
  Sorter(*this, images, object_points).sort();
  find_chunks();
  takes_packs_ = std::all_of(images_.begin(), images_.end(),
                             [](const auto& image) { return image->equations.takes_packs(); });
}

void ObservationTable::set_derivatives(const OwnedList<BundleImage>& images,
                                       Derivatives derivatives, NormalMatrix& normal) {
  images_.clear();
  for (const BundleImage& image : images) {
    images_.push_back(std::make_unique<Image>(image, derivatives, normal));
  }
}

void ObservationTable::find_chunks() {
  std::vector<std::int32_t> place_in_chunk(images_.size(), -1);
  Chunk next{0, {}};
  const bool one_chunk = num_observations() < kOneChunk;
  const auto close = [&] {
    Chunk& chunk = chunks_.emplace_back(next);
    for (const std::int32_t image : chunk.images) place_in_chunk[place(image)] = -1;
    next.images.clear();
  };
  const std::size_t num_batches = batches_.size() - 1;
  for (std::size_t batch = 0; batch < num_batches; ++batch) {
    for (std::size_t k = batches_[batch].segment; k < batches_[batch + 1].segment; ++k) {
      std::int32_t& in_chunk = place_in_chunk[place(segments_[k].image)];
      if (in_chunk < 0) {
        in_chunk = static_cast<std::int32_t>(next.images.size());
        next.images.push_back(segments_[k].image);
      }
      segments_[k].place = in_chunk;
    }
    const std::size_t enough = std::max(kFewest, kFewestPerImage * next.images.size());
    const std::size_t count = batches_[batch + 1].observation - batches_[next.batch].observation;
    if (one_chunk || count < enough) continue;
    close();
    next.batch = batch + 1;
  }
  if (num_batches > next.batch) close();
  chunks_.push_back({num_batches, {}});
}

// ---- adding up ---------------------------------------------------------------------------------

std::span<const ObjectPoint* const> ObservationTable::points_of_batch(std::size_t batch) const {
  const std::size_t from = std::min(batch * kBatch, points_.size());
  return std::span(points_).subspan(from, std::min(kBatch, points_.size() - from));
}

std::span<const ObservationTable::Segment> ObservationTable::segments_of_batch(
    std::size_t batch) const {
  const std::size_t from = batches_[batch].segment;
  return {segments_.get() + from, batches_[batch + 1].segment - from};
}

ObservationTable::Next ObservationTable::first_of_batch(std::size_t batch) const {
  return {observations_.get() + batches_[batch].observation, places_.get() + batches_[batch].place};
}

void ObservationTable::load(std::size_t number, Batch& batch) const {
  // Object points lie far apart: those of the next batch are asked for.
  for (const ObjectPoint* later : points_of_batch(number + 1)) {
    __builtin_prefetch(&later->xyz);
    __builtin_prefetch(&later->xyz[2]);
  }
  const std::span<const ObjectPoint* const> points = points_of_batch(number);
  const std::span<const std::int32_t> numbers = normal_->point_order().subspan(number * kBatch);
  for (std::size_t k = 0; k < points.size(); ++k) {
    batch.xyz[k] = points[k]->xyz;
    batch.index[k] = 3 * numbers[k];
  }
}

bool ObservationTable::add(NormalMatrix& normal, Vector& rhs, double& lPl, std::int32_t& count) {
  normal.zero_reduced();
  for (const auto& image : images_) image->normals.start();
  if (!add_chunks(normal, rhs)) return false;
  for (const auto& image : images_) image->normals.finish(rhs, lPl);
  count += 2 * static_cast<std::int32_t>(num_observations());
  for (const ImagePoint* point : unresolved_) {
    standard_output() << "ATTENTION: Object point " << point->id << " not found.\n";
  }
  return true;
}

// All chunks, whose sums are added to the images in the order of the chunks.
bool ObservationTable::add_chunks(NormalMatrix& normal, Vector& rhs) {
  const std::size_t num_chunks = chunks_.size() - 1;
  std::vector<std::unique_ptr<Work>> at(num_chunks);
  InTurn in_turn(num_chunks);
  std::mutex idle;
  std::atomic<bool> formed = true;
  const auto take_over = [&](std::size_t k) {
    add_sums(chunks_[k], *at[k]);
    const std::lock_guard lock(idle);
    idle_.push_back(std::move(at[k]));
  };
  const auto work_at = [&](std::size_t k, std::size_t) {
    if (!formed) return;
    {
      const std::lock_guard lock(idle);
      if (idle_.empty()) idle_.push_back(std::make_unique<Work>());
      at[k] = std::move(idle_.back());
      idle_.pop_back();
    }
    if (add(chunks_[k], *at[k], normal, rhs)) {
      in_turn.finish(k, take_over);
    } else {
      formed = false;
    }
  };
  if (takes_packs_) {
    workers().run(num_chunks, work_at);
  } else {
    // Equations that are not formed in packs have their working memory at the image.
    for (std::size_t k = 0; k < num_chunks; ++k) work_at(k, 0);
  }
  return formed;
}

void ObservationTable::add_sums(const Chunk& chunk, const Work& work) {
  for (std::size_t i = 0; i < chunk.images.size(); ++i) {
    images_[place(chunk.images[i])]->normals.add(work.sums[i]);
  }
}

// One chunk, batch by batch.
bool ObservationTable::add(const Chunk& chunk, Work& work, NormalMatrix& normal,
                           Vector& rhs) const {
  const Chunk& end = *(&chunk + 1);
  work.sums.resize(std::max(work.sums.size(), chunk.images.size()));
  for (std::size_t i = 0; i < chunk.images.size(); ++i) {
    images_[place(chunk.images[i])]->normals.start(work.sums[i]);
  }
  work.next = first_of_batch(chunk.batch);
  for (std::size_t number = chunk.batch; number < end.batch; ++number) {
    load(number, work.batch);
    const std::size_t num_points = points_of_batch(number).size();
    for (std::size_t k = 0; k < num_points; ++k) {
      work.batch.rows[k] = normal.rows_at(number * kBatch + k);
      __builtin_prefetch(rhs.data() + work.batch.index[k], 1);
    }
    normal.zero_points(static_cast<std::int32_t>(number * kBatch),
                       static_cast<std::int32_t>(num_points));
    for (const Segment& segment : segments_of_batch(number)) {
      const bool packed = images_[place(segment.image)]->equations.takes_packs();
      if (!(packed ? add_packed(segment, work, rhs) : add(segment, work, rhs))) return false;
    }
  }
  return true;
}

ObservationTable::Next ObservationTable::after(const Next& next, const Image& image) {
  return {next.observation + 1, next.places + 1 + image.normals.blocks().size()};
}

bool ObservationTable::add(const Segment& segment, Work& work, Vector& rhs) const {
  Image& image = *images_[place(segment.image)];
  const Batch& batch = work.batch;
  Next& next = work.next;
  for (std::int32_t left = segment.count; left > 0; --left) {
    const std::size_t k = place(*next.places);
    const EquationTarget target{batch.rows[k], next.places + 1, batch.index[k]};
    // The images print what there is to print, and each message once.
    if (image.equations.is_singular_at(batch.xyz[k])) return false;
    if (image.equations.linearise(*next.observation, batch.xyz[k], work.equation) !=
        ObservationEquations::Outcome::formed) {
      return false;
    }
    image.normals.add(target, work.equation, rhs, work.sums[place(segment.place)]);
    next = after(next, image);
  }
  return true;
}

template <class Take>
bool ObservationTable::for_each_pack(const Segment& segment, const Batch& batch, Next& next,
                                     PackedEquations& packed, Take take) const {
  const Image& image = *images_[place(segment.image)];
  PackedPoints points;
  for (std::int32_t left = segment.count; left > 0; left -= packed.count) {
    packed.count = std::min(left, Pack::kSize);
    for (std::int32_t lane = 0; lane < Pack::kSize; ++lane) {
      const std::size_t k = place(*next.places);
      for (std::size_t i = 0; i < 2; ++i) {
        points.observed[i].set(lane, next.observation->xy[i]);
        packed.cofactors[i].set(lane, next.observation->cofactors[i]);
      }
      for (std::size_t i = 0; i < 3; ++i) points.object[i].set(lane, batch.xyz[k][i]);
      packed.targets[lane] = {batch.rows[k], next.places + 1, batch.index[k]};
      packed.points[lane] = *next.places;
      // The last point serves the lanes that are left over, too.
      if (lane < packed.count - 1) next = after(next, image);
    }
    next = after(next, image);
    if (!take(image, points, packed)) return false;
  }
  return true;
}

bool ObservationTable::add_packed(const Segment& segment, Work& work, Vector& rhs) const {
  ImageSums& sums = work.sums[place(segment.place)];
  return for_each_pack(segment, work.batch, work.next, work.packed,
                       [&](const Image& image, const PackedPoints& points, PackedEquations& pack) {
                         return image.equations.linearise(points, pack) &&
                                image.normals.add(pack, rhs, sums);
                       });
}

// ---- couplings formed again --------------------------------------------------------------------

class ObservationTable::Former : public CouplingFormer {
 public:
  explicit Former(const ObservationTable& table) : table_(table), normal_(*table.normal_) {}

  void add_columns(std::size_t batch, const BatchColumns& columns) override {
    for_each_pack(
        batch, [&](const Image& image) { find_pieces(image, columns); },
        [&](const Image& image, PackedEquations& pack) {
          image.normals.add_columns(pack, pieces_, columns.factor(0));
        });
  }

  void multiply(std::size_t batch, const Vector& x, double* products) override {
    for_each_pack(
        batch, [&](const Image& image) { take_elements(x, image.normals.blocks()); },
        [&](const Image& image, PackedEquations& pack) {
          image.normals.multiply_couplings(pack, x_.data(), products);
        });
  }

 private:
  // Calls begin(image), then take(image, pack) with the design rows of its observations of a batch,
  // for all images that the batch meets.
  template <class Begin, class Take>
  void for_each_pack(std::size_t batch, Begin begin, Take take) {
    table_.load(batch, batch_);
    Next next = table_.first_of_batch(batch);
    for (const Segment& segment : table_.segments_of_batch(batch)) {
      begin(*table_.images_[place(segment.image)]);
      // What could be formed before can be formed again.
      (void)table_.for_each_pack(
          segment, batch_, next, packed_,
          [&](const Image& image, const PackedPoints& points, PackedEquations& pack) {
            if (!image.equations.find_rows(points, pack)) return false;
            take(image, pack);
            return true;
          });
    }
  }

  // Where the columns of an image's design rows have their places in the columns of the batch.
  void find_pieces(const Image& image, const BatchColumns& columns) {
    pieces_.clear();
    std::int32_t first = 0;
    for (const std::int32_t block : image.normals.blocks()) {
      columns.for_each_piece(block, [&](const TilePiece& piece, const BatchPiece& to) {
        pieces_.push_back({to.points, to.v, first + piece.column, piece.width});
      });
      first += normal_.block_width(block);
    }
  }

  // The elements of x that an image's design rows meet.
  void take_elements(const Vector& x, const std::vector<std::int32_t>& blocks) {
    x_.clear();
    for (const std::int32_t block : blocks) {
      const double* const from = x.data() + normal_.block_index(block);
      x_.insert(x_.end(), from, from + normal_.block_width(block));
    }
  }

  const ObservationTable& table_;
  const NormalMatrix& normal_;
  Batch batch_;
  PackedEquations packed_;
  std::vector<RowPiece> pieces_;
  std::vector<double> x_;
};

std::unique_ptr<CouplingFormer> ObservationTable::make_former() const {
  return std::make_unique<Former>(*this);
}

}  // namespace vorn
