// EffectHost: the host context of one effect (orrery::HostContext).
//
// It holds the effect's configuration store (a SettingsDocument over the
// effect's settings document), answers the render size and frame rate,
// keeps the memory service's zeroed buffers per slot, runs the host clock
// (frame index * 1000 / fps, so renders are deterministic), and records what
// the effect declares: sliders, its dynamic-variable list, setting metadata
// indexed key families and notifications.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "runtime/aligned_vector.h"
#include "runtime/indexed_keys.h"
#include "orrery/host_context.h"
#include "framework/settings_document.h"

namespace nimbo::host {

struct SliderRecord {
  std::string name;
  float* value;
  float minimum;
  float maximum;
  float initial;
};

class EffectHost final : public orrery::HostContext {
 public:
  EffectHost(int32_t width, int32_t height, double fps) : width_(width), height_(height), fps_(fps) {}
  EffectHost(const EffectHost&) = delete;
  EffectHost& operator=(const EffectHost&) = delete;

  void* GetMainWindow() override { return nullptr; }
  orrery::ConfigStore* GetConfigStore() override { return store_in_use_ ? store_in_use_ : &store_; }
  void GetOutputSize(orrery::OutputDesc* out) override;
  void Notify(int32_t code, int32_t value) override;
  void DeclareSlider(const orrery::SliderDesc& slider) override;
  void PublishDynVars(orrery::DynVar* head) override { dynvars_ = head; }
  void* GetMemory(int32_t slot, size_t bytes) override;
  void FreeMemory(int32_t slot) override;
  int64_t GetTimeMs() override;
  void DescribeSetting(const orrery::SettingInfo& info) override;
  void DescribeIndexedSetting(const orrery::IndexedSettingInfo& info) override;

  SettingsDocument& Store() { return store_; }
  // The store the effect is given instead of Store() (a layer over it that
  // checks what the effect reads); null gives Store() again.
  void UseStore(orrery::ConfigStore* store) { store_in_use_ = store; }
  // The clock: frame time (frame * 1000 / fps, rounded down), or a time in
  // milliseconds a host that is itself driven by timestamps hands over.
  void SetFrame(int64_t frame);
  void SetClockMs(int64_t ms) { clock_ms_ = ms; }
  double FrameRate() const { return fps_; }

  // The declared dynamic variables, in list order.
  std::vector<orrery::DynVar*> DeclaredDynVars() const;
  orrery::DynVar* FindDynVar(const std::string& name) const;
  const std::vector<SliderRecord>& Sliders() const { return sliders_; }
  const SliderRecord* FindSlider(const std::string& name) const;
  const std::vector<SettingRecord>& DescribedSettings() const { return settings_; }
  const SettingRecord* FindSetting(const std::string& key) const;
  // The families of indexed keys the effect described, and the family of a key.
  const IndexedKeyTable& IndexedSettings() const { return indexed_; }
  // What a key's value is checked against: its own record, a plain count
  // key's (IndexedKeyTable::FindCount), or its family's.
  const SettingRecord* FindSettingOrFamily(const std::string& key) const;
  size_t MemoryInUse() const;

 private:
  int32_t width_;
  int32_t height_;
  double fps_;
  int64_t clock_ms_ = 0;
  SettingsDocument store_;
  orrery::ConfigStore* store_in_use_ = nullptr;
  orrery::DynVar* dynvars_ = nullptr;
  std::vector<SliderRecord> sliders_;
  std::vector<SettingRecord> settings_;
  IndexedKeyTable indexed_;
  // Effects may call the memory service from their dialog thread as well.
  mutable std::mutex memory_mutex_;
  std::map<int32_t, AlignedVector<uint8_t>> memory_;
};

}  // namespace nimbo::host
