// The per-pixel kernels of building a material texture: the 3x3 blur pass,
// the sphere light maps and the application of a light map to a texture.
//
// Each kernel has a scalar version, the reference, and SSE2 and AVX2
// versions that give the same bytes (one body over simd lanes,
// material_kernels_simd.h). MaterialKernelsBest() answers the set for this
// CPU, chosen once. The light maps are single precision throughout, with the
// same operations in the same order in every version, so they agree to the
// bit.
#pragma once

#include <cstddef>
#include <cstdint>

namespace nimbo {

// The light direction of a layer: (l_x, l_y, sqrt(1 - l_x^2 - l_y^2)) when
// l_x^2 + l_y^2 <= 1, else (l_x, l_y, 0) scaled to unit length.
struct LightVec {
  float x, y, z;
};
LightVec LightVector(float l_x, float l_y);

// One sphere light added to a light map.
struct SphereLight {
  LightVec dir;
  int32_t color = 0;     // 0x00RRGGBB
  int32_t squarings = 0; // I is squared this many times (I to the power 2^n)
  bool specular = false; // reflected-light intensity instead of diffuse
};

// More squarings change nothing: any I in [0, 1) has reached 0 by then, 1
// stays 1 and larger values are already infinite.
inline constexpr int32_t kMaxSquarings = 64;

// Adds (per channel, saturating at 255) row y of a w x h sphere light map to
// `row` (w pixels). For pixel x: u = (2x/w - 1) * w / (w + 2), likewise v
// from y and h, q = 1 - u^2 - v^2; nothing where q <= 0; else n_z = -sqrt(q)
// and I = -(u Lx + v Ly + n_z Lz) (diffuse) or -(Lz - 2 n_z (Lx u + Ly v +
// Lz n_z)) (specular), negative I taken as 0, squared `squarings` times,
// each channel trunc(255 * I * channel / 255) clamped to 0..255.
using SphereLightRowFn = void (*)(uint32_t* row, int32_t w, int32_t h, int32_t y, const SphereLight& light);

// Lights `count` texture pixels in place with light map values L, per
// channel: T + 2L - 256 clamped to 0..255 (L < 128 darkens, L = 128 keeps,
// L > 128 brightens); the alpha byte of the result is 0.
using ApplyLightMapFn = void (*)(const uint32_t* light, uint32_t* tex, size_t count);

// One 3x3 pass (1 2 1 / 2 4 2 / 1 2 1, sum / 16 truncated, on all four bytes)
// for the inner pixels 1 .. count-2 of a row: reads the rows above, at and
// below (count pixels each), writes dst[1 .. count-2]. `dst` must not
// overlap the source rows.
using BlurRowFn = void (*)(const uint32_t* above, const uint32_t* row, const uint32_t* below, uint32_t* dst,
                           size_t count);

struct MaterialKernels {
  const char* name;
  SphereLightRowFn sphere_light_row;
  ApplyLightMapFn apply_light_map;
  BlurRowFn blur_row;
};

void SphereLightRowScalar(uint32_t* row, int32_t w, int32_t h, int32_t y, const SphereLight& light);
void ApplyLightMapScalar(const uint32_t* light, uint32_t* tex, size_t count);
void BlurRowScalar(const uint32_t* above, const uint32_t* row, const uint32_t* below, uint32_t* dst, size_t count);

const MaterialKernels& MaterialKernelsScalar();
const MaterialKernels& MaterialKernelsSse2();
// Use only when CpuHasAvx2().
const MaterialKernels& MaterialKernelsAvx2();
const MaterialKernels& MaterialKernelsBest();

}  // namespace nimbo
