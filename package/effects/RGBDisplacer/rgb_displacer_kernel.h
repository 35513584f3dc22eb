// RGB Displacer's row kernel: each of R, G and B is taken from its own
// horizontally shifted row, positions clamped to the row's ends; alpha stays
// with the unshifted pixel. Vertical shifts are the caller's choice of rows.
#pragma once

#include <cstdint>

namespace nimbo::rgb_displacer {

struct ShiftRows {
  const uint32_t* red;    // the row R comes from
  const uint32_t* green;
  const uint32_t* blue;
  const uint32_t* alpha;  // the unshifted row
  int32_t dx_red;         // a positive shift moves the channel right
  int32_t dx_green;
  int32_t dx_blue;
};

// Output pixels [x0, x0 + count) of a row `width` pixels wide.
using ShiftRowFn = void (*)(const ShiftRows& rows, uint32_t* dst, int32_t width, int32_t x0, int32_t count);

void ShiftRowScalar(const ShiftRows& rows, uint32_t* dst, int32_t width, int32_t x0, int32_t count);
void ShiftRowSse2(const ShiftRows& rows, uint32_t* dst, int32_t width, int32_t x0, int32_t count);
// The best the CPU offers, chosen once.
ShiftRowFn ShiftRowKernel();

}  // namespace nimbo::rgb_displacer
