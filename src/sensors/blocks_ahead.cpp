#include "sensors/blocks_ahead.h"

#include <functional>

#include "base/workers.h"
#include "sensors/point_share.h"
#include "text/blanks.h"
#include "text/kept_console.h"
#include "text/records.h"

namespace vorn {
namespace {

constexpr std::size_t kTextPerWorker = std::size_t{4} << 20U;

// Knows only whether there is a finding.
class Witness final : public FindingListener {
 public:
  void add(Finding) override { has_findings = true; }
  bool has_findings = false;
};

// The first word of a text, on whatever line.
std::string_view first_word(std::string_view text) {
  std::size_t begin = 0;
  while (begin < text.size() && is_blank(text[begin])) ++begin;
  std::size_t end = begin;
  while (end < text.size() && !is_blank(text[end])) ++end;
  return text.substr(begin, end - begin);
}

bool is_end(std::string_view word) { return is_end_word(word, EndWords::keyword_or_minus_one); }

}  // namespace

BlocksAhead::BlocksAhead(const TokenReader& in, const OwnedList<BundleImage>& images,
                         ReadBlock read_block)
    : in_(in),
      images_(images),
      read_block_(read_block),
      is_of_use_(workers().count() > 1 && point_share() == nullptr &&
                 !(in.listens() && in.listener()->remembers_image_points)) {}

std::string_view BlocksAhead::take(std::string_view head, BundleImage& image) {
  if (!is_of_use_) return {};
  if (looked_at_ == nullptr || !std::less<>()(head.data(), looked_at_)) {
    forget_all();
    find_blocks(in_.text_from(head));
    workers().run(blocks_.size(), [this](std::size_t k, std::size_t) { read(blocks_[k]); });
  }
  const auto found = waiting_.find(&image);
  if (found == waiting_.end()) return {};
  const Block& block = blocks_[found->second];
  waiting_.erase(found);
  if (block.is_read && block.text.data() == head.data()) return block.end_word;
  // Another block of the image comes first.
  image.points.clear();
  return {};
}

BlocksAhead::Block BlocksAhead::cut(std::string_view text) {
  Block block;
  for (std::size_t line = text.find('\n'); line != std::string_view::npos;
       line = text.find('\n', line + 1)) {
    // Most lines do not begin as an end word does.
    std::size_t begin = line + 1;
    while (begin < text.size() && (text[begin] == ' ' || text[begin] == '\t')) ++begin;
    if (begin == text.size() || (text[begin] != kEndWord[0] && text[begin] != '-')) continue;
    const std::string_view word = first_word(text.substr(begin));
    if (!is_end(word)) continue;
    block.end_word = word;
    block.text = text.substr(0, begin + word.size());
    break;
  }
  return block;
}

void BlocksAhead::find_blocks(std::string_view text) {
  const std::size_t enough = kTextPerWorker * workers().count();
  const char* const begin = text.data();
  for (;;) {
    looked_at_ = text.data();
    const std::string_view head = first_word(text);
    if (static_cast<std::size_t>(looked_at_ - begin) >= enough) return;
    if (head.empty() || is_end(head)) return;
    text.remove_prefix(static_cast<std::size_t>(head.data() - text.data()));
    Block block = cut(text);
    if (block.end_word.empty()) {
      // The rest has no block of this kind.
      looked_at_ = text.data() + text.size();
      return;
    }
    text.remove_prefix(block.text.size());
    block.image = images_.find(head);
    if (block.image == nullptr || block.image->points.num_slots() != 0) continue;
    if (waiting_.emplace(block.image, blocks_.size()).second) blocks_.push_back(block);
  }
}

void BlocksAhead::read(Block& block) const {
  KeptConsole console;
  Witness witness;
  TokenReader in(block.text, in_.file(), in_.listens() ? &witness : nullptr);
  std::string_view head;
  // The end of the text ends a list, too: a reader that has found the end word has not failed.
  block.is_read = in.read_word(head) && read_block_(in, *block.image, images_) && !in.failed() &&
                  in.rest().empty() && !witness.has_findings && console.take_standard().empty() &&
                  console.take_error().empty();
  if (!block.is_read) block.image->points.clear();
}

void BlocksAhead::forget_all() {
  for (const auto& [image, number] : waiting_) blocks_[number].image->points.clear();
  waiting_.clear();
  blocks_.clear();
}

}  // namespace vorn
