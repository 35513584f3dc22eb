// Materials: entry 0 is the fixed "default" material, then every MAT_ENTRY
// directly under MDATA in file order.
#include <vector>

#include "c3ds_builder.h"

namespace nimbo::scene3ds {
namespace {

Material DefaultMaterial() {
  Material m;
  m.name = "default";
  m.index = 0;
  m.color = 0xF0F0F0;
  m.ambient = m.diffuse = m.specular = Vec3{1, 1, 1};
  return m;
}

// A colour chunk: only its COLOR_24 sub-chunk counts; a COLOR_F one is
// passed over on purpose, so such a material keeps black.
bool ReadColor(const Chunk& chunk, Vec3* color) {
  ChunkList list(chunk, 0);
  Chunk c;
  while (list.Next(&c)) {
    if (c.id != id::kColor24) continue;
    if (c.end - c.data < 3) return false;
    color->x = c.data[0] / 255.0f;
    color->y = c.data[1] / 255.0f;
    color->z = c.data[2] / 255.0f;
  }
  return !list.bad();
}

// A percentage chunk (16-bit integer or float percent) as a fraction.
bool ReadPercent(const Chunk& chunk, float* value) {
  ChunkList list(chunk, 0);
  Chunk c;
  while (list.Next(&c)) {
    ByteReader r(c);
    if (c.id == id::kIntPercentage) {
      const int16_t percent = r.I16();
      if (!r.ok()) return false;
      *value = percent / 100.0f;
    } else if (c.id == id::kFloatPercentage) {
      const float percent = r.F32();
      if (!r.ok()) return false;
      *value = percent / 100.0f;
    }
  }
  return !list.bad();
}

// A map chunk: its file name comes from MAT_MAPNAME.
bool ReadMap(const Chunk& chunk, std::string* name) {
  ChunkList list(chunk, 0);
  Chunk c;
  while (list.Next(&c)) {
    if (c.id != id::kMatMapName) continue;
    ByteReader r(c);
    *name = r.String();
    if (!r.ok()) return false;
  }
  return !list.bad();
}

bool ReadMaterial(const Chunk& entry, Material* m) {
  ChunkList list(entry, 0);
  Chunk c;
  bool ok = true;
  while (ok && list.Next(&c)) {
    switch (c.id) {
      case id::kMatName: {
        ByteReader r(c);
        m->name = r.String();
        if (m->name.size() > kMaxMaterialName) m->name.resize(kMaxMaterialName);
        ok = r.ok();
        break;
      }
      case id::kMatAmbient: ok = ReadColor(c, &m->ambient); break;
      case id::kMatDiffuse: ok = ReadColor(c, &m->diffuse); break;
      case id::kMatSpecular: ok = ReadColor(c, &m->specular); break;
      case id::kMatShininess: ok = ReadPercent(c, &m->shininess); break;
      case id::kMatShin2Pct: ok = ReadPercent(c, &m->shin_strength); break;
      case id::kMatTransparency: ok = ReadPercent(c, &m->transparency); break;
      case id::kMatXpFall: ok = ReadPercent(c, &m->falloff); break;
      case id::kMatRefBlur: ok = ReadPercent(c, &m->refblur); break;
      case id::kMatTwoSide: m->flags |= kMatTwoSide; break;
      case id::kMatAdditive: m->flags |= kMatAdditive; break;
      case id::kMatWire: m->flags |= kMatWire; break;
      case id::kMatPhongSoft: m->flags |= kMatPhongSoft; break;
      case id::kMatTexMap: m->flags |= kMatTextureMap; ok = ReadMap(c, &m->texture_map); break;
      case id::kMatSpecMap: m->flags |= kMatSpecularMap; ok = ReadMap(c, &m->specular_map); break;
      case id::kMatOpacMap: m->flags |= kMatOpacityMap; ok = ReadMap(c, &m->opacity_map); break;
      case id::kMatReflMap: m->flags |= kMatReflectionMap; ok = ReadMap(c, &m->reflection_map); break;
      case id::kMatBumpMap: m->flags |= kMatBumpMap; ok = ReadMap(c, &m->bump_map); break;
      default: break;
    }
  }
  return ok && !list.bad();
}

}  // namespace

bool FindMData(const Chunk& root, Chunk* mdata, bool* found) {
  ChunkList list(root, 0);
  *found = FindChunk(list, id::kMData, mdata);
  return !list.bad();
}

bool C3DSScene::Builder::ReadMaterials() {
  std::vector<Material>& materials = scene.materials_;
  materials.assign(1, DefaultMaterial());
  running_index = 1;
  Chunk mdata;
  bool found = false;
  if (!FindMData(root, &mdata, &found)) return false;
  if (!found) return true;

  // The entries are gathered first (at most kMaxMaterialEntries: a larger
  // file is not supported), then read in file order.
  std::vector<Chunk> entries;
  ChunkList list(mdata, 0);
  Chunk c;
  while (list.Next(&c)) {
    if (c.id != id::kMatEntry) continue;
    if (entries.size() == kMaxMaterialEntries) return false;
    entries.push_back(c);
  }
  if (list.bad()) return false;

  materials.resize(entries.size() + 1);
  for (size_t k = 0; k < entries.size(); ++k) {
    Material& m = materials[k + 1];
    m.index = running_index++;
    if (!ReadMaterial(entries[k], &m)) return false;
  }
  return true;
}

}  // namespace nimbo::scene3ds
