// nbMatManager: material records, their textures in the engine, input slots.
#include "render3d/material_manager.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>

#include "orrery/picture.h"
#include "orrery/services.h"

namespace nimbo {

namespace {

constexpr const char* kTraceLoad1 = "nbMatManager::LoadMaterial [1]";
constexpr const char* kTraceLoad2 = "nbMatManager::LoadMaterial [2]";
constexpr const char* kTraceFree = "nbMatManager::FreeMaterial";

bool IsFile(const std::string& path) {
  struct stat st;
  return !path.empty() && stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

// The file name of a path written on either platform ("C:\pics\a.png").
std::string BaseName(const std::string& path) {
  const size_t cut = path.find_last_of("/\\");
  return cut == std::string::npos ? path : path.substr(cut + 1);
}

std::string JoinPath(const std::string& folder, const std::string& name) {
  if (folder.empty()) return name;
  return folder.back() == '/' ? folder + name : folder + "/" + name;
}

void ResetRuntime(TextureLayer& t) {
  t.engine_texture = 0;
  t.pixel_buffer = 0;
  t.input = 0;
}

// Nearest-neighbour copy of `src` into a w x h block (a plain row copy when
// the sizes agree, which is what the effect asks the host for).
void CopyScaled(const orrery::Screen& src, uint32_t* dst, int32_t w, int32_t h) {
  if (src.width == w && src.height == h) {
    std::memcpy(dst, src.pixels, size_t(w) * size_t(h) * 4);
    return;
  }
  for (int32_t y = 0; y < h; ++y) {
    const uint32_t* row = src.pixels + size_t(int64_t(y) * src.height / h) * size_t(src.width);
    for (int32_t x = 0; x < w; ++x) dst[size_t(y) * size_t(w) + size_t(x)] = row[int64_t(x) * src.width / w];
  }
}

}  // namespace

// What was built from one layer: the engine texture, its size, and for an
// input layer the light map applied to every copied frame.
struct nbMatManager::LayerState {
  bool built = false;
  std::string texture;
  int32_t w = 0, h = 0;            // picture size
  int32_t side_w = 0, side_h = 0;  // texture size
  uint32_t buffer = 0;             // engine pixel buffer
  bool from_input = false;
  bool copied = false;             // an input frame reached the texture
  std::vector<uint32_t> light;     // input layers: the light map
};

struct nbMatManager::MaterialState {
  Material record = DefaultMaterial();
  LayerState layer[2];
};

nbMatManager::nbMatManager(int32_t input_count, const char* prefix) : prefix_(prefix ? prefix : "") {
  slots_.resize(size_t(std::max(input_count, 0)));
}

nbMatManager::~nbMatManager() = default;

void nbMatManager::SetEngine(nb3D* engine) {
  ForgetBuilt();
  engine_ = engine;
}

void nbMatManager::ForgetBuilt() {
  for (auto& m : materials_) {
    for (int32_t layer = 0; layer < 2; ++layer) {
      m->layer[layer] = LayerState{};
      ResetRuntime(m->record.tex[layer]);
    }
  }
  for (InputSlot& s : slots_) s.used = 0;  // bound as before, found again on the rebuild
}

void nbMatManager::SetOutputSize(int32_t width, int32_t height) {
  out_w_ = width;
  out_h_ = height;
}

void nbMatManager::AddSearchFolder(const std::string& folder) { search_folders_.push_back(folder); }

void nbMatManager::SetMaterialCount(int32_t count) {
  count = std::clamp(count, 0, kMaxMaterials);
  for (int32_t i = count; i < MaterialCount(); ++i) FreeMaterial(i);
  materials_.resize(size_t(count));
  for (auto& m : materials_)
    if (!m) m = std::make_unique<MaterialState>();
}

const Material& nbMatManager::GetMaterial(int32_t mat) const {
  static const Material defaults = DefaultMaterial();
  return mat >= 0 && mat < MaterialCount() ? materials_[size_t(mat)]->record : defaults;
}

Material& nbMatManager::RecordAt(int32_t mat) { return materials_[size_t(mat)]->record; }

void nbMatManager::Trace(const char* label) {
  if (engine_) engine_->ErrorReport(label);
}

int32_t nbMatManager::LoadMaterial(int32_t mat, const Material& m) {
  if (mat < 0 || mat >= kMaxMaterials) return 0;
  if (mat >= MaterialCount()) SetMaterialCount(mat + 1);
  FreeMaterial(mat);
  Material& rec = materials_[size_t(mat)]->record;
  rec = m;
  rec.name[kMaterialNameSize - 1] = '\0';
  for (TextureLayer& t : rec.tex) {
    t.bitmapname[kBitmapNameSize - 1] = '\0';
    ResetRuntime(t);
  }
  if (!engine_) return 1;
  BuildLayer(mat, 0);
  Trace(kTraceLoad1);
  if (rec.usesectex) {
    BuildLayer(mat, 1);
    Trace(kTraceLoad2);
  }
  return 1;
}

void nbMatManager::BuildAll() {
  for (int32_t i = 0; i < MaterialCount(); ++i) {
    const Material copy = materials_[size_t(i)]->record;
    LoadMaterial(i, copy);
  }
}

std::string nbMatManager::FindPicture(const char* path) const {
  const std::string stored = path ? path : "";
  if (stored.empty()) return "";
  if (IsFile(stored)) return stored;
  const std::string name = BaseName(stored);
  if (name.empty()) return "";
  std::vector<std::string> folders = search_folders_;
  orrery::CSettingsManager* settings = orrery::GetSettingsManager();
  if (settings) {
    folders.push_back(settings->GetRecentPath());
    folders.push_back(settings->GetPluginsPath());
    folders.push_back(JoinPath(settings->GetPluginsPath(), "textures"));
  }
  for (const std::string& folder : folders) {
    if (folder.empty()) continue;
    const std::string candidate = JoinPath(folder, name);
    if (IsFile(candidate)) return candidate;
  }
  return "";
}

void nbMatManager::BuildLayer(int32_t mat, int32_t layer) {
  MaterialState& state = *materials_[size_t(mat)];
  TextureLayer& t = state.record.tex[layer];
  LayerState& built = state.layer[layer];
  built = LayerState{};
  built.w = PictureSide(t.w, out_w_);
  built.h = PictureSide(t.h, out_h_);
  built.side_w = TextureSide(built.w);
  built.side_h = TextureSide(built.h);
  char name[32];
  std::snprintf(name, sizeof name, "mat%itex%i", mat, layer);
  built.texture = name;
  const bool alpha = layer == 1 && state.record.sectype == kSecTypeAlpha;
  nb3D::TextureDesc desc{};
  desc.width = built.side_w;
  desc.height = built.side_h;
  desc.format = alpha ? nb3D::kFormatRgba : nb3D::kFormatRgb;
  const MaterialKernels& k = MaterialKernelsBest();

  if (t.texmode == kTexModeInput) {
    // A black texture that the input screen fills each frame; the light map
    // is made once here and applied to every copied frame.
    const int64_t bytes = int64_t(built.w) * built.h * 4;
    built.buffer = engine_->AllocBuffer(int32_t(bytes));
    try {
      built.light.resize(size_t(built.w) * size_t(built.h));
      BuildLightMap(built.light.data(), built.w, built.h, t, k);
    } catch (const std::bad_alloc&) {
      built.light.clear();
    }
    built.from_input = true;
    if (AssignInput(mat, layer, t.freeze)) t.input = 1;
    if (!engine_->CreateTexture(name, desc)) {
      if (built.buffer) engine_->FreeBuffer(built.buffer);
      return;
    }
  } else {
    const int64_t bytes = int64_t(built.side_w) * built.side_h * 4;
    built.buffer = engine_->AllocBuffer(int32_t(bytes));
    uint32_t* pixels = built.buffer ? static_cast<uint32_t*>(engine_->LockBuffer(built.buffer)) : nullptr;
    if (!pixels) {
      if (built.buffer) engine_->FreeBuffer(built.buffer);
      return;
    }
    // The picture at its stored path or found by name; black (the buffer is
    // zeroed) when neither works.
    bool loaded = false;
    const std::string file = FindPicture(t.bitmapname);
    orrery::COrrBmp bmp;
    if (!file.empty() && bmp.LoadFromFile(file.c_str()) && bmp.Resize(built.w, built.h) && bmp.GetRAWptr()) {
      for (int32_t y = 0; y < built.h; ++y)
        std::memcpy(pixels + size_t(y) * size_t(built.side_w), bmp.GetRAWptr() + size_t(y) * size_t(built.w),
                    size_t(built.w) * 4);
      loaded = true;
    }
    std::vector<uint32_t> scratch;
    FinishPictureLayer(pixels, built.side_w, built.w, built.h, t, loaded, k, scratch);
    if (layer == 1 && state.record.invert_tex2) InvertPicture(pixels, built.side_w, built.side_w, built.side_h);
    desc.pixels = pixels;
    const int32_t ok = engine_->CreateTexture(name, desc);
    engine_->UnlockBuffer(built.buffer);
    if (!ok) {
      engine_->FreeBuffer(built.buffer);
      return;
    }
  }
  built.built = true;
  t.engine_texture = 1;
  t.pixel_buffer = built.buffer;
}

void nbMatManager::FreeLayer(int32_t mat, int32_t layer) {
  MaterialState& state = *materials_[size_t(mat)];
  LayerState& built = state.layer[layer];
  if (engine_) {
    if (built.built) engine_->DeleteTexture(built.texture.c_str());
    if (built.buffer) engine_->FreeBuffer(built.buffer);
  }
  built = LayerState{};
  ResetRuntime(state.record.tex[layer]);
}

void nbMatManager::FreeMaterial(int32_t mat) {
  if (mat < 0 || mat >= MaterialCount()) return;
  MaterialState& state = *materials_[size_t(mat)];
  const bool had = state.layer[0].built || state.layer[0].buffer || state.layer[1].built || state.layer[1].buffer;
  FreeLayer(mat, 0);
  FreeLayer(mat, 1);
  // The slots stay bound to this material, only free: rebuilding it finds
  // the same slot again, so the host's input wiring does not move.
  for (InputSlot& s : slots_)
    if (s.mat == mat) s.used = 0;
  if (had) Trace(kTraceFree);
}

void nbMatManager::FreeAll() {
  for (int32_t i = 0; i < MaterialCount(); ++i) FreeMaterial(i);
}

int32_t nbMatManager::GetMaterialFlags(int32_t mat) const { return nimbo::GetMaterialFlags(GetMaterial(mat)); }

const char* nbMatManager::LayerTexture(int32_t mat, int32_t layer) const {
  if (mat < 0 || mat >= MaterialCount() || layer < 0 || layer > 1) return nullptr;
  const LayerState& l = materials_[size_t(mat)]->layer[layer];
  return l.built ? l.texture.c_str() : nullptr;
}

float nbMatManager::LayerScaleU(int32_t mat, int32_t layer) const {
  if (!LayerTexture(mat, layer)) return 1.0f;
  const LayerState& l = materials_[size_t(mat)]->layer[layer];
  return float(l.w) / float(l.side_w);
}

float nbMatManager::LayerScaleV(int32_t mat, int32_t layer) const {
  if (!LayerTexture(mat, layer)) return 1.0f;
  const LayerState& l = materials_[size_t(mat)]->layer[layer];
  return float(l.h) / float(l.side_h);
}

int32_t nbMatManager::LayerWidth(int32_t mat, int32_t layer) const {
  return LayerTexture(mat, layer) ? materials_[size_t(mat)]->layer[layer].w : 0;
}

int32_t nbMatManager::LayerHeight(int32_t mat, int32_t layer) const {
  return LayerTexture(mat, layer) ? materials_[size_t(mat)]->layer[layer].h : 0;
}

int32_t nbMatManager::LayerSide(int32_t mat, int32_t layer, int32_t axis) const {
  if (!LayerTexture(mat, layer)) return 0;
  const LayerState& l = materials_[size_t(mat)]->layer[layer];
  return axis == 0 ? l.side_w : l.side_h;
}

void nbMatManager::UpdateInputTextures(const orrery::InputList& inputs, int32_t first_texture_input) {
  if (!engine_) return;
  for (int32_t i = 0; i < InputSlotCount(); ++i) {
    const InputSlot& slot = slots_[size_t(i)];
    if (!slot.used || slot.mat < 0 || slot.mat >= MaterialCount() || slot.tex < 0 || slot.tex > 1) continue;
    MaterialState& state = *materials_[size_t(slot.mat)];
    LayerState& l = state.layer[slot.tex];
    if (!l.built || !l.from_input || !l.buffer) continue;
    if (slot.value && l.copied) continue;  // frozen: the first frame stays
    const orrery::Screen* screen = inputs.Get(first_texture_input + i);
    if (!screen || !screen->pixels || screen->width <= 0 || screen->height <= 0) continue;
    uint32_t* pixels = static_cast<uint32_t*>(engine_->LockBuffer(l.buffer));
    if (!pixels) continue;
    CopyScaled(*screen, pixels, l.w, l.h);
    const MaterialKernels& k = MaterialKernelsBest();
    if (!l.light.empty()) ApplyLightMap(l.light.data(), pixels, l.w, l.w, l.h, k);
    if (slot.tex == 1 && state.record.invert_tex2) InvertPicture(pixels, l.w, l.w, l.h);
    engine_->UpdateTexture(l.texture.c_str(), 0, 0, l.w, l.h, pixels, l.w);
    engine_->UnlockBuffer(l.buffer);
    l.copied = true;
  }
}

bool nbMatManager::AssignInput(int32_t mat, int32_t tex, int32_t value) {
  int32_t take = -1;
  for (int32_t i = InputSlotCount() - 1; i >= 0; --i) {
    const InputSlot& s = slots_[size_t(i)];
    if (s.mat == mat && s.tex == tex) {
      take = i;
      break;
    }
    if (!s.used && (take < 0 || s.mat == -1)) take = i;
  }
  if (take < 0) return false;
  InputSlot& s = slots_[size_t(take)];
  s.mat = mat;
  s.tex = tex;
  s.value = value;
  s.reserved = 0;
  s.used = 1;
  return true;
}

const char* nbMatManager::GetInputName(int32_t slot) const {
  if (slot < 0 || slot >= InputSlotCount()) return nullptr;
  const InputSlot& s = slots_[size_t(slot)];
  // 64-bit: a slot loaded from a settings file may hold any number.
  const long long mat = s.mat >= 0 ? s.mat : 0;
  const long long tex = s.mat >= 0 ? s.tex : slot;
  char text[160];
  if (!prefix_.empty())
    std::snprintf(text, sizeof text, "%.100stex%lld", prefix_.c_str(), tex + 1);
  else if (MaterialCount() >= 2)
    std::snprintf(text, sizeof text, "mat%lldtex%lld", mat + 1, tex + 1);
  else
    std::snprintf(text, sizeof text, "tex%lld", tex + 1);
  slots_[size_t(slot)].name = text;
  return slots_[size_t(slot)].name.c_str();
}

void nbMatManager::ResetInputSlots() {
  for (InputSlot& s : slots_) s = InputSlot{};
}

}  // namespace nimbo
