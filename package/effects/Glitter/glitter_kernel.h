// Glitter's kernels: the luma of a row (to find bright pixels) and the star
// glint drawn over a bright pixel.
#pragma once

#include <cstdint>

namespace nimbo::glitter {

// Y = (77 R + 150 G + 29 B) >> 8: BT.601 luma weights in 8-bit fixed point.
using LumaRowFn = void (*)(const uint32_t* src, uint8_t* dst, int32_t count);
void LumaRowScalar(const uint32_t* src, uint8_t* dst, int32_t count);
void LumaRowSse2(const uint32_t* src, uint8_t* dst, int32_t count);
LumaRowFn LumaRowKernel();

// The twinkle: a triangle over the 8-bit phase, 0 -> 254 -> 0.
inline int32_t GlintAmplitude(uint8_t phase) { return phase < 128 ? 2 * phase : 2 * (255 - phase); }

// Adds a white star at (x, y) to R, G and B, saturating: the centre gets
// `amplitude`; the four axis arms reach `length` pixels with
// amplitude * (length + 1 - d) / (length + 1) at distance d; the four
// diagonal arms reach length / 2 with half that. Clipped to the frame.
void DrawGlint(uint32_t* frame, int32_t width, int32_t height, int32_t x, int32_t y, int32_t amplitude,
               int32_t length);

}  // namespace nimbo::glitter
