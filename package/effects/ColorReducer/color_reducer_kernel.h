// ColorReducer's row kernel: each of B, G and R is reduced to n bits and
// spread back over 0..255; alpha is kept.
//
// Per channel value c with threshold offset d (0..254):
//   q = (c * L + d) / 255                   the level, L = 2^n - 1
//   out = (q * m) >> 8, m = ceil(65280 / L)  spread back: level L is 255
// Without dithering d = 127, so q is the nearest level. With ordered
// dithering d = ((2M + 1) * 255) >> 7 for the 8x8 Bayer index M (0..63) of
// the pixel's position: the thresholds spread evenly across one level step,
// so a flat area keeps its average brightness. n = 8 is the identity.
// Everything fits 16-bit lanes (c * L + d <= 65279), and / 255 is computed
// as (x + 1 + (x >> 8)) >> 8, exact in that range.
#pragma once

#include <cstdint>

namespace nimbo::color_reducer {

struct ReduceParams {
  int32_t levels = 255;  // L
  int32_t mul = 256;     // m
  // Dither offsets of one row: 16 pixels (the row's 8-pixel Bayer pattern
  // twice) x 4 byte lanes (B, G, R, then 0 for alpha), starting at x = 0.
  const uint16_t* pattern = nullptr;
};

// Computes levels and mul for n bits (1..8).
ReduceParams ParamsForBits(int32_t bits);
// Fills `pattern` (64 entries) for row y; 127 everywhere without dithering.
void FillDitherPattern(int32_t bits, bool dither, int32_t y, uint16_t* pattern);
// The Bayer index of (x, y): 0..63.
int32_t BayerIndex(int32_t x, int32_t y);

// Pixels [x0, x0 + count) of one row; `pattern` is indexed by x mod 8.
using ReduceRowFn = void (*)(const uint32_t* src, uint32_t* dst, int32_t x0, int32_t count, const ReduceParams& p);
void ReduceRowScalar(const uint32_t* src, uint32_t* dst, int32_t x0, int32_t count, const ReduceParams& p);
void ReduceRowSse2(const uint32_t* src, uint32_t* dst, int32_t x0, int32_t count, const ReduceParams& p);
ReduceRowFn ReduceRowKernel();

}  // namespace nimbo::color_reducer
