// The engine object's state logic on the null backend: argument checks,
// names, buffers, frame states, the error report and how render flags
// become draw states. No GPU involved.
#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "engine.h"
#include "null_backend.h"

namespace {

using nb3d::DrawCall;

class EngineStateTest : public ::testing::Test {
 protected:
  static nb3D::TextureDesc Texture(int32_t w, int32_t h, int32_t format = 0, int32_t filter = 0) {
    return {w, h, format, filter, nullptr, 0};
  }

  std::unique_ptr<nb3d::NullBackend> owned = std::make_unique<nb3d::NullBackend>();
  nb3d::NullBackend* backend = owned.get();
  std::unique_ptr<nb3d::Engine> engine = std::make_unique<nb3d::Engine>(std::move(owned));
};

TEST_F(EngineStateTest, TexturesAreCheckedNamedReplacedUpdatedInsideAndDeleted) {
  // Sides are powers of two up to 1024, formats and filters known, rows no
  // shorter than the width, names not empty.
  uint32_t row[4] = {};
  for (const nb3D::TextureDesc& d : {Texture(0, 4), Texture(3, 4), Texture(2048, 2), Texture(-4, 4), Texture(4, 640),
                                     Texture(4, 4, 3), Texture(4, 4, 0, -1), nb3D::TextureDesc{4, 1, 0, 0, row, 3}}) {
    EXPECT_EQ(engine->CreateTexture("t", d), 0) << d.width << "x" << d.height;
  }
  EXPECT_EQ(engine->CreateTexture(nullptr, Texture(4, 4)) + engine->CreateTexture("", Texture(4, 4)), 0) << "nameless";
  EXPECT_EQ(engine->GetErrorCount(), 10) << "every refusal says why";

  // The same name again replaces the texture; the old one is given back.
  int32_t w = 0, h = 0;
  for (auto [tw, th] : {std::pair(1024, 1024), std::pair(2, 1024), std::pair(1, 1), std::pair(64, 32)}) {
    ASSERT_EQ(engine->CreateTexture("t", Texture(tw, th)), 1) << tw << "x" << th;
    EXPECT_TRUE(engine->GetTextureSize("t", &w, &h) && w == tw && h == th) << w << "x" << h;
  }
  EXPECT_EQ(backend->binds, backend->unbinds) << "outside a frame the device is bound for each call";

  std::vector<uint32_t> pixels(64 * 32);
  EXPECT_EQ(engine->UpdateTexture("t", 0, 0, 64, 32, pixels.data(), 0), 1);
  EXPECT_EQ(engine->UpdateTexture("t", 60, 30, 4, 2, pixels.data(), 64), 1);
  const int32_t outside[][5] = {{61, 0, 4, 1, 0}, {0, 31, 1, 2, 0}, {-1, 0, 4, 4, 0},
                                {0, 0, 0, 4, 0},  {0, 0, 8, 8, 7},  {2147483647, 0, 2, 1, 0}};  // x, y, w, h, stride
  for (auto [x, y, bw, bh, stride] : outside) {
    EXPECT_EQ(engine->UpdateTexture("t", x, y, bw, bh, pixels.data(), stride), 0) << x << "," << y;
  }
  EXPECT_EQ(engine->UpdateTexture("t", 0, 0, 4, 4, nullptr, 0), 0);
  EXPECT_EQ(engine->UpdateTexture("missing", 0, 0, 4, 4, pixels.data(), 0), 0);
  EXPECT_EQ(backend->uploads, 2) << "refused updates upload nothing";

  engine->DeleteTexture("t");
  EXPECT_FALSE(engine->GetTextureSize("t", &w, &h) || w || h) << "unknown: no texture and no size";
  EXPECT_TRUE(backend->textures.empty()) << "and none of those it replaced kept";
}

TEST_F(EngineStateTest, PixelBuffersFollowAllocLockUnlockFree) {
  for (int32_t bytes : {0, -5, nb3d::Engine::kMaxBufferBytes + 1}) EXPECT_EQ(engine->AllocBuffer(bytes), 0u) << bytes;
  uint32_t a = engine->AllocBuffer(1024 * 1024 * 4), b = engine->AllocBuffer(16);
  ASSERT_TRUE(a && b && a != b) << a << ", " << b;
  auto* bytes = static_cast<uint8_t*>(engine->LockBuffer(a));
  ASSERT_NE(bytes, nullptr);
  EXPECT_EQ(bytes[0] | bytes[1024 * 1024 * 4 - 1], 0) << "new buffers are zeroed";
  EXPECT_EQ(engine->LockBuffer(a), nullptr) << "a buffer is locked once at a time";
  engine->UnlockBuffer(a);
  EXPECT_EQ(engine->LockBuffer(a), bytes) << "the memory stays where it was";
  engine->FreeBuffer(a);  // freeing a locked buffer is allowed
  EXPECT_EQ(engine->LockBuffer(a), nullptr);
  engine->UnlockBuffer(b);  // never locked
  engine->FreeBuffer(12345);
  EXPECT_EQ(engine->GetErrorCount(), 7) << "3 sizes, 2 locks, the unlock and the free refused";
}

TEST_F(EngineStateTest, DrawingNeedsAFrameAndASizeAndRenderFlagsBecomeDrawStates) {
  EXPECT_EQ(engine->DrawQuad({}), 0) << "outside a frame";
  ASSERT_EQ(engine->Begin(), 1) << "the device alone needs no size";
  EXPECT_EQ(engine->DrawQuad({}), 0) << "no output size";
  engine->End();

  EXPECT_EQ(engine->SetOutputSize(0, 10), 0);
  EXPECT_EQ(engine->SetOutputSize(10, nb3D::kMaxOutputSide + 1), 0);
  ASSERT_EQ(engine->SetOutputSize(8, 4), 1);
  engine->SetBackground({0xFF102030u, nullptr});
  ASSERT_EQ(engine->Begin(), 1);
  EXPECT_EQ(engine->DrawQuad({}), 1);
  std::vector<uint32_t> small(4 * 4, 7), pixels(8 * 4);
  orrery::Screen wrong{4, 4, small.data()}, right{8, 4, pixels.data()};
  EXPECT_EQ(engine->Present(&wrong), 0);
  EXPECT_EQ(small[0], 7u) << "a refused screen is not touched";
  EXPECT_EQ(engine->Present(nullptr), 0);
  EXPECT_EQ(engine->Present(&right), 1);
  EXPECT_EQ(pixels[31], 0xFF102030u) << "the frame starts from the background";

  // How render flags become draw states.
  for (const char* name : {"a", "b"}) engine->CreateTexture(name, Texture(4, 4));
  const nb3D::Vertex v[3] = {
      {0, 0, 0, 0, 0, 1, 0, 0, 0, 0}, {1, 0, 0, 0, 0, 1, 1, 0, 1, 0}, {0, 1, 0, 0, 0, 1, 0, 1, 0, 1}};
  const uint32_t tri[3] = {0, 1, 2};
  // Flags, then the blend, second-texture use, primitive and back-face culling they make.
  const std::tuple<uint32_t, DrawCall::Blend, DrawCall::SecondTexture, DrawCall::Primitive, bool> cases[] = {
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
  for (const auto& c : cases) {
    const auto [flags, blend, second, primitive, cull] = c;
    SCOPED_TRACE("flags " + std::to_string(flags));
    ASSERT_EQ(engine->DrawMesh({v, 3, tri, 3, "a", "b", flags, 0, nullptr, 0}), 1);
    const DrawCall& d = backend->last_draw;
    EXPECT_EQ(std::tuple(flags, d.blend, d.second, d.primitive, d.cull_back), c);
    // Lines: three edges of two points each.
    EXPECT_EQ(std::tuple(d.index_count, d.texture != 0, d.texture2 != 0),
              std::tuple(primitive == DrawCall::kLines ? 6 : 3, true, second != DrawCall::kSecondNone));
  }
  // Refused: an index past the end, a part triangle, a second texture
  // missing, an unknown texture.
  const uint32_t past_end[3] = {0, 1, 3};
  int32_t draws = backend->draws, errors = engine->GetErrorCount();
  EXPECT_EQ(engine->DrawMesh({v, 3, past_end, 3, "a", nullptr, 0, 0, nullptr, 0}), 0);
  EXPECT_EQ(engine->DrawMesh({v, 3, tri, 2, "a", nullptr, 0, 0, nullptr, 0}), 0);
  EXPECT_EQ(engine->DrawMesh({v, 3, tri, 3, "a", nullptr, 4, 0, nullptr, 0}), 0);
  EXPECT_EQ(engine->DrawMesh({v, 3, tri, 3, "nope", nullptr, 0, 0, nullptr, 0}), 0);
  EXPECT_EQ(backend->draws, draws) << "refused meshes are not drawn";
  EXPECT_EQ(engine->GetErrorCount(), errors + 4);
  engine->End();
  EXPECT_EQ(backend->binds, backend->unbinds);
}

TEST_F(EngineStateTest, NonsenseIsReportedAndTheReportKeepsTheNewestTexts) {
  engine->SetCamera({{std::numeric_limits<float>::quiet_NaN(), 0, 0}, {0, 0, 0}, 0, 1});
  engine->SetCamera({{0, 0, 1}, {0, 0, 0}, 0, -2});
  engine->SetProjection({200, 1, 10});
  engine->SetProjection({60, 10, 1});
  engine->SetProjection({});  // all defaults: fine
  ASSERT_EQ(engine->GetErrorCount(), 4);
  EXPECT_TRUE(engine->GetError(4) == nullptr && engine->GetError(-1) == nullptr);

  for (int i = 0; i < 1000; ++i) engine->ErrorReport(("e" + std::to_string(i)).c_str());
  ASSERT_EQ(engine->GetErrorCount(), int32_t(nb3d::Engine::kMaxErrors));
  EXPECT_STREQ(engine->GetError(0), ("e" + std::to_string(1000 - nb3d::Engine::kMaxErrors)).c_str());
  EXPECT_STREQ(engine->GetError(int32_t(nb3d::Engine::kMaxErrors) - 1), "e999");
  engine->ClearErrors();
  EXPECT_EQ(engine->GetErrorCount(), 0);
}

}  // namespace
