#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <cstring>
#include <random>
#include <string>

#include "lopass_kernel.h"
#include "core/cpu.h"
#include "test_host.h"

namespace {

using nimbo::testing::OwnedScreen;
using nimbo::testing::TestHost;

constexpr char kLoPass[] = "LoPass";

std::unique_ptr<orrery::Effect> MakeLoPass(TestHost& host) {
  auto fx = nimbo::testing::MakeEffect(kLoPass, &host);
  EXPECT_STREQ(fx->GetName(), "nimbo one\\LoPass");
  fx->UpdateConfig();
  fx->Initialize();
  return fx;
}

int32_t Render(orrery::Effect& fx, const OwnedScreen& in, OwnedScreen& out) {
  return nimbo::testing::RenderOnce(fx, {&in.screen}, &out.screen);
}

TEST(LoPassKernel, SimdMatchesScalarFrameAfterFrame) {
  std::mt19937 rng(21);
  std::vector<nimbo::LoPassFn> versions = {nimbo::LoPassSse2};
  if (nimbo::CpuHasAvx2()) versions.push_back(nimbo::LoPassAvx2);
  for (auto [fc, q] : {std::pair{0.05f, 0.707f}, std::pair{0.3f, 12.0f}, std::pair{0.49f, 0.1f}}) {
    const nimbo::LoPassParams params = nimbo::MakeLoPassParams(fc, q);
    for (size_t count : {1u, 2u, 5u, 67u}) {
      for (size_t offset : {0u, 1u}) {
        std::vector<uint32_t> src(count + offset);
        for (auto& v : src) v = rng();
        std::vector<float> ref_state(8 * (count + offset));
        nimbo::LoPassSeed(src.data() + offset, ref_state.data() + 8 * offset, count);
        std::vector<std::vector<float>> states(versions.size(), ref_state);
        for (int32_t frame = 0; frame < 12; ++frame) {
          for (auto& v : src) v = rng();
          std::vector<uint32_t> ref(src.size());
          nimbo::LoPassScalar(src.data() + offset, ref.data() + offset, ref_state.data() + 8 * offset, count, params);
          for (size_t k = 0; k < versions.size(); ++k) {
            std::vector<uint32_t> out(src.size());
            versions[k](src.data() + offset, out.data() + offset, states[k].data() + 8 * offset, count, params);
            ASSERT_EQ(out, ref) << fc << " " << q << " " << count;
            ASSERT_EQ(std::memcmp(states[k].data(), ref_state.data(), ref_state.size() * 4), 0);
          }
        }
      }
    }
  }
}

// The same filter as a textbook biquad in double: the bilinear transform of
// 1 / (s^2 + s / Q + 1) with the cut-off prewarped.
struct Biquad {
  Biquad(double fc, double q, double start) {
    const double k = std::tan(std::numbers::pi * fc), norm = 1.0 / (1.0 + k / q + k * k);
    b0 = k * k * norm;
    a1 = 2.0 * (k * k - 1.0) * norm;
    a2 = (1.0 - k / q + k * k) * norm;
    x1 = x2 = y1 = y2 = start;
  }
  double Step(double x) {
    const double y = b0 * (x + 2.0 * x1 + x2) - a1 * y1 - a2 * y2;
    x2 = x1, x1 = x, y2 = y1, y1 = y;
    return y;
  }
  double b0, a1, a2, x1, x2, y1, y2;
};

TEST(LoPass, FollowsTheTextbookFilterAndRingsWithHighQ) {
  for (auto [fc, q] : {std::pair{0.1f, 0.5f}, std::pair{0.05f, 8.0f}}) {
    TestHost host(2, 1);
    auto fx = MakeLoPass(host);
    *host.FindSlider("Frequency fc")->value = fc;
    *host.FindSlider("Resonance Q")->value = q;
    Biquad model(fc, q, 0.0);
    OwnedScreen black(2, 1, 0), step(2, 1, 0x00C8C8C8), out(2, 1);
    Render(*fx, black, out);
    int32_t highest = 0, exact = 0, frames = 120;
    bool settled_from_below = true;
    for (int32_t frame = 0; frame < frames; ++frame) {
      Render(*fx, step, out);
      const double y = std::clamp(model.Step(200.0), 0.0, 255.0);
      const int32_t got = int32_t(out.pixels[1] & 0xFF);
      ASSERT_LE(std::abs(got - y), 0.5 + 1e-3) << "frame " << frame;
      exact += got == int32_t(std::nearbyint(y));
      highest = std::max(highest, got);
      if (got > 200) settled_from_below = false;
    }
    EXPECT_GE(exact, frames - 2);
    if (q < 1.0f) {
      EXPECT_EQ(out.pixels[1] & 0xFFFFFF, 0xC8C8C8u) << "a still picture settles to itself";
      EXPECT_TRUE(settled_from_below) << "Q 0.5 does not overshoot";
    } else {
      EXPECT_GT(highest, 255 - 10) << "Q 8 overshoots far";
    }
  }
}

TEST(LoPass, StillPicturesPassAndNewSizesStartFromTheirInput) {
  TestHost host(7, 3);
  auto fx = MakeLoPass(host);
  OwnedScreen in(7, 3), out(7, 3);
  nimbo::testing::FillRandom(in, 4);
  for (int32_t frame = 0; frame < 5; ++frame) {
    ASSERT_EQ(Render(*fx, in, out), 1);
    EXPECT_EQ(out.pixels, in.pixels) << frame;
  }
  OwnedScreen other(4, 9), out_other(4, 9);
  nimbo::testing::FillRandom(other, 5);
  ASSERT_EQ(Render(*fx, other, out_other), 1);
  EXPECT_EQ(out_other.pixels, other.pixels);
  EXPECT_EQ(host.memory[0].size(), 4u * 9u * 8u * sizeof(float));
  // A configuration load restarts the filter too.
  OwnedScreen black(4, 9, 0);
  fx->UpdateConfig();
  ASSERT_EQ(Render(*fx, black, out_other), 1);
  EXPECT_EQ(out_other.pixels, black.pixels);
}

TEST(LoPass, SettingsAndSliders) {
  TestHost host;
  auto fx = MakeLoPass(host);
  const std::string text = host.store.Text();
  const size_t frequency = text.find("<data name=\"frequency\" type=\"float\">0.100000</data>");
  const size_t resonance = text.find("<data name=\"resonance\" type=\"float\">0.500000</data>");
  ASSERT_NE(frequency, std::string::npos) << text;
  EXPECT_LT(frequency, resonance);
  for (const char* name : {"Frequency fc", "Resonance Q"}) {
    const orrery::SliderDesc* s = host.FindSlider(name);
    ASSERT_NE(s, nullptr) << name;
    EXPECT_EQ(s->p1, 500.0f);
    EXPECT_EQ(s->p2, 10000.0f);
    EXPECT_EQ(s->p3, 428.6f);
    EXPECT_EQ(s->p4, 88);
  }
  // Out-of-range and bad stored values are held to the filter's ranges.
  TestHost loaded(2, 2);
  ASSERT_TRUE(loaded.store.Load(
      "<Settings><ConfigData><data name=\"frequency\" type=\"float\">7</data>"
      "<data name=\"resonance\" type=\"float\">nan</data></ConfigData></Settings>"));
  auto fx2 = MakeLoPass(loaded);
  EXPECT_EQ(*loaded.FindSlider("Frequency fc")->value, 0.49f);  // a stored 7 clamps to the highest usable fc
  const float q = *loaded.FindSlider("Resonance Q")->value;
  EXPECT_TRUE(q >= nimbo::kLoPassMinResonance && q <= nimbo::kLoPassMaxResonance) << q;
  OwnedScreen in(2, 2, 0x10203040), out(2, 2);
  EXPECT_EQ(Render(*fx2, in, out), 1);
  EXPECT_EQ(out.pixels, in.pixels);
}

}  // namespace
