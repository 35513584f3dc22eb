// The scalar reference, the SSE2 version (SSE2 is the baseline of every
// x86-64 CPU) and the choice per CPU; the AVX2 version is in
// retina_killer_kernel_avx2.cpp, the same body over eight lanes.
#include "retina_killer_kernel.h"

#include <algorithm>

#include "core/cpu.h"
#include "retina_killer_kernel_simd.h"
#include "shared/simd_lanes.h"

namespace nimbo {

void RetinaScalar(const uint32_t* src, uint32_t* dst, uint8_t* fatigue, size_t count, const RetinaParams& params) {
  const uint8_t* s8 = reinterpret_cast<const uint8_t*>(src);
  uint8_t* d8 = reinterpret_cast<uint8_t*>(dst);
  const int32_t limits[4] = {params.limit, params.limit, params.limit, 255};
  for (size_t i = 0; i < count * 4; ++i) {
    int32_t in = s8[i];
    int32_t f = fatigue[i];
    d8[i] = uint8_t(std::min(255, in + f));
    fatigue[i] = uint8_t(std::max(0, std::min(255, f + std::max(0, in - limits[i & 3])) - params.fade));
  }
}

namespace {
struct StreamSse2 {
  static constexpr size_t kAlign = 16;
  static void Put(uint32_t* p, __m128i v) { _mm_stream_si128(reinterpret_cast<__m128i*>(p), v); }
  static void Finish() { _mm_sfence(); }
};
}  // namespace

void RetinaSse2(const uint32_t* src, uint32_t* dst, uint8_t* fatigue, size_t count, const RetinaParams& params) {
  RetinaBody<simd::Lanes128, StreamSse2>(src, dst, fatigue, count, params);
}

RetinaFn RetinaKernel() {
  static const RetinaFn fn = CpuHasAvx2() ? RetinaAvx2 : RetinaSse2;
  return fn;
}

}  // namespace nimbo
