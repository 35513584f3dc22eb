// ChromaKeyPRO's per-pixel kernels, each a scalar reference plus SSE2 and
// AVX2 versions (and AVX-512 for the key) that give the same bytes;
// *Kernel() answers the best version for this CPU, chosen once.
//
// Index:
//   1. ChromaKey*      the chroma-cone key, in place on the frame
//   2. key table       the whole key function precomputed for 7-bit colours
//
// The chroma-cone key, per pixel P = (R, G, B), all shifts by 8:
//   X  = (cx . RGB) >> 8      along the key direction   (arithmetic shifts)
//   Z  = (cz . RGB) >> 8      across it
//   Yl = (65 R + 129 G + 25 B) >> 8
//   t  = (|Z| * tan_factor) >> 8, a 32-bit product shifted logically
//   X' = X - t; X' <= 0 means foreground: left as it is, or recoloured through
//        the colour matrix (alpha byte then 0).
//   a  = (inv_mag * X') >> 8, 255 if that is >= 255 (unsigned), then LUT[a];
//        255 inside the noise radius: Z^2 + (X - k_mag)^2 < noise_sq
//   Y" = ((255 - a) * Yl) >> 8
//   out_k = clamp((g_k * a + L * Y" + z_k * Z + t_k * t) >> 8, 0, 255), g the
//        background byte.
// The background comes from `bg` (its alpha byte ignored; keyed pixels get
// alpha 0) or, when `bg` is null, from the parameters' null colour; keyed
// pixels then carry a in their alpha byte, which is what the key table and
// the XtractAlpha effect read back.
//
// Where the arithmetic could wrap, and why it does not: the SIMD versions
// multiply 16-bit operands and sum pairs of products in 32 bits (pmaddwd).
// Every operand fits in 16 bits: colour bytes, a and Y" are 0..255; the
// coefficients are 16-bit by construction; |X|, |Z| stay below 640 (the key
// direction is at most about 360 long, and the projection rows sum to less
// than 1.8 times it); a pixel reaches the keyed branch only when t < X, so t
// is below 640 there too. The sums of two products therefore never wrap. The
// one 32-bit product that can wrap, |Z| * tan_factor for cone angles near 0 or
// beyond 90 degrees, is taken modulo 2^32 by every version alike.
//
// The SIMD versions go by blocks of four vectors. A block with no keyed
// pixel is left as it is (or only recoloured); otherwise the alpha LUT is
// skipped when it is the identity, and on AVX2 looked up for the whole block
// by byte shuffles (on AVX-512 by two-register byte permutes), straight from
// X' for every coloured key (see SetAlphaLut). Each combination of null colour, noise radius and colour
// transform has its own loop.
//
// `bg` may be `dst` itself (a frame keyed over itself): each pixel's
// background is read before that pixel is written.
#pragma once

#include <cstddef>
#include <cstdint>

#include "chroma_key_math.h"

namespace nimbo {

// ---- 1. the chroma-cone key ---------------------------------------------------------
using ChromaKeyFn = void (*)(uint32_t* dst, const uint32_t* bg, size_t count, const ChromaKeyParams& params);
void ChromaKeyScalar(uint32_t* dst, const uint32_t* bg, size_t count, const ChromaKeyParams& params);
void ChromaKeySse2(uint32_t* dst, const uint32_t* bg, size_t count, const ChromaKeyParams& params);
void ChromaKeyAvx2(uint32_t* dst, const uint32_t* bg, size_t count, const ChromaKeyParams& params);
// Needs AVX-512 F, BW, DQ and VBMI: call it only when CpuHasKeyAvx512().
void ChromaKeyAvx512(uint32_t* dst, const uint32_t* bg, size_t count, const ChromaKeyParams& params);
bool CpuHasKeyAvx512();
ChromaKeyFn ChromaKeyKernel();

// ---- 2. the key table -------------------------------------------------------------------
// 2^21 entries of two words, indexed by the top 7 bits of R, G, B (red
// highest): word 0 the keyed colour without background (0x00RRGGBB), word 1
// the transparency a in all four bytes.
inline constexpr size_t kKeyTableEntries = 0x200000;
inline constexpr size_t kKeyTableWords = 2 * kKeyTableEntries;
inline constexpr size_t kKeyTableBytes = kKeyTableWords * sizeof(uint32_t);  // 16 MiB

inline size_t KeyTableIndex(uint32_t pixel) {
  return size_t((pixel >> 17) & 0x7F) << 14 | size_t((pixel >> 9) & 0x7F) << 7 | size_t((pixel >> 1) & 0x7F);
}

// Builds the table in place in `table` (kKeyTableWords words): the colours
// 2i, 2j, 2k are keyed with `kernel` against a black null colour, then
// expanded from the last entry down so no second buffer is needed.
void BuildKeyTable(uint32_t* table, const ChromaKeyParams& params, ChromaKeyFn kernel);

// Per byte: min(255, colour + (background * a) >> 8). The background is `bg`
// (alpha byte included) or, when null, the null colour with alpha 255.
using KeyTableApplyFn = void (*)(uint32_t* dst, const uint32_t* bg, size_t count, const uint32_t* table,
                                 uint32_t null_rgb);
void ApplyKeyTableScalar(uint32_t* dst, const uint32_t* bg, size_t count, const uint32_t* table, uint32_t null_rgb);
void ApplyKeyTableSse2(uint32_t* dst, const uint32_t* bg, size_t count, const uint32_t* table, uint32_t null_rgb);
void ApplyKeyTableAvx2(uint32_t* dst, const uint32_t* bg, size_t count, const uint32_t* table, uint32_t null_rgb);
KeyTableApplyFn ApplyKeyTableKernel();

}  // namespace nimbo
