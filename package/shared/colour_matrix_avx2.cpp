// The AVX2 colour matrix: the shared body over eight lanes. Reached only
// through ColorMatrixKernel() when the CPU has AVX2.
//
// All headers come first; AVX2 code generation is switched on only for the
// definitions after them, which have internal linkage, so no inline function
// shared with other files is ever compiled for AVX2.
#include "shared/colour_matrix.h"
#include "shared/simd_lanes_avx2.h"

#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx2"))), apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx2")
#endif

#include "shared/colour_matrix_simd.h"

namespace nimbo {

void ColorMatrixAvx2(const uint32_t* src, uint32_t* dst, size_t count, const ColorMatrix& m) {
  ColorMatrixBody<simd::Lanes256>(src, dst, count, m);
}

}  // namespace nimbo

#if defined(__clang__)
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif
