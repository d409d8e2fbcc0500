#include "sensors/point_share.h"

#include "base/brought.h"

namespace vorn {

PointShare* point_share() { return brought<PointShare*>(); }

void use_point_share(PointShare* share) { brought<PointShare*>() = share; }

std::vector<UnknownValue> values_above(const Vector& values, double limit) {
  std::vector<UnknownValue> above;
  for (std::int32_t i = 0; i < values.size(); ++i) {
    if (values[i] > limit) above.push_back({i, values[i]});
  }
  return above;
}

double in_total(double value) {
  if (PointShare* const share = point_share()) share->add_up({&value, 1});
  return value;
}

std::int32_t in_total(std::int32_t value) {
  return static_cast<std::int32_t>(in_total(static_cast<double>(value)));
}

AdjObjectList::Counts in_total(AdjObjectList::Counts counts) {
  return {in_total(counts.total), in_total(counts.observed), in_total(counts.eliminated)};
}

bool holds_for_all(bool value) { return in_total(value ? 0 : 1) == 0; }

PointLines::PointLines(TextWriter& out) : share_(point_share()), out_(out) {
  if (share_ != nullptr) out_.capture(&text_);
}

PointLines::~PointLines() {
  if (share_ != nullptr) out_.capture(nullptr);
}

void PointLines::begin(std::int32_t slot) {
  if (share_ == nullptr) return;
  out_.flush();
  points_.push_back({slot, text_.size()});
}

void PointLines::finish() {
  if (share_ == nullptr) return;
  out_.capture(nullptr);
  share_->merge(points_, text_);
  share_ = nullptr;
  out_ << text_;
}

}  // namespace vorn
