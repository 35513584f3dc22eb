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
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "core/labels.h"
#include "core/platform.h"
#include "core/registry.h"
#include "implicit_field.h"
#include "implicit_mesh.h"
#include "implicit_programs.h"
#include "implicit_settings.h"
#include "orrery/services.h"
#include "program_editor.h"
#include "program_file.h"
#include "render3d/scene_effect.h"

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

constexpr const char* kMaterialName = "impmat";
constexpr const char* kRenderError = "CImplicitBeastDfx::Render Error";
constexpr const char* kHelpPage = "helpfile/Effects/3D/ImplicitBeast/ImplicitBeast.htm";
constexpr float kWorldSide = 100.0f;

constexpr SceneVar kTimeVar = {"ImplicitBeast time (1.0 = realtime)", -4.0f, 4.0f, 1.0f};

// Input 0 the background, 1 and 2 the material's texture inputs: the layout's defaults.
constexpr SceneEffectLayout kLayout = {
    .render_error = kRenderError, .material_name = kMaterialName, .mesh_name = "Implicit"};

class CImplicitBeastDfx final : public CSceneEffect {
 public:
  CImplicitBeastDfx()
      : CSceneEffect(kInfo, kLabelImplicitBeast, kHelpPage, sizeof(CImplicitBeastDfx), kLayout) {
    materials_.LoadMaterial(0, LightMapMaterial(kMaterialName));
    orrery::RegisterEffectAction(this, "load-program",
                                 "Load program...: replaces the programs and user variables with a program file "
                                 "(plain text; refused whole when it does not compile)",
                                 &LoadProgram, this);
    orrery::RegisterEffectAction(this, "save-program",
                                 "Save program...: writes the programs and user variables as a plain-text file",
                                 &SaveProgram, this);
    RegisterSave3DS("Save as 3DS...: writes the surface and camera last drawn");
    std::lock_guard lock(lock_);
    Recompile();
  }

 protected:
  void ReadOwnSettings(orrery::ConfigStore& store) override { ReadImplicitSettings(store, settings_); }
  void WriteOwnSettings(orrery::ConfigStore& store) override { WriteImplicitSettings(store, settings_); }
  void DescribeOwnSettings() override { DescribeImplicitSettings(host_context_); }
  void SettingsRead(orrery::ConfigStore&) override {
    Recompile();
    ReportCompileError();
  }

  float TimeSpeed() override { return VarValue(time_speed_, kTimeVar); }

  // The program editor, then (on OK) the material editor.
  int32_t RunDialog() override {
    return RunSceneDialog(
        settings_, true,
        [this](ImplicitSettings& edit, SceneSettings& scene) {
          ProgramEditor editor(edit, scene, [this](const ProgramSet& set) {
            std::lock_guard lock(lock_);
            return CompilePrograms(set, {});
          });
          editor.SetExport3DS([this](const std::string& path) { return Export3DS(path); });
          if (!editor.Run(HelpPage())) return false;
          edit = editor.Result();
          scene = editor.SceneResult();
          return true;
        },
        [this](const ImplicitSettings& edit) {
          settings_ = edit;
          AfterProgramsChanged();
        });
  }

  // The time speed, the scaffolding's, and one per user variable. A user
  // variable's dynamic variable holds its position 0..1 (varmin 0, varmax
  // 1) and carries the variable's minimum and maximum as the range the
  // host's controller shows.
  void DeclareDynVars() override {
    time_speed_ = DeclareVar(kTimeVar);
    CSceneEffect::DeclareDynVars();
    positions_.clear();
    for (const UserVariable& v : settings_.programs.vars)
      positions_.push_back(dynvars_.DeclareFloat(v.name.c_str(), 0.0f, 1.0f, v.position, v.minimum, v.maximum, 0));
  }

  // FUN on the grid and its surface, then the point programs; while a
  // program fails the last good surface stays.
  void BuildFrame(float t, const orrery::InputList&) override {
    if (PositionsMoved()) Recompile();
    if (!compile_error_.empty() || !sampler_) return;  // keep the last good surface
    const Box box = settings_.volume.AsBox();
    sampler_->Sample(t, box, field_);
    ExtractSurface(field_, sampler_->Side(), box, settings_.volume.closed != 0, &surface_);
    points_->Apply(t, surface_, uvs_);
    AssembleVertices(surface_, points_->HasTexture() ? &uvs_ : nullptr, box, kWorldSide, vertices_);
    triangles_ = surface_.triangles;
    mesh_built_ = true;
    SetMemorySize(sizeof(CImplicitBeastDfx) + SurfaceBytes(field_, surface_));
  }

 private:
  // After a load or an edit: recompile, re-declare the variables (the list
  // may have changed) and store it all.
  void AfterProgramsChanged() {
    Recompile();
    PublishDynVars();
    StoreConfig();
  }

  // User variable k's position now: its dynamic variable's, else its initial one.
  float PositionOf(size_t k) const {
    const float* p = k < positions_.size() ? positions_[k] : nullptr;
    return p && std::isfinite(*p) ? std::clamp(*p, 0.0f, 1.0f) : settings_.programs.vars[k].position;
  }
  std::vector<float> CurrentPositions() const {
    std::vector<float> now;
    for (size_t k = 0; k < settings_.programs.vars.size(); ++k) now.push_back(PositionOf(k));
    return now;
  }
  // Checked every frame, so without building a list.
  bool PositionsMoved() const {
    if (compiled_positions_.size() != settings_.programs.vars.size()) return true;
    for (size_t k = 0; k < compiled_positions_.size(); ++k)
      if (PositionOf(k) != compiled_positions_[k]) return true;
    return false;
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

  // Programs that came from settings, not through the editor (which shows
  // the failing line itself), leave the last good surface while one fails:
  // say which, once until the fault changes.
  void ReportCompileError() {
    if (compile_error_ == reported_error_) return;
    reported_error_ = compile_error_;
    if (!compile_error_.empty())
      platform::ShowError("ImplicitBeast", (compile_error_ + " The surface is not rebuilt until it is mended.").c_str());
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

  ImplicitSettings settings_;
  float* time_speed_ = nullptr;
  std::vector<float*> positions_;

  std::unique_ptr<CompiledPrograms> compiled_;
  std::vector<float> compiled_positions_;
  std::string compile_error_;
  std::string reported_error_;  // the compile fault last shown
  std::unique_ptr<FieldSampler> sampler_;
  std::unique_ptr<PointPrograms> points_;

  std::vector<float> field_;
  IsoMesh surface_;
  std::vector<float> uvs_;
};

}  // namespace

orrery::Effect* NewImplicitBeast() { return CreateEffect<CImplicitBeastDfx>(); }

}  // namespace nimbo
