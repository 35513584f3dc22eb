// Text output helpers: JSON strings and CSV fields.
#pragma once

#include <string>

#include "runtime/number_text.h"  // CsvField, NumberText, FloatText

namespace nimbo::host {

// `text` as a JSON string literal, quotes included.
std::string JsonString(const std::string& text);
// A number as JSON text: "null" for NaN and infinities, which JSON lacks.
std::string JsonNumber(double value);

}  // namespace nimbo::host
