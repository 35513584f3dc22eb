// WAXRotate: turns and scales a WAX volume (WAX in, WAX out). Every output
// voxel is the trilinear sample of the input at the point the inverse turn
// and scale bring it to, about the volume's centre; what turns in from
// outside the volume is empty. Quarter turns at scale 1 move voxels exactly.
//
// Settings: "rot_x", "rot_y", "rot_z" (degrees, the input is turned about x,
// then y, then z) and "scale" (0.1..4, above 1 enlarges): the resting values
// of the dynamic variables "Rotation x", "Rotation y", "Rotation z" and
// "Scale", which the host automates.
//
// Input 0 and the output are WAX screens (512 x 512, see
// render3d/wax_volume.h). The effect asks the host for a 512 x 512 input;
// the output is a volume only when the host renders at 512 x 512 (nimbo
// render: an input that size, or --size 512x512). At any other output size
// the effect draws nothing and reports the frame as not drawn.
#include <cmath>

#include "core/effect_base.h"
#include "core/labels.h"
#include "core/registry.h"
#include "core/settings_table.h"
#include "framework/dynvar_list.h"
#include "render3d/wax_volume.h"
#include "wax_rotate_kernel.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "WAX input"}};
constexpr orrery::EffectInfo kInfo = {kInputs,
                                      1,
                                      {-1, -1},
                                      "WAX output",
                                      "nimbo one\\3D Effect\\WAXRotate",
                                      kAuthor,
                                      "Effect,3D,",
                                      0x016D24EA41001A10ull,
                                      orrery::kEffectVersion};

// ---- settings -----------------------------------------------------------------------
constexpr float kMaxAngle = 360.0f;
struct RotateSettings {
  float rot_x, rot_y, rot_z, scale;
};
constexpr SettingRow<RotateSettings> kRows[] = {
    {"rot_x", &RotateSettings::rot_x, 0, nullptr, -kMaxAngle, kMaxAngle, "Rotation x (degrees)",
     "turn about the x axis, in degrees"},
    {"rot_y", &RotateSettings::rot_y, 0, nullptr, -kMaxAngle, kMaxAngle, "Rotation y (degrees)",
     "turn about the y axis, in degrees"},
    {"rot_z", &RotateSettings::rot_z, 0, nullptr, -kMaxAngle, kMaxAngle, "Rotation z (degrees)",
     "turn about the z axis, in degrees"},
    {"scale", &RotateSettings::scale, 1, nullptr, wax::kMinScale, wax::kMaxScale, "Scale",
     "size of the volume's content: above 1 enlarges, below 1 shrinks"},
};
constexpr const char* kDynNames[4] = {"Rotation x", "Rotation y", "Rotation z", "Scale"};

// ---- the effect -------------------------------------------------------------------------
class CWAXRotateDfx final : public CEffectBase {
 public:
  CWAXRotateDfx()
      : CEffectBase(kInfo, kLabelWAXRotate, "helpfile/Effects/3D/WAXRotate/WAXRotate.htm", sizeof(CWAXRotateDfx)) {
    ApplyDefaults<RotateSettings>(kRows, settings_);
    Declare();
    mem_size_ = int32_t(sizeof(CWAXRotateDfx) + 2 * wax::kVoxelCount * sizeof(uint32_t));
  }

  orrery::Size GetInputScreenRes(int32_t index, int32_t width, int32_t height) override {
    if (index != 0) return CEffectBase::GetInputScreenRes(index, width, height);
    return wax::InputScreenRes(width, height);
  }

  int32_t Render(const orrery::InputList& inputs, orrery::Screen* output) override {
    std::lock_guard lock(lock_);
    if (!OutputSizeKnown() || !output) return 0;
    if (output->width != wax::kScreenSide || output->height != wax::kScreenSide) return 0;
    // Anything but a WAX screen reads as empty, and turns into empty at once.
    if (input_.ReadFrom(inputs.Get(0))) {
      const wax::SourceMap map = wax::RotationMap(*values_[0], *values_[1], *values_[2], *values_[3]);
      wax::Resample(input_, map, &output_);
    } else {
      output_.Clear();
    }
    return output_.WriteTo(output) ? 1 : 0;
  }

 protected:
  void ReadSettings(orrery::ConfigStore& store) override { ReadRows<RotateSettings>(store, kRows, settings_); }
  void WriteSettings(orrery::ConfigStore& store) override { WriteRows<RotateSettings>(store, kRows, settings_); }
  void DeclareHostControls() override {
    Declare();
    if (host_context_) host_context_->PublishDynVars(dynvars_.Head());
    DescribeRows<RotateSettings>(host_context_, kRows);
  }
  int32_t RunDialog() override {
    // The new resting values become the variables' values.
    return RunSettingsDialog<RotateSettings>("WAXRotate", HelpPage(), kRows, settings_, lock_, [this] { Declare(); });
  }

 private:
  void Declare() {
    dynvars_.Clear();
    const float rest[4] = {settings_.rot_x, settings_.rot_y, settings_.rot_z, settings_.scale};
    for (int i = 0; i < 4; ++i) {
      const float lo = i < 3 ? -kMaxAngle : wax::kMinScale, hi = i < 3 ? kMaxAngle : wax::kMaxScale;
      values_[i] = dynvars_.DeclareFloat(kDynNames[i], lo, hi, rest[i], lo, hi, 0);
    }
  }

  RotateSettings settings_{};
  DynVarList dynvars_;
  float* values_[4] = {};  // the variables' current values, written by the host
  wax::Volume input_;
  wax::Volume output_;
};

}  // namespace

orrery::Effect* NewWAXRotate() { return CreateEffect<CWAXRotateDfx>(); }

}  // namespace nimbo
