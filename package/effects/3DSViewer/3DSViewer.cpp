// 3DSViewer: plays a 3D Studio (.3ds) scene: its meshes with their
// materials (pictures named in the scene, or the eight "RGB Texture"
// inputs), its node hierarchy and keyframe animation, seen through the
// scene's first camera or the effect's own, lit by the scene's lights.
//
// Files: viewer_scene.* (playback frame, posing, triangle batches, cameras),
// viewer_materials.* (which texture or colour each material wears),
// viewer_lights.* (the scene's lights through the engine's one light).
//
// Inputs: 0 "Background" (the scaffolding's background and Insert FX),
// 1..8 "RGB Texture" (materials with their "texinputs" bit set).
//
// Per frame: background; texture inputs into their textures; t advanced by
// the host clock times "Playback speed"; the keyframer frame 30 * t from the
// scene's start (looped or held); every object posed at it
// (C3DSScene::SetFrame); the visible meshes drawn per material through the
// scene's camera or the framing one, both moved by the camera variables.
//
// The scene file is the "path" setting (a path value, so a preset names its
// scene); "load-3ds" loads one and stores its path. A stored scene that
// cannot be read asks the user to relocate it.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <cmath>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "core/labels.h"
#include "core/registry.h"
#include "core/settings_table.h"
#include "orrery/services.h"
#include "render3d/scene_effect.h"
#include "viewer_lights.h"
#include "viewer_materials.h"
#include "viewer_scene.h"

namespace nimbo {
namespace {

using viewer3ds::DrawBatch;
using viewer3ds::ViewCamera;
using viewer3ds::ViewerScene;

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "Background"}, {-1, -1, "RGB Texture"}, {-1, -1, "RGB Texture"}, {-1, -1, "RGB Texture"}, {-1, -1, "RGB Texture"}, {-1, -1, "RGB Texture"}, {-1, -1, "RGB Texture"}, {-1, -1, "RGB Texture"}, {-1, -1, "RGB Texture"}};
constexpr orrery::EffectInfo kInfo = {kInputs, 9, {-1, -1}, "output", "nimbo one\\3D Effect\\3DSViewer", kAuthor,
                                      "Effect,3D,", 0x016691D868689F7Aull, orrery::kEffectVersion};

constexpr const char* kRenderError = "C3DSViewerDfx::Render Error";
constexpr const char* kHelpPage = "helpfile/Effects/3D/3DSViewer/3DSViewer.htm";

// The user-visible messages about scene files.
constexpr const char* kCannotOpen = "couldn't open 3ds-file!";
constexpr const char* kCannotFind = "Couldn't find .3ds-file '%s' or illegal file.\nRelocate file manually?";
constexpr const char* kCaption = "3DSViewer";

// ---- settings ---------------------------------------------------------------------
struct ViewerSettings {
  std::string path;
  int32_t scenecam;
  int32_t loop;
  int32_t lighting;
  int32_t texinputs;
  int32_t texsize;
  int32_t twosided;
};

constexpr DialogView kCameraChoice{.as = ShowAs::kChoice, .choices = "own camera framing the scene|the scene's camera"};
constexpr DialogView kLightingChoice{.as = ShowAs::kChoice, .choices = "none|light from the camera|the scene's lights"};
constexpr DialogView kInputsView{.hint = "bit k-1 set: the scene's material k shows input ((k-1) mod 8)+1"};
constexpr SettingRow<ViewerSettings> kRows[] = {
    {"path", &ViewerSettings::path, 0, "", 0, 0, "3ds-file", "the .3ds scene shown", true},
    {"scenecam", &ViewerSettings::scenecam, 1, nullptr, 0, 1, "Camera",
     "1 = the scene's first camera with its animation (the own camera when the scene has none), "
     "0 = the effect's own camera framing the scene",
     false, kCameraChoice},
    {"loop", &ViewerSettings::loop, 1, nullptr, 0, 1, "Loop", "1 = the animation starts over after its last frame"},
    {"lighting", &ViewerSettings::lighting, viewer3ds::kLightingScene, nullptr, 0, 2, "Lighting",
     "0 = none, 1 = a light from the camera, 2 = the scene's lights (from the camera when it has none)", false,
     kLightingChoice},
    {"texinputs", &ViewerSettings::texinputs, 0, nullptr, 0, 255, "Texture inputs",
     "bit mask: bit k-1 set makes the scene's material k (file order) show input ((k-1) mod 8)+1 instead of its "
     "picture; 255 = every material",
     false, kInputsView},
    {"texsize", &ViewerSettings::texsize, 256, nullptr, 16, 1024, "Texture size",
     "side in pixels of the pictures and input textures"},
    {"twosided", &ViewerSettings::twosided, 1, nullptr, 0, 1, "Two-sided",
     "1 = every face shows from both sides, 0 = only two-sided materials do"},
};

constexpr SceneVar kSpeedVar = {"Playback speed", -4.0f, 4.0f, 1.0f};

// The texture inputs keep their name "RGB Texture" whatever the scene's
// materials are called.
constexpr SceneEffectLayout kLayout = {
    .texture_inputs = viewer3ds::kTextureInputs, .material_names_inputs = false, .render_error = kRenderError};

uint32_t MultiplyColors(uint32_t a, uint32_t b) {
  uint32_t out = 0xFF000000u;
  for (int shift = 0; shift < 24; shift += 8) out |= (((a >> shift) & 255u) * ((b >> shift) & 255u) / 255u) << shift;
  return out;
}

class C3DSViewerDfx final : public CTableSceneEffect<ViewerSettings> {
 public:
  C3DSViewerDfx()
      : CTableSceneEffect(kInfo, kLabelScene3DSViewer, kHelpPage, sizeof(C3DSViewerDfx), kLayout, kRows,
                          "3DSViewer"),
        viewer_(std::make_unique<ViewerScene>()) {
    edits_material_ = false;  // the materials are the scene's
    viewer3ds::PinInputSlots(materials_);
    orrery::RegisterEffectAction(this, "load-3ds", "Load 3DS...: shows a .3ds scene and stores its path", &Load3DS,
                                 this);
  }

 protected:
  // The scene's materials, built from the scene (none of their keys are
  // stored).
  void BuildEngineResources() override { RebuildMaterials(); }
  void EngineStopping() override { materials_dirty_ = true; }
  void ReadMaterialSettings(orrery::ConfigStore&) override {}
  void WriteMaterialSettings(orrery::ConfigStore&) override {}

  void ReadOwnSettings(orrery::ConfigStore& store) override {
    CTableSceneEffect::ReadOwnSettings(store);
    settings_.texsize = std::clamp(settings_.texsize, 16, 1024);
  }
  // A scene found in another place, or relocated by the user, is stored
  // with its new path.
  void SettingsRead(orrery::ConfigStore& store) override {
    materials_dirty_ = true;
    const std::string stored = settings_.path;
    LoadStoredScene();
    if (settings_.path != stored) WriteConfig(store);
  }
  // A path chosen in the dialog loads that scene (the path is stored only
  // when it loads); an empty one shows none.
  void ApplyDialogSettings(const ViewerSettings& edit) override {
    const std::string chosen = edit.path;
    const std::string shown = settings_.path;
    settings_ = edit;
    settings_.path = shown;
    materials_dirty_ = true;
    if (chosen != settings_.path && !chosen.empty()) {
      std::string message;
      if (!LoadScene(chosen, &message)) platform::ShowError(kCaption, message.c_str());
    } else if (chosen.empty()) {
      settings_.path.clear();
      viewer_->Clear();
    }
  }

  void DeclareDynVars() override {
    speed_ = DeclareVar(kSpeedVar);
    CSceneEffect::DeclareDynVars();
  }

  void PrepareFrame() override {
    if (materials_dirty_) RebuildMaterials();
  }
  float TimeSpeed() override { return VarValue(speed_, kSpeedVar); }

  // The scene posed at t, seen through its camera or the framing one (that
  // depends on the pose), near and far planes around it, drawn per material.
  void DrawScene(const orrery::InputList& inputs, float t) override {
    const scene3ds::C3DSScene& s = viewer_->Scene();
    if (viewer_->Loaded()) {
      viewer_->Pose(viewer3ds::PlaybackFrame(s.StartFrame(), s.EndFrame(), t, settings_.loop != 0));
      viewer_->BuildBatches(&batches_);
    } else {
      batches_.clear();
    }
    const ViewCamera view = CameraForFrame();
    drawn_camera_ = scene_.ControlledCamera(view.camera);
    scene_.SetCamera(engine_, drawn_camera_);
    engine_->SetProjection(ProjectionFor(drawn_camera_, view.fov_y_degrees));
    scene_.DrawInsertFx(engine_, inputs);
    DrawBatches(drawn_camera_);
    UpdateMemorySize();
  }

 private:
  // ---- scene files ----
  // Loads `path` in place of the current scene; on failure the current one
  // stays and *message holds what to tell the user.
  bool LoadScene(const std::string& path, std::string* message) {
    auto loaded = std::make_unique<ViewerScene>();
    if (path.empty() || loaded->Load(path) != 0) {
      if (message) *message = kCannotOpen;
      if (engine_ && !path.empty()) engine_->ErrorReport(scene3ds::C3DSScene::GetErrorText(loaded->Scene().GetError()));
      return false;
    }
    viewer_ = std::move(loaded);
    std::error_code ec;
    const std::filesystem::path absolute = std::filesystem::absolute(path, ec);
    settings_.path = ec ? path : absolute.lexically_normal().string();
    attempted_path_ = settings_.path;
    materials_dirty_ = true;
    scene_.ResetClock();
    return true;
  }

  // The scene the settings name, once per stored path: at its stored place,
  // else by its file name in the host's recent and plug-ins folders (a
  // preset made on another machine); else the user is asked to relocate it.
  void LoadStoredScene() {
    if (settings_.path == attempted_path_) return;
    attempted_path_ = settings_.path;
    if (settings_.path.empty()) {
      viewer_->Clear();
      return;
    }
    for (const std::string& candidate : StoredPathCandidates(settings_.path)) {
      if (LoadScene(candidate, nullptr)) return;
    }
    viewer_->Clear();
    std::vector<char> text(std::strlen(kCannotFind) + settings_.path.size() + 1);
    std::snprintf(text.data(), text.size(), kCannotFind, settings_.path.c_str());
    platform::ShowWarning(kCaption, text.data());
    Relocate();
  }

  static std::vector<std::string> StoredPathCandidates(const std::string& stored) {
    std::vector<std::string> candidates{stored};
    const size_t cut = stored.find_last_of("/\\");
    const std::string name = cut == std::string::npos ? stored : stored.substr(cut + 1);
    if (orrery::CSettingsManager* settings = orrery::GetSettingsManager(); settings && !name.empty()) {
      for (const std::string& folder : {settings->GetRecentPath(), settings->GetPluginsPath()})
        if (!folder.empty()) candidates.push_back(platform::JoinPath(folder, name));
    }
    return candidates;
  }

  // The answer to the relocation question: a file chooser; Cancel keeps the
  // effect without a scene (and the stored path as it was).
  void Relocate() {
    orrery::DialogService* service = orrery::GetDialogService();
    if (!service) return;
    std::string chosen = settings_.path;
    const orrery::DialogField field{"3ds-file", orrery::DialogFieldType::kPath, &chosen, 0, 0, nullptr,
                                    "where the scene is now"};
    const orrery::DialogModel model{"Relocate 3ds-file", &field, 1, HelpPage(), platform::MainWindow()};
    if (!service->RunModal(model) || chosen.empty() || chosen == settings_.path) return;
    std::string message;
    if (!LoadScene(chosen, &message)) platform::ShowError(kCaption, message.c_str());
  }

  static int32_t Load3DS(void* user, const char* path, std::string* message) {
    auto* self = static_cast<C3DSViewerDfx*>(user);
    std::lock_guard lock(self->lock_);
    if (!self->LoadScene(path ? path : "", message)) return 0;
    if (orrery::ConfigStore* store = self->host_context_ ? self->host_context_->GetConfigStore() : nullptr)
      self->WriteConfig(*store);
    return 1;
  }

  // ---- drawing ----
  void RebuildMaterials() {
    materials_dirty_ = false;
    if (!engine_) return;
    viewer3ds::BuildMaterials(materials_, viewer_->Scene(), uint32_t(settings_.texinputs) & 0xFFu,
                              std::clamp(settings_.texsize, 16, 1024));
  }

  ViewCamera CameraForFrame() const {
    ViewCamera view;
    const float aspect = float(out_w_) / float(out_h_);
    if (settings_.scenecam && viewer_->SceneCameraAt(aspect, &view)) return view;
    return viewer_->FramingCamera();
  }

  // Near and far planes around what the scene covers, seen from `camera`.
  nb3D::Projection ProjectionFor(const SceneCamera& camera, float fov_y) const {
    const viewer3ds::Bounds& b = viewer_->StartBounds();
    float centre[3];
    b.Centre(centre);
    const float dx = camera.position[0] - centre[0], dy = camera.position[1] - centre[1],
                dz = camera.position[2] - centre[2];
    const float reach = std::sqrt(dx * dx + dy * dy + dz * dz) + std::max(b.Radius(), 1.0f);
    const float far_plane = std::isfinite(reach) ? std::min(reach * 4.0f, 1e7f) : 1e4f;
    return {fov_y, far_plane * 1e-4f, far_plane};
  }

  void DrawBatches(const SceneCamera& camera) {
    if (batches_.empty()) return;
    const scene3ds::C3DSScene& s = viewer_->Scene();
    int32_t mode = settings_.lighting;
    std::vector<viewer3ds::PointLight> lights;
    uint32_t tint = 0xFFFFFFFFu;
    if (mode == viewer3ds::kLightingScene) {
      lights = viewer3ds::PosedLights(s);
      if (lights.empty()) mode = viewer3ds::kLightingCamera;
      else tint = viewer3ds::LightTint(s);
    }
    float to_camera[3] = {camera.position[0] - camera.target[0], camera.position[1] - camera.target[1],
                          camera.position[2] - camera.target[2]};
    const float length = std::sqrt(to_camera[0] * to_camera[0] + to_camera[1] * to_camera[1] + to_camera[2] * to_camera[2]);
    if (length > 0) for (float& c : to_camera) c /= length;
    else to_camera[2] = 1;
    const uint32_t mask = uint32_t(settings_.texinputs) & 0xFFu;
    for (DrawBatch& batch : batches_) {
      if (batch.indices.empty()) continue;
      const viewer3ds::MaterialLook look = viewer3ds::LookOf(materials_, s, batch.material, mask);
      if (look.scale_u != 1.0f || look.scale_v != 1.0f) {
        for (nb3D::Vertex& v : batch.vertices) v.u *= look.scale_u, v.v *= look.scale_v;
      }
      const uint32_t flags = look.flags | (settings_.twosided ? uint32_t(nb3D::kFlagTwoSided) : 0u);
      if (mode != viewer3ds::kLightingNone && (flags & nb3D::kFlagTwoSided))
        viewer3ds::NormalsTowards(camera.position, batch.vertices.data(), batch.vertices.size());
      if (mode == viewer3ds::kLightingScene)
        viewer3ds::EncodeSceneLight(lights, to_camera, batch.vertices.data(), batch.vertices.size());
      nb3D::Mesh mesh{};
      mesh.vertices = batch.vertices.data();
      mesh.vertex_count = int32_t(batch.vertices.size());
      mesh.indices = batch.indices.data();
      mesh.index_count = int32_t(batch.indices.size());
      mesh.texture = look.texture;
      mesh.flags = flags;
      mesh.color = MultiplyColors(look.color, tint);
      mesh.lit = mode == viewer3ds::kLightingNone ? 0 : 1;
      engine_->DrawMesh(mesh);
    }
  }

  void UpdateMemorySize() {
    size_t bytes = sizeof(C3DSViewerDfx);
    for (const DrawBatch& b : batches_)
      bytes += b.vertices.capacity() * sizeof(nb3D::Vertex) + b.indices.capacity() * sizeof(uint32_t);
    const scene3ds::C3DSScene& s = viewer_->Scene();
    bytes += s.Vertices().capacity() * sizeof(scene3ds::Vertex) + s.Faces().capacity() * sizeof(scene3ds::Face);
    SetMemorySize(bytes);
  }

  std::unique_ptr<ViewerScene> viewer_;
  std::string attempted_path_;  // the stored path last tried, so a failure is reported once
  bool materials_dirty_ = true;
  float* speed_ = nullptr;
  std::vector<DrawBatch> batches_;
};

}  // namespace

orrery::Effect* New3DSViewer() { return CreateEffect<C3DSViewerDfx>(); }

}  // namespace nimbo
