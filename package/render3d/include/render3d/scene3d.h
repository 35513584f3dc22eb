// Scene3D: what every 3D effect of the package shares, built once here.
//
// Index:
//   1. the camera model: the effect's own camera (position, target, roll,
//      zoom) moved by the camera dynamic variables a VJ automates
//   2. settings "bgtype", "bgcolor", "insertfx" and their dialog fields
//   3. dynamic variables: the camera set and the four "Insert FX: ..."
//   4. the frame clock: t in seconds, advanced by the host clock times the
//      effect's time speed
//   5. a frame: begin with the background, camera, "Insert FX" quad,
//      material meshes, present and end
//
// An effect owns one Scene3D, calls its settings exchange at the place its
// own keys say, declares the dynamic variables it uses, and in Render:
//   if (!scene_.BeginFrame(engine_, inputs, out_w_, out_h_)) return 0;
//   scene_.SetCamera(engine_, scene_.ControlledCamera(own_camera));
//   scene_.DrawInsertFx(engine_, inputs);
//   ... DrawMaterialMesh(...) ...
//   return scene_.EndFrame(engine_, output);
// Nothing here takes the effect's lock: the effect calls it under its own.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "core/settings_table.h"
#include "framework/dynvar_list.h"
#include "nb3d/nb3d.h"
#include "orrery/config_store.h"
#include "orrery/effect.h"
#include "orrery/host_context.h"
#include "orrery/services.h"

namespace nimbo {

class nbMatManager;

// ---- 1. camera -----------------------------------------------------------------
// World space as the engine's: right-handed, y up. roll in radians; zoom 1 =
// the effect's field of view, 2 = twice as close.
struct SceneCamera {
  float position[3] = {0, 0, 100};
  float target[3] = {0, 0, 0};
  float roll = 0;
  float zoom = 1;
};

// The field of view all 3D effects draw with at zoom 1 (vertical, degrees).
inline constexpr float kSceneFovDegrees = 60.0f;

// ---- 2. settings -------------------------------------------------------------------
enum BackgroundType : int32_t {
  kBackgroundColor = 0,        // "bgcolor"
  kBackgroundInput = 1,        // the effect's "Background" input screen
  kBackgroundTransparent = 2,  // alpha 0 where nothing is drawn: the host layers it
};

struct SceneSettings {
  int32_t bgtype = kBackgroundColor;
  int32_t bgcolor = 0x000000;  // 0x00RRGGBB
  int32_t insertfx = 0;        // draw the "Background" input as a quad in the scene
};

// Which shared dynamic variables an effect declares.
enum SceneVars : uint32_t {
  kSceneCameraVars = 1,    // "Camera: orbit angle", "Camera: distance", "Camera: height",
                           // "Camera: roll", "Camera: zoom"
  kSceneInsertFxVars = 2,  // "Insert FX: position x/y/z", "Insert FX: size"
};

class Scene3D {
 public:
  // `background_input`: index of the effect's "Background" input screen.
  explicit Scene3D(int32_t background_input = 0) : background_input_(background_input) {}

  SceneSettings& Settings() { return settings_; }
  const SceneSettings& Settings() const { return settings_; }
  // "bgtype", "bgcolor", "insertfx" in that order, current values as defaults.
  void ReadSettings(orrery::ConfigStore& store);
  void WriteSettings(orrery::ConfigStore& store) const;
  void DescribeSettings(orrery::HostContext* context) const;
  // The rows behind the three keys (their ranges, labels and help).
  static std::span<const SettingRow<SceneSettings>> SettingRows();
  // Dialog fields bound to `edit` (the effect's working copy); `first_index`
  // is where they start in the effect's whole field list, so the colour
  // field can follow the background choice.
  static std::vector<orrery::DialogField> DialogFields(SceneSettings& edit, int32_t first_index);

  // ---- 3. dynamic variables ----
  // Declares the Insert FX set and/or the camera set into the effect's list,
  // in that order, wherever the effect calls it.
  void DeclareInsertFxVars(DynVarList& list);
  void DeclareCameraVars(DynVarList& list);

  // ---- 4. clock ----
  // Starts t at 0 at the next Advance.
  void ResetClock();
  // Advances t by the host time since the last call times `speed` (so a
  // change of speed never makes t jump) and returns it in seconds.
  float Advance(orrery::HostContext* context, float speed);
  float Time() const { return time_; }

  // ---- 1 again: the camera the effect draws with ----
  // `own` moved by the camera variables (orbit about the target's vertical
  // axis, distance scale, height added, roll added, zoom multiplied); `own`
  // itself when the effect did not declare them.
  SceneCamera ControlledCamera(const SceneCamera& own) const;

  // ---- 5. a frame ----
  // Sets the output size and background, begins the engine frame. False
  // (nothing drawn) when the engine is missing or has no device.
  bool BeginFrame(nb3D* engine, const orrery::InputList& inputs, int32_t width, int32_t height);
  void SetCamera(nb3D* engine, const SceneCamera& camera);
  // The "Background" input as a camera-facing quad at the Insert FX position
  // and size, when "insertfx" is on and the input is there.
  void DrawInsertFx(nb3D* engine, const orrery::InputList& inputs);
  // Presents into `output` and ends the frame; 1 on success.
  int32_t EndFrame(nb3D* engine, orrery::Screen* output);
  // Drops the textures this scaffolding made (before the engine is released).
  void Free(nb3D* engine);

 private:
  int32_t background_input_;
  SceneSettings settings_;
  SceneCamera last_camera_;
  float* camera_vars_[5] = {};     // orbit, distance, height, roll, zoom
  float* insert_vars_[4] = {};     // x, y, z, size
  bool clock_started_ = false;
  int64_t last_ms_ = 0;
  float time_ = 0;
};

// Draws one mesh with material `mat` of `materials`: its textures, render
// flags and texture-coordinate scale (u and v of both sets are multiplied by
// the layers' scale here, so effects pass coordinates in 0..1).
int32_t DrawMaterialMesh(nb3D* engine, const nbMatManager& materials, int32_t mat,
                         std::span<const nb3D::Vertex> vertices, std::span<const uint32_t> indices,
                         const float* transform = nullptr);

}  // namespace nimbo
