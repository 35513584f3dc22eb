// Real drawing through OpenGL ES (a GPU's EGL, or llvmpipe with no display):
// pixel-exact textures, orientation, culling, depth, blending, the second
// texture, wireframe, and two engine objects drawing at once.
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "engine/engine.h"
#include "engine/gles_backend.h"
#include "support/test_host.h"

namespace {

using nimbo::testing::FillRandom;
using nimbo::testing::OwnedScreen;

std::unique_ptr<nb3d::Engine> MakeEngine(int32_t w, int32_t h, bool read_bgra = true) {
  auto engine = std::make_unique<nb3d::Engine>(std::make_unique<nb3d::GlesBackend>(read_bgra));
  engine->SetOutputSize(w, h);
  return engine;
}

uint32_t Channel(uint32_t p, int shift) { return (p >> shift) & 0xFF; }

// Within one step per channel: blending rounds either way.
::testing::AssertionResult Near(uint32_t got, uint32_t want) {
  for (int shift = 0; shift < 32; shift += 8) {
    if (std::abs(int(Channel(got, shift)) - int(Channel(want, shift))) > 1) {
      return ::testing::AssertionFailure() << std::hex << "got 0x" << got << ", want 0x" << want;
    }
  }
  return ::testing::AssertionSuccess();
}

void SolidTexture(nb3D& engine, const char* name, uint32_t color, int32_t format = nb3D::kFormatRgba) {
  nb3D::TextureDesc d{};
  d.width = d.height = 1;
  d.format = format;
  d.pixels = &color;
  ASSERT_EQ(engine.CreateTexture(name, d), 1);
}

// A square in the z = `z` plane from (x0, y0) to (x1, y1), counter-clockwise
// seen from +z (front-facing to the test camera) unless `reversed`.
struct Square {
  Square(float x0, float y0, float x1, float y1, float z = 0, bool reversed = false) {
    vertices[0] = {x0, y0, z, 0, 0, 1, 0, 0, 0, 0};
    vertices[1] = {x1, y0, z, 0, 0, 1, 1, 0, 1, 0};
    vertices[2] = {x1, y1, z, 0, 0, 1, 1, 1, 1, 1};
    vertices[3] = {x0, y1, z, 0, 0, 1, 0, 1, 0, 1};
    const uint32_t ccw[6] = {0, 1, 2, 0, 2, 3}, cw[6] = {0, 2, 1, 0, 3, 2};
    for (int i = 0; i < 6; ++i) indices[i] = reversed ? cw[i] : ccw[i];
  }
  nb3D::Mesh Mesh(const char* texture, uint32_t flags = 0, const char* texture2 = nullptr) const {
    return {vertices, 4, indices, 6, texture, texture2, flags, 0, nullptr, 0};
  }
  nb3D::Vertex vertices[4];
  uint32_t indices[6];
};

// Camera on +z looking at the origin with a 90 degree view: on a square
// output the z = 0 plane shows x and y from -10 to 10.
void LookFromFront(nb3D& engine) {
  engine.SetCamera({{0, 0, 10}, {0, 0, 0}, 0, 1});
  engine.SetProjection({90, 1, 100});
}

TEST(GlesRenderTest, NearestQuadCopiesPixelsExactlyTopRowFirst) {
  auto engine = MakeEngine(640, 480);
  OwnedScreen input(64, 48);
  FillRandom(input, 7);
  nb3D::TextureDesc d{64, 64, nb3D::kFormatRgba, nb3D::kFilterNearest, nullptr, 0};
  ASSERT_EQ(engine->CreateTexture("in", d), 1);
  ASSERT_EQ(engine->Begin(), 1);
  std::printf("device: %s\n", engine->GetDeviceName());
  EXPECT_STRNE(engine->GetDeviceName(), "");
  ASSERT_EQ(engine->UpdateTexture("in", 0, 0, 64, 48, input.pixels.data(), 64), 1);
  nb3D::Quad quad{-320, -240, 320, 240, 0, 0, 1.0f, 0.75f, "in", 0, 0};
  ASSERT_EQ(engine->DrawQuad(quad), 1);
  OwnedScreen out(640, 480);
  ASSERT_EQ(engine->Present(&out.screen), 1);
  engine->End();
  int wrong = 0;
  for (int y = 0; y < 480; ++y) {
    for (int x = 0; x < 640; ++x) wrong += out.At(x, y) != input.At(x / 10, y / 10);
  }
  EXPECT_EQ(wrong, 0) << "every output pixel is its 10x10 block's input pixel, alpha included";
  EXPECT_EQ(engine->GetErrorCount(), 0);
}

TEST(GlesRenderTest, BackgroundRgbTexturesAndBothReadPaths) {
  for (bool bgra : {true, false}) {
    SCOPED_TRACE(bgra ? "BGRA read" : "RGBA read + swizzle");
    auto engine = MakeEngine(37, 11, bgra);  // odd sizes: no row padding may creep in
    engine->SetBackground({0x80102030u, nullptr});
    SolidTexture(*engine, "rgb", 0x00A0B0C0u, nb3D::kFormatRgb);
    ASSERT_EQ(engine->Begin(), 1);
    // Left half: the RGB texture, whose alpha reads opaque.
    ASSERT_EQ(engine->DrawQuad({-18.5f, -5.5f, 0.5f, 5.5f, 0, 0, 0, 0, "rgb", 0, 0}), 1);
    OwnedScreen out(37, 11);
    ASSERT_EQ(engine->Present(&out.screen), 1);
    engine->End();
    EXPECT_EQ(out.At(0, 0), 0xFFA0B0C0u);
    EXPECT_EQ(out.At(18, 10), 0xFFA0B0C0u);
    EXPECT_EQ(out.At(19, 0), 0x80102030u);
    EXPECT_EQ(out.At(36, 10), 0x80102030u);
  }
}

TEST(GlesRenderTest, UpperWorldIsUpCullingAndDepth) {
  auto engine = MakeEngine(32, 32);
  LookFromFront(*engine);
  engine->SetBackground({0xFF000000u, nullptr});
  SolidTexture(*engine, "red", 0xFFFF0000u);
  SolidTexture(*engine, "green", 0xFF00FF00u);
  OwnedScreen out(32, 32);

  // World y > 0 is the top of the picture.
  ASSERT_EQ(engine->Begin(), 1);
  ASSERT_EQ(engine->DrawMesh(Square(-20, 0, 20, 20).Mesh("red")), 1);
  engine->Present(&out.screen);
  engine->End();
  EXPECT_EQ(out.At(16, 2), 0xFFFF0000u);
  EXPECT_EQ(out.At(16, 29), 0xFF000000u);

  // Clockwise squares face away: culled unless two-sided.
  ASSERT_EQ(engine->Begin(), 1);
  engine->DrawMesh(Square(-20, -20, 20, 20, 0, true).Mesh("red"));
  engine->Present(&out.screen);
  EXPECT_EQ(out.At(16, 16), 0xFF000000u);
  engine->DrawMesh(Square(-20, -20, 20, 20, 0, true).Mesh("red", nb3D::kFlagTwoSided));
  engine->Present(&out.screen);
  engine->End();
  EXPECT_EQ(out.At(16, 16), 0xFFFF0000u);

  // The nearer square wins whatever the drawing order.
  ASSERT_EQ(engine->Begin(), 1);
  engine->DrawMesh(Square(-20, -20, 20, 20, 1).Mesh("red"));
  engine->DrawMesh(Square(-20, -20, 20, 20, -1).Mesh("green"));
  engine->Present(&out.screen);
  engine->End();
  EXPECT_EQ(out.At(16, 16), 0xFFFF0000u);
  EXPECT_EQ(engine->GetErrorCount(), 0);
}

TEST(GlesRenderTest, BlendingAndSecondTexture) {
  auto engine = MakeEngine(8, 8);
  LookFromFront(*engine);
  engine->SetBackground({0xFF303030u, nullptr});
  SolidTexture(*engine, "grey40", 0xFF404040u);
  SolidTexture(*engine, "grey20", 0xFF202020u);
  SolidTexture(*engine, "blue80", 0xFF000080u);
  const Square all(-20, -20, 20, 20);
  struct Case {
    const char* what;
    uint32_t flags;
    const char* texture2;
    uint32_t want;
  } cases[] = {
      {"opaque", 0, nullptr, 0xFF404040u},
      {"50% over the background", nb3D::kFlagHalfTransparent, nullptr, 0xFF383838u},
      {"additive", nb3D::kFlagAdditive, nullptr, 0xFF707070u},
      {"second added", nb3D::kFlagSecondAdded, "grey20", 0xFF606060u},
      {"second subtracted", nb3D::kFlagSecondSubtracted, "grey20", 0xFF202020u},
      // Opacity 0x80/0xFF: 0x40 * 0.502 + 0x30 * 0.498.
      {"alpha from second blue", nb3D::kFlagAlphaFromSecondBlue, "blue80", 0xFF383838u},
  };
  OwnedScreen out(8, 8);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    ASSERT_EQ(engine->Begin(), 1);
    ASSERT_EQ(engine->DrawMesh(all.Mesh("grey40", c.flags, c.texture2)), 1);
    engine->Present(&out.screen);
    engine->End();
    EXPECT_TRUE(Near(out.At(4, 4) | 0xFF000000u, c.want));
  }

  // Lit meshes: full light on a face turned to the camera, the ambient
  // fifth on one seen edge-on by the light.
  Square sideways(-20, -20, 20, 20);
  for (nb3D::Vertex& v : sideways.vertices) v.nx = 1, v.nz = 0;
  for (const Square* square : std::initializer_list<const Square*>{&all, &sideways}) {
    nb3D::Mesh mesh = square->Mesh("grey40");
    mesh.lit = 1;
    ASSERT_EQ(engine->Begin(), 1);
    ASSERT_EQ(engine->DrawMesh(mesh), 1);
    engine->Present(&out.screen);
    engine->End();
    EXPECT_TRUE(Near(out.At(4, 4), square == &all ? 0xFF404040u : 0xFF0D0D0Du));
  }
}

TEST(GlesRenderTest, WireframeDrawsEdgesOnly) {
  auto engine = MakeEngine(64, 64);
  LookFromFront(*engine);
  engine->SetBackground({0xFF000000u, nullptr});
  SolidTexture(*engine, "white", 0xFFFFFFFFu);
  ASSERT_EQ(engine->Begin(), 1);
  ASSERT_EQ(engine->DrawMesh(Square(-8, -8, 8, 8).Mesh("white", nb3D::kFlagWireframe)), 1);
  OwnedScreen out(64, 64);
  engine->Present(&out.screen);
  engine->End();
  int lit = 0;
  for (uint32_t p : out.pixels) lit += p == 0xFFFFFFFFu;
  EXPECT_EQ(out.At(20, 30), 0xFF000000u) << "inside a triangle, off its edges";
  EXPECT_GT(lit, 4 * 40) << "four sides and a diagonal of about 51 pixels each";
  EXPECT_LT(lit, 6 * 60);
}

TEST(GlesRenderTest, TwoEnginesDrawAtOnceWithoutDisturbingEachOther) {
  auto run = [](int32_t w, int32_t h, uint32_t background, uint32_t color, int* failures) {
    auto engine = MakeEngine(w, h);
    engine->SetBackground({background, nullptr});
    SolidTexture(*engine, "t", color);
    OwnedScreen out(w, h);
    for (int frame = 0; frame < 25; ++frame) {
      if (!engine->Begin()) {
        ++*failures;
        continue;
      }
      // The left half in the texture's colour, the rest background.
      engine->DrawQuad({-w / 2.0f, -h / 2.0f, 0, h / 2.0f, 0, 0, 0, 0, "t", 0, 0});
      engine->Present(&out.screen);
      engine->End();
      *failures += out.At(0, h - 1) != color || out.At(w - 1, 0) != background;
    }
    *failures += engine->GetErrorCount();
  };
  int failures_a = 0, failures_b = 0;
  std::thread a(run, 64, 32, 0xFF0000FFu, 0xFFFF0000u, &failures_a);
  std::thread b(run, 30, 50, 0xFF00FF00u, 0xFF808080u, &failures_b);
  a.join();
  b.join();
  EXPECT_EQ(failures_a, 0);
  EXPECT_EQ(failures_b, 0);
}

}  // namespace
