// RGB Displacer: shifts the red, green and blue channels of the picture by
// their own offsets, in pixels, for a colour-split look; positions past an
// edge take the edge pixel. Alpha stays with the unshifted pixel.
//
// Settings: the resting offsets "red_x" ... "blue_y" (pixels, -256..256); a
// positive x moves a channel right, a positive y down. The six offsets are
// also dynamic variables ("Red x" ... "Blue y") that the host automates, with
// the stored offsets as their initial values. Offsets are truncated toward
// zero to whole pixels.
#include <algorithm>
#include <cmath>

#include "core/effect_base.h"
#include "core/labels.h"
#include "core/registry.h"
#include "core/settings_table.h"
#include "framework/dynvar_list.h"
#include "rgb_displacer_kernel.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "RGB Bitmap"}};
constexpr orrery::EffectInfo kInfo = {kInputs,
                                      1,
                                      {-1, -1},
                                      "output",
                                      "nimbo one\\RGB Displacer",
                                      kAuthor,
                                      "Effect,Filter,Colour,",
                                      0x00239F3FD51CC1A0ull,
                                      orrery::kEffectVersion};

// ---- settings -----------------------------------------------------------------------

constexpr float kMaxOffset = 256.0f;

struct Offsets {
  float red_x, red_y, green_x, green_y, blue_x, blue_y;
};
constexpr SettingRow<Offsets> kRows[] = {
    {"red_x", &Offsets::red_x, 4, nullptr, -kMaxOffset, kMaxOffset, "Red shift x (pixels)"},
    {"red_y", &Offsets::red_y, 0, nullptr, -kMaxOffset, kMaxOffset, "Red shift y (pixels)"},
    {"green_x", &Offsets::green_x, 0, nullptr, -kMaxOffset, kMaxOffset, "Green shift x (pixels)"},
    {"green_y", &Offsets::green_y, 0, nullptr, -kMaxOffset, kMaxOffset, "Green shift y (pixels)"},
    {"blue_x", &Offsets::blue_x, -4, nullptr, -kMaxOffset, kMaxOffset, "Blue shift x (pixels)"},
    {"blue_y", &Offsets::blue_y, 0, nullptr, -kMaxOffset, kMaxOffset, "Blue shift y (pixels)"},
};
constexpr const char* kDynNames[6] = {"Red x", "Red y", "Green x", "Green y", "Blue x", "Blue y"};

// Whole pixels from an automated value: truncated toward zero, NaN as 0,
// and never further than the frame (a larger shift clamps the same way).
int32_t WholeShift(float v, int32_t size) {
  if (!(std::fabs(v) <= float(size))) return std::isnan(v) ? 0 : (v > 0 ? size : -size);
  return int32_t(v);
}

// ---- the effect -------------------------------------------------------------------------

class CRGBDisplacerDfx final : public CEffectBase {
 public:
  CRGBDisplacerDfx()
      : CEffectBase(kInfo, kLabelRGBDisplacer, "helpfile/Effects/Filter/RGBDisplacer/RGBDisplacer.htm",
                    sizeof(CRGBDisplacerDfx)) {
    ApplyDefaults<Offsets>(kRows, settings_);
    Declare();
  }

  int32_t Render(const orrery::InputList& inputs, orrery::Screen* output) override {
    std::lock_guard lock(lock_);
    if (!OutputSizeKnown()) return 0;
    if (!CopyInputToOutput(inputs, output)) return 0;
    const orrery::Screen* in = inputs.Get(0);
    const int32_t w = in->width, h = in->height;
    if (w <= 0 || h <= 0) return 1;
    int32_t shift[6];
    for (int i = 0; i < 6; ++i) shift[i] = WholeShift(*values_[i], (i & 1) ? h : w);
    // The output already holds a copy of the input; the rows are read from
    // the input, which the host keeps apart from the output. A host that
    // renders in place gets the plain copy.
    if (in->pixels == output->pixels) return 1;
    const rgb_displacer::ShiftRowFn row = rgb_displacer::ShiftRowKernel();
    auto source_row = [&](int32_t y, int32_t dy) {
      return in->pixels + size_t(std::clamp(y - dy, 0, h - 1)) * size_t(w);
    };
    for (int32_t y = 0; y < h; ++y) {
      const rgb_displacer::ShiftRows rows{source_row(y, shift[1]),
                                          source_row(y, shift[3]),
                                          source_row(y, shift[5]),
                                          in->pixels + size_t(y) * size_t(w),
                                          shift[0],
                                          shift[2],
                                          shift[4]};
      row(rows, output->pixels + size_t(y) * size_t(w), w, 0, w);
    }
    return 1;
  }

 protected:
  void ReadSettings(orrery::ConfigStore& store) override { ReadRows<Offsets>(store, kRows, settings_); }
  void WriteSettings(orrery::ConfigStore& store) override { WriteRows<Offsets>(store, kRows, settings_); }
  void DeclareHostControls() override {
    Declare();
    if (host_context_) host_context_->PublishDynVars(dynvars_.Head());
    DescribeRows<Offsets>(host_context_, kRows);
  }

  int32_t RunDialog() override {
    // The new resting offsets become the variables' values.
    return RunSettingsDialog<Offsets>("RGB Displacer", HelpPage(), kRows, settings_, lock_, [this] { Declare(); });
  }

 private:
  void Declare() {
    dynvars_.Clear();
    const float* rest[6] = {&settings_.red_x,   &settings_.red_y,  &settings_.green_x,
                            &settings_.green_y, &settings_.blue_x, &settings_.blue_y};
    for (int i = 0; i < 6; ++i) {
      values_[i] = dynvars_.DeclareFloat(kDynNames[i], -kMaxOffset, kMaxOffset, *rest[i], -kMaxOffset, kMaxOffset, 0);
    }
  }

  Offsets settings_{};
  DynVarList dynvars_;
  float* values_[6] = {};  // the variables' current values, written by the host
};

}  // namespace

orrery::Effect* NewRGBDisplacer() { return CreateEffect<CRGBDisplacerDfx>(); }

}  // namespace nimbo
