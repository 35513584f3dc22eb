// Blob 3D: the field's arithmetic (the SSE2 row kernel equal to the plain
// one to the bit, a lone blob's surface at its radius, the paths), and the
// effect as a host runs it through the real engine: a drawn frame that
// moves, and "Save as 3DS..." of a closed surface.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "bin_path.h"
#include "blob_field.h"
#include "orrery/services.h"
#include "render3d/engine_loader.h"
#include "render3d/isosurface.h"
#include "test_host.h"

namespace {

namespace fs = std::filesystem;
using nimbo::blob::Blob;
using nimbo::testing::BinPathOverride;
using nimbo::testing::TestHost;

TEST(BlobField, Sse2RowEqualsThePlainRowToTheBit) {
  uint32_t s = 99;
  auto next = [&s] {
    s = s * 1664525u + 1013904223u;
    return float(s >> 8) / float(1 << 24) * 2.0f - 1.0f;
  };
  for (int32_t n = 1; n <= 37; n += 3) {
    std::vector<Blob> blobs;
    std::vector<float> yz;
    for (int b = 0; b < 1 + n % 9; ++b) {
      blobs.push_back({next(), next(), next(), std::fabs(next()) + 0.01f});
      yz.push_back(next() * next() + nimbo::blob::kBlobSoftening);
    }
    std::vector<float> plain(static_cast<size_t>(n)), sse2(static_cast<size_t>(n));
    const float x0 = next(), dx = 0.0371f;
    nimbo::blob::BlobRowScalar(plain.data(), n, x0, dx, blobs, yz.data());
    nimbo::blob::BlobRowSse2(sse2.data(), n, x0, dx, blobs, yz.data());
    ASSERT_EQ(std::memcmp(plain.data(), sse2.data(), plain.size() * sizeof(float)), 0) << "n = " << n;
  }
}

TEST(BlobField, ALoneBlobShowsASphereOfItsRadius) {
  // weight = strength * r^2: the field is 1 at distance r * sqrt(strength).
  const std::vector<Blob> blobs = nimbo::blob::BlobsAt(1, 0.0f, 0.0f, 0.4f, 2.25f);
  ASSERT_EQ(blobs.size(), 1u);
  std::vector<float> field;
  nimbo::blob::FillBlobField(blobs, 41, field);
  nimbo::IsoGrid grid;
  grid.values = field.data();
  grid.nx = grid.ny = grid.nz = 41;
  for (int d = 0; d < 3; ++d) grid.origin[d] = -1.0f, grid.spacing[d] = 0.05f;
  nimbo::IsoMesh mesh;
  nimbo::ExtractIsosurface(grid, 1.0f, true, &mesh);
  ASSERT_GT(mesh.VertexCount(), 100u);
  for (size_t v = 0; v < mesh.VertexCount(); ++v) {
    const float* p = &mesh.positions[3 * v];
    ASSERT_NEAR(std::sqrt(p[0] * p[0] + p[1] * p[1] + p[2] * p[2]), 0.6f, 0.01f);
  }
}

TEST(BlobField, PathsStayInTheirCubeAndDifferPerBlob) {
  for (float t : {0.0f, 1.7f, 123.4f}) {
    const std::vector<Blob> blobs = nimbo::blob::BlobsAt(8, t, 0.5f, 0.2f, 1.0f);
    ASSERT_EQ(blobs.size(), 8u);
    for (size_t b = 0; b < blobs.size(); ++b) {
      for (float c : {blobs[b].x, blobs[b].y, blobs[b].z}) EXPECT_LE(std::fabs(c), 0.5f + 1e-6f);
      EXPECT_FLOAT_EQ(blobs[b].weight, 0.04f);
      for (size_t o = 0; o < b; ++o) EXPECT_NE(blobs[b].x, blobs[o].x) << "blobs " << o << " and " << b;
    }
  }
  EXPECT_EQ(nimbo::blob::BlobsAt(100, 0, 0.5f, 0.2f, 1).size(), size_t(nimbo::blob::kMaxBlobs));
  EXPECT_TRUE(nimbo::blob::BlobsAt(-3, 0, 0.5f, 0.2f, 1).empty());
}

class Blob3DTest : public ::testing::Test {
 protected:
  Blob3DTest() : bin(NIMBO_BIN_DIR) {
    nimbo::ForgetReportedEngineFailure();
    dir = fs::temp_directory_path() / ("blob3d_test_" + std::to_string(::getpid()));
    fs::create_directories(dir);
  }
  ~Blob3DTest() override { fs::remove_all(dir); }
  // A frame over a blue background input with a white first texture.
  std::vector<uint32_t> Frame(orrery::Effect& effect, int64_t ms) {
    host.time_ms = ms;
    std::vector<uint32_t> pixels(size_t(kW) * kH), blue(pixels.size(), kBlue), white(64 * 64, 0xFFFFFFFFu);
    orrery::Screen out{kW, kH, pixels.data()}, background{kW, kH, blue.data()}, texture{64, 64, white.data()};
    EXPECT_EQ(nimbo::testing::RenderOnce(effect, {&background, &texture}, &out), 1);
    return pixels;
  }
  static constexpr uint32_t kBlue = 0xFF0000FFu;
  static constexpr int32_t kW = 96, kH = 72;
  BinPathOverride bin;
  TestHost host{kW, kH};
  fs::path dir;
};

TEST_F(Blob3DTest, DrawsMovingBlobsAndExportsAClosedSurface) {
  host.store.BeginWriting();
  host.store.SetInt("!", 1);
  host.store.SetInt("bgtype", 1);               // the background input
  host.store.SetInt("mat0mattex0texmode", 0);   // the first texture input on the blobs
  auto effect = nimbo::testing::MakeEffect("Blob 3D", &host);
  ASSERT_TRUE(effect);
  effect->UpdateConfig();
  std::string message;
  EXPECT_EQ(orrery::RunEffectAction(effect.get(), "save-3ds", (dir / "early.3ds").c_str(), &message), 0);
  EXPECT_EQ(message, "Rendering must be enabled");
  ASSERT_EQ(effect->Initialize(), 1);
  const std::vector<uint32_t> first = Frame(*effect, 0);
  const size_t drawn = size_t(std::count_if(first.begin(), first.end(), [](uint32_t p) { return p != kBlue; }));
  EXPECT_GT(drawn, first.size() / 20) << "the blobs cover part of the picture";
  EXPECT_LT(drawn, first.size()) << "and leave background around them";
  EXPECT_NE(Frame(*effect, 1500), first) << "they move with the clock";

  ASSERT_EQ(orrery::RunEffectAction(effect.get(), "save-3ds", (dir / "blob.3ds").c_str(), &message), 1) << message;
  std::ifstream in(dir / "blob.3ds", std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(in)), {});
  EXPECT_EQ(bytes.substr(0, 2), "MM");
  EXPECT_NE(bytes.find("blobmat"), std::string::npos);
}

TEST_F(Blob3DTest, SettingsDeclareTheirVariablesAndKeys) {
  auto effect = nimbo::testing::MakeEffect("Blob 3D", &host);
  ASSERT_TRUE(effect);
  effect->UpdateConfig();
  for (const char* name : {"Blob speed", "Blob spread", "Blob size", "Insert FX: size", "Camera: orbit angle"})
    EXPECT_NE(host.FindDynVar(name), nullptr) << name;
  const char* keys[] = {"count", "radius", "strength", "threshold", "grid", "envmap", "bgtype", "bgcolor",
                        "insertfx", "mat0matusesectex", "mat0nbMatManagerVERSION", "input0mat"};
  for (const char* key : keys) EXPECT_NE(host.store.GetString(key, nullptr), nullptr) << key;
  EXPECT_STREQ(effect->GetInputScreenName(1), "tex1");
}

}  // namespace
