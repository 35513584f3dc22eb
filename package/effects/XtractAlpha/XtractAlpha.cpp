// XtractAlpha: shows a picture's alpha byte as a grey picture, so a key made
// by ChromaKeyPRO (whose null-colour mode leaves the transparency in the alpha
// byte) can be seen, recorded or fed to another effect as a matte. R, G and
// B become the alpha value, or 255 minus it when inverted; the alpha byte
// itself is kept, so the matte survives further effects.
//
// Settings: "invert" (int, 0 or 1, default 0): white where the picture is
// opaque instead of where it is transparent.
#include "core/effect_base.h"
#include "core/labels.h"
#include "core/registry.h"
#include "core/settings_table.h"
#include "orrery/services.h"
#include "xtract_alpha_kernel.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "RGB"}};
constexpr orrery::EffectInfo kInfo = {kInputs,
                                      1,
                                      {-1, -1},
                                      "",
                                      "nimbo one\\XtractAlpha",
                                      kAuthor,
                                      "Effect,Filter,Alpha,",
                                      0x00253F6426243C09ull,
                                      orrery::kEffectVersion};

// ---- settings ----
struct XtractAlphaSettings {
  int32_t invert;
};

constexpr SettingRow<XtractAlphaSettings> kRows[] = {
    {"invert", &XtractAlphaSettings::invert, 0, nullptr, 0, 1, "Invert (white where opaque)"},
};

class CXtractAlphaDfx final : public CEffectBase {
 public:
  CXtractAlphaDfx()
      : CEffectBase(kInfo, kLabelXtractAlpha, "helpfile/Effects/Keying/XtractAlpha/XtractAlpha.htm",
                    sizeof(CXtractAlphaDfx)) {
    ApplyDefaults<XtractAlphaSettings>(kRows, settings_);
  }

  int32_t Render(const orrery::InputList& inputs, orrery::Screen* output) override {
    std::lock_guard lock(lock_);
    if (!OutputSizeKnown()) return 0;
    const orrery::Screen* in = InputMatchingOutput(inputs, output);
    if (!in) return 0;
    XtractAlphaKernel()(in->pixels, output->pixels, output->PixelCount(), settings_.invert != 0);
    return 1;
  }

 protected:
  void ReadSettings(orrery::ConfigStore& store) override {
    ReadRows<XtractAlphaSettings>(store, kRows, settings_);
    settings_.invert = settings_.invert != 0;
  }
  void WriteSettings(orrery::ConfigStore& store) override { WriteRows<XtractAlphaSettings>(store, kRows, settings_); }
  void DeclareHostControls() override { DescribeRows<XtractAlphaSettings>(host_context_, kRows); }

  int32_t RunDialog() override {
    return RunSettingsDialog<XtractAlphaSettings>("XtractAlpha", HelpPage(), kRows, settings_, lock_,
                                                  [this] { settings_.invert = settings_.invert != 0; });
  }

 private:
  XtractAlphaSettings settings_{};
};

}  // namespace

orrery::Effect* NewXtractAlpha() { return CreateEffect<CXtractAlphaDfx>(); }

}  // namespace nimbo
