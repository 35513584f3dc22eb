// Moments of a window of match scores: the centroid, the mean score, and the
// score²-weighted second moments with their principal axes.
//
// Everything is exact integer arithmetic. The centroid is Σx·s / M truncated
// (M = Σs), found per row from running prefix sums; the second moments are the
// central moments Σ(x-cx)²s², Σ(x-cx)(y-cy)s², Σ(y-cy)²s² about that truncated
// centroid, divided by Σs² and truncated. They are gathered in one pass from
// raw per-row sums (Σs, Σxs, Σs², Σxs², Σx²s²), which expand to exactly the
// same integers as a second pass about the centroid would.
//
// Kernels: RowSums* add one row's sums. The scalar version is the
// reference; the AVX2 version gives identical sums. Without AVX2 the scalar
// version runs (SSE2 has no 32-bit multiply), and it skips runs of zero
// scores, which is most of any window.
#pragma once

#include <cstdint>

namespace nimbo {

struct RowSums {
  int64_t s = 0;     // Σ s
  int64_t xs = 0;    // Σ x·s
  int64_t s2 = 0;    // Σ s²
  int64_t xs2 = 0;   // Σ x·s²
  int64_t x2s2 = 0;  // Σ x²·s²
  friend bool operator==(const RowSums&, const RowSums&) = default;
};

// Sums of one row of `width` scores, x counted from the row's start.
using RowSumsFn = RowSums (*)(const uint8_t* scores, int32_t width);
RowSums RowSumsScalar(const uint8_t* scores, int32_t width);
// Widths up to kMaxSimdRowWidth: x·s² must fit 31 bits. Wider rows fall back
// to the scalar version.
inline constexpr int32_t kMaxSimdRowWidth = 32767;
RowSums RowSumsAvx2(const uint8_t* scores, int32_t width);
RowSumsFn RowSumsKernel();

struct Axis {
  int32_t x = 0;
  int32_t y = 0;
};

// Principal axes of the second moments mxx, mxy, myy: eigenvalues
// λ1 ≥ λ2 (truncated), each axis scaled to √λ with its components truncated.
// The axis for λ is built as (1, -mxy/(mxx-λ)) when |mxy| <= |mxx-λ| and as
// (-(mxx-λ)/mxy, 1) otherwise; that is the eigenvector mirrored in the
// diagonal x = y, so orientation grows counter-clockwise on screen (y down).
// An axis whose λ makes mxx-λ and mxy both zero is (0, 0).
struct Axes {
  int64_t lambda1 = 0;
  int64_t lambda2 = 0;
  Axis axis1;
  Axis axis2;
};
Axes ComputeAxes(int64_t mxx, int64_t mxy, int64_t myy);

struct WindowMoments {
  int64_t mass = 0;  // M = Σ s
  int32_t cx = 0;    // centroid, window coordinates (0, 0 when M = 0)
  int32_t cy = 0;
  int32_t mean = 0;  // M / (w·h)
  int64_t mxx = 0, mxy = 0, myy = 0;
  Axes axes;
};

// Moments of the w x h window whose top-left score is `scores`, rows `stride`
// bytes apart.
WindowMoments ComputeWindowMoments(const uint8_t* scores, int32_t stride, int32_t w, int32_t h, RowSumsFn row_sums);

}  // namespace nimbo
