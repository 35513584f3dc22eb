// Saving and loading materials and input slots in a configuration store.
//
// One implementation over the store type serves both store kinds (the SDK's
// ConfigStore interface and the framework's ConfigData), so the two can
// never write different keys. The key order is fixed: hosts and older
// settings files rely on it.
#include <cstdio>
#include <string>

#include "render3d/material_manager.h"

namespace nimbo {

namespace {

constexpr int32_t kVersion = 1;

// Builds "<prefix><suffix>" keys, with the layer number formatted in where
// the suffix has "%i".
class Keys {
 public:
  explicit Keys(const char* prefix) : prefix_(prefix ? prefix : "") {}
  const char* operator()(const char* suffix) {
    key_ = prefix_ + suffix;
    return key_.c_str();
  }
  const char* operator()(const char* format, int32_t i) {
    char suffix[64];
    std::snprintf(suffix, sizeof suffix, format, i);
    return (*this)(suffix);
  }

 private:
  std::string prefix_;
  std::string key_;
};

template <class Store>
void SaveMaterialTo(Store& s, const Material& m, const char* prefix) {
  Keys k(prefix);
  s.SetInt(k("matusesectex"), m.usesectex);
  s.SetInt(k("matsectype"), m.sectype);
  s.SetInt(k("mattrans"), m.trans);
  s.SetInt(k("matwire"), m.wire);
  s.SetInt(k("matinvert_tex2"), m.invert_tex2);
  s.SetString(k("matname"), m.name);
  s.SetInt(k("mattwosided"), m.twosided);
  for (int32_t i = 0; i < 2; ++i) {
    const TextureLayer& t = m.tex[i];
    s.SetInt(k("mattex%itexmode", i), t.texmode);
    s.SetString(k("mattex%ibitmapname", i), t.bitmapname);
    s.SetFloat(k("mattex%iblur", i), t.blur);
    s.SetInt(k("mattex%ibase_clr", i), t.base_clr);
    s.SetInt(k("mattex%ispec_clr", i), t.spec_clr);
    s.SetInt(k("mattex%ispec", i), t.spec_power);
    s.SetInt(k("mattex%idiff_clr", i), t.diff_clr);
    s.SetInt(k("mattex%idiff", i), t.diff);
    s.SetFloat(k("mattex%il_x", i), t.l_x);
    s.SetFloat(k("mattex%il_y", i), t.l_y);
    s.SetInt(k("mattex%ifreeze", i), t.freeze);
    s.SetInt(k("mattex%iw", i), t.w);
    s.SetInt(k("mattex%ih", i), t.h);
    if (t.bitmapname[0] != '\0') s.SetPath(k("mattex%ibitmapnamepath", i), t.bitmapname);
  }
  s.SetInt(k("nbMatManagerVERSION"), kVersion);
}

template <class Store>
void LoadMaterialFrom(Store& s, Material& m, const char* prefix) {
  Keys k(prefix);
  // Records of every version load alike; the version is read for the
  // record's sake only.
  (void)s.GetInt(k("nbMatManagerVERSION"), -1);
  m.usesectex = s.GetInt(k("matusesectex"), m.usesectex);
  m.sectype = s.GetInt(k("matsectype"), m.sectype);
  m.trans = s.GetInt(k("mattrans"), m.trans);
  m.wire = s.GetInt(k("matwire"), m.wire);
  m.invert_tex2 = s.GetInt(k("matinvert_tex2"), m.invert_tex2);
  m.name[kMaterialNameSize - 1] = '\0';
  SetFixedText(m.name, s.GetString(k("matname"), m.name));
  m.twosided = s.GetInt(k("mattwosided"), m.twosided);
  for (int32_t i = 0; i < 2; ++i) {
    TextureLayer& t = m.tex[i];
    t.texmode = s.GetInt(k("mattex%itexmode", i), t.texmode);
    // "bitmapname" is written for older readers; the path key is the one read.
    t.blur = s.GetFloat(k("mattex%iblur", i), t.blur);
    t.base_clr = s.GetInt(k("mattex%ibase_clr", i), t.base_clr);
    t.spec_clr = s.GetInt(k("mattex%ispec_clr", i), t.spec_clr);
    t.spec_power = s.GetInt(k("mattex%ispec", i), t.spec_power);
    t.diff_clr = s.GetInt(k("mattex%idiff_clr", i), t.diff_clr);
    t.diff = s.GetInt(k("mattex%idiff", i), t.diff);
    t.l_x = s.GetFloat(k("mattex%il_x", i), t.l_x);
    t.l_y = s.GetFloat(k("mattex%il_y", i), t.l_y);
    t.freeze = s.GetInt(k("mattex%ifreeze", i), t.freeze);
    t.w = s.GetInt(k("mattex%iw", i), t.w);
    t.h = s.GetInt(k("mattex%ih", i), t.h);
    SetFixedText(t.bitmapname, s.GetPath(k("mattex%ibitmapnamepath", i), "", nullptr).c_str());
    t.engine_texture = 0;
    t.pixel_buffer = 0;
    t.input = 0;
  }
}

}  // namespace

template <class Store>
void nbMatManager::SaveAllTo(Store& s, const char* prefix) const {
  Keys k(prefix);
  for (int32_t i = 0; i < MaterialCount(); ++i) {
    const std::string mat_prefix = k("mat%i", i);
    SaveMaterialTo(s, RecordAt(i), mat_prefix.c_str());
  }
  for (int32_t i = 0; i < InputSlotCount(); ++i) {
    const InputSlot& slot = slots_[size_t(i)];
    s.SetInt(k("input%imat", i), slot.mat);
    s.SetInt(k("input%it", i), slot.tex);
    s.SetInt(k("input%iused", i), slot.used);
  }
}

template <class Store>
void nbMatManager::LoadAllFrom(Store& s, const char* prefix) {
  Keys k(prefix);
  for (int32_t i = 0; i < MaterialCount(); ++i) {
    const std::string mat_prefix = k("mat%i", i);
    LoadMaterialFrom(s, RecordAt(i), mat_prefix.c_str());
  }
  for (int32_t i = 0; i < InputSlotCount(); ++i) {
    InputSlot& slot = slots_[size_t(i)];
    slot.mat = s.GetInt(k("input%imat", i), slot.mat);
    slot.tex = s.GetInt(k("input%it", i), slot.tex);
    slot.used = s.GetInt(k("input%iused", i), slot.used);
  }
}

void nbMatManager::SaveMaterial(orrery::ConfigStore& store, const Material& m, const char* prefix) {
  SaveMaterialTo(store, m, prefix);
}
void nbMatManager::SaveMaterial(ConfigData& store, const Material& m, const char* prefix) {
  SaveMaterialTo(store, m, prefix);
}
void nbMatManager::LoadMaterial(orrery::ConfigStore& store, Material& m, const char* prefix) {
  LoadMaterialFrom(store, m, prefix);
}
void nbMatManager::LoadMaterial(ConfigData& store, Material& m, const char* prefix) {
  LoadMaterialFrom(store, m, prefix);
}
void nbMatManager::SaveAll(orrery::ConfigStore& store, const char* prefix) const { SaveAllTo(store, prefix); }
void nbMatManager::SaveAll(ConfigData& store, const char* prefix) const { SaveAllTo(store, prefix); }
void nbMatManager::LoadAll(orrery::ConfigStore& store, const char* prefix) { LoadAllFrom(store, prefix); }
void nbMatManager::LoadAll(ConfigData& store, const char* prefix) { LoadAllFrom(store, prefix); }

}  // namespace nimbo
