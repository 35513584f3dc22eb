// Every registered effect, through the host's calling order, over awkward
// frame sizes and several frames: it must stay inside its output, leave its
// inputs alone, and give the same pictures for the same inputs and seed.
// (Run under the asan preset, this is also the package's crash test.)
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "orrery/package.h"
#include "core/platform.h"
#include "test_host.h"

namespace {

using nimbo::testing::MessageCapture;
using nimbo::testing::OwnedScreen;
using nimbo::testing::TestHost;

constexpr uint32_t kCanary = 0xDEADBEEFu;
constexpr size_t kGuardWords = 64;

// An output screen with guard words on both sides of its pixels.
struct GuardedScreen {
  GuardedScreen(int32_t w, int32_t h) : words(size_t(w) * h + 2 * kGuardWords, kCanary) {
    screen = {w, h, words.data() + kGuardWords};
    std::fill(screen.pixels, screen.pixels + screen.PixelCount(), 0u);
  }
  bool GuardsIntact() const {
    auto intact = [](auto first, auto last) { return std::all_of(first, last, [](uint32_t w) { return w == kCanary; }); };
    return intact(words.begin(), words.begin() + kGuardWords) && intact(words.end() - kGuardWords, words.end());
  }
  std::vector<uint32_t> Pixels() const { return {screen.pixels, screen.pixels + screen.PixelCount()}; }
  std::vector<uint32_t> words;
  orrery::Screen screen;
};

struct RunResult {
  std::vector<std::vector<uint32_t>> frames;
  bool guards_intact = true;
  bool inputs_intact = true;
};

// Drives one fresh effect the way a host does and keeps every output frame.
RunResult RenderSequence(int32_t index, int32_t w, int32_t h, int frames) {
  RunResult run;
  TestHost host(w, h);
  std::unique_ptr<orrery::Effect> effect(orrpkgCreateNewDFXObject(index));
  if (!effect) return run;
  effect->SetHostContext(&host);
  effect->UpdateConfig();
  std::vector<OwnedScreen> inputs;
  for (int32_t i = 0; i < effect->GetInputCount(); ++i) {
    orrery::Size size = effect->GetInputScreenRes(i, w, h);
    if (size.width <= 0 || size.height <= 0) size = {w, h};
    inputs.emplace_back(size.width, size.height);
  }
  effect->Initialize();
  nimbo::platform::SeedRand(1);
  for (int f = 0; f < frames; ++f) {
    std::vector<const orrery::Screen*> list;
    for (size_t i = 0; i < inputs.size(); ++i) {
      nimbo::testing::FillRandom(inputs[i], uint32_t(1000 * f + 17 * i + index));
      list.push_back(&inputs[i].screen);
    }
    std::vector<std::vector<uint32_t>> before;
    for (OwnedScreen& in : inputs) before.push_back(in.pixels);
    GuardedScreen out(w, h);
    host.time_ms = f * 40;
    nimbo::testing::RenderOnce(*effect, list, &out.screen);
    run.guards_intact = run.guards_intact && out.GuardsIntact();
    for (size_t i = 0; i < inputs.size(); ++i) run.inputs_intact = run.inputs_intact && inputs[i].pixels == before[i];
    run.frames.push_back(out.Pixels());
  }
  return run;
}

class EveryEffect : public ::testing::TestWithParam<int32_t> {};

TEST_P(EveryEffect, StaysInsideItsOutputLeavesInputsAloneAndRepeatsItself) {
  MessageCapture messages;  // effects that cannot reach the 3D engine say so here
  const int32_t index = GetParam();
  const orrery::Size sizes[] = {{1, 1}, {2, 3}, {17, 9}, {64, 48}, {5, 1}, {1, 7}};
  for (orrery::Size size : sizes) {
    SCOPED_TRACE(::testing::Message() << size.width << "x" << size.height);
    RunResult first = RenderSequence(index, size.width, size.height, 4);
    RunResult second = RenderSequence(index, size.width, size.height, 4);
    EXPECT_TRUE(first.guards_intact) << "wrote outside the output screen";
    EXPECT_TRUE(first.inputs_intact) << "changed an input screen";
    EXPECT_EQ(first.frames, second.frames) << "same inputs and seed, different pictures";
  }
}

TEST_P(EveryEffect, DrawsNothingBeforeInitializeAndSurvivesOddInputs) {
  MessageCapture messages;
  const int32_t index = GetParam();
  TestHost host(32, 24);
  std::unique_ptr<orrery::Effect> effect(orrpkgCreateNewDFXObject(index));
  ASSERT_NE(effect, nullptr);
  effect->SetHostContext(&host);
  effect->UpdateConfig();
  std::vector<OwnedScreen> fitting;
  std::vector<const orrery::Screen*> fitting_list;
  for (int32_t i = 0; i < effect->GetInputCount(); ++i) {
    const orrery::Size size = effect->GetInputScreenRes(i, 32, 24);
    fitting.emplace_back(size.width > 0 ? size.width : 32, size.height > 0 ? size.height : 24, 0xFF808080u);
  }
  for (OwnedScreen& s : fitting) fitting_list.push_back(&s.screen);
  GuardedScreen out(32, 24);
  // Before Initialize has fetched the output size nothing is drawn.
  EXPECT_EQ(nimbo::testing::RenderOnce(*effect, fitting_list, &out.screen), 0);
  EXPECT_EQ(out.Pixels(), std::vector<uint32_t>(32 * 24, 0u));
  effect->Initialize();
  // No inputs at all, then inputs of another size than negotiated, then an
  // output of another size than Initialize was told: each frame may be
  // skipped, none may touch memory it does not own.
  nimbo::testing::RenderOnce(*effect, {}, &out.screen);
  std::vector<OwnedScreen> odd;
  std::vector<const orrery::Screen*> list;
  for (int32_t i = 0; i < effect->GetInputCount(); ++i) odd.emplace_back(7, 5, 0xFF808080u);
  for (OwnedScreen& s : odd) list.push_back(&s.screen);
  nimbo::testing::RenderOnce(*effect, list, &out.screen);
  GuardedScreen small(8, 6);
  nimbo::testing::RenderOnce(*effect, list, &small.screen);
  EXPECT_TRUE(out.GuardsIntact());
  EXPECT_TRUE(small.GuardsIntact());
}

INSTANTIATE_TEST_SUITE_P(Package, EveryEffect, ::testing::Range(0, 24));

}  // namespace
