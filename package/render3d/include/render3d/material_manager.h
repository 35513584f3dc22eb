// nbMatManager: the materials of one 3D effect.
//
// It keeps one Material record per material index, builds each record's
// textures in the effect's engine object (pre-lit by the layer's sphere light
// map), tells the effect the render flags, texture names and coordinate scale
// to draw with, binds layers that show an input screen to the effect's extra
// inputs (InputSlot), and saves and loads all of it in the configuration
// store.
//
// Use from an effect (all under the effect's lock):
//   constructor       nbMatManager mats_{2 /*texture inputs*/, "" /*prefix*/};
//   UpdateConfig      mats_.LoadAll(store, "") or mats_.SaveAll(store, "")
//   Initialize        (after creating the engine object)
//                     mats_.SetEngine(engine_); mats_.SetOutputSize(w, h);
//                     mats_.BuildAll();
//   Render            mats_.UpdateInputTextures(inputs, first_texture_input);
//                     draw with LayerTexture / LayerScaleU/V / GetMaterialFlags
//   editor OK         mats_.LoadMaterial(i, edited_copy)
//   FreeAll/destroy   mats_.FreeAll() before the engine object is released
//
// Textures: layer k of material i is the engine texture "mat<i>tex<k>", each
// side a power of two (2..1024, width and height apart) holding the picture in its
// top-left w x h; multiply u by LayerScaleU and v by LayerScaleV (w / side,
// h / side) so the picture fills the drawn surface.
//
// Pictures come from the host's picture loader. A picture missing at its
// stored path is looked up by its file name, in this order, in: the folders
// the effect added with AddSearchFolder (e.g. its preset's folder), the
// host's recent path, the plug-ins path, and the plug-ins path's "textures"
// folder. When all fail the picture is black, still lit: the layer shows the
// light map's upper half (2L - 256 per channel), never an error message.
//
// Trace labels go to the engine's error report: "nbMatManager::LoadMaterial
// [1]" and "[2]" after the first and second texture, and
// "nbMatManager::FreeMaterial".
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "framework/config_data.h"
#include "nb3d/nb3d.h"
#include "orrery/config_store.h"
#include "orrery/types.h"
#include "render3d/material.h"
#include "render3d/texture_build.h"

namespace nimbo {

// One extra input screen of the effect and the material layer it feeds.
struct InputSlot {
  int32_t used = 0;      // bound to (mat, tex)
  int32_t value = 0;     // given when bound: the layer's freeze flag
  int32_t reserved = 0;
  int32_t mat = -1;      // -1 = never bound
  int32_t tex = 0;
  std::string name;      // the display name GetInputName answers
};

class nbMatManager {
 public:
  static constexpr int32_t kMaxSide = 1024;
  static constexpr int32_t kMaxMaterials = 256;  // indices beyond are refused

  // `input_count`: the number of extra input screens the effect declares for
  // textures; `prefix`: the effect's name prefix for their names ("" = none).
  explicit nbMatManager(int32_t input_count = 0, const char* prefix = "");
  // Leaves the engine alone, for the reason SetEngine gives.
  ~nbMatManager();
  nbMatManager(const nbMatManager&) = delete;
  nbMatManager& operator=(const nbMatManager&) = delete;

  // ---- set-up ----
  // The engine object that receives textures and trace labels; call it once
  // per engine object, right after creating it. It forgets what was built
  // before without calling any engine: the previous object may already be
  // released (and a new one may even sit at the same address), and
  // releasing an engine frees its textures and buffers anyway. Call FreeAll
  // first to free them in an engine that lives on.
  void SetEngine(nb3D* engine);
  nb3D* Engine() const { return engine_; }
  // The output screen size, used for layers with w or h <= 0.
  void SetOutputSize(int32_t width, int32_t height);
  // A folder searched for pictures missing at their stored path, before the
  // host's folders; searched in the order added.
  void AddSearchFolder(const std::string& folder);
  void ClearSearchFolders() { search_folders_.clear(); }
  // Grows or shrinks the material list; new records get the defaults.
  void SetMaterialCount(int32_t count);
  int32_t MaterialCount() const { return int32_t(materials_.size()); }

  // ---- records and building ----
  // The record of material `mat` (defaults when out of range).
  const Material& GetMaterial(int32_t mat) const;
  // Stores `m` as material `mat` (growing the list) and builds its textures
  // in the engine; without an engine only the record is kept. 1 on success,
  // 0 for an index outside 0..kMaxMaterials-1.
  int32_t LoadMaterial(int32_t mat, const Material& m);
  // Builds every material from its current record (after LoadAll).
  void BuildAll();
  // Releases the engine textures and pixel buffers of one material; the
  // record stays.
  void FreeMaterial(int32_t mat);
  // Releases every material's textures and buffers.
  void FreeAll();

  // ---- drawing ----
  int32_t GetMaterialFlags(int32_t mat) const;
  // The engine texture of layer `layer`, or null when it was not built.
  const char* LayerTexture(int32_t mat, int32_t layer) const;
  // Texture-coordinate scale of a layer (picture size / texture side); 1
  // when the layer was not built.
  float LayerScaleU(int32_t mat, int32_t layer) const;
  float LayerScaleV(int32_t mat, int32_t layer) const;
  // Picture size and texture side of a built layer (0 when not built).
  int32_t LayerWidth(int32_t mat, int32_t layer) const;
  int32_t LayerHeight(int32_t mat, int32_t layer) const;
  int32_t LayerSide(int32_t mat, int32_t layer, int32_t axis) const;

  // Copies each bound input screen into its layer's texture, lit like a
  // picture: every frame, or once while the layer is frozen. Slot i reads
  // inputs.Get(first_texture_input + i); missing screens keep the texture.
  void UpdateInputTextures(const orrery::InputList& inputs, int32_t first_texture_input);

  // ---- input slots ----
  // Binds an input slot to layer `tex` of material `mat`. The scan runs from
  // the last slot to the first: a slot already holding (mat, tex) is taken at
  // once; among free slots a never-bound one with the lowest index wins, else
  // the highest free one. False when no slot is free.
  bool AssignInput(int32_t mat, int32_t tex, int32_t value);
  // The name of extra input `slot`: "<prefix>tex<k>" with a prefix, else
  // "mat<i>tex<k>" when the effect has two or more materials, else "tex<k>"
  // (numbers 1-based; a slot never bound counts as layer `slot` of material
  // 0). Null outside the slot array. The text stays valid until the next
  // call for the same slot.
  const char* GetInputName(int32_t slot) const;
  int32_t InputSlotCount() const { return int32_t(slots_.size()); }
  // The slot's record; `slot` must lie in 0..InputSlotCount()-1.
  const InputSlot& GetInputSlot(int32_t slot) const { return slots_[size_t(slot)]; }
  // Unbinds every slot (a fresh effect).
  void ResetInputSlots();

  // ---- persistence ----
  // Keys are `prefix` + the record's suffixes, in the record's fixed order,
  // ending with "<prefix>nbMatManagerVERSION" = 1. Reading takes each key
  // with the record's current value as default and resets the run-time
  // fields. Both store kinds write and read the same keys: the SDK interface
  // every host store implements, and the framework's own ConfigData.
  static void SaveMaterial(orrery::ConfigStore& store, const Material& m, const char* prefix);
  static void SaveMaterial(ConfigData& store, const Material& m, const char* prefix);
  static void LoadMaterial(orrery::ConfigStore& store, Material& m, const char* prefix);
  static void LoadMaterial(ConfigData& store, Material& m, const char* prefix);
  // Every material i with prefix + "mat<i>", then each input slot i:
  // prefix + "input<i>mat", "input<i>t", "input<i>used". LoadAll reads the
  // records (it does not build them: call BuildAll once the engine is there).
  void SaveAll(orrery::ConfigStore& store, const char* prefix) const;
  void SaveAll(ConfigData& store, const char* prefix) const;
  void LoadAll(orrery::ConfigStore& store, const char* prefix);
  void LoadAll(ConfigData& store, const char* prefix);

 private:
  struct LayerState;     // what was built from one layer
  struct MaterialState;  // the record and its two built layers
  template <class Store>
  void SaveAllTo(Store& store, const char* prefix) const;
  template <class Store>
  void LoadAllFrom(Store& store, const char* prefix);
  Material& RecordAt(int32_t mat);
  const Material& RecordAt(int32_t mat) const { return GetMaterial(mat); }
  void BuildLayer(int32_t mat, int32_t layer);
  void FreeLayer(int32_t mat, int32_t layer);
  void ForgetBuilt();
  void Trace(const char* label);
  std::string FindPicture(const char* path) const;

  nb3D* engine_ = nullptr;
  int32_t out_w_ = 0, out_h_ = 0;
  std::string prefix_;
  std::vector<std::unique_ptr<MaterialState>> materials_;
  // Mutable only for the display names, formatted when asked for.
  mutable std::vector<InputSlot> slots_;
  std::vector<std::string> search_folders_;
};

}  // namespace nimbo
