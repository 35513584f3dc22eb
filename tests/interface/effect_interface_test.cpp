// The interface contract a separately built host relies on: the slot order
// of the effect operations, the registry's index order and limits, and the
// base behaviour every effect inherits.
#include <gtest/gtest.h>

#include <cstring>
#include <regex>
#include <set>
#include <string>

#include "core/effect_base.h"
#include "core/registry.h"
#include "orrery/package.h"
#include "orrery/services.h"
#include "test_host.h"

namespace {

using orrery::Effect;

// On the Itanium C++ ABI a pointer to a virtual member function holds
// 1 + the byte offset of its entry in the virtual table.
template <class F>
long VtableIndex(F pmf) {
  struct Repr {
    uintptr_t ptr;
    ptrdiff_t adj;
  } repr;
  static_assert(sizeof(F) == sizeof(Repr));
  std::memcpy(&repr, &pmf, sizeof repr);
  EXPECT_EQ(repr.ptr & 1u, 1u) << "not a virtual function";
  return long((repr.ptr - 1) / sizeof(void*));
}

TEST(EffectInterface, OperationsSitInTheirSlots) {
  EXPECT_EQ(VtableIndex(&Effect::GetInputCount), 0);
  EXPECT_EQ(VtableIndex(&Effect::GetInputDefaultRes), 1);
  EXPECT_EQ(VtableIndex(&Effect::GetInputTypeName), 2);
  EXPECT_EQ(VtableIndex(&Effect::GetCapability), 3);
  EXPECT_EQ(VtableIndex(&Effect::GetOutputRes), 4);
  EXPECT_EQ(VtableIndex(&Effect::GetName), 5);
  EXPECT_EQ(VtableIndex(&Effect::GetAuthor), 6);
  EXPECT_EQ(VtableIndex(&Effect::GetCategory), 7);
  EXPECT_EQ(VtableIndex(&Effect::GetVersion), 8);
  EXPECT_EQ(VtableIndex(&Effect::GetID), 9);
  // Slot 10 is the destructor: two table entries on this ABI (10 and 11),
  // so every later slot n sits at entry n + 1.
  EXPECT_EQ(VtableIndex(&Effect::UpdateConfig), 11 + 1);
  EXPECT_EQ(VtableIndex(&Effect::Initialize), 12 + 1);
  EXPECT_EQ(VtableIndex(&Effect::Render), 13 + 1);
  EXPECT_EQ(VtableIndex(&Effect::SetupDialog), 14 + 1);
  EXPECT_EQ(VtableIndex(&Effect::GetDisplayName), 15 + 1);
  EXPECT_EQ(VtableIndex(&Effect::GetInputScreenRes), 16 + 1);
  EXPECT_EQ(VtableIndex(&Effect::GetInputScreenName), 17 + 1);
  EXPECT_EQ(VtableIndex(&Effect::GetLabelBitmap), 18 + 1);
  EXPECT_EQ(VtableIndex(&Effect::ConfirmRenderSource), 19 + 1);
  EXPECT_EQ(VtableIndex(&Effect::GetInputState), 20 + 1);
  EXPECT_EQ(VtableIndex(&Effect::GetMemoryUsage), 21 + 1);
  EXPECT_EQ(VtableIndex(&Effect::SendEffectMessage), 22 + 1);
  EXPECT_EQ(VtableIndex(&Effect::OnHostNotify), 23 + 1);
  EXPECT_EQ(VtableIndex(&Effect::QueryHostValue), 24 + 1);
  EXPECT_EQ(VtableIndex(&Effect::QueryHostFlag), 25 + 1);
  EXPECT_EQ(VtableIndex(&Effect::OnEnterIdleState), 26 + 1);
}

struct Expected {
  const char* name;
  const char* category;
  std::vector<std::string> inputs;
  const char* output_name;
  uint64_t id;
  // What GetInputScreenName answers where it differs from the type names
  // (texture inputs named by the effect's material manager).
  std::vector<std::string> screen_names = {};
};

// The index order and descriptions a host sees.
// clang-format off
const Expected kExpected[] = {
    {"nimbo one\\ReScaler", "Effect,XYZ,", {"RGB Bitmap"}, "", 0x002438315E35C1B9ull},
    {"nimbo one\\LoPass", "Effect,Filter,", {"RGB Bitmap"}, "", 0x0169E4AAD24247DCull},
    {"nimbo one\\TimeBlur2", "Effect,Filter,Time,Blur,", {"RGB Bitmap"}, "", 0x0169BDBC6AB2405Cull},
    {"nimbo one\\Fast h-Blur", "Effect,Filter,Blur,", {"RGB Bitmap"}, "", 0x0169ADE061BAF12Dull},
    {"nimbo one\\RGB Displacer", "Effect,Filter,Colour,", {"RGB Bitmap"}, "output", 0x00239F3FD51CC1A0ull},
    {"nimbo one\\ColorReducer", "Effect,Filter,Colour,", {"RGB Bitmap"}, "", 0x0168F81A1A7F521Eull},
    {"nimbo one\\3D Effect\\Evaluator3D", "Effect,3D,", {"Background", "UNKNOWN", "UNKNOWN", "height map"}, "output",
     0x002412455A043E27ull, {"Background", "tex1", "tex2", "height map"}},
    {"nimbo one\\3D Effect\\3DSViewer", "Effect,3D,",
     {"Background", "RGB Texture", "RGB Texture", "RGB Texture", "RGB Texture", "RGB Texture", "RGB Texture",
      "RGB Texture", "RGB Texture"},
     "output", 0x016691D868689F7Aull},
    {"nimbo one\\Glitter", "Effect,Filter,", {"RGB Bitmap"}, "output", 0x016425FDE5C6C140ull},
    {"nimbo one\\Retina Killer", "Effect,Filter,", {"RGB Bitmap"}, "output", 0x0163498A3DB12937ull},
    {"nimbo one\\3D Effect\\Blob 3D", "Effect,3D,", {"background", "UNKNOWN", "UNKNOWN"}, "output",
     0x00239E34697957E2ull, {"background", "tex1", "tex2"}},
    {"nimbo one\\3D Effect\\Donkey", "Effect,3D,", {"Background", "UNKNOWN", "UNKNOWN"}, "output",
     0x0024E38DBAA4EAA7ull},
    {"nimbo one\\3D Effect\\ImplicitBeast", "Effect,3D,", {"background", "UNKNOWN", "UNKNOWN"}, "output",
     0x016C7EF26E114765ull},
    {"nimbo one\\3D Effect\\WAXViewer", "Effect,3D,", {"Background", "WAX", "UNKNOWN", "UNKNOWN"}, "output",
     0x016D2330FD25D684ull},
    {"nimbo one\\3D Effect\\WAXRotate", "Effect,3D,", {"WAX input"}, "WAX output", 0x016D24EA41001A10ull},
    {"nimbo one\\3D Effect\\3DStoWAX", "Effect,Filter,3D,", {}, "", 0x0003A73B213EE061ull},
    {"nimbo one\\ChromaKeyPRO", "Effect,Filter,Keying,", {"Chroma", "Background"}, "", 0x01739FD3B7D85F4Dull},
    {"nimbo one\\XtractAlpha", "Effect,Filter,Alpha,", {"RGB"}, "", 0x00253F6426243C09ull},
    {"nimbo one\\ColorTrafo", "Effect,Filter,Colour,", {"RGB Bitmap"}, "", 0x00253F553F10113Cull},
    {"nimbo one\\ColorTracker", "Effect,Filter,Colour,", {"RGB Bitmap"}, "", 0x002540EBCB8A6441ull},
    {"nimbo one\\3D Effect\\Text3D", "Effect,3D,Text,", {"RGB Bitmap", "UNKNOWN", "UNKNOWN"}, "",
     0x017178DD8AF030DBull},
    {"nimbo one\\Distorter", "Effect,Filter,", {"RGB Bitmap"}, "", 0x0024E2E1633AF2E7ull},
    {"nimbo one\\3D Effect\\WAXCombine", "Effect,3D,", {"WAX input 1", "WAX input 2"}, "WAX output",
     0x00257041DE3B1333ull},
    {"nimbo one\\LowQ", "Effect,Filter,", {"RGB Bitmap"}, "", 0x002524C785F2E5E5ull},
};
// clang-format on

TEST(Registry, HandsOutTheEffectsInIndexOrderWithTheirDescriptions) {
  ASSERT_EQ(orrpkgGetSize(), 24);
  std::set<uint64_t> ids;
  for (int32_t i = 0; i < 24; ++i) {
    SCOPED_TRACE(i);
    std::unique_ptr<Effect> e(orrpkgCreateNewDFXObject(i));
    ASSERT_NE(e, nullptr);
    const Expected& x = kExpected[i];
    EXPECT_STREQ(e->GetName(), x.name);
    EXPECT_STREQ(e->GetDisplayName(), x.name);
    EXPECT_STREQ(e->GetCategory(), x.category);
    EXPECT_EQ(e->GetID(), x.id);
    EXPECT_EQ(e->GetVersion(), 0x015E0000u);
    EXPECT_EQ(e->GetCapability(), 1);
    EXPECT_EQ(e->GetOutputRes(), (orrery::Size{-1, -1}));
    ASSERT_EQ(e->GetInputCount(), int32_t(x.inputs.size()));
    for (int32_t k = 0; k < e->GetInputCount(); ++k) {
      EXPECT_EQ(e->GetInputTypeName(k), x.inputs[k]);
      // The screen name is the type name, except that a 3D effect names the
      // inputs its materials show ("UNKNOWN" typed) after the texture they
      // feed: "tex1", "mat2tex1", ...
      const std::string screen_name = e->GetInputScreenName(k);
      if (!x.screen_names.empty())
        EXPECT_EQ(screen_name, x.screen_names[size_t(k)]);
      else if (x.inputs[k] == "UNKNOWN" && screen_name != "UNKNOWN")
        EXPECT_TRUE(std::regex_match(screen_name, std::regex("(mat[1-9][0-9]*)?tex[1-9][0-9]*"))) << screen_name;
      else
        EXPECT_EQ(screen_name, x.inputs[k]);
      EXPECT_EQ(e->GetInputDefaultRes(k), (orrery::Size{-1, -1}));
      EXPECT_EQ(e->GetInputScreenRes(k, -1, -1), (orrery::Size{-1, -1}));
    }
    const orrery::EffectInfo* info = orrery::FindEffectInfo(e.get());
    ASSERT_NE(info, nullptr);
    EXPECT_STREQ(info->output_name, x.output_name);
    EXPECT_STREQ(info->name, x.name);
    ids.insert(e->GetID());
    EXPECT_NE(e->GetLabelBitmap(), nullptr);
    EXPECT_GT(e->GetMemoryUsage(), 0);
    EXPECT_EQ(e->GetInputState(), -1);
    EXPECT_EQ(e->ConfirmRenderSource(7), 1);
    EXPECT_EQ(e->QueryHostValue(1, 2), 0);
    EXPECT_EQ(e->QueryHostFlag(3), 0);
    EXPECT_EQ(e->SendEffectMessage(1, 2), 0);  // no engine yet: nothing happens
  }
  EXPECT_EQ(ids.size(), 24u);
}

TEST(Registry, RejectsIndicesOutOfRangeAndMakesIndependentObjects) {
  EXPECT_EQ(orrpkgCreateNewDFXObject(-1), nullptr);
  EXPECT_EQ(orrpkgCreateNewDFXObject(24), nullptr);
  EXPECT_EQ(orrpkgCreateNewDFXObject(INT32_MIN), nullptr);
  std::unique_ptr<Effect> a(orrpkgCreateNewDFXObject(0)), b(orrpkgCreateNewDFXObject(0));
  ASSERT_TRUE(a && b);
  EXPECT_NE(a.get(), b.get());
  EXPECT_STREQ(a->GetName(), "nimbo one\\ReScaler");
  EXPECT_EQ(orrpkgGetMemUsage(), 0);  // even while effects exist
}

// Creators answering distinct markers, so the test sees which entry ran.
// The markers are never dereferenced.
orrery::Effect* FirstCreator() { return reinterpret_cast<orrery::Effect*>(uintptr_t(0x10)); }
orrery::Effect* LaterCreator() { return reinterpret_cast<orrery::Effect*>(uintptr_t(0x20)); }
orrery::Effect* OverflowCreator() { return reinterpret_cast<orrery::Effect*>(uintptr_t(0x30)); }

TEST(Registry, DropsRegistrationsPastItsCapacitySilently) {
  auto registry = std::make_unique<nimbo::Registry>();
  registry->Register(FirstCreator);
  for (int i = 1; i < 1024; ++i) registry->Register(LaterCreator);
  for (int i = 0; i < 5; ++i) registry->Register(OverflowCreator);
  EXPECT_EQ(registry->Count(), 1024);
  EXPECT_EQ(registry->Create(0), FirstCreator());
  EXPECT_EQ(registry->Create(1023), LaterCreator());
  EXPECT_EQ(registry->Create(1024), nullptr);
  EXPECT_EQ(registry->Create(-1), nullptr);
}

// A settings service whose plug-ins folder the test chooses.
class PluginsFolder final : public orrery::CSettingsManager {
 public:
  PluginsFolder() { orrery::SetSettingsManager(this); }
  ~PluginsFolder() { orrery::SetSettingsManager(nullptr); }
  std::string GetPluginsPath() override { return folder; }
  std::string GetBinPath() override { return "."; }
  std::string GetRecentPath() override { return ""; }
  void SetRecentPath(const std::string&) override {}
  std::string folder;
};

TEST(PackageInfo, EndsInTheServicePackTagAndSetsTheHelpPathOnEveryCall) {
  PluginsFolder plugins;
  plugins.folder = "/opt/orrery/plugins";
  std::string info = orrpkgGetInfo();
  ASSERT_GE(info.size(), 9u);
  EXPECT_EQ(info.substr(info.size() - 9), ". ver SP1");
  EXPECT_EQ(nimbo::platform::HelpPath(), "/opt/orrery/plugins/nimbo_one.help");
  // No check for a trailing separator, and a repeated call builds the path again.
  plugins.folder = "/srv/fx/";
  EXPECT_STREQ(orrpkgGetInfo(), info.c_str());
  EXPECT_EQ(nimbo::platform::HelpPath(), "/srv/fx//nimbo_one.help");
}

TEST(SliderInitialValue, IsRelativeToTheMinimumAndShiftsOnlyTheUpperHalf) {
  EXPECT_FLOAT_EQ(nimbo::SliderInitialValue(176.0f, 0.0f, 255.0f), 176.0f - 127.5f);
  EXPECT_FLOAT_EQ(nimbo::SliderInitialValue(8.0f, 0.0f, 64.0f), 8.0f);
  EXPECT_FLOAT_EQ(nimbo::SliderInitialValue(0.0f, -1.0f, 1.0f), 1.0f);  // d = h: not shifted
  EXPECT_FLOAT_EQ(nimbo::SliderInitialValue(0.5f, -1.0f, 1.0f), 0.5f);
}

TEST(Random, FollowsTheClassicFifteenBitSequence) {
  nimbo::platform::SeedRand(1);
  EXPECT_EQ(nimbo::platform::Rand(), 41);
  EXPECT_EQ(nimbo::platform::Rand(), 18467);
  EXPECT_EQ(nimbo::platform::Rand(), 6334);
  nimbo::platform::SeedRand(1);
  EXPECT_EQ(nimbo::platform::Rand(), 41);
}

}  // namespace
