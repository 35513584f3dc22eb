// XtractAlpha's kernel: R = G = B = the alpha byte (255 minus it when
// inverted); the alpha byte itself is kept so the matte survives further
// effects. `src` may equal `dst`. XtractAlphaScalar is the reference, the
// SSE2 and AVX2 versions are one body over simd lanes
// (xtract_alpha_kernel_simd.h), XtractAlphaKernel() answers the best for this
// CPU, chosen once.
#pragma once

#include <cstddef>
#include <cstdint>

namespace nimbo {

using XtractAlphaFn = void (*)(const uint32_t* src, uint32_t* dst, size_t count, bool invert);
void XtractAlphaScalar(const uint32_t* src, uint32_t* dst, size_t count, bool invert);
void XtractAlphaSse2(const uint32_t* src, uint32_t* dst, size_t count, bool invert);
// Call only when CpuHasAvx2().
void XtractAlphaAvx2(const uint32_t* src, uint32_t* dst, size_t count, bool invert);
XtractAlphaFn XtractAlphaKernel();

}  // namespace nimbo
