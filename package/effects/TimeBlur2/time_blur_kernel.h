// TimeBlur2's per-pixel work: a running sum of the last n frames, kept as four
// unsigned 16-bit words per pixel (B, G, R, A), updated with one saturating
// add and one saturating subtract per byte, and shifted down for the output.
//
// Kernels work on spans of `count` pixels. The scalar versions are the
// reference; the SIMD versions must give identical bytes (tests check it).
#pragma once

#include <cstddef>
#include <cstdint>

namespace nimbo {

inline constexpr int32_t kTimeBlurMaxFrames = 32;

struct TimeBlurParams {
  int32_t shift;  // output = min(255, sum >> shift)
};

// The smallest s with 2^s >= n (n is clamped to 1 .. kTimeBlurMaxFrames).
int32_t TimeBlurShift(int32_t n);

// One normal frame: sum = sat(sat(sum + src) - ring); dst = min(255,
// sum >> shift); ring = src. `sum` holds 4 words per pixel.
using TimeBlurStepFn = void (*)(const uint32_t* src, uint32_t* dst, uint32_t* ring, uint16_t* sum, size_t count,
                                const TimeBlurParams& params);
void TimeBlurStepScalar(const uint32_t* src, uint32_t* dst, uint32_t* ring, uint16_t* sum, size_t count,
                        const TimeBlurParams& params);
void TimeBlurStepSse2(const uint32_t* src, uint32_t* dst, uint32_t* ring, uint16_t* sum, size_t count,
                      const TimeBlurParams& params);
void TimeBlurStepAvx2(const uint32_t* src, uint32_t* dst, uint32_t* ring, uint16_t* sum, size_t count,
                      const TimeBlurParams& params);
// The best version this CPU runs, chosen once.
TimeBlurStepFn TimeBlurStepKernel();

// The sum of a reset frame: n copies of src added with saturation (n <= 32,
// so that is exactly n * byte).
void TimeBlurFillSum(const uint32_t* src, uint16_t* sum, size_t count, int32_t n);

// ---- packed sums ----
// The same sums in 6 bytes a pixel instead of 8, for shifts up to 4
// (n <= 16). A running sum of n frames never exceeds 255 * n <= 255 * 2^s,
// so it splits exactly into a high byte, sum >> s, which is also the output
// byte, and s low bits. TimeBlur2 is bound by memory, about 32 bytes a pixel
// per frame, and this takes 4 of them off.
//
// Layout in the 8-bytes-a-pixel sum buffer, per block of 16 pixels (64
// channel bytes): the 64 high bytes, then 32 bytes of low bits, byte m
// holding channel m in its low nibble and channel 32 + m in its high
// nibble. Pixels after the last whole block keep four 16-bit words each,
// following the blocks.
//
// A step rebuilds each word as (high << s) | nibble, runs the same
// saturating add and subtract as the plain step, and stores min(255,
// word >> s) as high byte and output and word & (2^s - 1) as nibble. That
// holds a word exactly while it is below 256 * 2^s, which a running sum
// started from a reset frame or from zeros always is; other content is the
// caller's to keep away (TimeBlur2 keeps plain sums for it).
inline constexpr int32_t kTimeBlurPackedMaxShift = 4;
inline constexpr size_t kTimeBlurPackedBlockPixels = 16;
inline constexpr size_t kTimeBlurPackedBlockBytes = 96;

using TimeBlurPackedStepFn = void (*)(const uint32_t* src, uint32_t* dst, uint32_t* ring, uint8_t* sums, size_t count,
                                      const TimeBlurParams& params);
void TimeBlurPackedStepScalar(const uint32_t* src, uint32_t* dst, uint32_t* ring, uint8_t* sums, size_t count,
                              const TimeBlurParams& params);
void TimeBlurPackedStepAvx2(const uint32_t* src, uint32_t* dst, uint32_t* ring, uint8_t* sums, size_t count,
                            const TimeBlurParams& params);
// The SIMD packed step when this CPU runs it, else nullptr (there is no SSE2
// version; TimeBlur2 then keeps the plain sums).
TimeBlurPackedStepFn TimeBlurPackedStepKernel();

// The packed sums of a reset frame: n copies of src (n <= 16).
void TimeBlurFillPackedSum(const uint32_t* src, uint8_t* sums, size_t count, int32_t n);

}  // namespace nimbo
