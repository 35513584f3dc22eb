// Which SIMD level the CPU offers, asked once. Kernels pick their version
// through a function pointer set from this, never per pixel.
#pragma once

namespace nimbo {

inline bool CpuHasAvx2() {
#if defined(__x86_64__) || defined(__i386__)
  static const bool has = __builtin_cpu_supports("avx2");
  return has;
#else
  return false;
#endif
}

// NIMBO_TARGET_AVX2 marks one function to be compiled for AVX2; callers
// reach it only when CpuHasAvx2().
#if defined(__x86_64__) || defined(__i386__)
#define NIMBO_TARGET_AVX2 __attribute__((target("avx2")))
#else
#define NIMBO_TARGET_AVX2
#endif

}  // namespace nimbo
