#include "lowq_ops.h"

#include <emmintrin.h>

#include <algorithm>
#include <cmath>

#include "core/platform.h"

namespace nimbo {

// ---- global pixel kernels --------------------------------------------------------

void LowQGreyScalar(uint32_t* px, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    uint32_t p = px[i];
    uint32_t grey = ((((p >> 16) & 0xFF) + (p & 0xFF)) >> 1) + ((p >> 8) & 0xFF);
    grey >>= 1;
    px[i] = (p & 0xFF000000u) | grey * 0x010101u;
  }
}

void LowQGreySse2(uint32_t* px, size_t count) {
  const __m128i low = _mm_set1_epi32(0xFF);
  const __m128i alpha = _mm_set1_epi32(int32_t(0xFF000000u));
  size_t i = 0;
  for (; i + 4 <= count; i += 4) {
    __m128i p = _mm_loadu_si128(reinterpret_cast<const __m128i*>(px + i));
    __m128i rb = _mm_add_epi32(_mm_and_si128(_mm_srli_epi32(p, 16), low), _mm_and_si128(p, low));
    __m128i grey = _mm_add_epi32(_mm_srli_epi32(rb, 1), _mm_and_si128(_mm_srli_epi32(p, 8), low));
    grey = _mm_srli_epi32(grey, 1);
    grey = _mm_or_si128(_mm_or_si128(grey, _mm_slli_epi32(grey, 8)), _mm_slli_epi32(grey, 16));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(px + i), _mm_or_si128(_mm_and_si128(p, alpha), grey));
  }
  LowQGreyScalar(px + i, count - i);
}

void LowQSubtractScalar(uint32_t* px, size_t count, uint8_t amount) {
  uint8_t* b = reinterpret_cast<uint8_t*>(px);
  for (size_t i = 0; i < count * 4; ++i) b[i] = uint8_t(std::max(0, int32_t(b[i]) - amount));
}

void LowQSubtractSse2(uint32_t* px, size_t count, uint8_t amount) {
  const __m128i a = _mm_set1_epi8(char(amount));
  size_t i = 0;
  for (; i + 4 <= count; i += 4) {
    __m128i p = _mm_loadu_si128(reinterpret_cast<const __m128i*>(px + i));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(px + i), _mm_subs_epu8(p, a));
  }
  LowQSubtractScalar(px + i, count - i, amount);
}

void LowQMaskScalar(uint32_t* px, size_t count, uint32_t mask) {
  const size_t pairs_end = count & ~size_t(1);
  for (size_t i = 0; i < pairs_end; ++i) px[i] = (px[i] & mask) | ~mask;
}

void LowQMaskSse2(uint32_t* px, size_t count, uint32_t mask) {
  const size_t pairs_end = count & ~size_t(1);
  const __m128i keep = _mm_set1_epi32(int32_t(mask));
  const __m128i fill = _mm_set1_epi32(int32_t(~mask));
  size_t i = 0;
  for (; i + 4 <= pairs_end; i += 4) {
    __m128i p = _mm_loadu_si128(reinterpret_cast<const __m128i*>(px + i));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(px + i), _mm_or_si128(_mm_and_si128(p, keep), fill));
  }
  LowQMaskScalar(px + i, pairs_end - i, mask);
}

uint32_t LowQReduceMask(int32_t n) {
  n = std::clamp(n, 0, 24);
  const int32_t q = n / 3;
  uint32_t blue = 0xFFu << q;
  if (n % 3 > 1) blue <<= 1;
  uint32_t green = 0xFFu << q;
  if (n % 3 > 2) green <<= 1;  // n % 3 is never above 2; kept as the rule stands
  uint32_t red = 0xFFu << q;
  return (blue & 0xFF) | (green & 0xFF) << 8 | (red & 0xFF) << 16;
}

// ---- block operations --------------------------------------------------------------

void LowQAddBlock(uint32_t* px, int64_t n, int32_t width, int64_t start, int32_t rows, int32_t cols, int64_t offset) {
  if (n <= 0) return;
  offset %= n;
  if (offset < 0) offset += n;
  for (int32_t r = 0; r < rows; ++r) {
    for (int32_t c = 0; c < cols; ++c) {
      const int64_t dst = start + int64_t(r) * width + c;
      if (dst < 0 || dst >= n) continue;  // callers keep blocks inside; this keeps the promise
      int64_t src = dst + offset;
      if (src >= n) src -= n;
      uint8_t* d = reinterpret_cast<uint8_t*>(px + dst);
      const uint8_t* s = reinterpret_cast<const uint8_t*>(px + src);
      for (int32_t k = 0; k < 4; ++k) d[k] = uint8_t(std::min(255, d[k] + s[k]));
    }
  }
}

void LowQMoveRun(uint32_t* px, int64_t start, int64_t length, int64_t distance) {
  // Source after destination: a forward copy reads each pixel before any
  // write reaches it.
  for (int64_t i = 0; i < length; ++i) px[start + i] = px[start + distance + i];
}

// ---- the random driver -----------------------------------------------------------------

int64_t LowQTrunc(float value, int64_t lo, int64_t hi) {
  if (!(value == value)) return lo;  // NaN
  const double t = std::trunc(double(value));
  if (t <= double(lo)) return lo;
  if (t >= double(hi)) return hi;
  return int64_t(t);
}

namespace {

// (rand mod 10000) / 10000, in 0 .. 0.9999.
double Rand01() { return double(platform::Rand() % 10000) / 10000.0; }

// A global test: the draw is always taken; a draw equal to the probability
// fires, but a probability of 0 never does (see LowQDamage).
bool GlobalTest(float probability) {
  const double r = Rand01();
  return probability > 0.0f && r <= probability;
}

// Two draws make a 31-bit number: the first is the low half.
int64_t BigRand() {
  const int64_t low = platform::Rand();
  const int64_t high = platform::Rand() % 32768;
  return low + (high << 16);
}

void BlockDarken(uint32_t* px, int64_t n, int64_t max_darkness, int64_t max_length) {
  const int64_t big = BigRand();
  if (n - 100 <= 0) return;  // a frame of at most 100 pixels has no room for a block
  const int64_t start = big % (n - 100);
  if (max_darkness <= 0 || max_length <= 0) return;
  const int64_t limit = std::min(max_length, n - start - 1);
  const int64_t length = (BigRand() % limit) & ~int64_t(1);
  if (length <= 0) return;
  const uint8_t amount = uint8_t(std::min<int64_t>(255, platform::Rand() % max_darkness));
  LowQSubtractSse2(px + start, size_t(length), amount);
}

// Tries at drawing a block start high enough for its rows: with m <= H - 10
// at least 10 of H rows qualify, so this many tries fail only by the
// generator's own pattern; then the block is dropped.
constexpr int32_t kMaxStartTries = 1 << 20;

void BlockAdd(uint32_t* px, int32_t width, int32_t height, int64_t max_rows) {
  const int64_t n = int64_t(width) * height;
  const int64_t dx = platform::Rand() % width - width / 2;
  const int64_t dy = platform::Rand() % height;
  const int64_t m = std::min<int64_t>(max_rows, height - 10);
  if (m <= 0) return;
  int64_t start = 0;
  int32_t tries = 0;
  do {
    if (++tries > kMaxStartTries) return;
    start = BigRand() % n;
  } while (start / width > height - m - 1);
  const int32_t rows = int32_t(platform::Rand() % m);
  if (rows <= 0) return;
  const int32_t cols = platform::Rand() % width;
  if (cols <= 0) return;
  const int32_t block_cols = cols - 2 - 2 * (platform::Rand() % 2);
  if (block_cols <= 0) return;
  LowQAddBlock(px, n, width, start, rows, block_cols, dy * width + dx);
}

void BlockMove(uint32_t* px, int64_t n, int64_t max_distance, int64_t max_length) {
  const int64_t start = BigRand() % n;
  int64_t length = max_length > 0 ? platform::Rand() % max_length : 0;
  const int64_t distance = max_distance > 0 ? platform::Rand() % max_distance : 0;
  if (start + length + distance > n - 10) length = n - 10 - (start + distance);
  if (distance > 0 && length > 0) LowQMoveRun(px, start, length, distance);
}

}  // namespace

void LowQDamage(uint32_t* px, int32_t width, int32_t height, const LowQControls& c) {
  if (!px || width <= 0 || height <= 0) return;
  const int64_t n = int64_t(width) * height;
  const size_t count = size_t(n);
  constexpr int64_t kBig = int64_t(1) << 31;

  // The global tests accept a draw equal to the probability, except that a
  // probability of 0 never fires: otherwise a draw of exactly 0 would damage
  // one frame in 10000 that was meant to stay clean.
  if (GlobalTest(c.bw_probability)) LowQGreySse2(px, count);
  if (GlobalTest(c.darken_probability)) {
    const int64_t max_darkness = LowQTrunc(c.darken_max, 0, kBig);
    if (max_darkness > 0) {
      LowQSubtractSse2(px, count, uint8_t(std::min<int64_t>(255, platform::Rand() % max_darkness)));
    }
  }
  if (GlobalTest(c.reduce_probability)) {
    LowQMaskSse2(px, count, LowQReduceMask(platform::Rand() % 12 + 10));
  }

  // The block tests do not accept equality. Sizes are products in float, as
  // an int times a float is.
  const int64_t passes = LowQTrunc(std::ceil(std::clamp(c.operations, 0.0f, float(kLowQMaxOperations))), 0,
                                   kLowQMaxOperations);
  const int64_t darken_max = LowQTrunc(c.block_darken_max, 0, kBig);
  const int64_t darken_length = LowQTrunc(float(n) * c.block_darken_size, 0, kBig);
  const int64_t add_rows = LowQTrunc(float(height) * c.block_add_size, 0, kBig);
  const int64_t move_distance = LowQTrunc(float(n) * c.block_move_distance, 0, kBig);
  const int64_t move_length = LowQTrunc(float(n) * c.block_move_size, 0, kBig);
  for (int64_t k = 0; k < passes; ++k) {
    if (Rand01() < c.block_darken_probability) BlockDarken(px, n, darken_max, darken_length);
    if (Rand01() < c.block_add_probability) BlockAdd(px, width, height, add_rows);
    if (Rand01() < c.block_move_probability) BlockMove(px, n, move_distance, move_length);
  }
}

}  // namespace nimbo
