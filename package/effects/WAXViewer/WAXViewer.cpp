// WAXViewer: shows a WAX volume (input "WAX") in the 3D scene, as the
// surface where its density passes a threshold or as a cloud of points (one
// camera-facing quad per visible voxel), turned by dynamic variables and
// spinning with the clock.
//
// Files: wax_mesh.* (surface and points in model space, the colour palette).
// The surface comes from the package's isosurface extractor over the
// densities with the volume's border closed, so a body that touches the
// border is capped, never open.
//
// Colour ("colours"): 1 = the voxels' own colours, through a 64 x 64
// palette texture (4 bits per channel) lit from the camera; 0 = the
// material ("waxmat": its texture inputs or pictures, environment-mapped
// from the normals as Blob 3D does). The material's render flags
// (transparency, wireframe, two-sided) apply either way.
//
// Inputs: 0 "Background" (the scaffolding's background and Insert FX), 1
// "WAX" (asked for at 512 x 512; anything else shows nothing), 2 and 3 the
// material's texture inputs.
//
// Per frame: background, texture inputs, the volume read; the surface or
// points rebuilt only when the volume, the threshold or the display changed
// (points also when the view turned); the model turned by "Rotation x/y/z"
// plus "Spin speed" (degrees per second about y) times the clock; present.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "core/labels.h"
#include "core/registry.h"
#include "core/settings_table.h"
#include "render3d/scene_effect.h"
#include "render3d/wax_volume.h"
#include "wax_mesh.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {
    {-1, -1, "Background"}, {-1, -1, "WAX"}, {-1, -1, "UNKNOWN"}, {-1, -1, "UNKNOWN"}};
constexpr orrery::EffectInfo kInfo = {kInputs,
                                      4,
                                      {-1, -1},
                                      "output",
                                      "nimbo one\\3D Effect\\WAXViewer",
                                      kAuthor,
                                      "Effect,3D,",
                                      0x016D2330FD25D684ull,
                                      orrery::kEffectVersion};

constexpr int32_t kWaxInput = 1;
constexpr int32_t kFirstTextureInput = 2;
constexpr const char* kMaterialName = "waxmat";
constexpr const char* kPaletteTexture = "waxpalette";
constexpr const char* kRenderError = "CWAXViewerDfx::Render Error";
constexpr const char* kHelpPage = "helpfile/Effects/3D/WAXViewer/WAXViewer.htm";
constexpr size_t kMaxPoints = 60000;

// ---- settings ---------------------------------------------------------------------
struct ViewerSettings {
  int32_t threshold;
  int32_t display;
  int32_t colours;
  float pointsize;
};

constexpr DialogView kDisplayChoice{.as = ShowAs::kChoice, .choices = "surface|points"};
constexpr DialogView kColourChoice{.as = ShowAs::kChoice, .choices = "material|voxel colours"};
constexpr DialogView kPointSizeView{.enabled_by = "display", .enabled_value = 1};
constexpr SettingRow<ViewerSettings> kRows[] = {
    {"threshold", &ViewerSettings::threshold, 128, nullptr, 1, 255, "Threshold",
     "density (1..255) from which a voxel counts as inside"},
    {"display", &ViewerSettings::display, 0, nullptr, 0, 1, "Display",
     "0 = the surface at the threshold, 1 = points (one quad per visible voxel)", false, kDisplayChoice},
    {"colours", &ViewerSettings::colours, 1, nullptr, 0, 1, "Colours",
     "0 = the material, 1 = the voxels' own colours", false, kColourChoice},
    {"pointsize", &ViewerSettings::pointsize, 1.0, nullptr, 0.05, 4.0, "Point size",
     "width of a point, in voxels", false, kPointSizeView},
};

// ---- dynamic variables --------------------------------------------------------------
constexpr SceneVar kTurnVars[3] = {
    {"Rotation x", -360.0f, 360.0f, 0.0f}, {"Rotation y", -360.0f, 360.0f, 0.0f}, {"Rotation z", -360.0f, 360.0f, 0.0f}};
constexpr SceneVar kSpinVar = {"Spin speed", -180.0f, 180.0f, 20.0f};

constexpr SceneEffectLayout kLayout = {
    .first_texture_input = kFirstTextureInput, .render_error = kRenderError, .material_name = kMaterialName};

// R = Rz * Ry * Rx (degrees), row-major.
void Rotation(double rx, double ry, double rz, float r[3][3]) {
  const double k = M_PI / 180.0;
  const double cx = std::cos(rx * k), sx = std::sin(rx * k), cy = std::cos(ry * k), sy = std::sin(ry * k),
               cz = std::cos(rz * k), sz = std::sin(rz * k);
  const double m[3][3] = {{cz * cy, cz * sy * sx - sz * cx, cz * sy * cx + sz * sx},
                          {sz * cy, sz * sy * sx + cz * cx, sz * sy * cx - cz * sx},
                          {-sy, cy * sx, cy * cx}};
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) r[i][j] = float(m[i][j]);
}

void Normalize(float v[3]) {
  const float length = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
  if (length > 0) v[0] /= length, v[1] /= length, v[2] /= length;
}

class CWAXViewerDfx final : public CTableSceneEffect<ViewerSettings> {
 public:
  CWAXViewerDfx()
      : CTableSceneEffect(kInfo, kLabelWAXViewer, kHelpPage, sizeof(CWAXViewerDfx), kLayout, kRows, "WAXViewer") {
    materials_.LoadMaterial(0, LightMapMaterial(kMaterialName));
    RegisterSave3DS("Save as 3DS...: writes the volume's surface (or points) and camera last drawn");
  }

  orrery::Size GetInputScreenRes(int32_t index, int32_t width, int32_t height) override {
    if (index == kWaxInput) return wax::InputScreenRes(width, height);
    return CEffectBase::GetInputScreenRes(index, width, height);
  }

 protected:
  // The materials and the voxel palette, a texture of its own.
  void BuildEngineResources() override {
    materials_.BuildAll();
    const std::vector<uint32_t> palette = wax::PalettePixels();
    const nb3D::TextureDesc desc{wax::kPaletteSide, wax::kPaletteSide, nb3D::kFormatRgb, nb3D::kFilterNearest,
                                 palette.data(), 0};
    engine_->CreateTexture(kPaletteTexture, desc);
  }
  void EngineStopping() override {
    if (engine_) engine_->DeleteTexture(kPaletteTexture);
  }

  // New settings rebuild the mesh at the next frame.
  void SettingsRead(orrery::ConfigStore&) override { mesh_built_ = false; }
  void ApplyDialogSettings(const ViewerSettings& edit) override {
    settings_ = edit;
    mesh_built_ = false;
  }

  void DeclareDynVars() override {
    for (int i = 0; i < 3; ++i) turn_[i] = DeclareVar(kTurnVars[i]);
    spin_ = DeclareVar(kSpinVar);
    CSceneEffect::DeclareDynVars();
  }

  void BuildFrame(float t, const orrery::InputList& inputs) override {
    Rotation(VarValue(turn_[0], kTurnVars[0]), VarValue(turn_[1], kTurnVars[1]) + double(VarValue(spin_, kSpinVar)) * t,
             VarValue(turn_[2], kTurnVars[2]), turn_now_);
    UpdateMesh(inputs.Get(kWaxInput));
  }

  void DrawFrame() override {
    if (triangles_.empty()) return;
    // The engine's model matrix is column-major.
    for (int c = 0; c < 4; ++c)
      for (int r = 0; r < 4; ++r) transform_[c * 4 + r] = (r < 3 && c < 3) ? turn_now_[r][c] : (r == c ? 1.0f : 0.0f);
    if (!settings_.colours) {
      // The surface takes its material coordinates from the view; points
      // carry theirs.
      if (settings_.display == 0) EnvironmentCoordinates();
      DrawMaterialMesh(engine_, materials_, 0, settings_.display == 0 ? drawn_vertices_ : vertices_, triangles_,
                       transform_);
      return;
    }
    // Points carry one colour a quad; the surface is drawn with its colour
    // seams apart.
    const bool points = settings_.display == 1;
    const std::vector<nb3D::Vertex>& vertices = points ? vertices_ : seamless_vertices_;
    const std::vector<uint32_t>& triangles = points ? triangles_ : seamless_triangles_;
    nb3D::Mesh mesh{};
    mesh.vertices = vertices.data();
    mesh.vertex_count = int32_t(vertices.size());
    mesh.indices = triangles.data();
    mesh.index_count = int32_t(triangles.size());
    mesh.texture = kPaletteTexture;
    mesh.flags = uint32_t(materials_.GetMaterialFlags(0)) &
                 ~uint32_t(nb3D::kFlagSecondAdded | nb3D::kFlagSecondSubtracted | nb3D::kFlagAlphaFromSecondBlue);
    mesh.transform = transform_;
    mesh.lit = 1;
    engine_->DrawMesh(mesh);
  }

  // As drawn: turned by the model's turn.
  bool ExportMeshes(std::vector<ExportMesh>& meshes) override {
    if (!mesh_built_) return false;
    ExportMesh mesh;
    mesh.name = "WAX";
    for (const nb3D::Vertex& v : vertices_) {
      for (int r = 0; r < 3; ++r)
        mesh.positions.push_back(turn_now_[r][0] * v.x + turn_now_[r][1] * v.y + turn_now_[r][2] * v.z);
      mesh.uvs.insert(mesh.uvs.end(), {v.u, v.v});
    }
    mesh.triangles = triangles_;
    meshes.push_back(std::move(mesh));
    return true;
  }

 private:
  // The camera's directions in model space (through the model's turn).
  void ViewBasis(float right[3], float up[3], float forward[3]) const {
    float f[3], r[3], u[3];
    for (int d = 0; d < 3; ++d) f[d] = drawn_camera_.target[d] - drawn_camera_.position[d];
    Normalize(f);
    r[0] = -f[2], r[1] = 0, r[2] = f[0];
    if (r[0] * r[0] + r[2] * r[2] < 1e-12f) r[0] = 1, r[2] = 0;
    Normalize(r);
    u[0] = r[1] * f[2] - r[2] * f[1], u[1] = r[2] * f[0] - r[0] * f[2], u[2] = r[0] * f[1] - r[1] * f[0];
    // World to model: the transpose of the turn.
    for (int i = 0; i < 3; ++i) {
      right[i] = turn_now_[0][i] * r[0] + turn_now_[1][i] * r[1] + turn_now_[2][i] * r[2];
      up[i] = turn_now_[0][i] * u[0] + turn_now_[1][i] * u[1] + turn_now_[2][i] * u[2];
      forward[i] = turn_now_[0][i] * f[0] + turn_now_[1][i] * f[1] + turn_now_[2][i] * f[2];
    }
  }

  // The surface or points, rebuilt only when the volume or the settings
  // changed (points also every frame: they face the camera).
  void UpdateMesh(const orrery::Screen* wax_screen) {
    incoming_.ReadFrom(wax_screen);  // anything but a WAX screen reads as empty
    const bool same_volume = mesh_built_ && std::memcmp(incoming_.Data(), shown_.Data(), wax::kVoxelCount * 4) == 0;
    const bool points = settings_.display == 1;
    if (same_volume && !points) return;
    std::swap(incoming_, shown_);
    if (points) {
      float right[3], up[3], forward[3];
      ViewBasis(right, up, forward);
      wax::PointMesh(shown_, settings_.threshold, settings_.pointsize, right, up, forward, kMaxPoints, vertices_,
                     triangles_);
    } else {
      wax::SurfaceMesh(shown_, settings_.threshold, field_, surface_, vertices_, triangles_);
      wax::SeparateColourSeams(vertices_, triangles_, seamless_vertices_, seamless_triangles_);
    }
    mesh_built_ = true;
    SetMemorySize(sizeof(CWAXViewerDfx) + 2 * wax::kVoxelCount * 4 + SurfaceBytes(field_, surface_) +
                  seamless_vertices_.capacity() * sizeof(nb3D::Vertex) + seamless_triangles_.capacity() * 4);
  }

  // The material's coordinates: the normal as the camera sees it (a sphere
  // map), as Blob 3D lays its material.
  void EnvironmentCoordinates() {
    float right[3], up[3], forward[3];
    ViewBasis(right, up, forward);
    drawn_vertices_ = vertices_;
    for (nb3D::Vertex& v : drawn_vertices_) {
      v.u = 0.5f + 0.5f * (v.nx * right[0] + v.ny * right[1] + v.nz * right[2]);
      v.v = 0.5f - 0.5f * (v.nx * up[0] + v.ny * up[1] + v.nz * up[2]);
      v.u2 = v.u, v.v2 = v.v;
    }
  }

  float* turn_[3] = {};
  float* spin_ = nullptr;

  wax::Volume incoming_, shown_;  // this frame's volume, the one the mesh shows
  std::vector<float> field_;
  IsoMesh surface_;
  std::vector<nb3D::Vertex> drawn_vertices_;
  // The surface in voxel colours: vertices_ with the colour seams apart.
  std::vector<nb3D::Vertex> seamless_vertices_;
  std::vector<uint32_t> seamless_triangles_;
  float turn_now_[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  float transform_[16] = {};
};

}  // namespace

orrery::Effect* NewWAXViewer() { return CreateEffect<CWAXViewerDfx>(); }

}  // namespace nimbo
