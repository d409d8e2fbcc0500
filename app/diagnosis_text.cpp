#include "app/diagnosis_text.h"

#include <map>

namespace vorn::app {

namespace {

constexpr std::size_t kMostOfACode = 8;

}  // namespace

void print_findings(TextWriter& out, const Diagnosis& diagnosis) {
  if (!diagnosis.failed_at.object_type.empty()) {
    out << "  the normal equations are singular at " << in_words(diagnosis.failed_at) << '\n';
  }
  std::map<std::string_view, std::size_t> told;
  std::size_t more = 0;
  for (const DiagnosisFinding& finding : diagnosis.findings) {
    if (++told[finding.code] > kMostOfACode) {
      ++more;
      continue;
    }
    out << "  " << severity_name(finding.severity) << ": " << finding.message
        << "\n    help: " << finding.remedy << '\n';
  }
  if (more > 0) {
    out << "  and " << static_cast<std::uint64_t>(more)
        << " more of these kinds, which --quality --json lists\n";
  }
  if (!diagnosis.has_errors()) {
    out << "  At the approximate values the network is sound: the iterations went astray. Look for "
           "wrong\n  approximate values, units, rotation types and gross errors.\n";
  }
}

}  // namespace vorn::app
