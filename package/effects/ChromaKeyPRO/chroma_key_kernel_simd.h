// The SIMD bodies of ChromaKeyPRO's kernels, written once over a vector type
// V of 32-bit lanes (one pixel per lane) and included by the SSE2, the AVX2
// and the AVX-512 translation unit, each after defining its V. Only those
// files include this; everything here has internal linkage, so the
// instantiations of one can never stand in for another's.
//
// V provides the operations of shared/simd_lanes.h (the SSE2 and AVX2 types
// derive from those lanes) and the keying's own: MinU32 (unsigned min),
// BackgroundPairs (each colour byte paired with the luma weight), Gather
// (32-bit table entries),
// LookUpAlpha (the alpha LUT over four vectors of indices 0..255),
// kConeShuffles and LookUpCone (a over four vectors straight from X'),
// KeyTableEntries, MulBytesShr8, AddsU8; optionally Tables (see
// LookupTablesOf).
//
// The arithmetic and the reasons no 16-bit operand overflows are in
// chroma_key_kernel.h.
#pragma once

#include <array>
#include <utility>

#include "shared/colour_matrix_simd.h"

namespace nimbo {
namespace {

// Which branches of the key one pass takes, fixed per call so that each
// combination gets its own loop with no tests inside: the null colour instead
// of a background, the noise radius, the colour transform on foreground
// pixels, and tan_factor and inv_mag both fitting the 16-bit multiply.
struct KeyMode {
  bool null_colour, noise, recolour, madd16;
};

// The per-call constants of the chroma-cone key and its per-vector steps.
// Everything the loop reads is copied out of the parameters here: the stores
// to the frame go through a type that may alias anything, so values left in
// the parameters would be loaded again on every step.
template <class V, KeyMode kMode>
class KeyLanes {
 public:
  using T = typename V::T;

  // One vector of pixels after the projection.
  struct Projected {
    T px, x, z, t;
    T keyed;  // all ones where X' > 0
  };

  explicit KeyLanes(const ChromaKeyParams& p) : matrix_(p.matrix) {
    x_br_ = V::Set1(PairOf(p.cx[2], p.cx[0]));
    x_g_ = V::Set1(PairOf(p.cx[1], 0));
    z_br_ = V::Set1(PairOf(p.cz[2], p.cz[0]));
    z_g_ = V::Set1(PairOf(p.cz[1], 0));
    // tan_factor and inv_mag take the cheap 16-bit multiply when they fit in
    // it: the other operand (|Z|, or X' on keyed lanes) then has a zero high
    // half, so Madd gives the exact product.
    tan_factor_ = V::Set1(kMode.madd16 ? PairOf(p.tan_factor, 0) : p.tan_factor);
    inv_mag_ = V::Set1(kMode.madd16 ? PairOf(p.inv_mag, 0) : p.inv_mag);
    k_mag_ = V::Set1(p.k_mag);
    noise_sq_ = V::Set1(p.noise_sq);
    luma_hi_ = V::Set1(PairOf(0, p.rec.l));
    for (int k = 0; k < 3; ++k) {
      zt_[k] = V::Set1(PairOf(p.rec.z[k], p.rec.t[k]));
      null_pair_[k] = V::Set1(PairOf(int32_t((p.null_rgb >> (16 - 8 * k)) & 0xFF), p.rec.l));
    }
  }

  Projected Project(T px) const {
    const T pair_br = V::And(px, V::Set1(0x00FF00FF)), pair_g = PairG(px);
    Projected f;
    f.px = px;
    f.x = V::template Srai<8>(V::Add(V::Madd(pair_br, x_br_), V::Madd(pair_g, x_g_)));
    f.z = V::template Srai<8>(V::Add(V::Madd(pair_br, z_br_), V::Madd(pair_g, z_g_)));
    const T abs_z = V::Abs(f.z);
    f.t = V::template Srli<8>(kMode.madd16 ? V::Madd(abs_z, tan_factor_) : V::MulLo(abs_z, tan_factor_));
    f.keyed = V::CmpGt(V::Sub(f.x, f.t), V::Set1(0));
    return f;
  }

  // min(255, (inv_mag * X') >> 8), the LUT's index; meaningless but still
  // within 0..255 on foreground lanes.
  T RawAlpha(const Projected& f) const {
    const T x_cone = V::Sub(f.x, f.t);
    const T a = V::template Srli<8>(kMode.madd16 ? V::Madd(x_cone, inv_mag_) : V::MulLo(x_cone, inv_mag_));
    return V::MinU32(a, V::Set1(255), V::Set1(INT32_MIN), V::Set1(int32_t(254u ^ 0x80000000u)));
  }

  // Foreground lanes as they are written.
  T Foreground(T px) const {
    return kMode.recolour ? matrix_.Apply(V::And(px, V::Set1(0x00FF00FF)), PairG(px)) : px;
  }

  // The finished pixels, given a after the LUT; `back` is the background
  // vector's address, unused with the null colour.
  T Finish(const Projected& f, T a, const uint32_t* back) const {
    const T full = V::Set1(255), low_half = V::Set1(0xFFFF);
    if constexpr (kMode.noise) {
      const T d = V::Sub(f.x, k_mag_);
      const T zd = V::Or(V::And(f.z, low_half), V::template Slli<16>(d));
      a = V::Or(a, V::And(V::CmpGt(noise_sq_, V::Madd(zd, zd)), full));
    }
    const T pair_br = V::And(f.px, V::Set1(0x00FF00FF)), pair_g = PairG(f.px);
    const T luma = V::template Srai<8>(
        V::Add(V::Madd(pair_br, V::Set1(PairOf(25, 65))), V::Madd(pair_g, V::Set1(PairOf(129, 0)))));
    const T luma_left = V::template Srli<8>(V::Madd(V::Sub(full, a), luma));
    const T a_luma = V::Or(a, V::template Slli<16>(luma_left));            // (a, Y")
    const T z_t = V::Or(V::And(f.z, low_half), V::template Slli<16>(f.t));  // (Z, t)
    T out[3];
    if constexpr (kMode.null_colour) {
      for (int k = 0; k < 3; ++k) {
        out[k] = V::template Srai<8>(V::Add(V::Madd(null_pair_[k], a_luma), V::Madd(z_t, zt_[k])));
      }
    } else {
      T g_pair[3];
      V::BackgroundPairs(V::Load(back), luma_hi_, g_pair);
      for (int k = 0; k < 3; ++k) {
        out[k] = V::template Srai<8>(V::Add(V::Madd(g_pair[k], a_luma), V::Madd(z_t, zt_[k])));
      }
    }
    const T key_px = V::PackPixels(out[2], out[1], out[0], kMode.null_colour ? a : V::Set1(0));
    const T fore = kMode.recolour ? matrix_.Apply(pair_br, pair_g) : f.px;
    return V::Blend(f.keyed, key_px, fore);
  }

 private:
  static T PairG(T px) { return V::And(V::template Srli<8>(px), V::Set1(0xFF)); }  // (G, 0)

  MatrixRows<V> matrix_;
  T x_br_, x_g_, z_br_, z_g_, tan_factor_, inv_mag_, k_mag_, noise_sq_, luma_hi_;
  T zt_[3], null_pair_[3];
};

// Blocks of kBlockVectors vectors: a block with no keyed pixel is skipped (or
// only recoloured), and the alpha LUT is looked up for a whole block at once,
// which is what V::LookUpAlpha needs to use byte shuffles. The rest goes
// vector by vector with a gather, then pixel by pixel.
// The cache lines of kPixels pixels from `block`.
template <size_t kPixels>
inline void Prefetch(const uint32_t* block) {
  for (size_t k = 0; k < kPixels; k += 16) __builtin_prefetch(block + k);
}

// What LookUpAlpha and LookUpCone read: V::Tables, when V has one, built once
// per call from the parameters (tables rearranged to stay in registers);
// otherwise the parameters themselves.
template <class V>
struct LookupTablesOf {
  using Type = const ChromaKeyParams&;
};
template <class V>
  requires requires { typename V::Tables; }
struct LookupTablesOf<V> {
  using Type = const typename V::Tables;
};

template <class V, KeyMode kMode>
void ChromaKeyLoop(uint32_t* dst, const uint32_t* bg, size_t count, const ChromaKeyParams& p) {
  using T = typename V::T;
  using Lanes = KeyLanes<V, kMode>;
  constexpr size_t kLanes = V::kLanes, kBlockVectors = 4, kBlock = kBlockVectors * kLanes;
  // Each block asks for as many pixels ahead as it covers, at least 32.
  constexpr size_t kPrefetchPixels = kBlock > 32 ? kBlock : 32;
  constexpr bool recolour = kMode.recolour;
  constexpr size_t kPrefetchAhead = 512;  // pixels, 2 KiB: from 256 to 1024 all did as well
  const Lanes k(p);
  const bool lut_identity = p.lut_identity;
  // The identity LUT is skipped; any other is looked up from X' where V can.
  const bool cone_lookup = V::kConeShuffles && !lut_identity && p.cone_rows_usable;
  typename LookupTablesOf<V>::Type tables(p);

  size_t i = 0;
  for (; i + kBlock <= count; i += kBlock) {
    // The frame and the background stream through once; asking for them a
    // little ahead keeps the loads from waiting on memory (the hardware
    // prefetcher alone left a third of the time there). The background is
    // asked for only while blocks are keyed: the subject never reads it.
    const bool ahead = i + kPrefetchAhead + kPrefetchPixels <= count;
    if (ahead) Prefetch<kPrefetchPixels>(dst + i + kPrefetchAhead);
    typename Lanes::Projected f[kBlockVectors];
    T keyed = V::Set1(0);
    for (size_t j = 0; j < kBlockVectors; ++j) {
      f[j] = k.Project(V::Load(dst + i + j * kLanes));
      keyed = V::Or(keyed, f[j].keyed);
    }
    if (!V::AnyLane(keyed)) {
      // All foreground: without the colour transform the pixels already
      // stand as they must.
      if constexpr (recolour) {
        for (size_t j = 0; j < kBlockVectors; ++j) V::Store(dst + i + j * kLanes, k.Foreground(f[j].px));
      }
      continue;
    }
    if (bg && ahead) Prefetch<kPrefetchPixels>(bg + i + kPrefetchAhead);
    T a[kBlockVectors];
    if (cone_lookup) {
      T x_cone[kBlockVectors];
      for (size_t j = 0; j < kBlockVectors; ++j) x_cone[j] = V::Sub(f[j].x, f[j].t);
      V::LookUpCone(tables, x_cone, a);
    } else {
      for (size_t j = 0; j < kBlockVectors; ++j) a[j] = k.RawAlpha(f[j]);
      if (!lut_identity) V::LookUpAlpha(tables, a);
    }
    // Vector j's background is read after vectors 0 .. j-1 are stored, which
    // is still before its own pixels are: `bg` may be `dst`.
    for (size_t j = 0; j < kBlockVectors; ++j) {
      V::Store(dst + i + j * kLanes, k.Finish(f[j], a[j], bg ? bg + i + j * kLanes : nullptr));
    }
  }
  for (; i + kLanes <= count; i += kLanes) {
    const typename Lanes::Projected f = k.Project(V::Load(dst + i));
    if (!V::AnyLane(f.keyed)) {
      if constexpr (recolour) V::Store(dst + i, k.Foreground(f.px));
      continue;
    }
    T a = k.RawAlpha(f);
    if (!lut_identity) a = V::Gather(p.lut, a);
    V::Store(dst + i, k.Finish(f, a, bg ? bg + i : nullptr));
  }
  ChromaKeyScalar(dst + i, bg ? bg + i : nullptr, count - i, p);
}

template <class V, size_t... kModes>
constexpr std::array<ChromaKeyFn, sizeof...(kModes)> ChromaKeyLoops(std::index_sequence<kModes...>) {
  return {&ChromaKeyLoop<V, KeyMode{(kModes & 1) != 0, (kModes & 2) != 0, (kModes & 4) != 0, (kModes & 8) != 0}>...};
}

template <class V>
void ChromaKeyBody(uint32_t* dst, const uint32_t* bg, size_t count, const ChromaKeyParams& p) {
  static constexpr std::array<ChromaKeyFn, 16> kLoops = ChromaKeyLoops<V>(std::make_index_sequence<16>());
  const bool madd16 = p.tan_factor >= 0 && p.tan_factor <= 0x7FFF && p.inv_mag >= 0 && p.inv_mag <= 0x7FFF;
  const size_t mode = size_t(bg == nullptr) | size_t(p.noise_sq != 0) << 1 | size_t(p.colortrafo) << 2 |
                      size_t(madd16) << 3;
  kLoops[mode](dst, bg, count, p);
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
