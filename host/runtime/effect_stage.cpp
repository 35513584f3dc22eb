#include "runtime/effect_stage.h"

#include <algorithm>
#include <cctype>
#include <cmath>

#include "runtime/host_error.h"
#include "runtime/pending_file.h"
#include "runtime/settings_edit.h"
#include "orrery/services.h"
#include "framework/config_data.h"

namespace nimbo::host {
namespace {

// Inputs larger than this are refused: an effect answering such a size is
// broken, and the host would try to allocate gigabytes for it.
constexpr int32_t kMaxInputSide = 16384;

constexpr uint32_t kOpaqueBlack = 0xFF000000u;

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return char(std::tolower(c)); });
  return text;
}

std::string FormatRange(double a, double b) { return FormatFloat(float(a)) + " .. " + FormatFloat(float(b)); }

}  // namespace

EffectStage::EffectStage(const Package& package, const EffectEntry& entry, int32_t width, int32_t height, double fps)
    : entry_(entry), width_(width), height_(height), host_(width, height, fps) {
  effect_ = package.Create(entry.index);
  effect_->SetHostContext(&host_);
}

EffectStage::~EffectStage() { effect_.reset(); }

void EffectStage::ApplySettings(const StageOptions& options) {
  if (!options.preset.empty()) LoadPreset(options.preset);
  effect_->UpdateConfig();
  if (!options.sets.empty()) ApplySets(options.sets);
  if (!preset_text_.empty()) ApplyDynVarValues(ReadDynVarValues(preset_text_));
}

void EffectStage::Configure(const StageOptions& options) {
  ApplySettings(options);

  input_sizes_.clear();
  for (int32_t i = 0; i < effect_->GetInputCount(); ++i) {
    orrery::Size size = effect_->GetInputScreenRes(i, width_, height_);
    if (size.width <= 0 || size.height <= 0) size = {width_, height_};  // -1 x -1: follow the host
    if (size.width > kMaxInputSide || size.height > kMaxInputSide) {
      throw HostError(entry_.short_name + " asks for a " + std::to_string(size.width) + "x" +
                      std::to_string(size.height) + " input, larger than this host takes");
    }
    input_sizes_.push_back(size);
  }
  effect_->Initialize();
  output_.Reset(width_, height_, kOpaqueBlack);
  for (const std::string& dyn : options.dyns) Bind(dyn);
}

void EffectStage::LoadPreset(const std::string& path) {
  SettingsDocument& store = host_.Store();
  if (!store.LoadFromFile(path)) throw HostError("cannot load preset " + Quoted(path) + ": " + store.GetError());
  preset_text_ = store.Text();
}

void EffectStage::ApplySets(const std::vector<std::string>& sets) {
  // The write step on a fresh document gives every key the effect stores,
  // with its type and current value (defaults or the preset's).
  SettingsDocument& store = host_.Store();
  store.Clear();
  effect_->UpdateConfig();
  std::vector<SettingEntry> entries = ReadSettingEntries(store.Text());
  for (const std::string& set : sets) ApplySetting(entries, set, entry_.short_name);
  if (!store.Load(BuildSettingsDocument(entries)))
    throw HostError("cannot apply --set to " + entry_.short_name + ": " + store.GetError());
  effect_->UpdateConfig();  // the read step takes the edited values
}

void EffectStage::ApplyDynVarValues(const std::vector<DynVarValue>& values) {
  for (const DynVarValue& v : values) {
    orrery::DynVar* var = host_.FindDynVar(v.name);
    if (!var) continue;  // a variable this configuration no longer declares
    if (var->type == orrery::kDynVarBool) {
      if (auto value = ScanInt(v.value, 10)) var->bool_value = *value;
    } else if (auto value = ScanFloat(v.value)) {
      var->value = *value;
    }
  }
}

void EffectStage::Bind(const std::string& assignment) {
  Binding binding{ParseKeyframeTrack(assignment)};
  const std::string& name = binding.track.name;
  orrery::DynVar* var = host_.FindDynVar(name);
  const SliderRecord* slider = host_.FindSlider(name);
  if (!var && !slider) {
    // Names are case-sensitive to the effect; a unique case-blind match is
    // what the user meant.
    int matches = 0;
    for (orrery::DynVar* v : host_.DeclaredDynVars()) {
      if (Lower(v->name) == Lower(name)) var = v, ++matches;
    }
    for (const SliderRecord& s : host_.Sliders()) {
      if (Lower(s.name) == Lower(name)) slider = &s, ++matches;
    }
    if (matches != 1) FailUnknownVariable(binding.track);
  }
  double lo = 0, hi = 1;
  if (var && var->type == orrery::kDynVarBool) {
    binding.bool_value = &var->bool_value;
  } else if (var) {
    binding.float_value = &var->value;
    lo = std::min(var->varmin, var->varmax);
    hi = std::max(var->varmin, var->varmax);
  } else {
    binding.float_value = slider->value;
    lo = std::min(slider->minimum, slider->maximum);
    hi = std::max(slider->minimum, slider->maximum);
  }
  const double slack = (hi - lo) * 1e-6;
  if (binding.track.Minimum() < lo - slack || binding.track.Maximum() > hi + slack) {
    throw HostError("--dyn " + assignment + ": " + Quoted(name) + " takes values in " + FormatRange(lo, hi));
  }
  if (!binding.float_value && !binding.bool_value) FailUnknownVariable(binding.track);
  bindings_.push_back(std::move(binding));
}

void EffectStage::FailUnknownVariable(const KeyframeTrack& track) const {
  std::string valid;
  for (orrery::DynVar* v : host_.DeclaredDynVars()) valid += (valid.empty() ? "" : ", ") + Quoted(v->name);
  for (const SliderRecord& s : host_.Sliders()) valid += (valid.empty() ? "" : ", ") + Quoted(s.name);
  if (valid.empty()) throw HostError("--dyn " + track.name + ": " + entry_.short_name + " has no dynamic variables");
  throw HostError("--dyn " + track.name + ": " + entry_.short_name + " has no dynamic variable " +
                  Quoted(track.name) + "; valid names: " + valid);
}

bool EffectStage::RenderFrame(int64_t frame, const std::vector<const FrameBuffer*>& inputs) {
  host_.SetFrame(frame);
  const double fps = host_.FrameRate();
  const double seconds = fps > 0 ? double(frame) / fps : 0.0;
  for (Binding& b : bindings_) {
    const double v = b.track.ValueAt(seconds);
    if (b.bool_value) *b.bool_value = v >= 0.5 ? 1 : 0;
    else *b.float_value = float(v);
  }
  std::vector<orrery::Screen> screens(inputs.size());
  std::vector<const orrery::Screen*> list(inputs.size(), nullptr);
  for (size_t i = 0; i < inputs.size(); ++i) {
    if (!inputs[i]) continue;
    // Inputs are read-only for the effect; the Screen type has one pointer
    // type for both directions.
    screens[i] = {inputs[i]->width, inputs[i]->height, const_cast<uint32_t*>(inputs[i]->pixels.data())};
    list[i] = &screens[i];
  }
  orrery::Screen out = output_.AsScreen();
  return RenderScreens(list, out);
}

bool EffectStage::RenderScreens(const std::vector<const orrery::Screen*>& inputs, orrery::Screen& out) {
  const int32_t ok = effect_->Render(orrery::InputList{inputs.data(), int32_t(inputs.size())}, &out);
  if (!ok) {
    std::fill(out.pixels, out.pixels + size_t(out.width) * size_t(out.height), kOpaqueBlack);
    ++failed_frames_;
  }
  return ok != 0;
}

std::vector<OutputValue> EffectStage::OutputValues() const {
  std::vector<OutputValue> values;
  orrery::VisitOutputValues(
      effect_.get(),
      [](void* user, const char* name, const char*, float value) {
        static_cast<std::vector<OutputValue>*>(user)->push_back({name ? name : "", value});
      },
      &values);
  return values;
}

void EffectStage::SavePreset(PendingFile& file) {
  std::vector<DynVarValue> current;
  for (orrery::DynVar* v : host_.DeclaredDynVars()) {
    if (v->type == orrery::kDynVarBool) current.push_back({v->name, "bool", FormatInt(v->bool_value)});
    else current.push_back({v->name, "float", FormatFloat(v->value)});
  }
  SettingsDocument& store = host_.Store();
  store.Clear();
  effect_->UpdateConfig();  // the write step puts the current settings into the fresh document
  std::string text = store.Text();
  if (!current.empty()) text = AddDynVarValues(text, current);
  file.WriteAll(text.data(), text.size());
  file.Commit();
}

}  // namespace nimbo::host
