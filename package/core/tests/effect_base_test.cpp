// The behaviour every effect inherits: the configuration exchange around the
// "!" marker, settings tables, and the setup dialog's OK protocol.
#include "core/effect_base.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "core/settings_table.h"
#include "test_host.h"

namespace {

using nimbo::testing::TestHost;

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "RGB Bitmap"}};
constexpr orrery::EffectInfo kInfo = {kInputs, 1, {-1, -1}, "", "nimbo one\\Demo", "t", "Effect,", 1, 0x015E0000};

struct DemoSettings {
  int32_t count;
  float gain;
  std::string title;
};

constexpr nimbo::SettingRow<DemoSettings> kRows[] = {
    {"count", &DemoSettings::count, 3, nullptr, 0, 10, "how many"},
    {"gain", &DemoSettings::gain, 0.25, nullptr, 0, 1, "how much"},
    {"title", &DemoSettings::title, 0, "hello", 0, 0, "what"},
};

class DemoDfx final : public nimbo::CEffectBase {
 public:
  DemoDfx() : CEffectBase(kInfo, 1, "helpfile/Effects/Misc/Demo/Demo.htm", sizeof(DemoDfx)) {
    nimbo::ApplyDefaults<DemoSettings>(kRows, settings);
  }
  int32_t Initialize() override {
    // The dialog protocol must call this with the lock held: another thread
    // then cannot take it.
    bool held = false;
    std::thread probe([&] {
      held = !lock_.try_lock();
      if (!held) lock_.unlock();
    });
    probe.join();
    initialized_under_lock.push_back(held);
    return CEffectBase::Initialize();
  }
  void ReadSettings(orrery::ConfigStore& store) override { nimbo::ReadRows<DemoSettings>(store, kRows, settings); }
  void WriteSettings(orrery::ConfigStore& store) override { nimbo::WriteRows<DemoSettings>(store, kRows, settings); }
  int32_t RunDialog() override {
    DemoSettings copy = settings;
    nimbo::SettingsDialog<DemoSettings> dialog(kRows, copy);
    if (!dialog.Run("Demo", HelpPage())) return 0;
    settings = copy;
    return 1;
  }
  DemoSettings settings;
  std::vector<bool> initialized_under_lock;
};

TEST(ConfigExchange, AFreshStoreGetsTheMarkerAndTheDefaultsInTableOrder) {
  TestHost host;
  DemoDfx fx;
  fx.SetHostContext(&host);
  EXPECT_EQ(fx.UpdateConfig(), 1);
  const std::string text = host.store.Text();
  size_t count = text.find("name=\"count\""), gain = text.find("name=\"gain\""), title = text.find("name=\"title\"");
  ASSERT_NE(count, std::string::npos) << text;
  EXPECT_LT(count, gain);
  EXPECT_LT(gain, title);
  EXPECT_NE(text.find(">0.250000<"), std::string::npos) << text;
  EXPECT_EQ(host.store.GetInt("!", 0), 1);

  // A second exchange reads back what the first wrote, and changes nothing.
  fx.settings = {9, 0.9f, "changed"};
  EXPECT_EQ(fx.UpdateConfig(), 1);
  EXPECT_EQ(fx.settings.count, 3);
  EXPECT_FLOAT_EQ(fx.settings.gain, 0.25f);
  EXPECT_EQ(fx.settings.title, "hello");
  EXPECT_EQ(host.store.Text(), text);
}

TEST(ConfigExchange, AMissingKeyKeepsTheCurrentValue) {
  TestHost host;
  ASSERT_TRUE(
      host.store.Load("<Settings><ConfigData><data name=\"gain\" type=\"float\">0.5</data></ConfigData></Settings>"));
  DemoDfx fx;
  fx.SetHostContext(&host);
  fx.settings.count = 7;
  fx.UpdateConfig();
  EXPECT_EQ(fx.settings.count, 7);
  EXPECT_FLOAT_EQ(fx.settings.gain, 0.5f);
  EXPECT_EQ(fx.settings.title, "hello");
}

TEST(ConfigExchange, AnEffectWithoutHostContextStillAnswers) {
  DemoDfx fx;
  EXPECT_EQ(fx.UpdateConfig(), 1);
  EXPECT_EQ(fx.Initialize(), 1);
  EXPECT_EQ(fx.OutputWidth(), 0);
}

class ScriptedDialogs final : public orrery::DialogService {
 public:
  explicit ScriptedDialogs(int32_t answer) : answer_(answer) { orrery::SetDialogService(this); }
  ~ScriptedDialogs() { orrery::SetDialogService(nullptr); }
  int32_t RunModal(const orrery::DialogModel& model) override {
    seen_help = model.help_page;
    for (int32_t i = 0; i < model.count; ++i) {
      if (model.fields[i].type == orrery::DialogFieldType::kInt) *static_cast<int32_t*>(model.fields[i].value) = 5;
    }
    return answer_;
  }
  std::string seen_help;

 private:
  int32_t answer_;
};

TEST(SetupDialog, OkNotifiesAroundAnInitializeUnderTheLock) {
  TestHost host(320, 200);
  DemoDfx fx;
  fx.SetHostContext(&host);
  ScriptedDialogs dialogs(1);
  EXPECT_EQ(fx.SetupDialog(), 1);
  EXPECT_EQ(fx.settings.count, 5);
  ASSERT_EQ(host.notifications.size(), 2u);
  EXPECT_EQ(host.notifications[0], std::make_pair(259, 1));
  EXPECT_EQ(host.notifications[1], std::make_pair(259, 0));
  EXPECT_EQ(fx.initialized_under_lock, std::vector<bool>{true});
  EXPECT_EQ(fx.OutputWidth(), 320);
  EXPECT_EQ(dialogs.seen_help, "helpfile/Effects/Misc/Demo/Demo.htm");
}

TEST(SetupDialog, CancelChangesNothingAndTellsTheHostNothing) {
  TestHost host;
  DemoDfx fx;
  fx.SetHostContext(&host);
  ScriptedDialogs dialogs(0);
  EXPECT_EQ(fx.SetupDialog(), 0);
  EXPECT_EQ(fx.settings.count, 3);
  EXPECT_TRUE(host.notifications.empty());
  EXPECT_TRUE(fx.initialized_under_lock.empty());
}

TEST(SettingsTable, DescribesEveryRowWithItsType) {
  TestHost host;
  nimbo::DescribeRows<DemoSettings>(&host, kRows);
  ASSERT_EQ(host.described.size(), 3u);
  EXPECT_EQ(host.described[0].type, orrery::SettingType::kInt);
  EXPECT_EQ(host.described[1].type, orrery::SettingType::kFloat);
  EXPECT_EQ(host.described[2].type, orrery::SettingType::kString);
  EXPECT_DOUBLE_EQ(host.described[0].maximum, 10);
}

// A table whose rows the dialog shows in each way a row can ask for.
struct ViewSettings {
  int32_t mode;
  int32_t colour;
  float angle;
  int32_t secret;
  int32_t width;
};

constexpr nimbo::SettingRow<ViewSettings> kViewRows[] = {
    {"mode",
     &ViewSettings::mode,
     0,
     nullptr,
     0,
     2,
     "Mode",
     nullptr,
     false,
     {nimbo::ShowAs::kChoice, "a|b|custom", "which one"}},
    {"colour",
     &ViewSettings::colour,
     0xFF0000,
     nullptr,
     0,
     0xFFFFFF,
     "Colour",
     nullptr,
     false,
     {nimbo::ShowAs::kColor}},
    {"angle", &ViewSettings::angle, 0.5, nullptr, -1, 1, "Angle", nullptr, false, {.hint = "degrees", .scale = 90.0}},
    {"secret", &ViewSettings::secret, 1, nullptr, 0, 1, "Secret", nullptr, false, {nimbo::ShowAs::kHidden}},
    {"width",
     &ViewSettings::width,
     64,
     nullptr,
     1,
     4096,
     "Width",
     nullptr,
     false,
     {.enabled_by = "mode", .enabled_value = 2}},
};

// Answers a dialog by writing fixed values into fields by label.
class EditingDialogs final : public orrery::DialogService {
 public:
  EditingDialogs() { orrery::SetDialogService(this); }
  ~EditingDialogs() { orrery::SetDialogService(nullptr); }
  int32_t RunModal(const orrery::DialogModel& model) override {
    fields.assign(model.fields, model.fields + model.count);
    for (const orrery::DialogField& f : fields) {
      if (std::string(f.label) == "Angle") *static_cast<float*>(f.value) = -45.0f;
      if (std::string(f.label) == "Width") *static_cast<int32_t*>(f.value) = 100;
    }
    return 1;
  }
  std::vector<orrery::DialogField> fields;
};

TEST(SettingsDialog, ShowsRowsAsTheyAskBetweenTheEffectsOwnFields) {
  ViewSettings edit{};
  nimbo::ApplyDefaults<ViewSettings>(kViewRows, edit);
  int32_t pressed = 0;
  const orrery::DialogField before[] = {{"Reset", orrery::DialogFieldType::kButton, &pressed, 0, 1, nullptr, nullptr}};
  const orrery::DialogField after[] = {{"a hint", orrery::DialogFieldType::kLabel, nullptr, 0, 0, nullptr, nullptr}};
  nimbo::SettingsDialog<ViewSettings> dialog(kViewRows, edit, before, after);
  EditingDialogs dialogs;
  ASSERT_TRUE(dialog.Run("View", "page.htm"));

  // The button, four shown rows (the hidden one left out), the label.
  ASSERT_EQ(dialogs.fields.size(), 6u);
  EXPECT_EQ(std::string(dialogs.fields[0].label), "Reset");
  EXPECT_EQ(dialogs.fields[1].type, orrery::DialogFieldType::kChoice);
  EXPECT_STREQ(dialogs.fields[1].choices, "a|b|custom");
  EXPECT_STREQ(dialogs.fields[1].hint, "which one");
  EXPECT_EQ(dialogs.fields[2].type, orrery::DialogFieldType::kColor);
  // The angle is shown scaled, range included, and stored back unscaled.
  EXPECT_EQ(dialogs.fields[3].type, orrery::DialogFieldType::kFloat);
  EXPECT_DOUBLE_EQ(dialogs.fields[3].minimum, -90.0);
  EXPECT_DOUBLE_EQ(dialogs.fields[3].maximum, 90.0);
  EXPECT_FLOAT_EQ(edit.angle, -0.5f);
  // The width applies only while "mode" (field 1) is custom.
  EXPECT_EQ(std::string(dialogs.fields[4].label), "Width");
  EXPECT_EQ(dialogs.fields[4].enabled_by, 1);
  EXPECT_EQ(dialogs.fields[4].enabled_value, 2);
  EXPECT_EQ(edit.width, 100);
  EXPECT_EQ(dialogs.fields[5].type, orrery::DialogFieldType::kLabel);
  EXPECT_EQ(edit.secret, 1);
}

TEST(SettingsDialog, CancelLeavesTheScaledValueAlone) {
  ViewSettings edit{};
  nimbo::ApplyDefaults<ViewSettings>(kViewRows, edit);
  nimbo::SettingsDialog<ViewSettings> dialog(kViewRows, edit);
  ScriptedDialogs dialogs(0);
  EXPECT_FALSE(dialog.Run("View", "page.htm"));
  EXPECT_FLOAT_EQ(edit.angle, 0.5f);
}

}  // namespace
