// Orrery host SDK: the per-effect host context.
//
// The host creates one context per effect object and stores it in the
// effect right after creation (Effect::SetHostContext), before the first
// UpdateConfig. The effect reaches everything that belongs to the host
// through it: its configuration store, its output size, notifications, host
// sliders, the host's memory service and clock, and the channel through which
// it publishes its dynamic variables.
//
// Threading: the host calls an effect's SetupDialog from its user-interface
// thread and Render from its render thread; the effect calls its context from
// either. Implementations must allow that.
#pragma once

#include <cstddef>
#include <cstdint>

#include "orrery/config_store.h"
#include "orrery/dynvar.h"

namespace orrery {

// Filled by HostContext::GetOutputSize. Only the first two fields are part of
// the classic contract; the rest is what this SDK adds.
struct OutputDesc {
  int32_t width;
  int32_t height;
  float frames_per_second;  // 0 when the host does not know
};

// A float setting bound to a host-drawn slider or button. The host writes the
// slider's value into *value. p1..p3 and p4 are the host's own slider
// parameters, passed through unchanged. `initial` is computed by the effect
// from the variable's current value (see SliderInitialValue in the package).
struct SliderDesc {
  const char* name;
  float* value;
  float minimum;
  float maximum;
  float p1;
  float p2;
  float p3;
  float initial;
  int32_t p4;
};

// Notification codes an effect sends through Notify.
inline constexpr int32_t kNotifyReinitialize = 259;  // value 1 before, 0 after

// The type of one setting an effect stores, as DescribeSetting reports it.
enum class SettingType : int32_t { kInt = 0, kFloat = 1, kString = 2, kPath = 3 };

// Metadata of one setting: what `nimbo info`, a dialog or a bridge show.
struct SettingInfo {
  const char* key;
  SettingType type;
  double minimum;  // meaningful for kInt and kFloat
  double maximum;
  const char* help;
};

// Keys with indices formatted in ("alphamap_%i_x", "morph%iline%i_l1_p1_x")
// are families, not single settings: how many of them the effect reads is
// the value of another setting, their count key. Each index of a family
// names its count key (which may itself hold the earlier indices, as
// "morph%in_lines" holds the morph's) and the most the effect reads whatever
// the count says.
struct SettingIndex {
  const char* count_key;  // an int setting; its "%i" take the indices before this one
  int32_t limit;          // the effect reads indices 0 .. min(count, limit) - 1
};

// Metadata of one family of indexed keys. `setting.key` is the pattern, one
// "%i" per index (never followed by a digit, so a key reads back one way);
// type, range and help hold for every key of the family.
struct IndexedSettingInfo {
  SettingInfo setting;
  int32_t index_count;          // the number of "%i" in the pattern, 1 .. kMaxSettingIndices
  const SettingIndex* indices;  // index_count entries, the first "%i" first
};
inline constexpr int32_t kMaxSettingIndices = 4;

class HostContext {
 public:
  // The classic operations, in the order of the host's interface.
  virtual void* GetMainWindow() = 0;
  virtual ConfigStore* GetConfigStore() = 0;
  virtual void GetOutputSize(OutputDesc* out) = 0;
  virtual void Notify(int32_t code, int32_t value) = 0;
  virtual void DeclareSlider(const SliderDesc& slider) = 0;

  // The effect's dynamic variables: the head of its list, called again
  // whenever the effect (re)declares them. Null means "none".
  virtual void PublishDynVars(DynVar* head) = 0;

  // Memory service: a zeroed buffer of `bytes` kept by the host for this
  // effect under `slot`. The same slot asked again with the same size gives
  // the same buffer with its contents; another size gives a new zeroed one.
  // Null when the memory cannot be had. FreeMemory drops a slot.
  virtual void* GetMemory(int32_t slot, size_t bytes) = 0;
  virtual void FreeMemory(int32_t slot) = 0;

  // The host clock in milliseconds (frame time for an offline host).
  virtual int64_t GetTimeMs() = 0;

  // Metadata of one stored setting, reported by the effect during
  // UpdateConfig. Hosts that do not show settings ignore it.
  virtual void DescribeSetting(const SettingInfo& info) = 0;

  // A family of indexed keys the effect reads (during UpdateConfig, like
  // DescribeSetting): lets a host check such keys and say what counts them.
  // Hosts that do not check settings need not implement it.
  virtual void DescribeIndexedSetting(const IndexedSettingInfo& info) { (void)info; }

 protected:
  ~HostContext() = default;
};

}  // namespace orrery
