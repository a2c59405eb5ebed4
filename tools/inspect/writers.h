// The two forms of a report.
#pragma once

#include <string>

#include "inspect/facts.h"

namespace vlm::inspect {

/// For people; with colours of a terminal or without. Long lists are cut.
std::string write_text(const Facts& facts, bool coloured);

/// For programs: one JSON object, everything in it. Addresses are numbers; bytes of names that are no UTF-8 become
/// U+FFFD.
std::string write_json(const Facts& facts);

/// An answer as both forms name it.
const char* answer_name(Answer answer);

}  // namespace vlm::inspect
