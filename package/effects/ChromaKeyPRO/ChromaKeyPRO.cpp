// ChromaKeyPRO: a two-input chroma keyer. Every pixel of the first input
// whose chroma (BT.601 Cb, Cr) lies inside a cone around the key colour's
// chroma is replaced by a mix of the background (the second input, or a null
// colour) and the pixel's own foreground remainder; the rest of the picture
// stays as it is, or is recoloured by an optional hue/saturation/brightness
// transform. The arithmetic is in chroma_key_kernel.h.
//
// The key colour is fixed ("chroma_rgb", mode 1), picked every frame at a
// point of the picture (any other mode), or set by three dynamic variables
// that overwrite "chroma_rgb". A user curve (the alpha map) shapes the
// transparency; a noise radius forces near-key pixels fully transparent. For
// speed the whole key function can be precomputed for 7-bit colours into a
// 16 MiB table, used only with a fixed key.
//
// Settings and units: "angle" is the cone's half-angle in degrees, "noise_level"
// a distance in the projected chroma plane, "colortrafo_hue" radians,
// "colortrafo_sat" and "colortrafo_bright" factors (1 = unchanged), "pick_x"
// and "pick_y" fractions of the frame, colours 0xRRGGBB. The alpha map is
// "alphamaplen" points "alphamap_%i_x", "alphamap_%i_y", x ascending, 0..1.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <numbers>
#include <string>
#include <vector>

#include "chroma_key_kernel.h"
#include "chroma_key_math.h"
#include "core/effect_base.h"
#include "core/labels.h"
#include "core/registry.h"
#include "core/settings_table.h"
#include "framework/dynvar_list.h"
#include "orrery/services.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "Chroma"}, {-1, -1, "Background"}};
constexpr orrery::EffectInfo kInfo = {kInputs,
                                      2,
                                      {-1, -1},
                                      "",
                                      "nimbo one\\ChromaKeyPRO",
                                      kAuthor,
                                      "Effect,Filter,Keying,",
                                      0x01739FD3B7D85F4Dull,
                                      orrery::kEffectVersion};

constexpr const char* kOutmodeWarning = "Warning!\nPlugin may need a second input to operate correctly!";
constexpr const char* kHintSaturation =
    "Hint: set the SATURATION of the key color to a lower value to kill some noise!";
constexpr const char* kHintXtractAlpha = "Hint: use the XtractAlpha plugin to get the alpha of the output";
constexpr const char* kTableLabel = "Faster, needs more mem, slight quality loss";

// ---- settings ----
struct ChromaKeySettings {
  int32_t mode;
  int32_t chroma_rgb;
  float pick_x, pick_y;
  int32_t outmode;
  int32_t nullcolor;
  int32_t use_table;
  int32_t use_dynvars;
  float angle;
  float noise_level;
  int32_t colortrafo_used;
  float colortrafo_hue, colortrafo_sat, colortrafo_bright;
  int32_t alphamaplen;
};

constexpr double kPi = std::numbers::pi_v<float>;  // the single-precision pi the hue is stored against

// In the order the keys are written; the alpha-map points follow (the dialog
// edits them as text, with their count).
constexpr SettingRow<ChromaKeySettings> kRows[] = {
    {"mode",
     &ChromaKeySettings::mode,
     1,
     nullptr,
     0,
     1,
     "Key colour from",
     "1 = fixed key colour, otherwise picked at the pick point",
     false,
     {ShowAs::kChoice, "pick point|fixed colour"}},
    {"chroma_rgb",
     &ChromaKeySettings::chroma_rgb,
     0x0000FF,
     nullptr,
     0,
     0xFFFFFF,
     "Key colour",
     "key colour 0xRRGGBB",
     false,
     {ShowAs::kColor}},
    {"pick_x",
     &ChromaKeySettings::pick_x,
     0.5,
     nullptr,
     0,
     1,
     "Pick point x",
     "pick point x, fraction of the width",
     false,
     {.hint = "fraction of the width"}},
    {"pick_y",
     &ChromaKeySettings::pick_y,
     0.5,
     nullptr,
     0,
     1,
     "Pick point y",
     "pick point y, fraction of the height",
     false,
     {.hint = "fraction of the height"}},
    {"outmode",
     &ChromaKeySettings::outmode,
     0,
     nullptr,
     0,
     1,
     "Background",
     "0 = second input behind, 1 = null colour",
     false,
     {ShowAs::kChoice, "second input|null colour"}},
    {"nullcolor",
     &ChromaKeySettings::nullcolor,
     0,
     nullptr,
     0,
     0xFFFFFF,
     "Null colour",
     "null colour 0xRRGGBB",
     false,
     {ShowAs::kColor}},
    {"use_table", &ChromaKeySettings::use_table, 1, nullptr, 0, 1, kTableLabel},
    {"use_dynvars",
     &ChromaKeySettings::use_dynvars,
     0,
     nullptr,
     0,
     1,
     "Use dynamic variables",
     "key from the dynamic variables",
     false,
     {.hint = "Keycolor, Transparency, Tolerance"}},
    {"angle",
     &ChromaKeySettings::angle,
     50.0,
     nullptr,
     0,
     90,
     "Acceptance angle",
     "acceptance angle, degrees",
     false,
     {.hint = "degrees"}},
    {"noise_level", &ChromaKeySettings::noise_level, 0.0, nullptr, 0, 255, "Noise level",
     "noise radius around the key"},
    {"colortrafo_used", &ChromaKeySettings::colortrafo_used, 0, nullptr, 0, 1, "Colour transform",
     "recolour the foreground"},
    {"colortrafo_hue",
     &ChromaKeySettings::colortrafo_hue,
     0.0,
     nullptr,
     -kPi,
     kPi,
     "Hue",
     "hue, radians",
     false,
     {.hint = "degrees", .scale = 180.0 / std::numbers::pi}},
    {"colortrafo_sat", &ChromaKeySettings::colortrafo_sat, 1.0, nullptr, 0, 4, "Saturation", "saturation factor"},
    {"colortrafo_bright", &ChromaKeySettings::colortrafo_bright, 1.0, nullptr, 0, 4, "Brightness", "brightness factor"},
    {"alphamaplen",
     &ChromaKeySettings::alphamaplen,
     2,
     nullptr,
     0,
     kMaxAlphaMapPoints,
     "alpha map points",
     nullptr,
     false,
     {ShowAs::kHidden}},
};

// The alpha map's points are no table rows: their keys carry the point's
// index, and "alphamaplen" says how many the effect reads.
constexpr orrery::SettingIndex kAlphaMapIndex[] = {{"alphamaplen", kMaxAlphaMapPoints}};
constexpr orrery::IndexedSettingInfo kAlphaMapKeys[] = {
    {{"alphamap_%i_x", orrery::SettingType::kFloat, 0, 1,
      "alpha map point x: the transparency the key computes (not below the point before)"},
     1,
     kAlphaMapIndex},
    {{"alphamap_%i_y", orrery::SettingType::kFloat, 0, 1, "alpha map point y: the transparency used"},
     1,
     kAlphaMapIndex},
};

using AlphaMap = std::array<AlphaPoint, kMaxAlphaMapPoints>;

AlphaMap DefaultAlphaMap() {
  AlphaMap map{};
  map[1] = {1.0f, 1.0f};
  return map;
}

// The alpha map as the dialog's text: "x,y" pairs separated by spaces.
std::string AlphaMapText(const AlphaMap& map, int32_t len) {
  std::string text;
  char pair[64];
  for (int32_t i = 0; i < len; ++i) {
    std::snprintf(pair, sizeof pair, "%s%g,%g", i ? " " : "", double(map[size_t(i)].x), double(map[size_t(i)].y));
    text += pair;
  }
  return text;
}

// Parses the dialog's alpha-map text; on failure `error` says why and the
// outputs are untouched.
bool ParseAlphaMapText(const std::string& text, AlphaMap& map, int32_t& len, std::string& error) {
  AlphaMap parsed{};
  int32_t count = 0;
  const char* p = text.c_str();
  for (;;) {
    while (*p == ' ' || *p == '\t' || *p == ';' || *p == '\n') ++p;
    if (!*p) break;
    if (count == kMaxAlphaMapPoints) {
      error = "Alpha map: at most 300 points";
      return false;
    }
    char* end = nullptr;
    const float x = std::strtof(p, &end);
    if (end == p || *end != ',') {
      error = "Alpha map: expected x,y pairs such as \"0,0 1,1\"";
      return false;
    }
    p = end + 1;
    const float y = std::strtof(p, &end);
    if (end == p) {
      error = "Alpha map: expected x,y pairs such as \"0,0 1,1\"";
      return false;
    }
    p = end;
    if (!(x >= 0.0f && x <= 1.0f && y >= 0.0f && y <= 1.0f)) {
      error = "Alpha map: values must lie between 0 and 1";
      return false;
    }
    if (count > 0 && x < parsed[size_t(count - 1)].x) {
      error = "Alpha map: x must not decrease from one point to the next";
      return false;
    }
    parsed[size_t(count++)] = {x, y};
  }
  map = parsed;
  len = count;
  return true;
}

class CChromaKeyPRODfx final : public CEffectBase {
 public:
  CChromaKeyPRODfx()
      : CEffectBase(kInfo, kLabelChromaKeyPRO, "helpfile/Effects/Keying/ChromaKeyPRO/ChromaKeyPRO.htm",
                    sizeof(CChromaKeyPRODfx)) {
    ApplyDefaults<ChromaKeySettings>(kRows, settings_);
    alpha_map_ = DefaultAlphaMap();
    last_key_ = uint32_t(settings_.chroma_rgb);
  }

  ~CChromaKeyPRODfx() override { FreeAll(); }

  // ---- lifecycle ----
  int32_t Initialize() override {
    std::lock_guard lock(lock_);
    FetchOutputSize();
    frame_w_ = out_w_;
    frame_h_ = out_h_;
    lut_ = BuildAlphaLut(AlphaMapSpan());
    params_dirty_ = true;
    SetUseTable(settings_.use_table);
    return 1;
  }

  int32_t Render(const orrery::InputList& inputs, orrery::Screen* output) override {
    std::lock_guard lock(lock_);
    // The keyer reports success for every frame, even one it cannot work on.
    if (!OutputSizeKnown()) return 1;
    if (!CopyInputToOutput(inputs, output) || output->PixelCount() == 0) return 1;
    const size_t count = output->PixelCount();
    const bool null_colour = settings_.outmode != 0;
    const uint32_t* background = output->pixels;
    if (!null_colour) {
      const orrery::Screen* second = inputs.Get(1);
      if (second && second->pixels && second->width == output->width && second->height == output->height) {
        background = second->pixels;
      }
    }
    if (!snapshot_.empty() && snapshot_w_ == output->width && snapshot_h_ == output->height) {
      std::memcpy(snapshot_.data(), inputs.Get(0)->pixels, count * sizeof(uint32_t));
    }

    const uint32_t key = SelectKey(*output);
    last_key_ = key;
    const ChromaKeyParams& params = ParamsFor(key);
    if (!settings_.use_table || bypass_ || settings_.mode != 1) {
      ChromaKeyKernel()(output->pixels, null_colour ? nullptr : background, count, params);
    } else if (table_) {
      ApplyKeyTableKernel()(output->pixels, null_colour ? nullptr : background, count, table_.get(),
                            uint32_t(settings_.nullcolor));
    }
    return 1;
  }

  // ---- the dialog's side ----
  // Opening: keep the configuration for Cancel, give Render a snapshot to
  // fill with the live input, and key directly while settings change.
  void BeginDialog() {
    std::lock_guard lock(lock_);
    saved_settings_ = settings_;
    saved_alpha_map_ = alpha_map_;
    FreeSnapshot();
    if (frame_w_ > 0 && frame_h_ > 0) {
      try {
        snapshot_.assign(size_t(frame_w_) * size_t(frame_h_), 0);
        snapshot_w_ = frame_w_;
        snapshot_h_ = frame_h_;
        mem_size_ += int32_t(snapshot_.size() * sizeof(uint32_t));
      } catch (const std::bad_alloc&) {
        FreeSnapshot();  // the dialog works without a live picture
      }
    }
    bypass_ = true;
  }

  // Closing: 1 after OK, 0 after Cancel (the configuration restored).
  int32_t EndDialog(bool ok) {
    bool warn = false;
    {
      std::lock_guard lock(lock_);
      bypass_ = false;
      if (ok) {
        if (settings_.mode == 0) SetUseTable(0);
        warn = settings_.outmode != saved_settings_.outmode && settings_.outmode == 1;
      } else {
        settings_ = saved_settings_;
        alpha_map_ = saved_alpha_map_;
        params_dirty_ = true;
      }
      FreeSnapshot();
    }
    // Shown without the lock: the message box is modal and rendering goes on.
    if (warn) platform::ShowWarning(kInfo.name, kOutmodeWarning);
    return ok ? 1 : 0;
  }

  // The live picture for picking the key, while a dialog is open.
  const std::vector<uint32_t>& Snapshot() const { return snapshot_; }

 protected:
  void ReadSettings(orrery::ConfigStore& store) override {
    ReadRows<ChromaKeySettings>(store, kRows, settings_);
    settings_.alphamaplen = std::clamp(settings_.alphamaplen, 0, kMaxAlphaMapPoints);
    char key[32];
    for (int32_t i = 0; i < settings_.alphamaplen; ++i) {
      AlphaPoint& point = alpha_map_[size_t(i)];
      std::snprintf(key, sizeof key, "alphamap_%i_x", int(i));
      point.x = store.GetFloat(key, point.x);
      std::snprintf(key, sizeof key, "alphamap_%i_y", int(i));
      point.y = store.GetFloat(key, point.y);
    }
    params_dirty_ = true;
  }

  void WriteSettings(orrery::ConfigStore& store) override {
    settings_.alphamaplen = std::clamp(settings_.alphamaplen, 0, kMaxAlphaMapPoints);
    WriteRows<ChromaKeySettings>(store, kRows, settings_);
    char key[32];
    for (int32_t i = 0; i < settings_.alphamaplen; ++i) {
      std::snprintf(key, sizeof key, "alphamap_%i_x", int(i));
      store.SetFloat(key, alpha_map_[size_t(i)].x);
      std::snprintf(key, sizeof key, "alphamap_%i_y", int(i));
      store.SetFloat(key, alpha_map_[size_t(i)].y);
    }
  }

  void DeclareHostControls() override {
    DescribeRows<ChromaKeySettings>(host_context_, kRows);
    if (host_context_) {
      for (const orrery::IndexedSettingInfo& keys : kAlphaMapKeys) host_context_->DescribeIndexedSetting(keys);
    }
    dynvars_.Clear();
    keycolor_ = transparency_ = tolerance_ = nullptr;
    if (settings_.use_dynvars) {
      keycolor_ = dynvars_.DeclareFloat("Keycolor", -1.0f, 1.0f, 0.0f, -1.0f, 1.0f, 0);
      transparency_ = dynvars_.DeclareFloat("Transparency", 0.0f, 1.0f, 0.9f, 0.0f, 1.0f, 0);
      tolerance_ = dynvars_.DeclareFloat("Tolerance", 0.01f, 0.99f, 0.8f, 0.01f, 0.99f, 0);
    }
    if (host_context_) host_context_->PublishDynVars(dynvars_.Head());
  }

  int32_t RunDialog() override {
    BeginDialog();
    DialogValues v;
    {
      std::lock_guard lock(lock_);
      v.settings = settings_;
      v.settings.mode = settings_.mode == 1 ? 1 : 0;  // any other stored mode picks
      v.alpha_map = AlphaMapText(alpha_map_, settings_.alphamaplen);
      const KeyParams key = ComputeKeyParams(uint32_t(settings_.chroma_rgb) & 0xFFFFFF, settings_.angle);
      std::snprintf(v.saturation, sizeof v.saturation, "Key colour saturation: %i%%", int(key.mag * 100.0f / 120.0f));
    }
    ChromaKeySettings& s = v.settings;
    using F = orrery::DialogFieldType;
    const orrery::DialogField after[] = {
        {v.saturation, F::kLabel, nullptr, 0, 0, nullptr, nullptr},
        {"Alpha map", F::kText, &v.alpha_map, 0, 0, nullptr, "x,y points from 0 to 1, x ascending"},
        {kHintSaturation, F::kLabel, nullptr, 0, 0, nullptr, nullptr},
        {kHintXtractAlpha, F::kLabel, nullptr, 0, 0, nullptr, nullptr},
    };
    SettingsDialog<ChromaKeySettings> dialog(kRows, s, {}, after);
    const bool ok = dialog.Run("ChromaKeyPRO", HelpPage());
    std::string map_error;
    if (ok) {
      std::lock_guard lock(lock_);
      s.chroma_rgb &= 0xFFFFFF;
      s.nullcolor &= 0xFFFFFF;
      if (!ParseAlphaMapText(v.alpha_map, alpha_map_, s.alphamaplen, map_error)) s.alphamaplen = settings_.alphamaplen;
      const bool dynvars_changed = s.use_dynvars != settings_.use_dynvars;
      settings_ = s;
      params_dirty_ = true;
      if (dynvars_changed) DeclareHostControls();
    }
    // A bad alpha map keeps the previous one; everything else is applied.
    if (!map_error.empty()) platform::ShowError(kInfo.name, map_error.c_str());
    return EndDialog(ok);
  }

 private:
  struct DialogValues {
    ChromaKeySettings settings;
    std::string alpha_map;
    char saturation[64] = "";
  };

  std::span<const AlphaPoint> AlphaMapSpan() const {
    return {alpha_map_.data(), size_t(std::clamp(settings_.alphamaplen, 0, kMaxAlphaMapPoints))};
  }

  // Which key this frame uses; in dynamic-variable mode it also moves the
  // angle and rebuilds the table when key or angle changed.
  uint32_t SelectKey(const orrery::Screen& frame) {
    if (!settings_.use_dynvars) {
      if (settings_.mode == 1) return uint32_t(settings_.chroma_rgb) & 0xFFFFFF;
      const int32_t x = std::clamp(TruncToInt32(double(frame.width) * settings_.pick_x), 0, frame.width - 1);
      const int32_t y = std::clamp(TruncToInt32(double(frame.height) * settings_.pick_y), 0, frame.height - 1);
      return frame.pixels[size_t(y) * size_t(frame.width) + size_t(x)] & 0xFFFFFF;
    }
    uint32_t key = 0;
    const float old_angle = settings_.angle;
    if (tolerance_) settings_.angle = *tolerance_ * 90.0f;
    if (keycolor_ && transparency_) {
      const float u = std::cos(*keycolor_ * std::numbers::pi_v<float>) * (1.0f - *transparency_);
      const float v = std::sin(*keycolor_ * std::numbers::pi_v<float>) * (1.0f - *transparency_);
      const float y = 0.5f;
      auto channel = [](float value) { return uint32_t(std::clamp(TruncToInt32(value * 255.0f), 0, 255)); };
      key = channel(1.0f * y + 0.0005f * u + 1.5749f * v) << 16 |
            channel(0.9998f * y - 0.1875f * u - 0.4682f * v) << 8 | channel(1.0019f * y + 1.8554f * u + 0.0008f * v);
    }
    // The dynamic variables deliberately overwrite the configured key.
    settings_.chroma_rgb = int32_t(key);
    if ((settings_.angle != old_angle || key != last_key_) && settings_.use_table && !bypass_ && table_) {
      BuildKeyTable(table_.get(), ParamsFor(key), ChromaKeyKernel());
    }
    return key;
  }

  // The kernel's parameters for `key` and the current settings, derived again
  // only when one of them changed.
  const ChromaKeyParams& ParamsFor(uint32_t key) {
    if (params_dirty_ || key != params_key_ || settings_.angle != params_angle_) {
      if (params_dirty_) lut_ = BuildAlphaLut(AlphaMapSpan());
      ChromaKeyInputs in;
      in.key_rgb = key;
      in.angle = settings_.angle;
      in.noise_level = settings_.noise_level;
      in.colortrafo_used = settings_.colortrafo_used != 0;
      in.colortrafo = {settings_.colortrafo_hue, settings_.colortrafo_sat, settings_.colortrafo_bright};
      in.null_rgb = uint32_t(settings_.nullcolor);
      params_ = MakeChromaKeyParams(in, lut_);
      params_key_ = key;
      params_angle_ = settings_.angle;
      params_dirty_ = false;
    }
    return params_;
  }

  // Sets "use_table" and makes the table follow it: freed, then (when on)
  // allocated and built for the configured key. Without memory there is no
  // table, and Render leaves frames unkeyed on the table path.
  void SetUseTable(int32_t on) {
    std::lock_guard lock(lock_);
    settings_.use_table = on;
    FreeTable();
    if (!on) return;
    table_.reset(new (std::nothrow) uint32_t[kKeyTableWords]);
    if (!table_) return;
    mem_size_ += int32_t(kKeyTableBytes);
    BuildKeyTable(table_.get(), ParamsFor(uint32_t(settings_.chroma_rgb) & 0xFFFFFF), ChromaKeyKernel());
  }

  void FreeTable() {
    if (table_) mem_size_ -= int32_t(kKeyTableBytes);
    table_.reset();
  }

  void FreeSnapshot() {
    mem_size_ -= int32_t(snapshot_.size() * sizeof(uint32_t));
    std::vector<uint32_t>().swap(snapshot_);
    snapshot_w_ = snapshot_h_ = 0;
  }

  void FreeAll() {
    std::lock_guard lock(lock_);
    FreeTable();
    FreeSnapshot();
  }

  // Settings.
  ChromaKeySettings settings_{};
  AlphaMap alpha_map_{};
  // Derived values.
  AlphaLut lut_{};
  ChromaKeyParams params_{};
  uint32_t params_key_ = 0;
  float params_angle_ = 0.0f;
  bool params_dirty_ = true;
  std::unique_ptr<uint32_t[]> table_;
  // Frame and dialog state.
  int32_t frame_w_ = 0, frame_h_ = 0;
  uint32_t last_key_ = 0;
  bool bypass_ = false;
  std::vector<uint32_t> snapshot_;
  int32_t snapshot_w_ = 0, snapshot_h_ = 0;
  ChromaKeySettings saved_settings_{};
  AlphaMap saved_alpha_map_{};
  // Dynamic variables: the list, and the values of the three when declared.
  DynVarList dynvars_;
  float* keycolor_ = nullptr;
  float* transparency_ = nullptr;
  float* tolerance_ = nullptr;
};

}  // namespace

orrery::Effect* NewChromaKeyPRO() { return CreateEffect<CChromaKeyPRODfx>(); }

}  // namespace nimbo
