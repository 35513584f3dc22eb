// The package's process-wide 15-bit random generator: the classic
// seed = seed * 214013 + 2531011, result (seed >> 16) & 0x7fff, seed 1 at
// start. It lives alone so the formula library (which the nimbo program
// links without the rest of the package) draws from the same sequence as
// the effects.
#pragma once

#include <cstdint>

namespace nimbo::random {

inline constexpr int32_t kRand15Max = 0x7fff;

// The next value, 0..32767. Thread-safe: concurrent callers each get a
// distinct step of the one sequence.
int32_t Rand15();
void SeedRand15(uint32_t seed);

}  // namespace nimbo::random
