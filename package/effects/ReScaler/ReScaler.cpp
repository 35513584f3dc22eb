// ReScaler: asks the host for its input at another size than the output and
// stretches that input over the whole output through the 3D engine.
//
// A small input gives a coarse, blocky picture (the texture is sampled
// nearest-neighbour, so each input pixel becomes a sharp block); a large one
// a finer picture. The input size is either a fraction or multiple of the
// output (the size mode: half, quarter, double) or set in pixels ("in_w",
// "in_h"; 0 = the output's size). Sides are at most 1024.
//
// Per frame: begin, upload the input into the top-left corner of the
// power-of-two texture "maintex", draw one quad over the output showing only
// that corner, present, end. A frame whose input has the wrong size is
// skipped: the host delivers the right size after GetInputScreenRes.
#include <algorithm>

#include "core/effect_base.h"
#include "core/labels.h"
#include "core/registry.h"
#include "core/settings_table.h"
#include "render3d/engine_loader.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "RGB Bitmap"}};
constexpr orrery::EffectInfo kInfo = {kInputs,
                                      1,
                                      {-1, -1},
                                      "",
                                      "nimbo one\\ReScaler",
                                      kAuthor,
                                      "Effect,XYZ,",
                                      0x002438315E35C1B9ull,
                                      orrery::kEffectVersion};

// ---- settings ---------------------------------------------------------------------
struct ReScalerSettings {
  int32_t in_w;  // 0 = the output width at Initialize
  int32_t in_h;
};

enum SizeMode : int32_t { kHalf = 0, kQuarter = 1, kDouble = 2, kCustom = 3 };

// The dialog shows the size mode (not stored) first; the stored sizes apply
// only while it is custom.
constexpr DialogView kCustomSizeView{.hint = "used with custom only", .enabled_value = kCustom, .enabled_by_own = 0};
constexpr SettingRow<ReScalerSettings> kSettingRows[] = {
    {"in_w", &ReScalerSettings::in_w, 0, nullptr, 0, 1024, "Custom width", "input width in pixels (0 = output width)",
     false, kCustomSizeView},
    {"in_h", &ReScalerSettings::in_h, 0, nullptr, 0, 1024, "Custom height",
     "input height in pixels (0 = output height)", false, kCustomSizeView},
};

constexpr int32_t kMaxInputSide = 1024;
constexpr int32_t kDialogMinSide = 2;

// The same rows as the dialog's number fields accept them: a stored 0 means
// "the output's size", but a size the user types is 2 .. 1024.
constexpr SettingRow<ReScalerSettings> kDialogRows[] = {
    {"in_w", &ReScalerSettings::in_w, 0, nullptr, kDialogMinSide, kMaxInputSide, "Custom width",
     "input width in pixels", false, kCustomSizeView},
    {"in_h", &ReScalerSettings::in_h, 0, nullptr, kDialogMinSide, kMaxInputSide, "Custom height",
     "input height in pixels", false, kCustomSizeView},
};
constexpr const char* kTextureName = "maintex";

// Smallest power of two, at least 2, that holds `side` pixels.
int32_t TextureSide(int32_t side) {
  int32_t texture = 2;
  while (texture < side) texture *= 2;
  return texture;
}

// The input size a mode asks for when the host proposes (w, h); integer
// division truncates toward zero.
orrery::Size ModeSize(int32_t mode, int32_t w, int32_t h) {
  switch (mode) {
    case kHalf:
      return {w / 2, h / 2};
    case kQuarter:
      return {w / 4, h / 4};
    case kDouble:
      return {w * 2, h * 2};
    default:
      return {0, 0};
  }
}

// ---- the effect -----------------------------------------------------------------------
class CReScaleDfx final : public CEffectBase {
 public:
  CReScaleDfx()
      : CEffectBase(kInfo, kLabelReScaler, "helpfile/Effects/Misc/ReScaler/ReScaler.htm", sizeof(CReScaleDfx)) {
    ApplyDefaults<ReScalerSettings>(kSettingRows, settings_);
  }

  ~CReScaleDfx() override { FreeAll(); }

  orrery::Size GetInputScreenRes(int32_t index, int32_t w, int32_t h) override {
    if (w == -1 && h == -1) return CEffectBase::GetInputScreenRes(index, w, h);
    std::lock_guard lock(lock_);
    if (settings_.in_w == 0 || settings_.in_h == 0) {
      settings_.in_w = w;
      settings_.in_h = h;
      Initialize();
    } else if (mode_ != kCustom) {
      orrery::Size wanted = ModeSize(mode_, w, h);
      if (wanted.width != settings_.in_w || wanted.height != settings_.in_h) {
        settings_.in_w = wanted.width;
        settings_.in_h = wanted.height;
        Initialize();
      }
    }
    return {settings_.in_w, settings_.in_h};
  }

  // ---- lifecycle ----
  int32_t Initialize() override {
    std::lock_guard lock(lock_);
    FetchOutputSize();
    FreeAll();
    engine_ = CreateEngineObject(this);
    if (!engine_) return 0;
    if (out_w_ > 0 && out_h_ > 0) engine_->SetOutputSize(out_w_, out_h_);
    if (!engine_->Begin()) {
      FreeAll();  // no device: go on without an engine, as without a library
      return 0;
    }

    // A stored size that is not a size (negative) means the same as 0.
    if (settings_.in_w <= 0) settings_.in_w = out_w_;
    if (settings_.in_h <= 0) settings_.in_h = out_h_;
    switch (mode_) {
      case kHalf:
        settings_.in_w = out_w_ / 2, settings_.in_h = out_h_ / 2;
        break;
      case kQuarter:
        settings_.in_w = out_w_ / 4, settings_.in_h = out_h_ / 4;
        break;
      case kDouble:
        settings_.in_w = out_w_ * 2, settings_.in_h = out_h_ * 2;
        break;
      default:
        break;
    }
    settings_.in_w = std::min(settings_.in_w, kMaxInputSide);
    settings_.in_h = std::min(settings_.in_h, kMaxInputSide);
    tex_w_ = TextureSide(settings_.in_w);
    tex_h_ = TextureSide(settings_.in_h);

    // The texture starts black from a zeroed pixel buffer of its full size.
    buffer_ = engine_->AllocBuffer(tex_w_ * tex_h_ * 4);
    const void* black = buffer_ ? engine_->LockBuffer(buffer_) : nullptr;
    nb3D::TextureDesc texture{};
    texture.width = tex_w_;
    texture.height = tex_h_;
    texture.format = nb3D::kFormatRgba;
    texture.filter = nb3D::kFilterNearest;
    texture.pixels = static_cast<const uint32_t*>(black);
    engine_->CreateTexture(kTextureName, texture);
    if (black) engine_->UnlockBuffer(buffer_);
    engine_->End();
    return 1;
  }

  int32_t Render(const orrery::InputList& inputs, orrery::Screen* output) override {
    std::lock_guard lock(lock_);
    if (!OutputSizeKnown()) return 0;
    if (!engine_ || !engine_->Begin()) {
      if (engine_) engine_->ErrorReport("CReScaleDfx::Render Error");
      return 0;
    }
    const orrery::Screen* in = inputs.Get(0);
    if (!in || !in->pixels || in->width != settings_.in_w || in->height != settings_.in_h) {
      engine_->End();
      return 0;
    }
    engine_->UpdateTexture(kTextureName, 0, 0, in->width, in->height, in->pixels, in->width);
    nb3D::Quad quad{};
    quad.x0 = -out_w_ / 2.0f;
    quad.y0 = -out_h_ / 2.0f;
    quad.x1 = out_w_ / 2.0f;
    quad.y1 = out_h_ / 2.0f;
    quad.u1 = float(settings_.in_w) / float(tex_w_);
    quad.v1 = float(settings_.in_h) / float(tex_h_);
    quad.texture = kTextureName;
    engine_->DrawQuad(quad);
    int32_t presented = engine_->Present(output);
    engine_->End();
    return presented;
  }

 protected:
  // ---- settings ----
  void ReadSettings(orrery::ConfigStore& store) override { ReadRows<ReScalerSettings>(store, kSettingRows, settings_); }
  void WriteSettings(orrery::ConfigStore& store) override {
    WriteRows<ReScalerSettings>(store, kSettingRows, settings_);
  }
  void DeclareHostControls() override { DescribeRows<ReScalerSettings>(host_context_, kSettingRows); }

  // ---- dialog ----
  int32_t RunDialog() override {
    int32_t mode = mode_;
    ReScalerSettings edit{std::clamp(settings_.in_w, kDialogMinSide, kMaxInputSide),
                          std::clamp(settings_.in_h, kDialogMinSide, kMaxInputSide)};
    const orrery::DialogField mode_field[] = {{"Input size", orrery::DialogFieldType::kChoice, &mode, 0, 3,
                                               "half|quarter|double|custom",
                                               "the input's size relative to the output, or custom"}};
    SettingsDialog<ReScalerSettings> dialog(kDialogRows, edit, mode_field);
    if (!dialog.Run("ReScaler", HelpPage())) return 0;
    std::lock_guard lock(lock_);
    mode_ = std::clamp(mode, int32_t(kHalf), int32_t(kCustom));
    if (mode_ == kCustom) {
      settings_.in_w = std::clamp(edit.in_w, kDialogMinSide, kMaxInputSide);
      settings_.in_h = std::clamp(edit.in_h, kDialogMinSide, kMaxInputSide);
    }
    return 1;
  }

 private:
  // Releases the engine object; its texture and pixel buffer go with it.
  void FreeAll() {
    if (engine_) engine_->Release();
    engine_ = nullptr;
    buffer_ = 0;
  }

  ReScalerSettings settings_{};
  int32_t tex_w_ = 0;
  int32_t tex_h_ = 0;
  int32_t mode_ = kCustom;  // not stored: a recreated effect is custom
  uint32_t buffer_ = 0;
};

}  // namespace

orrery::Effect* NewReScaler() { return CreateEffect<CReScaleDfx>(); }

}  // namespace nimbo
