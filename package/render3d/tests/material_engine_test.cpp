// The material manager with the real engine (Mesa's software renderer where
// there is no GPU): texture and picture sizes and scale, trace labels, pictures found,
// missing and inverted, input screens copied (or frozen), and every render
// flag drawn, each checked where ignoring it would show.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "bin_path.h"
#include "light_map_reference.h"
#include "orrery/picture.h"
#include "render3d/engine_loader.h"
#include "render3d/material_manager.h"
#include "test_screen.h"

namespace {

using namespace nimbo;
namespace fs = std::filesystem;

// Pictures for the tests: a file holding a hex colour decodes to a 5x3
// picture of that colour.
class SolidDecoder final : public orrery::PictureDecoder {
 public:
  SolidDecoder() : previous_(orrery::GetPictureDecoder()) { orrery::SetPictureDecoder(this); }
  ~SolidDecoder() { orrery::SetPictureDecoder(previous_); }
  bool Decode(const char* path, int32_t* width, int32_t* height, std::vector<uint32_t>* pixels) override {
    std::ifstream in(path);
    std::string hex;
    if (!(in >> hex)) return false;
    *width = 5, *height = 3;
    pixels->assign(15, uint32_t(std::stoul(hex, nullptr, 16)));
    return true;
  }

 private:
  orrery::PictureDecoder* previous_;
};

// A material whose light map is 128 everywhere: textures show their source
// unchanged.
Material Neutral() {
  Material m = DefaultMaterial();
  for (TextureLayer& t : m.tex) t.base_clr = 0x808080, t.diff_clr = 0, t.spec_clr = 0;
  return m;
}

class MaterialEngineTest : public ::testing::Test {
 protected:
  void SetUp() override {
    engine_ = CreateEngineObject(nullptr);
    if (!engine_) GTEST_SKIP() << "the engine library did not load";
    dir_ = fs::temp_directory_path() / ("nimbo_mat_" + std::to_string(::getpid()));
    fs::create_directories(dir_);
  }
  void TearDown() override {
    mats_.FreeAll();
    if (engine_) engine_->Release();
    fs::remove_all(dir_);
  }
  std::string Picture(const char* name, const char* hex) {
    const std::string path = (dir_ / name).string();
    std::ofstream(path) << hex;
    return path;
  }
  bool HasTrace(const char* label) {
    for (int32_t i = 0; i < engine_->GetErrorCount(); ++i)
      if (std::string(engine_->GetError(i)) == label) return true;
    return false;
  }
  // The pixel buffer of a built layer, row `y`, pixel `x`.
  uint32_t Texel(int32_t mat, int32_t layer, int32_t x, int32_t y, int32_t stride) {
    const uint32_t buffer = mats_.GetMaterial(mat).tex[layer].pixel_buffer;
    const uint32_t* p = static_cast<const uint32_t*>(engine_->LockBuffer(buffer));
    if (!p) return 0xDEADBEEF;
    const uint32_t v = p[size_t(y) * size_t(stride) + size_t(x)];
    engine_->UnlockBuffer(buffer);
    return v;
  }

  nimbo::testing::BinPathOverride bin_{NIMBO_BIN_DIR};
  SolidDecoder decoder_;
  nb3D* engine_ = nullptr;
  nbMatManager mats_{2, ""};
  fs::path dir_;
};

TEST_F(MaterialEngineTest, TextureSizesScaleAndTraceLabels) {
  mats_.SetEngine(engine_);
  mats_.SetOutputSize(320, 240);
  Material m = DefaultMaterial();
  m.tex[0].w = 0, m.tex[0].h = 0;
  m.usesectex = 1;
  m.tex[1].w = 1000, m.tex[1].h = 1;
  ASSERT_EQ(mats_.LoadMaterial(0, m), 1);
  int32_t w = 0, h = 0;
  ASSERT_EQ(engine_->GetTextureSize("mat0tex0", &w, &h), 1);
  EXPECT_EQ(w, 512);
  EXPECT_EQ(h, 256);
  EXPECT_FLOAT_EQ(mats_.LayerScaleU(0, 0), 0.625f);
  EXPECT_FLOAT_EQ(mats_.LayerScaleV(0, 0), 0.9375f);
  ASSERT_EQ(engine_->GetTextureSize("mat0tex1", &w, &h), 1);
  EXPECT_EQ(w, 1024);
  EXPECT_EQ(h, 2);
  EXPECT_STREQ(mats_.LayerTexture(0, 1), "mat0tex1");
  // The sizes a drawing effect asks for: a layer of size 0 takes the
  // output's, each side the power of two the picture fits in.
  EXPECT_EQ(mats_.LayerWidth(0, 0), 320);
  EXPECT_EQ(mats_.LayerHeight(0, 0), 240);
  EXPECT_EQ(mats_.LayerSide(0, 0, 0), 512);
  EXPECT_EQ(mats_.LayerSide(0, 0, 1), 256);
  EXPECT_EQ(mats_.LayerWidth(0, 1), 1000);
  EXPECT_EQ(mats_.LayerHeight(0, 1), 1);
  EXPECT_EQ(mats_.LayerSide(0, 1, 0), 1024);
  EXPECT_EQ(mats_.LayerSide(0, 1, 1), 2);
  for (const auto& [mat, layer] :
       std::initializer_list<std::pair<int32_t, int32_t>>{{1, 0}, {0, 2}, {-1, 0}, {0, -1}}) {
    EXPECT_EQ(mats_.LayerWidth(mat, layer), 0) << mat << "/" << layer;
    EXPECT_EQ(mats_.LayerHeight(mat, layer), 0) << mat << "/" << layer;
    EXPECT_EQ(mats_.LayerSide(mat, layer, 0), 0) << mat << "/" << layer;
  }
  EXPECT_TRUE(HasTrace("nbMatManager::LoadMaterial [1]"));
  EXPECT_TRUE(HasTrace("nbMatManager::LoadMaterial [2]"));
  EXPECT_NE(mats_.GetMaterial(0).tex[0].pixel_buffer, 0u);

  mats_.FreeMaterial(0);
  EXPECT_EQ(engine_->HasTexture("mat0tex0"), 0);
  EXPECT_EQ(engine_->HasTexture("mat0tex1"), 0);
  EXPECT_EQ(mats_.LayerTexture(0, 0), nullptr);
  EXPECT_EQ(mats_.LayerWidth(0, 0), 0) << "a freed layer has no size";
  EXPECT_EQ(mats_.LayerHeight(0, 1), 0);
  EXPECT_EQ(mats_.LayerSide(0, 0, 1), 0);
  EXPECT_TRUE(HasTrace("nbMatManager::FreeMaterial"));
  EXPECT_EQ(mats_.LoadMaterial(-1, m), 0);
}

TEST_F(MaterialEngineTest, PicturesFoundByNameInvertedOrBlackButLit) {
  mats_.SetEngine(engine_);
  const std::string path = Picture("wood.pic", "FF336699");
  Material m = Neutral();
  m.usesectex = 1;
  m.invert_tex2 = 1;
  SetFixedText(m.tex[0].bitmapname, path.c_str());
  SetFixedText(m.tex[1].bitmapname, path.c_str());
  ASSERT_EQ(mats_.LoadMaterial(0, m), 1);
  EXPECT_EQ(Texel(0, 0, 0, 0, 64), 0x00336699u) << "lit by 128: unchanged, alpha 0";
  EXPECT_EQ(Texel(0, 0, 63, 63, 64), 0x00336699u);
  EXPECT_EQ(Texel(0, 1, 10, 10, 64), 0x00CC9966u) << "the second texture inverted";

  // Stored elsewhere (another machine's path): found by name in a folder the
  // effect adds, or in the host's recent folder.
  SetFixedText(m.tex[0].bitmapname, "C:\\textures\\wood.pic");
  mats_.AddSearchFolder((dir_ / "none").string());
  mats_.AddSearchFolder(dir_.string());
  ASSERT_EQ(mats_.LoadMaterial(0, m), 1);
  EXPECT_EQ(Texel(0, 0, 1, 1, 64), 0x00336699u);
  mats_.ClearSearchFolders();
  bin_.SetRecentPath(dir_.string());
  SetFixedText(m.tex[0].bitmapname, "/gone/wood.pic");
  ASSERT_EQ(mats_.LoadMaterial(0, m), 1);
  EXPECT_EQ(Texel(0, 0, 1, 1, 64), 0x00336699u);

  // Nowhere: black, lit by the default light map, so 2L - 256 shows.
  Material lost = DefaultMaterial();
  SetFixedText(lost.tex[0].bitmapname, "/gone/nothing.pic");
  lost.tex[0].w = 40, lost.tex[0].h = 30;
  ASSERT_EQ(mats_.LoadMaterial(1, lost), 1);
  int off = 0, bright = 0;
  for (int y = 0; y < 30; ++y)
    for (int x = 0; x < 40; ++x) {
      const uint32_t l = nimbo::testing::IndependentLightMap(x, y, 40, 30, lost.tex[0]), got = Texel(1, 0, x, y, 64);
      for (int s = 0; s < 24; s += 8) {
        const int want = std::max(0, 2 * int((l >> s) & 0xFF) - 256);
        off += std::abs(int((got >> s) & 0xFF) - want) > 2;
        bright += ((got >> s) & 0xFF) > 0;
      }
    }
  EXPECT_EQ(off, 0);
  EXPECT_GT(bright, 0);
}

TEST_F(MaterialEngineTest, InputScreensAreCopiedLitEachFrameUnlessFrozen) {
  mats_.SetEngine(engine_);
  Material m = Neutral();
  m.usesectex = 1;
  for (TextureLayer& t : m.tex) t.texmode = kTexModeInput, t.w = 4, t.h = 2;
  m.tex[0].base_clr = 0x908070;  // +32, +0, -32 per channel
  m.tex[1].freeze = 1;
  ASSERT_EQ(mats_.LoadMaterial(0, m), 1);
  EXPECT_EQ(mats_.GetInputSlot(0).tex, 0);
  EXPECT_EQ(mats_.GetInputSlot(1).tex, 1);
  EXPECT_EQ(mats_.GetMaterial(0).tex[1].input, 1);

  nimbo::testing::OwnedScreen background(8, 8), a(4, 2, 0xFF404040), b(4, 2, 0xFF102030);
  const orrery::Screen* screens[3] = {&background.screen, &a.screen, &b.screen};
  mats_.UpdateInputTextures({screens, 3}, 1);
  EXPECT_EQ(Texel(0, 0, 3, 1, 4), 0x00604020u);
  EXPECT_EQ(Texel(0, 1, 0, 0, 4), 0x00102030u);
  a.pixels.assign(8, 0xFF000000u), b.pixels.assign(8, 0xFFFFFFFFu);
  mats_.UpdateInputTextures({screens, 3}, 1);
  EXPECT_EQ(Texel(0, 0, 0, 0, 4), 0x00200000u) << "followed the screen";
  EXPECT_EQ(Texel(0, 1, 0, 0, 4), 0x00102030u) << "frozen after the first copy";
  // A screen of another size is scaled into the texture; a missing one
  // leaves it.
  nimbo::testing::OwnedScreen big(16, 8, 0xFF808080);
  screens[1] = &big.screen;
  mats_.UpdateInputTextures({screens, 3}, 1);
  EXPECT_EQ(Texel(0, 0, 2, 1, 4), 0x00A08060u);
  screens[1] = nullptr;
  mats_.UpdateInputTextures({screens, 3}, 1);
  EXPECT_EQ(Texel(0, 0, 2, 1, 4), 0x00A08060u);
}

TEST_F(MaterialEngineTest, ANewEngineGetsFreshTexturesAndTheOldOneIsNotTouched) {
  const std::string path = Picture("stone.pic", "FF446688");
  Material m = Neutral();
  SetFixedText(m.tex[0].bitmapname, path.c_str());
  mats_.SetEngine(engine_);
  ASSERT_EQ(mats_.LoadMaterial(0, m), 1);
  ASSERT_EQ(mats_.LoadMaterial(1, m), 1);
  // The effect initialises again: the old engine is released first, and
  // its buffer handles mean nothing in the new one.
  engine_->Release();
  engine_ = CreateEngineObject(nullptr);
  ASSERT_NE(engine_, nullptr);
  mats_.SetEngine(engine_);
  EXPECT_EQ(mats_.LayerTexture(0, 0), nullptr);
  ASSERT_EQ(mats_.LoadMaterial(1, m), 1);
  ASSERT_EQ(mats_.LoadMaterial(0, m), 1);
  EXPECT_EQ(Texel(1, 0, 0, 0, 64), 0x00446688u);
  EXPECT_EQ(Texel(0, 0, 0, 0, 64), 0x00446688u);
  EXPECT_EQ(engine_->HasTexture("mat1tex0"), 1);
}

// ---- render flags drawn ------------------------------------------------------------

class MaterialFlagsDrawTest : public MaterialEngineTest {
 protected:
  static constexpr uint32_t kBackground = 0xFF202020u;
  // The centre pixel after drawing a square (front-facing unless
  // `reversed`) with material `mat`; `edge_drawn` tells whether any pixel
  // differs from the background.
  uint32_t Draw(int32_t mat, bool reversed, bool* edge_drawn = nullptr) {
    const float su = mats_.LayerScaleU(mat, 0), sv = mats_.LayerScaleV(mat, 0);
    nb3D::Vertex v[4];
    const float xs[4] = {-5, 5, 5, -5}, ys[4] = {-5, -5, 5, 5}, us[4] = {0, 1, 1, 0}, vs[4] = {0, 0, 1, 1};
    for (int i = 0; i < 4; ++i) v[i] = {xs[i], ys[i], 0, 0, 0, 1, us[i] * su, vs[i] * sv, us[i] * su, vs[i] * sv};
    uint32_t idx[6] = {0, 1, 2, 0, 2, 3};
    if (reversed) std::swap(idx[1], idx[2]), std::swap(idx[4], idx[5]);
    const nb3D::Mesh mesh{v, 4, idx, 6, mats_.LayerTexture(mat, 0), mats_.LayerTexture(mat, 1),
                          uint32_t(mats_.GetMaterialFlags(mat)), 0, nullptr, 0};
    nimbo::testing::OwnedScreen out(64, 64);
    if (engine_->Begin() != 1) return 0xDEADBEEF;
    EXPECT_EQ(engine_->DrawMesh(mesh), 1);
    EXPECT_EQ(engine_->Present(&out.screen), 1);
    engine_->End();
    if (edge_drawn) {
      *edge_drawn = false;
      for (uint32_t p : out.pixels) *edge_drawn = *edge_drawn || (p & 0xFFFFFF) != (kBackground & 0xFFFFFF);
    }
    return out.pixels[32 * 64 + 32] & 0xFFFFFF;
  }
};

bool Near(uint32_t got, uint32_t want) {
  for (int s = 0; s < 24; s += 8)
    if (std::abs(int((got >> s) & 0xFF) - int((want >> s) & 0xFF)) > 2) return false;
  return true;
}

TEST_F(MaterialFlagsDrawTest, EachRenderFlagShows) {
  mats_.SetEngine(engine_);
  engine_->SetOutputSize(64, 64);
  engine_->SetBackground({kBackground, nullptr});
  engine_->SetCamera({{0, 0, 10}, {0, 0, 0}, 0, 1});
  engine_->SetProjection({90, 1, 100});
  if (engine_->Begin() != 1) GTEST_SKIP() << "no drawing device";
  engine_->End();

  const std::string first = Picture("first.pic", "FF804020"), second = Picture("second.pic", "FF204080");
  struct Case {
    const char* what;
    int usesectex, sectype, trans, wire, twosided;
    bool reversed;
    uint32_t centre;
  };
  const Case cases[] = {
      {"opaque", 0, 0, -1, 0, 0, false, 0x804020},
      {"50% transparency", 0, 0, 0, 0, 0, false, 0x503020},
      {"additive", 0, 0, 1, 0, 0, false, 0xA06040},
      {"second added", 1, 0, -1, 0, 0, false, 0xA080A0},
      {"second subtracted", 1, 1, -1, 0, 0, false, 0x600000},
      {"alpha from second blue", 1, 2, -1, 0, 0, false, 0x503020},
      {"wireframe", 0, 0, -1, 1, 0, false, 0x202020},
      {"back face hidden", 0, 0, -1, 0, 0, true, 0x202020},
      {"two-sided", 0, 0, -1, 0, 1, true, 0x804020},
  };
  int32_t index = 0;
  for (const Case& c : cases) {
    Material m = Neutral();
    SetFixedText(m.tex[0].bitmapname, first.c_str());
    SetFixedText(m.tex[1].bitmapname, second.c_str());
    m.usesectex = c.usesectex, m.sectype = c.sectype, m.trans = c.trans, m.wire = c.wire, m.twosided = c.twosided;
    ASSERT_EQ(mats_.LoadMaterial(index, m), 1);
    bool drawn = false;
    const uint32_t centre = Draw(index, c.reversed, &drawn);
    EXPECT_TRUE(Near(centre, c.centre)) << c.what << ": " << std::hex << centre << " want " << c.centre;
    if (c.wire) {
      EXPECT_TRUE(drawn) << "the wireframe's edges";
    }
    ++index;
  }
}

}  // namespace
