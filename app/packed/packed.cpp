#include "app/packed/packed.h"

#include <cstdio>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "text/file_system.h"

#ifdef VORN_HAS_ZLIB
#include <zlib.h>
#endif
#ifdef VORN_HAS_ZSTD
#include <zstd.h>
#endif

namespace vorn::app {
namespace {

constexpr std::size_t kPiece = std::size_t{1} << 18U;
[[maybe_unused]] constexpr const char* kTooShort = "the compressed file ends too early";

#ifdef VORN_HAS_ZLIB
// One stream of gzip after the other, as `cat` puts them together.
class Gzip {
 public:
  Gzip() {
    constexpr int kGzipOnly = 16 + MAX_WBITS;
    if (inflateInit2(&stream_, kGzipOnly) != Z_OK) throw std::bad_alloc();
  }
  Gzip(const Gzip&) = delete;
  Gzip& operator=(const Gzip&) = delete;
  ~Gzip() { inflateEnd(&stream_); }

  std::string unpack(std::FILE* file, FileText& text) {
    std::vector<unsigned char> piece(kPiece);
    bool ended = false;
    while (const std::size_t size = std::fread(piece.data(), 1, kPiece, file)) {
      stream_.next_in = piece.data();
      stream_.avail_in = static_cast<uInt>(size);
      do {
        if (ended && inflateReset(&stream_) != Z_OK) return "it cannot be unpacked";
        stream_.next_out = reinterpret_cast<Bytef*>(text.make_room(kPiece));
        stream_.avail_out = kPiece;
        const int code = inflate(&stream_, Z_NO_FLUSH);
        if (code == Z_MEM_ERROR) throw std::bad_alloc();
        if (code != Z_OK && code != Z_STREAM_END && code != Z_BUF_ERROR) {
          return std::string("the gzip file is damaged: ") +
                 (stream_.msg == nullptr ? "unknown contents" : stream_.msg);
        }
        text.add(kPiece - stream_.avail_out);
        ended = code == Z_STREAM_END;
      } while (stream_.avail_in > 0 || (stream_.avail_out == 0 && !ended));
    }
    return ended ? "" : kTooShort;
  }

 private:
  z_stream stream_{};
};
#endif

#ifdef VORN_HAS_ZSTD
class Zstd {
 public:
  std::string unpack(std::FILE* file, FileText& text) {
    if (!context_) throw std::bad_alloc();
    std::vector<char> piece(kPiece);
    bool ended = false;
    while (const std::size_t size = std::fread(piece.data(), 1, kPiece, file)) {
      ZSTD_inBuffer in{piece.data(), size, 0};
      for (bool full = false; in.pos < in.size || full;) {
        ZSTD_outBuffer out{text.make_room(kPiece), kPiece, 0};
        const std::size_t code = ZSTD_decompressStream(context_.get(), &out, &in);
        if (ZSTD_isError(code) != 0) {
          return std::string("the zstd file is damaged: ") + ZSTD_getErrorName(code);
        }
        text.add(out.pos);
        ended = code == 0;
        full = out.pos == out.size && !ended;
      }
    }
    return ended ? "" : kTooShort;
  }

 private:
  struct Release {
    void operator()(ZSTD_DCtx* context) const { ZSTD_freeDCtx(context); }
  };
  std::unique_ptr<ZSTD_DCtx, Release> context_{ZSTD_createDCtx()};
};
#endif

class PackedFiles final : public Unpacker {
 public:
  bool takes(std::string_view path) const override {
    return path.ends_with(".gz") || path.ends_with(".zst");
  }
  std::string unpack(std::string_view path, [[maybe_unused]] std::FILE* file,
                     [[maybe_unused]] FileText& text) override {
    if (path.ends_with(".gz")) {
#ifdef VORN_HAS_ZLIB
      return Gzip().unpack(file, text);
#else
      return "this command was built without zlib";
#endif
    }
#ifdef VORN_HAS_ZSTD
    return Zstd().unpack(file, text);
#else
    return "this command was built without zstd";
#endif
  }
};

}  // namespace

void use_packed_files() {
  static PackedFiles packed;
  use_unpacker(&packed);
}

}  // namespace vorn::app
