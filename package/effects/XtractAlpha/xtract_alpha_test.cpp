// XtractAlpha: the alpha byte as grey, inverted on request, the alpha kept;
// and the matte ChromaKeyPRO leaves in null-colour mode made visible.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "xtract_alpha_kernel.h"
#include "test_host.h"

namespace {

using nimbo::testing::OwnedScreen;
using nimbo::testing::TestHost;

constexpr char kChromaKey[] = "ChromaKeyPRO";
constexpr char kXtractAlpha[] = "XtractAlpha";

TEST(XtractAlphaKernel, GreyFromAlphaAndSimdEqualsScalar) {
  const uint32_t src[] = {0x00123456, 0x80FFFFFF, 0xFF000000, 0x7F0000FF};
  uint32_t out[4];
  nimbo::XtractAlphaScalar(src, out, 4, false);
  EXPECT_EQ(out[0], 0x00000000u);
  EXPECT_EQ(out[1], 0x80808080u);
  EXPECT_EQ(out[2], 0xFFFFFFFFu);
  nimbo::XtractAlphaScalar(src, out, 4, true);
  EXPECT_EQ(out[0], 0x00FFFFFFu);
  EXPECT_EQ(out[1], 0x807F7F7Fu);
  EXPECT_EQ(out[3], 0x7F808080u);

  std::mt19937 rng(2);
  for (int trial = 0; trial < 200; ++trial) {
    const size_t offset = rng() % 8, count = rng() % 50;
    std::vector<uint32_t> src_px(offset + count);
    for (uint32_t& p : src_px) p = rng();
    const bool invert = trial % 2;
    std::vector<uint32_t> want(src_px.size()), sse2(src_px.size()), avx2(src_px.size());
    nimbo::XtractAlphaScalar(src_px.data() + offset, want.data() + offset, count, invert);
    nimbo::XtractAlphaSse2(src_px.data() + offset, sse2.data() + offset, count, invert);
    ASSERT_EQ(sse2, want);
    if (__builtin_cpu_supports("avx2")) {
      nimbo::XtractAlphaAvx2(src_px.data() + offset, avx2.data() + offset, count, invert);
      ASSERT_EQ(avx2, want);
    }
  }
}

TEST(XtractAlpha, ShowsChromaKeyPROsMatteAndKeepsItsSetting) {
  TestHost host(8, 4);
  ASSERT_TRUE(host.store.Load(
      "<Settings><ConfigData><data name=\"outmode\" type=\"int\">1</data>"
      "<data name=\"use_table\" type=\"int\">0</data></ConfigData></Settings>"));
  auto key = nimbo::testing::MakeEffect(kChromaKey, &host);
  key->UpdateConfig();
  key->Initialize();
  OwnedScreen frame(8, 4, 0x000000FF), keyed(8, 4), matte(8, 4);
  frame.At(1, 1) = 0x00FF0000;
  nimbo::testing::RenderOnce(*key, {&frame.screen}, &keyed.screen);

  TestHost host2(8, 4);
  ASSERT_TRUE(host2.store.Load(
      "<Settings><ConfigData><data name=\"invert\" type=\"int\">1</data></ConfigData></Settings>"));
  auto extract = nimbo::testing::MakeEffect(kXtractAlpha, &host2);
  extract->UpdateConfig();
  extract->Initialize();
  ASSERT_EQ(nimbo::testing::RenderOnce(*extract, {&keyed.screen}, &matte.screen), 1);
  // Blue was keyed with a = 252 (inverted: 3); red is foreground (alpha 0, inverted 255).
  EXPECT_EQ(matte.At(0, 0), 0xFC030303u);
  EXPECT_EQ(matte.At(1, 1), 0x00FFFFFFu);

  // A mismatched output is refused, not overrun.
  OwnedScreen small(4, 4);
  EXPECT_EQ(nimbo::testing::RenderOnce(*extract, {&keyed.screen}, &small.screen), 0);
  EXPECT_EQ(nimbo::testing::RenderOnce(*extract, {}, &matte.screen), 0);
}

}  // namespace
