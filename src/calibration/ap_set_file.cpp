#include <memory>
#include <string_view>

#include "calibration/ap_models.h"
#include "text/records.h"

namespace vorn {

int read_ap_set_file(TokenReader& in, OwnedList<APSet>& sets) {
  return read_records(
      in, EndWords::keyword,
      [&](std::string_view word) {
        in.begin_record({"ap-set"});
        std::unique_ptr<APSet> set = make_ap_set(lookup_keyword(word));
        if (!set) {
          if (in.listens()) {
            report_unknown_word(in, word, "model of additional parameters", ap_model_keywords());
          }
          return reading_failed("ERROR: Read AP set: Unknown type: ", word, '\n');
        }
        // A set that ends too early is filled with zeros; those who look for mistakes go on behind
        // it.
        const bool read = set->read(in) == 1;
        if (!read || (in.goes_on() && in.failed())) {
          return reading_failed("ERROR: Read AP set ", set->id, " failed.\n");
        }
        const APSet& stored = *set;
        const APSet* const earlier = in.listens() ? sets.find(stored.id) : nullptr;
        if (earlier != nullptr) report_duplicate(in, earlier, "the later one counts");
        if (sets.put(std::move(set))) {
          standard_output() << "ATTENTION: AP set " << stored.id << " was replaced.\n";
        }
        return 1;
      },
      begins_with_keyword);
}

}  // namespace vorn
