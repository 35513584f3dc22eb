#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

#include "retina_killer_kernel.h"
#include "core/cpu.h"
#include "core/effect_base.h"
#include "test_host.h"

namespace {

using nimbo::testing::OwnedScreen;
using nimbo::testing::TestHost;

constexpr char kRetinaKiller[] = "Retina Killer";
constexpr const char* kResistance = "resistance (low=light sick, high=resistant)";
constexpr const char* kRepair = "repair (low=irreparable, high=quick repair)";

std::unique_ptr<orrery::Effect> MakeRetina(TestHost& host) {
  auto fx = nimbo::testing::MakeEffect(kRetinaKiller, &host);
  EXPECT_STREQ(fx->GetName(), "nimbo one\\Retina Killer");
  fx->UpdateConfig();
  fx->Initialize();
  return fx;
}

int32_t Render(orrery::Effect& fx, const OwnedScreen& in, OwnedScreen& out) {
  return nimbo::testing::RenderOnce(fx, {&in.screen}, &out.screen);
}

TEST(RetinaKernel, SimdMatchesScalarOnAnyBuffers) {
  std::mt19937 rng(5);
  std::vector<nimbo::RetinaFn> versions = {nimbo::RetinaSse2};
  if (nimbo::CpuHasAvx2()) versions.push_back(nimbo::RetinaAvx2);
  for (size_t count : {1u, 3u, 5u, 9u, 31u, 1001u}) {
    // Every start within a 32-byte line: the SIMD versions stream the output
    // from the first aligned pixel on.
    for (size_t offset : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u}) {
      // Any fatigue bytes, alpha included, must give the same result.
      std::vector<uint32_t> src(count + offset);
      std::vector<uint8_t> fatigue(4 * (count + offset));
      for (auto& v : src) v = rng();
      for (auto& v : fatigue) v = uint8_t(rng());
      const nimbo::RetinaParams params{uint8_t(rng()), uint8_t(rng() % 65)};
      std::vector<uint32_t> ref_dst(src.size());
      std::vector<uint8_t> ref_fatigue = fatigue;
      nimbo::RetinaScalar(src.data() + offset, ref_dst.data() + offset, ref_fatigue.data() + 4 * offset, count,
                          params);
      for (nimbo::RetinaFn fn : versions) {
        std::vector<uint32_t> dst(src.size());
        std::vector<uint8_t> f = fatigue;
        fn(src.data() + offset, dst.data() + offset, f.data() + 4 * offset, count, params);
        EXPECT_EQ(dst, ref_dst) << count << " " << offset;
        EXPECT_EQ(f, ref_fatigue);
      }
    }
  }
}

TEST(RetinaKiller, OneWhiteFrameFadesBySteps) {
  TestHost host(3, 2);
  auto fx = MakeRetina(host);
  OwnedScreen white(3, 2, 0x80FFFFFF), black(3, 2, 0x40000000), out(3, 2);
  ASSERT_EQ(Render(*fx, white, out), 1);
  EXPECT_EQ(out.pixels[0], 0x80FFFFFFu);
  std::vector<int32_t> seen;
  for (int32_t frame = 0; frame < 12; ++frame) {
    ASSERT_EQ(Render(*fx, black, out), 1);
    for (uint32_t p : out.pixels) ASSERT_EQ(p, out.pixels[0]);
    const uint32_t p = out.pixels[0];
    EXPECT_EQ(p >> 24, 0x40u) << "alpha passes through";
    EXPECT_EQ(p & 0xFF, (p >> 8) & 0xFF);
    EXPECT_EQ(p & 0xFF, (p >> 16) & 0xFF);
    seen.push_back(int32_t(p & 0xFF));
  }
  EXPECT_EQ(seen, (std::vector<int32_t>{71, 63, 55, 47, 39, 31, 23, 15, 7, 0, 0, 0}));
}

TEST(RetinaKiller, MatchesAStraightComputationUnderMovingSliders) {
  TestHost host(11, 7);
  auto fx = MakeRetina(host);
  const orrery::SliderDesc* resistance = host.FindSlider(kResistance);
  const orrery::SliderDesc* repair = host.FindSlider(kRepair);
  ASSERT_TRUE(resistance && repair);
  std::vector<int32_t> fatigue(11 * 7 * 3, 0);
  std::mt19937 rng(9);
  OwnedScreen out(11, 7);
  for (int32_t frame = 0; frame < 30; ++frame) {
    // Sliders are floats: the effect truncates them.
    *resistance->value = float(rng() % 2550) / 10.0f;
    *repair->value = float(rng() % 640) / 10.0f;
    const int32_t limit = int32_t(*resistance->value), fade = int32_t(*repair->value);
    OwnedScreen in(11, 7);
    nimbo::testing::FillRandom(in, 40 + frame);
    ASSERT_EQ(Render(*fx, in, out), 1);
    for (size_t p = 0; p < in.pixels.size(); ++p) {
      EXPECT_EQ(out.pixels[p] >> 24, in.pixels[p] >> 24);
      for (int32_t k = 0; k < 3; ++k) {
        const int32_t i = int32_t(in.pixels[p] >> (8 * k)) & 0xFF;
        int32_t& f = fatigue[p * 3 + k];
        ASSERT_EQ(int32_t(out.pixels[p] >> (8 * k)) & 0xFF, std::min(255, i + f)) << frame;
        f = std::max(0, std::min(255, f + std::max(0, i - limit)) - fade);
      }
    }
  }
}

TEST(RetinaKiller, FullResistanceShowsTheInputAndNoRepairNeverFades) {
  TestHost host(4, 4);
  auto fx = MakeRetina(host);
  *host.FindSlider(kResistance)->value = 255.0f;
  OwnedScreen out(4, 4);
  for (uint32_t seed = 0; seed < 5; ++seed) {
    OwnedScreen in(4, 4);
    nimbo::testing::FillRandom(in, seed);
    Render(*fx, in, out);
    EXPECT_EQ(out.pixels, in.pixels);
  }
  *host.FindSlider(kResistance)->value = 176.0f;
  *host.FindSlider(kRepair)->value = 0.0f;
  OwnedScreen white(4, 4, 0xFFFFFFFF), black(4, 4, 0xFF000000);
  Render(*fx, white, out);
  for (int32_t frame = 0; frame < 50; ++frame) Render(*fx, black, out);
  EXPECT_EQ(out.pixels[5], 0xFF4F4F4Fu);  // 255 - 176 = 79, kept
}

TEST(RetinaKiller, SettingsAndSliders) {
  TestHost host;
  auto fx = MakeRetina(host);
  const std::string text = host.store.Text();
  const size_t limit = text.find("<data name=\"limit\" type=\"int\">176</data>");
  const size_t fade = text.find("<data name=\"fade\" type=\"int\">8</data>");
  const size_t hide = text.find("<data name=\"hide\" type=\"int\">0</data>");
  ASSERT_NE(limit, std::string::npos) << text;
  EXPECT_LT(limit, fade);
  EXPECT_LT(fade, hide);

  const orrery::SliderDesc* resistance = host.FindSlider(kResistance);
  const orrery::SliderDesc* repair = host.FindSlider(kRepair);
  ASSERT_TRUE(resistance && repair);
  for (const orrery::SliderDesc* s : {resistance, repair}) {
    EXPECT_EQ(s->p1, 100.0f);
    EXPECT_EQ(s->p2, 10000.0f);
    EXPECT_EQ(s->p3, 428.6f);
    EXPECT_EQ(s->p4, 88);
    EXPECT_EQ(s->minimum, 0.0f);
  }
  EXPECT_EQ(resistance->maximum, 255.0f);
  EXPECT_EQ(repair->maximum, 64.0f);
  EXPECT_EQ(*resistance->value, 176.0f);
  // d = 176 - 0 lies above half the range h = 127.5, so it starts at d - h.
  EXPECT_EQ(resistance->initial, 48.5f);
  EXPECT_EQ(repair->initial, 8.0f);

  // Stored values set the sliders; "hide" is kept as it was.
  TestHost loaded;
  ASSERT_TRUE(loaded.store.Load(
      "<Settings><ConfigData><data name=\"limit\" type=\"int\">100</data><data name=\"fade\" type=\"int\">3</data>"
      "<data name=\"hide\" type=\"int\">1</data></ConfigData></Settings>"));
  auto fx2 = MakeRetina(loaded);
  EXPECT_EQ(*loaded.FindSlider(kResistance)->value, 100.0f);
  EXPECT_EQ(*loaded.FindSlider(kRepair)->value, 3.0f);
  OwnedScreen in(2, 2, 0x00C8C8C8), out(2, 2);
  Render(*fx2, in, out);
  Render(*fx2, in, out);
  EXPECT_EQ(out.pixels[0], 0x00FFFFFFu);  // 200 + (100 - 3) saturates

  // The fatigue image follows the resolution.
  loaded.SetOutputSize(3, 1);
  OwnedScreen small(3, 1, 0x00101010), out_small(3, 1);
  ASSERT_EQ(Render(*fx2, small, out_small), 1);
  EXPECT_EQ(loaded.memory[0].size(), 12u);
  EXPECT_EQ(out_small.pixels[0], 0x00101010u);
}

}  // namespace
