// libFuzzer target for WAX volume screens: random screens into every WAX
// effect. The first bytes pick the effect, the screen's size (the volume's
// 512 x 512 or another), a mode and the values of its dynamic variables;
// the rest, repeated, fill the input screens. The effect renders two frames
// (WAXRotate and WAXCombine into a WAX-sized output, WAXViewer into a small
// one); WAXViewer's geometry (surface and points, the part that reads the
// volume) is built directly too, so it is fuzzed where no 3D engine can be
// loaded. Nothing may crash, hang or touch memory it does not own.
//
// Speed: each effect is made and initialised once and reused with new
// settings (making one allocates its volumes, and WAXViewer looks for the 3D
// engine each time it initialises), and the screens, volume and mesh
// buffers live across inputs, so an input costs the effects' own work
// rather than megabytes of fresh memory.
#include <algorithm>
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
  void GetOutputSize(orrery::OutputDesc* out) override { *out = {out_w, out_h, 25.0f}; }
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
  int32_t out_w = kSide, out_h = kSide;
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

// One WAX effect, made once and kept for every input.
struct Instance {
  WaxHost host;
  std::unique_ptr<orrery::Effect> effect;
  std::vector<uint32_t> out_pixels;
};

Instance* MakeInstance(const char* name, int32_t out_w, int32_t out_h) {
  const int32_t index = IndexOf(name);
  if (index < 0) return nullptr;
  auto* instance = new Instance;  // lives as long as the process
  instance->host.out_w = out_w, instance->host.out_h = out_h;
  instance->effect.reset(orrpkgCreateNewDFXObject(index));
  if (!instance->effect) return nullptr;
  instance->effect->SetHostContext(&instance->host);
  instance->effect->Initialize();
  instance->out_pixels.assign(size_t(out_w) * size_t(out_h), 0u);
  return instance;
}

// Fills `bytes` with `pattern` repeated: one copy, then doubling copies.
void FillRepeated(uint8_t* bytes, size_t size, const uint8_t* pattern, size_t pattern_size) {
  if (size == 0) return;
  size_t done = std::min(size, pattern_size);
  std::memcpy(bytes, pattern, done);
  while (done < size) {
    const size_t n = std::min(done, size - done);
    std::memcpy(bytes + done, bytes, n);
    done += n;
  }
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
  static Instance* const kInstances[3] = {MakeInstance("WAXViewer", 64, 48),
                                          MakeInstance("WAXRotate", WaxHost::kSide, WaxHost::kSide),
                                          MakeInstance("WAXCombine", WaxHost::kSide, WaxHost::kSide)};
  constexpr size_t kHeader = 3 + 4 * 4;
  if (size < kHeader + 1) return 0;
  const int32_t pick = data[0] % 3;
  const bool wax_sized = (data[1] & 3) != 0;
  const int32_t w = wax_sized ? WaxHost::kSide : 1 + data[1] % 700, h = wax_sized ? WaxHost::kSide : 1 + data[2] % 300;

  static std::vector<uint32_t> pixels;
  pixels.resize(size_t(w) * size_t(h));
  FillRepeated(reinterpret_cast<uint8_t*>(pixels.data()), pixels.size() * 4, data + kHeader, size - kHeader);
  const orrery::Screen screen{w, h, pixels.data()};

  if (pick == 0) {
    // The viewer's geometry straight from the volume.
    static nimbo::wax::Volume volume;
    static std::vector<float> field;
    static nimbo::IsoMesh surface;
    static std::vector<nb3D::Vertex> vertices;
    static std::vector<uint32_t> triangles;
    volume.ReadFrom(&screen);
    const int32_t threshold = 1 + data[2] % 255;
    nimbo::wax::SurfaceMesh(volume, threshold, field, surface, vertices, triangles);
    for (uint32_t t : triangles)
      if (t >= vertices.size()) __builtin_trap();
    const float right[3] = {1, 0, 0}, up[3] = {0, 1, 0}, forward[3] = {0, 0, -1};
    nimbo::wax::PointMesh(volume, threshold, FloatAt(data + 3), right, up, forward, 5000, vertices, triangles);
    for (uint32_t t : triangles)
      if (t >= vertices.size()) __builtin_trap();
  }

  Instance* instance = kInstances[pick];
  if (!instance) return 0;
  WaxHost& host = instance->host;
  orrery::Effect& effect = *instance->effect;
  host.store.BeginWriting();
  host.store.SetInt("!", 1);
  host.store.SetInt("mode", data[2] % 5 - 1);  // WAXCombine: every mode and two out of range
  host.store.SetInt("display", data[2] & 1);   // WAXViewer: surface or points
  effect.UpdateConfig();
  int k = 0;
  for (orrery::DynVar* v = host.dynvars; v && k < 4; v = v->next, ++k) v->value = FloatAt(data + 3 + 4 * k);
  orrery::Screen out{host.out_w, host.out_h, instance->out_pixels.data()};
  const orrery::Screen* inputs[4] = {&screen, &screen, &screen, &screen};
  for (int frame = 0; frame < 2; ++frame) {
    host.time_ms = 40 * frame;
    effect.Render({inputs, effect.GetInputCount()}, &out);
  }
  return 0;
}
