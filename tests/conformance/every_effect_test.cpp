// Every registered effect, through the host's calling order, over awkward
// frame sizes and several frames: it must stay inside its output, leave its
// inputs alone, and give the same pictures for the same inputs and seed.
// Every setting an effect describes to its host is also tried at each end of
// its range. (Run under the asan preset, this is also the package's crash
// test.)
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "core/platform.h"
#include "orrery/package.h"
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
    auto intact = [](auto first, auto last) {
      return std::all_of(first, last, [](uint32_t w) { return w == kCanary; });
    };
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

// One stored setting written into the store before the effect reads it.
struct Override {
  std::string key;
  orrery::SettingType type = orrery::SettingType::kInt;
  double value = 0;
};

// A stored ConfigData with this one key: the effect reads it and keeps its
// defaults for everything else.
void StoreOnly(TestHost& host, const Override& setting) {
  host.store.BeginWriting();
  if (setting.type == orrery::SettingType::kInt)
    host.store.SetInt(setting.key.c_str(), int32_t(setting.value));
  else
    host.store.SetFloat(setting.key.c_str(), float(setting.value));
}

// A large frame kept as a 64-bit FNV-1a hash of its pixels (two words), so
// thirty full-HD frames need not all be held to be compared.
std::vector<uint32_t> Kept(const std::vector<uint32_t>& pixels) {
  if (pixels.size() <= 100000) return pixels;
  uint64_t hash = 0xcbf29ce484222325ull;
  for (uint32_t p : pixels) hash = (hash ^ p) * 0x100000001b3ull;
  return {uint32_t(hash), uint32_t(hash >> 32)};
}

// Drives one fresh effect the way a host does and keeps every output frame.
// `saved`: a settings document (another instance's save) the host's store
// holds before the effect reads it.
RunResult RenderSequence(int32_t index, int32_t w, int32_t h, int frames, const Override* setting = nullptr,
                         const std::string* saved = nullptr) {
  RunResult run;
  TestHost host(w, h);
  std::unique_ptr<orrery::Effect> effect(orrpkgCreateNewDFXObject(index));
  if (!effect) return run;
  effect->SetHostContext(&host);
  if (setting) StoreOnly(host, *setting);
  if (saved && !host.store.Load(*saved)) return run;
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
    run.frames.push_back(Kept(out.Pixels()));
  }
  return run;
}

// The settings document a fresh instance writes (what a host saves).
std::string SavedSettings(int32_t index) {
  TestHost host;
  std::unique_ptr<orrery::Effect> effect(orrpkgCreateNewDFXObject(index));
  effect->SetHostContext(&host);
  effect->UpdateConfig();
  return host.store.Text();
}

// What an effect given `setting` in its store writes for that key when it
// is later handed a fresh store (as a host saving a preset does).
double ValueTheEffectKeeps(int32_t index, const Override& setting) {
  TestHost host, fresh;
  std::unique_ptr<orrery::Effect> effect(orrpkgCreateNewDFXObject(index));
  effect->SetHostContext(&host);
  StoreOnly(host, setting);
  effect->UpdateConfig();
  effect->SetHostContext(&fresh);
  effect->UpdateConfig();
  return setting.type == orrery::SettingType::kInt ? double(fresh.store.GetInt(setting.key.c_str(), INT32_MIN))
                                                   : double(fresh.store.GetFloat(setting.key.c_str(), std::nanf("")));
}

// The package's effects by name (as `nimbo list` shows them), in registry
// order; each test finds its effect by that name.
std::vector<std::string> EffectNames() {
  std::vector<std::string> names;
  for (int32_t i = 0; i < orrpkgGetSize(); ++i) {
    std::unique_ptr<orrery::Effect> effect(orrpkgCreateNewDFXObject(i));
    const std::string full = effect ? effect->GetName() : "";
    names.push_back(full.substr(full.rfind('\\') + 1));
  }
  return names;
}

std::string TestNameOf(const ::testing::TestParamInfo<std::string>& info) {
  std::string name;
  for (char c : info.param) {
    if (std::isalnum(static_cast<unsigned char>(c))) name += c;
  }
  return name;
}

class EveryEffect : public ::testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    index_ = nimbo::testing::EffectIndex(GetParam().c_str());
    ASSERT_GE(index_, 0) << GetParam();
  }
  int32_t index_ = -1;
};

TEST_P(EveryEffect, StaysInsideItsOutputLeavesInputsAloneAndRepeatsItself) {
  MessageCapture messages;  // effects that cannot reach the 3D engine say so here
  const int32_t index = index_;
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
  const int32_t index = index_;
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
  // Before Initialize has fetched the output size nothing is drawn. The frame
  // is reported as skipped, except by ChromaKeyPRO, which reports success
  // for every frame.
  EXPECT_EQ(nimbo::testing::RenderOnce(*effect, fitting_list, &out.screen), GetParam() == "ChromaKeyPRO" ? 1 : 0);
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

TEST_P(EveryEffect, RunsWithEachDescribedSettingAtEitherEndOfItsRange) {
  MessageCapture messages;
  const int32_t index = index_;
  TestHost probe;
  std::unique_ptr<orrery::Effect> effect(orrpkgCreateNewDFXObject(index));
  ASSERT_NE(effect, nullptr);
  effect->SetHostContext(&probe);
  effect->UpdateConfig();
  for (const orrery::SettingInfo& info : probe.described) {
    if (info.type != orrery::SettingType::kInt && info.type != orrery::SettingType::kFloat) continue;
    for (double value : {info.minimum, info.maximum}) {
      SCOPED_TRACE(::testing::Message() << info.key << " = " << value);
      const Override setting{info.key, info.type, value};
      // Floats are kept to six decimals.
      EXPECT_NEAR(ValueTheEffectKeeps(index, setting), value, 1e-6 * std::max(1.0, std::fabs(value)))
          << "the setting did not reach the effect";
      RunResult first = RenderSequence(index, 13, 7, 3, &setting);
      RunResult second = RenderSequence(index, 13, 7, 3, &setting);
      ASSERT_EQ(first.frames.size(), 3u);
      EXPECT_TRUE(first.guards_intact) << "wrote outside the output screen";
      EXPECT_TRUE(first.inputs_intact) << "changed an input screen";
      EXPECT_EQ(first.frames, second.frames) << "same inputs, seed and setting, different pictures";
    }
  }
}

// Thirty frames from the smallest picture to full HD (the 3D effects through
// the engine, Mesa's software renderer where there is no GPU), by a fresh
// instance and by one whose settings came from another's save: the same
// pictures. Under the sanitizers, which slow the software renderer tenfold,
// only the two small sizes run (the other tests cover the sanitizer's
// concerns at small sizes; the large ones are the release run's).
TEST_P(EveryEffect, GivesTheSamePicturesAtEverySizeAfterASaveAndALoad) {
  MessageCapture messages;
#if defined(__SANITIZE_ADDRESS__)
  constexpr bool kLargeSizes = false;
#else
  constexpr bool kLargeSizes = true;
#endif
  const std::string saved = SavedSettings(index_);
  const orrery::Size sizes[] = {{1, 1}, {17, 9}, {320, 240}, {1920, 1080}};
  for (orrery::Size size : sizes) {
    if (size.width >= 320 && !kLargeSizes) continue;
    SCOPED_TRACE(::testing::Message() << size.width << "x" << size.height);
    const int frames = 30;
    RunResult fresh = RenderSequence(index_, size.width, size.height, frames);
    RunResult loaded = RenderSequence(index_, size.width, size.height, frames, nullptr, &saved);
    ASSERT_EQ(fresh.frames.size(), size_t(frames));
    EXPECT_TRUE(fresh.guards_intact && loaded.guards_intact) << "wrote outside the output screen";
    EXPECT_TRUE(fresh.inputs_intact) << "changed an input screen";
    EXPECT_EQ(fresh.frames, loaded.frames) << "the loaded settings give other pictures";
  }
}

INSTANTIATE_TEST_SUITE_P(Package, EveryEffect, ::testing::ValuesIn(EffectNames()), TestNameOf);

TEST(EveryEffectNames, CoverTheWholeRegistryAndAreUnique) {
  const std::vector<std::string> names = EffectNames();
  EXPECT_EQ(int32_t(names.size()), orrpkgGetSize());
  for (size_t i = 0; i < names.size(); ++i) {
    EXPECT_EQ(nimbo::testing::EffectIndex(names[i].c_str()), int32_t(i)) << names[i];
  }
}

}  // namespace
