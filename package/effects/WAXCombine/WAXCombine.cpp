// WAXCombine: two WAX volumes into one, voxel by voxel: union (the denser),
// intersection (the thinner), difference (a minus b) or blend (a mix of
// both that the host can automate). The colour follows the density that
// wins (wax_combine_kernel.h says how for each mode).
//
// Settings: "mode" (0 union, 1 intersection, 2 difference, 3 blend) and
// "mix" (0..1, 0 = all of input 1, 1 = all of input 2), the resting value
// of the dynamic variable "Blend mix".
//
// Inputs 1 and 2 and the output are WAX screens (512 x 512, see
// render3d/wax_volume.h); the effect asks the host for 512 x 512 inputs. A
// missing input, or one of another size, is an empty volume. The output is
// a volume only when the host renders at 512 x 512 (nimbo render: inputs
// that size, or --size 512x512); at any other size nothing is drawn.
#include "core/effect_base.h"
#include "core/labels.h"
#include "core/registry.h"
#include "core/settings_table.h"
#include "framework/dynvar_list.h"
#include "render3d/wax_volume.h"
#include "wax_combine_kernel.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "WAX input 1"}, {-1, -1, "WAX input 2"}};
constexpr orrery::EffectInfo kInfo = {kInputs,
                                      2,
                                      {-1, -1},
                                      "WAX output",
                                      "nimbo one\\3D Effect\\WAXCombine",
                                      kAuthor,
                                      "Effect,3D,",
                                      0x00257041DE3B1333ull,
                                      orrery::kEffectVersion};

// ---- settings -----------------------------------------------------------------------
struct CombineSettings {
  int32_t mode;
  float mix;
};
constexpr DialogView kModeChoice{.as = ShowAs::kChoice, .choices = "union|intersection|difference|blend"};
constexpr SettingRow<CombineSettings> kRows[] = {
    {"mode", &CombineSettings::mode, 0, nullptr, 0, 3, "Combine",
     "0 = union (the denser), 1 = intersection (the thinner), 2 = difference (input 1 minus input 2), 3 = blend",
     false, kModeChoice},
    {"mix", &CombineSettings::mix, 0.5, nullptr, 0, 1, "Blend mix",
     "blend only: 0 = all of input 1, 1 = all of input 2"},
};
constexpr const char* kMixVar = "Blend mix";

// ---- the effect -------------------------------------------------------------------------
class CWAXCombineDfx final : public CEffectBase {
 public:
  CWAXCombineDfx()
      : CEffectBase(kInfo, kLabelWAXCombine, "helpfile/Effects/3D/WAXCombine/WAXCombine.htm", sizeof(CWAXCombineDfx)) {
    ApplyDefaults<CombineSettings>(kRows, settings_);
    Declare();
    mem_size_ = int32_t(sizeof(CWAXCombineDfx) + 3 * wax::kVoxelCount * sizeof(uint32_t));
  }

  orrery::Size GetInputScreenRes(int32_t index, int32_t width, int32_t height) override {
    if (index < 0 || index > 1) return CEffectBase::GetInputScreenRes(index, width, height);
    return wax::InputScreenRes(width, height);
  }

  int32_t Render(const orrery::InputList& inputs, orrery::Screen* output) override {
    std::lock_guard lock(lock_);
    if (!OutputSizeKnown() || !output) return 0;
    if (output->width != wax::kScreenSide || output->height != wax::kScreenSide) return 0;
    a_.ReadFrom(inputs.Get(0));  // anything but a WAX screen reads as empty
    b_.ReadFrom(inputs.Get(1));
    const int32_t mode = settings_.mode >= 0 && settings_.mode <= 3 ? settings_.mode : 0;
    wax::CombineVoxels(a_.Data(), b_.Data(), out_.Data(), wax::kVoxelCount, wax::CombineMode(mode), *mix_);
    return out_.WriteTo(output) ? 1 : 0;
  }

 protected:
  void ReadSettings(orrery::ConfigStore& store) override { ReadRows<CombineSettings>(store, kRows, settings_); }
  void WriteSettings(orrery::ConfigStore& store) override { WriteRows<CombineSettings>(store, kRows, settings_); }
  void DeclareHostControls() override {
    Declare();
    if (host_context_) host_context_->PublishDynVars(dynvars_.Head());
    DescribeRows<CombineSettings>(host_context_, kRows);
  }
  int32_t RunDialog() override {
    return RunSettingsDialog<CombineSettings>("WAXCombine", HelpPage(), kRows, settings_, lock_, [this] { Declare(); });
  }

 private:
  void Declare() {
    dynvars_.Clear();
    mix_ = dynvars_.DeclareFloat(kMixVar, 0.0f, 1.0f, settings_.mix, 0.0f, 1.0f, 0);
  }

  CombineSettings settings_{};
  DynVarList dynvars_;
  float* mix_ = nullptr;  // the variable's current value, written by the host
  wax::Volume a_, b_, out_;
};

}  // namespace

orrery::Effect* NewWAXCombine() { return CreateEffect<CWAXCombineDfx>(); }

}  // namespace nimbo
