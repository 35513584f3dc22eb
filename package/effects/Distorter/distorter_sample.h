// Distorter's hot half: per-frame sampling of the input through two
// coordinate maps (see distorter_map.h) mixed by the eased progress q.
//
// Fixed point, per output pixel:
//   1. Each map position (4 fractional bits) drops to 3 fractional bits
//      (a >> 1, b >> 1), so a position fits a signed 16-bit lane.
//   2. Blend with the 16-bit factors 32768 - w and w, w = trunc(q * 32768):
//      pos = (a * (32768 - w) + b * w) >> 15. w = 0 gives map a exactly and
//      w = 32768 map b exactly.
//   3. Edge guard: pos is limited to 8 * (size - 1) - 1 per axis (0 for an
//      axis 1 pixel long), the last position the map build produces (it
//      moves anything at or past the last pixel to 1/8 before it). For maps
//      built by PackMapEntry this never changes a value; for any other map
//      content it keeps every read inside the input.
//   4. Integer part pos >> 3, fraction pos & 7 (eighths of a pixel).
// Nearest: the input pixel at the integer position. Bilinear, per byte (alpha
// included), with x1 = x0 + 1 and y1 = y0 + 1 (x1 = x0 on an input 1 pixel
// wide, y1 = y0 on one 1 pixel high) and weights in 64ths that sum to 64:
//   (p00 * (8 - fx) * (8 - fy) + p01 * fx * (8 - fy)
//    + p10 * (8 - fx) * fy + p11 * fx * fy) >> 6
// One rounding, at the end; the sum is at most 255 * 64, so it fits the
// 16-bit lanes, and the result is a byte without clamping. On the last
// column of a morph without lines (fx = 7, fy = 0) this is
// (p_before + 7 * p_last) >> 3.
//
// Preparation: none. The map build's edge rule (and step 3 for any other map)
// keeps x1 and y1 inside the input, so the
// sampler reads the host's input as it is (no padded copy) and writes the
// output directly; screens and maps are both rows top to bottom, so nothing
// is reoriented or finished afterwards either. The only copy is the
// effect's, when a host hands the same buffer as input and output.
//
// Every kernel has a scalar reference and SSE2 / AVX2 versions that produce
// identical bytes; the best is chosen once.
#pragma once

#include <cstdint>

namespace nimbo::distorter {

struct SampleParams {
  const uint32_t* src = nullptr;  // the input, `width` x `height`, rows packed
  int32_t width = 0;              // 1 .. kMaxInputSide
  int32_t height = 0;             // 1 .. kMaxInputSide
  int32_t weight = 0;             // w of the second map, 0..32768
};

// One row of `count` output pixels. Any map content is safe: the edge guard
// keeps every read inside the input.
using SampleRowFn = void (*)(const uint32_t* map_a, const uint32_t* map_b, uint32_t* dst, int32_t count,
                             const SampleParams& p);

struct SampleKernels {
  SampleRowFn nearest;
  SampleRowFn bilinear;
};

SampleKernels ScalarSampleKernels();
SampleKernels Sse2SampleKernels();
// Only valid when CpuHasAvx2().
SampleKernels Avx2SampleKernels();
// The best the CPU offers, chosen on first use.
const SampleKernels& ActiveSampleKernels();

// w from the eased progress: trunc(q * 32768), q taken within 0..1 (NaN as 0).
int32_t BlendWeight(float q);

// Samples a whole frame (maps and output width x height, rows packed), row
// by row. False (and nothing written) when the input size is outside
// 1 .. kMaxInputSide or a pointer is null.
bool SampleFrame(const SampleKernels& kernels, const uint32_t* map_a, const uint32_t* map_b, uint32_t* dst,
                 int32_t width, int32_t height, const SampleParams& p, bool filtering);

}  // namespace nimbo::distorter
