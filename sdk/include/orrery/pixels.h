// Orrery host SDK: saturating pixel helpers (SSE2, AVX2 where the CPU has it).
#pragma once

#include <cstddef>
#include <cstdint>

namespace orrery {

// dst[i] = per-byte unsigned saturating sum of dst[i] and src[i], count words.
void MMXAddDWORDSaturation(uint32_t* dst, const uint32_t* src, size_t count);
// dst[i] = value for count words.
void MMXDWORDset(uint32_t* dst, uint32_t value, size_t count);

}  // namespace orrery
