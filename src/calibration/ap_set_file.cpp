#include <memory>
#include <string_view>

#include "calibration/ap_models.h"
#include "driver/keywords.h"
#include "text/text_writer.h"

namespace vorn {

int read_ap_set_file(TokenReader& in, OwnedList<APSet>& sets) {
  std::string_view word;
  while (in.read_word(word)) {
    const Keyword keyword = lookup_keyword(word);
    if (keyword == Keyword::stop_dep) return 1;
    std::unique_ptr<APSet> set = make_ap_set(keyword);
    if (!set) {
      standard_output() << "ERROR: Read AP set: Unknown type: " << word << '\n';
      return -1;
    }
    if (set->read(in) != 1) {
      standard_output() << "ERROR: Read AP set " << set->id << " failed.\n";
      return -1;
    }
    const std::int32_t slot = sets.slot_of(set->id);
    if (slot == OwnedList<APSet>::kNone) {
      sets.append(std::move(set));
    } else {
      standard_output() << "ATTENTION: AP set " << set->id << " was replaced.\n";
      sets.replace(slot, std::move(set));
    }
  }
  return 1;
}

}  // namespace vorn
