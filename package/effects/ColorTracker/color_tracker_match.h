// ColorTracker's per-pixel match score and the match cache that keeps each
// pixel's score for the current frame.
//
// The score reuses the chroma cone of ChromaKeyPRO: with X the pixel's chroma
// along the object colour's direction and Z across it (both >> 8), a pixel
// outside the cone (X < |Z| * tanFactor >> 8) scores 0; inside, its depth
// d = X - t into the cone gives m = min(d * 65536 / D, 255) and the score
// (m * m) >> 8, so well-matching pixels dominate the moments. D is the object
// colour's chroma magnitude (integer part) times 256, at least 256.
//
// The cache holds one 32-bit frame stamp and one score byte per screen pixel.
// A pixel whose stamp equals the current stamp already has this frame's
// score; the search reads overlapping windows many times per frame and pays
// for each pixel's score only once.
//
// Kernels: MatchSpan* fill the cache for one span of a row. The scalar
// version is the reference; the SSE2 and AVX2 versions give identical bytes.
#pragma once

#include <cstdint>

namespace nimbo {

// Cone half-angles the tracker accepts, in degrees. Narrower than half a
// degree matches almost nothing; 90 degrees and wider would accept half of
// all colours. Inside this range tanFactor fits 16 bits, which the SIMD
// kernels rely on.
inline constexpr float kMinTolerance = 0.5f;
inline constexpr float kMaxTolerance = 89.5f;

struct MatchParams {
  int16_t xr = 0, xg = 0, xb = 0;  // projection along the object's chroma
  int16_t zr = 0, zg = 0, zb = 0;  // projection across it
  int32_t tan_factor = 0;          // 256 / tan(tolerance)
  int32_t divisor = 256;           // D = max(trunc(mag), 1) * 256
  // Score by cone depth d = X - t, for d = 0..255. Depths beyond the table
  // all score 254 (m saturates at 255 well before d reaches 255, because mag
  // never exceeds 128 for 8-bit colours).
  uint8_t score_by_depth[256] = {};
};

// Match parameters for an object colour 0xRRGGBB and a cone half-angle in
// degrees (clamped to kMinTolerance..kMaxTolerance).
MatchParams ComputeMatchParams(uint32_t object_rgb, float tolerance_degrees);

// The score of one 0xAARRGGBB pixel, straight from the definition (no table):
// the reference the kernels and the table are checked against.
uint8_t MatchScoreDirect(uint32_t pixel, const MatchParams& p);

// Fills the cache for `count` pixels: every pixel whose stamp differs from
// `stamp` gets its score and the stamp; stamped pixels keep their score.
using MatchSpanFn = void (*)(const uint32_t* pixels, uint32_t* stamps, uint8_t* scores, int32_t count,
                             uint32_t stamp, const MatchParams& p);
void MatchSpanScalar(const uint32_t* pixels, uint32_t* stamps, uint8_t* scores, int32_t count, uint32_t stamp,
                           const MatchParams& p);
void MatchSpanSse2(const uint32_t* pixels, uint32_t* stamps, uint8_t* scores, int32_t count, uint32_t stamp,
                         const MatchParams& p);
void MatchSpanAvx2(const uint32_t* pixels, uint32_t* stamps, uint8_t* scores, int32_t count, uint32_t stamp,
                         const MatchParams& p);
// The fastest version this CPU runs, chosen once.
MatchSpanFn MatchSpanKernel();

}  // namespace nimbo
