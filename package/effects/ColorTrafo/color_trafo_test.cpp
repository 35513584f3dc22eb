// ColorTrafo: neutral settings passing through, hue and saturation doing what they say,
// the dynamic variables driving it, and settings clamped when used.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "shared/colour_matrix.h"
#include "test_host.h"

namespace {

using nimbo::testing::OwnedScreen;
using nimbo::testing::TestHost;

constexpr char kColorTrafo[] = "ColorTrafo";

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
