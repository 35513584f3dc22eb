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

#include "core/effect_base.h"
#include "core/labels.h"
#include "core/registry.h"
#include "core/settings_table.h"
#include "fast_hblur_kernel.h"
#include "framework/dynvar_list.h"
#include "orrery/services.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "RGB Bitmap"}};
constexpr orrery::EffectInfo kInfo = {kInputs,
                                      1,
                                      {-1, -1},
                                      "",
                                      "nimbo one\\Fast h-Blur",
                                      kAuthor,
                                      "Effect,Filter,Blur,",
                                      0x0169ADE061BAF12Dull,
                                      orrery::kEffectVersion};

// ---- settings ----
struct HBlurSettings {
  int32_t radius;
  int32_t passes;
};

constexpr int32_t kMaxPasses = 3;

constexpr SettingRow<HBlurSettings> kRows[] = {
    {"radius", &HBlurSettings::radius, 4, nullptr, 0, kBoxBlurMaxRadius, "blur radius in pixels"},
    {"passes", &HBlurSettings::passes, 1, nullptr, 1, kMaxPasses, "passes of the box blur (more: smoother)"},
};

class CFastHBlurDfx final : public CEffectBase {
 public:
  CFastHBlurDfx()
      : CEffectBase(kInfo, kLabelFastHBlur, "helpfile/Effects/Filter/FastHBlur/FastHBlur.htm", sizeof(CFastHBlurDfx)) {
    ApplyDefaults<HBlurSettings>(kRows, settings_);
  }

  int32_t Render(const orrery::InputList& inputs, orrery::Screen* output) override {
    std::lock_guard lock(lock_);
    if (!OutputSizeKnown()) return 0;
    const orrery::Screen* in = InputMatchingOutput(inputs, output);
    if (!in) return 0;
    const size_t width = size_t(in->width);
    // The buffers follow the frame width; they are the only allocation.
    const size_t scratch_size = BoxBlurScratchSize(width, kBoxBlurMaxRadius);
    if (scratch_[0].size() != scratch_size) {
      for (auto& buffer : scratch_) buffer.assign(scratch_size, 0);
      for (auto& buffer : row_copy_) buffer.assign(width, 0);
    }

    int32_t radius = settings_.radius;
    if (radius_var_) {
      const float v = *radius_var_;
      radius = v >= 0.0f ? int32_t(std::min(v, float(kBoxBlurMaxRadius))) : 0;  // NaN: 0
    }
    const BoxBlurParams params = MakeBoxBlurParams(radius);
    const int32_t passes = std::clamp(settings_.passes, 1, kMaxPasses);
    const BoxBlurSpanFn span = BoxBlurSpanKernel();
    uint32_t* const scratch[2] = {scratch_[0].data(), scratch_[1].data()};
    uint32_t* const copies[2] = {row_copy_[0].data(), row_copy_[1].data()};
    // Two rows at a time, the last one alone when the height is odd. A pass
    // that blurs rows in place (later passes, or a host handing the same
    // frame as input and output) reads from a copy of them.
    const bool in_place = in->pixels == output->pixels;
    for (int32_t y = 0; y < in->height; y += 2) {
      const int32_t rows = std::min(2, in->height - y);
      const uint32_t* src[2] = {in->pixels + size_t(y) * width, in->pixels + size_t(y + rows - 1) * width};
      uint32_t* const dst[2] = {output->pixels + size_t(y) * width, output->pixels + size_t(y + rows - 1) * width};
      if (!in_place) BoxBlurRows(src, dst, scratch, rows, width, params, span);
      for (int32_t pass = in_place ? 0 : 1; pass < passes; ++pass) {
        for (int32_t i = 0; i < rows; ++i) std::copy(dst[i], dst[i] + width, copies[i]);
        BoxBlurRows(copies, dst, scratch, rows, width, params, span);
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

  HBlurSettings settings_{};
  DynVarList dynvars_;
  float* radius_var_ = nullptr;        // the variable's current value, owned by the list
  std::vector<uint32_t> scratch_[2];   // edge buffers of two rows
  std::vector<uint32_t> row_copy_[2];  // two output rows, read by later passes
};

}  // namespace

orrery::Effect* NewFastHBlur() { return CreateEffect<CFastHBlurDfx>(); }

}  // namespace nimbo
