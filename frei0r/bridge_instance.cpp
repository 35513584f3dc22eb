#include "bridge_instance.h"

#include <cstdio>
#include <cstring>

#include "runtime/host_error.h"

namespace nimbo::frei0r {
namespace {

// The frame rate the stage reports to effects: frei0r hosts do not tell it,
// and the clock is set from their timestamps instead.
constexpr double kUnknownFps = 0.0;

void CopyPixels(const uint32_t* from, uint32_t* to, size_t count) {
  if (from) std::memcpy(to, from, count * sizeof(uint32_t));
  else std::fill(to, to + count, 0xFF000000u);
}

}  // namespace

BridgeInstance::BridgeInstance(const host::Package& package, const EffectDescription& description, Layout layout,
                               const std::string& plugin_name, int32_t width, int32_t height)
    : package_(package),
      description_(description),
      layout_(layout),
      plugin_name_(plugin_name),
      frame_width_(width),
      frame_height_(height),
      render_width_(width),
      render_height_(layout == Layout::kStacked ? height / 2 : height) {
  for (const ParamDesc& param : description_.params) {
    if (param.source == ParamSource::kValuesFile) values_param_ = int(values_.size());
    values_.push_back(DefaultValue(param));
  }
  touched_.assign(values_.size(), 0);
}

void BridgeInstance::SetParam(int index, const void* value) {
  if (index < 0 || size_t(index) >= values_.size() || !value) return;
  const ParamDesc& param = description_.params[size_t(index)];
  ParamValue& stored = values_[size_t(index)];
  const ParamValue before = stored;
  switch (param.type) {
    case ParamType::kBool:
    case ParamType::kDouble: StoreNumber(*static_cast<const double*>(value), &stored.number); break;
    case ParamType::kColor: {
      const float* rgb = static_cast<const float*>(value);
      StoreColor(rgb[0], rgb[1], rgb[2], &stored);
      break;
    }
    case ParamType::kString: {
      const char* text = *static_cast<const char* const*>(value);
      stored.text = text ? text : "";
      break;
    }
  }
  const bool touched_before = touched_[size_t(index)] != 0;
  if (param.source != ParamSource::kPreset && param.source != ParamSource::kValuesFile &&
      DiffersFromDefault(param, stored)) {
    touched_[size_t(index)] = 1;
  }
  // Hosts such as MLT and GStreamer hand every parameter over before each
  // frame; only a setting or preset that really changed makes the next frame
  // rebuild the effect's settings.
  const bool same = stored.number == before.number && stored.red == before.red && stored.green == before.green &&
                    stored.blue == before.blue && stored.text == before.text;
  if ((param.source == ParamSource::kSetting || param.source == ParamSource::kPreset) &&
      (!same || touched_[size_t(index)] != touched_before)) {
    settings_changed_ = true;
  }
}

void BridgeInstance::GetParam(int index, void* value) {
  if (index < 0 || size_t(index) >= values_.size() || !value) return;
  const ParamValue& stored = values_[size_t(index)];
  switch (description_.params[size_t(index)].type) {
    case ParamType::kBool:
    case ParamType::kDouble: *static_cast<double*>(value) = stored.number; break;
    case ParamType::kColor: {
      float* rgb = static_cast<float*>(value);
      rgb[0] = stored.red;
      rgb[1] = stored.green;
      rgb[2] = stored.blue;
      break;
    }
    case ParamType::kString: *static_cast<const char**>(value) = stored.text.c_str(); break;
  }
}

host::StageOptions BridgeInstance::Options() const {
  host::StageOptions options;
  options.effect = description_.entry->short_name;
  for (size_t i = 0; i < values_.size(); ++i) {
    const ParamDesc& param = description_.params[i];
    if (param.source == ParamSource::kPreset) options.preset = values_[i].text;
    if (param.source == ParamSource::kSetting && touched_[i]) options.sets.push_back(SettingAssignment(param, values_[i]));
  }
  return options;
}

std::unique_ptr<host::EffectStage> BridgeInstance::NewStage() const {
  return std::make_unique<host::EffectStage>(package_, *description_.entry, render_width_, render_height_,
                                             kUnknownFps);
}

void BridgeInstance::Prepare(bool jumped) {
  if (stage_ && !jumped && !settings_changed_) return;
  settings_changed_ = false;
  const host::StageOptions wanted = Options();
  const bool fresh = !stage_ || jumped || wanted.preset != applied_preset_;
  if (!fresh && wanted.sets == applied_sets_) return;
  if (fresh) stage_ = NewStage();
  try {
    stage_->Configure(wanted);
  } catch (const host::HostError& e) {
    if (wanted.preset.empty()) {
      stage_.reset();
      throw;
    }
    // A preset that cannot be read: the effect runs on the parameters alone.
    Report(e.what());
    host::StageOptions without = wanted;
    without.preset.clear();
    stage_ = NewStage();
    stage_->Configure(without);
  }
  applied_preset_ = wanted.preset;
  applied_sets_ = wanted.sets;
}

void BridgeInstance::WriteVariables() {
  host::EffectHost& host = stage_->Host();
  for (size_t i = 0; i < values_.size(); ++i) {
    const ParamDesc& param = description_.params[i];
    if (!touched_[i]) continue;
    const double v = TargetNumber(param, values_[i]);
    if (param.source == ParamSource::kDynVar) {
      orrery::DynVar* var = host.FindDynVar(param.target);
      if (!var) continue;  // declared only under a switch that is off
      if (var->type == orrery::kDynVarBool) var->bool_value = v >= 0.5 ? 1 : 0;
      else var->value = float(v);
    } else if (param.source == ParamSource::kSlider) {
      const host::SliderRecord* slider = host.FindSlider(param.target);
      if (slider && slider->value) *slider->value = float(v);
    }
  }
}

const orrery::Screen* BridgeInstance::Input(int32_t index, const uint32_t* pixels) {
  screens_[size_t(index)] = {render_width_, render_height_, const_cast<uint32_t*>(pixels)};
  if (!pixels) return nullptr;
  const orrery::Size size = stage_->InputSize(index);
  if (size.width == render_width_ && size.height == render_height_) return &screens_[size_t(index)];
  // The effect asked for another size: scaled the way nimbo scales a
  // chained picture, straight from the host's frame.
  host::FrameBuffer& to = scaled_[size_t(index)];
  scalers_[size_t(index)].Scale(pixels, render_width_, render_height_, to, size.width, size.height);
  screens_[size_t(index)] = to.AsScreen();
  return &screens_[size_t(index)];
}

bool BridgeInstance::Render(const uint32_t* first, const uint32_t* second, uint32_t* out) {
  const int32_t count = stage_->InputCount();
  screens_.resize(size_t(count));
  scaled_.resize(size_t(count));
  scalers_.resize(size_t(count));
  inputs_.assign(size_t(count), nullptr);
  const uint32_t* given[2] = {first, second};
  for (int32_t i = 0; i < count && i < 2; ++i) inputs_[size_t(i)] = Input(i, given[i]);
  orrery::Screen output{render_width_, render_height_, out};
  return stage_->RenderScreens(inputs_, output);
}

void BridgeInstance::Update(double time, const uint32_t* first, const uint32_t* second, uint32_t* out) {
  if (!out) return;
  const size_t frame_pixels = size_t(frame_width_) * size_t(frame_height_);
  const size_t render_pixels = size_t(render_width_) * size_t(render_height_);
  if (layout_ == Layout::kStacked) {
    if (frame_height_ % 2 != 0 || !first) {
      Report("the stacked frame must hold two pictures of equal height, one above the other");
      CopyPixels(first, out, frame_pixels);
      return;
    }
    second = first + render_pixels;
  }
  try {
    const HostClock::Tick tick = clock_.Advance(time);
    Prepare(tick.jumped);
    WriteVariables();
    stage_->Host().SetClockMs(tick.ms);
    if (!Render(first, second, out)) Report("the effect could not render a frame: it is black, as in nimbo render");
    if (layout_ == Layout::kStacked) std::memcpy(out + render_pixels, second, render_pixels * sizeof(uint32_t));

    WriteValues(tick);
  } catch (const std::exception& e) {
    Report(e.what());
    CopyPixels(first, out, frame_pixels);
  }
}

void BridgeInstance::WriteValues(const HostClock::Tick& tick) {
  if (values_param_ < 0) return;
  const std::string& path = values_[size_t(values_param_)].text;
  if (path.empty() || path == unwritable_path_) {
    values_file_.reset();
    return;
  }
  if (!values_file_ || values_file_->Path() != path) {
    values_file_.reset();  // the finished file appears before the next one is begun
    try {
      values_file_ = std::make_unique<ValuesFile>(path, description_.outputs);
    } catch (const std::exception& e) {
      // The picture does not depend on it: report once, keep rendering.
      Report(e.what());
      unwritable_path_ = path;
      return;
    }
  }
  values_file_->AddRow(tick.frame, tick.seconds, stage_->OutputValues());
}

void BridgeInstance::Report(const std::string& message) {
  if (reported_.insert(message).second) std::fprintf(stderr, "%s: %s\n", plugin_name_.c_str(), message.c_str());
}

}  // namespace nimbo::frei0r
