// CEffectBase: what every effect of the package shares.
//
// Index:
//   1. common effect state (lock, second lock, output size, memory size,
//      engine object) and the input check every filter's Render starts with
//   2. the base behaviour of all 27 interface operations
//   3. the configuration exchange (read step / write step around "!")
//   4. host controls: sliders, settings metadata
//   5. the setup dialog protocol (OK: notify 259/1, Initialize under the
//      lock, notify 259/0)
//
// An effect derives from CEffectBase, passes its EffectInfo, label resource
// and help page to the constructor, and overrides what it needs: normally
// ReadSettings/WriteSettings (through its settings table), Initialize and
// Render.
#pragma once

#include <cstdint>
#include <mutex>

#include "orrery/effect.h"
#include "core/platform.h"

class nb3D;  // the 3D engine's object (engine/nb3d.h)

namespace nimbo {

// The author line every effect of the package reports.
inline constexpr const char* kAuthor = "nimbo one - live video effects";

// The value a host slider starts at, from the variable's current value v:
// relative to the minimum, and shifted down by half the range only when it
// lies in the upper half. The asymmetry is the host's convention.
float SliderInitialValue(float v, float minimum, float maximum);

// The host's own parameters of a slider, passed through unchanged; each
// effect names the set it uses (see its DeclareHostControls).
struct SliderParams {
  float p1;
  float p2;
  float p3;
  int32_t p4;
};

class CEffectBase : public orrery::Effect {
 public:
  CEffectBase(const orrery::EffectInfo& info, int32_t label_resource, const char* help_page, int32_t object_size);
  ~CEffectBase() override;

  // ---- the interface, with the base behaviour ----
  int32_t GetInputCount() override;
  orrery::Size GetInputDefaultRes(int32_t index) override;
  const char* GetInputTypeName(int32_t index) override;
  int32_t GetCapability() override;
  orrery::Size GetOutputRes() override;
  const char* GetName() override;
  const char* GetAuthor() override;
  const char* GetCategory() override;
  uint32_t GetVersion() override;
  uint64_t GetID() override;
  int32_t UpdateConfig() override;
  int32_t Initialize() override;
  int32_t Render(const orrery::InputList& inputs, orrery::Screen* output) override;
  int32_t SetupDialog() override;
  const char* GetDisplayName() override;
  orrery::Size GetInputScreenRes(int32_t index, int32_t width, int32_t height) override;
  const char* GetInputScreenName(int32_t index) override;
  const orrery::Bitmap* GetLabelBitmap() override;
  int32_t ConfirmRenderSource(int32_t source) override;
  int32_t GetInputState() override;
  int32_t GetMemoryUsage() override;
  int32_t SendEffectMessage(int32_t a, int32_t b) override;
  void OnHostNotify(int32_t a, int32_t b) override;
  int32_t QueryHostValue(int32_t a, int32_t b) override;
  int32_t QueryHostFlag(int32_t a) override;
  void OnEnterIdleState() override;

  // ---- package-internal ----
  const orrery::EffectInfo& Info() const { return info_; }
  const char* HelpPage() const { return help_page_; }
  platform::Lock& EffectLock() { return lock_; }
  int32_t OutputWidth() const { return out_w_; }
  int32_t OutputHeight() const { return out_h_; }
  // Initialize has fetched a whole output size. Until then Render draws
  // nothing and returns 0.
  bool OutputSizeKnown() const { return out_w_ > 0 && out_h_ > 0; }
  nb3D* Engine() const { return engine_; }

 protected:
  // The read step: 0 when the store holds nothing of this effect yet ("!"
  // reads 0), otherwise every setting is read with its current value as the
  // default and the result is 1.
  int32_t ReadConfig(orrery::ConfigStore& store);
  // The write step: a fresh block, "!" = 1, then every setting.
  void WriteConfig(orrery::ConfigStore& store);

  // What the effect stores. Called under the lock.
  virtual void ReadSettings(orrery::ConfigStore& store) { (void)store; }
  virtual void WriteSettings(orrery::ConfigStore& store) { (void)store; }
  // After the exchange: declare dynamic variables and sliders, describe the
  // settings to the host. Called under the lock.
  virtual void DeclareHostControls() {}

  // The effect's own dialog. Returns 1 when the user pressed OK and the new
  // settings are in place, 0 on Cancel (settings unchanged).
  virtual int32_t RunDialog() { return 0; }
  // Tells the host and re-initialises after a dialog closed with OK.
  void ApplyDialogOk();

  // Output size from the host context into the output size fields.
  void FetchOutputSize();
  // Input 0 when it and the output both have pixels, the same size and at
  // least one pixel: the frame a filter may work on. Null otherwise, and
  // Render then draws nothing and returns 0.
  static const orrery::Screen* InputMatchingOutput(const orrery::InputList& inputs, const orrery::Screen* output);
  // Copies input 0 into the output when InputMatchingOutput allows it.
  static bool CopyInputToOutput(const orrery::InputList& inputs, orrery::Screen* output);

  void DeclareSlider(const char* name, float* value, float minimum, float maximum, const SliderParams& params);

  const orrery::EffectInfo& info_;
  const int32_t label_resource_;
  const char* const help_page_;

  // Common effect state, in this order. The second lock belongs to that
  // state (created and destroyed with every effect) although no operation of
  // this package takes it.
  platform::Lock lock_;
  int32_t lock_initialised_ = 0;
  int32_t second_lock_count_ = 0;
  platform::Lock second_lock_;
  int32_t out_w_ = 0;
  int32_t out_h_ = 0;
  int32_t mem_size_ = 0;
  nb3D* engine_ = nullptr;
};

}  // namespace nimbo
