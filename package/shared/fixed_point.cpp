#include "shared/fixed_point.h"

#include <cmath>

namespace nimbo {

int32_t TruncToInt32(double value) {
  if (std::isnan(value)) return 0;
  if (value >= 2147483647.0) return INT32_MAX;
  if (value <= -2147483648.0) return INT32_MIN;
  return int32_t(value);
}

int16_t TruncToInt16(double value) { return int16_t(uint16_t(uint32_t(TruncToInt32(value)))); }

}  // namespace nimbo
