#include "distorter_sample.h"

#include <emmintrin.h>
#include <immintrin.h>

#include <algorithm>
#include <cstdint>

#include "distorter_map.h"
#include "core/cpu.h"

namespace nimbo::distorter {

namespace {

// ---- source prefetch ---------------------------------------------------------------
// A warp reads the input along a slanted band; moving down one output row
// moves the band down about one input row, so each row needs ~a row of new
// input lines scattered over the whole band, where no hardware prefetcher
// finds them and every one waits for memory. Touching the lines a few rows
// below the current samples fetches them in time for the rows that follow
// (measured: 40-50 % off the per-frame time of a typical morph at 1080p).
// For warps that do not move that way it costs two wasted hints per eight
// pixels. The address is kept inside the input; a prefetch never faults
// anyway, but nothing here points past the buffer.
constexpr int32_t kPrefetchRows = 3;

inline void PrefetchBelow(const uint32_t* src, int32_t offset, int32_t ahead, int32_t last) {
  _mm_prefetch(reinterpret_cast<const char*>(src + std::min(offset + ahead, last)), _MM_HINT_T0);
}

// The two maps are plain streams, but the hardware prefetcher alone lets
// the blend wait for them (the loads after the map reads were the hottest
// spot in a profile); asking for the entries 1 KB ahead measured ~8 % off a
// bilinear frame. A hint past the end of a row is harmless: prefetches never
// fault, and it only warms the next row.
constexpr int32_t kMapPrefetch = 256;  // entries

inline void PrefetchMaps(const uint32_t* map_a, const uint32_t* map_b) {
  // Integer arithmetic: the address may lie past the maps' end.
  constexpr uintptr_t kAhead = kMapPrefetch * sizeof(uint32_t);
  _mm_prefetch(reinterpret_cast<const char*>(reinterpret_cast<uintptr_t>(map_a) + kAhead), _MM_HINT_T0);
  _mm_prefetch(reinterpret_cast<const char*>(reinterpret_cast<uintptr_t>(map_b) + kAhead), _MM_HINT_T0);
}

// ---- edge guard --------------------------------------------------------------------

// The limits of step 3 and the neighbour steps of the bilinear sample, from
// the input size. 8 * (kMaxInputSide - 1) - 1 still fits a signed 16-bit lane.
struct Edge {
  int32_t max_x3;  // largest blended x, 3 fractional bits
  int32_t max_y3;
  int32_t step_x;  // x1 - x0: 1, or 0 on an input 1 pixel wide
  int32_t step_y;  // pixels from row y0 to row y1: width, or 0 when 1 pixel high
};

Edge EdgeOf(const SampleParams& p) {
  return {p.width >= 2 ? 8 * (p.width - 1) - 1 : 0, p.height >= 2 ? 8 * (p.height - 1) - 1 : 0, p.width >= 2 ? 1 : 0,
          p.height >= 2 ? p.width : 0};
}

// ---- scalar reference -------------------------------------------------------------

inline void BlendPosition(uint32_t a, uint32_t b, int32_t w, const Edge& e, int32_t* x3, int32_t* y3) {
  const int32_t ax = int32_t(a >> 17), ay = int32_t((a & 0xFFFF) >> 1);
  const int32_t bx = int32_t(b >> 17), by = int32_t((b & 0xFFFF) >> 1);
  *x3 = std::min((ax * (32768 - w) + bx * w) >> 15, e.max_x3);
  *y3 = std::min((ay * (32768 - w) + by * w) >> 15, e.max_y3);
}

void NearestScalar(const uint32_t* map_a, const uint32_t* map_b, uint32_t* dst, int32_t count,
                   const SampleParams& params) {
  const SampleParams p = params;  // a copy the stores to dst provably do not alias
  const Edge e = EdgeOf(p);
  for (int32_t i = 0; i < count; ++i) {
    int32_t x3, y3;
    BlendPosition(map_a[i], map_b[i], p.weight, e, &x3, &y3);
    dst[i] = p.src[(y3 >> 3) * p.width + (x3 >> 3)];
  }
}

void BilinearScalar(const uint32_t* map_a, const uint32_t* map_b, uint32_t* dst, int32_t count,
                    const SampleParams& params) {
  const SampleParams p = params;  // a copy the stores to dst provably do not alias
  const Edge e = EdgeOf(p);
  for (int32_t i = 0; i < count; ++i) {
    int32_t x3, y3;
    BlendPosition(map_a[i], map_b[i], p.weight, e, &x3, &y3);
    const int32_t fx = x3 & 7, fy = y3 & 7;
    const int32_t w00 = (8 - fx) * (8 - fy), w01 = fx * (8 - fy), w10 = (8 - fx) * fy, w11 = fx * fy;
    const uint32_t* s = p.src + (y3 >> 3) * p.width + (x3 >> 3);
    const uint32_t p00 = s[0], p01 = s[e.step_x], p10 = s[e.step_y], p11 = s[e.step_y + e.step_x];
    uint32_t out = 0;
    for (int shift = 0; shift < 32; shift += 8) {
      auto c = [shift](uint32_t v) { return int32_t((v >> shift) & 0xFF); };
      const int32_t sum = c(p00) * w00 + c(p01) * w01 + c(p10) * w10 + c(p11) * w11;
      out |= uint32_t(sum >> 6) << shift;
    }
    dst[i] = out;
  }
}

// ---- SSE2 --------------------------------------------------------------------------------
// Four pixels at a time. 16-bit lanes of a map vector: [y0 x0 y1 x1 y2 x2 y3 x3].
// Neighbours are fetched with plain loads, here and in the AVX2 kernels: on
// the AMD Zen 4 we profiled, the instructions waiting on 64-bit gathers took
// most of a bilinear frame, and plain loads ran it in about half the time.

// The edge limits in the lane order of a map vector.
inline __m128i LimitSse2(const Edge& e) {
  return _mm_set1_epi32(int32_t(uint32_t(e.max_x3) << 16 | uint32_t(e.max_y3)));
}

// Blended and guarded positions with 3 fractional bits, same lane order.
inline __m128i BlendSse2(const uint32_t* map_a, const uint32_t* map_b, int32_t w, __m128i limit) {
  const __m128i a = _mm_srli_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(map_a)), 1);
  if (w == 0) return _mm_min_epi16(a, limit);
  const __m128i b = _mm_srli_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(map_b)), 1);
  if (w == 32768) return _mm_min_epi16(b, limit);
  const __m128i weights = _mm_set1_epi32(int32_t(uint32_t(32768 - w) | (uint32_t(w) << 16)));
  const __m128i lo = _mm_srai_epi32(_mm_madd_epi16(_mm_unpacklo_epi16(a, b), weights), 15);
  const __m128i hi = _mm_srai_epi32(_mm_madd_epi16(_mm_unpackhi_epi16(a, b), weights), 15);
  return _mm_min_epi16(_mm_packs_epi32(lo, hi), limit);
}

// Pixel offsets y * width + x of the integer parts.
inline __m128i OffsetsSse2(__m128i pos, int32_t width) {
  return _mm_madd_epi16(_mm_srli_epi16(pos, 3), _mm_set1_epi32(width | (1 << 16)));
}

void NearestSse2(const uint32_t* map_a, const uint32_t* map_b, uint32_t* dst, int32_t count,
                 const SampleParams& params) {
  const SampleParams p = params;  // a copy the stores to dst provably do not alias
  const __m128i limit = LimitSse2(EdgeOf(p));
  const uint32_t* src = p.src;
  const int32_t ahead = kPrefetchRows * p.width, last = p.width * p.height - 1;
  alignas(16) int32_t at[4];
  int32_t i = 0;
  for (; i + 4 <= count; i += 4) {
    if ((i & 15) == 0) PrefetchMaps(map_a + i, map_b + i);
    _mm_store_si128(reinterpret_cast<__m128i*>(at),
                    OffsetsSse2(BlendSse2(map_a + i, map_b + i, p.weight, limit), p.width));
    if ((i & 4) == 0) PrefetchBelow(src, at[0], ahead, last);
    dst[i] = src[at[0]];
    dst[i + 1] = src[at[1]];
    dst[i + 2] = src[at[2]];
    dst[i + 3] = src[at[3]];
  }
  NearestScalar(map_a + i, map_b + i, dst + i, count - i, p);
}

inline __m128i LoadPair(const uint32_t* s) { return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(s)); }

// Two pixels on one row: `pair0`/`pair1` hold each pixel's left and right
// neighbour (64 bits); `wl`/`wr` their weights, one pixel per 64 bits.
// Answers left * wl + right * wr in 16-bit lanes (at most 255 * 64).
inline __m128i RowSumSse2(__m128i pair0, __m128i pair1, __m128i wl, __m128i wr) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i both = _mm_unpacklo_epi32(pair0, pair1);  // [l0 l1 r0 r1]
  const __m128i left = _mm_unpacklo_epi8(both, zero);
  const __m128i right = _mm_unpackhi_epi8(both, zero);
  return _mm_add_epi16(_mm_mullo_epi16(left, wl), _mm_mullo_epi16(right, wr));
}

// The low 16 bits of 32-bit lanes 0, 1 (SpreadLo) or 2, 3 (SpreadHi),
// repeated over the four channels of their pixel.
inline __m128i SpreadLo(__m128i v) {
  return _mm_shufflehi_epi16(_mm_shufflelo_epi16(_mm_unpacklo_epi32(v, v), 0x00), 0x00);
}
inline __m128i SpreadHi(__m128i v) {
  return _mm_shufflehi_epi16(_mm_shufflelo_epi16(_mm_unpackhi_epi32(v, v), 0x00), 0x00);
}

void BilinearSse2(const uint32_t* map_a, const uint32_t* map_b, uint32_t* dst, int32_t count,
                  const SampleParams& params) {
  const SampleParams p = params;  // a copy the stores to dst provably do not alias
  const Edge e = EdgeOf(p);
  // The pair loads read x0 and x0 + 1; an input 1 pixel wide has no x0 + 1.
  if (e.step_x == 0) return BilinearScalar(map_a, map_b, dst, count, p);
  const __m128i limit = LimitSse2(e);
  const uint32_t* src = p.src;
  const int32_t below = e.step_y;
  const int32_t ahead = kPrefetchRows * p.width, last = p.width * p.height - 1;
  const __m128i seven = _mm_set1_epi16(7), eight = _mm_set1_epi16(8);
  alignas(16) int32_t at[4];
  int32_t i = 0;
  for (; i + 4 <= count; i += 4) {
    if ((i & 15) == 0) PrefetchMaps(map_a + i, map_b + i);
    const __m128i pos = BlendSse2(map_a + i, map_b + i, p.weight, limit);
    _mm_store_si128(reinterpret_cast<__m128i*>(at), OffsetsSse2(pos, p.width));
    PrefetchBelow(src, at[0], ahead, last);
    // 32-bit lane k: fy in the low 16 bits, fx in the high 16 bits. The
    // weights below are valid in the low 16 bits, which is all Spread reads.
    const __m128i frac = _mm_and_si128(pos, seven);
    const __m128i fx = _mm_srli_epi32(frac, 16);
    const __m128i gx = _mm_sub_epi16(eight, fx);    // 8 - fx
    const __m128i gy = _mm_sub_epi16(eight, frac);  // 8 - fy
    const __m128i w00 = _mm_mullo_epi16(gx, gy), w01 = _mm_mullo_epi16(fx, gy);
    const __m128i w10 = _mm_mullo_epi16(gx, frac), w11 = _mm_mullo_epi16(fx, frac);
    const __m128i top0 = RowSumSse2(LoadPair(src + at[0]), LoadPair(src + at[1]), SpreadLo(w00), SpreadLo(w01));
    const __m128i bottom0 =
        RowSumSse2(LoadPair(src + at[0] + below), LoadPair(src + at[1] + below), SpreadLo(w10), SpreadLo(w11));
    const __m128i top1 = RowSumSse2(LoadPair(src + at[2]), LoadPair(src + at[3]), SpreadHi(w00), SpreadHi(w01));
    const __m128i bottom1 =
        RowSumSse2(LoadPair(src + at[2] + below), LoadPair(src + at[3] + below), SpreadHi(w10), SpreadHi(w11));
    const __m128i out0 = _mm_srli_epi16(_mm_add_epi16(top0, bottom0), 6);
    const __m128i out1 = _mm_srli_epi16(_mm_add_epi16(top1, bottom1), 6);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), _mm_packus_epi16(out0, out1));
  }
  BilinearScalar(map_a + i, map_b + i, dst + i, count - i, p);
}

// ---- AVX2 ----------------------------------------------------------------------------------
// Eight pixels at a time, neighbours again from plain loads.

NIMBO_TARGET_AVX2 inline __m256i BlendAvx2(const uint32_t* map_a, const uint32_t* map_b, int32_t w, __m256i limit) {
  const __m256i a = _mm256_srli_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(map_a)), 1);
  if (w == 0) return _mm256_min_epi16(a, limit);
  const __m256i b = _mm256_srli_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(map_b)), 1);
  if (w == 32768) return _mm256_min_epi16(b, limit);
  const __m256i weights = _mm256_set1_epi32(int32_t(uint32_t(32768 - w) | (uint32_t(w) << 16)));
  const __m256i lo = _mm256_srai_epi32(_mm256_madd_epi16(_mm256_unpacklo_epi16(a, b), weights), 15);
  const __m256i hi = _mm256_srai_epi32(_mm256_madd_epi16(_mm256_unpackhi_epi16(a, b), weights), 15);
  // unpack and pack both stay within 128-bit halves: the lane order is kept.
  return _mm256_min_epi16(_mm256_packs_epi32(lo, hi), limit);
}

NIMBO_TARGET_AVX2 void NearestAvx2(const uint32_t* map_a, const uint32_t* map_b, uint32_t* dst, int32_t count,
                                   const SampleParams& params) {
  const SampleParams p = params;  // a copy the stores to dst provably do not alias
  const __m256i limit = _mm256_broadcastsi128_si256(LimitSse2(EdgeOf(p)));
  const __m256i to_offset = _mm256_set1_epi32(p.width | (1 << 16));
  const uint32_t* src = p.src;
  const int32_t ahead = kPrefetchRows * p.width, last = p.width * p.height - 1;
  alignas(32) int32_t at[8];
  int32_t i = 0;
  for (; i + 8 <= count; i += 8) {
    PrefetchMaps(map_a + i, map_b + i);
    const __m256i pos = BlendAvx2(map_a + i, map_b + i, p.weight, limit);
    _mm256_store_si256(reinterpret_cast<__m256i*>(at), _mm256_madd_epi16(_mm256_srli_epi16(pos, 3), to_offset));
    PrefetchBelow(src, at[0], ahead, last);
    PrefetchBelow(src, at[4], ahead, last);
    const __m128i lo = _mm_insert_epi32(
        _mm_insert_epi32(_mm_insert_epi32(_mm_cvtsi32_si128(int32_t(src[at[0]])), int32_t(src[at[1]]), 1),
                         int32_t(src[at[2]]), 2),
        int32_t(src[at[3]]), 3);
    const __m128i hi = _mm_insert_epi32(
        _mm_insert_epi32(_mm_insert_epi32(_mm_cvtsi32_si128(int32_t(src[at[4]])), int32_t(src[at[5]]), 1),
                         int32_t(src[at[6]]), 2),
        int32_t(src[at[7]]), 3);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i),
                        _mm256_inserti128_si256(_mm256_castsi128_si256(lo), hi, 1));
  }
  NearestScalar(map_a + i, map_b + i, dst + i, count - i, p);
}

// Four pixels' neighbour pairs (left pixel in the low 32 bits) from the
// offsets k0 k1 | k2 k3: pixels k0, k1 in the low 128-bit half.
NIMBO_TARGET_AVX2 inline __m256i LoadPairs(const uint32_t* s, int32_t k0, int32_t k1, int32_t k2, int32_t k3) {
  auto two = [s](int32_t first, int32_t second) {
    const __m128i lo = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(s + first));
    return _mm_castpd_si128(_mm_loadh_pd(_mm_castsi128_pd(lo), reinterpret_cast<const double*>(s + second)));
  };
  return _mm256_inserti128_si256(_mm256_castsi128_si256(two(k0, k1)), two(k2, k3), 1);
}

// One row's share of four pixels as one multiply-add on bytes: each
// channel's left and right bytes side by side against that row's byte
// weights: left * w_left + right * w_right in 16-bit lanes (at most 255 * 64).
NIMBO_TARGET_AVX2 inline __m256i RowSumAvx2(__m256i pairs, __m256i side_by_side, __m256i weights) {
  return _mm256_maddubs_epi16(_mm256_shuffle_epi8(pairs, side_by_side), weights);
}

NIMBO_TARGET_AVX2 void BilinearAvx2(const uint32_t* map_a, const uint32_t* map_b, uint32_t* dst, int32_t count,
                                    const SampleParams& params) {
  const SampleParams p = params;  // a copy the stores to dst provably do not alias
  const Edge e = EdgeOf(p);
  // The pair loads read x0 and x0 + 1; an input 1 pixel wide has no x0 + 1.
  if (e.step_x == 0) return BilinearScalar(map_a, map_b, dst, count, p);
  const __m256i limit = _mm256_broadcastsi128_si256(LimitSse2(e));
  const __m256i to_offset = _mm256_set1_epi32(p.width | (1 << 16));
  const __m256i seven = _mm256_set1_epi16(7);
  const __m256i eight = _mm256_set1_epi16(8);
  // Bytes l0 l1 l2 l3 r0 r1 r2 r3 of each pair -> l0 r0 l1 r1 l2 r2 l3 r3.
  const __m256i side_by_side =
      _mm256_broadcastsi128_si256(_mm_setr_epi8(0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15));
  // The low 16 bits of 32-bit lanes 0, 1 (group A) or 2, 3 (group B) of
  // each half, repeated over the four channels of its pixel.
  const __m256i spread_a = _mm256_broadcastsi128_si256(_mm_setr_epi8(0, 1, 0, 1, 0, 1, 0, 1, 4, 5, 4, 5, 4, 5, 4, 5));
  const __m256i spread_b =
      _mm256_broadcastsi128_si256(_mm_setr_epi8(8, 9, 8, 9, 8, 9, 8, 9, 12, 13, 12, 13, 12, 13, 12, 13));
  const uint32_t* top = p.src;
  const uint32_t* bottom = p.src + e.step_y;
  const int32_t ahead = kPrefetchRows * p.width, last = p.width * p.height - 1;
  alignas(32) int32_t at[8];
  int32_t i = 0;
  for (; i + 8 <= count; i += 8) {
    PrefetchMaps(map_a + i, map_b + i);
    const __m256i pos = BlendAvx2(map_a + i, map_b + i, p.weight, limit);
    _mm256_store_si256(reinterpret_cast<__m256i*>(at), _mm256_madd_epi16(_mm256_srli_epi16(pos, 3), to_offset));
    PrefetchBelow(top, at[0], ahead, last);
    PrefetchBelow(top, at[4], ahead, last);
    // 32-bit lane k: fy in the low 16 bits, fx in the high 16 bits.
    const __m256i frac = _mm256_and_si256(pos, seven);
    const __m256i fx = _mm256_srli_epi32(frac, 16);
    // Low 16 bits: the byte pair (8 - fx, fx), times 8 - fy for the top row
    // and fy for the bottom row; no byte carries into the next (at most 64).
    const __m256i horizontal = _mm256_or_si256(_mm256_sub_epi16(eight, fx), _mm256_slli_epi32(fx, 8));
    const __m256i w_top = _mm256_mullo_epi16(horizontal, _mm256_sub_epi16(eight, frac));
    const __m256i w_bottom = _mm256_mullo_epi16(horizontal, frac);
    // Group A: pixels 0 1 | 4 5, group B: 2 3 | 6 7, so that packing A with
    // B per 128-bit half puts the eight pixels back in order.
    const __m256i sum_a = _mm256_add_epi16(
        RowSumAvx2(LoadPairs(top, at[0], at[1], at[4], at[5]), side_by_side, _mm256_shuffle_epi8(w_top, spread_a)),
        RowSumAvx2(LoadPairs(bottom, at[0], at[1], at[4], at[5]), side_by_side,
                   _mm256_shuffle_epi8(w_bottom, spread_a)));
    const __m256i sum_b = _mm256_add_epi16(
        RowSumAvx2(LoadPairs(top, at[2], at[3], at[6], at[7]), side_by_side, _mm256_shuffle_epi8(w_top, spread_b)),
        RowSumAvx2(LoadPairs(bottom, at[2], at[3], at[6], at[7]), side_by_side,
                   _mm256_shuffle_epi8(w_bottom, spread_b)));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i),
                        _mm256_packus_epi16(_mm256_srli_epi16(sum_a, 6), _mm256_srli_epi16(sum_b, 6)));
  }
  BilinearScalar(map_a + i, map_b + i, dst + i, count - i, p);
}

}  // namespace

SampleKernels ScalarSampleKernels() { return {NearestScalar, BilinearScalar}; }
SampleKernels Sse2SampleKernels() { return {NearestSse2, BilinearSse2}; }
SampleKernels Avx2SampleKernels() { return {NearestAvx2, BilinearAvx2}; }

const SampleKernels& ActiveSampleKernels() {
  static const SampleKernels kernels = CpuHasAvx2() ? Avx2SampleKernels() : Sse2SampleKernels();
  return kernels;
}

int32_t BlendWeight(float q) {
  if (!(q > 0)) return 0;
  if (q >= 1) return 32768;
  return int32_t(q * 32768.0f);
}

bool SampleFrame(const SampleKernels& kernels, const uint32_t* map_a, const uint32_t* map_b, uint32_t* dst,
                 int32_t width, int32_t height, const SampleParams& p, bool filtering) {
  if (!map_a || !map_b || !dst || !p.src || p.width < 1 || p.height < 1 || p.width > kMaxInputSide ||
      p.height > kMaxInputSide) {
    return false;
  }
  const SampleRowFn row = filtering ? kernels.bilinear : kernels.nearest;
  // Whole rows top to bottom: the maps and the output stream through in
  // order, which the hardware prefetchers follow. (Walking the frame in
  // tiles to keep the input band small measured slower: it breaks those
  // streams, and the input's lines come in through PrefetchBelow anyway.)
  for (int32_t y = 0; y < height; ++y) {
    const size_t at = size_t(y) * size_t(width);
    row(map_a + at, map_b + at, dst + at, width, p);
  }
  return true;
}

}  // namespace nimbo::distorter
