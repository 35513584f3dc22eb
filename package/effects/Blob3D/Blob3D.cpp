// Blob 3D: metaballs. A handful of blobs float on looping paths; where their
// summed field passes the threshold they show one soft body that splits and
// merges as they move, polygonised every frame and covered with a material
// (its texture inputs or pictures), environment-mapped or laid on flat.
//
// Files: blob_field.* (paths and the field, its row kernel scalar and SSE2).
// The surface comes from the package's isosurface extractor with the grid's
// border closed, so a blob pushed against the border shows a flat cap, never
// a hole.
//
// Inputs: 0 "background" (the scaffolding's background and Insert FX), 1 and
// 2 the material's texture inputs ("tex1", "tex2").
//
// Per frame: background, texture inputs into the material, t advanced by
// the host clock times "Blob speed", the blobs' places, the field on a
// grid^3 grid over a cube 100 units wide, the surface at the threshold,
// texture coordinates (from the normals as the camera sees them, or from the
// position), the mesh through the scaffolding's camera, present.
#include <algorithm>
#include <cmath>
#include <vector>

#include "blob_field.h"
#include "core/labels.h"
#include "core/registry.h"
#include "core/settings_table.h"
#include "render3d/isosurface.h"
#include "render3d/scene_effect.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "background"}, {-1, -1, "UNKNOWN"}, {-1, -1, "UNKNOWN"}};
constexpr orrery::EffectInfo kInfo = {kInputs,
                                      3,
                                      {-1, -1},
                                      "output",
                                      "nimbo one\\3D Effect\\Blob 3D",
                                      kAuthor,
                                      "Effect,3D,",
                                      0x00239E34697957E2ull,
                                      orrery::kEffectVersion};

constexpr const char* kMaterialName = "blobmat";
constexpr const char* kRenderError = "CBlob3DDfx::Render Error";
constexpr const char* kHelpPage = "helpfile/Effects/3D/Blob3D/Blob3D.htm";
// The field's cube [-1, 1]^3 is drawn 100 units wide, like Evaluator3D's
// default grid, so the shared camera frames both alike.
constexpr float kWorldHalfSide = 50.0f;

// ---- settings ---------------------------------------------------------------------
struct BlobSettings {
  int32_t count;
  float radius;
  float strength;
  float threshold;
  int32_t grid;
  int32_t envmap;
};

constexpr DialogView kEnvmapChoice{.as = ShowAs::kChoice, .choices = "flat (from the position)|environment map"};
constexpr SettingRow<BlobSettings> kRows[] = {
    {"count", &BlobSettings::count, 6, nullptr, 1, blob::kMaxBlobs, "Blobs", "number of blobs"},
    {"radius", &BlobSettings::radius, 0.3, nullptr, 0.05, 1.0, "Radius",
     "size of one blob, as a fraction of half the cube"},
    {"strength", &BlobSettings::strength, 1.0, nullptr, 0.1, 4.0, "Strength", "how strongly each blob pulls"},
    {"threshold", &BlobSettings::threshold, 1.0, nullptr, 0.1, 4.0, "Threshold",
     "field value of the surface: higher gives thinner blobs that merge later"},
    {"grid", &BlobSettings::grid, 48, nullptr, 16, 96, "Grid", "samples along each side of the cube (detail)"},
    {"envmap", &BlobSettings::envmap, 1, nullptr, 0, 1, "Texture coordinates",
     "0 = laid on flat from the position, 1 = environment map from the normals", false, kEnvmapChoice},
};

// ---- dynamic variables --------------------------------------------------------------
constexpr SceneVar kSpeedVar = {"Blob speed", -4.0f, 4.0f, 1.0f};
constexpr SceneVar kSpreadVar = {"Blob spread", 0.0f, 1.0f, 0.45f};
constexpr SceneVar kSizeVar = {"Blob size", 0.2f, 3.0f, 1.0f};

// Input 0 the background, 1 and 2 the material's texture inputs: the layout's defaults.
constexpr SceneEffectLayout kLayout = {
    .render_error = kRenderError, .material_name = kMaterialName, .mesh_name = "Blob"};

void Normalize(float v[3]) {
  const float length = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
  if (length > 0) v[0] /= length, v[1] /= length, v[2] /= length;
}

// The camera's right and up directions (forward as a by-product), rolled.
void CameraBasis(const SceneCamera& c, float forward[3], float right[3], float up[3]) {
  for (int d = 0; d < 3; ++d) forward[d] = c.target[d] - c.position[d];
  Normalize(forward);
  right[0] = -forward[2], right[1] = 0, right[2] = forward[0];  // forward x (0, 1, 0)
  if (right[0] * right[0] + right[2] * right[2] < 1e-12f) right[0] = 1, right[2] = 0;
  Normalize(right);
  up[0] = right[1] * forward[2] - right[2] * forward[1];
  up[1] = right[2] * forward[0] - right[0] * forward[2];
  up[2] = right[0] * forward[1] - right[1] * forward[0];
  const float cr = std::cos(c.roll), sr = std::sin(c.roll);
  for (int d = 0; d < 3; ++d) {
    const float r = right[d], u = up[d];
    right[d] = r * cr + u * sr;
    up[d] = u * cr - r * sr;
  }
}

class CBlob3DDfx final : public CTableSceneEffect<BlobSettings> {
 public:
  CBlob3DDfx() : CTableSceneEffect(kInfo, kLabelBlob3D, kHelpPage, sizeof(CBlob3DDfx), kLayout, kRows, "Blob 3D") {
    materials_.LoadMaterial(0, LightMapMaterial(kMaterialName));
    RegisterSave3DS("Save as 3DS...: writes the blob surface and camera last drawn");
  }

 protected:
  float TimeSpeed() override { return VarValue(speed_, kSpeedVar); }

  void DeclareDynVars() override {
    speed_ = DeclareVar(kSpeedVar);
    spread_ = DeclareVar(kSpreadVar);
    size_ = DeclareVar(kSizeVar);
    CSceneEffect::DeclareDynVars();
  }

  // The field on the grid, its surface at the threshold, and the vertices
  // as the camera of this frame sees them.
  void BuildFrame(float t, const orrery::InputList&) override {
    const int32_t side = std::clamp(settings_.grid, 16, 96);
    const float radius = std::clamp(settings_.radius, 0.05f, 1.0f) * VarValue(size_, kSizeVar);
    const std::vector<blob::Blob> blobs =
        blob::BlobsAt(settings_.count, t, VarValue(spread_, kSpreadVar), radius, std::clamp(settings_.strength, 0.1f, 4.0f));
    blob::FillBlobField(blobs, side, field_);
    IsoGrid grid;
    grid.values = field_.data();
    grid.nx = grid.ny = grid.nz = side;
    const float step = 2.0f * kWorldHalfSide / float(side - 1);
    for (int d = 0; d < 3; ++d) grid.origin[d] = -kWorldHalfSide, grid.spacing[d] = step;
    ExtractIsosurface(grid, std::clamp(settings_.threshold, 0.1f, 4.0f), true, &surface_);
    AssembleVertices();
    triangles_ = surface_.triangles;
    mesh_built_ = true;
    SetMemorySize(sizeof(CBlob3DDfx) + SurfaceBytes(field_, surface_));
  }

 private:
  // Texture coordinates: from the normal as the camera sees it (a sphere
  // map: the texture wraps the body like a reflection) or from x and y.
  void AssembleVertices() {
    float forward[3], right[3], up[3];
    CameraBasis(drawn_camera_, forward, right, up);
    vertices_.resize(surface_.VertexCount());
    for (size_t i = 0; i < vertices_.size(); ++i) {
      const float* p = &surface_.positions[3 * i];
      const float* n = &surface_.normals[3 * i];
      nb3D::Vertex& v = vertices_[i];
      v.x = p[0], v.y = p[1], v.z = p[2];
      v.nx = n[0], v.ny = n[1], v.nz = n[2];
      if (settings_.envmap) {
        v.u = 0.5f + 0.5f * (n[0] * right[0] + n[1] * right[1] + n[2] * right[2]);
        v.v = 0.5f - 0.5f * (n[0] * up[0] + n[1] * up[1] + n[2] * up[2]);
      } else {
        v.u = 0.5f + 0.5f * p[0] / kWorldHalfSide;
        v.v = 0.5f - 0.5f * p[1] / kWorldHalfSide;
      }
      v.u2 = v.u, v.v2 = v.v;
    }
  }

  float* speed_ = nullptr;
  float* spread_ = nullptr;
  float* size_ = nullptr;

  std::vector<float> field_;
  IsoMesh surface_;
};

}  // namespace

orrery::Effect* NewBlob3D() { return CreateEffect<CBlob3DDfx>(); }

}  // namespace nimbo
