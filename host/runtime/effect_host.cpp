#include "runtime/effect_host.h"

#include <cmath>
#include <cstring>
#include <new>

namespace nimbo::host {

void EffectHost::GetOutputSize(orrery::OutputDesc* out) {
  if (out) *out = {width_, height_, float(fps_)};
}

void EffectHost::Notify(int32_t, int32_t) {
  // An offline host has nothing to pause around a re-initialisation: the
  // render loop never overlaps a dialog.
}

void EffectHost::DeclareSlider(const orrery::SliderDesc& slider) {
  SliderRecord record{slider.name ? slider.name : "", slider.value, slider.minimum, slider.maximum,
                      slider.initial};
  // Declared again on every UpdateConfig: the newest declaration wins.
  for (SliderRecord& existing : sliders_) {
    if (existing.name == record.name) {
      existing = record;
      return;
    }
  }
  sliders_.push_back(record);
}

void* EffectHost::GetMemory(int32_t slot, size_t bytes) {
  std::lock_guard lock(memory_mutex_);
  try {
    AlignedVector<uint8_t>& buffer = memory_[slot];
    if (buffer.size() != bytes) {
      buffer.clear();
      buffer.shrink_to_fit();
      buffer.resize(bytes, 0);
    }
    return buffer.empty() ? nullptr : buffer.data();
  } catch (const std::bad_alloc&) {
    memory_.erase(slot);
    return nullptr;
  }
}

void EffectHost::FreeMemory(int32_t slot) {
  std::lock_guard lock(memory_mutex_);
  memory_.erase(slot);
}

size_t EffectHost::MemoryInUse() const {
  std::lock_guard lock(memory_mutex_);
  size_t total = 0;
  for (const auto& [slot, buffer] : memory_) total += buffer.size();
  return total;
}

void EffectHost::SetFrame(int64_t frame) {
  clock_ms_ = fps_ > 0 ? int64_t(std::floor(double(frame) * 1000.0 / fps_)) : 0;
}

int64_t EffectHost::GetTimeMs() { return clock_ms_; }

void EffectHost::DescribeSetting(const orrery::SettingInfo& info) {
  SettingRecord record{info.key ? info.key : "", info.type, info.minimum, info.maximum, info.help ? info.help : ""};
  for (SettingRecord& existing : settings_) {
    if (existing.key == record.key) {
      existing = record;
      return;
    }
  }
  settings_.push_back(record);
}

void EffectHost::DescribeIndexedSetting(const orrery::IndexedSettingInfo& info) {
  const orrery::SettingInfo& s = info.setting;
  IndexedSettingRecord record{{s.key ? s.key : "", s.type, s.minimum, s.maximum, s.help ? s.help : ""}, {}};
  // A family whose indices do not match its pattern's "%i" could never be
  // read back; it is left undescribed.
  if (info.index_count < 1 || info.index_count > orrery::kMaxSettingIndices || !info.indices) return;
  for (int32_t k = 0; k < info.index_count; ++k) {
    const orrery::SettingIndex& index = info.indices[k];
    if (!index.count_key || index.limit < 0) return;
    record.indices.push_back({index.count_key, index.limit});
  }
  const auto back = MatchPattern(record.setting.key, FormatPattern(record.setting.key, {0, 0, 0, 0}));
  if (!back || back->size() != size_t(info.index_count)) return;
  indexed_.Describe(std::move(record));
}

const SettingRecord* EffectHost::FindSettingOrFamily(const std::string& key) const {
  if (const SettingRecord* own = FindSetting(key)) return own;
  if (const SettingRecord* count = indexed_.FindCount(key)) return count;
  const auto indexed = indexed_.Find(key);
  return indexed ? &indexed->family->setting : nullptr;
}

std::vector<orrery::DynVar*> EffectHost::DeclaredDynVars() const {
  std::vector<orrery::DynVar*> declared;
  for (orrery::DynVar* v = dynvars_; v; v = v->next) {
    if (v->declared) declared.push_back(v);
  }
  return declared;
}

orrery::DynVar* EffectHost::FindDynVar(const std::string& name) const {
  for (orrery::DynVar* v : DeclaredDynVars()) {
    if (name == v->name) return v;
  }
  return nullptr;
}

const SliderRecord* EffectHost::FindSlider(const std::string& name) const {
  for (const SliderRecord& s : sliders_) {
    if (s.name == name) return &s;
  }
  return nullptr;
}

const SettingRecord* EffectHost::FindSetting(const std::string& key) const {
  for (const SettingRecord& s : settings_) {
    if (s.key == key) return &s;
  }
  return nullptr;
}

}  // namespace nimbo::host
