#include "app/diagnosis_text.h"

namespace vorn::app {

void print_findings(TextWriter& out, const Diagnosis& diagnosis) {
  if (!diagnosis.failed_at.object_type.empty()) {
    out << "  the normal equations are singular at " << in_words(diagnosis.failed_at) << '\n';
  }
  for (const DiagnosisFinding& finding : diagnosis.findings) {
    out << "  " << severity_name(finding.severity) << ": " << finding.message
        << "\n    help: " << finding.remedy << '\n';
  }
  if (!diagnosis.has_errors()) {
    out << "  At the approximate values the network is sound: the iterations went astray. Look for "
           "wrong\n  approximate values, units, rotation types and gross errors.\n";
  }
}

}  // namespace vorn::app
