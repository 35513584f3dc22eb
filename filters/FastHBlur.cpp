// Fast h-Blur: a horizontal box blur. Each pass replaces every pixel by the
// rounded mean of the 2r + 1 pixels around it in its row (edge pixels
// repeated past the ends), computed with a running sum so the cost does not
// depend on the radius; two or three passes approach a smoother, tent- or
// bell-shaped blur. All four bytes are blurred.
//
// Settings: "radius" (pixels, 0..255, default 4) and "passes" (1..3, default
// 1). The dynamic variable "Radius" lets the host automate the radius; it
// starts at the stored one.
#include <algorithm>
#include <vector>

#include "filters/box_blur_kernel.h"
#include "orrery/services.h"
#include "package/dynvar_list.h"
#include "package/effect_base.h"
#include "package/effect_list.h"
#include "package/registry.h"
#include "package/settings_table.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "RGB Bitmap"}};
constexpr orrery::EffectInfo kInfo = {kInputs, 1, {-1, -1}, "", "nimbo one\\Fast h-Blur", kAuthor,
                                      "Effect,Filter,Blur,", 0x0169ADE061BAF12Dull, orrery::kEffectVersion};

// ---- settings ----
struct HBlurSettings {
  int32_t radius = 4;
  int32_t passes = 1;
};

constexpr int32_t kMaxPasses = 3;

constexpr SettingRow<HBlurSettings> kRows[] = {
    {"radius", &HBlurSettings::radius, 4, nullptr, 0, kBoxBlurMaxRadius, "blur radius in pixels"},
    {"passes", &HBlurSettings::passes, 1, nullptr, 1, kMaxPasses, "passes of the box blur (more: smoother)"},
};

class CFastHBlurDfx final : public CEffectBase {
 public:
  CFastHBlurDfx()
      : CEffectBase(kInfo, 12504, "helpfile/Effects/Filter/FastHBlur/FastHBlur.htm", sizeof(CFastHBlurDfx)) {
    ApplyDefaults<HBlurSettings>(kRows, settings_);
  }

  int32_t Render(const orrery::InputList& inputs, orrery::Screen* output) override {
    std::lock_guard lock(lock_);
    const orrery::Screen* in = inputs.Get(0);
    if (!in || !in->pixels || !output || !output->pixels) return 0;
    if (in->width != output->width || in->height != output->height || in->PixelCount() == 0) return 0;
    const size_t width = size_t(in->width);
    // The row buffers follow the frame width; they are the only allocation.
    const size_t padded_size = width + 2 * kBoxBlurMaxRadius + 1;
    if (padded_[0].size() != padded_size) {
      padded_[0].assign(padded_size, 0);
      padded_[1].assign(padded_size, 0);
    }

    int32_t radius = settings_.radius;
    if (radius_var_) {
      const float v = *radius_var_;
      radius = v >= 0.0f ? int32_t(std::min(v, float(kBoxBlurMaxRadius))) : 0;  // NaN: 0
    }
    const BoxBlurParams params = MakeBoxBlurParams(radius);
    const int32_t passes = std::clamp(settings_.passes, 1, kMaxPasses);
    const BoxBlurRowPairFn blur_pair = BoxBlurRowPair();
    uint32_t* pad0 = padded_[0].data();
    uint32_t* pad1 = padded_[1].data();
    int32_t y = 0;
    for (; y + 2 <= in->height; y += 2) {
      const uint32_t* src0 = in->pixels + size_t(y) * width;
      uint32_t* dst0 = output->pixels + size_t(y) * width;
      for (int32_t pass = 0; pass < passes; ++pass) {
        BoxBlurPadRow(pass == 0 ? src0 : dst0, pad0, width, params.radius);
        BoxBlurPadRow(pass == 0 ? src0 + width : dst0 + width, pad1, width, params.radius);
        blur_pair(pad0, pad1, dst0, dst0 + width, width, params);
      }
    }
    if (y < in->height) {  // an odd last row
      const uint32_t* src = in->pixels + size_t(y) * width;
      uint32_t* dst = output->pixels + size_t(y) * width;
      for (int32_t pass = 0; pass < passes; ++pass) {
        BoxBlurPadRow(pass == 0 ? src : dst, pad0, width, params.radius);
        BoxBlurRowSse2(pad0, dst, width, params);
      }
    }
    return 1;
  }

 protected:
  void ReadSettings(orrery::ConfigStore& store) override {
    ReadRows<HBlurSettings>(store, kRows, settings_);
    Clamp();
  }
  void WriteSettings(orrery::ConfigStore& store) override { WriteRows<HBlurSettings>(store, kRows, settings_); }

  void DeclareHostControls() override {
    DescribeRows<HBlurSettings>(host_context_, kRows);
    DeclareRadius();
  }

  int32_t RunDialog() override {
    return RunSettingsDialog<HBlurSettings>("Fast h-Blur", HelpPage(), kRows, settings_, lock_, [this] {
      Clamp();
      DeclareRadius();  // the variable restarts at the new radius
    });
  }

 private:
  void Clamp() {
    settings_.radius = std::clamp(settings_.radius, 0, kBoxBlurMaxRadius);
    settings_.passes = std::clamp(settings_.passes, 1, kMaxPasses);
  }
  void DeclareRadius() {
    const float maximum = float(kBoxBlurMaxRadius);
    dynvars_.Clear();
    radius_var_ = dynvars_.DeclareFloat("Radius", 0.0f, maximum, float(settings_.radius), 0.0f, maximum, 0);
    if (host_context_) host_context_->PublishDynVars(dynvars_.Head());
  }

  HBlurSettings settings_;
  DynVarList dynvars_;
  float* radius_var_ = nullptr;  // the variable's current value, owned by the list
  std::vector<uint32_t> padded_[2];  // two padded rows
};

}  // namespace

orrery::Effect* NewFastHBlur() { return CreateEffect<CFastHBlurDfx>(); }

}  // namespace nimbo
