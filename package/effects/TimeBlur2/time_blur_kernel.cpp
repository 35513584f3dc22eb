#include "time_blur_kernel.h"

#include <emmintrin.h>
#include <immintrin.h>

#include <algorithm>

#include "core/cpu.h"
#include "shared/simd_lanes.h"
#include "time_blur_kernel_simd.h"

namespace nimbo {

int32_t TimeBlurShift(int32_t n) {
  n = std::clamp(n, 1, kTimeBlurMaxFrames);
  int32_t s = 0;
  while ((1 << s) < n) ++s;
  return s;
}

namespace {

inline uint16_t AddSat16(uint16_t a, uint16_t b) { return uint16_t(std::min(0xFFFF, int32_t(a) + int32_t(b))); }
inline uint16_t SubSat16(uint16_t a, uint16_t b) { return uint16_t(std::max(0, int32_t(a) - int32_t(b))); }

// The scalar step over bytes: the SIMD versions hand their tails to it.
void StepBytes(const uint8_t* src, uint8_t* dst, uint8_t* ring, uint16_t* sum, size_t bytes, int32_t shift) {
  for (size_t i = 0; i < bytes; ++i) {
    uint16_t s = SubSat16(AddSat16(sum[i], src[i]), ring[i]);
    sum[i] = s;
    uint8_t in = src[i];  // read before the writes: src may be dst
    dst[i] = uint8_t(std::min(255, s >> shift));
    ring[i] = in;
  }
}

}  // namespace

void TimeBlurStepScalar(const uint32_t* src, uint32_t* dst, uint32_t* ring, uint16_t* sum, size_t count,
                        const TimeBlurParams& params) {
  StepBytes(reinterpret_cast<const uint8_t*>(src), reinterpret_cast<uint8_t*>(dst), reinterpret_cast<uint8_t*>(ring),
            sum, count * 4, params.shift);
}

void TimeBlurStepSse2(const uint32_t* src, uint32_t* dst, uint32_t* ring, uint16_t* sum, size_t count,
                      const TimeBlurParams& params) {
  TimeBlurStepBody<simd::Lanes128>(src, dst, ring, sum, count, params);
}

TimeBlurStepFn TimeBlurStepKernel() {
  static const TimeBlurStepFn fn = CpuHasAvx2() ? TimeBlurStepAvx2 : TimeBlurStepSse2;
  return fn;
}

void TimeBlurFillSum(const uint32_t* src, uint16_t* sum, size_t count, int32_t n) {
  const uint8_t* s8 = reinterpret_cast<const uint8_t*>(src);
  n = std::clamp(n, 1, kTimeBlurMaxFrames);
  for (size_t i = 0; i < count * 4; ++i) sum[i] = uint16_t(s8[i] * n);
}

// ---- packed sums ----

namespace {

constexpr size_t kBlockChannels = kTimeBlurPackedBlockPixels * 4;  // 64
constexpr size_t kNibbleBytes = kBlockChannels / 2;                // 32

// The plain words of the pixels after the last whole block.
inline uint16_t* PackedTail(uint8_t* sums, size_t count) {
  return reinterpret_cast<uint16_t*>(sums + count / kTimeBlurPackedBlockPixels * kTimeBlurPackedBlockBytes);
}

inline uint8_t Nibble(const uint8_t* low, size_t c) {
  return c < kNibbleBytes ? low[c] & 15 : low[c - kNibbleBytes] >> 4;
}

inline void SetNibble(uint8_t* low, size_t c, uint8_t v) {
  if (c < kNibbleBytes) {
    low[c] = uint8_t((low[c] & 0xF0) | v);
  } else {
    low[c - kNibbleBytes] = uint8_t((low[c - kNibbleBytes] & 0x0F) | v << 4);
  }
}

}  // namespace

void TimeBlurPackedStepScalar(const uint32_t* src, uint32_t* dst, uint32_t* ring, uint8_t* sums, size_t count,
                              const TimeBlurParams& params) {
  const uint8_t* s8 = reinterpret_cast<const uint8_t*>(src);
  uint8_t* d8 = reinterpret_cast<uint8_t*>(dst);
  uint8_t* r8 = reinterpret_cast<uint8_t*>(ring);
  const int32_t shift = params.shift;
  const int32_t mask = (1 << shift) - 1;
  const size_t blocks = count / kTimeBlurPackedBlockPixels;
  for (size_t b = 0; b < blocks; ++b) {
    uint8_t* high = sums + b * kTimeBlurPackedBlockBytes;
    uint8_t* low = high + kBlockChannels;
    uint8_t next_low[kNibbleBytes] = {};  // a byte holds two channels: read all before writing
    for (size_t c = 0; c < kBlockChannels; ++c) {
      const size_t i = b * kBlockChannels + c;
      const uint8_t in = s8[i];  // read before the writes: src may be dst
      uint16_t word = uint16_t(high[c] << shift | Nibble(low, c));
      word = SubSat16(AddSat16(word, in), r8[i]);
      const uint8_t out = uint8_t(std::min(255, word >> shift));
      high[c] = out;
      d8[i] = out;
      r8[i] = in;
      SetNibble(next_low, c, uint8_t(word & mask));
    }
    std::copy(next_low, next_low + kNibbleBytes, low);
  }
  const size_t done = blocks * kBlockChannels;
  StepBytes(s8 + done, d8 + done, r8 + done, PackedTail(sums, count), count * 4 - done, shift);
}

namespace {

// Whole blocks of 16 pixels. The words are widened within 128-bit halves
// (unpack), and packus undoes that order, so no lane crossing is needed;
// the nibble bytes line up with the channels the same way.
template <int kShift>
NIMBO_TARGET_AVX2 void PackedBlocksAvx2(const uint8_t* s8, uint8_t* d8, uint8_t* r8, uint8_t* sums, size_t blocks) {
  const __m256i zero = _mm256_setzero_si256();
  const __m256i nibble = _mm256_set1_epi8(15);
  const __m256i mask = _mm256_set1_epi16((1 << kShift) - 1);
  for (size_t b = 0; b < blocks; ++b) {
    const size_t i = b * kBlockChannels;
    uint8_t* high = sums + b * kTimeBlurPackedBlockBytes;
    const __m256i low = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(high + kBlockChannels));
    const __m256i halves_low[2] = {_mm256_and_si256(low, nibble), _mm256_and_si256(_mm256_srli_epi16(low, 4), nibble)};
    __m256i next_low[2];
    for (int h = 0; h < 2; ++h) {
      const size_t at = i + 32 * size_t(h);
      const __m256i in = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s8 + at));
      const __m256i old = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(r8 + at));
      const __m256i hi = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(high + 32 * h));
      __m256i words_lo = _mm256_or_si256(_mm256_slli_epi16(_mm256_unpacklo_epi8(hi, zero), kShift),
                                         _mm256_unpacklo_epi8(halves_low[h], zero));
      __m256i words_hi = _mm256_or_si256(_mm256_slli_epi16(_mm256_unpackhi_epi8(hi, zero), kShift),
                                         _mm256_unpackhi_epi8(halves_low[h], zero));
      words_lo = _mm256_subs_epu16(_mm256_adds_epu16(words_lo, _mm256_unpacklo_epi8(in, zero)),
                                   _mm256_unpacklo_epi8(old, zero));
      words_hi = _mm256_subs_epu16(_mm256_adds_epu16(words_hi, _mm256_unpackhi_epi8(in, zero)),
                                   _mm256_unpackhi_epi8(old, zero));
      // Words stay below 256 * 16 + 255, positive as signed 16-bit, so
      // packus is min(255, word >> s).
      const __m256i out = _mm256_packus_epi16(_mm256_srli_epi16(words_lo, kShift), _mm256_srli_epi16(words_hi, kShift));
      next_low[h] = _mm256_packus_epi16(_mm256_and_si256(words_lo, mask), _mm256_and_si256(words_hi, mask));
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(r8 + at), in);
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(d8 + at), out);
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(high + 32 * h), out);
    }
    // Nibbles are at most 15, so the 16-bit shift moves no bit into the next byte.
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(high + kBlockChannels),
                        _mm256_or_si256(next_low[0], _mm256_slli_epi16(next_low[1], 4)));
  }
}

}  // namespace

void TimeBlurPackedStepAvx2(const uint32_t* src, uint32_t* dst, uint32_t* ring, uint8_t* sums, size_t count,
                            const TimeBlurParams& params) {
  const uint8_t* s8 = reinterpret_cast<const uint8_t*>(src);
  uint8_t* d8 = reinterpret_cast<uint8_t*>(dst);
  uint8_t* r8 = reinterpret_cast<uint8_t*>(ring);
  const size_t blocks = count / kTimeBlurPackedBlockPixels;
  switch (params.shift) {
    case 0:
      PackedBlocksAvx2<0>(s8, d8, r8, sums, blocks);
      break;
    case 1:
      PackedBlocksAvx2<1>(s8, d8, r8, sums, blocks);
      break;
    case 2:
      PackedBlocksAvx2<2>(s8, d8, r8, sums, blocks);
      break;
    case 3:
      PackedBlocksAvx2<3>(s8, d8, r8, sums, blocks);
      break;
    default:
      PackedBlocksAvx2<4>(s8, d8, r8, sums, blocks);
      break;
  }
  const size_t done = blocks * kBlockChannels;
  TimeBlurStepAvx2(reinterpret_cast<const uint32_t*>(s8 + done), reinterpret_cast<uint32_t*>(d8 + done),
                   reinterpret_cast<uint32_t*>(r8 + done), PackedTail(sums, count),
                   count - blocks * kTimeBlurPackedBlockPixels, params);
}

TimeBlurPackedStepFn TimeBlurPackedStepKernel() {
  static const TimeBlurPackedStepFn fn = CpuHasAvx2() ? TimeBlurPackedStepAvx2 : nullptr;
  return fn;
}

void TimeBlurFillPackedSum(const uint32_t* src, uint8_t* sums, size_t count, int32_t n) {
  const uint8_t* s8 = reinterpret_cast<const uint8_t*>(src);
  n = std::clamp(n, 1, 1 << kTimeBlurPackedMaxShift);
  const int32_t shift = TimeBlurShift(n);
  const size_t blocks = count / kTimeBlurPackedBlockPixels;
  for (size_t b = 0; b < blocks; ++b) {
    uint8_t* high = sums + b * kTimeBlurPackedBlockBytes;
    uint8_t* low = high + kBlockChannels;
    for (size_t c = 0; c < kBlockChannels; ++c) {
      const int32_t word = s8[b * kBlockChannels + c] * n;
      high[c] = uint8_t(word >> shift);  // at most 255: n <= 2^shift
      SetNibble(low, c, uint8_t(word & ((1 << shift) - 1)));
    }
  }
  const size_t done = blocks * kBlockChannels;
  uint16_t* tail = PackedTail(sums, count);
  for (size_t i = done; i < count * 4; ++i) tail[i - done] = uint16_t(s8[i] * n);
}

}  // namespace nimbo
