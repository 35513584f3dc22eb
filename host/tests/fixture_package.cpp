// A small effect package for the host's end-to-end tests: effects whose
// output is known exactly, so a test can tell what the host did (settings
// applied, sizes negotiated, keyframes evaluated, outputs published) from
// the pixels alone. It is loaded by the real `nimbo` program with
// --plugins, exactly like nimbo_one.fxp.
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>

#include "orrery/package.h"
#include "orrery/services.h"
#include "framework/dynvar_list.h"
#include "core/effect_base.h"

#define FIXTURE_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

using nimbo::CEffectBase;

constexpr orrery::InputDesc kOneInput[] = {{-1, -1, "RGB Bitmap"}};
constexpr orrery::InputDesc kTwoInputs[] = {{-1, -1, "Main"}, {-1, -1, "Side"}};
constexpr orrery::EffectInfo kCopyInfo = {kOneInput, 1, {-1, -1}, "copied", "nimbo one\\Copy", "tests",
                                          "Effect,Test,", 0x1001, orrery::kEffectVersion};
constexpr orrery::EffectInfo kPairInfo = {kTwoInputs, 2, {-1, -1}, "", "nimbo one\\Pair", "tests",
                                          "Effect,Test,", 0x1002, orrery::kEffectVersion};
constexpr orrery::EffectInfo kGenInfo = {nullptr, 0, {-1, -1}, "", "nimbo one\\3D Effect\\Gen", "tests",
                                         "Effect,3D,", 0x1003, orrery::kEffectVersion};

// Copy: output = input XOR "tint". With "probe" = 1, pixel (0,0) shows the
// dynamic variables and the slider: R = Level * 200, G = Invert * 255,
// B = Amount. Publishes "mean red" (the mean red byte of the input).
// File commands: "load-tint" reads the tint as decimal text, "save-tint"
// writes "tint frames" (frames rendered so far), failing like an effect's
// dialog would ("Couldn't open file", "Couldn't create file").
class Copy final : public CEffectBase {
 public:
  Copy() : CEffectBase(kCopyInfo, 0, "", sizeof(Copy)) {
    orrery::RegisterOutputValue(this, "mean red", "mean red byte of the input", &mean_red_);
    orrery::RegisterEffectAction(this, "load-tint", "reads the tint from a text file", &LoadTint, this);
    orrery::RegisterEffectAction(this, "save-tint", "writes the tint and the frames rendered", &SaveTint, this);
  }
  ~Copy() override { orrery::UnregisterOutputValues(this); }

  void ReadSettings(orrery::ConfigStore& s) override {
    tint_ = s.GetInt("tint", tint_);
    probe_ = s.GetInt("probe", probe_);
    mix_ = s.GetFloat("mix", mix_);
    label_ = s.GetString("label", label_.c_str());
    file_ = s.GetPath("file", file_.c_str(), nullptr);
  }
  void WriteSettings(orrery::ConfigStore& s) override {
    s.SetInt("tint", tint_);
    s.SetInt("probe", probe_);
    s.SetFloat("mix", mix_);
    s.SetString("label", label_.c_str());
    s.SetPath("file", file_.c_str());
  }
  void DeclareHostControls() override {
    dyn_.Clear();
    level_ = dyn_.DeclareFloat("Level", 0.0f, 1.0f, 0.25f, 0.0f, 1.0f, 0);
    invert_ = dyn_.DeclareBool("Invert", 0, 0);
    if (host_context_) host_context_->PublishDynVars(dyn_.Head());
    DeclareSlider("Amount", &amount_, 0.0f, 100.0f, {0, 0, 0, 0});
  }
  int32_t Render(const orrery::InputList& inputs, orrery::Screen* out) override {
    std::lock_guard lock(lock_);
    if (!CopyInputToOutput(inputs, out)) return 0;
    ++frames_;
    double sum = 0;
    for (size_t i = 0; i < out->PixelCount(); ++i) {
      sum += (out->pixels[i] >> 16) & 0xFF;
      out->pixels[i] ^= uint32_t(tint_);
    }
    mean_red_ = float(sum / double(out->PixelCount()));
    if (probe_) {
      out->pixels[0] = 0xFF000000u | uint32_t(std::lround(*level_ * 200)) << 16 | uint32_t(*invert_ ? 255 : 0) << 8 |
                       uint32_t(std::lround(amount_));
    }
    return 1;
  }

 private:
  int32_t tint_ = 0;
  int32_t probe_ = 0;
  float mix_ = 0.5f;
  std::string label_ = "plain";
  std::string file_;
  nimbo::DynVarList dyn_;
  float* level_ = nullptr;
  int32_t* invert_ = nullptr;
  float amount_ = 10.0f;
  float mean_red_ = 0;
  int32_t frames_ = 0;

  static int32_t LoadTint(void* user, const char* path, std::string* message) {
    Copy& self = *static_cast<Copy*>(user);
    std::lock_guard lock(self.lock_);
    FILE* f = std::fopen(path, "rb");
    int tint = 0;
    const bool ok = f && std::fscanf(f, "%d", &tint) == 1;
    if (f) std::fclose(f);
    if (!ok) {
      *message = "Couldn't open file";
      return 0;
    }
    self.tint_ = tint;
    return 1;
  }
  static int32_t SaveTint(void* user, const char* path, std::string* message) {
    Copy& self = *static_cast<Copy*>(user);
    std::lock_guard lock(self.lock_);
    FILE* f = std::fopen(path, "w+b");
    if (!f) {
      *message = "Couldn't create file";
      return 0;
    }
    std::fprintf(f, "%d %d\n", self.tint_, self.frames_);
    std::fclose(f);
    return 1;
  }
};

// Pair: asks for its second input at half the proposed size; the output is
// input 0 with the second input's size written into pixel (0,0) (R = width,
// G = height) and its top-left pixel copied to (1,0).
class Pair final : public CEffectBase {
 public:
  Pair() : CEffectBase(kPairInfo, 0, "", sizeof(Pair)) {}
  orrery::Size GetInputScreenRes(int32_t index, int32_t width, int32_t height) override {
    if (index == 1 && width > 0) return {width / 2, height / 2};
    return CEffectBase::GetInputScreenRes(index, width, height);
  }
  int32_t Render(const orrery::InputList& inputs, orrery::Screen* out) override {
    std::lock_guard lock(lock_);
    const orrery::Screen* side = inputs.Get(1);
    if (!side || !CopyInputToOutput(inputs, out)) return 0;
    out->pixels[0] = 0xFF000000u | uint32_t(side->width & 0xFF) << 16 | uint32_t(side->height & 0xFF) << 8;
    out->pixels[1] = side->pixels[0];
    return 1;
  }
};

// Gen: no inputs; fills the frame with grey level = host time in ms / 40
// (one step per frame at 25 fps), so frame counts and the clock show.
class Gen final : public CEffectBase {
 public:
  Gen() : CEffectBase(kGenInfo, 0, "", sizeof(Gen)) {}
  int32_t Initialize() override {
    FetchOutputSize();
    return 1;
  }
  int32_t Render(const orrery::InputList&, orrery::Screen* out) override {
    const uint32_t level = uint32_t(host_context_->GetTimeMs() / 40) & 0xFF;
    for (size_t i = 0; i < out->PixelCount(); ++i) out->pixels[i] = 0xFF000000u | level * 0x010101u;
    return 1;
  }
};

}  // namespace

FIXTURE_EXPORT int32_t orrpkgGetSize() { return 3; }
FIXTURE_EXPORT orrery::Effect* orrpkgCreateNewDFXObject(int32_t index) {
  switch (index) {
    case 0: return new Copy();
    case 1: return new Pair();
    case 2: return new Gen();
    default: return nullptr;
  }
}
FIXTURE_EXPORT const char* orrpkgGetInfo() { return "host test fixtures. ver SP1"; }
FIXTURE_EXPORT int32_t orrpkgGetMemUsage() { return 0; }
