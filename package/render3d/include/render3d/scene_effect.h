// CSceneEffect: the base of the package's 3D effects. It owns what they all
// hold alike (the engine object, the Scene3D, the material manager, the
// dynamic-variable list) and keeps the lock discipline around them; an
// effect fills in small hooks: its own settings, its own dynamic variables,
// its own camera, its mesh for time t, how it draws, and what "Save as
// 3DS..." writes.
//
// Index:
//   1. the layout: which inputs are the background and the material's
//   2. the interface operations every 3D effect answers alike
//   3. the engine object's life (Initialize) and its hooks
//   4. a frame: Render's fixed part and its hooks
//   5. settings: the effect's keys, then the scene's, then the materials'
//   6. dynamic variables
//   7. "Save as 3DS..."
//   8. the setup dialog's protocol, materials and memory
//   9. CTableSceneEffect<S>: an effect whose own settings are one table,
//      with the setup dialog every such effect shows
//
// Every hook runs under the effect's lock, taken here; an effect takes it
// itself only in its own actions and dialogs (which run without it, so the
// host can go on rendering while one is open).
#pragma once

#include <cstdint>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include "core/effect_base.h"
#include "core/platform.h"
#include "core/settings_table.h"
#include "framework/dynvar_list.h"
#include "nb3d/nb3d.h"
#include "orrery/config_store.h"
#include "render3d/export_3ds.h"
#include "render3d/isosurface.h"
#include "render3d/material_dialog.h"
#include "render3d/material_manager.h"
#include "render3d/scene3d.h"

namespace nimbo {

// ---- 1. layout ------------------------------------------------------------------
struct SceneEffectLayout {
  int32_t background_input = 0;      // the scene's "Background" input
  int32_t first_texture_input = 1;   // the first of the material's texture inputs
  int32_t texture_inputs = 2;        // how many the material manager holds
  // GetInputScreenName answers the texture inputs with the material's names
  // ("tex1", ...); off where the effect's own input names stay.
  bool material_names_inputs = true;
  const char* render_error = "";     // reported when a frame cannot begin
  const char* material_name = "";    // material 0 as "Save as 3DS..." names it
  const char* mesh_name = "";        // the mesh the default export writes
};

// A float dynamic variable whose range is also its controller's range.
struct SceneVar {
  const char* name;
  float minimum, maximum, initial;
};

class CSceneEffect : public CEffectBase {
 public:
  CSceneEffect(const orrery::EffectInfo& info, int32_t label_resource, const char* help_page, int32_t object_size,
               const SceneEffectLayout& layout);
  ~CSceneEffect() override;

  // ---- 2. the interface ----
  const char* GetInputScreenName(int32_t index) override;
  // Passed on to the engine object.
  int32_t SendEffectMessage(int32_t a, int32_t b) override;
  // A new engine object sized to the output, with the materials built in it.
  int32_t Initialize() override;
  // The fixed part of a frame: begin (or report kRenderError), copy the
  // texture inputs, advance the clock, DrawScene, present.
  int32_t Render(const orrery::InputList& inputs, orrery::Screen* output) override;

 protected:
  // ---- 3. the engine object ----
  // Builds what the engine holds for the effect, between the engine's
  // Begin and End; the default builds every material.
  virtual void BuildEngineResources() { materials_.BuildAll(); }
  // After a successful Initialize.
  virtual void EngineStarted() {}
  // Before the engine object goes (engine_ may be null): drop what the
  // effect made in it and what was built for it.
  virtual void EngineStopping() {}
  // Frees the materials' and the scene's engine objects and releases the
  // engine object; mesh_built_ is false afterwards.
  void StopEngine();

  // ---- 4. a frame ----
  // Before the texture inputs are copied into the materials.
  virtual void PrepareFrame() {}
  // The clock's speed this frame (1 = real time).
  virtual float TimeSpeed() { return 1.0f; }
  // Everything between the clock and the present. The default: the camera
  // (OwnCamera moved by the camera variables, kept in drawn_camera_), the
  // mesh for t (BuildFrame), the camera set, the Insert FX quad, DrawFrame.
  virtual void DrawScene(const orrery::InputList& inputs, float t);
  // The effect's camera before the camera variables move it; the default
  // stands at (0, 60, 140) looking at the origin, where a 100-unit body
  // fills the picture.
  virtual SceneCamera OwnCamera(float t);
  virtual void BuildFrame(float t, const orrery::InputList& inputs) {
    (void)t, (void)inputs;
  }
  // The default: vertices_ and triangles_ with material 0, when there are any.
  virtual void DrawFrame();

  // ---- 5. settings ----
  // The effect's own keys, then "bgtype", "bgcolor", "insertfx", then the
  // materials' keys; then SettingsRead.
  void ReadSettings(orrery::ConfigStore& store) override;
  void WriteSettings(orrery::ConfigStore& store) override;
  // The effect's settings described, the scene's, then the dynamic
  // variables declared and published.
  void DeclareHostControls() override;
  virtual void ReadOwnSettings(orrery::ConfigStore& store) = 0;
  virtual void WriteOwnSettings(orrery::ConfigStore& store) = 0;
  virtual void DescribeOwnSettings() = 0;
  // The default: the material set's keys without a prefix, built at once.
  virtual void ReadMaterialSettings(orrery::ConfigStore& store);
  virtual void WriteMaterialSettings(orrery::ConfigStore& store);
  // After every key is read (a preset or a saved document).
  virtual void SettingsRead(orrery::ConfigStore& store) { (void)store; }
  // Writes the settings into the host's store, where there is one (after a
  // dialog or a file command changed them).
  void StoreConfig();

  // ---- 6. dynamic variables ----
  // Clears the list, declares (DeclareDynVars) and publishes it to the host.
  void PublishDynVars();
  // The default: the Insert FX set, then the camera set. An effect declares
  // its own around them and calls this where they belong.
  virtual void DeclareDynVars();
  float* DeclareVar(const SceneVar& var);
  // A variable's value clamped to its range; its initial value while it is
  // not declared or not a number.
  static float VarValue(const float* value, const SceneVar& var);

  // ---- 7. "Save as 3DS..." ----
  // Registers the action "save-3ds" with the effect's description.
  void RegisterSave3DS(const char* description);
  // Writes what ExportMeshes gives, material 0 and drawn_camera_; "" or the
  // message to show. Takes the lock.
  std::string Export3DS(const std::string& path);
  // The meshes as last drawn; false when nothing has been drawn since the
  // engine started. The default: vertices_ and triangles_ as one mesh
  // named layout.mesh_name, once mesh_built_.
  virtual bool ExportMeshes(std::vector<ExportMesh>& meshes);
  static ExportMesh MeshOf(const char* name, std::span<const nb3D::Vertex> vertices,
                           std::span<const uint32_t> triangles);

  // ---- 8. dialog, materials, memory ----
  // The dialog protocol of a 3D effect: copies of `current`, the scene's
  // settings and material 0 taken under the lock; `edit(settings, scene)`
  // runs the effect's own dialog on the copies (false: Cancel, nothing
  // changes); then, where `with_material`, the material editor; then under
  // the lock the scene's settings and an edited material are taken and
  // `apply(settings)` takes the effect's. 1 on OK, 0 on Cancel.
  template <class S, class Edit, class Apply>
  int32_t RunSceneDialog(const S& current, bool with_material, Edit edit, Apply apply) {
    S settings;
    SceneSettings scene;
    Material material;
    {
      std::lock_guard lock(lock_);
      settings = current;
      scene = scene_.Settings();
      material = materials_.GetMaterial(0);
    }
    if (!edit(settings, scene)) return 0;
    const bool material_edited =
        with_material && RunMaterialDialog(material, platform::MainWindow(), HelpPage()) != 0;
    std::lock_guard lock(lock_);
    scene_.Settings() = scene;
    if (material_edited) materials_.LoadMaterial(0, material);
    apply(settings);
    return 1;
  }

  // The light map alone on a 256 x 256 picture layer without a picture (lit
  // black), so a body shines with no input connected; the material editor
  // (or the key mat0mattex0texmode = 0) puts the first texture input on it.
  static Material LightMapMaterial(const char* name);

  // What GetMemoryUsage reports, clamped to its range.
  void SetMemorySize(size_t bytes);
  // The bytes of a surface effect's frame: its sampled field, the surface
  // (positions and normals), the vertices and triangles drawn (and their
  // copy in the surface).
  size_t SurfaceBytes(const std::vector<float>& field, const IsoMesh& surface) const;

  const SceneEffectLayout layout_;
  Scene3D scene_;
  nbMatManager materials_;
  DynVarList dynvars_;

  // The mesh the default DrawFrame draws and the default export writes, the
  // camera it was last drawn with, and whether it was built since the engine
  // object started.
  std::vector<nb3D::Vertex> vertices_;
  std::vector<uint32_t> triangles_;
  SceneCamera drawn_camera_;
  bool mesh_built_ = false;

 private:
  static int32_t Save3DS(void* user, const char* path, std::string* message);
};

// ---- 9. an effect with one settings table ------------------------------------
// Its own keys are the rows of `rows` (defaults applied at construction), and
// its setup dialog shows those rows, then the scene's fields, then (on OK,
// where edits_material_) the material editor for material 0.
template <class S>
class CTableSceneEffect : public CSceneEffect {
 public:
  CTableSceneEffect(const orrery::EffectInfo& info, int32_t label_resource, const char* help_page,
                    int32_t object_size, const SceneEffectLayout& layout, std::span<const SettingRow<S>> rows,
                    const char* dialog_title)
      : CSceneEffect(info, label_resource, help_page, object_size, layout), rows_(rows), dialog_title_(dialog_title) {
    ApplyDefaults<S>(rows_, settings_);
  }

 protected:
  void ReadOwnSettings(orrery::ConfigStore& store) override { ReadRows<S>(store, rows_, settings_); }
  void WriteOwnSettings(orrery::ConfigStore& store) override { WriteRows<S>(store, rows_, settings_); }
  void DescribeOwnSettings() override { DescribeRows<S>(host_context_, rows_); }

  int32_t RunDialog() override {
    return RunSceneDialog(
        settings_, edits_material_,
        [this](S& edit, SceneSettings& scene) {
          int32_t shown = 0;
          for (const SettingRow<S>& row : rows_) shown += row.view.as == ShowAs::kHidden ? 0 : 1;
          const std::vector<orrery::DialogField> scene_fields = Scene3D::DialogFields(scene, shown);
          SettingsDialog<S> dialog(rows_, edit, {}, scene_fields);
          return dialog.Run(dialog_title_, HelpPage());
        },
        [this](const S& edit) {
          ApplyDialogSettings(edit);
          StoreConfig();
        });
  }

  // Takes the settings the dialog closed with; an effect that derives state
  // from them (a shape, a cached mesh) renews it here too.
  virtual void ApplyDialogSettings(const S& edit) { settings_ = edit; }

  S settings_;
  bool edits_material_ = true;

 private:
  const std::span<const SettingRow<S>> rows_;
  const char* const dialog_title_;
};

}  // namespace nimbo
