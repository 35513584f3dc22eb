// Scalar references of ChromaKeyPRO's kernels, the key table build, and the
// choice of version per CPU. The SIMD versions live in
// chroma_key_kernel_sse2.cpp, chroma_key_kernel_avx2.cpp and
// chroma_key_kernel_avx512.cpp.
#include "chroma_key_kernel.h"

#include <algorithm>
#include <cstdlib>

#include "core/cpu.h"

namespace nimbo {

namespace {

inline int32_t Red(uint32_t p) { return int32_t((p >> 16) & 0xFF); }
inline int32_t Green(uint32_t p) { return int32_t((p >> 8) & 0xFF); }
inline int32_t Blue(uint32_t p) { return int32_t(p & 0xFF); }
inline uint32_t Byte(int32_t v) { return uint32_t(std::clamp(v, 0, 255)); }

inline uint32_t KeyPixel(uint32_t p, uint32_t background, bool null_colour, const ChromaKeyParams& k) {
  const int32_t r = Red(p), g = Green(p), b = Blue(p);
  const int32_t x = (k.cx[0] * r + k.cx[1] * g + k.cx[2] * b) >> 8;
  const int32_t z = (k.cz[0] * r + k.cz[1] * g + k.cz[2] * b) >> 8;
  const uint32_t t = (uint32_t(std::abs(z)) * uint32_t(k.tan_factor)) >> 8;
  const int32_t x_cone = x - int32_t(t);
  if (x_cone <= 0) return k.colortrafo ? ColorMatrixPixel(k.matrix, p) : p;

  uint32_t a = (uint32_t(k.inv_mag) * uint32_t(x_cone)) >> 8;
  if (a >= 255) a = 255;
  int32_t alpha = k.lut[a];
  const int32_t dx = x - k.k_mag;
  if (k.noise_sq != 0 && z * z + dx * dx < k.noise_sq) alpha = 255;

  const int32_t luma = (65 * r + 129 * g + 25 * b) >> 8;
  const int32_t luma_left = ((255 - alpha) * luma) >> 8;
  const int32_t keyed = int32_t(t);  // below 640 here, see the header
  auto channel = [&](int32_t c, int32_t bg_byte) {
    return Byte((bg_byte * alpha + k.rec.l * luma_left + k.rec.z[c] * z + k.rec.t[c] * keyed) >> 8);
  };
  const uint32_t out = channel(0, Red(background)) << 16 | channel(1, Green(background)) << 8 |
                       channel(2, Blue(background));
  return null_colour ? out | uint32_t(alpha) << 24 : out;
}

}  // namespace

void ChromaKeyScalar(uint32_t* dst, const uint32_t* bg, size_t count, const ChromaKeyParams& params) {
  for (size_t i = 0; i < count; ++i) {
    dst[i] = KeyPixel(dst[i], bg ? bg[i] : params.null_rgb, bg == nullptr, params);
  }
}

bool CpuHasKeyAvx512() {
#if defined(__x86_64__) || defined(__i386__)
  static const bool has = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                          __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vbmi");
  return has;
#else
  return false;
#endif
}

ChromaKeyFn ChromaKeyKernel() {
  static const ChromaKeyFn fn = CpuHasKeyAvx512() ? ChromaKeyAvx512 : CpuHasAvx2() ? ChromaKeyAvx2 : ChromaKeySse2;
  return fn;
}

void BuildKeyTable(uint32_t* table, const ChromaKeyParams& params, ChromaKeyFn kernel) {
  for (uint32_t n = 0; n < kKeyTableEntries; ++n) {
    // n = i << 14 | j << 7 | k  ->  R = 2i, G = 2j, B = 2k
    table[n] = (n >> 14) << 17 | ((n >> 7) & 0x7F) << 9 | (n & 0x7F) << 1;
  }
  ChromaKeyParams black = params;
  black.null_rgb = 0;
  kernel(table, nullptr, kKeyTableEntries, black);
  // Entry n occupies words 2n and 2n+1, at or after word n: going down, every
  // word still to be read lies below the ones being written.
  for (size_t n = kKeyTableEntries; n-- > 0;) {
    const uint32_t w = table[n];
    table[2 * n] = w & 0x00FFFFFF;
    table[2 * n + 1] = (w >> 24) * 0x01010101u;
  }
}

void ApplyKeyTableScalar(uint32_t* dst, const uint32_t* bg, size_t count, const uint32_t* table, uint32_t null_rgb) {
  const uint32_t null_word = 0xFF000000u | (null_rgb & 0xFFFFFF);
  for (size_t i = 0; i < count; ++i) {
    const size_t e = 2 * KeyTableIndex(dst[i]);
    const uint32_t colour = table[e], a = table[e + 1] & 0xFF;
    const uint32_t back = bg ? bg[i] : null_word;
    uint32_t out = 0;
    for (int shift = 0; shift < 32; shift += 8) {
      uint32_t sum = ((colour >> shift) & 0xFF) + ((((back >> shift) & 0xFF) * a) >> 8);
      out |= std::min(sum, 255u) << shift;
    }
    dst[i] = out;
  }
}

KeyTableApplyFn ApplyKeyTableKernel() {
  static const KeyTableApplyFn fn = CpuHasAvx2() ? ApplyKeyTableAvx2 : ApplyKeyTableSse2;
  return fn;
}

}  // namespace nimbo
