// The field-morphing arithmetic of the Distorter's map build (see
// distorter_map.h for the map itself): where grid pixel (x, y) takes its
// colour from, in map-grid pixels, under a morph's line pairs.
//
// For each pair with destination P->Q and source P'->Q' (d = Q - P,
// d' = Q' - P'): u = ((X - P).d) / |d|^2, v = ((P.x - Q.x)(Y - P.y) +
// d.y (X - P.x)) / |d|, X' = P' + u d' + v (d'.y, P'.x - Q'.x) / |d'|;
// distance |v| for 0 <= u <= 1, else the distance to P (u < 0) or Q (u > 1);
// weight |d| / (distance + a)^2. The source point is X plus the weighted mean
// of X' - X, or X itself when no pair gives weight.
//
// Everything that depends only on a pair is computed once per build
// (FieldLine); the per-pixel steps run in double in one fixed order, and
// the AVX2 kernel (four pixels of a row at a time) performs exactly the
// same IEEE operations in the same order as the scalar one, so both give
// identical bits. (No fused multiply-add: the AVX2 functions are compiled
// without FMA, and the scalar code for the SSE2 baseline has none.)
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace nimbo::distorter {

struct LinePair;

// One pair's constants. Pairs whose destination has length 0 (or is not a
// number) have no direction and give no weight: they are left out.
struct FieldLine {
  double px, py, qx, qy;  // destination P, Q
  double dx, dy;          // Q - P
  double len, len2;       // |Q - P| and len * len
  double pqx;             // P.x - Q.x
  double spx, spy;        // source P'
  double sdx, sdy;        // Q' - P'
  double spqx;            // P'.x - Q'.x
  double slen;            // |Q' - P'|; 0 for a source point, whose sideways term vanishes
  double a;               // distance offset of the weight
};

std::vector<FieldLine> PrepareFieldLines(std::span<const LinePair> lines);

// Source positions of grid pixels x0 .. x0 + count - 1 on row y.
using FieldRowFn = void (*)(std::span<const FieldLine> lines, int32_t x0, int32_t y, int32_t count, double* sx,
                            double* sy);

// The scalar reference.
void FieldRowScalar(std::span<const FieldLine> lines, int32_t x0, int32_t y, int32_t count, double* sx, double* sy);
// Call only when CpuHasAvx2().
void FieldRowAvx2(std::span<const FieldLine> lines, int32_t x0, int32_t y, int32_t count, double* sx, double* sy);
// The best the CPU offers, chosen once.
FieldRowFn FieldRowKernel();

}  // namespace nimbo::distorter
