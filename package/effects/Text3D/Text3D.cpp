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
#include <climits>
#include <cmath>
#include <string>
#include <vector>

#include "core/effect_base.h"
#include "core/labels.h"
#include "core/platform.h"
#include "core/registry.h"
#include "core/settings_table.h"
#include "framework/dynvar_list.h"
#include "orrery/services.h"
#include "render3d/effect_engine.h"
#include "render3d/export_3ds.h"
#include "render3d/material_manager.h"
#include "render3d/scene3d.h"
#include "render3d/scene_dialog.h"
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

constexpr int32_t kBackgroundInput = 0;
constexpr int32_t kFirstTextureInput = 1;
constexpr int32_t kTextureInputs = 2;
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
struct TextVar {
  const char* name;
  float minimum, maximum, initial;
};
constexpr TextVar kSpeedVar = {"Text speed", -4.0f, 4.0f, 1.0f};
constexpr TextVar kWaveHeightVar = {"Wave height", 0.0f, 1.0f, 0.15f};
constexpr TextVar kWaveSpeedVar = {"Wave speed", 0.0f, 4.0f, 0.5f};
constexpr TextVar kSpinVar = {"Spin speed", -2.0f, 2.0f, 0.0f};
constexpr TextVar kFlyInVar = {"Fly-in", 0.0f, 1.0f, 1.0f};

float VarValue(const float* v, const TextVar& var) {
  return v && std::isfinite(*v) ? std::clamp(*v, var.minimum, var.maximum) : var.initial;
}

class CText3DDfx final : public CEffectBase {
 public:
  CText3DDfx()
      : CEffectBase(kInfo, kLabelText3D, kHelpPage, sizeof(CText3DDfx)),
        scene_(kBackgroundInput),
        materials_(kTextureInputs, "") {
    ApplyDefaults<TextSettings>(kRows, settings_);
    materials_.LoadMaterial(0, DefaultTextMaterial());
    orrery::RegisterEffectAction(this, "save-3ds", "Save as 3DS...: writes the letters and camera last drawn",
                                 &Save3DS, this);
  }

  ~CText3DDfx() override {
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
    engine_ = StartEffectEngine(this, materials_, out_w_, out_h_);
    letters_ready_ = false;
    return engine_ ? 1 : 0;
  }

  int32_t Render(const orrery::InputList& inputs, orrery::Screen* output) override {
    std::lock_guard lock(lock_);
    if (!OutputSizeKnown()) return 0;
    if (!engine_ || !scene_.BeginFrame(engine_, inputs, out_w_, out_h_)) {
      if (engine_) engine_->ErrorReport(kRenderError);
      return 0;
    }
    materials_.UpdateInputTextures(inputs, kFirstTextureInput);
    const float t = scene_.Advance(host_context_, VarValue(speed_, kSpeedVar));
    SceneCamera own;
    own.position[2] = kReferenceLines * 0.5f / std::tan(kSceneFovDegrees * 0.5f * 3.14159265f / 180.0f);
    drawn_camera_ = scene_.ControlledCamera(own);
    UpdateLetters();
    Animate(t);
    AssembleFrameMesh();
    scene_.SetCamera(engine_, drawn_camera_);
    scene_.DrawInsertFx(engine_, inputs);
    if (!triangles_.empty()) DrawMaterialMesh(engine_, materials_, 0, vertices_, triangles_);
    return scene_.EndFrame(engine_, output);
  }

 protected:
  void ReadSettings(orrery::ConfigStore& store) override {
    ReadRows<TextSettings>(store, kRows, settings_);
    scene_.ReadSettings(store);
    materials_.LoadAll(store, "");
    materials_.BuildAll();
  }
  void WriteSettings(orrery::ConfigStore& store) override {
    WriteRows<TextSettings>(store, kRows, settings_);
    scene_.WriteSettings(store);
    materials_.SaveAll(store, "");
  }
  void DeclareHostControls() override {
    DescribeRows<TextSettings>(host_context_, kRows);
    scene_.DescribeSettings(host_context_);
    dynvars_.Clear();
    speed_ = Declare(kSpeedVar);
    wave_height_ = Declare(kWaveHeightVar);
    wave_speed_ = Declare(kWaveSpeedVar);
    spin_ = Declare(kSpinVar);
    fly_in_ = Declare(kFlyInVar);
    scene_.DeclareInsertFxVars(dynvars_);
    scene_.DeclareCameraVars(dynvars_);
    if (host_context_) host_context_->PublishDynVars(dynvars_.Head());
  }

  // The text settings and the scene's, then (on OK) the material editor.
  int32_t RunDialog() override {
    TextSettings edit;
    SceneSettings scene_edit;
    Material material;
    {
      std::lock_guard lock(lock_);
      edit = settings_;
      scene_edit = scene_.Settings();
      material = materials_.GetMaterial(0);
    }
    bool material_edited = false;
    if (!RunSceneSettingsDialog<TextSettings>("Text3D", HelpPage(), kRows, edit, scene_edit, material, &material_edited))
      return 0;
    std::lock_guard lock(lock_);
    settings_ = edit;
    scene_.Settings() = scene_edit;
    if (material_edited) materials_.LoadMaterial(0, material);
    if (orrery::ConfigStore* store = host_context_ ? host_context_->GetConfigStore() : nullptr) WriteConfig(*store);
    return 1;
  }

 private:
  // Lit white letters with the light map alone, so they shine with nothing
  // connected; the key mat0mattex0texmode = 0 puts the first texture input
  // on them.
  static Material DefaultTextMaterial() {
    Material m = DefaultMaterial();
    m.tex[0].w = m.tex[0].h = 256;
    SetFixedText(m.name, kMaterialName);
    return m;
  }

  float* Declare(const TextVar& v) {
    return dynvars_.DeclareFloat(v.name, v.minimum, v.maximum, v.initial, v.minimum, v.maximum, 0);
  }

  float Size() const { return float(std::clamp(settings_.size, kMinSize, kMaxSize)); }
  float Depth() const {
    return std::isfinite(settings_.depth) ? std::clamp(settings_.depth, 0.0f, kMaxDepth) * Size() : 0.25f * Size();
  }

  // Lays the text out again when the text, font, size or depth changed.
  void UpdateLetters() {
    const float size = Size(), depth = Depth();
    if (letters_ready_ && laid_text_ == settings_.text && laid_font_ == settings_.font && laid_size_ == size &&
        laid_depth_ == depth)
      return;
    laid_text_ = settings_.text, laid_font_ = settings_.font, laid_size_ = size, laid_depth_ = depth;
    letters_ready_ = true;
    block_ = {};
    std::string error;
    text3d::GlyphSet* glyphs = cache_.Select(settings_.font, size, depth, &error);
    if (!glyphs) {
      if (error != reported_error_) {
        reported_error_ = error;
        platform::ShowError("Text3D", (error + "; no text is drawn").c_str());
      }
      return;
    }
    reported_error_.clear();
    block_ = text3d::LayOut(*glyphs, text3d::DecodeUtf8(settings_.text, text3d::kMaxLetters));
    mem_size_ = int32_t(std::min<size_t>(INT32_MAX, sizeof(CText3DDfx) + cache_.MemoryBytes()));
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
      placements_[i] = text3d::PlaceLetter(block_.letters[i], i, placements_.size(), a, laid_size_);
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

  // One mesh per letter that has one, "Letter0", "Letter1", ... in text
  // order, each placed by its matrix as it was last drawn.
  std::string Export3DS(const std::string& path) {
    std::lock_guard lock(lock_);
    std::vector<ExportMesh> meshes;
    const bool drawn = engine_ != nullptr && letters_ready_ && placements_.size() == block_.letters.size();
    if (drawn) {
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
    }
    return ExportScene3DS(path.c_str(), drawn, kMaterialName, materials_.GetMaterial(0), meshes, drawn_camera_);
  }

  static int32_t Save3DS(void* user, const char* path, std::string* message) {
    const std::string error = static_cast<CText3DDfx*>(user)->Export3DS(path ? path : "");
    if (error.empty()) return 1;
    if (message) *message = error;
    return 0;
  }

  void FreeAll() {
    StopEffectEngine(engine_, scene_, materials_);
    letters_ready_ = false;
  }

  TextSettings settings_;
  Scene3D scene_;
  nbMatManager materials_;
  DynVarList dynvars_;
  float* speed_ = nullptr;
  float* wave_height_ = nullptr;
  float* wave_speed_ = nullptr;
  float* spin_ = nullptr;
  float* fly_in_ = nullptr;

  text3d::GlyphCache cache_;
  std::string laid_text_, laid_font_, reported_error_;
  float laid_size_ = 0, laid_depth_ = 0;
  bool letters_ready_ = false;
  text3d::TextBlock block_;
  std::vector<text3d::Placement> placements_;
  std::vector<nb3D::Vertex> vertices_;
  std::vector<uint32_t> triangles_;
  SceneCamera drawn_camera_;
};

}  // namespace

orrery::Effect* NewText3D() { return CreateEffect<CText3DDfx>(); }

}  // namespace nimbo
