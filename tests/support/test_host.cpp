#include "support/test_host.h"

#include <cstring>

#include "package/registry.h"

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

OwnedScreen::OwnedScreen(int32_t width, int32_t height, uint32_t fill)
    : pixels(size_t(width) * size_t(height), fill) {
  screen = {width, height, pixels.data()};
}

void FillRandom(OwnedScreen& s, uint32_t seed) {
  uint32_t x = seed * 2654435761u + 12345u;
  for (uint32_t& p : s.pixels) {
    x ^= x << 13;
    x ^= x >> 17;
    x ^= x << 5;
    p = x;
  }
}

std::unique_ptr<orrery::Effect> MakeEffect(int32_t index, TestHost* host) {
  std::unique_ptr<orrery::Effect> effect(PackageRegistry().Create(index));
  if (effect && host) effect->SetHostContext(host);
  return effect;
}

int32_t RenderOnce(orrery::Effect& effect, std::vector<const orrery::Screen*> inputs, orrery::Screen* out) {
  orrery::InputList list{inputs.data(), int32_t(inputs.size())};
  return effect.Render(list, out);
}

}  // namespace nimbo::testing
