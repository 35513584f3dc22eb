// The AVX2 version: the shared body over eight lanes, reached only through
// RetinaKernel() when the CPU has AVX2. Headers first; AVX2 code generation
// covers only the definitions after them (internal linkage).
#include "retina_killer_kernel.h"
#include "shared/simd_lanes_avx2.h"

#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx2"))), apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx2")
#endif

#include "retina_killer_kernel_simd.h"

namespace nimbo {

namespace {
struct StreamAvx2 {
  static constexpr size_t kAlign = 32;
  static void Put(uint32_t* p, __m256i v) { _mm256_stream_si256(reinterpret_cast<__m256i*>(p), v); }
  static void Finish() { _mm_sfence(); }
};
}  // namespace

void RetinaAvx2(const uint32_t* src, uint32_t* dst, uint8_t* fatigue, size_t count, const RetinaParams& params) {
  RetinaBody<simd::Lanes256, StreamAvx2>(src, dst, fatigue, count, params);
}

}  // namespace nimbo

#if defined(__clang__)
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif
