// The texture-building kernels over a vector type V: shared/simd_lanes.h's
// integer lanes plus the float operations the light maps need (each
// instruction set's file derives its V and adds them). Included by that file
// inside its code generation region; internal linkage throughout.
//
// The light-map body does the scalar reference's float operations in the
// same order, lane by lane, so results agree to the bit: no fused
// multiply-add, IEEE division and square root, and the reference's clamps
// written as max/min whose NaN rules give the reference's answers (NaN -> 0).
#pragma once

#include <cstddef>
#include <cstdint>

#include "material_kernels_internal.h"

namespace nimbo {
namespace {

// trunc(s * k) clamped to 0..255 (NaN -> 0), 0 outside the sphere.
template <class V>
typename V::T LightChannel(typename V::F s, typename V::F k, typename V::T inside) {
  const typename V::F v = V::FMin(V::FMax(V::FMul(s, k), V::FSet1(0.0f)), V::FSet1(255.0f));
  return V::And(V::CvtTrunc(v), inside);
}

template <class V>
void SphereLightRowBody(uint32_t* row, int32_t w, int32_t h, int32_t y, const SphereLight& light) {
  using T = typename V::T;
  using F = typename V::F;
  constexpr int32_t kLanes = int32_t(V::kLanes);
  const float fw_s = float(w), fh_s = float(h);
  const float v_s = (2.0f * float(y) / fh_s - 1.0f) * fh_s / (fh_s + 2.0f);
  const float vv_s = v_s * v_s;
  const LightColor c = LightColorOf(light.color);
  const int32_t squarings = ClampedSquarings(light.squarings);
  const F fw = V::FSet1(fw_s), fw2 = V::FSet1(fw_s + 2.0f), two = V::FSet1(2.0f), one = V::FSet1(1.0f);
  const F zero = V::FSet1(0.0f), full = V::FSet1(255.0f), vv = V::FSet1(vv_s), v = V::FSet1(v_s);
  const F lx = V::FSet1(light.dir.x), ly = V::FSet1(light.dir.y), lz = V::FSet1(light.dir.z);
  const F cr = V::FSet1(c.r), cg = V::FSet1(c.g), cb = V::FSet1(c.b);
  const F sign = V::CastF(V::Set1(int32_t(0x80000000u)));
  T xs = V::LaneIndex();
  const T step = V::Set1(kLanes);
  int32_t x = 0;
  for (; x + kLanes <= w; x += kLanes, xs = V::Add(xs, step)) {
    const F u = V::FDiv(V::FMul(V::FSub(V::FDiv(V::FMul(two, V::CvtF(xs)), fw), one), fw), fw2);
    const F q = V::FSub(V::FSub(one, V::FMul(u, u)), vv);
    const T inside = V::CastI(V::FCmpGt(q, zero));
    if (!V::AnyLane(inside)) continue;
    const F nz = V::FXor(V::FSqrt(q), sign);
    F i;
    if (light.specular) {
      const F d = V::FAdd(V::FAdd(V::FMul(lx, u), V::FMul(ly, v)), V::FMul(lz, nz));
      i = V::FXor(V::FSub(lz, V::FMul(V::FMul(two, nz), d)), sign);
    } else {
      i = V::FXor(V::FAdd(V::FAdd(V::FMul(u, lx), V::FMul(v, ly)), V::FMul(nz, lz)), sign);
    }
    i = V::FMax(i, zero);  // NaN and negatives -> 0, as the reference
    for (int32_t n = 0; n < squarings; ++n) i = V::FMul(i, i);
    const F s = V::FMul(full, i);
    const T add = V::PackPixels(LightChannel<V>(s, cb, inside), LightChannel<V>(s, cg, inside),
                                LightChannel<V>(s, cr, inside), V::Set1(0));
    V::Store(row + x, V::AddsU8(V::Load(row + x), add));
  }
  SphereLightSpanScalar(row, x, w, w, h, y, light);
}

template <class V>
void ApplyLightMapBody(const uint32_t* light, uint32_t* tex, size_t count) {
  using T = typename V::T;
  const T half = V::Set1(int32_t(0x80808080u)), rgb = V::Set1(0x00FFFFFF);
  size_t i = 0;
  for (; i + V::kLanes <= count; i += V::kLanes) {
    const T l = V::Load(light + i);
    // One of up and down is 0 per byte; doubling saturates, and T - 255
    // already clamps to 0 where the reference subtracts 256.
    const T up = V::SubsU8(l, half), down = V::SubsU8(half, l);
    const T t = V::AddsU8(V::Load(tex + i), V::AddsU8(up, up));
    V::Store(tex + i, V::And(V::SubsU8(t, V::AddsU8(down, down)), rgb));
  }
  ApplyLightMapScalar(light + i, tex + i, count - i);
}

// The 1-2-1 sums around p[0 .. kLanes-1] per byte as 16-bit words (at most
// 4 * 255), of the first or the second half of the pixels.
template <class V, bool kHigh>
typename V::T BlurLine(const uint32_t* p) {
  using T = typename V::T;
  const T l = V::Load(p - 1), c = V::Load(p), r = V::Load(p + 1);
  const T wl = kHigh ? V::WidenHighBytes(l) : V::WidenLowBytes(l);
  const T wc = kHigh ? V::WidenHighBytes(c) : V::WidenLowBytes(c);
  const T wr = kHigh ? V::WidenHighBytes(r) : V::WidenLowBytes(r);
  return V::AddsU16(V::AddsU16(wl, wr), V::AddsU16(wc, wc));
}

template <class V>
void BlurRowBody(const uint32_t* above, const uint32_t* row, const uint32_t* below, uint32_t* dst, size_t count) {
  using T = typename V::T;
  if (count < 3) return;
  size_t x = 1;
  for (; x + V::kLanes <= count - 1; x += V::kLanes) {
    const T mid_lo = BlurLine<V, false>(row + x), mid_hi = BlurLine<V, true>(row + x);
    const T lo = V::SrlU16(
        V::AddsU16(V::AddsU16(BlurLine<V, false>(above + x), BlurLine<V, false>(below + x)), V::AddsU16(mid_lo, mid_lo)),
        4);
    const T hi = V::SrlU16(
        V::AddsU16(V::AddsU16(BlurLine<V, true>(above + x), BlurLine<V, true>(below + x)), V::AddsU16(mid_hi, mid_hi)),
        4);
    V::Store(dst + x, V::PackU16(lo, hi));
  }
  // The rest through the reference over the window one pixel to the left.
  if (x < count - 1) BlurRowScalar(above + x - 1, row + x - 1, below + x - 1, dst + x - 1, count - x + 1);
}

}  // namespace
}  // namespace nimbo
