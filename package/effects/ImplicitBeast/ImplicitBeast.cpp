// ImplicitBeast: an implicit surface. The user writes FUN(X, Y, Z, T) as a
// program (lines NAME=expression, the last assigning FUN); the effect
// samples it on a grid over a box every frame, and shows the surface where
// FUN changes sign (inside where FUN < 0), covered with a material.
//
// Files: implicit_programs.* (the three programs and the user variables),
// implicit_field.* (sampling through the block evaluator, the surface),
// implicit_mesh.* (the texture and normal programs, the drawn vertices),
// implicit_settings.* (the stored keys), program_file.* (plain-text program
// files), program_editor.* (the setup dialog's model).
//
// Inputs: 0 "background" (the scaffolding's background and Insert FX), 1 and
// 2 the material's texture inputs ("tex1", "tex2").
//
// Per frame: background, texture inputs into the material, t advanced by
// the host clock times the time speed, the user variables' positions (a
// change recompiles the programs with the new values), FUN on grid^3
// samples, the surface with the border closed (by default), then per
// surface point the normal program (or the gradient) and the texture
// program (or an environment map), the mesh through the scaffolding's
// camera, present. While a program fails the last good surface stays.
//
// World: the box is drawn centred, its longest side 100 units, like the
// other 3D effects' defaults, so the shared camera frames it alike.
#include <algorithm>
#include <climits>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "core/effect_base.h"
#include "core/labels.h"
#include "core/registry.h"
#include "framework/dynvar_list.h"
#include "implicit_field.h"
#include "implicit_mesh.h"
#include "implicit_programs.h"
#include "implicit_settings.h"
#include "orrery/services.h"
#include "program_editor.h"
#include "program_file.h"
#include "render3d/engine_loader.h"
#include "render3d/export_3ds.h"
#include "render3d/material_dialog.h"
#include "render3d/material_manager.h"
#include "render3d/scene3d.h"

namespace nimbo {
namespace {

using namespace implicit;

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "background"}, {-1, -1, "UNKNOWN"}, {-1, -1, "UNKNOWN"}};
constexpr orrery::EffectInfo kInfo = {kInputs,
                                      3,
                                      {-1, -1},
                                      "output",
                                      "nimbo one\\3D Effect\\ImplicitBeast",
                                      kAuthor,
                                      "Effect,3D,",
                                      0x016C7EF26E114765ull,
                                      orrery::kEffectVersion};

constexpr int32_t kBackgroundInput = 0;
constexpr int32_t kFirstTextureInput = 1;
constexpr int32_t kTextureInputs = 2;
constexpr const char* kMaterialName = "impmat";
constexpr const char* kRenderError = "CImplicitBeastDfx::Render Error";
constexpr const char* kHelpPage = "helpfile/Effects/3D/ImplicitBeast/ImplicitBeast.htm";
constexpr float kWorldSide = 100.0f;

constexpr const char* kTimeVar = "ImplicitBeast time (1.0 = realtime)";
constexpr float kTimeSpeedMin = -4.0f, kTimeSpeedMax = 4.0f;

class CImplicitBeastDfx final : public CEffectBase {
 public:
  CImplicitBeastDfx()
      : CEffectBase(kInfo, kLabelImplicitBeast, kHelpPage, sizeof(CImplicitBeastDfx)),
        scene_(kBackgroundInput),
        materials_(kTextureInputs, "") {
    materials_.LoadMaterial(0, DefaultImplicitMaterial());
    orrery::RegisterEffectAction(this, "load-program",
                                 "Load program...: replaces the programs and user variables with a program file "
                                 "(plain text; refused whole when it does not compile)",
                                 &LoadProgram, this);
    orrery::RegisterEffectAction(this, "save-program",
                                 "Save program...: writes the programs and user variables as a plain-text file",
                                 &SaveProgram, this);
    orrery::RegisterEffectAction(this, "save-3ds", "Save as 3DS...: writes the surface and camera last drawn", &Save3DS,
                                 this);
    std::lock_guard lock(lock_);
    Recompile();
  }

  ~CImplicitBeastDfx() override {
    orrery::UnregisterEffectActions(this);
    FreeAll();
  }

  const char* GetInputScreenName(int32_t index) override {
    std::lock_guard lock(lock_);
    if (index >= kFirstTextureInput && index < kFirstTextureInput + kTextureInputs) {
      if (const char* name = materials_.GetInputName(index - kFirstTextureInput)) return name;
    }
    return CEffectBase::GetInputScreenName(index);
  }

  int32_t SendEffectMessage(int32_t a, int32_t b) override {
    std::lock_guard lock(lock_);
    if (engine_) engine_->Message(a, b);
    return 0;
  }

  int32_t Initialize() override {
    std::lock_guard lock(lock_);
    FetchOutputSize();
    FreeAll();
    engine_ = CreateEngineObject(this);
    if (!engine_) return 0;
    if (OutputSizeKnown()) engine_->SetOutputSize(out_w_, out_h_);
    if (!engine_->Begin()) {
      FreeAll();
      return 0;
    }
    materials_.SetEngine(engine_);
    materials_.SetOutputSize(out_w_, out_h_);
    materials_.BuildAll();
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
    const float speed =
        time_speed_ && std::isfinite(*time_speed_) ? std::clamp(*time_speed_, kTimeSpeedMin, kTimeSpeedMax) : 1.0f;
    const float t = scene_.Advance(host_context_, speed);
    SceneCamera own;
    own.position[0] = 0, own.position[1] = 60, own.position[2] = 140;
    drawn_camera_ = scene_.ControlledCamera(own);
    BuildMesh(t);
    scene_.SetCamera(engine_, drawn_camera_);
    scene_.DrawInsertFx(engine_, inputs);
    if (!triangles_.empty()) DrawMaterialMesh(engine_, materials_, 0, vertices_, triangles_);
    return scene_.EndFrame(engine_, output);
  }

 protected:
  void ReadSettings(orrery::ConfigStore& store) override {
    ReadImplicitSettings(store, settings_);
    scene_.ReadSettings(store);
    materials_.LoadAll(store, "");
    materials_.BuildAll();
    Recompile();
  }
  void WriteSettings(orrery::ConfigStore& store) override {
    WriteImplicitSettings(store, settings_);
    scene_.WriteSettings(store);
    materials_.SaveAll(store, "");
  }
  void DeclareHostControls() override {
    DescribeImplicitSettings(host_context_);
    scene_.DescribeSettings(host_context_);
    DeclareDynVars();
  }

  // The program editor, then (on OK) the material editor.
  int32_t RunDialog() override {
    ImplicitSettings edit;
    SceneSettings scene_edit;
    Material material;
    {
      std::lock_guard lock(lock_);
      edit = settings_;
      scene_edit = scene_.Settings();
      material = materials_.GetMaterial(0);
    }
    ProgramEditor editor(edit, scene_edit, [this](const ProgramSet& set) {
      std::lock_guard lock(lock_);
      return CompilePrograms(set, {});
    });
    editor.SetExport3DS([this](const std::string& path) { return Export3DS(path); });
    if (!editor.Run(HelpPage())) return 0;
    const bool material_edited = RunMaterialDialog(material, platform::MainWindow(), HelpPage()) != 0;
    std::lock_guard lock(lock_);
    settings_ = editor.Result();
    scene_.Settings() = editor.SceneResult();
    if (material_edited) materials_.LoadMaterial(0, material);
    AfterProgramsChanged();
    return 1;
  }

 private:
  // The light map alone (a picture layer without a picture: lit black), so
  // the surface shines with no input connected; the material editor (or the
  // key mat0mattex0texmode = 0) puts the first texture input on it.
  static Material DefaultImplicitMaterial() {
    Material m = DefaultMaterial();
    m.tex[0].w = m.tex[0].h = 256;
    SetFixedText(m.name, kMaterialName);
    return m;
  }

  // The dynamic variables: the time speed, the scaffolding's, and one per
  // user variable. A user variable's dynamic variable holds its position
  // 0..1 (varmin 0, varmax 1) and carries the variable's minimum and
  // maximum as the range the host's controller shows.
  void DeclareDynVars() {
    dynvars_.Clear();
    time_speed_ = dynvars_.DeclareFloat(kTimeVar, kTimeSpeedMin, kTimeSpeedMax, 1.0f, kTimeSpeedMin, kTimeSpeedMax, 0);
    scene_.DeclareInsertFxVars(dynvars_);
    scene_.DeclareCameraVars(dynvars_);
    positions_.clear();
    for (const UserVariable& v : settings_.programs.vars)
      positions_.push_back(dynvars_.DeclareFloat(v.name.c_str(), 0.0f, 1.0f, v.position, v.minimum, v.maximum, 0));
    if (host_context_) host_context_->PublishDynVars(dynvars_.Head());
  }

  // After a load or an edit: recompile, re-declare the variables (the list
  // may have changed) and store it all.
  void AfterProgramsChanged() {
    Recompile();
    DeclareDynVars();
    if (orrery::ConfigStore* store = host_context_ ? host_context_->GetConfigStore() : nullptr) WriteConfig(*store);
  }

  std::vector<float> CurrentPositions() const {
    std::vector<float> now;
    for (size_t k = 0; k < settings_.programs.vars.size(); ++k) {
      const float* p = k < positions_.size() ? positions_[k] : nullptr;
      now.push_back(p && std::isfinite(*p) ? std::clamp(*p, 0.0f, 1.0f) : settings_.programs.vars[k].position);
    }
    return now;
  }

  // Compiles the programs with the user variables where they stand now and
  // prepares the block evaluators. A failing program leaves the evaluators
  // of the last good compile, so the last good surface goes on showing.
  void Recompile() {
    compiled_positions_ = CurrentPositions();
    CompiledPrograms compiled = CompilePrograms(settings_.programs, compiled_positions_);
    compile_error_ = compiled.ErrorText();
    if (!compiled.Ok()) return;
    compiled_ = std::make_unique<CompiledPrograms>(std::move(compiled));
    sampler_ = std::make_unique<FieldSampler>(compiled_->program[kFunProgram], settings_.volume.grid);
    points_ = std::make_unique<PointPrograms>(*compiled_);
  }

  void BuildMesh(float t) {
    if (CurrentPositions() != compiled_positions_) Recompile();
    if (!compile_error_.empty() || !sampler_) return;  // keep the last good surface
    const Box box = settings_.volume.AsBox();
    sampler_->Sample(t, box, field_);
    ExtractSurface(field_, sampler_->Side(), box, settings_.volume.closed != 0, &surface_);
    points_->Apply(t, surface_, uvs_);
    AssembleVertices(surface_, points_->HasTexture() ? &uvs_ : nullptr, box, kWorldSide, vertices_);
    triangles_ = surface_.triangles;
    mesh_built_ = true;
    mem_size_ = int32_t(std::min<size_t>(INT32_MAX, sizeof(CImplicitBeastDfx) + field_.capacity() * sizeof(float) +
                                                        vertices_.capacity() * sizeof(nb3D::Vertex) +
                                                        surface_.positions.capacity() * 2 * sizeof(float) +
                                                        triangles_.capacity() * 2 * sizeof(uint32_t)));
  }

  std::string Export3DS(const std::string& path) {
    std::lock_guard lock(lock_);
    ExportMesh mesh;
    mesh.name = "Implicit";
    for (const nb3D::Vertex& v : vertices_) {
      mesh.positions.insert(mesh.positions.end(), {v.x, v.y, v.z});
      mesh.uvs.insert(mesh.uvs.end(), {v.u, v.v});
    }
    mesh.triangles = triangles_;
    return ExportScene3DS(path.c_str(), engine_ != nullptr && mesh_built_, kMaterialName, materials_.GetMaterial(0),
                          {&mesh, 1}, drawn_camera_);
  }

  // A file replaces the programs only when it reads and compiles whole.
  std::string LoadProgramFile(const std::string& path) {
    std::lock_guard lock(lock_);
    ProgramSet loaded;
    std::string error = ReadProgramFile(path, loaded);
    if (!error.empty()) return error;
    error = CompilePrograms(loaded, {}).ErrorText();
    if (!error.empty()) return error;
    settings_.programs = std::move(loaded);
    AfterProgramsChanged();
    return "";
  }

  std::string SaveProgramFile(const std::string& path) {
    std::lock_guard lock(lock_);
    return WriteProgramFile(path, settings_.programs);
  }

  static int32_t Report(const std::string& error, std::string* message) {
    if (error.empty()) return 1;
    if (message) *message = error;
    return 0;
  }
  static int32_t LoadProgram(void* user, const char* path, std::string* message) {
    return Report(static_cast<CImplicitBeastDfx*>(user)->LoadProgramFile(path ? path : ""), message);
  }
  static int32_t SaveProgram(void* user, const char* path, std::string* message) {
    return Report(static_cast<CImplicitBeastDfx*>(user)->SaveProgramFile(path ? path : ""), message);
  }
  static int32_t Save3DS(void* user, const char* path, std::string* message) {
    return Report(static_cast<CImplicitBeastDfx*>(user)->Export3DS(path ? path : ""), message);
  }

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

  ImplicitSettings settings_;
  Scene3D scene_;
  nbMatManager materials_;
  DynVarList dynvars_;
  float* time_speed_ = nullptr;
  std::vector<float*> positions_;

  std::unique_ptr<CompiledPrograms> compiled_;
  std::vector<float> compiled_positions_;
  std::string compile_error_;
  std::unique_ptr<FieldSampler> sampler_;
  std::unique_ptr<PointPrograms> points_;

  std::vector<float> field_;
  IsoMesh surface_;
  std::vector<float> uvs_;
  std::vector<nb3D::Vertex> vertices_;
  std::vector<uint32_t> triangles_;
  SceneCamera drawn_camera_;
  bool mesh_built_ = false;
};

}  // namespace

orrery::Effect* NewImplicitBeast() { return CreateEffect<CImplicitBeastDfx>(); }

}  // namespace nimbo
