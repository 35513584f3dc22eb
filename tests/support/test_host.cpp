#include "test_host.h"

#include <cstring>
#include <string>

#include "core/registry.h"

namespace nimbo::testing {

void* TestHost::GetMemory(int32_t slot, size_t bytes) {
  if (refuse_memory) return nullptr;
  std::vector<uint8_t>& buffer = memory[slot];
  if (buffer.size() != bytes) buffer.assign(bytes, fresh_memory);
  return buffer.empty() ? nullptr : buffer.data();
}

orrery::DynVar* TestHost::FindDynVar(const char* name) const {
  for (orrery::DynVar* v = dynvars; v; v = v->next) {
    if (v->declared && std::strcmp(v->name, name) == 0) return v;
  }
  return nullptr;
}

const orrery::SliderDesc* TestHost::FindSlider(const char* name) const {
  for (const orrery::SliderDesc& s : sliders) {
    if (std::strcmp(s.name, name) == 0) return &s;
  }
  return nullptr;
}

int32_t EffectIndex(const char* name) {
  const std::string wanted = name;
  const Registry& registry = PackageRegistry();
  for (int32_t i = 0; i < registry.Count(); ++i) {
    std::unique_ptr<orrery::Effect> effect(registry.Create(i));
    if (!effect) continue;
    const std::string full = effect->GetName();
    const size_t slash = full.rfind('\\');
    if (full.substr(slash == std::string::npos ? 0 : slash + 1) == wanted) return i;
  }
  return -1;
}

std::unique_ptr<orrery::Effect> MakeEffect(const char* name, TestHost* host) {
  const int32_t index = EffectIndex(name);
  if (index < 0) return nullptr;
  std::unique_ptr<orrery::Effect> effect(PackageRegistry().Create(index));
  if (effect && host) effect->SetHostContext(host);
  return effect;
}

int32_t RenderOnce(orrery::Effect& effect, std::vector<const orrery::Screen*> inputs, orrery::Screen* out) {
  orrery::InputList list{inputs.data(), int32_t(inputs.size())};
  return effect.Render(list, out);
}

}  // namespace nimbo::testing
