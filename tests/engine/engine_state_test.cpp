// The engine object's state logic on the null backend: argument checks,
// names, buffers, frame states, the error report and how render flags
// become draw states. No GPU involved.
#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <string>

#include "engine/engine.h"
#include "engine/null_backend.h"

namespace {

using nb3d::DrawCall;

class EngineStateTest : public ::testing::Test {
 protected:
  EngineStateTest() {
    auto owned = std::make_unique<nb3d::NullBackend>();
    backend = owned.get();
    engine = std::make_unique<nb3d::Engine>(std::move(owned));
  }
  std::string LastError() {
    int32_t n = engine->GetErrorCount();
    return n ? engine->GetError(n - 1) : "";
  }
  nb3D::TextureDesc Texture(int32_t w, int32_t h) {
    nb3D::TextureDesc d{};
    d.width = w;
    d.height = h;
    return d;
  }

  nb3d::NullBackend* backend;
  std::unique_ptr<nb3d::Engine> engine;
};

TEST_F(EngineStateTest, TextureSidesMustBePowersOfTwoUpTo1024) {
  struct Case {
    int32_t w, h;
    bool ok;
  } cases[] = {{1, 1, true}, {1024, 1024, true}, {512, 256, true}, {2, 1024, true}, {0, 4, false},
               {3, 4, false}, {2048, 2, false}, {-4, 4, false}, {4, 640, false}};
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.w) + "x" + std::to_string(c.h));
    EXPECT_EQ(engine->CreateTexture("t", Texture(c.w, c.h)), c.ok ? 1 : 0);
    if (!c.ok) {
      EXPECT_NE(LastError().find("is not a power of two"), std::string::npos) << LastError();
    }
  }
  nb3D::TextureDesc bad_format = Texture(4, 4);
  bad_format.format = 3;
  EXPECT_EQ(engine->CreateTexture("t", bad_format), 0);
  nb3D::TextureDesc bad_filter = Texture(4, 4);
  bad_filter.filter = -1;
  EXPECT_EQ(engine->CreateTexture("t", bad_filter), 0);
  uint32_t row[4] = {};
  nb3D::TextureDesc short_stride = Texture(4, 1);
  short_stride.pixels = row;
  short_stride.stride = 3;
  EXPECT_EQ(engine->CreateTexture("t", short_stride), 0);
  EXPECT_EQ(engine->CreateTexture(nullptr, Texture(4, 4)), 0);
  EXPECT_EQ(engine->CreateTexture("", Texture(4, 4)), 0);
}

TEST_F(EngineStateTest, TexturesAreNamedReplacedAndDeleted) {
  ASSERT_EQ(engine->CreateTexture("maintex", Texture(512, 256)), 1);
  int32_t w = 0, h = 0;
  EXPECT_EQ(engine->GetTextureSize("maintex", &w, &h), 1);
  EXPECT_EQ(w, 512);
  EXPECT_EQ(h, 256);
  // The same name again replaces the texture; the old one is given back.
  ASSERT_EQ(engine->CreateTexture("maintex", Texture(64, 64)), 1);
  EXPECT_EQ(backend->textures.size(), 1u);
  engine->GetTextureSize("maintex", &w, &h);
  EXPECT_EQ(w, 64);
  // Made outside a frame: the device was bound for the call and let go.
  EXPECT_EQ(backend->binds, backend->unbinds);

  engine->DeleteTexture("maintex");
  EXPECT_EQ(engine->HasTexture("maintex"), 0);
  EXPECT_EQ(engine->GetTextureSize("maintex", &w, &h), 0);
  EXPECT_EQ(w, 0);
  EXPECT_TRUE(backend->textures.empty());
  engine->DeleteTexture("never made");  // harmless
}

TEST_F(EngineStateTest, TextureUpdatesMustFitInside) {
  ASSERT_EQ(engine->CreateTexture("t", Texture(64, 32)), 1);
  std::vector<uint32_t> pixels(64 * 32);
  EXPECT_EQ(engine->UpdateTexture("t", 0, 0, 64, 32, pixels.data(), 0), 1);
  EXPECT_EQ(engine->UpdateTexture("t", 60, 30, 4, 2, pixels.data(), 64), 1);
  EXPECT_EQ(backend->uploads, 2);
  struct Case {
    int32_t x, y, w, h, stride;
  } bad[] = {{61, 0, 4, 1, 0}, {0, 31, 1, 2, 0}, {-1, 0, 4, 4, 0}, {0, 0, 0, 4, 0}, {0, 0, 8, 8, 7},
             {2147483647, 0, 2, 1, 0}};
  for (const Case& c : bad) {
    EXPECT_EQ(engine->UpdateTexture("t", c.x, c.y, c.w, c.h, pixels.data(), c.stride), 0) << c.x << "," << c.y;
  }
  EXPECT_EQ(engine->UpdateTexture("t", 0, 0, 4, 4, nullptr, 0), 0);
  EXPECT_EQ(engine->UpdateTexture("missing", 0, 0, 4, 4, pixels.data(), 0), 0);
  EXPECT_EQ(LastError(), "nb3D::UpdateTexture: unknown texture 'missing'");
  EXPECT_EQ(backend->uploads, 2);
}

TEST_F(EngineStateTest, PixelBuffersFollowAllocLockUnlockFree) {
  EXPECT_EQ(engine->AllocBuffer(0), 0u);
  EXPECT_EQ(engine->AllocBuffer(-5), 0u);
  EXPECT_EQ(engine->AllocBuffer(nb3d::Engine::kMaxBufferBytes + 1), 0u);
  uint32_t a = engine->AllocBuffer(1024 * 1024 * 4);
  uint32_t b = engine->AllocBuffer(16);
  ASSERT_NE(a, 0u);
  ASSERT_NE(b, 0u);
  EXPECT_NE(a, b);
  auto* bytes = static_cast<uint8_t*>(engine->LockBuffer(a));
  ASSERT_NE(bytes, nullptr);
  EXPECT_EQ(bytes[0], 0);
  EXPECT_EQ(bytes[1024 * 1024 * 4 - 1], 0);
  EXPECT_EQ(engine->LockBuffer(a), nullptr) << "a buffer is locked once at a time";
  engine->UnlockBuffer(a);
  EXPECT_EQ(engine->LockBuffer(a), bytes) << "the memory stays where it was";
  engine->FreeBuffer(a);  // freeing a locked buffer is allowed
  EXPECT_EQ(engine->LockBuffer(a), nullptr);
  int32_t errors = engine->GetErrorCount();
  engine->UnlockBuffer(b);  // never locked
  engine->FreeBuffer(12345);
  EXPECT_EQ(engine->GetErrorCount(), errors + 2);
}

TEST_F(EngineStateTest, DrawingNeedsAFrameAndAnOutputSize) {
  nb3D::Quad quad{};
  EXPECT_EQ(engine->DrawQuad(quad), 0);
  EXPECT_EQ(LastError(), "nb3D::DrawQuad: called outside Begin/End");
  ASSERT_EQ(engine->Begin(), 1) << "the device alone needs no size";
  EXPECT_STREQ(engine->GetDeviceName(), "null");
  EXPECT_EQ(engine->DrawQuad(quad), 0);
  EXPECT_EQ(LastError(), "nb3D::DrawQuad: no output size set");
  engine->End();

  EXPECT_EQ(engine->SetOutputSize(0, 10), 0);
  EXPECT_EQ(engine->SetOutputSize(10, nb3D::kMaxOutputSide + 1), 0);
  ASSERT_EQ(engine->SetOutputSize(8, 4), 1);
  engine->SetBackground({0xFF102030u, nullptr});
  ASSERT_EQ(engine->Begin(), 1);
  EXPECT_EQ(backend->width, 8);
  EXPECT_EQ(engine->DrawQuad(quad), 1);
  std::vector<uint32_t> small(4 * 4, 7);
  orrery::Screen wrong{4, 4, small.data()};
  EXPECT_EQ(engine->Present(&wrong), 0);
  EXPECT_EQ(LastError(), "nb3D::Present: screen is 4x4, the frame 8x4");
  EXPECT_EQ(small[0], 7u) << "a refused screen is not touched";
  EXPECT_EQ(engine->Present(nullptr), 0);
  std::vector<uint32_t> pixels(8 * 4);
  orrery::Screen right{8, 4, pixels.data()};
  EXPECT_EQ(engine->Present(&right), 1);
  EXPECT_EQ(pixels[31], 0xFF102030u) << "the frame starts from the background";
  engine->End();
  engine->End();  // a second End is harmless
  EXPECT_EQ(backend->binds, backend->unbinds);
}

TEST_F(EngineStateTest, RenderFlagsBecomeDrawStates) {
  engine->SetOutputSize(16, 16);
  engine->CreateTexture("a", Texture(4, 4));
  engine->CreateTexture("b", Texture(4, 4));
  const nb3D::Vertex v[3] = {{0, 0, 0, 0, 0, 1, 0, 0, 0, 0}, {1, 0, 0, 0, 0, 1, 1, 0, 1, 0},
                             {0, 1, 0, 0, 0, 1, 0, 1, 0, 1}};
  const uint32_t tri[3] = {0, 1, 2};
  struct Case {
    uint32_t flags;
    DrawCall::Blend blend;
    DrawCall::SecondTexture second;
    DrawCall::Primitive primitive;
    bool cull;
  } cases[] = {
      {0, DrawCall::kBlendOpaque, DrawCall::kSecondNone, DrawCall::kTriangles, true},
      {1, DrawCall::kBlendHalf, DrawCall::kSecondNone, DrawCall::kTriangles, true},
      {2, DrawCall::kBlendAdditive, DrawCall::kSecondNone, DrawCall::kTriangles, true},
      {4, DrawCall::kBlendOpaque, DrawCall::kSecondAdd, DrawCall::kTriangles, true},
      {8, DrawCall::kBlendOpaque, DrawCall::kSecondSubtract, DrawCall::kTriangles, true},
      {16, DrawCall::kBlendOpaque, DrawCall::kSecondNone, DrawCall::kLines, true},
      {32, DrawCall::kBlendAlpha, DrawCall::kSecondAlphaFromBlue, DrawCall::kTriangles, true},
      {0x100, DrawCall::kBlendOpaque, DrawCall::kSecondNone, DrawCall::kTriangles, false},
      {0x100 | 2, DrawCall::kBlendAdditive, DrawCall::kSecondNone, DrawCall::kTriangles, false},
  };
  ASSERT_EQ(engine->Begin(), 1);
  for (const Case& c : cases) {
    SCOPED_TRACE("flags " + std::to_string(c.flags));
    nb3D::Mesh mesh{v, 3, tri, 3, "a", "b", c.flags, 0, nullptr, 0};
    ASSERT_EQ(engine->DrawMesh(mesh), 1) << LastError();
    EXPECT_EQ(backend->last_draw.blend, c.blend);
    EXPECT_EQ(backend->last_draw.second, c.second);
    EXPECT_EQ(backend->last_draw.primitive, c.primitive);
    EXPECT_EQ(backend->last_draw.index_count, c.primitive == DrawCall::kLines ? 6 : 3);
    EXPECT_EQ(backend->last_draw.cull_back, c.cull);
    EXPECT_NE(backend->last_draw.texture, 0u);
    EXPECT_EQ(backend->last_draw.texture2 != 0, c.second != DrawCall::kSecondNone);
  }
  int32_t draws = backend->draws;
  const uint32_t past_end[3] = {0, 1, 3};
  EXPECT_EQ(engine->DrawMesh({v, 3, past_end, 3, "a", nullptr, 0, 0, nullptr, 0}), 0);
  EXPECT_EQ(LastError(), "nb3D::DrawMesh: index 3 past the 3 vertices");
  EXPECT_EQ(engine->DrawMesh({v, 3, tri, 2, "a", nullptr, 0, 0, nullptr, 0}), 0);
  EXPECT_EQ(engine->DrawMesh({v, 3, tri, 3, "a", nullptr, 4, 0, nullptr, 0}), 0);
  EXPECT_EQ(LastError(), "nb3D::DrawMesh: render flags 4 need a second texture");
  EXPECT_EQ(engine->DrawMesh({v, 3, tri, 3, "nope", nullptr, 0, 0, nullptr, 0}), 0);
  EXPECT_EQ(LastError(), "nb3D::DrawMesh: unknown texture 'nope'");
  EXPECT_EQ(backend->draws, draws) << "refused meshes are not drawn";
  engine->End();
}

TEST_F(EngineStateTest, ErrorReportKeepsTextsBounded) {
  engine->ErrorReport("CReScaleDfx::Render Error");
  engine->ErrorReport(nullptr);
  ASSERT_EQ(engine->GetErrorCount(), 2);
  EXPECT_STREQ(engine->GetError(0), "CReScaleDfx::Render Error");
  EXPECT_STREQ(engine->GetError(1), "");
  EXPECT_EQ(engine->GetError(2), nullptr);
  EXPECT_EQ(engine->GetError(-1), nullptr);
  for (int i = 0; i < 1000; ++i) engine->ErrorReport(("e" + std::to_string(i)).c_str());
  ASSERT_EQ(engine->GetErrorCount(), int32_t(nb3d::Engine::kMaxErrors));
  EXPECT_STREQ(engine->GetError(0), ("e" + std::to_string(1000 - nb3d::Engine::kMaxErrors)).c_str());
  EXPECT_STREQ(engine->GetError(int32_t(nb3d::Engine::kMaxErrors) - 1), "e999");
  engine->ClearErrors();
  EXPECT_EQ(engine->GetErrorCount(), 0);

  engine->Message(7, -3);
  EXPECT_EQ(engine->MessageCount(), 1);
  EXPECT_EQ(engine->LastMessage(0), 7);
  EXPECT_EQ(engine->LastMessage(1), -3);
}

TEST_F(EngineStateTest, CameraAndProjectionRefuseNonsense) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  engine->SetCamera({{nan, 0, 0}, {0, 0, 0}, 0, 1});
  EXPECT_NE(LastError().find("SetCamera"), std::string::npos);
  engine->SetCamera({{0, 0, 1}, {0, 0, 0}, 0, -2});
  engine->SetProjection({200, 1, 10});
  engine->SetProjection({60, 10, 1});
  EXPECT_EQ(engine->GetErrorCount(), 4);
  engine->SetProjection({});  // all defaults
  EXPECT_EQ(engine->GetErrorCount(), 4);
}

}  // namespace
