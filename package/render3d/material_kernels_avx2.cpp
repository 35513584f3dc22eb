// The AVX2 texture-building kernels: the shared bodies over eight lanes.
// Reached only through MaterialKernelsAvx2() when the CPU has AVX2.
//
// All headers come first; AVX2 code generation is switched on only for the
// definitions after them, which have internal linkage (the kernel set itself
// is plain data), so no inline function shared with other files is ever
// compiled for AVX2. FMA stays off: the light maps must round like the
// scalar reference.
#include <immintrin.h>

#include "render3d/material_kernels.h"
#include "shared/simd_lanes_avx2.h"

#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx2"))), apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx2")
#endif

#include "material_kernels_simd.h"

namespace nimbo {
namespace {

struct MatLanes256 : simd::Lanes256 {
  using F = __m256;
  static F FSet1(float v) { return _mm256_set1_ps(v); }
  static F FAdd(F a, F b) { return _mm256_add_ps(a, b); }
  static F FSub(F a, F b) { return _mm256_sub_ps(a, b); }
  static F FMul(F a, F b) { return _mm256_mul_ps(a, b); }
  static F FDiv(F a, F b) { return _mm256_div_ps(a, b); }
  static F FSqrt(F a) { return _mm256_sqrt_ps(a); }
  static F FMax(F a, F b) { return _mm256_max_ps(a, b); }
  static F FMin(F a, F b) { return _mm256_min_ps(a, b); }
  static F FXor(F a, F b) { return _mm256_xor_ps(a, b); }
  static F FCmpGt(F a, F b) { return _mm256_cmp_ps(a, b, _CMP_GT_OQ); }
  static F CvtF(T a) { return _mm256_cvtepi32_ps(a); }
  static T CvtTrunc(F a) { return _mm256_cvttps_epi32(a); }
  static F CastF(T a) { return _mm256_castsi256_ps(a); }
  static T CastI(F a) { return _mm256_castps_si256(a); }
  static T LaneIndex() { return _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7); }
};

void SphereLightRowAvx2(uint32_t* row, int32_t w, int32_t h, int32_t y, const SphereLight& light) {
  SphereLightRowBody<MatLanes256>(row, w, h, y, light);
}
void ApplyLightMapAvx2(const uint32_t* light, uint32_t* tex, size_t count) {
  ApplyLightMapBody<MatLanes256>(light, tex, count);
}
void BlurRowAvx2(const uint32_t* above, const uint32_t* row, const uint32_t* below, uint32_t* dst, size_t count) {
  BlurRowBody<MatLanes256>(above, row, below, dst, count);
}

}  // namespace
}  // namespace nimbo

#if defined(__clang__)
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif

namespace nimbo {

const MaterialKernels& MaterialKernelsAvx2() {
  static const MaterialKernels k{"avx2", SphereLightRowAvx2, ApplyLightMapAvx2, BlurRowAvx2};
  return k;
}

}  // namespace nimbo
