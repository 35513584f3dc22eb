// The SIMD bodies of the keying kernels, written once over a vector type V of
// 32-bit lanes (one pixel per lane) and included by the SSE2 and the AVX2
// translation unit, each after defining its V. Only those two files include
// this; everything here has internal linkage, so the AVX2 instantiations can
// never stand in for the SSE2 ones.
//
// V provides: T, kLanes, Load, Store, Set1, And, Or, AndNot (~a & b), Xor,
// Add, Sub, Srai<n>, Srli<n>, Slli<n>, Madd (pairs of 16-bit products summed
// in 32 bits), CmpGt (signed), MulLo (low 32 bits of the product), Abs,
// MinU32 (unsigned min), AnyLane, Blend (mask ? a : b), PackPixels
// (saturating B, G, R, A lanes into pixels), BackgroundPairs (each colour
// byte paired with the luma weight), Gather (32-bit table entries),
// KeyTableEntries, MulBytesShr8, AddsU8.
//
// The arithmetic and the reasons no 16-bit operand overflows are in
// chroma_key_kernel.h.
#pragma once

namespace nimbo {
namespace {

// A 32-bit lane holding the 16-bit pair (lo, hi), the operand layout of Madd.
inline int32_t PairOf(int32_t lo, int32_t hi) { return int32_t((uint32_t(lo) & 0xFFFF) | uint32_t(hi) << 16); }

template <class V>
struct MatrixRows {
  // Per output channel: the pair (B, R) weights and the G weight, matching the
  // (B, R) and (G, 0) pairs cut from each pixel.
  typename V::T br[3], g[3];
  explicit MatrixRows(const ColorMatrix& m) {
    for (int k = 0; k < 3; ++k) {
      br[k] = V::Set1(PairOf(m.m[k][2], m.m[k][0]));
      g[k] = V::Set1(PairOf(m.m[k][1], 0));
    }
  }
  // The recoloured pixels with alpha 0.
  typename V::T Apply(typename V::T pair_br, typename V::T pair_g) const {
    typename V::T out[3];
    for (int k = 0; k < 3; ++k) out[k] = V::template Srai<8>(V::Add(V::Madd(pair_br, br[k]), V::Madd(pair_g, g[k])));
    return V::PackPixels(out[2], out[1], out[0], V::Set1(0));
  }
};

template <class V>
void ChromaKeyBody(uint32_t* dst, const uint32_t* bg, size_t count, const ChromaKeyParams& p) {
  using T = typename V::T;
  const T low_bytes = V::Set1(0x00FF00FF), byte = V::Set1(0xFF), low_half = V::Set1(0xFFFF);
  const T x_br = V::Set1(PairOf(p.cx[2], p.cx[0])), x_g = V::Set1(PairOf(p.cx[1], 0));
  const T z_br = V::Set1(PairOf(p.cz[2], p.cz[0])), z_g = V::Set1(PairOf(p.cz[1], 0));
  const T y_br = V::Set1(PairOf(25, 65)), y_g = V::Set1(PairOf(129, 0));
  // tan_factor and inv_mag take the cheap 16-bit multiply when they fit in it:
  // the other operand (|Z|, or X' on keyed lanes) then has a zero high half,
  // so Madd gives the exact product.
  const bool tan_16 = p.tan_factor >= 0 && p.tan_factor <= 0x7FFF;
  const bool inv_16 = p.inv_mag >= 0 && p.inv_mag <= 0x7FFF;
  const T tan_factor = V::Set1(tan_16 ? PairOf(p.tan_factor, 0) : p.tan_factor);
  const T inv_mag = V::Set1(inv_16 ? PairOf(p.inv_mag, 0) : p.inv_mag);
  const T k_mag = V::Set1(p.k_mag), noise_sq = V::Set1(p.noise_sq);
  // For an unsigned min without the instruction: flip the sign bits, compare signed.
  const T sign = V::Set1(INT32_MIN), limit = V::Set1(int32_t(254u ^ 0x80000000u));
  const T luma_hi = V::Set1(PairOf(0, p.rec.l));
  T zt[3];
  for (int k = 0; k < 3; ++k) zt[k] = V::Set1(PairOf(p.rec.z[k], p.rec.t[k]));
  const bool null_colour = bg == nullptr;
  T null_pair[3];
  for (int k = 0; k < 3; ++k) null_pair[k] = V::Set1(PairOf(int32_t((p.null_rgb >> (16 - 8 * k)) & 0xFF), p.rec.l));
  const MatrixRows<V> matrix(p.matrix);
  const T zero = V::Set1(0), full = V::Set1(255);

  size_t i = 0;
  for (; i + V::kLanes <= count; i += V::kLanes) {
    const T px = V::Load(dst + i);
    const T pair_br = V::And(px, low_bytes);                        // (B, R)
    const T pair_g = V::And(V::template Srli<8>(px), byte);          // (G, 0)
    const T x = V::template Srai<8>(V::Add(V::Madd(pair_br, x_br), V::Madd(pair_g, x_g)));
    const T z = V::template Srai<8>(V::Add(V::Madd(pair_br, z_br), V::Madd(pair_g, z_g)));
    const T abs_z = V::Abs(z);
    const T t = V::template Srli<8>(tan_16 ? V::Madd(abs_z, tan_factor) : V::MulLo(abs_z, tan_factor));
    const T x_cone = V::Sub(x, t);
    const T keyed = V::CmpGt(x_cone, zero);
    const T fore = p.colortrafo ? matrix.Apply(pair_br, pair_g) : px;
    if (!V::AnyLane(keyed)) {
      V::Store(dst + i, fore);
      continue;
    }

    T a = V::template Srli<8>(inv_16 ? V::Madd(x_cone, inv_mag) : V::MulLo(x_cone, inv_mag));
    a = V::MinU32(a, full, sign, limit);
    if (!p.lut_identity) a = V::Gather(p.lut, a);
    if (p.noise_sq != 0) {
      const T d = V::Sub(x, k_mag);
      const T zd = V::Or(V::And(z, low_half), V::template Slli<16>(d));
      a = V::Or(a, V::And(V::CmpGt(noise_sq, V::Madd(zd, zd)), full));
    }
    const T luma = V::template Srai<8>(V::Add(V::Madd(pair_br, y_br), V::Madd(pair_g, y_g)));
    const T luma_left = V::template Srli<8>(V::Madd(V::Sub(full, a), luma));
    const T a_luma = V::Or(a, V::template Slli<16>(luma_left));   // (a, Y")
    const T z_t = V::Or(V::And(z, low_half), V::template Slli<16>(t));  // (Z, t)

    T out[3];
    if (null_colour) {
      for (int k = 0; k < 3; ++k) {
        out[k] = V::template Srai<8>(V::Add(V::Madd(null_pair[k], a_luma), V::Madd(z_t, zt[k])));
      }
    } else {
      T g_pair[3];
      V::BackgroundPairs(V::Load(bg + i), luma_hi, g_pair);
      for (int k = 0; k < 3; ++k) {
        out[k] = V::template Srai<8>(V::Add(V::Madd(g_pair[k], a_luma), V::Madd(z_t, zt[k])));
      }
    }
    const T key_px = V::PackPixels(out[2], out[1], out[0], null_colour ? a : zero);
    V::Store(dst + i, V::Blend(keyed, key_px, fore));
  }
  ChromaKeyScalar(dst + i, bg ? bg + i : nullptr, count - i, p);
}

template <class V>
void ColorMatrixBody(const uint32_t* src, uint32_t* dst, size_t count, const ColorMatrix& m) {
  using T = typename V::T;
  const T low_bytes = V::Set1(0x00FF00FF), byte = V::Set1(0xFF), alpha = V::Set1(int32_t(0xFF000000u));
  const MatrixRows<V> matrix(m);
  size_t i = 0;
  for (; i + V::kLanes <= count; i += V::kLanes) {
    const T px = V::Load(src + i);
    const T rgb = matrix.Apply(V::And(px, low_bytes), V::And(V::template Srli<8>(px), byte));
    V::Store(dst + i, V::Or(rgb, V::And(px, alpha)));
  }
  ColorMatrixScalar(src + i, dst + i, count - i, m);
}

template <class V>
void XtractAlphaBody(const uint32_t* src, uint32_t* dst, size_t count, bool invert) {
  using T = typename V::T;
  const T flip = V::Set1(invert ? 0xFF : 0);
  size_t i = 0;
  for (; i + V::kLanes <= count; i += V::kLanes) {
    const T alpha = V::template Srli<24>(V::Load(src + i));
    const T grey = V::Xor(alpha, flip);
    const T rgb = V::Or(grey, V::Or(V::template Slli<8>(grey), V::template Slli<16>(grey)));
    V::Store(dst + i, V::Or(rgb, V::template Slli<24>(alpha)));
  }
  XtractAlphaScalar(src + i, dst + i, count - i, invert);
}

template <class V>
void ApplyKeyTableBody(uint32_t* dst, const uint32_t* bg, size_t count, const uint32_t* table, uint32_t null_rgb) {
  using T = typename V::T;
  const T red = V::Set1(0x1FC000), green = V::Set1(0x3F80), blue = V::Set1(0x7F);
  const T null_word = V::Set1(int32_t(0xFF000000u | (null_rgb & 0xFFFFFF)));
  size_t i = 0;
  for (; i + V::kLanes <= count; i += V::kLanes) {
    const T px = V::Load(dst + i);
    const T index = V::Or(V::Or(V::And(V::template Srli<3>(px), red), V::And(V::template Srli<2>(px), green)),
                          V::And(V::template Srli<1>(px), blue));
    T colour, alpha;
    V::KeyTableEntries(table, index, colour, alpha);
    const T back = bg ? V::Load(bg + i) : null_word;
    V::Store(dst + i, V::AddsU8(colour, V::MulBytesShr8(back, alpha)));
  }
  ApplyKeyTableScalar(dst + i, bg ? bg + i : nullptr, count - i, table, null_rgb);
}

}  // namespace
}  // namespace nimbo
