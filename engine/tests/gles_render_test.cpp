// Real drawing through OpenGL ES (a GPU's EGL, or llvmpipe with no display):
// pixel-exact textures, orientation, culling, depth, blending, the second
// texture, lighting, wireframe, both read paths, and two engine objects
// drawing at once.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "engine.h"
#include "gles_backend.h"
#include "test_screen.h"

namespace {

// An engine drawing a `w` x `h` picture over `background`, with a camera on
// +z looking at the origin with a 90 degree view (on a square output the
// z = 0 plane shows x and y from -10 to 10), and one-texel textures of
// solid colours named for them.
auto MakeEngine(int32_t w, int32_t h, uint32_t background = 0xFF000000u, bool read_bgra = true) {
  auto engine = std::make_unique<nb3d::Engine>(std::make_unique<nb3d::GlesBackend>(read_bgra));
  engine->SetOutputSize(w, h);
  engine->SetBackground({background, nullptr});
  engine->SetCamera({{0, 0, 10}, {0, 0, 0}, 0, 1});
  engine->SetProjection({90, 1, 100});
  const std::pair<const char*, uint32_t> solids[] = {
      {"red", 0xFFFF0000u},    {"green", 0xFF00FF00u},  {"white", 0xFFFFFFFFu}, {"grey80", 0xFF808080u},
      {"grey40", 0xFF404040u}, {"grey20", 0xFF202020u}, {"blue80", 0xFF000080u}};
  for (auto [name, color] : solids) engine->CreateTexture(name, {1, 1, nb3D::kFormatRgba, 0, &color, 0});
  const uint32_t rgb = 0x00A0B0C0u;  // its alpha byte must read as opaque
  engine->CreateTexture("rgb", {1, 1, nb3D::kFormatRgb, 0, &rgb, 0});
  return engine;
}

// Within one step per channel: blending rounds either way.
bool Near(uint32_t got, uint32_t want) {
  bool near = true;
  for (int s = 0; s < 32; s += 8) near = near && std::abs(int((got >> s) & 0xFF) - int((want >> s) & 0xFF)) <= 1;
  return near;
}

// A square in the z = `z` plane from (x0, y0) to (x1, y1), counter-clockwise
// seen from +z (front-facing to the camera) unless `reversed`, its normal
// turned by `nx` towards +x.
struct Square {
  Square(float x0, float y0, float x1, float y1, float z = 0, bool reversed = false, float nx = 0) {
    const float u[4] = {0, 1, 1, 0}, v[4] = {0, 0, 1, 1};
    for (int i : {0, 1, 2, 3}) vertices[i] = {u[i] ? x1 : x0, v[i] ? y1 : y0, z, nx, 0, 1 - nx, u[i], v[i], u[i], v[i]};
    if (reversed) std::swap(indices[1], indices[2]), std::swap(indices[4], indices[5]);
  }
  nb3D::Mesh Mesh(const char* texture, uint32_t flags = 0, const char* texture2 = nullptr, int32_t lit = 0) const {
    return {vertices, 4, indices, 6, texture, texture2, flags, 0, nullptr, lit};
  }
  nb3D::Vertex vertices[4];
  uint32_t indices[6] = {0, 1, 2, 0, 2, 3};
};

// One frame of `meshes`, read back.
nimbo::testing::OwnedScreen Frame(nb3d::Engine& engine, int32_t w, int32_t h, const std::vector<nb3D::Mesh>& meshes) {
  nimbo::testing::OwnedScreen out(w, h);
  EXPECT_EQ(engine.Begin(), 1);
  for (const nb3D::Mesh& mesh : meshes) EXPECT_EQ(engine.DrawMesh(mesh), 1);
  EXPECT_EQ(engine.Present(&out.screen), 1);
  engine.End();
  return out;
}

TEST(GlesRenderTest, NearestQuadCopiesPixelsExactlyTopRowFirst) {
  auto engine = MakeEngine(640, 480);
  nimbo::testing::OwnedScreen input(64, 48), out(640, 480);
  nimbo::testing::FillRandom(input, 7);
  ASSERT_EQ(engine->CreateTexture("in", {64, 64, nb3D::kFormatRgba, nb3D::kFilterNearest, nullptr, 0}), 1);
  ASSERT_EQ(engine->Begin(), 1);
  ASSERT_EQ(engine->UpdateTexture("in", 0, 0, 64, 48, input.pixels.data(), 64), 1);
  ASSERT_EQ(engine->DrawQuad({-320, -240, 320, 240, 0, 0, 1.0f, 0.75f, "in", 0, 0}), 1);
  ASSERT_EQ(engine->Present(&out.screen), 1);
  engine->End();
  int wrong = 0;
  for (int i = 0; i < 640 * 480; ++i) wrong += out.pixels[i] != input.At(i % 640 / 10, i / 640 / 10);
  EXPECT_EQ(wrong, 0) << "every output pixel is its 10x10 block's input pixel, alpha included";
}

TEST(GlesRenderTest, OrientationCullingDepthBlendingAndLightOnBothReadPaths) {
  const uint32_t kBackground = 0x80102030u;
  const Square all(-20, -20, 20, 20), top(-20, 0, 20, 20), back(-20, -20, 20, 20, 0, true);
  const Square nearer(-20, -20, 20, 20, 1), farther(-20, -20, 20, 20, -1), edge_on(-20, -20, 20, 20, 0, false, 1);
  struct Case {
    const char* what;
    std::vector<nb3D::Mesh> meshes;
    int32_t y;      // of the probe, in the middle column
    uint32_t want;  // an alpha of 0 is not checked: blending makes its own
  } cases[] = {
      {"world y > 0 is the top", {top.Mesh("red")}, 2, 0xFFFF0000u},
      {"and the bottom stays background", {top.Mesh("red")}, 30, kBackground},
      {"clockwise faces away: culled", {back.Mesh("red")}, 16, kBackground},
      {"unless two-sided", {back.Mesh("red", nb3D::kFlagTwoSided)}, 16, 0xFFFF0000u},
      {"the nearer square wins, drawn first", {nearer.Mesh("red"), farther.Mesh("green")}, 16, 0xFFFF0000u},
      {"RGB texture", {all.Mesh("rgb")}, 16, 0xFFA0B0C0u},
      {"opaque", {all.Mesh("grey40")}, 16, 0xFF404040u},
      // The background's colour is 0x102030.
      {"50% over the background", {all.Mesh("grey40", nb3D::kFlagHalfTransparent)}, 16, 0x283038u},
      {"additive", {all.Mesh("grey40", nb3D::kFlagAdditive)}, 16, 0x506070u},
      {"second added", {all.Mesh("grey40", nb3D::kFlagSecondAdded, "grey20")}, 16, 0xFF606060u},
      {"second subtracted", {all.Mesh("grey40", nb3D::kFlagSecondSubtracted, "grey20")}, 16, 0xFF202020u},
      // Opacity 0x80/0xFF: 0x40 * 0.502 + background * 0.498.
      {"alpha from second blue", {all.Mesh("grey40", nb3D::kFlagAlphaFromSecondBlue, "blue80")}, 16, 0x283038u},
      // Full light on a face turned to the camera, the ambient fifth on one
      // seen edge-on by the light.
      {"lit, facing", {all.Mesh("grey40", 0, nullptr, 1)}, 16, 0xFF404040u},
      {"lit, edge-on", {edge_on.Mesh("grey40", 0, nullptr, 1)}, 16, 0xFF0D0D0Du},
  };
  for (bool bgra : {true, false}) {
    auto engine = MakeEngine(41, 33, kBackground, bgra);  // odd sizes: no row padding may creep in
    for (const Case& c : cases) {
      SCOPED_TRACE(std::string(bgra ? "BGRA read: " : "RGBA read + swizzle: ") + c.what);
      uint32_t got = Frame(*engine, 41, 33, c.meshes).At(20, c.y);
      EXPECT_TRUE(Near(c.want >> 24 ? got : got & 0xFFFFFFu, c.want)) << std::hex << "got 0x" << got;
    }
  }
}

TEST(GlesRenderTest, WireframeDrawsEdgesOnly) {
  auto engine = MakeEngine(64, 64);
  auto out = Frame(*engine, 64, 64, {Square(-8, -8, 8, 8).Mesh("white", nb3D::kFlagWireframe)});
  EXPECT_EQ(out.At(20, 30), 0xFF000000u) << "inside a triangle, off its edges";
  // Four sides and a diagonal of about 51 pixels each.
  EXPECT_NEAR(std::count(out.pixels.begin(), out.pixels.end(), 0xFFFFFFFFu), 260, 99);
  // Each side (at about 6.4 and 57.6 pixels) and the diagonal through the
  // middle is drawn: a white pixel within two of where it belongs.
  auto white_near = [&](int32_t x, int32_t y) {
    for (int32_t dy = -2; dy <= 2; ++dy) {
      for (int32_t dx = -2; dx <= 2; ++dx) {
        if (out.At(x + dx, y + dy) == 0xFFFFFFFFu) return true;
      }
    }
    return false;
  };
  EXPECT_TRUE(white_near(6, 32)) << "left side";
  EXPECT_TRUE(white_near(57, 32)) << "right side";
  EXPECT_TRUE(white_near(32, 6)) << "one horizontal side";
  EXPECT_TRUE(white_near(32, 57)) << "the other horizontal side";
  EXPECT_TRUE(white_near(32, 32)) << "diagonal";
}

TEST(GlesRenderTest, TwoEnginesDrawAtOnceWithoutDisturbingEachOther) {
  auto run = [](int32_t w, int32_t h, uint32_t background, const char* texture, uint32_t color, int* failures) {
    auto engine = MakeEngine(w, h, background);
    const Square left(-100, -100, 0, 100);  // the left half in the texture's colour, the rest background
    for (int frame = 0; frame < 25; ++frame) {
      auto out = Frame(*engine, w, h, {left.Mesh(texture)});
      *failures += out.At(0, h - 1) != color || out.At(w - 1, 0) != background;
    }
    *failures += engine->GetErrorCount();
  };
  int failures[2] = {};
  std::thread a(run, 64, 32, 0xFF0000FFu, "red", 0xFFFF0000u, &failures[0]);
  std::thread b(run, 30, 50, 0xFF00FF00u, "grey80", 0xFF808080u, &failures[1]);
  a.join();
  b.join();
  EXPECT_EQ(failures[0], 0) << "engine A";
  EXPECT_EQ(failures[1], 0) << "engine B";
}

}  // namespace
