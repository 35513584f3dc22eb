#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <random>
#include <string>

#include "filters/time_blur_kernel.h"
#include "orrery/services.h"
#include "package/cpu.h"
#include "support/test_host.h"

namespace {

using nimbo::testing::OwnedScreen;
using nimbo::testing::TestHost;

constexpr int32_t kTimeBlur2 = 2;

// n = 0: a fresh store (defaults); anything else is stored as "n_screens".
std::unique_ptr<orrery::Effect> MakeTimeBlur(TestHost& host, int32_t n) {
  if (n != 0) {
    const std::string doc = "<Settings><ConfigData><data name=\"n_screens\" type=\"int\">" + std::to_string(n) +
                            "</data></ConfigData></Settings>";
    EXPECT_TRUE(host.store.Load(doc));
  }
  auto fx = nimbo::testing::MakeEffect(kTimeBlur2, &host);
  EXPECT_STREQ(fx->GetName(), "nimbo one\\TimeBlur2");
  fx->UpdateConfig();
  fx->Initialize();
  return fx;
}

int32_t Render(orrery::Effect& fx, const OwnedScreen& in, OwnedScreen& out) {
  return nimbo::testing::RenderOnce(fx, {&in.screen}, &out.screen);
}

uint8_t Byte(uint32_t p, int32_t k) { return uint8_t(p >> (8 * k)); }

TEST(TimeBlurKernel, SimdMatchesScalarIncludingSaturation) {
  std::mt19937 rng(7);
  std::vector<nimbo::TimeBlurStepFn> versions = {nimbo::TimeBlurStepSse2};
  if (nimbo::CpuHasAvx2()) versions.push_back(nimbo::TimeBlurStepAvx2);
  for (size_t count : {1u, 3u, 7u, 33u, 257u}) {
    for (size_t offset : {0u, 1u}) {
      for (int32_t shift = 0; shift <= 5; ++shift) {
        std::vector<uint32_t> src(count + 1), ring(count + 1);
        std::vector<uint16_t> sum(4 * (count + 1));
        for (auto& v : src) v = rng();
        for (auto& v : ring) v = rng();
        // Sums near both ends so the saturating paths run.
        for (auto& v : sum) v = uint16_t(rng() % 3 == 0 ? 0xFFF0 + rng() % 16 : rng() % 300);
        std::vector<uint32_t> ref_dst(count + 1), ref_ring = ring;
        std::vector<uint16_t> ref_sum = sum;
        nimbo::TimeBlurStepScalar(src.data() + offset, ref_dst.data() + offset, ref_ring.data() + offset,
                                  ref_sum.data() + 4 * offset, count, {shift});
        for (nimbo::TimeBlurStepFn fn : versions) {
          std::vector<uint32_t> dst(count + 1), r = ring;
          std::vector<uint16_t> s = sum;
          fn(src.data() + offset, dst.data() + offset, r.data() + offset, s.data() + 4 * offset, count, {shift});
          EXPECT_EQ(dst, ref_dst) << count << " " << offset << " " << shift;
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
  EXPECT_EQ(sum[0], 0xFFFF);  // 0xFFFF + 255 saturates
  EXPECT_EQ(sum[1], 0);       // 10 - 255 saturates
  EXPECT_EQ(sum[3], 5000);
  EXPECT_EQ(dst, 0xFF000000u | 0x0000FFu);  // 0xFFFF >> 1 and 5000 >> 1 clamp to 255
  EXPECT_EQ(ring, src);
}

TEST(TimeBlur2, StillPictureComesOutAtNOverTwoToTheS) {
  for (int32_t n : {1, 3, 5, 8}) {
    TestHost host(9, 5);
    auto fx = MakeTimeBlur(host, n);
    OwnedScreen in(9, 5), out(9, 5);
    nimbo::testing::FillRandom(in, 3);
    ASSERT_EQ(Render(*fx, in, out), 1);
    EXPECT_EQ(out.pixels, in.pixels) << "the reset frame is the input itself";
    const int32_t shift = nimbo::TimeBlurShift(n);
    for (int32_t frame = 0; frame < 3; ++frame) {
      ASSERT_EQ(Render(*fx, in, out), 1);
      for (size_t i = 0; i < in.pixels.size(); ++i) {
        for (int32_t k = 0; k < 4; ++k) {
          ASSERT_EQ(Byte(out.pixels[i], k), std::min(255, (n * Byte(in.pixels[i], k)) >> shift)) << n;
        }
      }
    }
  }
}

TEST(TimeBlur2, MatchesAStraightSumOverTheLastNFrames) {
  for (int32_t n : {3, 8}) {
    TestHost host(13, 7);
    auto fx = MakeTimeBlur(host, n);
    const int32_t shift = nimbo::TimeBlurShift(n);
    OwnedScreen out(13, 7);
    std::deque<OwnedScreen> history;
    for (int32_t frame = 0; frame < 20; ++frame) {
      OwnedScreen in(13, 7);
      nimbo::testing::FillRandom(in, 100 + frame);
      ASSERT_EQ(Render(*fx, in, out), 1);
      if (frame == 0) {
        for (int32_t i = 0; i < n; ++i) history.push_back(in);  // the reset frame fills the ring
      } else {
        history.push_back(in);
        history.pop_front();
      }
      for (size_t p = 0; p < in.pixels.size(); ++p) {
        for (int32_t k = 0; k < 4; ++k) {
          int32_t sum = 0;
          for (const OwnedScreen& f : history) sum += Byte(f.pixels[p], k);
          const int32_t expected = frame == 0 ? Byte(in.pixels[p], k) : std::min(255, sum >> shift);
          ASSERT_EQ(Byte(out.pixels[p], k), expected) << "n " << n << " frame " << frame;
        }
      }
    }
  }
}

TEST(TimeBlur2, EightFramesOfANewPictureReplaceTheOld) {
  TestHost host(6, 4);
  auto fx = MakeTimeBlur(host, 8);
  OwnedScreen a(6, 4), b(6, 4), out(6, 4);
  nimbo::testing::FillRandom(a, 1);
  nimbo::testing::FillRandom(b, 2);
  Render(*fx, a, out);
  for (int32_t i = 0; i < 7; ++i) {
    Render(*fx, b, out);
    EXPECT_NE(out.pixels, b.pixels) << i;
  }
  Render(*fx, b, out);
  EXPECT_EQ(out.pixels, b.pixels);
}

class ScriptedDialog final : public orrery::DialogService {
 public:
  ScriptedDialog(int32_t answer, int32_t choice) : answer_(answer), choice_(choice) { orrery::SetDialogService(this); }
  ~ScriptedDialog() { orrery::SetDialogService(nullptr); }
  int32_t RunModal(const orrery::DialogModel& model) override {
    for (int32_t i = 0; i < model.count; ++i) {
      if (model.fields[i].type == orrery::DialogFieldType::kChoice) {
        seen_choice = *static_cast<int32_t*>(model.fields[i].value);
        choices = model.fields[i].choices;
        *static_cast<int32_t*>(model.fields[i].value) = choice_;
      }
    }
    return answer_;
  }
  int32_t seen_choice = -1;
  std::string choices;

 private:
  int32_t answer_;
  int32_t choice_;
};

// After the first (reset) frame of `a`, a frame of `b` either is a reset
// frame (output == b) or blends with a.
bool NextFrameIsReset(orrery::Effect& fx, const OwnedScreen& b) {
  OwnedScreen out(b.screen.width, b.screen.height);
  Render(fx, b, out);
  return out.pixels == b.pixels;
}

TEST(TimeBlur2, EveryResetTriggerStartsAFreshHistory) {
  TestHost host(5, 5);
  auto fx = MakeTimeBlur(host, 4);
  OwnedScreen a(5, 5), b(5, 5), out(5, 5);
  nimbo::testing::FillRandom(a, 11);
  nimbo::testing::FillRandom(b, 12);
  Render(*fx, a, out);
  EXPECT_FALSE(NextFrameIsReset(*fx, b)) << "without a trigger the history blends";

  // The host button counts when it goes from 0 to 1, not while it stays at 1.
  const orrery::SliderDesc* button = host.FindSlider("Reset buffers");
  ASSERT_NE(button, nullptr);
  EXPECT_EQ(button->p1, 100.0f);
  EXPECT_EQ(button->p2, 10000.0f);
  EXPECT_EQ(button->p3, 857.2f);
  EXPECT_EQ(button->p4, 25);
  *button->value = 1.0f;
  EXPECT_TRUE(NextFrameIsReset(*fx, a));
  EXPECT_FALSE(NextFrameIsReset(*fx, b));
  *button->value = 0.0f;
  EXPECT_FALSE(NextFrameIsReset(*fx, a));

  // A configuration load.
  fx->UpdateConfig();
  EXPECT_TRUE(host.memory.empty()) << "a reset frees ring and sum";
  EXPECT_TRUE(NextFrameIsReset(*fx, b));

  {  // Cancel: n stays, the history restarts.
    ScriptedDialog dialog(0, 0);
    EXPECT_EQ(fx->SetupDialog(), 0);
    EXPECT_EQ(dialog.seen_choice, 2);  // n = 4
    EXPECT_EQ(dialog.choices, "1|2|4|8|16|32");
    EXPECT_TRUE(NextFrameIsReset(*fx, a));
  }
  {  // OK with the same n keeps the history.
    ScriptedDialog dialog(1, 2);
    EXPECT_EQ(fx->SetupDialog(), 1);
    EXPECT_FALSE(NextFrameIsReset(*fx, b));
  }
  {  // OK with a new n: n = 2^k, and a reset.
    ScriptedDialog dialog(1, 1);
    EXPECT_EQ(fx->SetupDialog(), 1);
    EXPECT_TRUE(NextFrameIsReset(*fx, a));
    Render(*fx, b, out);
    Render(*fx, b, out);
    EXPECT_EQ(out.pixels, b.pixels) << "n is 2 now";
  }
}

TEST(TimeBlur2, ConfigurationKeysAndBadValues) {
  {
    TestHost host;
    MakeTimeBlur(host, 0);
    EXPECT_EQ(host.store.GetInt("n_screens", -1), 8);
    const std::string text = host.store.Text();
    EXPECT_NE(text.find("<data name=\"n_screens\" type=\"int\">8</data>"), std::string::npos) << text;
  }
  // A stored n beyond the ring is held to 32 frames; below 1, to one frame.
  for (auto [stored, frames] : {std::pair{1000, 32}, std::pair{-3, 1}}) {
    TestHost host(4, 4);
    auto fx = MakeTimeBlur(host, stored);
    OwnedScreen in(4, 4, 0x40404040), out(4, 4);
    Render(*fx, in, out);
    Render(*fx, in, out);
    EXPECT_EQ(host.memory.size(), size_t(frames) + 1);
    EXPECT_EQ(out.pixels, in.pixels);
  }
}

TEST(TimeBlur2, BuffersFollowTheResolution) {
  TestHost host(8, 6);
  auto fx = MakeTimeBlur(host, 8);
  OwnedScreen big(8, 6, 0x80808080), out_big(8, 6);
  Render(*fx, big, out_big);
  Render(*fx, big, out_big);
  host.SetOutputSize(5, 3);
  OwnedScreen small(5, 3, 0x80808080), out_small(5, 3);
  ASSERT_EQ(Render(*fx, small, out_small), 1);
  EXPECT_EQ(host.memory[0].size(), 5u * 3u * 8u);
  EXPECT_EQ(host.memory[1].size(), 5u * 3u * 4u);
  // Fresh buffers are zero: the history starts from black, one frame in eight.
  EXPECT_EQ(out_small.pixels[0], 0x10101010u);

  // Mismatched screens and missing inputs are refused without a write.
  OwnedScreen untouched(5, 3, 0x12345678);
  EXPECT_EQ(Render(*fx, big, untouched), 0);
  EXPECT_EQ(nimbo::testing::RenderOnce(*fx, {nullptr}, &untouched.screen), 0);
  EXPECT_EQ(untouched.pixels, std::vector<uint32_t>(15, 0x12345678));
}

// A host whose memory service has nothing to give.
class NoMemoryHost final : public orrery::HostContext {
 public:
  void* GetMainWindow() override { return nullptr; }
  orrery::ConfigStore* GetConfigStore() override { return nullptr; }
  void GetOutputSize(orrery::OutputDesc* out) override { *out = {4, 4, 25.0f}; }
  void Notify(int32_t, int32_t) override {}
  void DeclareSlider(const orrery::SliderDesc&) override {}
  void PublishDynVars(orrery::DynVar*) override {}
  void* GetMemory(int32_t, size_t) override { return nullptr; }
  void FreeMemory(int32_t) override {}
  int64_t GetTimeMs() override { return 0; }
  void DescribeSetting(const orrery::SettingInfo&) override {}
};

TEST(TimeBlur2, NoMemoryMeansFailureAndAnUntouchedOutput) {
  NoMemoryHost host;
  auto fx = nimbo::testing::MakeEffect(kTimeBlur2, nullptr);
  fx->SetHostContext(&host);
  fx->UpdateConfig();
  OwnedScreen in(4, 4, 0x11111111), out(4, 4, 0x22222222);
  EXPECT_EQ(Render(*fx, in, out), 0);
  EXPECT_EQ(out.pixels, std::vector<uint32_t>(16, 0x22222222));
}

}  // namespace
