// ChromaKeyPRO's own fixed-point maths, computed once per setting change:
// the reconstruction coefficients of keyed pixels, the alpha map and its
// LUT, and the bundle of everything the per-pixel kernel reads. The
// foreground's colour matrix is shared with ColorTrafo (shared/colour_matrix.h).
//
// Fixed point: every coefficient has 8 fractional bits and is made by
// TruncToInt16 (shared/fixed_point.h): settings far outside the dialog's
// ranges wrap rather than saturate; that is the behaviour, and the kernels
// agree on it because they all read the same 16-bit values.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "shared/color_math.h"
#include "shared/colour_matrix.h"
#include "shared/fixed_point.h"

namespace nimbo {

// How a keyed pixel's foreground remainder is rebuilt from its luma, its
// chroma across the key direction (Z) and the cone's edge at that Z (t), per
// output channel R, G, B.
struct Reconstruction {
  int16_t l;     // luma weight, the same for all three channels
  int16_t t[3];  // weight of t
  int16_t z[3];  // weight of Z
};
Reconstruction ComputeReconstruction(int32_t kx, int32_t ky, const HueSatBright& hsb);

// ---- alpha map ------------------------------------------------------------------
// A user curve from raw transparency to applied transparency, both 0..1, as
// points with ascending x.
struct AlphaPoint {
  float x;
  float y;
};
inline constexpr int32_t kMaxAlphaMapPoints = 300;

// The curve at v: v itself for an empty map, the first y left of the first
// point, the last y right of the last, linear in between.
float AlphaCurve(std::span<const AlphaPoint> map, float v);
using AlphaLut = std::array<uint8_t, 256>;
// LUT[k] = curve(k / 255) * 255, truncated and clamped to 0..255.
AlphaLut BuildAlphaLut(std::span<const AlphaPoint> map);

// ---- the kernel's parameters -----------------------------------------------------
// Everything one keying pass reads, derived from the key colour and settings.
struct ChromaKeyParams {
  int16_t cx[3];  // projection onto the key direction, R G B
  int16_t cz[3];  // projection across it
  int32_t tan_factor;
  int32_t inv_mag;
  int32_t k_mag;
  int32_t noise_sq;   // 0 disables the noise test
  Reconstruction rec;
  ColorMatrix matrix;
  bool colortrafo;    // recolour foreground pixels through `matrix`
  bool lut_identity;  // lets SIMD versions skip the table lookup
  uint32_t null_rgb;  // background colour when the kernel gets no background
  int32_t lut[256];   // the alpha LUT, widened so SIMD code can gather from it
  // The same LUT as 16 rows for 16-entry byte shuffles (see SetAlphaLut).
  alignas(16) uint8_t lut_rows[16][16];
  // LUT[min(255, (inv_mag * X') >> 8)] for X' = 0..127, as 8 such rows. With
  // inv_mag >= 515 (any key whose chroma magnitude is below 127, which is
  // every coloured key) X' = 127 already reaches entry 255, so a keyed
  // pixel's a is this table at min(X', 127).
  bool cone_rows_usable;
  alignas(16) uint8_t cone_rows[8][16];
};

// Stores `lut` in `params` (whose inv_mag must be set): the widened copy,
// the identity flag and the shuffle rows. Row h (h = 0..7) holds LUT entries 16h .. 16h+15 XOR the row
// of entries before them (row 0 as it is), and rows 8..15 the same for the
// upper half, so that XORing rows 0..n (or 8..n) gives the 16 entries of row n.
void SetAlphaLut(ChromaKeyParams& params, const AlphaLut& lut);

struct ChromaKeyInputs {
  uint32_t key_rgb = 0x0000FF;
  float angle = 50.0f;  // degrees
  float noise_level = 0.0f;
  bool colortrafo_used = false;
  HueSatBright colortrafo;  // used only when colortrafo_used
  uint32_t null_rgb = 0;
};
ChromaKeyParams MakeChromaKeyParams(const ChromaKeyInputs& in, const AlphaLut& lut);

}  // namespace nimbo
