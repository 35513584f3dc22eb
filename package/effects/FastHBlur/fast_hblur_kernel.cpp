#include "fast_hblur_kernel.h"

#include <emmintrin.h>
#include <immintrin.h>

#include <algorithm>

#include "core/cpu.h"

namespace nimbo {

BoxBlurParams MakeBoxBlurParams(int32_t radius) {
  radius = std::clamp(radius, 0, kBoxBlurMaxRadius);
  const int32_t d = 2 * radius + 1;
  BoxBlurParams params{radius, 0, 0, 0};
  if (radius == 0) return params;
  // The largest shift that keeps the rounded-up reciprocal within 16 bits.
  int32_t k = 0;
  while ((2 << k) < d) ++k;
  params.multiplier = uint16_t(((uint32_t(1) << (16 + k)) + uint32_t(d) - 1) / uint32_t(d));
  params.shift = k;
  if (radius > kBoxBlurPlainMaxRadius) params.rebase_offset = (kBoxBlurRebaseSpan * 255 + d - 1) / d;
  return params;
}

namespace {

void Advance(BoxBlurLane& lane, size_t n) {
  lane.leave += n * lane.leave_step;
  lane.enter += n * lane.enter_step;
  lane.dst += n;
}

// The reference, and the SIMD versions' last few pixels.
void StepLane(BoxBlurLane& lane, size_t n, const BoxBlurParams& params) {
  const int32_t r = params.radius;
  const int32_t d = 2 * r + 1;
  for (size_t x = 0; x < n; ++x) {
    uint32_t out = 0;
    const uint32_t enter = lane.enter[x * lane.enter_step], leave = lane.leave[x * lane.leave_step];
    for (int32_t k = 0; k < 4; ++k) {
      const int32_t s = lane.sum[k];
      out |= uint32_t((s + r) / d) << (8 * k);
      lane.sum[k] = s + int32_t((enter >> (8 * k)) & 0xFF) - int32_t((leave >> (8 * k)) & 0xFF);
    }
    lane.dst[x] = out;
  }
  Advance(lane, n);
}

// A lane's running sums as the SIMD versions hold them, four words each:
// `word` the window sum plus r less base x d, and `base`.
struct WordSums {
  int64_t word;
  int64_t base;
};

WordSums ToWords(const BoxBlurLane& lane, const BoxBlurParams& params) {
  const int32_t d = 2 * params.radius + 1;
  uint64_t word = 0, base = 0;
  for (int32_t k = 0; k < 4; ++k) {
    const int32_t total = lane.sum[k] + params.radius;
    const int32_t b = params.rebase_offset == 0 ? 0 : total / d - params.rebase_offset;
    word |= uint64_t(uint16_t(total - b * d)) << (16 * k);
    base |= uint64_t(uint16_t(b)) << (16 * k);
  }
  return {int64_t(word), int64_t(base)};
}

void FromWords(const uint16_t* word, const uint16_t* base, const BoxBlurParams& params, BoxBlurLane& lane) {
  const int32_t d = 2 * params.radius + 1;
  for (int32_t k = 0; k < 4; ++k) lane.sum[k] = int32_t(int16_t(base[k])) * d + int32_t(word[k]) - params.radius;
}

// Four pixels from `p` on, or the pixel at `p` four times.
template <bool kFixed>
inline __m128i Load4(const uint32_t* p) {
  return kFixed ? _mm_set1_epi32(int32_t(*p)) : _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

}  // namespace

void BoxBlurSpanScalar(BoxBlurLane* lanes, int32_t lane_count, size_t n, const BoxBlurParams& params) {
  for (int32_t i = 0; i < lane_count; ++i) StepLane(lanes[i], n, params);
}

// A register holds two pixels' words, the lower pixel's sums duplicated in
// both halves (`s`, `base`). Four pixels a step: the entering-minus-leaving
// differences of pixels 0 and 1 (2 and 3) shifted up by one pixel give the
// sums for both pixels from `s` in one add; their pairwise total, broadcast,
// moves `s` on. The word arithmetic wraps modulo 2^16, and the true values
// fit, so the result is exact. The base is added to the packed quotients as
// bytes, modulo 256: the word's own quotient is below 2^15 / 203 < 256, so
// packing keeps it, and the true output is a byte.

namespace {

template <bool kLeaveFixed, bool kEnterFixed, bool kRebase>
void WordLaneSse2(BoxBlurLane& lane, size_t n, const BoxBlurParams& params) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i mul = _mm_set1_epi16(int16_t(params.multiplier));
  const __m128i shift = _mm_cvtsi32_si128(params.shift);
  const __m128i divisor = _mm_set1_epi16(int16_t(2 * params.radius + 1));
  const __m128i offset = _mm_set1_epi16(int16_t(params.rebase_offset));
  const __m128i low_bytes = _mm_set1_epi16(0xFF);
  const WordSums start = ToWords(lane, params);
  __m128i s = _mm_set1_epi64x(start.word);
  __m128i base = _mm_set1_epi64x(start.base);
  __m128i base_bytes = _mm_packus_epi16(_mm_and_si128(base, low_bytes), _mm_and_si128(base, low_bytes));
  auto quotient = [&](__m128i w) { return _mm_srl_epi16(_mm_mulhi_epu16(w, mul), shift); };
  // Locals, not the lane's fields: the stores below may alias anything, so
  // the compiler would reload fields from memory every step.
  const uint32_t* const enter_at = lane.enter;
  const uint32_t* const leave_at = lane.leave;
  uint32_t* const dst_at = lane.dst;
  // An edge pixel repeated is read once: the stores could alias it.
  const __m128i enter_fixed = kEnterFixed ? Load4<true>(enter_at) : zero;
  const __m128i leave_fixed = kLeaveFixed ? Load4<true>(leave_at) : zero;
  size_t x = 0;
  for (; x + 4 <= n; x += 4) {
    __m128i enter = kEnterFixed ? enter_fixed : Load4<false>(enter_at + x);
    __m128i leave = kLeaveFixed ? leave_fixed : Load4<false>(leave_at + x);
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
    __m128i q = _mm_packus_epi16(quotient(s01), quotient(s23));
    if constexpr (kRebase) {
      q = _mm_add_epi8(q, base_bytes);
      if ((x & (kBoxBlurRebaseSpan - 4)) == kBoxBlurRebaseSpan - 4) {
        const __m128i moved = _mm_sub_epi16(quotient(s), offset);
        s = _mm_sub_epi16(s, _mm_mullo_epi16(moved, divisor));
        base = _mm_add_epi16(base, moved);
        base_bytes = _mm_packus_epi16(_mm_and_si128(base, low_bytes), _mm_and_si128(base, low_bytes));
      }
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst_at + x), q);
  }
  alignas(16) uint16_t words[8], bases[8];
  _mm_store_si128(reinterpret_cast<__m128i*>(words), s);
  _mm_store_si128(reinterpret_cast<__m128i*>(bases), base);
  FromWords(words, bases, params, lane);
  Advance(lane, x);
  StepLane(lane, n - x, params);
}

// Calls Kernel<kLeaveFixed, kEnterFixed, kRebase>::Run as the lane's steps
// and the radius say.
template <template <bool, bool, bool> class Kernel, bool kRebase, class... Args>
void BySteps(const BoxBlurLane& lane, Args&&... args) {
  if (lane.leave_step == 0) {
    lane.enter_step == 0 ? Kernel<true, true, kRebase>::Run(args...) : Kernel<true, false, kRebase>::Run(args...);
  } else {
    lane.enter_step == 0 ? Kernel<false, true, kRebase>::Run(args...) : Kernel<false, false, kRebase>::Run(args...);
  }
}
template <template <bool, bool, bool> class Kernel, class... Args>
void ByStepsAndRadius(const BoxBlurLane& lane, const BoxBlurParams& params, Args&&... args) {
  if (params.rebase_offset != 0) {
    BySteps<Kernel, true>(lane, args...);
  } else {
    BySteps<Kernel, false>(lane, args...);
  }
}

template <bool kLeaveFixed, bool kEnterFixed, bool kRebase>
struct LaneSse2Kernel {
  static void Run(BoxBlurLane& lane, size_t n, const BoxBlurParams& params) {
    WordLaneSse2<kLeaveFixed, kEnterFixed, kRebase>(lane, n, params);
  }
};

}  // namespace

void BoxBlurSpanSse2(BoxBlurLane* lanes, int32_t lane_count, size_t n, const BoxBlurParams& params) {
  if (params.multiplier == 0) return BoxBlurSpanScalar(lanes, lane_count, n, params);
  for (int32_t i = 0; i < lane_count; ++i) ByStepsAndRadius<LaneSse2Kernel>(lanes[i], params, lanes[i], n, params);
}

namespace {

// Four pixels of each lane, or each lane's pixel four times.
template <bool kFixed>
NIMBO_TARGET_AVX2 inline __m256i LoadPair(const uint32_t* a, const uint32_t* b) {
  if (kFixed) return _mm256_setr_epi32(int32_t(*a), int32_t(*a), int32_t(*a), int32_t(*a), int32_t(*b),
                                       int32_t(*b), int32_t(*b), int32_t(*b));
  return _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(a))),
                                 _mm_loadu_si128(reinterpret_cast<const __m128i*>(b)), 1);
}
// floor(w / d); the shift is a multiply-high by shift_mul = 2^(16 - shift).
NIMBO_TARGET_AVX2 inline __m256i Quotient256(__m256i w, __m256i mul, __m256i shift_mul) {
  return _mm256_mulhi_epu16(_mm256_mulhi_epu16(w, mul), shift_mul);
}
// The base's low bytes in the order the packed quotients have.
NIMBO_TARGET_AVX2 inline __m256i BaseBytes256(__m256i base, __m256i low_bytes) {
  const __m256i low = _mm256_and_si256(base, low_bytes);
  return _mm256_packus_epi16(low, low);
}
NIMBO_TARGET_AVX2 inline void StorePair(__m256i q, uint32_t* a, uint32_t* b) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(a), _mm256_castsi256_si128(q));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(b), _mm256_extracti128_si256(q, 1));
}

// One lane in each 128-bit half, as in the SSE2 scheme, but arranged for a
// CPU whose shuffle and shift units are the narrow resource: a register of
// sums holds two neighbouring pixels, and each half of it runs its own chain
// over every second pixel,
//   S[x + 2] = S[x] + d[x] + d[x + 1],   d = entering - leaving,
// so a step needs one byte alignment per pixel pair instead of a shift and a
// broadcast. The differences come from one byte interleave and a multiply-add
// by +1/-1, and the division's shift is a second multiply-high; both run on
// the multiplier units, which are otherwise idle here. The two chains keep
// separate bases, which packing puts on the right pixels. With the rows in
// the cache this measured 15-20 % faster than a shift-and-broadcast step.
struct PairState {
  __m256i mul, shift_mul, plus_minus, divisor, offset, low_bytes;
  __m256i sums;   // [S[x - 2], S[x - 1]] of each lane
  __m256i diffs;  // [d[x - 2], d[x - 1]]
  __m256i base, base_bytes;
};

// Four outputs of each lane from their entering and leaving pixels.
template <bool kRebase>
NIMBO_TARGET_AVX2 inline __m256i PairStep(PairState& st, __m256i enter, __m256i leave, size_t x) {
  const __m256i d01 = _mm256_maddubs_epi16(_mm256_unpacklo_epi8(enter, leave), st.plus_minus);
  const __m256i d23 = _mm256_maddubs_epi16(_mm256_unpackhi_epi8(enter, leave), st.plus_minus);
  const __m256i s01 = _mm256_add_epi16(st.sums, _mm256_add_epi16(st.diffs, _mm256_alignr_epi8(d01, st.diffs, 8)));
  __m256i s23 = _mm256_add_epi16(s01, _mm256_add_epi16(d01, _mm256_alignr_epi8(d23, d01, 8)));
  const __m256i q23 = Quotient256(s23, st.mul, st.shift_mul);
  __m256i q = _mm256_packus_epi16(Quotient256(s01, st.mul, st.shift_mul), q23);
  if constexpr (kRebase) {
    q = _mm256_add_epi8(q, st.base_bytes);
    if ((x & (kBoxBlurRebaseSpan - 4)) == kBoxBlurRebaseSpan - 4) {
      const __m256i moved = _mm256_sub_epi16(q23, st.offset);
      s23 = _mm256_sub_epi16(s23, _mm256_mullo_epi16(moved, st.divisor));
      st.base = _mm256_add_epi16(st.base, moved);
      st.base_bytes = BaseBytes256(st.base, st.low_bytes);
    }
  }
  st.sums = s23;
  st.diffs = d23;
  return q;
}

// A step's four pixels of each lane from `at` on, or the fixed pixels.
template <bool kFixed>
NIMBO_TARGET_AVX2 inline __m256i LoadStep(__m256i fixed, const uint32_t* a, const uint32_t* b, size_t at) {
  return kFixed ? fixed : LoadPair<false>(a + at, b + at);
}

template <bool kLeaveFixed, bool kEnterFixed, bool kRebase>
NIMBO_TARGET_AVX2 void WordPairAvx2(BoxBlurLane* lanes, size_t n, const BoxBlurParams& params) {
  BoxBlurLane& a = lanes[0];
  BoxBlurLane& b = lanes[1];
  PairState st;
  st.mul = _mm256_set1_epi16(int16_t(params.multiplier));
  // params.shift is 1 .. 8 for radii 1 .. 255, so 2^(16 - shift) fits a word.
  st.shift_mul = _mm256_set1_epi16(int16_t(uint16_t(1u << (16 - params.shift))));
  st.plus_minus = _mm256_set1_epi16(int16_t(0xFF01));  // bytes +1, -1
  st.divisor = _mm256_set1_epi16(int16_t(2 * params.radius + 1));
  st.offset = _mm256_set1_epi16(int16_t(params.rebase_offset));
  st.low_bytes = _mm256_set1_epi16(0xFF);
  const WordSums wa = ToWords(a, params), wb = ToWords(b, params);
  // Starting from [S, S] and no differences gives S[x] = S and S[x + 1] =
  // S + d[x].
  st.sums = _mm256_setr_epi64x(wa.word, wa.word, wb.word, wb.word);
  st.diffs = _mm256_setzero_si256();
  st.base = _mm256_setr_epi64x(wa.base, wa.base, wb.base, wb.base);
  st.base_bytes = BaseBytes256(st.base, st.low_bytes);
  const uint32_t *const a_enter = a.enter, *const a_leave = a.leave, *const b_enter = b.enter,
                        *const b_leave = b.leave;
  uint32_t *const a_dst = a.dst, *const b_dst = b.dst;
  const __m256i enter_fixed = kEnterFixed ? LoadPair<true>(a_enter, b_enter) : _mm256_setzero_si256();
  const __m256i leave_fixed = kLeaveFixed ? LoadPair<true>(a_leave, b_leave) : _mm256_setzero_si256();
  // Each step's pixels are read before the step before it writes. At radius
  // 1 the next leaving pixels sit a few bytes past the output just written,
  // at that offset within a 4 KB page too when input and output rows share
  // their page offset (frames a whole number of pages long do); loads issued
  // after such a store can be held back as if they overlapped it. Reading
  // ahead measured about 9 % faster at radius 1 on rows in the cache, and no
  // different at larger radii.
  size_t x = 0;
  if (n >= 4) {
    __m256i enter = LoadStep<kEnterFixed>(enter_fixed, a_enter, b_enter, 0);
    __m256i leave = LoadStep<kLeaveFixed>(leave_fixed, a_leave, b_leave, 0);
    for (; x + 8 <= n; x += 4) {
      const __m256i next_enter = LoadStep<kEnterFixed>(enter_fixed, a_enter, b_enter, x + 4);
      const __m256i next_leave = LoadStep<kLeaveFixed>(leave_fixed, a_leave, b_leave, x + 4);
      StorePair(PairStep<kRebase>(st, enter, leave, x), a_dst + x, b_dst + x);
      enter = next_enter;
      leave = next_leave;
    }
    StorePair(PairStep<kRebase>(st, enter, leave, x), a_dst + x, b_dst + x);
    x += 4;
  }
  // S[x] = S[x - 1] + d[x - 1], on the odd chain: the upper pixel of each half.
  alignas(32) uint16_t words[16], bases[16];
  _mm256_store_si256(reinterpret_cast<__m256i*>(words), _mm256_add_epi16(st.sums, st.diffs));
  _mm256_store_si256(reinterpret_cast<__m256i*>(bases), st.base);
  FromWords(words + 4, bases + 4, params, a);
  FromWords(words + 12, bases + 12, params, b);
  Advance(a, x);
  Advance(b, x);
  StepLane(a, n - x, params);
  StepLane(b, n - x, params);
}

template <bool kLeaveFixed, bool kEnterFixed, bool kRebase>
struct PairAvx2Kernel {
  static void Run(BoxBlurLane* lanes, size_t n, const BoxBlurParams& params) {
    WordPairAvx2<kLeaveFixed, kEnterFixed, kRebase>(lanes, n, params);
  }
};

}  // namespace

void BoxBlurSpanAvx2(BoxBlurLane* lanes, int32_t lane_count, size_t n, const BoxBlurParams& params) {
  if (lane_count != 2) return BoxBlurSpanSse2(lanes, lane_count, n, params);
  if (params.multiplier == 0) return BoxBlurSpanScalar(lanes, lane_count, n, params);
  ByStepsAndRadius<PairAvx2Kernel>(lanes[0], params, lanes, n, params);
}

BoxBlurSpanFn BoxBlurSpanKernel() {
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
  if (params.radius == 0) {  // the window is the pixel itself
    for (int32_t i = 0; i < row_count; ++i) std::copy(src[i], src[i] + count, dst[i]);
    return;
  }
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
