#include "quality/missing_names.h"

#include "driver/bundle_project.h"
#include "text/text_writer.h"

namespace vorn {

void tell_missing_points(std::string_view list, const std::vector<std::string>& ids,
                         const BundleProject& project) {
  for (const std::string& id : ids) {
    if (project.object_points.find(id) != nullptr) continue;
    error_output() << list << ": no point " << id << " was adjusted\n";
  }
}

void tell_missing_observations(std::string_view list, std::size_t listed, std::int64_t excluded) {
  const auto count = static_cast<std::int64_t>(listed);
  if (excluded == count) return;
  error_output() << list << ": the project does not have " << count - excluded << " of its "
                 << count << " observations; the report names them\n";
}

}  // namespace vorn
