// The AVX2 version: the shared body over eight lanes, reached only through
// XtractAlphaKernel() when the CPU has AVX2. Headers first; AVX2 code
// generation covers only the definitions after them (internal linkage).
#include "shared/simd_lanes_avx2.h"
#include "xtract_alpha_kernel.h"

#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx2"))), apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx2")
#endif

#include "xtract_alpha_kernel_simd.h"

namespace nimbo {

void XtractAlphaAvx2(const uint32_t* src, uint32_t* dst, size_t count, bool invert) {
  XtractAlphaBody<simd::Lanes256>(src, dst, count, invert);
}

}  // namespace nimbo

#if defined(__clang__)
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif
