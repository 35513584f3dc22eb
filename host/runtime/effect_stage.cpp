#include "runtime/effect_stage.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <map>
#include <unordered_map>

#include "runtime/checked_store.h"
#include "runtime/host_error.h"
#include "runtime/pending_file.h"
#include "runtime/settings_edit.h"
#include "orrery/services.h"
#include "framework/config_data.h"
#include "framework/xml_document.h"

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
  // A fresh effect on the empty document stores its defaults and describes
  // its settings: the ranges a preset's values are checked against.
  effect_->UpdateConfig();
  if (!options.preset.empty()) LoadPreset(options.preset);
  if (!options.sets.empty()) ApplySets(options.sets);
  if (!options.preset.empty()) ApplyDynVarValues(preset_dynvars_);
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
  // Black again, allocated when it is first asked for: a host that renders
  // into its own frames (RenderScreens) never needs this one.
  output_ = FrameBuffer();
  for (const std::string& dyn : options.dyns) Bind(dyn);
}

void EffectStage::Warn(const std::string& text) {
  warnings_.push_back(text);
  std::fprintf(stderr, "nimbo: warning: %s\n", text.c_str());
}

// The effect reads the preset through the checks; then the preset's keys it
// never asked for, and keys stored twice, are reported. The store reads the
// first element of a key, so that is the value a duplicate leaves in effect.
void EffectStage::LoadPreset(const std::string& path) {
  SettingsDocument& store = host_.Store();
  if (!store.LoadFromFile(path)) throw HostError("cannot load preset " + Quoted(path) + ": " + store.GetError());
  preset_dynvars_ = ReadDynVarValues(store.Document());
  preset_path_ = path;
  const std::string source = "preset " + Quoted(path);
  CheckedStore checked(host_, source);
  const uint64_t revision = store.Document().Revision();
  host_.UseStore(&checked);
  effect_->UpdateConfig();
  host_.UseStore(nullptr);
  for (const std::string& warning : checked.Warnings()) Warn(warning);

  // A preset without values makes the effect write its own into the
  // document: then there is nothing of the preset's to report.
  if (store.Document().Revision() == revision) ReportUnusedAndRepeatedKeys(checked, source);
}

// A material layer stores its picture twice: "<prefix>mattex<k>bitmapname"
// as a plain string and "...bitmapnamepath" as a path, and reads only the
// path. The plain key is the effect's own, not a stranger's: no warning.
static bool IsWrittenOnlyKey(const std::string& key) {
  static const std::string kSuffix = "bitmapname";
  if (key.size() <= kSuffix.size() || key.compare(key.size() - kSuffix.size(), kSuffix.size(), kSuffix) != 0)
    return false;
  size_t at = key.size() - kSuffix.size();
  const size_t digits_end = at;
  while (at > 0 && std::isdigit(static_cast<unsigned char>(key[at - 1]))) --at;
  return at < digits_end && at >= 6 && key.compare(at - 6, 6, "mattex") == 0;
}

// Walks the preset's values: a key whose first element the effect never
// read is unused (unless the effect writes it only to keep it); later elements of a key are repeats, which the store
// never reads.
void EffectStage::ReportUnusedAndRepeatedKeys(const CheckedStore& checked, const std::string& source) {
  SettingsDocument& store = host_.Store();
  XmlDocument& doc = store.Document();
  std::unordered_map<int32_t, int> times;  // the first element of a repeated key -> how often it is stored
  std::vector<std::pair<int32_t, std::string>> repeated;
  doc.ResetPos();
  if (!doc.FindElem(kSettingsElem) || !doc.FindChildElem(kConfigDataElem) || !doc.IntoElem()) return;
  while (doc.FindChildElem("data")) {
    const int32_t elem = doc.ChildHandle();
    const int32_t first = store.Config().FirstElementOf(elem);
    if (!first) continue;  // no key
    if (first == elem) {
      if (!checked.WasRead(elem) && !IsWrittenOnlyKey(doc.GetChildAttrib("name"))) {
        Warn(source + ": " + entry_.short_name + " does not use " + Quoted(doc.GetChildAttrib("name")) + "; ignored");
      }
    } else if (times[first]++ == 0) {
      repeated.emplace_back(first, doc.GetChildAttrib("name"));
    }
  }
  for (const auto& [first, key] : repeated) {
    Warn(source + ": " + Quoted(key) + " is stored " + std::to_string(times[first] + 1) + " times; the first value, " +
         QuotedValue(doc.DataAt(first)) + ", is used");
  }
}

// The write step on a fresh document gives every key the effect stores, with
// its type and current value (defaults or the preset's). A key given twice
// keeps its first value, as a preset's first element of a key is the one read.
// The values are applied in the order given, so an indexed key may follow
// the count that makes room for it ("alphamaplen=3", then "alphamap_2_x=1").
void EffectStage::ApplySets(const std::vector<std::string>& sets) {
  SettingsDocument& store = host_.Store();
  store.Clear();
  effect_->UpdateConfig();
  std::vector<SettingEntry> entries = ReadSettingEntries(store.Text());
  std::map<std::string, std::string> given;  // key -> the assignment that is used
  for (const std::string& set : sets) {
    const std::string key = AssignedKey(set);
    const auto [first, added] = given.try_emplace(key, set);
    if (!added) {
      Warn("--set " + Quoted(key) + " is given more than once; " + first->second + " is used, " + set + " ignored");
      continue;
    }
    ApplySetting(entries, set, entry_.short_name, host_.DescribedSettings(), &host_.IndexedSettings());
  }
  if (!store.Load(BuildSettingsDocument(entries)))
    throw HostError("cannot apply --set to " + entry_.short_name + ": " + store.GetError());
  effect_->UpdateConfig();  // the read step takes the edited values
}

// Values of variables the configuration declares, checked against their
// ranges like settings; a preset's variable that is not declared is reported.
// A variable takes the first "var" of its name, as a search from the top of
// the block finds it; later ones are reported and left alone.
void EffectStage::ApplyDynVarValues(const std::vector<DynVarValue>& values) {
  const std::string source = "preset " + Quoted(preset_path_);
  std::map<std::string, const DynVarValue*> first_of;
  for (const DynVarValue& v : values) {
    const auto [first, added] = first_of.try_emplace(v.name, &v);
    if (!added) {
      Warn(source + ": dynamic variable " + Quoted(v.name) + " is stored more than once; the first value, " +
           QuotedValue(first->second->value) + ", is used");
      continue;
    }
    orrery::DynVar* var = host_.FindDynVar(v.name);
    if (!var) {
      Warn(source + ": " + entry_.short_name + " has no dynamic variable " + Quoted(v.name) + "; ignored");
      continue;
    }
    const std::string named = source + ": dynamic variable " + Quoted(v.name) + " = " + QuotedValue(v.value);
    if (var->type == orrery::kDynVarBool) {
      if (auto value = ScanInt(v.value, 0)) var->bool_value = *value;  // read as "%i" reads
      else Warn(named + " is not 0 or 1; keeping " + std::to_string(var->bool_value));
      continue;
    }
    const ValueRange range{std::min(var->varmin, var->varmax), std::max(var->varmin, var->varmax)};
    const CheckedNumber checked = CheckStoredNumber(false, v.value, range);
    const std::string keeping = "; keeping " + ShownNumber(false, var->value);
    switch (checked.fault) {
      case ValueFault::kNone:
        var->value = float(checked.value);
        break;
      case ValueFault::kOutOfRange:
        Warn(named + " is outside " + RangeText(range) + "; using " + ShownNumber(false, checked.value));
        var->value = float(checked.value);
        break;
      case ValueFault::kUnparsable:
        Warn(named + " is not a float" + keeping);
        break;
      case ValueFault::kNotANumber:
      case ValueFault::kNotFinite:
        Warn(named + " is not a number in " + RangeText(range) + keeping);
        break;
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
  for (const Binding& earlier : bindings_) {
    // Two tracks on one variable: one of them would be dropped unseen.
    if ((binding.float_value && earlier.float_value == binding.float_value) ||
        (binding.bool_value && earlier.bool_value == binding.bool_value)) {
      throw HostError("--dyn " + Quoted(name) + " is given twice for " + entry_.short_name + " (" +
                      earlier.track.name + " and " + binding.track.name +
                      "); give one --dyn per variable, with keyframes (v0@t0,v1@t1,...) for a value that changes");
    }
  }
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
  Output();  // allocated
  orrery::Screen out = output_.AsScreen();
  return RenderScreens(list, out);
}

const FrameBuffer& EffectStage::Output() const {
  if (output_.pixels.empty()) output_.Reset(width_, height_, kOpaqueBlack);
  return output_;
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
}

}  // namespace nimbo::host
