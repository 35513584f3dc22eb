#include "core/effect_base.h"

#include <cstring>

#include "nb3d/nb3d.h"
#include "orrery/services.h"
#include "core/labels.h"

namespace nimbo {

float SliderInitialValue(float v, float minimum, float maximum) {
  float d = v - minimum;
  float h = (maximum - minimum) * 0.5f;
  return d > h ? d - h : d;
}

CEffectBase::CEffectBase(const orrery::EffectInfo& info, int32_t label_resource, const char* help_page,
                         int32_t object_size)
    : info_(info), label_resource_(label_resource), help_page_(help_page), lock_initialised_(1),
      mem_size_(object_size) {
  LoadLabelBitmap(label_resource_);  // first construction loads the class's label
  orrery::RegisterEffectInfo(this, &info_);
}

CEffectBase::~CEffectBase() {
  orrery::UnregisterEffectInfo(this);
  orrery::UnregisterEffectActions(this);
  if (engine_) {
    engine_->Release();
    engine_ = nullptr;
  }
}

int32_t CEffectBase::GetInputCount() { return info_.count; }
orrery::Size CEffectBase::GetInputDefaultRes(int32_t index) {
  return {info_.inputs[index].default_width, info_.inputs[index].default_height};
}
const char* CEffectBase::GetInputTypeName(int32_t index) { return info_.inputs[index].type_name; }
int32_t CEffectBase::GetCapability() { return 1; }
orrery::Size CEffectBase::GetOutputRes() { return info_.output_size; }
const char* CEffectBase::GetName() { return info_.name; }
const char* CEffectBase::GetAuthor() { return info_.author; }
const char* CEffectBase::GetCategory() { return info_.category; }
uint32_t CEffectBase::GetVersion() { return orrery::kEffectVersion; }
uint64_t CEffectBase::GetID() { return info_.id; }

int32_t CEffectBase::UpdateConfig() {
  std::lock_guard lock(lock_);
  orrery::ConfigStore* store = host_context_ ? host_context_->GetConfigStore() : nullptr;
  if (store && !ReadConfig(*store)) WriteConfig(*store);
  DeclareHostControls();
  return 1;
}

int32_t CEffectBase::ReadConfig(orrery::ConfigStore& store) {
  if (store.GetInt("!", 0) == 0) return 0;
  ReadSettings(store);
  return 1;
}

void CEffectBase::WriteConfig(orrery::ConfigStore& store) {
  store.BeginWriting();
  store.SetInt("!", 1);
  WriteSettings(store);
}

int32_t CEffectBase::Initialize() {
  std::lock_guard lock(lock_);
  FetchOutputSize();
  return 1;
}

int32_t CEffectBase::Render(const orrery::InputList& inputs, orrery::Screen* output) {
  std::lock_guard lock(lock_);
  if (!OutputSizeKnown()) return 0;
  return CopyInputToOutput(inputs, output) ? 1 : 0;
}

int32_t CEffectBase::SetupDialog() {
  if (host_context_) platform::SetMainWindow(host_context_->GetMainWindow());
  if (!RunDialog()) return 0;
  ApplyDialogOk();
  return 1;
}

void CEffectBase::ApplyDialogOk() {
  if (host_context_) host_context_->Notify(orrery::kNotifyReinitialize, 1);
  {
    std::lock_guard lock(lock_);
    Initialize();
  }
  if (host_context_) host_context_->Notify(orrery::kNotifyReinitialize, 0);
}

const char* CEffectBase::GetDisplayName() { return GetName(); }
orrery::Size CEffectBase::GetInputScreenRes(int32_t index, int32_t, int32_t) { return GetInputDefaultRes(index); }
const char* CEffectBase::GetInputScreenName(int32_t index) { return GetInputTypeName(index); }
const orrery::Bitmap* CEffectBase::GetLabelBitmap() { return LoadLabelBitmap(label_resource_); }
int32_t CEffectBase::ConfirmRenderSource(int32_t) { return 1; }
int32_t CEffectBase::GetInputState() { return -1; }
int32_t CEffectBase::GetMemoryUsage() { return mem_size_; }

int32_t CEffectBase::SendEffectMessage(int32_t a, int32_t b) {
  if (engine_) engine_->Message(a, b);
  return 0;
}

void CEffectBase::OnHostNotify(int32_t, int32_t) {}
int32_t CEffectBase::QueryHostValue(int32_t, int32_t) { return 0; }
int32_t CEffectBase::QueryHostFlag(int32_t) { return 0; }
void CEffectBase::OnEnterIdleState() {}

void CEffectBase::FetchOutputSize() {
  if (!host_context_) return;
  orrery::OutputDesc desc{0, 0, 0.0f};
  host_context_->GetOutputSize(&desc);
  out_w_ = desc.width > 0 ? desc.width : 0;
  out_h_ = desc.height > 0 ? desc.height : 0;
}

const orrery::Screen* CEffectBase::InputMatchingOutput(const orrery::InputList& inputs,
                                                      const orrery::Screen* output) {
  const orrery::Screen* in = inputs.Get(0);
  if (!output || !output->pixels || !in || !in->pixels) return nullptr;
  if (in->width != output->width || in->height != output->height || in->PixelCount() == 0) return nullptr;
  return in;
}

bool CEffectBase::CopyInputToOutput(const orrery::InputList& inputs, orrery::Screen* output) {
  const orrery::Screen* in = InputMatchingOutput(inputs, output);
  if (!in) return false;
  std::memcpy(output->pixels, in->pixels, output->PixelCount() * sizeof(uint32_t));
  return true;
}

void CEffectBase::DeclareSlider(const char* name, float* value, float minimum, float maximum,
                                const SliderParams& params) {
  if (!host_context_) return;
  orrery::SliderDesc slider{name,      value,     minimum,   maximum, params.p1, params.p2,
                            params.p3, SliderInitialValue(*value, minimum, maximum), params.p4};
  host_context_->DeclareSlider(slider);
}

}  // namespace nimbo
