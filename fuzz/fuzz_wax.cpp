// libFuzzer target for WAX volume screens: random screens into every WAX
// effect. The first bytes pick the effect, the screen's size (the volume's
// 512 x 512 or another), a mode and the values of its dynamic variables;
// the rest, repeated, fill the input screens. The effect renders two frames
// into a WAX-sized output; WAXViewer's geometry (surface and points, the
// part that reads the volume) is built directly too, so it is fuzzed where
// no 3D engine can be loaded. Nothing may crash, hang or touch memory it
// does not own.
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "framework/settings_document.h"
#include "orrery/package.h"
#include "orrery/services.h"
#include "render3d/wax_volume.h"
#include "wax_mesh.h"

namespace {

class WaxHost final : public orrery::HostContext {
 public:
  void* GetMainWindow() override { return nullptr; }
  orrery::ConfigStore* GetConfigStore() override { return &store; }
  void GetOutputSize(orrery::OutputDesc* out) override { *out = {kSide, kSide, 25.0f}; }
  void Notify(int32_t, int32_t) override {}
  void DeclareSlider(const orrery::SliderDesc&) override {}
  void PublishDynVars(orrery::DynVar* head) override { dynvars = head; }
  void* GetMemory(int32_t slot, size_t bytes) override {
    std::vector<uint8_t>& buffer = memory[slot];
    if (buffer.size() != bytes) buffer.assign(bytes, 0);
    return buffer.empty() ? nullptr : buffer.data();
  }
  void FreeMemory(int32_t slot) override { memory.erase(slot); }
  int64_t GetTimeMs() override { return time_ms; }
  void DescribeSetting(const orrery::SettingInfo&) override {}

  static constexpr int32_t kSide = nimbo::wax::kScreenSide;
  nimbo::SettingsDocument store;
  std::map<int32_t, std::vector<uint8_t>> memory;
  orrery::DynVar* dynvars = nullptr;
  int64_t time_ms = 0;
};

class Silent final : public orrery::MessageService {
 public:
  void ShowMessage(void*, const char*, const char*, orrery::MessageIcon) override {}
};

int32_t IndexOf(const char* name) {
  for (int32_t i = 0; i < orrpkgGetSize(); ++i) {
    std::unique_ptr<orrery::Effect> e(orrpkgCreateNewDFXObject(i));
    if (e && std::strstr(e->GetName(), name)) return i;
  }
  return -1;
}

// A float from four bytes, any bit pattern (NaN and infinities included).
float FloatAt(const uint8_t* p) {
  float f;
  std::memcpy(&f, p, 4);
  return f;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Silent silent;
  orrery::SetMessageService(&silent);
  static const int32_t kEffects[3] = {IndexOf("WAXViewer"), IndexOf("WAXRotate"), IndexOf("WAXCombine")};
  constexpr size_t kHeader = 3 + 4 * 4;
  if (size < kHeader + 1) return 0;
  const int32_t pick = data[0] % 3;
  const bool wax_sized = (data[1] & 3) != 0;
  const int32_t w = wax_sized ? WaxHost::kSide : 1 + data[1] % 700, h = wax_sized ? WaxHost::kSide : 1 + data[2] % 300;
  const uint8_t* body = data + kHeader;
  const size_t body_size = size - kHeader;

  std::vector<uint32_t> pixels(size_t(w) * size_t(h));
  for (size_t i = 0; i < pixels.size() * 4; ++i) reinterpret_cast<uint8_t*>(pixels.data())[i] = body[i % body_size];
  const orrery::Screen screen{w, h, pixels.data()};

  if (pick == 0) {
    // The viewer's geometry straight from the volume.
    nimbo::wax::Volume volume;
    volume.ReadFrom(&screen);
    std::vector<float> field;
    nimbo::IsoMesh surface;
    std::vector<nb3D::Vertex> vertices;
    std::vector<uint32_t> triangles;
    const int32_t threshold = 1 + data[2] % 255;
    nimbo::wax::SurfaceMesh(volume, threshold, field, surface, vertices, triangles);
    for (uint32_t t : triangles)
      if (t >= vertices.size()) __builtin_trap();
    const float right[3] = {1, 0, 0}, up[3] = {0, 1, 0}, forward[3] = {0, 0, -1};
    nimbo::wax::PointMesh(volume, threshold, FloatAt(data + 3), right, up, forward, 5000, vertices, triangles);
  }

  if (kEffects[pick] < 0) return 0;
  WaxHost host;
  std::unique_ptr<orrery::Effect> effect(orrpkgCreateNewDFXObject(kEffects[pick]));
  if (!effect) return 0;
  effect->SetHostContext(&host);
  host.store.BeginWriting();
  host.store.SetInt("!", 1);
  host.store.SetInt("mode", data[2] % 5 - 1);  // WAXCombine: every mode and two out of range
  host.store.SetInt("display", data[2] & 1);   // WAXViewer: surface or points
  effect->UpdateConfig();
  int k = 0;
  for (orrery::DynVar* v = host.dynvars; v && k < 4; v = v->next, ++k) v->value = FloatAt(data + 3 + 4 * k);
  effect->Initialize();
  std::vector<uint32_t> out_pixels(size_t(WaxHost::kSide) * WaxHost::kSide);
  orrery::Screen out{WaxHost::kSide, WaxHost::kSide, out_pixels.data()};
  const orrery::Screen* inputs[4] = {&screen, &screen, &screen, &screen};
  for (int frame = 0; frame < 2; ++frame) {
    host.time_ms = 40 * frame;
    effect->Render({inputs, effect->GetInputCount()}, &out);
  }
  return 0;
}
