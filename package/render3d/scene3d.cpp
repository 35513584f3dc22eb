#include "render3d/scene3d.h"

#include <algorithm>
#include <cmath>

#include "core/settings_table.h"
#include "render3d/screen_texture.h"

namespace nimbo {
namespace {

constexpr float kDegrees = float(M_PI / 180.0);

constexpr DialogView kBackgroundChoice{.as = ShowAs::kChoice, .choices = "colour|Background input|transparent"};
constexpr DialogView kColorView{.as = ShowAs::kColor, .enabled_by = "bgtype", .enabled_value = kBackgroundColor};
constexpr SettingRow<SceneSettings> kSceneRows[] = {
    {"bgtype", &SceneSettings::bgtype, kBackgroundColor, nullptr, 0, 2, "Background",
     "0 = a colour, 1 = the Background input, 2 = transparent (for layering)", false, kBackgroundChoice},
    {"bgcolor", &SceneSettings::bgcolor, 0x000000, nullptr, 0, 0xFFFFFF, "Background colour",
     "background colour 0xRRGGBB (with background type 0)", false, kColorView},
    {"insertfx", &SceneSettings::insertfx, 0, nullptr, 0, 1, "Insert FX",
     "draw the Background input as a picture inside the scene (Insert FX: position, size)"},
};

// The camera variables: name, range, start value. Angles in degrees.
struct CameraVar {
  const char* name;
  float minimum, maximum, initial;
};
constexpr CameraVar kCameraVars[5] = {
    {"Camera: orbit angle", -180.0f, 180.0f, 0.0f},
    {"Camera: distance", 0.1f, 4.0f, 1.0f},
    {"Camera: height", -200.0f, 200.0f, 0.0f},
    {"Camera: roll", -180.0f, 180.0f, 0.0f},
    {"Camera: zoom", 0.1f, 10.0f, 1.0f},
};
enum { kOrbit, kDistance, kHeight, kRoll, kZoom };

constexpr CameraVar kInsertVars[4] = {
    {"Insert FX: position x", -200.0f, 200.0f, 0.0f},
    {"Insert FX: position y", -200.0f, 200.0f, 0.0f},
    {"Insert FX: position z", -200.0f, 200.0f, 0.0f},
    {"Insert FX: size", 0.0f, 400.0f, 50.0f},
};

constexpr const char* kBackgroundTexture = "scene_background";
constexpr const char* kInsertTexture = "scene_insertfx";

const orrery::Screen* InputAt(const orrery::InputList& inputs, int32_t index) {
  if (index < 0 || index >= inputs.count || !inputs.screens) return nullptr;
  const orrery::Screen* s = inputs.screens[index];
  return s && s->pixels && s->width > 0 && s->height > 0 ? s : nullptr;
}

void Normalize(float v[3]) {
  const float length = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
  if (length > 0) v[0] /= length, v[1] /= length, v[2] /= length;
}

void Cross(const float a[3], const float b[3], float out[3]) {
  out[0] = a[1] * b[2] - a[2] * b[1];
  out[1] = a[2] * b[0] - a[0] * b[2];
  out[2] = a[0] * b[1] - a[1] * b[0];
}

}  // namespace

// ---- settings ----------------------------------------------------------------------
void Scene3D::ReadSettings(orrery::ConfigStore& store) { ReadRows<SceneSettings>(store, kSceneRows, settings_); }
void Scene3D::WriteSettings(orrery::ConfigStore& store) const { WriteRows<SceneSettings>(store, kSceneRows, settings_); }
void Scene3D::DescribeSettings(orrery::HostContext* context) const { DescribeRows<SceneSettings>(context, kSceneRows); }

std::span<const SettingRow<SceneSettings>> Scene3D::SettingRows() { return kSceneRows; }

std::vector<orrery::DialogField> Scene3D::DialogFields(SceneSettings& edit, int32_t first_index) {
  std::vector<orrery::DialogField> fields;
  for (const SettingRow<SceneSettings>& row : kSceneRows) {
    int32_t* value = &(edit.*std::get<int32_t SceneSettings::*>(row.field));
    orrery::DialogField field{row.label, orrery::DialogFieldType::kBool, value, row.minimum, row.maximum, nullptr,
                              row.help};
    if (row.view.as == ShowAs::kChoice) field.type = orrery::DialogFieldType::kChoice, field.choices = row.view.choices;
    if (row.view.as == ShowAs::kColor) field.type = orrery::DialogFieldType::kColor;
    if (row.view.enabled_by) field.enabled_by = first_index, field.enabled_value = row.view.enabled_value;
    fields.push_back(field);
  }
  return fields;
}

// ---- dynamic variables -------------------------------------------------------------
void Scene3D::DeclareInsertFxVars(DynVarList& list) {
  for (int i = 0; i < 4; ++i) {
    const CameraVar& v = kInsertVars[i];
    insert_vars_[i] = list.DeclareFloat(v.name, v.minimum, v.maximum, v.initial, v.minimum, v.maximum, 0);
  }
}

void Scene3D::DeclareCameraVars(DynVarList& list) {
  for (int i = 0; i < 5; ++i) {
    const CameraVar& v = kCameraVars[i];
    camera_vars_[i] = list.DeclareFloat(v.name, v.minimum, v.maximum, v.initial, v.minimum, v.maximum, 0);
  }
}

// ---- clock -------------------------------------------------------------------------
void Scene3D::ResetClock() {
  clock_started_ = false;
  time_ = 0;
}

float Scene3D::Advance(orrery::HostContext* context, float speed) {
  const int64_t now = context ? context->GetTimeMs() : 0;
  if (!clock_started_ || now < last_ms_) {
    // The first frame, or the host went back in time (a seek): start again.
    clock_started_ = true;
    time_ = 0;
  } else if (std::isfinite(speed)) {
    time_ += float(double(now - last_ms_) / 1000.0) * speed;
  }
  last_ms_ = now;
  return time_;
}

// ---- camera ------------------------------------------------------------------------
SceneCamera Scene3D::ControlledCamera(const SceneCamera& own) const {
  SceneCamera c = own;
  if (!camera_vars_[0]) return c;
  auto value = [&](int i) {
    const float v = *camera_vars_[i];
    return std::isfinite(v) ? std::clamp(v, kCameraVars[i].minimum, kCameraVars[i].maximum) : kCameraVars[i].initial;
  };
  // Orbit and distance act on the offset from the target, so the camera
  // keeps looking at what the effect aimed it at.
  float d[3] = {c.position[0] - c.target[0], c.position[1] - c.target[1], c.position[2] - c.target[2]};
  const float angle = value(kOrbit) * kDegrees;
  const float cs = std::cos(angle), sn = std::sin(angle);
  const float x = d[0] * cs - d[2] * sn;
  const float z = d[0] * sn + d[2] * cs;
  const float scale = value(kDistance);
  c.position[0] = c.target[0] + x * scale;
  c.position[1] = c.target[1] + d[1] * scale + value(kHeight);
  c.position[2] = c.target[2] + z * scale;
  c.roll += value(kRoll) * kDegrees;
  c.zoom *= value(kZoom);
  return c;
}

// ---- a frame -----------------------------------------------------------------------
bool Scene3D::BeginFrame(nb3D* engine, const orrery::InputList& inputs, int32_t width, int32_t height) {
  if (!engine || width <= 0 || height <= 0) return false;
  engine->SetOutputSize(width, height);
  const bool transparent = settings_.bgtype == kBackgroundTransparent;
  const uint32_t color = transparent ? 0u : 0xFF000000u | (uint32_t(settings_.bgcolor) & 0xFFFFFFu);
  engine->SetBackground({settings_.bgtype == kBackgroundInput ? 0xFF000000u : color, nullptr});
  if (!engine->Begin()) return false;
  if (settings_.bgtype == kBackgroundInput) {
    // Stretched over the whole output, under everything the effect draws.
    const orrery::Screen* background = InputAt(inputs, background_input_);
    ScreenTexture texture;
    if (background && UploadScreenTexture(engine, kBackgroundTexture, *background, &texture)) {
      nb3D::Quad quad{};
      quad.x0 = -0.5f * float(width), quad.y0 = -0.5f * float(height);
      quad.x1 = 0.5f * float(width), quad.y1 = 0.5f * float(height);
      quad.u1 = texture.u_scale, quad.v1 = texture.v_scale;
      quad.texture = kBackgroundTexture;
      engine->DrawQuad(quad);
    }
  }
  return true;
}

void Scene3D::SetCamera(nb3D* engine, const SceneCamera& camera) {
  last_camera_ = camera;
  if (!engine) return;
  nb3D::Camera c{};
  std::copy(camera.position, camera.position + 3, c.position);
  std::copy(camera.target, camera.target + 3, c.target);
  c.roll = camera.roll;
  c.zoom = camera.zoom > 0 ? camera.zoom : 1.0f;
  engine->SetCamera(c);
  engine->SetProjection({kSceneFovDegrees, 1.0f, 10000.0f});
}

void Scene3D::DrawInsertFx(nb3D* engine, const orrery::InputList& inputs) {
  if (!engine || !settings_.insertfx || !insert_vars_[0]) return;
  const orrery::Screen* picture = InputAt(inputs, background_input_);
  ScreenTexture texture;
  if (!picture || !UploadScreenTexture(engine, kInsertTexture, *picture, &texture)) return;
  float at[3], size = *insert_vars_[3];
  for (int i = 0; i < 3; ++i) at[i] = *insert_vars_[i];
  if (!std::isfinite(at[0]) || !std::isfinite(at[1]) || !std::isfinite(at[2]) || !std::isfinite(size) || size <= 0)
    return;

  // A picture facing the camera, upright as the camera sees it.
  const SceneCamera& cam = last_camera_;
  float forward[3] = {cam.target[0] - cam.position[0], cam.target[1] - cam.position[1], cam.target[2] - cam.position[2]};
  Normalize(forward);
  const float world_up[3] = {0, 1, 0};
  float right[3], up[3];
  Cross(forward, world_up, right);
  if (right[0] * right[0] + right[1] * right[1] + right[2] * right[2] < 1e-12f) right[0] = 1, right[1] = right[2] = 0;
  Normalize(right);
  Cross(right, forward, up);
  const float cr = std::cos(cam.roll), sr = std::sin(cam.roll);
  float r[3], u[3];
  for (int i = 0; i < 3; ++i) {
    r[i] = right[i] * cr + up[i] * sr;
    u[i] = up[i] * cr - right[i] * sr;
  }
  const float half_w = 0.5f * size;
  const float half_h = half_w * float(picture->height) / float(picture->width);
  nb3D::Vertex v[4]{};
  const float corner[4][2] = {{-1, 1}, {-1, -1}, {1, -1}, {1, 1}};  // counter-clockwise as seen
  for (int k = 0; k < 4; ++k) {
    for (int i = 0; i < 3; ++i) (&v[k].x)[i] = at[i] + r[i] * half_w * corner[k][0] + u[i] * half_h * corner[k][1];
    v[k].nx = -forward[0], v[k].ny = -forward[1], v[k].nz = -forward[2];
    v[k].u = v[k].u2 = corner[k][0] < 0 ? 0.0f : texture.u_scale;
    v[k].v = v[k].v2 = corner[k][1] > 0 ? 0.0f : texture.v_scale;
  }
  static const uint32_t kIndices[6] = {0, 1, 2, 0, 2, 3};
  nb3D::Mesh mesh{};
  mesh.vertices = v;
  mesh.vertex_count = 4;
  mesh.indices = kIndices;
  mesh.index_count = 6;
  mesh.texture = kInsertTexture;
  mesh.flags = nb3D::kFlagTwoSided;
  engine->DrawMesh(mesh);
}

int32_t Scene3D::EndFrame(nb3D* engine, orrery::Screen* output) {
  if (!engine) return 0;
  const int32_t ok = output ? engine->Present(output) : 0;
  engine->End();
  return ok;
}

void Scene3D::Free(nb3D* engine) {
  if (!engine) return;
  engine->DeleteTexture(kBackgroundTexture);
  engine->DeleteTexture(kInsertTexture);
}

}  // namespace nimbo
