// libFuzzer target for presets: a settings document from outside handed to
// an effect, the way a host loads a saved preset. The first byte picks the
// effect; the rest is the document. The effect reads it (counts, indices and
// values of any size or sign), initialises, draws two small frames and
// writes its settings back; none of that may crash, hang, allocate without
// bound or touch memory it does not own.
#include <cstdint>
#include <map>
#include <memory>
#include <string_view>
#include <vector>

#include "orrery/package.h"
#include "orrery/services.h"
#include "framework/settings_document.h"

namespace {

// Everything the effect may ask of a host, kept minimal.
class PresetHost final : public orrery::HostContext {
 public:
  void* GetMainWindow() override { return nullptr; }
  orrery::ConfigStore* GetConfigStore() override { return &store; }
  void GetOutputSize(orrery::OutputDesc* out) override { *out = {kWidth, kHeight, 25.0f}; }
  void Notify(int32_t, int32_t) override {}
  void DeclareSlider(const orrery::SliderDesc&) override {}
  void PublishDynVars(orrery::DynVar*) override {}
  void* GetMemory(int32_t slot, size_t bytes) override {
    std::vector<uint8_t>& buffer = memory[slot];
    if (buffer.size() != bytes) buffer.assign(bytes, 0);
    return buffer.empty() ? nullptr : buffer.data();
  }
  void FreeMemory(int32_t slot) override { memory.erase(slot); }
  int64_t GetTimeMs() override { return time_ms; }
  void DescribeSetting(const orrery::SettingInfo&) override {}

  static constexpr int32_t kWidth = 24;
  static constexpr int32_t kHeight = 16;
  nimbo::SettingsDocument store;
  std::map<int32_t, std::vector<uint8_t>> memory;
  int64_t time_ms = 0;
};

// Message boxes (a missing 3D engine) are not the fuzzer's business.
class Silent final : public orrery::MessageService {
 public:
  void ShowMessage(void*, const char*, const char*, orrery::MessageIcon) override {}
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Silent silent;
  orrery::SetMessageService(&silent);
  if (size < 1) return 0;
  const int32_t index = data[0] % orrpkgGetSize();
  PresetHost host;
  if (!host.store.Load(std::string_view(reinterpret_cast<const char*>(data + 1), size - 1))) return 0;

  std::unique_ptr<orrery::Effect> effect(orrpkgCreateNewDFXObject(index));
  if (!effect) return 0;
  effect->SetHostContext(&host);
  effect->UpdateConfig();
  std::vector<std::vector<uint32_t>> pixels;
  std::vector<orrery::Screen> screens;
  for (int32_t i = 0; i < effect->GetInputCount(); ++i) {
    orrery::Size want = effect->GetInputScreenRes(i, PresetHost::kWidth, PresetHost::kHeight);
    // Inputs as negotiated, within reason: a preset may ask for any size.
    if (want.width <= 0 || want.height <= 0 || want.width > 1024 || want.height > 1024) {
      want = {PresetHost::kWidth, PresetHost::kHeight};
    }
    pixels.emplace_back(size_t(want.width) * size_t(want.height), 0xFF336699u);
    screens.push_back({want.width, want.height, pixels.back().data()});
  }
  std::vector<const orrery::Screen*> list;
  for (orrery::Screen& s : screens) list.push_back(&s);
  effect->Initialize();
  std::vector<uint32_t> out_pixels(size_t(PresetHost::kWidth) * PresetHost::kHeight);
  orrery::Screen out{PresetHost::kWidth, PresetHost::kHeight, out_pixels.data()};
  for (int frame = 0; frame < 2; ++frame) {
    host.time_ms = frame * 40;
    effect->Render(orrery::InputList{list.data(), int32_t(list.size())}, &out);
  }
  // Writing back what was read: a fresh store gets the effect's settings.
  host.store.Clear();
  effect->UpdateConfig();
  return 0;
}
