#include "viewer_materials.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <system_error>

#include "formula/text.h"

namespace nimbo::viewer3ds {

namespace fs = std::filesystem;

namespace {

bool IsFile(const fs::path& p) {
  std::error_code ec;
  return !p.empty() && fs::is_regular_file(p, ec);
}

bool UsesInput(int32_t k, uint32_t input_mask) { return (input_mask >> (InputFor(k) - 1)) & 1u; }

uint32_t Channel(float v) { return uint32_t(std::lround(std::isfinite(v) ? std::clamp(v, 0.0f, 1.0f) * 255.0f : 0.0f)); }

// A layer shown as it is: a neutral light map (base 128, no diffuse or
// specular light) leaves every texel unchanged.
Material PlainMaterial(int32_t texmode, const std::string& picture, int32_t side, const std::string& name) {
  Material m = DefaultMaterial();
  TextureLayer& t = m.tex[0];
  t.texmode = texmode;
  SetFixedText(t.bitmapname, picture.c_str());
  t.base_clr = 0x808080;
  t.diff_clr = 0;
  t.spec_clr = 0;
  t.w = t.h = side;
  SetFixedText(m.name, name.c_str());
  return m;
}

}  // namespace

int32_t InputFor(int32_t k) { return k <= 0 ? 1 : (k - 1) % kTextureInputs + 1; }

std::string ResolvePicture(const std::string& scene_path, const std::string& map) {
  if (map.empty()) return "";
  if (IsFile(map)) return map;
  const size_t cut = map.find_last_of("/\\");
  const std::string name = cut == std::string::npos ? map : map.substr(cut + 1);
  if (name.empty()) return "";
  const fs::path folder = fs::path(scene_path).parent_path();
  const fs::path beside = folder.empty() ? fs::path(name) : folder / name;
  if (IsFile(beside)) return beside.string();
  std::error_code ec;
  for (fs::directory_iterator it(folder.empty() ? fs::path(".") : folder, ec), end; !ec && it != end; it.increment(ec)) {
    if (formula::SameIgnoringCase(it->path().filename().string(), name) && IsFile(it->path())) return it->path().string();
  }
  return "";
}

void PinInputSlots(nbMatManager& manager) {
  for (int32_t i = 0; i < kTextureInputs; ++i) manager.AssignInput(i, 0, 0);
}

void BuildMaterials(nbMatManager& manager, const scene3ds::C3DSScene& scene, uint32_t input_mask, int32_t side) {
  manager.FreeAll();
  manager.SetMaterialCount(0);
  bool input_used[kTextureInputs] = {};
  const auto& materials = scene.Materials();
  for (size_t k = 0; k < materials.size(); ++k)
    if (UsesInput(int32_t(k), input_mask)) input_used[InputFor(int32_t(k)) - 1] = true;
  for (int32_t i = 0; i < kTextureInputs; ++i) {
    if (input_used[i]) manager.LoadMaterial(i, PlainMaterial(kTexModeInput, "", side, "input" + std::to_string(i + 1)));
  }
  for (size_t k = 0; k < materials.size(); ++k) {
    const int32_t slot = kFirstPictureMaterial + int32_t(k);
    if (slot >= nbMatManager::kMaxMaterials) break;
    if (UsesInput(int32_t(k), input_mask) || materials[k].texture_map.empty()) continue;
    const std::string picture = ResolvePicture(scene.FileName(), materials[k].texture_map);
    if (picture.empty()) continue;  // no picture anywhere: its colour instead
    manager.LoadMaterial(slot, PlainMaterial(kTexModePicture, picture, side, materials[k].name));
  }
}

MaterialLook LookOf(const nbMatManager& manager, const scene3ds::C3DSScene& scene, int32_t k, uint32_t input_mask) {
  MaterialLook look;
  const auto& materials = scene.Materials();
  if (k < 0 || size_t(k) >= materials.size()) return look;
  const scene3ds::Material& m = materials[size_t(k)];
  const int32_t managed = UsesInput(k, input_mask) ? InputFor(k) - 1 : kFirstPictureMaterial + k;
  look.texture = managed < nbMatManager::kMaxMaterials ? manager.LayerTexture(managed, 0) : nullptr;
  if (look.texture) {
    look.scale_u = manager.LayerScaleU(managed, 0);
    look.scale_v = manager.LayerScaleV(managed, 0);
  } else if (k == 0) {
    look.color = 0xFF000000u | (m.color & 0xFFFFFFu);
  } else {
    look.color = 0xFF000000u | Channel(m.diffuse.x) << 16 | Channel(m.diffuse.y) << 8 | Channel(m.diffuse.z);
  }
  if (m.flags & scene3ds::kMatTwoSide) look.flags |= nb3D::kFlagTwoSided;
  if (m.flags & scene3ds::kMatWire) look.flags |= nb3D::kFlagWireframe;
  if (m.flags & scene3ds::kMatAdditive)
    look.flags |= nb3D::kFlagAdditive;
  else if (m.transparency > 0)
    look.flags |= nb3D::kFlagHalfTransparent;
  return look;
}

}  // namespace nimbo::viewer3ds
