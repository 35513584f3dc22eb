#include "filters/box_blur_kernel.h"

#include <emmintrin.h>
#include <immintrin.h>

#include <algorithm>
#include <cmath>

#include "package/cpu.h"

namespace nimbo {

BoxBlurParams MakeBoxBlurParams(int32_t radius) {
  radius = std::clamp(radius, 0, kBoxBlurMaxRadius);
  const int32_t d = 2 * radius + 1;
  BoxBlurParams params{radius, 1.0f / float(d), 0, 0};
  if (radius >= 1 && radius <= kBoxBlurWordMaxRadius) {
    // The largest shift that keeps the rounded-up reciprocal within 16 bits.
    int32_t k = 0;
    while ((2 << k) < d) ++k;
    params.word_multiplier = uint16_t(((uint32_t(1) << (16 + k)) + uint32_t(d) - 1) / uint32_t(d));
    params.word_shift = k;
  }
  return params;
}

namespace {

// The quotient the SIMD versions compute, for their last few pixels: the
// same reciprocal arithmetic, which equals (sum + r) / d (see below).
inline uint32_t FastQuotient(int32_t sum, const BoxBlurParams& params) {
  if (params.word_multiplier != 0) {
    return (uint32_t(sum + params.radius) * params.word_multiplier) >> 16 >> params.word_shift;
  }
  return uint32_t(std::lrintf(float(sum) * params.inv_divisor));
}

void Advance(BoxBlurLane& lane, size_t n) {
  lane.leave += n * lane.leave_step;
  lane.enter += n * lane.enter_step;
  lane.dst += n;
}

template <bool kReference>
void StepLane(BoxBlurLane& lane, size_t n, const BoxBlurParams& params) {
  const int32_t r = params.radius;
  const int32_t d = 2 * r + 1;
  for (size_t x = 0; x < n; ++x) {
    uint32_t out = 0;
    const uint32_t enter = lane.enter[x * lane.enter_step], leave = lane.leave[x * lane.leave_step];
    for (int32_t k = 0; k < 4; ++k) {
      const int32_t s = lane.sum[k];
      out |= (kReference ? uint32_t((s + r) / d) : FastQuotient(s, params)) << (8 * k);
      lane.sum[k] = s + int32_t((enter >> (8 * k)) & 0xFF) - int32_t((leave >> (8 * k)) & 0xFF);
    }
    lane.dst[x] = out;
  }
  Advance(lane, n);
}

// Four pixels from `p` on, or the pixel at `p` four times.
template <bool kFixed>
inline __m128i Load4(const uint32_t* p) {
  return kFixed ? _mm_set1_epi32(int32_t(*p)) : _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

// Sign-extends the low (high) pixel of eight 16-bit differences to 32 bits.
inline __m128i LowPixel(__m128i d) { return _mm_srai_epi32(_mm_unpacklo_epi16(d, d), 16); }
inline __m128i HighPixel(__m128i d) { return _mm_srai_epi32(_mm_unpackhi_epi16(d, d), 16); }

}  // namespace

void BoxBlurSpanScalar(BoxBlurLane* lanes, int32_t lane_count, size_t n, const BoxBlurParams& params) {
  for (int32_t i = 0; i < lane_count; ++i) StepLane<true>(lanes[i], n, params);
}

// The SIMD versions divide in float: the window sum (below 2^24) times a
// rounded 1/d is within 255 * 2^-23 of sum / d, while sum / d, d odd, lies at
// least 1 / (2d) from any half; so rounding to nearest gives (sum + r) / d.
//
// Four pixels a step: the differences entering and leaving the window are
// formed for all four at once, then added in turn to the running sum (the
// one serial chain), and the four quotients are packed into one store.

namespace {

template <bool kLeaveFixed, bool kEnterFixed>
void FloatLaneSse2(BoxBlurLane& lane, size_t n, const BoxBlurParams& params) {
  const __m128i zero = _mm_setzero_si128();
  const __m128 inv = _mm_set1_ps(params.inv_divisor);
  __m128i s0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(lane.sum));
  auto quotient = [&](__m128i s) { return _mm_cvtps_epi32(_mm_mul_ps(_mm_cvtepi32_ps(s), inv)); };
  // Locals, not the lane's fields: the stores below may alias anything, so
  // the compiler would reload fields from memory every step.
  const uint32_t* const enter_at = lane.enter;
  const uint32_t* const leave_at = lane.leave;
  uint32_t* const dst_at = lane.dst;
  size_t x = 0;
  for (; x + 4 <= n; x += 4) {
    __m128i enter = Load4<kEnterFixed>(enter_at + (kEnterFixed ? 0 : x));
    __m128i leave = Load4<kLeaveFixed>(leave_at + (kLeaveFixed ? 0 : x));
    __m128i d01 = _mm_sub_epi16(_mm_unpacklo_epi8(enter, zero), _mm_unpacklo_epi8(leave, zero));
    __m128i d23 = _mm_sub_epi16(_mm_unpackhi_epi8(enter, zero), _mm_unpackhi_epi8(leave, zero));
    __m128i s1 = _mm_add_epi32(s0, LowPixel(d01));
    __m128i s2 = _mm_add_epi32(s1, HighPixel(d01));
    __m128i s3 = _mm_add_epi32(s2, LowPixel(d23));
    __m128i q01 = _mm_packs_epi32(quotient(s0), quotient(s1));
    __m128i q23 = _mm_packs_epi32(quotient(s2), quotient(s3));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst_at + x), _mm_packus_epi16(q01, q23));
    s0 = _mm_add_epi32(s3, HighPixel(d23));
  }
  _mm_storeu_si128(reinterpret_cast<__m128i*>(lane.sum), s0);
  Advance(lane, x);
  StepLane<false>(lane, n - x, params);
}

// The window sum plus r as four words, twice: one register half of the word
// scheme below.
inline int64_t SumWords(const BoxBlurLane& lane, int32_t r) {
  return int64_t(uint64_t(uint16_t(lane.sum[0] + r)) | uint64_t(uint16_t(lane.sum[1] + r)) << 16 |
                 uint64_t(uint16_t(lane.sum[2] + r)) << 32 | uint64_t(uint16_t(lane.sum[3] + r)) << 48);
}
inline void StoreSumWords(BoxBlurLane& lane, const uint16_t* words, int32_t r) {
  for (int32_t k = 0; k < 4; ++k) lane.sum[k] = int32_t(words[k]) - r;
}

// The running sum in 16-bit words (exact modulo 2^16, and the true value
// fits): a register holds two pixels, the lower one's sum duplicated in both
// halves (`s`). Four pixels a step: the entering-minus-leaving differences of
// pixels 0 and 1 (2 and 3) shifted up by one pixel give the sums for both
// pixels from `s` in one add; their pairwise total, broadcast, moves `s` on.
// `s` starts at the window sum plus r, so the quotient is a multiply-high and
// a shift.
template <bool kLeaveFixed, bool kEnterFixed>
void WordLaneSse2(BoxBlurLane& lane, size_t n, const BoxBlurParams& params) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i mul = _mm_set1_epi16(int16_t(params.word_multiplier));
  const __m128i shift = _mm_cvtsi32_si128(params.word_shift);
  __m128i s = _mm_set1_epi64x(SumWords(lane, params.radius));
  // Locals, not the lane's fields: the stores below may alias anything, so
  // the compiler would reload fields from memory every step.
  const uint32_t* const enter_at = lane.enter;
  const uint32_t* const leave_at = lane.leave;
  uint32_t* const dst_at = lane.dst;
  size_t x = 0;
  for (; x + 4 <= n; x += 4) {
    __m128i enter = Load4<kEnterFixed>(enter_at + (kEnterFixed ? 0 : x));
    __m128i leave = Load4<kLeaveFixed>(leave_at + (kLeaveFixed ? 0 : x));
    __m128i d01 = _mm_sub_epi16(_mm_unpacklo_epi8(enter, zero), _mm_unpacklo_epi8(leave, zero));
    __m128i d23 = _mm_sub_epi16(_mm_unpackhi_epi8(enter, zero), _mm_unpackhi_epi8(leave, zero));
    __m128i up01 = _mm_slli_si128(d01, 8);
    __m128i s01 = _mm_add_epi16(s, up01);
    __m128i t01 = _mm_add_epi16(d01, up01);
    s = _mm_add_epi16(s, _mm_unpackhi_epi64(t01, t01));
    __m128i up23 = _mm_slli_si128(d23, 8);
    __m128i s23 = _mm_add_epi16(s, up23);
    __m128i t23 = _mm_add_epi16(d23, up23);
    s = _mm_add_epi16(s, _mm_unpackhi_epi64(t23, t23));
    __m128i q01 = _mm_srl_epi16(_mm_mulhi_epu16(s01, mul), shift);
    __m128i q23 = _mm_srl_epi16(_mm_mulhi_epu16(s23, mul), shift);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst_at + x), _mm_packus_epi16(q01, q23));
  }
  alignas(16) uint16_t words[8];
  _mm_store_si128(reinterpret_cast<__m128i*>(words), s);
  StoreSumWords(lane, words, params.radius);
  Advance(lane, x);
  StepLane<false>(lane, n - x, params);
}

// Calls kernel<kLeaveFixed, kEnterFixed> as the lane's steps say.
template <template <bool, bool> class Kernel, class... Args>
void BySteps(const BoxBlurLane& lane, Args&&... args) {
  if (lane.leave_step == 0) {
    lane.enter_step == 0 ? Kernel<true, true>::Run(args...) : Kernel<true, false>::Run(args...);
  } else {
    lane.enter_step == 0 ? Kernel<false, true>::Run(args...) : Kernel<false, false>::Run(args...);
  }
}

template <bool kLeaveFixed, bool kEnterFixed>
struct LaneSse2Kernel {
  static void Run(BoxBlurLane& lane, size_t n, const BoxBlurParams& params) {
    if (params.word_multiplier != 0) {
      WordLaneSse2<kLeaveFixed, kEnterFixed>(lane, n, params);
    } else {
      FloatLaneSse2<kLeaveFixed, kEnterFixed>(lane, n, params);
    }
  }
};

}  // namespace

void BoxBlurSpanSse2(BoxBlurLane* lanes, int32_t lane_count, size_t n, const BoxBlurParams& params) {
  for (int32_t i = 0; i < lane_count; ++i) BySteps<LaneSse2Kernel>(lanes[i], lanes[i], n, params);
}

namespace {

NIMBO_TARGET_AVX2 inline __m256i LowPixel256(__m256i d) {
  return _mm256_srai_epi32(_mm256_unpacklo_epi16(d, d), 16);
}
NIMBO_TARGET_AVX2 inline __m256i HighPixel256(__m256i d) {
  return _mm256_srai_epi32(_mm256_unpackhi_epi16(d, d), 16);
}
NIMBO_TARGET_AVX2 inline __m256i Quotient256(__m256i s, __m256 inv) {
  return _mm256_cvtps_epi32(_mm256_mul_ps(_mm256_cvtepi32_ps(s), inv));
}
// Four pixels of each lane, or each lane's pixel four times.
template <bool kFixed>
NIMBO_TARGET_AVX2 inline __m256i LoadPair(const uint32_t* a, const uint32_t* b) {
  if (kFixed) return _mm256_setr_epi32(int32_t(*a), int32_t(*a), int32_t(*a), int32_t(*a), int32_t(*b),
                                       int32_t(*b), int32_t(*b), int32_t(*b));
  return _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(a))),
                                 _mm_loadu_si128(reinterpret_cast<const __m128i*>(b)), 1);
}
NIMBO_TARGET_AVX2 inline void StorePair(__m256i q, uint32_t* a, uint32_t* b) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(a), _mm256_castsi256_si128(q));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(b), _mm256_extracti128_si256(q, 1));
}

// The SSE2 float scheme with one lane in each 128-bit half: every
// instruction works within its half, so two rows cost what one did.
template <bool kLeaveFixed, bool kEnterFixed>
NIMBO_TARGET_AVX2 void FloatPairAvx2(BoxBlurLane* lanes, size_t n, const BoxBlurParams& params) {
  BoxBlurLane& a = lanes[0];
  BoxBlurLane& b = lanes[1];
  const __m256i zero = _mm256_setzero_si256();
  const __m256 inv = _mm256_set1_ps(params.inv_divisor);
  __m256i s0 = _mm256_setr_epi32(a.sum[0], a.sum[1], a.sum[2], a.sum[3], b.sum[0], b.sum[1], b.sum[2], b.sum[3]);
  const uint32_t *const a_enter = a.enter, *const a_leave = a.leave, *const b_enter = b.enter,
                        *const b_leave = b.leave;
  uint32_t *const a_dst = a.dst, *const b_dst = b.dst;
  size_t x = 0;
  for (; x + 4 <= n; x += 4) {
    const size_t enter_x = kEnterFixed ? 0 : x, leave_x = kLeaveFixed ? 0 : x;
    __m256i enter = LoadPair<kEnterFixed>(a_enter + enter_x, b_enter + enter_x);
    __m256i leave = LoadPair<kLeaveFixed>(a_leave + leave_x, b_leave + leave_x);
    __m256i d01 = _mm256_sub_epi16(_mm256_unpacklo_epi8(enter, zero), _mm256_unpacklo_epi8(leave, zero));
    __m256i d23 = _mm256_sub_epi16(_mm256_unpackhi_epi8(enter, zero), _mm256_unpackhi_epi8(leave, zero));
    __m256i s1 = _mm256_add_epi32(s0, LowPixel256(d01));
    __m256i s2 = _mm256_add_epi32(s1, HighPixel256(d01));
    __m256i s3 = _mm256_add_epi32(s2, LowPixel256(d23));
    __m256i q01 = _mm256_packs_epi32(Quotient256(s0, inv), Quotient256(s1, inv));
    __m256i q23 = _mm256_packs_epi32(Quotient256(s2, inv), Quotient256(s3, inv));
    StorePair(_mm256_packus_epi16(q01, q23), a_dst + x, b_dst + x);
    s0 = _mm256_add_epi32(s3, HighPixel256(d23));
  }
  alignas(32) int32_t sums[8];
  _mm256_store_si256(reinterpret_cast<__m256i*>(sums), s0);
  std::copy(sums, sums + 4, a.sum);
  std::copy(sums + 4, sums + 8, b.sum);
  Advance(a, x);
  Advance(b, x);
  StepLane<false>(a, n - x, params);
  StepLane<false>(b, n - x, params);
}

// The SSE2 word scheme with one lane in each 128-bit half.
template <bool kLeaveFixed, bool kEnterFixed>
NIMBO_TARGET_AVX2 void WordPairAvx2(BoxBlurLane* lanes, size_t n, const BoxBlurParams& params) {
  BoxBlurLane& a = lanes[0];
  BoxBlurLane& b = lanes[1];
  const __m256i zero = _mm256_setzero_si256();
  const __m256i mul = _mm256_set1_epi16(int16_t(params.word_multiplier));
  const __m128i shift = _mm_cvtsi32_si128(params.word_shift);
  const int64_t wa = SumWords(a, params.radius), wb = SumWords(b, params.radius);
  __m256i s = _mm256_setr_epi64x(wa, wa, wb, wb);
  const uint32_t *const a_enter = a.enter, *const a_leave = a.leave, *const b_enter = b.enter,
                        *const b_leave = b.leave;
  uint32_t *const a_dst = a.dst, *const b_dst = b.dst;
  size_t x = 0;
  for (; x + 4 <= n; x += 4) {
    const size_t enter_x = kEnterFixed ? 0 : x, leave_x = kLeaveFixed ? 0 : x;
    __m256i enter = LoadPair<kEnterFixed>(a_enter + enter_x, b_enter + enter_x);
    __m256i leave = LoadPair<kLeaveFixed>(a_leave + leave_x, b_leave + leave_x);
    __m256i d01 = _mm256_sub_epi16(_mm256_unpacklo_epi8(enter, zero), _mm256_unpacklo_epi8(leave, zero));
    __m256i d23 = _mm256_sub_epi16(_mm256_unpackhi_epi8(enter, zero), _mm256_unpackhi_epi8(leave, zero));
    __m256i up01 = _mm256_slli_si256(d01, 8);
    __m256i s01 = _mm256_add_epi16(s, up01);
    __m256i t01 = _mm256_add_epi16(d01, up01);
    s = _mm256_add_epi16(s, _mm256_unpackhi_epi64(t01, t01));
    __m256i up23 = _mm256_slli_si256(d23, 8);
    __m256i s23 = _mm256_add_epi16(s, up23);
    __m256i t23 = _mm256_add_epi16(d23, up23);
    s = _mm256_add_epi16(s, _mm256_unpackhi_epi64(t23, t23));
    __m256i q01 = _mm256_srl_epi16(_mm256_mulhi_epu16(s01, mul), shift);
    __m256i q23 = _mm256_srl_epi16(_mm256_mulhi_epu16(s23, mul), shift);
    StorePair(_mm256_packus_epi16(q01, q23), a_dst + x, b_dst + x);
  }
  alignas(32) uint16_t words[16];
  _mm256_store_si256(reinterpret_cast<__m256i*>(words), s);
  StoreSumWords(a, words, params.radius);
  StoreSumWords(b, words + 8, params.radius);
  Advance(a, x);
  Advance(b, x);
  StepLane<false>(a, n - x, params);
  StepLane<false>(b, n - x, params);
}

}  // namespace

namespace {

template <bool kLeaveFixed, bool kEnterFixed>
struct PairAvx2Kernel {
  static void Run(BoxBlurLane* lanes, size_t n, const BoxBlurParams& params) {
    if (params.word_multiplier != 0) {
      WordPairAvx2<kLeaveFixed, kEnterFixed>(lanes, n, params);
    } else {
      FloatPairAvx2<kLeaveFixed, kEnterFixed>(lanes, n, params);
    }
  }
};

}  // namespace

void BoxBlurSpanAvx2(BoxBlurLane* lanes, int32_t lane_count, size_t n, const BoxBlurParams& params) {
  if (lane_count != 2) return BoxBlurSpanSse2(lanes, lane_count, n, params);
  BySteps<PairAvx2Kernel>(lanes[0], lanes, n, params);
}

BoxBlurSpanFn BoxBlurSpan() {
  static const BoxBlurSpanFn fn = CpuHasAvx2() ? BoxBlurSpanAvx2 : BoxBlurSpanSse2;
  return fn;
}

// A padded copy of a short row, or the two four-pixel edge buffers.
size_t BoxBlurScratchSize(size_t count, int32_t radius) { return std::max(count + 2 * size_t(radius) + 1, size_t(8)); }

namespace {

// padded[from .. to) of a row into `out`; padded[i] = row[clamp(i - r, 0,
// count - 1)].
void FillPadded(const uint32_t* row, size_t count, size_t r, size_t from, size_t to, uint32_t* out) {
  const size_t first_end = std::min(to, r), row_end = std::min(to, r + count);
  size_t i = from;
  if (i < first_end) {
    out = std::fill_n(out, first_end - i, row[0]);
    i = first_end;
  }
  if (i < row_end) {
    out = std::copy(row + (i - r), row + (row_end - r), out);
    i = row_end;
  }
  if (i < to) std::fill_n(out, to - i, row[count - 1]);
}

// The byte sums of padded[0 .. 2r], the first output's window. The row's
// part, row[1 .. min(r, count - 1)], is summed four pixels a step into
// 16-bit words, which hold the at most 64 bytes each word receives.
void StartSum(const uint32_t* row, size_t count, size_t r, int32_t sum[4]) {
  const size_t inside = std::min(r, count - 1);
  const __m128i zero = _mm_setzero_si128();
  __m128i lo = zero, hi = zero;  // pixels 0, 1 and 2, 3 of each step
  size_t j = 1;
  for (; j + 3 <= inside; j += 4) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(row + j));
    lo = _mm_add_epi16(lo, _mm_unpacklo_epi8(v, zero));
    hi = _mm_add_epi16(hi, _mm_unpackhi_epi8(v, zero));
  }
  alignas(16) uint16_t words[16];
  _mm_store_si128(reinterpret_cast<__m128i*>(words), lo);
  _mm_store_si128(reinterpret_cast<__m128i*>(words + 8), hi);
  const int32_t first_copies = int32_t(r) + 1, last_copies = int32_t(r - inside);
  for (int32_t k = 0; k < 4; ++k) {
    int32_t total = words[k] + words[4 + k] + words[8 + k] + words[12 + k];
    for (size_t t = j; t <= inside; ++t) total += int32_t((row[t] >> (8 * k)) & 0xFF);
    sum[k] = total + first_copies * int32_t((row[0] >> (8 * k)) & 0xFF) +
             last_copies * int32_t((row[count - 1] >> (8 * k)) & 0xFF);
  }
}

}  // namespace

void BoxBlurRows(const uint32_t* const* src, uint32_t* const* dst, uint32_t* const* scratch, int32_t row_count,
                 size_t count, const BoxBlurParams& params, BoxBlurSpanFn span) {
  if (count == 0 || row_count < 1) return;
  row_count = std::min(row_count, 2);
  const size_t r = size_t(params.radius);
  const size_t d = 2 * r + 1;
  BoxBlurLane lanes[2];
  // `a` is r rounded up to whole steps of four; a row shorter than about two
  // windows is blurred from a padded copy in one stretch.
  const size_t a = (r + 3) & ~size_t(3);
  if (count < a + r + 1) {
    for (int32_t i = 0; i < row_count; ++i) {
      FillPadded(src[i], count, r, 0, count + d, scratch[i]);
      lanes[i] = {scratch[i], scratch[i] + d, dst[i], {}};
      StartSum(src[i], count, r, lanes[i].sum);
    }
    span(lanes, row_count, count, params);
    return;
  }
  // Otherwise five stretches, all but the last a whole number of steps:
  //   [0, r & ~3)  the first pixel leaves, over and over;
  //   [.., a)      leaving pixels from a four-pixel edge buffer;
  //   [a, b)       both ends read from the row itself;
  //   [b, c)       entering pixels from a second four-pixel buffer;
  //   [c, count)   the last pixel enters, over and over.
  const size_t r4 = r & ~size_t(3);
  const size_t b = a + ((count - r - 1 - a) & ~size_t(3));
  const size_t c = std::min(b + 4, count);
  for (int32_t i = 0; i < row_count; ++i) {
    FillPadded(src[i], count, r, r4, a, scratch[i]);
    FillPadded(src[i], count, r, b + d, c + d, scratch[i] + 4);
    lanes[i] = {src[i], src[i] + r + 1, dst[i], {}, 0, 1};
    StartSum(src[i], count, r, lanes[i].sum);
  }
  span(lanes, row_count, r4, params);
  for (int32_t i = 0; i < row_count; ++i) lanes[i].leave = scratch[i], lanes[i].leave_step = 1;
  span(lanes, row_count, a - r4, params);
  for (int32_t i = 0; i < row_count; ++i) lanes[i].leave = src[i] + (a - r);
  span(lanes, row_count, b - a, params);
  for (int32_t i = 0; i < row_count; ++i) lanes[i].enter = scratch[i] + 4;
  span(lanes, row_count, c - b, params);
  for (int32_t i = 0; i < row_count; ++i) lanes[i].enter = src[i] + (count - 1), lanes[i].enter_step = 0;
  span(lanes, row_count, count - c, params);
}

}  // namespace nimbo
