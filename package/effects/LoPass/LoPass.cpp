// LoPass: a temporal low-pass per pixel. Every byte of every pixel runs
// through its own two-pole resonant filter over time (lopass_kernel.h), so
// motion is smoothed into trails and, with a high resonance, overshoots and
// rings before it settles. A still picture passes unchanged.
//
// Settings: "frequency" (cut-off as a fraction of the frame rate, 0.001..0.49,
// default 0.1) and "resonance" (Q, 0.1..50, default 0.5: the most resonance
// without overshoot; above it a step overshoots, and rings as Q grows).
// The host sliders "Frequency fc" and "Resonance Q" drive them while the
// effect runs. The filter state (8 floats a pixel) comes from the host's
// memory service each frame and is seeded from the input whenever it is new:
// the first frame, a change of resolution, a configuration load, a dialog OK.
#include <algorithm>

#include "core/effect_base.h"
#include "core/labels.h"
#include "core/registry.h"
#include "core/settings_table.h"
#include "lopass_kernel.h"
#include "orrery/services.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "RGB Bitmap"}};
constexpr orrery::EffectInfo kInfo = {kInputs,
                                      1,
                                      {-1, -1},
                                      "",
                                      "nimbo one\\LoPass",
                                      kAuthor,
                                      "Effect,Filter,",
                                      0x0169E4AAD24247DCull,
                                      orrery::kEffectVersion};

// The host's parameters of both sliders.
constexpr SliderParams kSliderParams{500.0f, 10000.0f, 428.6f, 88};

// ---- settings ----
struct LoPassSettings {
  float frequency;
  float resonance;
};

constexpr SettingRow<LoPassSettings> kRows[] = {
    {"frequency", &LoPassSettings::frequency, 0.1, nullptr, kLoPassMinFrequency, kLoPassMaxFrequency,
     "cut-off as a fraction of the frame rate"},
    {"resonance", &LoPassSettings::resonance, 0.5, nullptr, kLoPassMinResonance, kLoPassMaxResonance,
     "resonance Q: above 0.5 motion overshoots, and rings as Q grows"},
};

constexpr int32_t kStateSlot = 0;
constexpr float kSliderMaxResonance = 20.0f;

class CLoPassDfx final : public CEffectBase {
 public:
  CLoPassDfx() : CEffectBase(kInfo, kLabelLoPass, "helpfile/Effects/Filter/LoPass/LoPass.htm", sizeof(CLoPassDfx)) {
    ApplyDefaults<LoPassSettings>(kRows, settings_);
    SlidersFromSettings();
  }

  int32_t Render(const orrery::InputList& inputs, orrery::Screen* output) override {
    std::lock_guard lock(lock_);
    if (!OutputSizeKnown()) return 0;
    const orrery::Screen* in = InputMatchingOutput(inputs, output);
    if (!in || !host_context_) return 0;
    const size_t count = in->PixelCount();
    auto* state = static_cast<float*>(host_context_->GetMemory(kStateSlot, count * kLoPassStateFloats * sizeof(float)));
    if (!state) return 0;
    if (frequency_ != settings_.frequency || resonance_ != settings_.resonance) SettingsFromSliders();
    if (seeded_count_ != count || state != seeded_state_) {
      LoPassSeed(in->pixels, state, count);
      seeded_count_ = count;
      seeded_state_ = state;
    }
    LoPassKernel()(in->pixels, output->pixels, state, count, params_);
    return 1;
  }

 protected:
  void ReadSettings(orrery::ConfigStore& store) override {
    ReadRows<LoPassSettings>(store, kRows, settings_);
    SlidersFromSettings();
  }
  void WriteSettings(orrery::ConfigStore& store) override { WriteRows<LoPassSettings>(store, kRows, settings_); }

  void DeclareHostControls() override {
    DescribeRows<LoPassSettings>(host_context_, kRows);
    DeclareSlider("Frequency fc", &frequency_, 0.0f, 0.5f, kSliderParams);
    DeclareSlider("Resonance Q", &resonance_, 0.0f, kSliderMaxResonance, kSliderParams);
    Restart();
  }

  int32_t RunDialog() override {
    return RunSettingsDialog<LoPassSettings>("LoPass", HelpPage(), kRows, settings_, lock_, [this] {
      SlidersFromSettings();
      Restart();
    });
  }

 private:
  // Clamps the settings, shows them on the sliders and derives the
  // coefficients.
  void SlidersFromSettings() {
    settings_.frequency = Clamped(settings_.frequency, kLoPassMinFrequency, kLoPassMaxFrequency, 0.1f);
    settings_.resonance = Clamped(settings_.resonance, kLoPassMinResonance, kLoPassMaxResonance, 0.5f);
    frequency_ = settings_.frequency;
    resonance_ = settings_.resonance;
    params_ = MakeLoPassParams(settings_.frequency, settings_.resonance);
  }
  // A slider moved: the new values become the settings.
  void SettingsFromSliders() {
    settings_.frequency = frequency_;
    settings_.resonance = resonance_;
    SlidersFromSettings();
  }
  static float Clamped(float v, float lo, float hi, float fallback) {
    return v == v ? std::clamp(v, lo, hi) : fallback;  // NaN takes the default
  }
  // The next frame seeds the filter from its input.
  void Restart() { seeded_count_ = 0; }

  LoPassSettings settings_{};
  LoPassParams params_{};
  float frequency_ = 0.1f;  // written by the host's sliders
  float resonance_ = 0.5f;
  size_t seeded_count_ = 0;  // pixels of the state last seeded; 0 = seed again
  const float* seeded_state_ = nullptr;
};

}  // namespace

orrery::Effect* NewLoPass() { return CreateEffect<CLoPassDfx>(); }

}  // namespace nimbo
