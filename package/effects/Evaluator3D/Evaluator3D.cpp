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
#include <climits>
#include <memory>

#include "core/effect_base.h"
#include "core/labels.h"
#include "core/registry.h"
#include "e3d_file.h"
#include "evaluator3d_settings.h"
#include "formula_editor.h"
#include "framework/dynvar_list.h"
#include "grid_eval.h"
#include "grid_mesh.h"
#include "orrery/services.h"
#include "render3d/engine_loader.h"
#include "render3d/export_3ds.h"
#include "render3d/material_manager.h"
#include "render3d/scene3d.h"

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

constexpr int32_t kBackgroundInput = 0;
constexpr int32_t kFirstTextureInput = 1;
constexpr int32_t kTextureInputs = 2;
constexpr int32_t kHeightMapInput = 3;
constexpr const char* kMaterialName = "ev3dmat";
constexpr const char* kRenderError = "CEvaluator3DDfx::Render Error";
// Pictures are sampled at this size; input screens at the output's.
constexpr int32_t kPictureSide = 512;

constexpr const char* kTimeVar = "Evaluator time (1.0 = realtime)";
constexpr const char* kPatternsVar = "Disable visibility patterns";

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

class CEvaluator3DDfx final : public CEffectBase {
 public:
  CEvaluator3DDfx()
      : CEffectBase(kInfo, kLabelEvaluator3D, "helpfile/Effects/3D/Evaluator3D/Evaluator3D.htm",
                    sizeof(CEvaluator3DDfx)),
        scene_(kBackgroundInput),
        materials_(kTextureInputs, "") {
    materials_.LoadMaterial(0, ToMaterial(settings_.texture));
    Recompile();
    orrery::RegisterEffectAction(this, "load-e3d", "Load E3D...: replaces the formula set with an E3D file", &LoadE3D,
                                 this);
    orrery::RegisterEffectAction(this, "save-e3d", "Save E3D...: writes the formula set as an E3D file", &SaveE3D,
                                 this);
    orrery::RegisterEffectAction(this, "save-3ds", "Save as 3DS...: writes the mesh and camera last drawn", &Save3DS,
                                 this);
  }

  ~CEvaluator3DDfx() override {
    orrery::UnregisterEffectActions(this);
    FreeAll();
  }

  orrery::Size GetInputScreenRes(int32_t index, int32_t w, int32_t h) override {
    if ((w == -1 && h == -1) || index != kHeightMapInput) return CEffectBase::GetInputScreenRes(index, w, h);
    std::lock_guard lock(lock_);
    return {settings_.set.imax, settings_.set.jmax};
  }

  const char* GetInputScreenName(int32_t index) override {
    std::lock_guard lock(lock_);
    if (index >= kFirstTextureInput && index < kFirstTextureInput + kTextureInputs) {
      const char* name = materials_.GetInputName(index - kFirstTextureInput);
      if (name) return name;
    }
    return CEffectBase::GetInputScreenName(index);
  }

  int32_t SendEffectMessage(int32_t a, int32_t b) override {
    std::lock_guard lock(lock_);
    if (engine_) engine_->Message(a, b);
    return 0;
  }

  // ---- lifecycle ----
  int32_t Initialize() override {
    std::lock_guard lock(lock_);
    FetchOutputSize();
    FreeAll();
    engine_ = CreateEngineObject(this);
    if (!engine_) return 0;
    if (OutputSizeKnown()) engine_->SetOutputSize(out_w_, out_h_);
    if (!engine_->Begin()) {
      FreeAll();  // no device: go on without an engine, as without a library
      return 0;
    }
    materials_.SetEngine(engine_);
    materials_.SetOutputSize(out_w_, out_h_);
    materials_.LoadMaterial(0, ToMaterial(settings_.texture));
    engine_->End();
    mesh_built_ = false;
    return 1;
  }

  int32_t Render(const orrery::InputList& inputs, orrery::Screen* output) override {
    std::lock_guard lock(lock_);
    if (!OutputSizeKnown()) return 0;
    if (!engine_ || !scene_.BeginFrame(engine_, inputs, out_w_, out_h_)) {
      if (engine_) engine_->ErrorReport(kRenderError);
      return 0;
    }
    materials_.UpdateInputTextures(inputs, kFirstTextureInput);
    const float t = scene_.Advance(host_context_, time_speed_ ? *time_speed_ : settings_.timespeed);
    const orrery::Screen* map = inputs.Get(kHeightMapInput);
    BuildMesh(t, map && map->pixels ? e3d::HeightMap{map->pixels, map->width, map->height} : e3d::HeightMap{});
    scene_.SetCamera(engine_, drawn_camera_);
    scene_.DrawInsertFx(engine_, inputs);
    if (mesh_built_ && !triangles_.empty()) DrawMaterialMesh(engine_, materials_, 0, vertices_, triangles_);
    return scene_.EndFrame(engine_, output);
  }

 protected:
  // ---- settings ----
  void ReadSettings(orrery::ConfigStore& store) override {
    e3d::ReadEvaluatorSettings(store, settings_, [this](orrery::ConfigStore& s) { scene_.ReadSettings(s); });
    materials_.LoadMaterial(0, ToMaterial(settings_.texture));
    Recompile();
  }
  void WriteSettings(orrery::ConfigStore& store) override {
    e3d::WriteEvaluatorSettings(store, settings_, [this](orrery::ConfigStore& s) { scene_.WriteSettings(s); });
  }
  void DeclareHostControls() override {
    e3d::DescribeEvaluatorSettings(host_context_, [this] { scene_.DescribeSettings(host_context_); });
    DeclareDynVars();
  }

  // ---- dialog ----
  int32_t RunDialog() override {
    e3d::EvaluatorSettings edit;
    {
      std::lock_guard lock(lock_);
      edit = settings_;
    }
    e3d::FormulaEditor editor(edit, scene_.Settings(), [this](const e3d::FormulaSet& set) {
      std::lock_guard lock(lock_);
      return e3d::Recompile(set);
    });
    editor.SetExport3DS([this](const std::string& path) { return Export3DS(path); });
    if (!editor.Run(HelpPage())) return 0;
    std::lock_guard lock(lock_);
    settings_ = editor.Result();
    scene_.Settings() = editor.SceneResult();
    AfterSetChanged();
    return 1;
  }

 private:
  // Compiles the set and prepares the block evaluator; a failing formula
  // keeps the mesh as it was until it is mended.
  void Recompile() {
    compiled_ = e3d::Recompile(settings_.set);
    evaluator_.Prepare(settings_.set, compiled_);
  }

  // After a load or an edit: compile, re-declare the variables (the user
  // variables may have changed), rebuild the material and store it all.
  void AfterSetChanged() {
    Recompile();
    materials_.LoadMaterial(0, ToMaterial(settings_.texture));
    DeclareDynVars();
    if (orrery::ConfigStore* store = host_context_ ? host_context_->GetConfigStore() : nullptr) WriteConfig(*store);
  }

  void DeclareDynVars() {
    dynvars_.Clear();
    const float speed = std::clamp(settings_.timespeed, e3d::kMinTimeSpeed, e3d::kMaxTimeSpeed);
    time_speed_ = dynvars_.DeclareFloat(kTimeVar, e3d::kMinTimeSpeed, e3d::kMaxTimeSpeed, speed, e3d::kMinTimeSpeed,
                                        e3d::kMaxTimeSpeed, 0);
    scene_.DeclareInsertFxVars(dynvars_);
    disable_patterns_ = dynvars_.DeclareBool(kPatternsVar, 0, 0);
    scene_.DeclareCameraVars(dynvars_);
    user_values_.clear();
    for (const e3d::UserVariable& v : settings_.set.vars) {
      if (!v.on) continue;
      const float lo = std::min(v.minimum, v.maximum), hi = std::max(v.minimum, v.maximum);
      user_values_.push_back(dynvars_.DeclareFloat(v.name.c_str(), lo, hi, std::clamp(v.value, lo, hi), lo, hi, 0));
    }
    if (host_context_) host_context_->PublishDynVars(dynvars_.Head());
  }

  // Evaluates the camera and, while every formula compiles, the grid; then
  // assembles the vertices seen from the camera the frame draws with.
  void BuildMesh(float t, const e3d::HeightMap& map) {
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
    drawn_camera_ = scene_.ControlledCamera(camera);
    if (compiled_.first_error >= 0) return;

    evaluator_.Evaluate(map, grid_);
    e3d::ComputeNormals(grid_, settings_.set.loopi, settings_.set.loopj, normals_);
    e3d::CameraValues view;
    std::copy(drawn_camera_.position, drawn_camera_.position + 3, view.position);
    std::copy(drawn_camera_.target, drawn_camera_.target + 3, view.target);
    view.roll = drawn_camera_.roll;
    view.zoom = drawn_camera_.zoom;
    e3d::AssembleVertices(settings_.set, grid_, normals_, view, vertices_);
    const bool patterns = !(disable_patterns_ && *disable_patterns_);
    e3d::BuildTriangles(settings_.set, patterns, triangles_);
    mesh_built_ = true;
    const size_t floats = grid_.x.capacity() * 3 + grid_.u.capacity() * 2 + grid_.u2.capacity() * 2 +
                          grid_.nx.capacity() * 3 + grid_.nx2.capacity() * 3 + grid_.sx.capacity() * 3 +
                          normals_.vertex.capacity() + normals_.face.capacity();
    mem_size_ = int32_t(std::min<size_t>(INT32_MAX, sizeof(CEvaluator3DDfx) + floats * sizeof(float) +
                                                        vertices_.capacity() * sizeof(nb3D::Vertex) +
                                                        triangles_.capacity() * sizeof(uint32_t)));
  }

  std::string Export3DS(const std::string& path) {
    std::lock_guard lock(lock_);
    ExportMesh mesh;
    mesh.name = "Evaluator3D";
    mesh.positions.reserve(vertices_.size() * 3);
    mesh.uvs.reserve(vertices_.size() * 2);
    for (const nb3D::Vertex& v : vertices_) {
      mesh.positions.insert(mesh.positions.end(), {v.x, v.y, v.z});
      mesh.uvs.insert(mesh.uvs.end(), {v.u, v.v});
    }
    mesh.triangles = triangles_;
    const bool rendering = engine_ != nullptr && mesh_built_;
    return ExportScene3DS(path.c_str(), rendering, kMaterialName, materials_.GetMaterial(0), {&mesh, 1}, drawn_camera_);
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
    return 1;
  }
  static int32_t SaveE3D(void* user, const char* path, std::string* message) {
    auto* self = static_cast<CEvaluator3DDfx*>(user);
    std::lock_guard lock(self->lock_);
    const std::string error = e3d::SaveE3DFile(path ? path : "", self->settings_.set);
    return error.empty() ? 1 : Fail(message, error);
  }
  static int32_t Save3DS(void* user, const char* path, std::string* message) {
    const std::string error = static_cast<CEvaluator3DDfx*>(user)->Export3DS(path ? path : "");
    return error.empty() ? 1 : Fail(message, error);
  }
  static int32_t Fail(std::string* message, const std::string& text) {
    if (message) *message = text;
    return 0;
  }

  // Releases the material's textures and the engine object.
  void FreeAll() {
    materials_.FreeAll();
    materials_.SetEngine(nullptr);
    if (engine_) {
      scene_.Free(engine_);
      engine_->Release();
    }
    engine_ = nullptr;
    mesh_built_ = false;
  }

  e3d::EvaluatorSettings settings_;
  Scene3D scene_;
  nbMatManager materials_;
  e3d::CompiledSet compiled_;
  e3d::GridEvaluator evaluator_;

  // Dynamic variables and where their values live.
  DynVarList dynvars_;
  float* time_speed_ = nullptr;
  int32_t* disable_patterns_ = nullptr;
  std::vector<float*> user_values_;

  // The last frame's mesh and camera (what "Save as 3DS..." writes).
  e3d::GridValues grid_;
  e3d::GridNormals normals_;
  std::vector<nb3D::Vertex> vertices_;
  std::vector<uint32_t> triangles_;
  std::vector<float> frame_users_;
  SceneCamera drawn_camera_;
  bool mesh_built_ = false;
};

}  // namespace

orrery::Effect* NewEvaluator3D() { return CreateEffect<CEvaluator3DDfx>(); }

}  // namespace nimbo
