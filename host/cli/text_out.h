// Text output helpers: JSON strings and CSV fields.
#pragma once

#include <string>

namespace nimbo::host {

// `text` as a JSON string literal, quotes included.
std::string JsonString(const std::string& text);
// `text` as one CSV field: quoted when it holds a comma, quote or line break.
std::string CsvField(const std::string& text);
// A number as CSV text ("%.9g"; "nan", "inf" and "-inf" as they are).
std::string NumberText(double value);
// A float in the fewest digits that read back as the same float.
std::string FloatText(float value);
// A number as JSON text: "null" for NaN and infinities, which JSON lacks.
std::string JsonNumber(double value);

}  // namespace nimbo::host
