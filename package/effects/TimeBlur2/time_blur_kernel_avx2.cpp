// The AVX2 plain step: the shared body over eight lanes, reached only through
// TimeBlurStepKernel() when the CPU has AVX2. Headers first; AVX2 code
// generation covers only the definitions after them (internal linkage).
#include "shared/simd_lanes_avx2.h"
#include "time_blur_kernel.h"

#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx2"))), apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx2")
#endif

#include "time_blur_kernel_simd.h"

namespace nimbo {

void TimeBlurStepAvx2(const uint32_t* src, uint32_t* dst, uint32_t* ring, uint16_t* sum, size_t count,
                      const TimeBlurParams& params) {
  TimeBlurStepBody<simd::Lanes256>(src, dst, ring, sum, count, params);
}

}  // namespace nimbo

#if defined(__clang__)
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif
