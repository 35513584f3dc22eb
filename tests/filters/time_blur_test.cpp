#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <random>
#include <string>
#include <tuple>
#include <utility>

#include "filters/time_blur_kernel.h"
#include "orrery/services.h"
#include "package/cpu.h"
#include "support/test_host.h"

namespace {

using nimbo::testing::OwnedScreen;
using nimbo::testing::TestHost;

// n = 0: a fresh store (defaults); anything else is stored as "n_screens".
std::unique_ptr<orrery::Effect> MakeTimeBlur(TestHost& host, int32_t n) {
  if (n != 0) {
    EXPECT_TRUE(host.store.Load("<Settings><ConfigData><data name=\"n_screens\" type=\"int\">" + std::to_string(n) +
                                "</data></ConfigData></Settings>"));
  }
  auto fx = nimbo::testing::MakeEffect(2, &host);
  fx->UpdateConfig();
  fx->Initialize();
  return fx;
}

int32_t Render(orrery::Effect& fx, const OwnedScreen& in, OwnedScreen& out) {
  return nimbo::testing::RenderOnce(fx, {&in.screen}, &out.screen);
}

// Whether a frame of `b` comes out as b itself: a reset frame does, and so
// does a history of b alone when n is a power of two.
bool OutputIsInput(orrery::Effect& fx, const OwnedScreen& b) {
  OwnedScreen out(b.screen.width, b.screen.height);
  Render(fx, b, out);
  return out.pixels == b.pixels;
}

uint8_t Byte(uint32_t p, int32_t k) { return uint8_t(p >> (8 * k)); }

TEST(TimeBlurKernel, SimdMatchesScalarIncludingSaturation) {
  std::mt19937 rng(7);
  for (size_t count : {1u, 3u, 7u, 33u, 257u}) {
    for (size_t offset : {0u, 1u}) {
      for (int32_t shift = 0; shift <= 5; ++shift) {
        SCOPED_TRACE(::testing::Message() << count << " pixels at " << offset << ", shift " << shift);
        std::vector<uint32_t> src(count + 1), ring(count + 1), ref_dst(count + 1);
        std::vector<uint16_t> sum(4 * (count + 1));
        for (size_t i = 0; i <= count; ++i) src[i] = rng(), ring[i] = rng();
        // Sums near both ends so the saturating paths run.
        for (auto& v : sum) v = uint16_t(rng() % 3 == 0 ? 0xFFF0 + rng() % 16 : rng() % 300);
        auto ref_ring = ring;
        auto ref_sum = sum;
        nimbo::TimeBlurStepScalar(src.data() + offset, ref_dst.data() + offset, ref_ring.data() + offset,
                                  ref_sum.data() + 4 * offset, count, {shift});
        for (nimbo::TimeBlurStepFn fn :
             {nimbo::TimeBlurStepSse2, nimbo::CpuHasAvx2() ? nimbo::TimeBlurStepAvx2 : nimbo::TimeBlurStepSse2}) {
          std::vector<uint32_t> dst(count + 1), r = ring;
          std::vector<uint16_t> s = sum;
          fn(src.data() + offset, dst.data() + offset, r.data() + offset, s.data() + 4 * offset, count, {shift});
          EXPECT_EQ(dst, ref_dst);
          EXPECT_EQ(r, ref_ring);
          EXPECT_EQ(s, ref_sum);
        }
      }
    }
  }
  // The reference itself: saturation at both ends and the clamp to 255.
  uint32_t src = 0x000000FF, ring = 0x0000FF00, dst = 0;
  uint16_t sum[4] = {0xFFFF, 10, 0, 5000};
  nimbo::TimeBlurStepScalar(&src, &dst, &ring, sum, 1, {1});
  // 0xFFFF + 255 stays 0xFFFF and 10 - 255 gives 0 (wrapped, they would come
  // out as 127 and 255); 0xFFFF >> 1 and 5000 >> 1 clamp to 255.
  EXPECT_EQ(dst, 0xFF0000FFu);
}

// Output = min(255, sum of the last n frames / 2^s), 2^s the first power of two
// >= n: a still picture comes out at n = 5 as 5/8 of itself, at n = 8 whole.
// Random frames first, then a still one.
TEST(TimeBlur2, MatchesAStraightSumOverTheLastNFrames) {
  for (auto [n, divisor] : {std::pair{1, 1}, std::pair{3, 4}, std::pair{5, 8}, std::pair{8, 8}}) {
    SCOPED_TRACE(::testing::Message() << "n " << n);
    TestHost host(13, 7);
    auto fx = MakeTimeBlur(host, n);
    OwnedScreen out(13, 7);
    std::deque<OwnedScreen> history;
    for (int32_t frame = 0; frame < 24; ++frame) {
      OwnedScreen in(13, 7);
      nimbo::testing::FillRandom(in, frame < 12 ? 100 + frame : 99);
      ASSERT_EQ(Render(*fx, in, out), 1);
      if (frame == 0) history.assign(size_t(n), in);  // the reset frame fills the ring
      history.push_back(in);
      history.pop_front();
      for (size_t p = 0; p < in.pixels.size(); ++p) {
        for (int32_t k = 0; k < 4; ++k) {
          int32_t sum = 0;
          for (const OwnedScreen& f : history) sum += Byte(f.pixels[p], k);
          const int32_t expected = frame == 0 ? Byte(in.pixels[p], k) : std::min(255, sum / divisor);
          ASSERT_EQ(Byte(out.pixels[p], k), expected) << "frame " << frame;
        }
      }
      // n = 8 gives back a new picture after eight frames of it, not before.
      if (n == 8 && frame >= 12) {
        EXPECT_EQ(out.pixels == in.pixels, frame >= 19) << frame;
      }
    }
  }
}

struct ScriptedDialog final : orrery::DialogService {
  ScriptedDialog(int32_t a, int32_t c) : answer(a), choice(c) { orrery::SetDialogService(this); }
  ~ScriptedDialog() { orrery::SetDialogService(nullptr); }
  int32_t RunModal(const orrery::DialogModel& model) override {
    seen_choice = std::exchange(*static_cast<int32_t*>(model.fields[0].value), choice);
    return answer;
  }
  int32_t answer, choice, seen_choice = -1;
};

TEST(TimeBlur2, EveryResetTriggerStartsAFreshHistory) {
  TestHost host(5, 5);
  auto fx = MakeTimeBlur(host, 4);
  OwnedScreen a(5, 5), b(5, 5), out(5, 5);
  nimbo::testing::FillRandom(a, 11);
  nimbo::testing::FillRandom(b, 12);
  Render(*fx, a, out);
  EXPECT_FALSE(OutputIsInput(*fx, b)) << "without a trigger the history blends";

  // The host button counts when it goes from 0 to 1, not while it stays at 1.
  const orrery::SliderDesc* button = host.FindSlider("Reset buffers");
  ASSERT_NE(button, nullptr);
  EXPECT_EQ(std::tuple(button->p1, button->p2, button->p3, button->p4), std::tuple(100.0f, 10000.0f, 857.2f, 25));
  *button->value = 1.0f;
  EXPECT_TRUE(OutputIsInput(*fx, a));
  EXPECT_FALSE(OutputIsInput(*fx, b));
  *button->value = 0.0f;
  EXPECT_FALSE(OutputIsInput(*fx, a));

  fx->UpdateConfig();  // a configuration load
  EXPECT_TRUE(host.memory.empty()) << "a reset frees ring and sum";
  EXPECT_TRUE(OutputIsInput(*fx, b));
  // Cancel restarts the history; OK restarts it only when n changes (entry k is n = 2^k).
  for (auto [answer, choice, reset] : {std::tuple{0, 0, true}, std::tuple{1, 2, false}, std::tuple{1, 1, true}}) {
    SCOPED_TRACE(::testing::Message() << "answer " << answer << ", choice " << choice);
    ScriptedDialog dialog(answer, choice);
    EXPECT_EQ(fx->SetupDialog(), answer);
    EXPECT_EQ(dialog.seen_choice, 2);  // n = 4
    EXPECT_EQ(OutputIsInput(*fx, reset ? a : b), reset);
  }
  Render(*fx, b, out);
  EXPECT_TRUE(OutputIsInput(*fx, b)) << "n is 2 now";
}

TEST(TimeBlur2, SettingsBuffersAndRefusals) {
  // A stored n beyond the ring is held to 32 frames; below 1, to one frame.
  for (auto [stored, frames] : {std::pair{1000, 32}, std::pair{-3, 1}}) {
    TestHost host(4, 4);
    auto fx = MakeTimeBlur(host, stored);
    OwnedScreen in(4, 4, 0x40404040), out(4, 4);
    Render(*fx, in, out);
    EXPECT_TRUE(OutputIsInput(*fx, in)) << stored;
    EXPECT_EQ(host.memory.size(), size_t(frames) + 1) << stored;
  }
  // By default n = 8. Buffers follow the resolution; fresh ones are zero, so
  // the history starts from black: one frame in eight.
  TestHost host(8, 6);
  auto fx = MakeTimeBlur(host, 0);
  EXPECT_EQ(host.store.GetInt("n_screens", -1), 8);
  OwnedScreen big(8, 6, 0x80808080), small(5, 3, 0x80808080), out_small(5, 3), untouched(5, 3, 0x12345678);
  Render(*fx, big, big);  // in place
  host.SetOutputSize(5, 3);
  ASSERT_EQ(Render(*fx, small, out_small), 1);
  EXPECT_EQ(out_small.pixels[0], 0x10101010u);
  // Mismatched screens and missing inputs are refused without a write.
  EXPECT_EQ(Render(*fx, big, untouched), 0);
  EXPECT_EQ(nimbo::testing::RenderOnce(*fx, {nullptr}, &untouched.screen), 0);
  // So is a frame for which the host has no memory.
  host.refuse_memory = true;
  EXPECT_EQ(Render(*fx, small, untouched), 0);
  EXPECT_EQ(untouched.pixels, std::vector<uint32_t>(15, 0x12345678));
}

}  // namespace
