#pragma once

#include "quality/diagnosis.h"
#include "text/text_writer.h"

namespace vorn::app {

// Prints the findings of a diagnosis in sentences, each with what helps.
void print_findings(TextWriter& out, const Diagnosis& diagnosis);
// Only those that spoil results, each with what helps.
void print_errors(TextWriter& out, const Diagnosis& diagnosis);

}  // namespace vorn::app
