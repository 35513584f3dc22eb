// The scalar reference, the SSE2 version (SSE2 is the baseline of every
// x86-64 CPU) and the choice per CPU.
#include "xtract_alpha_kernel.h"

#include "core/cpu.h"
#include "shared/simd_lanes.h"
#include "xtract_alpha_kernel_simd.h"

namespace nimbo {

void XtractAlphaScalar(const uint32_t* src, uint32_t* dst, size_t count, bool invert) {
  const uint32_t flip = invert ? 0xFF : 0;
  for (size_t i = 0; i < count; ++i) {
    const uint32_t alpha = src[i] >> 24;
    dst[i] = alpha << 24 | (alpha ^ flip) * 0x010101u;
  }
}

void XtractAlphaSse2(const uint32_t* src, uint32_t* dst, size_t count, bool invert) {
  XtractAlphaBody<simd::Lanes128>(src, dst, count, invert);
}

XtractAlphaFn XtractAlphaKernel() {
  static const XtractAlphaFn fn = CpuHasAvx2() ? XtractAlphaAvx2 : XtractAlphaSse2;
  return fn;
}

}  // namespace nimbo
