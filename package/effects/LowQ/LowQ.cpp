// LowQ: a bad video signal. Each frame, at random, global operations (black
// and white, darkening, colour reduction) and a number of passes of block
// operations (darken a run of pixels, add a copied block, move a run) damage
// a copy of the input. Every control is a dynamic variable, so the host can
// automate the damage; the draws come from the package's 15-bit generator.
// lowq_ops.h holds the operations and the order of the draws.
//
// LowQ stores no settings of its own: its configuration exchange only marks
// the store, and each exchange declares the thirteen variables afresh.
#include <algorithm>

#include "core/effect_base.h"
#include "core/labels.h"
#include "core/registry.h"
#include "framework/dynvar_list.h"
#include "lowq_ops.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "RGB Bitmap"}};
constexpr orrery::EffectInfo kInfo = {kInputs,
                                      1,
                                      {-1, -1},
                                      "",
                                      "nimbo one\\LowQ",
                                      kAuthor,
                                      "Effect,Filter,",
                                      0x002524C785F2E5E5ull,
                                      orrery::kEffectVersion};

// ---- the dynamic variables, in declaration order ----
struct LowQVariable {
  const char* name;
  float LowQControls::*field;
  float minimum;
  float maximum;
};

constexpr LowQVariable kVariables[] = {
    {"Number of operations per frame", &LowQControls::operations, 0.0f, 100.0f},
    {"global black/white: probability", &LowQControls::bw_probability, 0.0f, 1.0f},
    {"global color reduce: probability", &LowQControls::reduce_probability, 0.0f, 1.0f},
    {"global darken: probability", &LowQControls::darken_probability, 0.0f, 1.0f},
    {"global darken: max. darkness", &LowQControls::darken_max, 0.0f, 255.0f},
    {"block darken: probability", &LowQControls::block_darken_probability, 0.0f, 1.0f},
    {"block darken: max. darkness", &LowQControls::block_darken_max, 0.0f, 255.0f},
    {"block darken: max. size", &LowQControls::block_darken_size, 0.0f, 1.0f},
    {"block add: probability", &LowQControls::block_add_probability, 0.0f, 1.0f},
    {"block add: max. size", &LowQControls::block_add_size, 0.0f, 1.0f},
    {"block move: probability", &LowQControls::block_move_probability, 0.0f, 1.0f},
    {"block move: max. distance", &LowQControls::block_move_distance, 0.0f, 1.0f},
    {"block move: max. size", &LowQControls::block_move_size, 0.0f, 1.0f},
};
constexpr size_t kVariableCount = std::size(kVariables);

class CLowQDfx final : public CEffectBase {
 public:
  CLowQDfx() : CEffectBase(kInfo, kLabelLowQ, "helpfile/Effects/Filter/LowQ/LowQ.htm", sizeof(CLowQDfx)) {}

  int32_t Render(const orrery::InputList& inputs, orrery::Screen* output) override {
    std::lock_guard lock(lock_);
    if (!OutputSizeKnown()) return 0;
    if (!CopyInputToOutput(inputs, output) || output->PixelCount() == 0) return 0;
    LowQControls controls;
    for (size_t i = 0; i < kVariableCount; ++i) {
      if (values_[i]) controls.*kVariables[i].field = *values_[i];
    }
    LowQDamage(output->pixels, output->width, output->height, controls);
    return 1;
  }

 protected:
  void DeclareHostControls() override {
    const LowQControls defaults;
    dynvars_.Clear();
    for (size_t i = 0; i < kVariableCount; ++i) {
      const LowQVariable& v = kVariables[i];
      values_[i] = dynvars_.DeclareFloat(v.name, v.minimum, v.maximum, defaults.*v.field, v.minimum, v.maximum, 0);
    }
    if (host_context_) host_context_->PublishDynVars(dynvars_.Head());
  }

 private:
  DynVarList dynvars_;
  float* values_[kVariableCount] = {};  // the variables' current values, owned by the list
};

}  // namespace

orrery::Effect* NewLowQ() { return CreateEffect<CLowQDfx>(); }

}  // namespace nimbo
