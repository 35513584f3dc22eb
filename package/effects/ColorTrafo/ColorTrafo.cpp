// ColorTrafo: hue rotation, saturation and brightness through the same
// 8-bit fixed-point colour matrix as ChromaKeyPRO's foreground transform
// (chroma_key_math.h): out = clamp((M . RGB) >> 8, 0, 255) per channel, the
// alpha byte kept.
//
// The matrix of the neutral setting (hue 0, saturation 1, brightness 1)
// truncates to 255/256 on the red and blue diagonal, which would darken those
// channels by one step; neutral settings therefore pass the picture through
// untouched instead.
//
// Settings: "hue" (degrees, -180..180, default 0), "sat" (factor, 0..4,
// default 1; 0 = grey), "bright" (factor, 0..4, default 1). Values outside
// the ranges are clamped when used. Dynamic variables "Hue", "Saturation"
// and "Brightness" start at the settings and let the host automate them.
#include <algorithm>
#include <cstring>
#include <numbers>

#include "core/effect_base.h"
#include "core/labels.h"
#include "core/registry.h"
#include "core/settings_table.h"
#include "framework/dynvar_list.h"
#include "orrery/services.h"
#include "shared/colour_matrix.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "RGB Bitmap"}};
constexpr orrery::EffectInfo kInfo = {kInputs,
                                      1,
                                      {-1, -1},
                                      "",
                                      "nimbo one\\ColorTrafo",
                                      kAuthor,
                                      "Effect,Filter,Colour,",
                                      0x00253F553F10113Cull,
                                      orrery::kEffectVersion};

constexpr float kMaxHue = 180.0f;
constexpr float kMaxFactor = 4.0f;

// ---- settings ----
struct ColorTrafoSettings {
  float hue;
  float sat;
  float bright;
};

constexpr SettingRow<ColorTrafoSettings> kRows[] = {
    {"hue", &ColorTrafoSettings::hue, 0.0, nullptr, -kMaxHue, kMaxHue, "Hue rotation (degrees)"},
    {"sat", &ColorTrafoSettings::sat, 1.0, nullptr, 0.0, kMaxFactor, "Saturation (1 = unchanged, 0 = grey)"},
    {"bright", &ColorTrafoSettings::bright, 1.0, nullptr, 0.0, kMaxFactor, "Brightness (1 = unchanged)"},
};

// Clamped to the documented ranges; NaN becomes the neutral value.
ColorTrafoSettings Sanitised(float hue, float sat, float bright) {
  auto clamp = [](float v, float lo, float hi, float fallback) { return v == v ? std::clamp(v, lo, hi) : fallback; };
  return {clamp(hue, -kMaxHue, kMaxHue, 0.0f), clamp(sat, 0.0f, kMaxFactor, 1.0f),
          clamp(bright, 0.0f, kMaxFactor, 1.0f)};
}

class CColorTrafoDfx final : public CEffectBase {
 public:
  CColorTrafoDfx()
      : CEffectBase(kInfo, kLabelColorTrafo, "helpfile/Effects/Filter/ColorTrafo/ColorTrafo.htm",
                    sizeof(CColorTrafoDfx)) {
    ApplyDefaults<ColorTrafoSettings>(kRows, settings_);
  }

  int32_t Render(const orrery::InputList& inputs, orrery::Screen* output) override {
    std::lock_guard lock(lock_);
    if (!OutputSizeKnown()) return 0;
    const orrery::Screen* in = InputMatchingOutput(inputs, output);
    if (!in) return 0;
    const ColorTrafoSettings now =
        Sanitised(hue_ ? *hue_ : settings_.hue, sat_ ? *sat_ : settings_.sat, bright_ ? *bright_ : settings_.bright);
    if (now.hue == 0.0f && now.sat == 1.0f && now.bright == 1.0f) {
      if (output->pixels != in->pixels) std::memcpy(output->pixels, in->pixels, output->PixelCount() * 4);
      return 1;
    }
    if (!matrix_valid_ || now.hue != used_.hue || now.sat != used_.sat || now.bright != used_.bright) {
      matrix_ = ComputeColorMatrix({now.hue * std::numbers::pi_v<float> / 180.0f, now.sat, now.bright});
      used_ = now;
      matrix_valid_ = true;
    }
    ColorMatrixKernel()(in->pixels, output->pixels, output->PixelCount(), matrix_);
    return 1;
  }

 protected:
  void ReadSettings(orrery::ConfigStore& store) override { ReadRows<ColorTrafoSettings>(store, kRows, settings_); }
  void WriteSettings(orrery::ConfigStore& store) override { WriteRows<ColorTrafoSettings>(store, kRows, settings_); }

  void DeclareHostControls() override {
    DescribeRows<ColorTrafoSettings>(host_context_, kRows);
    const ColorTrafoSettings s = Sanitised(settings_.hue, settings_.sat, settings_.bright);
    dynvars_.Clear();
    hue_ = dynvars_.DeclareFloat("Hue", -kMaxHue, kMaxHue, s.hue, -kMaxHue, kMaxHue, 0);
    sat_ = dynvars_.DeclareFloat("Saturation", 0.0f, kMaxFactor, s.sat, 0.0f, kMaxFactor, 0);
    bright_ = dynvars_.DeclareFloat("Brightness", 0.0f, kMaxFactor, s.bright, 0.0f, kMaxFactor, 0);
    if (host_context_) host_context_->PublishDynVars(dynvars_.Head());
  }

  int32_t RunDialog() override {
    return RunSettingsDialog<ColorTrafoSettings>("ColorTrafo", HelpPage(), kRows, settings_, lock_, [this] {
      settings_ = Sanitised(settings_.hue, settings_.sat, settings_.bright);
      DeclareHostControls();  // the dynamic variables start again from the new settings
    });
  }

 private:
  ColorTrafoSettings settings_{};
  DynVarList dynvars_;
  float* hue_ = nullptr;
  float* sat_ = nullptr;
  float* bright_ = nullptr;
  // The matrix of the values last used.
  ColorMatrix matrix_{};
  ColorTrafoSettings used_{};
  bool matrix_valid_ = false;
};

}  // namespace

orrery::Effect* NewColorTrafo() { return CreateEffect<CColorTrafoDfx>(); }

}  // namespace nimbo
