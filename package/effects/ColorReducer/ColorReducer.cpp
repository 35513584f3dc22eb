// ColorReducer: reduces each colour channel to n bits (2^n levels, spread
// over the full 0..255 range), optionally with ordered 8x8 Bayer dithering
// so smooth gradients turn into a regular pattern instead of bands. Alpha is
// kept. The arithmetic is in color_reducer_kernel.h.
//
// Settings: "bits" (1..8) and "dither" (0/1). The number of bits is also the
// dynamic variable "Bits" (1..8, truncated to a whole number), with the
// stored value as its initial value.
//
// ---- The skeleton every effect file follows (this one is the model) ----
//  1. A header comment: what the effect does, its algorithm in a few lines,
//     the keys and units of its settings, its dynamic variables.
//  2. Includes: the C++ library; the effect's own headers (bare names, from
//     its folder); then framework/, core/, shared/, render3d/.
//  3. Description: kInputs and kInfo, then the effect's named constants
//     (slider parameter sets, messages, limits).
//  4. Settings: the struct (plain fields, no defaults) and its table kRows,
//     in the order the keys are written. The table is the only place a key,
//     its type, default, range, dialog label and dialog view are written.
//  5. The class C<Name>Dfx, in this order: constructor (ApplyDefaults from
//     the table) and destructor; GetInputScreenRes where the effect asks for
//     its own input sizes; Initialize; Render; ReadSettings,
//     WriteSettings, DeclareHostControls; RunDialog (through the table:
//     RunSettingsDialog, or SettingsDialog with the effect's own fields
//     around the rows); then private helpers; then data (settings, derived
//     values, history buffers).
//  6. The factory New<Name>().
// Render takes the lock, returns 0 until Initialize has fetched the output
// size (OutputSizeKnown), then starts from the base class's input check:
// CopyInputToOutput for a filter that works in place on a copy of input 0,
// InputMatchingOutput for one that reads the input and writes the output.
// Kernels sit beside the effect (<name>_kernel.h/.cpp): free functions with
// a scalar reference <Thing>Scalar, SIMD versions <Thing>Sse2/<Thing>Avx2
// written once over the lanes of shared/simd_lanes.h, and the selector
// <Thing>Kernel() that answers the best version for this CPU, chosen once.
#include <cmath>

#include "color_reducer_kernel.h"
#include "core/effect_base.h"
#include "core/labels.h"
#include "core/registry.h"
#include "core/settings_table.h"
#include "framework/dynvar_list.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "RGB Bitmap"}};
constexpr orrery::EffectInfo kInfo = {kInputs,
                                      1,
                                      {-1, -1},
                                      "",
                                      "nimbo one\\ColorReducer",
                                      kAuthor,
                                      "Effect,Filter,Colour,",
                                      0x0168F81A1A7F521Eull,
                                      orrery::kEffectVersion};

// ---- settings -----------------------------------------------------------------------

struct ColorReducerSettings {
  int32_t bits;
  int32_t dither;
};
constexpr SettingRow<ColorReducerSettings> kRows[] = {
    {"bits", &ColorReducerSettings::bits, 4, nullptr, 1, 8, "Bits per channel"},
    {"dither", &ColorReducerSettings::dither, 1, nullptr, 0, 1, "Ordered dithering"},
};

int32_t WholeBits(float v) {
  if (!(v >= 1.0f)) return 1;
  return v >= 8.0f ? 8 : int32_t(v);
}

// ---- the effect -------------------------------------------------------------------------

class CColorReducerDfx final : public CEffectBase {
 public:
  CColorReducerDfx()
      : CEffectBase(kInfo, kLabelColorReducer, "helpfile/Effects/Filter/ColorReducer/ColorReducer.htm",
                    sizeof(CColorReducerDfx)) {
    ApplyDefaults<ColorReducerSettings>(kRows, settings_);
    Declare();
  }

  int32_t Render(const orrery::InputList& inputs, orrery::Screen* output) override {
    std::lock_guard lock(lock_);
    if (!OutputSizeKnown()) return 0;
    if (!CopyInputToOutput(inputs, output)) return 0;
    const int32_t bits = WholeBits(*bits_value_);
    const bool dither = settings_.dither != 0;
    // The 8 row patterns are derived once per change of bits or dithering.
    if (bits != pattern_bits_ || dither != pattern_dither_) {
      for (int32_t y = 0; y < 8; ++y) color_reducer::FillDitherPattern(bits, dither, y, patterns_[y]);
      pattern_bits_ = bits;
      pattern_dither_ = dither;
    }
    color_reducer::ReduceParams p = color_reducer::ParamsForBits(bits);
    const color_reducer::ReduceRowFn row = color_reducer::ReduceRowKernel();
    const int32_t w = output->width;
    for (int32_t y = 0; y < output->height; ++y) {
      uint32_t* line = output->pixels + size_t(y) * size_t(w);
      p.pattern = patterns_[y & 7];
      row(line, line, 0, w, p);
    }
    return 1;
  }

 protected:
  void ReadSettings(orrery::ConfigStore& store) override { ReadRows<ColorReducerSettings>(store, kRows, settings_); }
  void WriteSettings(orrery::ConfigStore& store) override { WriteRows<ColorReducerSettings>(store, kRows, settings_); }
  void DeclareHostControls() override {
    Declare();
    if (host_context_) host_context_->PublishDynVars(dynvars_.Head());
    DescribeRows<ColorReducerSettings>(host_context_, kRows);
  }

  int32_t RunDialog() override {
    return RunSettingsDialog<ColorReducerSettings>("ColorReducer", HelpPage(), kRows, settings_, lock_,
                                                   [this] { Declare(); });
  }

 private:
  void Declare() {
    dynvars_.Clear();
    bits_value_ = dynvars_.DeclareFloat("Bits", 1.0f, 8.0f, float(settings_.bits), 1.0f, 8.0f, 0);
  }

  ColorReducerSettings settings_{};
  DynVarList dynvars_;
  float* bits_value_ = nullptr;
  uint16_t patterns_[8][64] = {};
  int32_t pattern_bits_ = -1;
  bool pattern_dither_ = false;
};

}  // namespace

orrery::Effect* NewColorReducer() { return CreateEffect<CColorReducerDfx>(); }

}  // namespace nimbo
