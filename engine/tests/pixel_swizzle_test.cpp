// The red/blue exchange used by Present: every SIMD version equals the
// scalar reference at odd lengths and unaligned starts, in place too.
#include <gtest/gtest.h>

#include <vector>

#include "pixel_swizzle.h"

namespace {

TEST(PixelSwizzleTest, ScalarExchangesRedAndBlueOnly) {
  const uint32_t in[2] = {0xAA112233u, 0x00FF0080u};
  uint32_t out[2];
  nb3d::SwapRedBlueScalar(in, out, 2);
  EXPECT_EQ(out[0], 0xAA332211u);
  EXPECT_EQ(out[1], 0x008000FFu);
}

TEST(PixelSwizzleTest, SimdVersionsEqualTheReference) {
  std::vector<uint32_t> source(1000 + 3);
  uint32_t x = 12345;
  for (uint32_t& p : source) p = x = x * 1664525u + 1013904223u;
  using Kernel = void (*)(const uint32_t*, uint32_t*, size_t);
  std::vector<std::pair<const char*, Kernel>> kernels = {{"dispatch", nb3d::SwapRedBlue}};
#if defined(__x86_64__) || defined(__i386__)
  kernels.push_back({"sse2", nb3d::SwapRedBlueSse2});
  if (nb3d::CpuHasAvx2()) kernels.push_back({"avx2", nb3d::SwapRedBlueAvx2});
#endif
  for (auto [name, kernel] : kernels) {
    for (size_t offset : {0u, 1u, 3u}) {
      for (size_t count : {0u, 1u, 7u, 8u, 9u, 31u, 1000u}) {
        SCOPED_TRACE(std::string(name) + " offset " + std::to_string(offset) + " count " + std::to_string(count));
        std::vector<uint32_t> want(count), got(count);
        nb3d::SwapRedBlueScalar(source.data() + offset, want.data(), count);
        kernel(source.data() + offset, got.data(), count);
        EXPECT_EQ(got, want);
        std::vector<uint32_t> in_place(source.begin() + offset, source.begin() + offset + count);
        kernel(in_place.data(), in_place.data(), count);
        EXPECT_EQ(in_place, want);
      }
    }
  }
}

}  // namespace
