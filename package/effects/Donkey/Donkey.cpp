// Donkey: video on the move. The texture inputs cover simple shapes (a
// cube, a sphere, a torus, a cylinder) that spin and fly in formation, or
// line a tunnel the camera races through.
//
// Files: donkey_shapes.* (the shapes' geometry).
//
// Inputs: 0 "Background" (the scaffolding's background and Insert FX), 1 and
// 2 the material's texture inputs ("tex1", "tex2").
//
// Per frame: background, texture inputs into the material, the clock
// (flight time scaled by "Donkey speed"), spin angles advanced by the spin
// variables, each copy placed by the formation and turned by the spin (each
// a little later in its turn than the one before), drawn through the
// scaffolding's camera. The tunnel instead scrolls its texture by "Tunnel
// speed" and turns it by "Tunnel twist" with the camera on its axis.
#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "core/labels.h"
#include "core/registry.h"
#include "core/settings_table.h"
#include "donkey_shapes.h"
#include "render3d/scene_effect.h"

namespace nimbo {
namespace {

constexpr orrery::InputDesc kInputs[] = {{-1, -1, "Background"}, {-1, -1, "UNKNOWN"}, {-1, -1, "UNKNOWN"}};
constexpr orrery::EffectInfo kInfo = {kInputs,
                                      3,
                                      {-1, -1},
                                      "output",
                                      "nimbo one\\3D Effect\\Donkey",
                                      kAuthor,
                                      "Effect,3D,",
                                      0x0024E38DBAA4EAA7ull,
                                      orrery::kEffectVersion};

constexpr const char* kRenderError = "CDonkeyDfx::Render Error";
constexpr const char* kHelpPage = "helpfile/Effects/3D/Donkey/Donkey.htm";
constexpr float kTwoPi = 6.28318531f;

// ---- settings ---------------------------------------------------------------------
struct DonkeySettings {
  int32_t shape;
  int32_t copies;
  int32_t formation;
  int32_t detail;
};

enum Formation : int32_t { kRing = 0, kRow = 1, kSquare = 2 };

constexpr DialogView kShapeChoice{.as = ShowAs::kChoice, .choices = "cube|sphere|torus|cylinder|tunnel"};
constexpr DialogView kFormationChoice{.as = ShowAs::kChoice, .choices = "ring|row|square"};
constexpr SettingRow<DonkeySettings> kRows[] = {
    {"shape", &DonkeySettings::shape, donkey::kCube, nullptr, 0, donkey::kShapeCount - 1, "Shape",
     "0 = cube, 1 = sphere, 2 = torus, 3 = cylinder, 4 = tunnel (seen from inside)", false, kShapeChoice},
    {"copies", &DonkeySettings::copies, 1, nullptr, 1, 9, "Copies", "how many shapes fly in formation (not the tunnel)"},
    {"formation", &DonkeySettings::formation, kRing, nullptr, 0, 2, "Formation",
     "0 = a ring, 1 = a row, 2 = a square", false, kFormationChoice},
    {"detail", &DonkeySettings::detail, 32, nullptr, donkey::kMinDetail, donkey::kMaxDetail, "Detail",
     "segments around the round shapes"},
};

// ---- dynamic variables --------------------------------------------------------------
enum VarIndex { kSpeed, kSpinX, kSpinY, kSpinZ, kDistance, kTunnelSpeed, kTunnelTwist, kVarCount };
constexpr SceneVar kVars[kVarCount] = {
    {"Donkey speed", -4.0f, 4.0f, 1.0f},    // flight: how fast the formation travels its path
    {"Spin x", -2.0f, 2.0f, 0.15f},         // turns per second about each axis
    {"Spin y", -2.0f, 2.0f, 0.25f},
    {"Spin z", -2.0f, 2.0f, 0.0f},
    {"Distance", 40.0f, 600.0f, 110.0f},    // camera to formation
    {"Tunnel speed", -4.0f, 4.0f, 1.0f},    // texture lengths per second
    {"Tunnel twist", -2.0f, 2.0f, 0.2f},    // turns per second about the tunnel's axis
};

// 4x4 column-major (the engine's layout) from a rotation about x, y, z (in
// that order) and a translation.
std::array<float, 16> Placement(const float angle[3], const float at[3]) {
  const float cx = std::cos(angle[0]), sx = std::sin(angle[0]);
  const float cy = std::cos(angle[1]), sy = std::sin(angle[1]);
  const float cz = std::cos(angle[2]), sz = std::sin(angle[2]);
  // R = Rz * Ry * Rx
  const float r[3][3] = {{cz * cy, cz * sy * sx - sz * cx, cz * sy * cx + sz * sx},
                         {sz * cy, sz * sy * sx + cz * cx, sz * sy * cx - cz * sx},
                         {-sy, cy * sx, cy * cx}};
  std::array<float, 16> m{};
  for (int col = 0; col < 3; ++col) {
    for (int row = 0; row < 3; ++row) m[size_t(col * 4 + row)] = r[row][col];
  }
  m[12] = at[0], m[13] = at[1], m[14] = at[2], m[15] = 1;
  return m;
}

// Input 0 the background, 1 and 2 the material's texture inputs: the layout's defaults.
constexpr SceneEffectLayout kLayout = {.render_error = kRenderError};

class CDonkeyDfx final : public CTableSceneEffect<DonkeySettings> {
 public:
  CDonkeyDfx() : CTableSceneEffect(kInfo, kLabelDonkey, kHelpPage, sizeof(CDonkeyDfx), kLayout, kRows, "Donkey") {
    materials_.LoadMaterial(0, DefaultDonkeyMaterial());
  }

 protected:
  void ReadOwnSettings(orrery::ConfigStore& store) override {
    CTableSceneEffect::ReadOwnSettings(store);
    settings_.shape = std::clamp(settings_.shape, 0, donkey::kShapeCount - 1);
    settings_.copies = std::clamp(settings_.copies, 1, 9);
    settings_.detail = std::clamp(settings_.detail, donkey::kMinDetail, donkey::kMaxDetail);
  }
  void SettingsRead(orrery::ConfigStore&) override { UpdateShape(); }
  void ApplyDialogSettings(const DonkeySettings& edit) override {
    settings_ = edit;
    UpdateShape();
  }

  // A new engine object starts every motion over.
  void EngineStarted() override {
    UpdateShape();
    spin_[0] = spin_[1] = spin_[2] = 0;
    twist_ = scroll_ = 0;
    last_time_ = 0;
    mem_size_ = int32_t(sizeof(CDonkeyDfx) + shape_.vertices.capacity() * 2 * sizeof(nb3D::Vertex) +
                        shape_.triangles.capacity() * sizeof(uint32_t));
  }

  void DeclareDynVars() override {
    for (int i = 0; i < kVarCount; ++i) vars_[i] = DeclareVar(kVars[i]);
    CSceneEffect::DeclareDynVars();
  }

  // The scene clock runs at real time; the variables scale each motion, so
  // changing one never makes another jump. The shapes are drawn before the
  // Insert FX quad.
  void DrawScene(const orrery::InputList& inputs, float t) override {
    const float dt = t - last_time_;
    last_time_ = t;
    flight_ += dt * Var(kSpeed);
    for (int a = 0; a < 3; ++a) spin_[a] = std::fmod(spin_[a] + dt * Var(VarIndex(kSpinX + a)) * kTwoPi, kTwoPi);
    scroll_ = std::fmod(scroll_ + dt * Var(kTunnelSpeed), donkey::kTunnelRepeats);
    twist_ = std::fmod(twist_ + dt * Var(kTunnelTwist), 1.0f);

    if (settings_.shape == donkey::kTunnel) DrawTunnel();
    else DrawFormation();
    scene_.DrawInsertFx(engine_, inputs);
  }

 private:
  // The first texture input on the shapes, lit gently so the video reads as
  // it is (a light map of 128 leaves a texel unchanged) with a soft
  // highlight. A square power-of-two size fills its texture exactly, so
  // coordinates past 1 repeat the picture: the tunnel relies on that.
  static Material DefaultDonkeyMaterial() {
    Material m = LightMapMaterial("donkeymat");
    m.tex[0].texmode = kTexModeInput;
    m.tex[0].w = m.tex[0].h = 512;
    m.tex[0].base_clr = 0x808080;
    m.tex[0].diff_clr = 0x202020;
    m.tex[0].spec_clr = 0x303030;
    return m;
  }

  float Var(VarIndex i) const { return VarValue(vars_[i], kVars[i]); }

  // The shape follows "shape" and "detail"; built again only when they change.
  void UpdateShape() {
    if (shape_of_ == settings_.shape && detail_of_ == settings_.detail) return;
    shape_ = donkey::MakeShape(settings_.shape, settings_.detail);
    shape_of_ = settings_.shape, detail_of_ = settings_.detail;
  }

  void DrawFormation() {
    SceneCamera own;
    own.position[2] = Var(kDistance);
    scene_.SetCamera(engine_, scene_.ControlledCamera(own));
    // The formation travels a slow figure of eight in front of the camera.
    const float path[3] = {25.0f * std::sin(0.5f * flight_), 12.0f * std::sin(flight_), 0};
    const int32_t n = settings_.copies;
    const int32_t side = int32_t(std::ceil(std::sqrt(float(n))));
    for (int32_t k = 0; k < n; ++k) {
      float at[3] = {path[0], path[1], path[2]};
      const float spacing = donkey::kShapeSize * 1.4f;
      if (n > 1 && settings_.formation == kRing) {
        const float a = kTwoPi * float(k) / float(n) + 0.3f * flight_;
        const float radius = spacing * float(n) / kTwoPi + donkey::kShapeSize * 0.5f;
        at[0] += radius * std::sin(a), at[2] += radius * std::cos(a) - radius;
      } else if (settings_.formation == kRow) {
        at[0] += spacing * (float(k) - float(n - 1) / 2);
      } else if (settings_.formation == kSquare) {
        at[0] += spacing * (float(k % side) - float(side - 1) / 2);
        at[1] += spacing * (float((n - 1) / side) / 2 - float(k / side));
      }
      // Each copy a little behind the one before in its turn.
      const float lag = 0.4f * float(k);
      const float angle[3] = {spin_[0] + lag, spin_[1] + lag, spin_[2]};
      const std::array<float, 16> m = Placement(angle, at);
      DrawMaterialMesh(engine_, materials_, 0, shape_.vertices, shape_.triangles, m.data());
    }
  }

  void DrawTunnel() {
    SceneCamera own;
    own.position[2] = -10.0f;  // inside, looking down the tube
    own.target[2] = -200.0f;
    scene_.SetCamera(engine_, scene_.ControlledCamera(own));
    // Scroll and twist by moving the texture, not the tube, so the tube
    // never ends in front of the camera.
    moved_ = shape_.vertices;
    for (nb3D::Vertex& v : moved_) {
      v.u = v.u + twist_, v.v = v.v + scroll_;
      v.u2 = v.u, v.v2 = v.v;
    }
    DrawMaterialMesh(engine_, materials_, 0, moved_, shape_.triangles);
  }

  float* vars_[kVarCount] = {};
  donkey::ShapeMesh shape_;
  int32_t shape_of_ = -1, detail_of_ = -1;  // what shape_ was built for
  std::vector<nb3D::Vertex> moved_;
  float last_time_ = 0, flight_ = 0, scroll_ = 0, twist_ = 0;
  float spin_[3] = {0, 0, 0};
};

}  // namespace

orrery::Effect* NewDonkey() { return CreateEffect<CDonkeyDfx>(); }

}  // namespace nimbo
