// libFuzzer target for material settings: a settings document from outside
// read into an effect's materials, then built into textures. The first byte
// picks the material and input-slot counts and the output size; the rest is
// the document. LoadAll (through the SDK's store interface) and LoadMaterial
// (through the framework's ConfigData) read it, the manager builds every
// material in a small fake engine and copies input screens, and the records
// are written back through both store kinds, which must write the same
// document. Nothing may crash, hang, read past a buffer or leak.
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "framework/settings_document.h"
#include "fuzz_check.h"
#include "nb3d/nb3d.h"
#include "render3d/material_manager.h"

namespace {

// An engine that keeps textures and buffers in memory and checks what the
// manager asks of it.
class FakeEngine final : public nb3D {
 public:
  int32_t Begin() override { return 1; }
  void End() override {}
  int32_t SetOutputSize(int32_t, int32_t) override { return 1; }
  int32_t Present(orrery::Screen*) override { return 1; }
  const char* GetDeviceName() override { return "fake"; }
  void ErrorReport(const char*) override {}
  int32_t GetErrorCount() override { return 0; }
  const char* GetError(int32_t) override { return nullptr; }
  void ClearErrors() override {}
  void Message(int32_t, int32_t) override {}
  int32_t CreateTexture(const char* name, const TextureDesc& d) override {
    FUZZ_CHECK(d.width >= 2 && d.width <= kMaxTextureSide && (d.width & (d.width - 1)) == 0);
    FUZZ_CHECK(d.height >= 2 && d.height <= kMaxTextureSide && (d.height & (d.height - 1)) == 0);
    std::vector<uint32_t>& t = textures[name];
    t.assign(size_t(d.width) * size_t(d.height), 0);
    if (d.pixels) std::memcpy(t.data(), d.pixels, t.size() * 4);  // reads every pixel given
    sizes[name] = {d.width, d.height};
    return 1;
  }
  int32_t UpdateTexture(const char* name, int32_t x, int32_t y, int32_t w, int32_t h, const uint32_t* pixels,
                        int32_t stride) override {
    auto it = sizes.find(name);
    FUZZ_CHECK(it != sizes.end());
    FUZZ_CHECK(x >= 0 && y >= 0 && x + w <= it->second.first && y + h <= it->second.second);
    uint32_t sum = 0;
    for (int32_t r = 0; r < h; ++r)
      for (int32_t c = 0; c < w; ++c) sum += pixels[size_t(r) * size_t(stride) + size_t(c)];
    checksum += sum;
    return 1;
  }
  int32_t SetTextureFilter(const char*, int32_t) override { return 1; }
  int32_t HasTexture(const char* name) override { return textures.count(name) ? 1 : 0; }
  int32_t GetTextureSize(const char*, int32_t*, int32_t*) override { return 0; }
  void DeleteTexture(const char* name) override {
    textures.erase(name);
    sizes.erase(name);
  }
  uint32_t AllocBuffer(int32_t bytes) override {
    FUZZ_CHECK(bytes > 0 && bytes <= kMaxTextureSide * kMaxTextureSide * 4);
    buffers[++next].assign(size_t(bytes), 0);
    return next;
  }
  void* LockBuffer(uint32_t b) override {
    auto it = buffers.find(b);
    return it == buffers.end() ? nullptr : it->second.data();
  }
  void UnlockBuffer(uint32_t) override {}
  void FreeBuffer(uint32_t b) override { buffers.erase(b); }
  void SetCamera(const Camera&) override {}
  void SetProjection(const Projection&) override {}
  void SetBackground(const Background&) override {}
  int32_t DrawQuad(const Quad&) override { return 1; }
  int32_t DrawMesh(const Mesh&) override { return 1; }
  void Release() override {}

  std::map<std::string, std::vector<uint32_t>> textures;
  std::map<std::string, std::pair<int32_t, int32_t>> sizes;
  std::map<uint32_t, std::vector<uint8_t>> buffers;
  uint32_t next = 0;
  uint32_t checksum = 0;
};

// Texture sizes from the document, kept small so each run stays quick: the
// reading is what is fuzzed, and sizes up to 1024 are the same code.
void KeepSmall(nimbo::Material& m) {
  for (nimbo::TextureLayer& t : m.tex) {
    if (t.w > 48) t.w = 48;
    if (t.h > 48) t.h = 48;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const int32_t materials = 1 + (data[0] & 3), slots = (data[0] >> 2) & 3;
  const int32_t out_w = 1 + (data[0] >> 4), out_h = 1 + ((data[0] >> 4) ^ 5);
  nimbo::SettingsDocument doc;
  if (!doc.Load(std::string_view(reinterpret_cast<const char*>(data + 1), size - 1))) return 0;

  FakeEngine engine;
  {
    nimbo::nbMatManager mats(slots, (data[0] & 0x80) ? "fx" : "");
    mats.SetMaterialCount(materials);
    mats.LoadAll(doc, "");
    // The same records once more through the framework's own store.
    nimbo::Material first = mats.GetMaterial(0);
    nimbo::nbMatManager::LoadMaterial(doc.Config(), first, "mat0");
    mats.SetEngine(&engine);
    mats.SetOutputSize(out_w, out_h);
    for (int32_t i = 0; i < materials; ++i) {
      nimbo::Material m = i == 0 ? first : mats.GetMaterial(i);
      KeepSmall(m);
      FUZZ_CHECK(mats.LoadMaterial(i, m) == 1);
      for (int32_t layer = 0; layer < 2; ++layer)
        if (const char* name = mats.LayerTexture(i, layer)) {
          FUZZ_CHECK(engine.HasTexture(name));
          const float su = mats.LayerScaleU(i, layer), sv = mats.LayerScaleV(i, layer);
          FUZZ_CHECK(su > 0.0f && su <= 1.0f && sv > 0.0f && sv <= 1.0f);
        }
      (void)mats.GetMaterialFlags(i);
    }
    for (int32_t s = 0; s < slots + 1; ++s) (void)mats.GetInputName(s);
    std::vector<uint32_t> pixels(size_t(out_w) * size_t(out_h), 0xFF336699u);
    const orrery::Screen screen{out_w, out_h, pixels.data()};
    const orrery::Screen* list[4] = {&screen, &screen, &screen, nullptr};
    for (int frame = 0; frame < 2; ++frame) mats.UpdateInputTextures({list, 4}, 1);

    // Written back through both store kinds: the same document.
    nimbo::SettingsDocument a;
    a.BeginWriting();
    mats.SaveAll(static_cast<orrery::ConfigStore&>(a), "");
    nimbo::SettingsDocument b;
    b.BeginWriting();
    mats.SaveAll(b.Config(), "");
    FUZZ_CHECK(a.Text() == b.Text());
    mats.FreeAll();
  }
  FUZZ_CHECK(engine.textures.empty());
  FUZZ_CHECK(engine.buffers.empty());
  return 0;
}
