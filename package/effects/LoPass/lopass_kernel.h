// LoPass's per-pixel work: every byte of every pixel runs through its own
// two-pole resonant low-pass over time, a state-variable filter in the
// trapezoidal (zero-delay) form, which stays stable for any cut-off below
// half the frame rate and any positive resonance.
//
// With g = tan(pi fc) and k = 1 / Q:
//   a1 = 1 / (1 + g (g + k)),  a2 = g a1,  a3 = g a2
//   v3 = x - s2;  v1 = a1 s1 + a2 v3;  v2 = s2 + a2 s1 + a3 v3
//   s1 = 2 v1 - s1;  s2 = 2 v2 - s2;  output = v2
// The output is clamped to 0..255 and rounded to the nearest integer (ties to
// even). State: 8 floats per pixel, s1 of B, G, R, A then s2 of B, G, R, A.
// The scalar version is the reference; the SIMD ones do the same float
// operations in the same order, so their bytes and states are identical.
#pragma once

#include <cstddef>
#include <cstdint>

namespace nimbo {

inline constexpr float kLoPassMinFrequency = 0.001f;
inline constexpr float kLoPassMaxFrequency = 0.49f;
inline constexpr float kLoPassMinResonance = 0.1f;
inline constexpr float kLoPassMaxResonance = 50.0f;
inline constexpr size_t kLoPassStateFloats = 8;  // per pixel

struct LoPassParams {
  float a1;
  float a2;
  float a3;
};

// Coefficients for a cut-off `frequency` (fraction of the frame rate) and a
// resonance `q`, both clamped to their ranges above.
LoPassParams MakeLoPassParams(float frequency, float q);

// The state of a filter that has seen `src` forever: output equals input.
void LoPassSeed(const uint32_t* src, float* state, size_t count);

using LoPassFn = void (*)(const uint32_t* src, uint32_t* dst, float* state, size_t count, const LoPassParams& params);
void LoPassScalar(const uint32_t* src, uint32_t* dst, float* state, size_t count, const LoPassParams& params);
void LoPassSse2(const uint32_t* src, uint32_t* dst, float* state, size_t count, const LoPassParams& params);
void LoPassAvx2(const uint32_t* src, uint32_t* dst, float* state, size_t count, const LoPassParams& params);
// The best version this CPU runs, chosen once.
LoPassFn LoPassKernel();

}  // namespace nimbo
