// The built-in functions' arithmetic, in one place for the function table,
// the one-point evaluator (which calls it through a switch, so the plain
// ones inline) and the block evaluator's fallback. Double precision in and
// out, as the table says.
#pragma once

#include <cmath>
#include <cstdint>

#include "random/rand15.h"

namespace nimbo::formula {

inline double CallFunction(uint32_t index, double a, double b, double c) {
  switch (index) {
    case 0: return std::sin(a);
    case 1: return std::cos(a);
    case 2: return std::tan(a);
    case 3: return std::asin(a);
    case 4: return std::acos(a);
    case 5: return std::atan(a);
    case 6: return std::atan2(a, b);  // angle(y, x)
    case 7: return std::sqrt(a);
    case 8: return std::exp(a);
    case 9: return std::log(a);
    case 10: return std::fabs(a);
    case 11: return std::fmod(a, b);
    case 12: return std::floor(a);
    case 13: return std::ceil(a);
    // NaN is neither above nor below 0, so it gives 0 like 0 itself.
    case 14: return a > 0 ? 1.0 : (a < 0 ? -1.0 : 0.0);
    // Comparisons, not std::max/min: with a NaN the second argument wins
    // unless the comparison holds, exactly as the table says.
    case 15: return a > b ? a : b;
    case 16: return a < b ? a : b;
    case 17: return double(random::Rand15()) / 32767.0;
    default: return (b <= a && a <= c) ? 1.0 : 0.0;  // 18, range(x, lo, hi)
  }
}

// a^b: pow() in double, narrowed. For b = 2 the square of a float is exact
// in double and pow() returns an exact result exactly, so the product is
// pow's own value without the call.
inline float Power(float a, float b) {
  if (b == 2.0f) return float(double(a) * double(a));
  return float(std::pow(double(a), double(b)));
}

}  // namespace nimbo::formula
