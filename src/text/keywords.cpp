#include "text/keywords.h"

#include <array>
#include <cstddef>

namespace vorn {
namespace {

// In the order of their codes.
constexpr std::array<std::string_view, 41> kKeywords = {"params",
                                                        "ls-params",
                                                        "camera",
                                                        "camera-frame",
                                                        "camera-ccd",
                                                        "camera-ccd-tr",
                                                        "camera-pushbroom",
                                                        "image",
                                                        "image-frame",
                                                        "image-scanner",
                                                        "image-geometry",
                                                        "ext-ori",
                                                        "ext-ori-opk-rot",
                                                        "ext-ori-pok-rot",
                                                        "ext-ori-opk-fix",
                                                        "ext-ori-australis",
                                                        "ext-ori-quaternion",
                                                        "dlt",
                                                        "ext-ori-kratky",
                                                        "pmf-linear",
                                                        "image-crds",
                                                        "obj-crds",
                                                        "ctrl-supp",
                                                        "ap-set",
                                                        "gap",
                                                        "australis",
                                                        "p12",
                                                        "p44",
                                                        "inner-or",
                                                        "radial-dist",
                                                        "decentering-dist",
                                                        "in-plane-dist",
                                                        "out-of-plane-dist",
                                                        "pos-cor",
                                                        "att-cor",
                                                        "patb-params",
                                                        "patb-photos",
                                                        "patb-control",
                                                        "patb-orient",
                                                        "oc-transform",
                                                        kEndWord};
static_assert(kKeywords.size() == static_cast<std::size_t>(Keyword::stop_dep));

}  // namespace

std::span<const std::string_view> all_keywords() { return kKeywords; }

Keyword lookup_keyword(std::string_view text) {
  for (std::size_t i = 0; i < kKeywords.size(); ++i) {
    if (text == kKeywords[i]) return static_cast<Keyword>(i + 1);
  }
  return Keyword::none;
}

}  // namespace vorn
