#include "app/diagnosis_text.h"

#include <algorithm>
#include <map>
#include <span>

namespace vorn::app {

namespace {

constexpr std::size_t kMostOfACode = 8;
constexpr std::size_t kMostOfACodeInPassing = 2;  // of what is told for information

void print_list(TextWriter& out, std::span<const DiagnosisFinding> findings) {
  std::map<std::string_view, std::size_t> told;
  std::size_t more = 0;
  for (const DiagnosisFinding& finding : findings) {
    const bool in_passing = finding.severity == FindingSeverity::info;
    if (++told[finding.code] > (in_passing ? kMostOfACodeInPassing : kMostOfACode)) {
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
}

}  // namespace

void print_findings(TextWriter& out, const Diagnosis& diagnosis) {
  if (!diagnosis.failed_at.object_type.empty()) {
    out << "  the normal equations are singular at " << in_words(diagnosis.failed_at) << '\n';
  }
  print_list(out, diagnosis.findings);
  if (!diagnosis.has_errors()) {
    out << "  At the approximate values the network is sound: the iterations went astray. Look for "
           "wrong\n  approximate values, units, rotation types and gross errors: vorn check names "
           "many.\n";
  }
}

void print_errors(TextWriter& out, const Diagnosis& diagnosis) {
  const auto end =
      std::find_if(diagnosis.findings.begin(), diagnosis.findings.end(),
                   [](const DiagnosisFinding& f) { return f.severity != FindingSeverity::error; });
  print_list(out, {diagnosis.findings.begin(), end});
}

}  // namespace vorn::app
