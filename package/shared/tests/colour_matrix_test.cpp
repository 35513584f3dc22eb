// The shared colour matrix: every SIMD version equals the scalar reference on
// any weights (far past saturation too) at odd lengths and unaligned starts;
// the alpha byte is kept and channels clamp to 0..255.
#include "shared/colour_matrix.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace {

TEST(ColorMatrixKernel, SimdEqualsScalarAndSaturates) {
  std::mt19937 rng(9);
  for (int trial = 0; trial < 300; ++trial) {
    nimbo::ColorMatrix m;
    for (auto& row : m.m)
      for (int16_t& v : row) v = int16_t(rng());  // any 16-bit weights, far past saturation
    if (trial % 2) m = nimbo::ComputeColorMatrix({float(rng() % 628) / 100.0f, float(rng() % 400) / 100.0f, 1.5f});
    const size_t offset = rng() % 8, count = rng() % 60;
    std::vector<uint32_t> src(offset + count);
    for (uint32_t& p : src) p = rng();
    std::vector<uint32_t> want(src.size()), sse2(src.size()), avx2(src.size());
    nimbo::ColorMatrixScalar(src.data() + offset, want.data() + offset, count, m);
    nimbo::ColorMatrixSse2(src.data() + offset, sse2.data() + offset, count, m);
    ASSERT_EQ(sse2, want) << trial;
    if (__builtin_cpu_supports("avx2")) {
      nimbo::ColorMatrixAvx2(src.data() + offset, avx2.data() + offset, count, m);
      ASSERT_EQ(avx2, want) << trial;
    }
  }
  // Alpha kept, channels clamped to 0..255.
  const nimbo::ColorMatrix boost = {{{1024, 0, 0}, {-512, 0, 0}, {0, 0, 256}}};
  const uint32_t px = 0x7F402011;
  uint32_t out;
  nimbo::ColorMatrixScalar(&px, &out, 1, boost);
  EXPECT_EQ(out, 0x7FFF0011u);
}

}  // namespace
