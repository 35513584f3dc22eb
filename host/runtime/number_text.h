// The texts of numbers and fields in the CSV files hosts write (nimbo's
// --values, the frei0r bridge's values file): one spelling for both.
#pragma once

#include <string>

namespace nimbo::host {

// `text` as one CSV field: quoted when it holds a comma, quote or line break.
std::string CsvField(const std::string& text);
// A number as CSV text ("%.9g"; "nan", "inf" and "-inf" as they are).
std::string NumberText(double value);
// A float in the fewest digits that read back as the same float.
std::string FloatText(float value);

}  // namespace nimbo::host
