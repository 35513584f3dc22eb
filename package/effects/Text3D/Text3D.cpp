// Text3D: extruded 3D text. Each letter of the text is a solid built from
// the font's outline (front and back caps, sides), placed along its line
// with the font's kerning and animated letter by letter: a wave that runs
// along the line, a spin about each letter's own axis, and a fly-in.
//
// Files: glyph_mesh.* (FreeType outline to a closed solid), text_layout.*
// (UTF-8, the glyph mesh cache, layout, each letter's placement).
//
// Inputs: 0 "RGB Bitmap" (the scaffolding's background and Insert FX), 1
// and 2 the material's texture inputs; the texture lies flat across the
// whole text, so a clip on the first texture input shows through all of it.
//
// Sizes: "size" is the letters' em in pixels of a 480-line picture (the
// camera stands where one world unit is one such pixel on the text's
// plane); other picture sizes show the same framing.
//
// Per frame: background, texture inputs into the material, t advanced by
// the host clock times "Text speed", the letters' placements, all letters'
// vertices gathered into one mesh, drawn through the scaffolding's camera.
#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "core/labels.h"
#include "core/platform.h"
#include "core/registry.h"
#include "core/settings_table.h"
#include "render3d/scene_effect.h"
#include "text_layout.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "RGB Bitmap"}, {-1, -1, "UNKNOWN"}, {-1, -1, "UNKNOWN"}};
constexpr orrery::EffectInfo kInfo = {kInputs,
                                      3,
                                      {-1, -1},
                                      "",
                                      "nimbo one\\3D Effect\\Text3D",
                                      kAuthor,
                                      "Effect,3D,Text,",
                                      0x017178DD8AF030DBull,
                                      orrery::kEffectVersion};

constexpr const char* kMaterialName = "textmat";
constexpr const char* kRenderError = "CText3DDfx::Render Error";
constexpr const char* kHelpPage = "helpfile/Effects/3D/Text3D/Text3D.htm";
constexpr const char* kDefaultFont = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";
constexpr int32_t kMinSize = 1, kMaxSize = 1024;
constexpr float kMaxDepth = 2.0f;
// The picture height at which "size" is counted in pixels.
constexpr float kReferenceLines = 480.0f;

// ---- settings ---------------------------------------------------------------------
struct TextSettings {
  std::string text;
  std::string font;
  int32_t size;
  float depth;
};

constexpr SettingRow<TextSettings> kRows[] = {
    {"text", &TextSettings::text, 0, "nimbo one", 0, 0, "Text",
     "the text, UTF-8; a line break starts a new line; characters the font lacks are left out"},
    {"font", &TextSettings::font, 0, kDefaultFont, 0, 0, "Font file", "the font (TrueType or OpenType outlines)",
     true},
    {"size", &TextSettings::size, 64, nullptr, kMinSize, kMaxSize, "Size",
     "letter size (em) in pixels of a 480-line picture"},
    {"depth", &TextSettings::depth, 0.25, nullptr, 0.0, kMaxDepth, "Depth", "extrusion depth, in ems"},
};

// ---- dynamic variables --------------------------------------------------------------
constexpr SceneVar kSpeedVar = {"Text speed", -4.0f, 4.0f, 1.0f};
constexpr SceneVar kWaveHeightVar = {"Wave height", 0.0f, 1.0f, 0.15f};
constexpr SceneVar kWaveSpeedVar = {"Wave speed", 0.0f, 4.0f, 0.5f};
constexpr SceneVar kSpinVar = {"Spin speed", -2.0f, 2.0f, 0.0f};
constexpr SceneVar kFlyInVar = {"Fly-in", 0.0f, 1.0f, 1.0f};

// Input 0 the background, 1 and 2 the material's texture inputs: the layout's defaults.
constexpr SceneEffectLayout kLayout = {.render_error = kRenderError, .material_name = kMaterialName};

class CText3DDfx final : public CTableSceneEffect<TextSettings> {
 public:
  CText3DDfx() : CTableSceneEffect(kInfo, kLabelText3D, kHelpPage, sizeof(CText3DDfx), kLayout, kRows, "Text3D") {
    materials_.LoadMaterial(0, LightMapMaterial(kMaterialName));
    RegisterSave3DS("Save as 3DS...: writes the letters and camera last drawn");
  }

 protected:
  // A new text, font, size or depth lays the letters out again at the next
  // frame (where a font that cannot be read is reported).
  void SettingsRead(orrery::ConfigStore&) override { letters_ready_ = false; }
  void ApplyDialogSettings(const TextSettings& edit) override {
    settings_ = edit;
    letters_ready_ = false;
  }
  void EngineStopping() override { letters_ready_ = false; }

  float TimeSpeed() override { return VarValue(speed_, kSpeedVar); }

  void DeclareDynVars() override {
    speed_ = DeclareVar(kSpeedVar);
    wave_height_ = DeclareVar(kWaveHeightVar);
    wave_speed_ = DeclareVar(kWaveSpeedVar);
    spin_ = DeclareVar(kSpinVar);
    fly_in_ = DeclareVar(kFlyInVar);
    CSceneEffect::DeclareDynVars();
  }

  // One world unit is one pixel of a 480-line picture on the text's plane.
  SceneCamera OwnCamera(float) override {
    SceneCamera own;
    own.position[2] = kReferenceLines * 0.5f / std::tan(kSceneFovDegrees * 0.5f * 3.14159265f / 180.0f);
    return own;
  }

  void BuildFrame(float t, const orrery::InputList&) override {
    if (!letters_ready_) LayOutLetters();
    Animate(t);
    AssembleFrameMesh();
  }

  // One mesh per letter that has one, "Letter0", "Letter1", ... in text
  // order, each placed by its matrix as it was last drawn.
  bool ExportMeshes(std::vector<ExportMesh>& meshes) override {
    if (!letters_ready_ || placements_.size() != block_.letters.size()) return false;
    meshes.resize(block_.letters.size());
    for (size_t i = 0; i < meshes.size(); ++i) {
      const text3d::GlyphMesh& mesh = *block_.letters[i].mesh;
      ExportMesh& out = meshes[i];
      out.name = "Letter" + std::to_string(i);
      out.positions = mesh.positions;
      out.uvs.resize(mesh.VertexCount() * 2);
      for (size_t v = 0; v < mesh.VertexCount(); ++v)
        TexCoord(block_.letters[i], &mesh.positions[3 * v], &out.uvs[2 * v]);
      out.triangles = mesh.triangles;
      text3d::PlacementMatrix(placements_[i], out.matrix);
    }
    return true;
  }

 private:
  float Size() const { return float(std::clamp(settings_.size, kMinSize, kMaxSize)); }
  float Depth() const {
    return std::isfinite(settings_.depth) ? std::clamp(settings_.depth, 0.0f, kMaxDepth) * Size() : 0.25f * Size();
  }

  // The letters of the text in the font at its size and depth; a font that
  // cannot be read is told once (until it changes) and draws no text.
  void LayOutLetters() {
    letters_ready_ = true;
    block_ = {};
    std::string error;
    text3d::GlyphSet* glyphs = cache_.Select(settings_.font, Size(), Depth(), &error);
    if (!glyphs) {
      if (error != reported_error_) {
        reported_error_ = error;
        platform::ShowError("Text3D", (error + "; no text is drawn").c_str());
      }
      return;
    }
    reported_error_.clear();
    block_ = text3d::LayOut(*glyphs, text3d::DecodeUtf8(settings_.text, text3d::kMaxLetters));
    SetMemorySize(sizeof(CText3DDfx) + cache_.MemoryBytes());
  }

  void Animate(float t) {
    text3d::Animation a;
    a.time = t;
    a.wave_height = VarValue(wave_height_, kWaveHeightVar);
    a.wave_speed = VarValue(wave_speed_, kWaveSpeedVar);
    a.spin_speed = VarValue(spin_, kSpinVar);
    a.fly_in = VarValue(fly_in_, kFlyInVar);
    placements_.resize(block_.letters.size());
    for (size_t i = 0; i < placements_.size(); ++i)
      placements_[i] = text3d::PlaceLetter(block_.letters[i], i, placements_.size(), a, Size());
  }

  // The texture lies flat across the text block, fixed to the letters.
  void TexCoord(const text3d::Letter& letter, const float* p, float* uv) const {
    const float w = std::max(block_.width, 1e-3f), h = std::max(block_.height, 1e-3f);
    uv[0] = 0.5f + (p[0] + letter.x) / w;
    uv[1] = 0.5f - (p[1] + letter.y) / h;
  }

  void AssembleFrameMesh() {
    vertices_.clear();
    triangles_.clear();
    for (size_t i = 0; i < block_.letters.size(); ++i) {
      const text3d::Placement& pl = placements_[i];
      if (!pl.visible) continue;
      const text3d::GlyphMesh& mesh = *block_.letters[i].mesh;
      const uint32_t base = uint32_t(vertices_.size());
      const size_t n = mesh.VertexCount();
      for (size_t v = 0; v < n; ++v) {
        const float* p = &mesh.positions[3 * v];
        const float* q = &mesh.normals[3 * v];
        nb3D::Vertex out;
        out.x = pl.r[0] * p[0] + pl.r[1] * p[1] + pl.r[2] * p[2] + pl.t[0];
        out.y = pl.r[3] * p[0] + pl.r[4] * p[1] + pl.r[5] * p[2] + pl.t[1];
        out.z = pl.r[6] * p[0] + pl.r[7] * p[1] + pl.r[8] * p[2] + pl.t[2];
        out.nx = pl.r[0] * q[0] + pl.r[1] * q[1] + pl.r[2] * q[2];
        out.ny = pl.r[3] * q[0] + pl.r[4] * q[1] + pl.r[5] * q[2];
        out.nz = pl.r[6] * q[0] + pl.r[7] * q[1] + pl.r[8] * q[2];
        TexCoord(block_.letters[i], p, &out.u);
        out.u2 = out.u, out.v2 = out.v;
        vertices_.push_back(out);
      }
      for (uint32_t index : mesh.triangles) triangles_.push_back(base + index);
    }
  }

  float* speed_ = nullptr;
  float* wave_height_ = nullptr;
  float* wave_speed_ = nullptr;
  float* spin_ = nullptr;
  float* fly_in_ = nullptr;

  text3d::GlyphCache cache_;
  std::string reported_error_;
  bool letters_ready_ = false;  // block_ follows the settings
  text3d::TextBlock block_;
  std::vector<text3d::Placement> placements_;
};

}  // namespace

orrery::Effect* NewText3D() { return CreateEffect<CText3DDfx>(); }

}  // namespace nimbo
