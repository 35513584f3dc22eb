#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <random>
#include <string>
#include <tuple>
#include <utility>

#include "time_blur_kernel.h"
#include "orrery/services.h"
#include "core/cpu.h"
#include "test_host.h"

namespace {

using nimbo::testing::OwnedScreen;
using nimbo::testing::TestHost;

// n = 0: a fresh store (defaults); anything else is stored as "n_screens".
std::unique_ptr<orrery::Effect> MakeTimeBlur(TestHost& host, int32_t n) {
  if (n != 0) {
    EXPECT_TRUE(host.store.Load("<Settings><ConfigData><data name=\"n_screens\" type=\"int\">" + std::to_string(n) +
                                "</data></ConfigData></Settings>"));
  }
  auto fx = nimbo::testing::MakeEffect("TimeBlur2", &host);
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

// The packed words as the layout describes them, read independently of the
// kernels: per 16 pixels 64 high bytes and 32 nibble bytes, then plain words.
uint16_t PackedWord(const std::vector<uint8_t>& sums, size_t count, int32_t shift, size_t channel) {
  const size_t blocks = count / 16;
  if (channel >= blocks * 64) {
    uint16_t word;
    std::memcpy(&word, sums.data() + blocks * 96 + (channel - blocks * 64) * 2, 2);
    return word;
  }
  const uint8_t* block = sums.data() + channel / 64 * 96;
  const size_t c = channel % 64;
  const int32_t nibble = c < 32 ? block[64 + c] & 15 : block[64 + c - 32] >> 4;
  return uint16_t(block[c] << shift | nibble);
}

TEST(TimeBlurKernel, PackedSumsFollowThePlainOnes) {
  std::mt19937 rng(3);
  auto random_frame = [&rng](size_t count) {
    std::vector<uint32_t> f(count);
    for (auto& p : f) p = rng();
    return f;
  };
  std::vector<nimbo::TimeBlurPackedStepFn> packed_steps = {nimbo::TimeBlurPackedStepScalar};
  if (nimbo::CpuHasAvx2()) packed_steps.push_back(nimbo::TimeBlurPackedStepAvx2);
  // A history from a reset frame: every frame's output, ring slot and sums
  // equal the plain step's, at every n the packed form takes.
  for (int32_t n : {1, 2, 3, 5, 8, 16}) {
    const int32_t shift = nimbo::TimeBlurShift(n);
    for (size_t count : {1u, 15u, 16u, 17u, 47u, 100u}) {
      SCOPED_TRACE(::testing::Message() << "n " << n << ", " << count << " pixels");
      const std::vector<uint32_t> first = random_frame(count);
      std::vector<std::vector<uint32_t>> ref_ring(size_t(n), first);
      std::vector<uint16_t> ref_sum(count * 4);
      nimbo::TimeBlurFillSum(first.data(), ref_sum.data(), count, n);
      std::vector<std::vector<std::vector<uint32_t>>> rings(packed_steps.size(), ref_ring);
      std::vector<std::vector<uint8_t>> sums(packed_steps.size(), std::vector<uint8_t>(count * 8));
      for (auto& s : sums) nimbo::TimeBlurFillPackedSum(first.data(), s.data(), count, n);
      for (int32_t frame = 0; frame < 2 * n + 3; ++frame) {
        const std::vector<uint32_t> in = random_frame(count);
        std::vector<uint32_t> ref_out(count);
        nimbo::TimeBlurStepScalar(in.data(), ref_out.data(), ref_ring[size_t(frame % n)].data(), ref_sum.data(),
                                  count, {shift});
        for (size_t k = 0; k < packed_steps.size(); ++k) {
          std::vector<uint32_t> out(count);
          packed_steps[k](in.data(), out.data(), rings[k][size_t(frame % n)].data(), sums[k].data(), count, {shift});
          ASSERT_EQ(out, ref_out) << "version " << k << ", frame " << frame;
          ASSERT_EQ(rings[k], ref_ring) << "version " << k;
        }
      }
      for (size_t k = 0; k < packed_steps.size(); ++k) {
        for (size_t c = 0; c < count * 4; ++c) {
          ASSERT_EQ(PackedWord(sums[k], count, shift, c), ref_sum[c]) << "version " << k << ", channel " << c;
        }
      }
    }
  }
  // Any content at all, nibbles above the shift's bits included: the SIMD
  // step gives the scalar step's bytes, in place too.
  if (!nimbo::CpuHasAvx2()) return;
  for (int32_t shift = 0; shift <= nimbo::kTimeBlurPackedMaxShift; ++shift) {
    for (size_t count : {16u, 33u, 100u}) {
      SCOPED_TRACE(::testing::Message() << "shift " << shift << ", " << count << " pixels");
      std::vector<uint32_t> src = random_frame(count), ring = random_frame(count);
      std::vector<uint8_t> sums(count * 8);
      for (auto& b : sums) b = uint8_t(rng());
      // The tail's plain words near both ends, so their saturation runs.
      for (size_t i = count / 16 * 96; i + 1 < sums.size(); i += 2) {
        const uint16_t word = uint16_t(rng() % 2 ? 0xFFF0 + rng() % 16 : rng() % 300);
        std::memcpy(&sums[i], &word, 2);
      }
      std::vector<uint32_t> ref_ring = ring, ref_out = src;
      std::vector<uint8_t> ref_sums = sums;
      nimbo::TimeBlurPackedStepScalar(ref_out.data(), ref_out.data(), ref_ring.data(), ref_sums.data(), count,
                                      {shift});
      auto out = src;
      nimbo::TimeBlurPackedStepAvx2(out.data(), out.data(), ring.data(), sums.data(), count, {shift});
      EXPECT_EQ(out, ref_out);
      EXPECT_EQ(ring, ref_ring);
      EXPECT_EQ(sums, ref_sums);
    }
  }
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

// Buffers of a new size hold what the host put there. Zeros are a history of
// black; anything else is read as plain 16-bit sums, saturation and all,
// whatever form the effect keeps its own sums in.
TEST(TimeBlur2, BuffersOfANewSizeAreReadAsTheHostFilledThem) {
  for (uint8_t fill : {0x00, 0x40}) {
    SCOPED_TRACE(::testing::Message() << "fill " << int(fill));
    TestHost host(8, 6);
    auto fx = MakeTimeBlur(host, 0);  // n = 8
    OwnedScreen big(8, 6, 0x10203040), in(8, 4, 0x80808080), out(8, 4);
    Render(*fx, big, big);
    host.fresh_memory = fill;
    host.SetOutputSize(8, 4);
    // Zeros: 0x80 over eight frames, one frame in. A word of 0x4040:
    // 0x4040 + 0x80 - 0x40 = 16512, >> 3 clamps to 255.
    ASSERT_EQ(Render(*fx, in, out), 1);
    EXPECT_EQ(out.pixels, std::vector<uint32_t>(32, fill ? 0xFFFFFFFF : 0x10101010));
    ASSERT_EQ(Render(*fx, in, out), 1);
    EXPECT_EQ(out.pixels, std::vector<uint32_t>(32, fill ? 0xFFFFFFFF : 0x20202020));
  }
}

}  // namespace
