// The base of the 3D effects (see scene_effect.h).
#include "render3d/scene_effect.h"

#include <algorithm>
#include <climits>
#include <cmath>

#include "orrery/services.h"
#include "render3d/engine_loader.h"

namespace nimbo {

CSceneEffect::CSceneEffect(const orrery::EffectInfo& info, int32_t label_resource, const char* help_page,
                           int32_t object_size, const SceneEffectLayout& layout)
    : CEffectBase(info, label_resource, help_page, object_size),
      layout_(layout),
      scene_(layout.background_input),
      materials_(layout.texture_inputs, "") {}

CSceneEffect::~CSceneEffect() {
  orrery::UnregisterEffectActions(this);
  StopEngine();
}

// ---- 2. the interface ------------------------------------------------------------
const char* CSceneEffect::GetInputScreenName(int32_t index) {
  std::lock_guard lock(lock_);
  const int32_t k = index - layout_.first_texture_input;
  if (layout_.material_names_inputs && k >= 0 && k < layout_.texture_inputs) {
    if (const char* name = materials_.GetInputName(k)) return name;
  }
  return CEffectBase::GetInputScreenName(index);
}

int32_t CSceneEffect::SendEffectMessage(int32_t a, int32_t b) {
  std::lock_guard lock(lock_);
  if (engine_) engine_->Message(a, b);
  return 0;
}

// ---- 3. the engine object --------------------------------------------------------
int32_t CSceneEffect::Initialize() {
  std::lock_guard lock(lock_);
  FetchOutputSize();
  StopEngine();
  engine_ = CreateEngineObject(this);
  if (!engine_) return 0;
  if (OutputSizeKnown()) engine_->SetOutputSize(out_w_, out_h_);
  if (!engine_->Begin()) {
    StopEngine();  // no device: go on without an engine, as without a library
    return 0;
  }
  materials_.SetEngine(engine_);
  materials_.SetOutputSize(out_w_, out_h_);
  BuildEngineResources();
  engine_->End();
  EngineStarted();
  return 1;
}

void CSceneEffect::StopEngine() {
  EngineStopping();
  materials_.FreeAll();
  materials_.SetEngine(nullptr);
  if (engine_) {
    scene_.Free(engine_);
    engine_->Release();
  }
  engine_ = nullptr;
  mesh_built_ = false;
}

// ---- 4. a frame ------------------------------------------------------------------
int32_t CSceneEffect::Render(const orrery::InputList& inputs, orrery::Screen* output) {
  std::lock_guard lock(lock_);
  if (!OutputSizeKnown()) return 0;
  if (!engine_ || !scene_.BeginFrame(engine_, inputs, out_w_, out_h_)) {
    if (engine_) engine_->ErrorReport(layout_.render_error);
    return 0;
  }
  PrepareFrame();
  materials_.UpdateInputTextures(inputs, layout_.first_texture_input);
  const float t = scene_.Advance(host_context_, TimeSpeed());
  DrawScene(inputs, t);
  return scene_.EndFrame(engine_, output);
}

void CSceneEffect::DrawScene(const orrery::InputList& inputs, float t) {
  drawn_camera_ = scene_.ControlledCamera(OwnCamera(t));
  BuildFrame(t, inputs);
  scene_.SetCamera(engine_, drawn_camera_);
  scene_.DrawInsertFx(engine_, inputs);
  DrawFrame();
}

SceneCamera CSceneEffect::OwnCamera(float t) {
  (void)t;
  SceneCamera own;
  own.position[0] = 0, own.position[1] = 60, own.position[2] = 140;
  return own;
}

void CSceneEffect::DrawFrame() {
  if (!triangles_.empty()) DrawMaterialMesh(engine_, materials_, 0, vertices_, triangles_);
}

// ---- 5. settings -----------------------------------------------------------------
void CSceneEffect::ReadSettings(orrery::ConfigStore& store) {
  ReadOwnSettings(store);
  scene_.ReadSettings(store);
  ReadMaterialSettings(store);
  SettingsRead(store);
}

void CSceneEffect::WriteSettings(orrery::ConfigStore& store) {
  WriteOwnSettings(store);
  scene_.WriteSettings(store);
  WriteMaterialSettings(store);
}

void CSceneEffect::DeclareHostControls() {
  DescribeOwnSettings();
  scene_.DescribeSettings(host_context_);
  PublishDynVars();
}

void CSceneEffect::ReadMaterialSettings(orrery::ConfigStore& store) {
  materials_.LoadAll(store, "");
  materials_.BuildAll();
}

void CSceneEffect::WriteMaterialSettings(orrery::ConfigStore& store) { materials_.SaveAll(store, ""); }

void CSceneEffect::StoreConfig() {
  if (orrery::ConfigStore* store = host_context_ ? host_context_->GetConfigStore() : nullptr) WriteConfig(*store);
}

// ---- 6. dynamic variables --------------------------------------------------------
void CSceneEffect::PublishDynVars() {
  dynvars_.Clear();
  DeclareDynVars();
  if (host_context_) host_context_->PublishDynVars(dynvars_.Head());
}

void CSceneEffect::DeclareDynVars() {
  scene_.DeclareInsertFxVars(dynvars_);
  scene_.DeclareCameraVars(dynvars_);
}

float* CSceneEffect::DeclareVar(const SceneVar& var) {
  return dynvars_.DeclareFloat(var.name, var.minimum, var.maximum, var.initial, var.minimum, var.maximum, 0);
}

float CSceneEffect::VarValue(const float* value, const SceneVar& var) {
  return value && std::isfinite(*value) ? std::clamp(*value, var.minimum, var.maximum) : var.initial;
}

// ---- 7. "Save as 3DS..." ---------------------------------------------------------
void CSceneEffect::RegisterSave3DS(const char* description) {
  orrery::RegisterEffectAction(this, "save-3ds", description, &Save3DS, this);
}

std::string CSceneEffect::Export3DS(const std::string& path) {
  std::lock_guard lock(lock_);
  std::vector<ExportMesh> meshes;
  const bool drawn = engine_ != nullptr && ExportMeshes(meshes);
  return ExportScene3DS(path.c_str(), drawn, layout_.material_name, materials_.GetMaterial(0), meshes,
                        drawn_camera_);
}

bool CSceneEffect::ExportMeshes(std::vector<ExportMesh>& meshes) {
  if (!mesh_built_) return false;
  meshes.push_back(MeshOf(layout_.mesh_name, vertices_, triangles_));
  return true;
}

ExportMesh CSceneEffect::MeshOf(const char* name, std::span<const nb3D::Vertex> vertices,
                                std::span<const uint32_t> triangles) {
  ExportMesh mesh;
  mesh.name = name;
  mesh.positions.reserve(vertices.size() * 3);
  mesh.uvs.reserve(vertices.size() * 2);
  for (const nb3D::Vertex& v : vertices) {
    mesh.positions.insert(mesh.positions.end(), {v.x, v.y, v.z});
    mesh.uvs.insert(mesh.uvs.end(), {v.u, v.v});
  }
  mesh.triangles.assign(triangles.begin(), triangles.end());
  return mesh;
}

// ---- 8. materials and memory -----------------------------------------------------
Material CSceneEffect::LightMapMaterial(const char* name) {
  Material m = DefaultMaterial();
  m.tex[0].w = m.tex[0].h = 256;
  SetFixedText(m.name, name);
  return m;
}

void CSceneEffect::SetMemorySize(size_t bytes) { mem_size_ = int32_t(std::min<size_t>(INT32_MAX, bytes)); }

size_t CSceneEffect::SurfaceBytes(const std::vector<float>& field, const IsoMesh& surface) const {
  return field.capacity() * sizeof(float) + vertices_.capacity() * sizeof(nb3D::Vertex) +
         surface.positions.capacity() * 2 * sizeof(float) + triangles_.capacity() * 2 * sizeof(uint32_t);
}

int32_t CSceneEffect::Save3DS(void* user, const char* path, std::string* message) {
  const std::string error = static_cast<CSceneEffect*>(user)->Export3DS(path ? path : "");
  if (error.empty()) return 1;
  if (message) *message = error;
  return 0;
}

}  // namespace nimbo
