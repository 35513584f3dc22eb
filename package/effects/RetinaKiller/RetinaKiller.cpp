// Retina Killer: a dazzled eye. Whatever is brighter than a limit burns into
// a per-pixel fatigue image, which is added to the picture as an after-glow
// and fades by a fixed step each frame.
//
// Per colour byte i with fatigue f: out = min(255, i + f), then
// f = max(0, min(255, f + max(0, i - limit)) - fade). Alpha passes through.
// The fatigue image (4 bytes a pixel) comes from the host's memory service
// each frame, so it follows changes of resolution.
//
// Settings: "limit" (0..255, default 176), "fade" (0..255, default 8) and
// "hide" (stored and restored only). The host sliders "resistance" (0..255)
// and "repair" (0..64) drive limit and fade while the effect runs.
#include <algorithm>

#include "core/effect_base.h"
#include "core/labels.h"
#include "core/registry.h"
#include "core/settings_table.h"
#include "orrery/services.h"
#include "retina_killer_kernel.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "RGB Bitmap"}};
constexpr orrery::EffectInfo kInfo = {kInputs,
                                      1,
                                      {-1, -1},
                                      "output",
                                      "nimbo one\\Retina Killer",
                                      kAuthor,
                                      "Effect,Filter,",
                                      0x0163498A3DB12937ull,
                                      orrery::kEffectVersion};

// The host's parameters of both sliders.
constexpr SliderParams kSliderParams{100.0f, 10000.0f, 428.6f, 88};

// ---- settings ----
struct RetinaSettings {
  int32_t limit;
  int32_t fade;
  int32_t hide;
};

constexpr SettingRow<RetinaSettings> kRows[] = {
    {"limit", &RetinaSettings::limit, 176, nullptr, 0, 255, "brightness per channel above which fatigue grows"},
    {"fade", &RetinaSettings::fade, 8, nullptr, 0, 255, "fatigue removed per frame and channel"},
    // Stored and kept, but not the user's to edit: the dialog leaves it out.
    {"hide", &RetinaSettings::hide, 0, nullptr, 0, 1, "kept with the settings", nullptr, false, {ShowAs::kHidden}},
};

constexpr const char* kResistanceSlider = "resistance (low=light sick, high=resistant)";
constexpr const char* kRepairSlider = "repair (low=irreparable, high=quick repair)";
constexpr float kMaxRepair = 64.0f;
constexpr int32_t kFatigueSlot = 0;

// Truncates a host-written float into 0..255 (NaN: 0).
uint8_t ToByte(float v) { return v >= 0.0f ? uint8_t(std::min(v, 255.0f)) : 0; }

class CRetinaKillerDfx final : public CEffectBase {
 public:
  CRetinaKillerDfx()
      : CEffectBase(kInfo, kLabelRetinaKiller, "helpfile/Effects/Filter/RetinaKiller/RetinaKiller.htm",
                    sizeof(CRetinaKillerDfx)) {
    ApplyDefaults<RetinaSettings>(kRows, settings_);
    SlidersFromSettings();
  }

  int32_t Render(const orrery::InputList& inputs, orrery::Screen* output) override {
    std::lock_guard lock(lock_);
    if (!OutputSizeKnown()) return 0;
    const orrery::Screen* in = InputMatchingOutput(inputs, output);
    if (!in || !host_context_) return 0;
    const size_t count = in->PixelCount();
    auto* fatigue = static_cast<uint8_t*>(host_context_->GetMemory(kFatigueSlot, count * 4));
    if (!fatigue) return 0;
    const RetinaParams params{ToByte(resistance_), ToByte(repair_)};
    settings_.limit = params.limit;
    settings_.fade = params.fade;
    RetinaKernel()(in->pixels, output->pixels, fatigue, count, params);
    return 1;
  }

 protected:
  void ReadSettings(orrery::ConfigStore& store) override {
    ReadRows<RetinaSettings>(store, kRows, settings_);
    SlidersFromSettings();
  }
  void WriteSettings(orrery::ConfigStore& store) override { WriteRows<RetinaSettings>(store, kRows, settings_); }

  void DeclareHostControls() override {
    DescribeRows<RetinaSettings>(host_context_, kRows);
    DeclareSlider(kResistanceSlider, &resistance_, 0.0f, 255.0f, kSliderParams);
    DeclareSlider(kRepairSlider, &repair_, 0.0f, kMaxRepair, kSliderParams);
  }

  int32_t RunDialog() override {
    return RunSettingsDialog<RetinaSettings>("Retina Killer", HelpPage(), kRows, settings_, lock_,
                                             [this] { SlidersFromSettings(); });
  }

 private:
  void SlidersFromSettings() {
    settings_.limit = std::clamp(settings_.limit, 0, 255);
    settings_.fade = std::clamp(settings_.fade, 0, 255);
    resistance_ = float(settings_.limit);
    repair_ = float(settings_.fade);
  }

  RetinaSettings settings_{};
  float resistance_ = 176.0f;  // written by the host's sliders
  float repair_ = 8.0f;
};

}  // namespace

orrery::Effect* NewRetinaKiller() { return CreateEffect<CRetinaKillerDfx>(); }

}  // namespace nimbo
