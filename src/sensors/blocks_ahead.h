#pragma once

#include <cstddef>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "sensors/bundle_image.h"
#include "text/token_reader.h"

namespace vorn {

// The blocks of an image-coordinates file read ahead by all workers, some MB of text at a time. A
// block is cut out from its head to the next line that begins with an end word, and read by what
// would read it in its turn. One of which there is anything to say (a finding, a message, an end
// elsewhere), or whose image has points, is left for that, as if nobody had looked at it; so are
// all where there is one worker, a point share, or somebody who remembers the places of image
// points.
class BlocksAhead {
 public:
  // Reads a block behind its head; false when that fails.
  using ReadBlock = bool (*)(TokenReader& in, BundleImage& image,
                             const OwnedList<BundleImage>& images);
  BlocksAhead(const TokenReader& in, const OwnedList<BundleImage>& images, ReadBlock read_block);
  // Takes away the points of blocks that nobody has come to.
  ~BlocksAhead() { forget_all(); }
  BlocksAhead(const BlocksAhead&) = delete;
  BlocksAhead& operator=(const BlocksAhead&) = delete;

  // The reader has come to the block of the image that begins with this word: the last word of the
  // block when the image has its points, else an empty one, and the block is to be read.
  [[nodiscard]] std::string_view take(std::string_view head, BundleImage& image);

 private:
  struct Block {
    std::string_view text;  // from its head to its end word
    std::string_view end_word;
    BundleImage* image = nullptr;
    bool is_read = false;
  };

  // The block at the beginning of the text; its end word is empty where it has no end.
  static Block cut(std::string_view text);
  void find_blocks(std::string_view text);
  void read(Block& block) const;
  void forget_all();

  const TokenReader& in_;
  const OwnedList<BundleImage>& images_;
  ReadBlock read_block_;
  bool is_of_use_;
  std::vector<Block> blocks_;
  std::unordered_map<const BundleImage*, std::size_t> waiting_;  // blocks nobody has come to yet
  const char* looked_at_ = nullptr;                              // blocks are cut out up to here
};

}  // namespace vorn
