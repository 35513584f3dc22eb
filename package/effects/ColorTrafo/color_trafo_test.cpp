// ColorTrafo: the colour matrix kernel (SIMD equal to scalar, saturation),
// neutral settings passing through, hue and saturation doing what they say,
// the dynamic variables driving it, and settings clamped when used.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "chroma_key_kernel.h"
#include "chroma_key_math.h"
#include "test_host.h"

namespace {

using nimbo::testing::OwnedScreen;
using nimbo::testing::TestHost;

constexpr char kColorTrafo[] = "ColorTrafo";

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

struct Rig {
  explicit Rig(const std::string& data = "") : host(6, 2), effect(nimbo::testing::MakeEffect(kColorTrafo, &host)) {
    if (!data.empty()) {
      EXPECT_TRUE(host.store.Load("<Settings><ConfigData>" + data + "</ConfigData></Settings>"));
    }
    effect->UpdateConfig();
    effect->Initialize();
  }
  std::vector<uint32_t> Run(const std::vector<uint32_t>& pixels) {
    OwnedScreen in(6, 2), out(6, 2);
    in.pixels = pixels;
    in.screen.pixels = in.pixels.data();
    EXPECT_EQ(nimbo::testing::RenderOnce(*effect, {&in.screen}, &out.screen), 1);
    return out.pixels;
  }
  TestHost host;
  std::unique_ptr<orrery::Effect> effect;
};

const std::vector<uint32_t> kColours = {0xFFFF0000, 0x8000FF00, 0x000000FF, 0xFF808080, 0x12FFFFFF, 0x00102030,
                                        0xFF400000, 0xFF004000, 0xFF000040, 0xFF202020, 0xFFC08040, 0x00000000};

TEST(ColorTrafo, NeutralPassesHueAndSaturationRecolour) {
  Rig neutral;
  EXPECT_EQ(neutral.Run(kColours), kColours);
  const std::string stored = neutral.host.store.Text();
  EXPECT_LT(stored.find("name=\"hue\""), stored.find("name=\"sat\""));
  EXPECT_LT(stored.find("name=\"sat\""), stored.find("name=\"bright\""));

  // Saturation 0: every pixel grey, alpha kept.
  Rig grey("<data name=\"sat\" type=\"float\">0</data>");
  for (uint32_t p : grey.Run(kColours)) {
    EXPECT_EQ(p >> 16 & 0xFF, p & 0xFF);
    EXPECT_EQ(p >> 8 & 0xFF, p & 0xFF);
  }
  EXPECT_EQ(grey.Run(kColours)[1] >> 24, 0x80u);

  // Hue 120 degrees moves red toward green, 180 toward cyan; brightness
  // stays about the same.
  Rig turn("<data name=\"hue\" type=\"float\">120</data>");
  const uint32_t red = turn.Run(kColours)[0];
  EXPECT_GT(red >> 8 & 0xFF, red >> 16 & 0xFF) << std::hex << red;
  Rig half("<data name=\"hue\" type=\"float\">180</data>");
  const uint32_t cyan = half.Run(kColours)[0];
  EXPECT_LT(cyan >> 16 & 0xFF, cyan >> 8 & 0xFF);
  EXPECT_LT(cyan >> 16 & 0xFF, cyan & 0xFF);

  // The dynamic variable drives the hue; the stored setting is where it starts.
  ASSERT_NE(half.host.FindDynVar("Hue"), nullptr);
  EXPECT_FLOAT_EQ(half.host.FindDynVar("Hue")->value, 180.0f);
  half.host.FindDynVar("Hue")->value = 120.0f;
  EXPECT_EQ(half.Run(kColours)[0], red);
  half.host.FindDynVar("Hue")->value = 0.0f;
  EXPECT_EQ(half.Run(kColours), kColours);

  // Out-of-range settings are clamped: saturation 1000 acts as 4.
  Rig wild("<data name=\"sat\" type=\"float\">1000</data>");
  Rig four("<data name=\"sat\" type=\"float\">4</data>");
  EXPECT_EQ(wild.Run(kColours), four.Run(kColours));
}

}  // namespace
