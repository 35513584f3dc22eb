// Evaluator3D: a surface built from user formulas. A grid of imax x jmax
// vertices, one per grid point (i, j), takes its position, texture
// coordinates and normals from formulas; a camera driven by formulas looks
// at it; one material with two texture layers (the texture inputs or
// pictures) covers it, over the shared 3D background and "Insert FX".
//
// Files: formula_set.* (the 29 fields and compiling them), grid_eval.* (one
// frame's evaluation), grid_mesh.* (faces, normals, texture coordinates),
// e3d_file.* (E3D files), evaluator3d_settings.* (the stored keys),
// formula_editor.* (the setup dialog's model).
//
// Inputs: 0 "Background" (the scaffolding's background and Insert FX), 1 and
// 2 the texture inputs of the material's layers (named "tex1", "tex2" by
// the material manager), 3 "height map", asked for at imax x jmax.
//
// Per frame: begin with the background, copy the texture inputs into the
// material, advance t by the host clock times "Evaluator time (1.0 =
// realtime)", set the frame's variables, evaluate the camera formulas and
// the grid (unless a formula fails to compile: then the last mesh stays),
// draw the mesh through the camera the scaffolding's camera variables move,
// present.
#include <algorithm>

#include "core/labels.h"
#include "core/platform.h"
#include "core/registry.h"
#include "e3d_file.h"
#include "evaluator3d_settings.h"
#include "formula_editor.h"
#include "grid_eval.h"
#include "grid_mesh.h"
#include "orrery/services.h"
#include "render3d/scene_effect.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {
    {-1, -1, "Background"}, {-1, -1, "UNKNOWN"}, {-1, -1, "UNKNOWN"}, {-1, -1, "height map"}};
constexpr orrery::EffectInfo kInfo = {kInputs,
                                      4,
                                      {-1, -1},
                                      "output",
                                      "nimbo one\\3D Effect\\Evaluator3D",
                                      kAuthor,
                                      "Effect,3D,",
                                      0x002412455A043E27ull,
                                      orrery::kEffectVersion};

constexpr int32_t kHeightMapInput = 3;
constexpr const char* kMaterialName = "ev3dmat";
constexpr const char* kRenderError = "CEvaluator3DDfx::Render Error";
// Pictures are sampled at this size; input screens at the output's.
constexpr int32_t kPictureSide = 512;

constexpr const char* kTimeVar = "Evaluator time (1.0 = realtime)";
constexpr const char* kPatternsVar = "Disable visibility patterns";

// Input 0 the background, 1 and 2 the material's texture inputs: the layout's defaults.
constexpr SceneEffectLayout kLayout = {
    .render_error = kRenderError, .material_name = kMaterialName, .mesh_name = "Evaluator3D"};

// The effect's one material from its stored keys.
Material ToMaterial(const e3d::TextureKeys& t) {
  Material m;
  InitMaterial(m);
  for (int32_t k = 0; k < 2; ++k) {
    TextureLayer& layer = m.tex[k];
    layer.texmode = t.texinfo[k] ? kTexModePicture : kTexModeInput;
    SetFixedText(layer.bitmapname, (t.texpath[k].empty() ? t.tex[k] : t.texpath[k]).c_str());
    layer.freeze = t.freeze[k];
    layer.w = layer.h = layer.texmode == kTexModeInput ? 0 : kPictureSide;
  }
  m.usesectex = t.sectex;
  m.sectype = t.sectype;
  m.trans = t.transparent;
  m.wire = t.wire;
  m.invert_tex2 = t.invert_tex2;
  SetFixedText(m.name, kMaterialName);
  return m;
}

class CEvaluator3DDfx final : public CSceneEffect {
 public:
  CEvaluator3DDfx()
      : CSceneEffect(kInfo, kLabelEvaluator3D, "helpfile/Effects/3D/Evaluator3D/Evaluator3D.htm",
                     sizeof(CEvaluator3DDfx), kLayout) {
    materials_.LoadMaterial(0, ToMaterial(settings_.texture));
    Recompile();
    orrery::RegisterEffectAction(this, "load-e3d", "Load E3D...: replaces the formula set with an E3D file", &LoadE3D,
                                 this);
    orrery::RegisterEffectAction(this, "save-e3d", "Save E3D...: writes the formula set as an E3D file", &SaveE3D,
                                 this);
    RegisterSave3DS("Save as 3DS...: writes the mesh and camera last drawn");
  }

  // The height map is asked for at one pixel per grid point.
  orrery::Size GetInputScreenRes(int32_t index, int32_t w, int32_t h) override {
    if ((w == -1 && h == -1) || index != kHeightMapInput) return CEffectBase::GetInputScreenRes(index, w, h);
    std::lock_guard lock(lock_);
    return {settings_.set.imax, settings_.set.jmax};
  }

 protected:
  // ---- engine and settings ----
  void BuildEngineResources() override { materials_.LoadMaterial(0, ToMaterial(settings_.texture)); }

  // The scene's keys stand among the effect's own, and the material is
  // built from the texture keys: the whole exchange is the effect's.
  void ReadSettings(orrery::ConfigStore& store) override {
    e3d::ReadEvaluatorSettings(store, settings_, [this](orrery::ConfigStore& s) { scene_.ReadSettings(s); });
    materials_.LoadMaterial(0, ToMaterial(settings_.texture));
    Recompile();
    ReportCompileError();
  }
  void WriteSettings(orrery::ConfigStore& store) override {
    e3d::WriteEvaluatorSettings(store, settings_, [this](orrery::ConfigStore& s) { scene_.WriteSettings(s); });
  }
  void DeclareHostControls() override {
    e3d::DescribeEvaluatorSettings(host_context_, [this] { scene_.DescribeSettings(host_context_); });
    PublishDynVars();
  }
  // Not called: the exchange above replaces the base's whole.
  void ReadOwnSettings(orrery::ConfigStore&) override {}
  void WriteOwnSettings(orrery::ConfigStore&) override {}
  void DescribeOwnSettings() override {}

  // ---- dialog ----
  // The formula editor; the material follows the texture keys it edits.
  int32_t RunDialog() override {
    return RunSceneDialog(
        settings_, false,
        [this](e3d::EvaluatorSettings& edit, SceneSettings& scene) {
          e3d::FormulaEditor editor(edit, scene, [this](const e3d::FormulaSet& set) {
            std::lock_guard lock(lock_);
            return e3d::Recompile(set);
          });
          editor.SetExport3DS([this](const std::string& path) { return Export3DS(path); });
          if (!editor.Run(HelpPage())) return false;
          edit = editor.Result();
          scene = editor.SceneResult();
          return true;
        },
        [this](const e3d::EvaluatorSettings& edit) {
          settings_ = edit;
          AfterSetChanged();
        });
  }

  // ---- a frame ----
  float TimeSpeed() override { return time_speed_ ? *time_speed_ : settings_.timespeed; }

  // The frame's variables set, then the camera formulas.
  SceneCamera OwnCamera(float t) override {
    frame_users_.clear();
    size_t k = 0;
    for (const e3d::UserVariable& v : settings_.set.vars) {
      if (!v.on) continue;
      frame_users_.push_back(k < user_values_.size() && user_values_[k] ? *user_values_[k] : v.value);
      ++k;
    }
    e3d::SetFrameVariables(settings_.set, {t, out_w_, out_h_, frame_users_});
    const e3d::CameraValues own = e3d::EvaluateCamera(compiled_);
    SceneCamera camera;
    std::copy(own.position, own.position + 3, camera.position);
    std::copy(own.target, own.target + 3, camera.target);
    camera.roll = own.roll;
    camera.zoom = own.zoom;
    return camera;
  }

  // While every formula compiles: the grid, its normals, the vertices seen
  // from the camera the frame draws with, the visible faces.
  void BuildFrame(float, const orrery::InputList& inputs) override {
    if (compiled_.first_error >= 0) return;
    const orrery::Screen* map = inputs.Get(kHeightMapInput);
    evaluator_.Evaluate(map && map->pixels ? e3d::HeightMap{map->pixels, map->width, map->height} : e3d::HeightMap{},
                        grid_);
    e3d::ComputeNormals(grid_, settings_.set.loopi, settings_.set.loopj, normals_);
    e3d::CameraValues view;
    std::copy(drawn_camera_.position, drawn_camera_.position + 3, view.position);
    std::copy(drawn_camera_.target, drawn_camera_.target + 3, view.target);
    view.roll = drawn_camera_.roll;
    view.zoom = drawn_camera_.zoom;
    e3d::AssembleVertices(settings_.set, grid_, normals_, view, vertices_);
    // The faces follow the set and the patterns switch only: built again
    // when either changed, not every frame.
    const bool patterns = !(disable_patterns_ && *disable_patterns_);
    if (!faces_valid_ || patterns != faces_patterns_) {
      e3d::BuildTriangles(settings_.set, patterns, triangles_);
      faces_valid_ = true;
      faces_patterns_ = patterns;
    }
    mesh_built_ = true;
    const size_t floats = grid_.x.capacity() * 3 + grid_.u.capacity() * 2 + grid_.u2.capacity() * 2 +
                          grid_.nx.capacity() * 3 + grid_.nx2.capacity() * 3 + grid_.sx.capacity() * 3 +
                          normals_.vertex.capacity() + normals_.face.capacity();
    SetMemorySize(sizeof(CEvaluator3DDfx) + floats * sizeof(float) + vertices_.capacity() * sizeof(nb3D::Vertex) +
                  triangles_.capacity() * sizeof(uint32_t));
  }

  // The mesh of a frame since the engine started only: one a failing
  // formula set kept from before is not drawn.
  void DrawFrame() override {
    if (mesh_built_) CSceneEffect::DrawFrame();
  }

  // ---- dynamic variables ----
  void DeclareDynVars() override {
    const float speed = std::clamp(settings_.timespeed, e3d::kMinTimeSpeed, e3d::kMaxTimeSpeed);
    time_speed_ = DeclareVar({kTimeVar, e3d::kMinTimeSpeed, e3d::kMaxTimeSpeed, speed});
    scene_.DeclareInsertFxVars(dynvars_);
    disable_patterns_ = dynvars_.DeclareBool(kPatternsVar, 0, 0);
    scene_.DeclareCameraVars(dynvars_);
    user_values_.clear();
    for (const e3d::UserVariable& v : settings_.set.vars) {
      if (!v.on) continue;
      const float lo = std::min(v.minimum, v.maximum), hi = std::max(v.minimum, v.maximum);
      user_values_.push_back(dynvars_.DeclareFloat(v.name.c_str(), lo, hi, std::clamp(v.value, lo, hi), lo, hi, 0));
    }
  }

 private:
  // Compiles the set and prepares the block evaluator; a failing formula
  // keeps the mesh as it was until it is mended.
  void Recompile() {
    compiled_ = e3d::Recompile(settings_.set);
    evaluator_.Prepare(settings_.set, compiled_);
    faces_valid_ = false;
  }

  // A set that came from settings or a file, not through the editor (which
  // shows the failing formula itself), draws no new mesh while a formula
  // fails: say which, once until the fault changes.
  void ReportCompileError() {
    const std::string error = e3d::CompileErrorText(compiled_, settings_.set.hmap != 0);
    if (error == reported_error_) return;
    reported_error_ = error;
    if (!error.empty())
      platform::ShowError("Evaluator3D", (error + " The mesh is not rebuilt until it is mended.").c_str());
  }

  // After a load or an edit: compile, re-declare the variables (the user
  // variables may have changed), rebuild the material and store it all.
  void AfterSetChanged() {
    Recompile();
    materials_.LoadMaterial(0, ToMaterial(settings_.texture));
    PublishDynVars();
    StoreConfig();
  }

  // ---- file commands ----
  static int32_t LoadE3D(void* user, const char* path, std::string* message) {
    auto* self = static_cast<CEvaluator3DDfx*>(user);
    std::lock_guard lock(self->lock_);
    e3d::FormulaSet loaded;
    const std::string error = e3d::LoadE3DFile(path ? path : "", loaded);
    if (!error.empty()) return Fail(message, error);
    self->settings_.set = std::move(loaded);
    self->AfterSetChanged();
    self->ReportCompileError();
    return 1;
  }
  static int32_t SaveE3D(void* user, const char* path, std::string* message) {
    auto* self = static_cast<CEvaluator3DDfx*>(user);
    std::lock_guard lock(self->lock_);
    const std::string error = e3d::SaveE3DFile(path ? path : "", self->settings_.set);
    return error.empty() ? 1 : Fail(message, error);
  }
  static int32_t Fail(std::string* message, const std::string& text) {
    if (message) *message = text;
    return 0;
  }

  e3d::EvaluatorSettings settings_;
  e3d::CompiledSet compiled_;
  e3d::GridEvaluator evaluator_;

  // Dynamic variables and where their values live.
  float* time_speed_ = nullptr;
  int32_t* disable_patterns_ = nullptr;
  std::vector<float*> user_values_;

  // The last frame's grid (the mesh and camera "Save as 3DS..." writes are
  // the base's vertices_, triangles_ and drawn_camera_).
  e3d::GridValues grid_;
  e3d::GridNormals normals_;
  std::vector<float> frame_users_;
  std::string reported_error_;  // the compile fault last shown
  bool faces_valid_ = false, faces_patterns_ = true;  // triangles_ follow the set and this switch
};

}  // namespace

orrery::Effect* NewEvaluator3D() { return CreateEffect<CEvaluator3DDfx>(); }

}  // namespace nimbo
