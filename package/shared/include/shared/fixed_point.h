// Float to integer the way every fixed-point coefficient of the package is
// made: truncation toward zero. Coefficients carry 8 fractional bits
// (TruncToInt16(256.0 * v)) and keep the low 16 bits of the 32-bit integer,
// two's complement, so values far outside a setting's range wrap rather than
// saturate; every kernel reads the same 16-bit values, so they agree.
#pragma once

#include <cstdint>

namespace nimbo {

// Out-of-range values saturate at the int32 limits and NaN gives 0 (a plain
// cast would be undefined there).
int32_t TruncToInt32(double value);
// TruncToInt32, then the low 16 bits.
int16_t TruncToInt16(double value);

}  // namespace nimbo
