// The SSE2 texture-building kernels: the shared bodies over four lanes.
#include <emmintrin.h>

#include "render3d/material_kernels.h"
#include "shared/simd_lanes.h"

#include "material_kernels_simd.h"

namespace nimbo {
namespace {

// Four 32-bit lanes with the float operations of the light maps.
struct MatLanes128 : simd::Lanes128 {
  using F = __m128;
  static F FSet1(float v) { return _mm_set1_ps(v); }
  static F FAdd(F a, F b) { return _mm_add_ps(a, b); }
  static F FSub(F a, F b) { return _mm_sub_ps(a, b); }
  static F FMul(F a, F b) { return _mm_mul_ps(a, b); }
  static F FDiv(F a, F b) { return _mm_div_ps(a, b); }
  static F FSqrt(F a) { return _mm_sqrt_ps(a); }
  // max(a, b) and min(a, b) answer b when a is NaN.
  static F FMax(F a, F b) { return _mm_max_ps(a, b); }
  static F FMin(F a, F b) { return _mm_min_ps(a, b); }
  static F FXor(F a, F b) { return _mm_xor_ps(a, b); }
  static F FCmpGt(F a, F b) { return _mm_cmpgt_ps(a, b); }
  static F CvtF(T a) { return _mm_cvtepi32_ps(a); }
  static T CvtTrunc(F a) { return _mm_cvttps_epi32(a); }
  static F CastF(T a) { return _mm_castsi128_ps(a); }
  static T CastI(F a) { return _mm_castps_si128(a); }
  static T LaneIndex() { return _mm_setr_epi32(0, 1, 2, 3); }
};

void SphereLightRowSse2(uint32_t* row, int32_t w, int32_t h, int32_t y, const SphereLight& light) {
  SphereLightRowBody<MatLanes128>(row, w, h, y, light);
}
void ApplyLightMapSse2(const uint32_t* light, uint32_t* tex, size_t count) {
  ApplyLightMapBody<MatLanes128>(light, tex, count);
}
void BlurRowSse2(const uint32_t* above, const uint32_t* row, const uint32_t* below, uint32_t* dst, size_t count) {
  BlurRowBody<MatLanes128>(above, row, below, dst, count);
}

}  // namespace

const MaterialKernels& MaterialKernelsSse2() {
  static const MaterialKernels k{"sse2", SphereLightRowSse2, ApplyLightMapSse2, BlurRowSse2};
  return k;
}

}  // namespace nimbo
