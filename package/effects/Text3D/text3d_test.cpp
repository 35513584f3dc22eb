// Text3D: letters as closed solids with outward normals, UTF-8 decoding,
// layout with kerning and skipped glyphs, the animation's placements, and
// the effect as a host runs it through the real engine: drawing, "Save as
// 3DS..." read back by lib3ds and assimp, and hostile settings.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "bin_path.h"
#include "glyph_mesh.h"
#include "orrery/services.h"
#include "render3d/engine_loader.h"
#include "test_host.h"
#include "text_layout.h"

#if NIMBO_HAVE_LIB3DS
#include <lib3ds/file.h>
#include <lib3ds/mesh.h>
#endif

namespace {

namespace fs = std::filesystem;
using namespace nimbo::text3d;
using nimbo::testing::BinPathOverride;
using nimbo::testing::TestHost;

constexpr const char* kFont = "/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf";

#define REQUIRE_FONT()                                                               \
  if (!fs::exists(kFont)) GTEST_SKIP() << kFont << " is missing (fonts-dejavu-core)"

TEST(Utf8, DecodesEverySequenceLengthAndSkipsMalformedBytes) {
  EXPECT_EQ(DecodeUtf8("A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", 100),
            (std::vector<uint32_t>{'A', 0xE9, 0x20AC, 0x1F600}));
  // A stray continuation byte, an overlong '/', a surrogate, a truncated
  // sequence at the end: each skipped, the characters around them kept.
  EXPECT_EQ(DecodeUtf8("a\x80" "b\xC0\xAF" "c\xED\xA0\x80" "d\xE2\x82", 100),
            (std::vector<uint32_t>{'a', 'b', 'c', 'd'}));
  EXPECT_EQ(DecodeUtf8(std::string(10, 'x'), 3).size(), 3u);
  EXPECT_TRUE(DecodeUtf8("", 10).empty());
}

// Welds equal positions and checks that every edge is shared by exactly two
// triangles that run along it in opposite directions (a closed, consistently
// oriented surface); returns the enclosed volume (positive when the
// triangles face out).
double CheckClosed(const GlyphMesh& mesh, const std::string& what) {
  std::map<std::array<float, 3>, uint32_t> weld;
  std::vector<uint32_t> id(mesh.VertexCount());
  for (size_t v = 0; v < id.size(); ++v) {
    const std::array<float, 3> p{mesh.positions[3 * v], mesh.positions[3 * v + 1], mesh.positions[3 * v + 2]};
    id[v] = weld.emplace(p, uint32_t(weld.size())).first->second;
  }
  std::map<std::pair<uint32_t, uint32_t>, int> directed;
  double volume = 0;
  for (size_t t = 0; t < mesh.triangles.size(); t += 3) {
    const uint32_t* tri = &mesh.triangles[t];
    for (int k = 0; k < 3; ++k) ++directed[{id[tri[k]], id[tri[(k + 1) % 3]]}];
    const float* a = &mesh.positions[3 * tri[0]];
    const float* b = &mesh.positions[3 * tri[1]];
    const float* c = &mesh.positions[3 * tri[2]];
    volume += (double(a[0]) * (double(b[1]) * c[2] - double(b[2]) * c[1]) -
               double(a[1]) * (double(b[0]) * c[2] - double(b[2]) * c[0]) +
               double(a[2]) * (double(b[0]) * c[1] - double(b[1]) * c[0])) / 6.0;
  }
  int open = 0;
  for (const auto& [edge, count] : directed) {
    auto back = directed.find({edge.second, edge.first});
    if (count != 1 || back == directed.end() || back->second != 1) ++open;
  }
  EXPECT_EQ(open, 0) << what << ": edges not shared by exactly two opposite triangles";
  return volume;
}

TEST(GlyphMesh, LettersAreClosedSolidsWithOutwardNormals) {
  REQUIRE_FONT();
  FontFace face(kFont);
  ASSERT_TRUE(face.Ok()) << face.Error();
  const float size = 64, depth = 16;
  // Straight and round letters, holes (O, 8, B), a descender, accented
  // Latin, Cyrillic and a symbol.
  for (uint32_t cp : {uint32_t('A'), uint32_t('O'), uint32_t('8'), uint32_t('B'), uint32_t('g'), uint32_t('i'), 0xE9u, 0x416u, 0x20ACu, uint32_t('@')}) {
    const uint32_t glyph = face.GlyphIndex(cp);
    ASSERT_NE(glyph, 0u) << cp;
    bool fills_right = false;
    const std::vector<Contour> outline = face.Outline(glyph, 0.35 / size, &fills_right);
    const GlyphMesh mesh = ExtrudeOutline(outline, fills_right, size, depth);
    const std::string what = "U+" + std::to_string(cp);
    EXPECT_EQ(fills_right, face.FillsRight(glyph)) << what << ": the outline's own load tells the fill side";
    ASSERT_FALSE(mesh.Empty()) << what;
    const double volume = CheckClosed(mesh, what);
    // Front-cap area times depth: the volume of the extrusion.
    double front_area = 0;
    for (size_t t = 0; t < mesh.triangles.size(); t += 3) {
      const float* a = &mesh.positions[3 * mesh.triangles[t]];
      const float* b = &mesh.positions[3 * mesh.triangles[t + 1]];
      const float* c = &mesh.positions[3 * mesh.triangles[t + 2]];
      if (a[2] > 0 && b[2] > 0 && c[2] > 0)
        front_area += 0.5 * ((b[0] - a[0]) * (c[1] - a[1]) - (b[1] - a[1]) * (c[0] - a[0]));
    }
    EXPECT_GT(front_area, 20.0) << what;
    EXPECT_NEAR(volume, front_area * depth, 1e-3 * volume) << what << ": triangles face out";
    // Each vertex normal is unit and on the outer side of its triangles.
    for (size_t t = 0; t < mesh.triangles.size(); t += 3) {
      const float* a = &mesh.positions[3 * mesh.triangles[t]];
      const float* b = &mesh.positions[3 * mesh.triangles[t + 1]];
      const float* c = &mesh.positions[3 * mesh.triangles[t + 2]];
      const double e1[3] = {b[0] - a[0], b[1] - a[1], b[2] - a[2]}, e2[3] = {c[0] - a[0], c[1] - a[1], c[2] - a[2]};
      const double g[3] = {e1[1] * e2[2] - e1[2] * e2[1], e1[2] * e2[0] - e1[0] * e2[2], e1[0] * e2[1] - e1[1] * e2[0]};
      if (std::sqrt(g[0] * g[0] + g[1] * g[1] + g[2] * g[2]) < 1e-3) continue;  // a sliver
      for (int k = 0; k < 3; ++k) {
        const float* n = &mesh.normals[3 * mesh.triangles[t + size_t(k)]];
        ASSERT_NEAR(n[0] * n[0] + n[1] * n[1] + n[2] * n[2], 1.0, 1e-4);
        ASSERT_GT(n[0] * g[0] + n[1] * g[1] + n[2] * g[2], 0.0) << what << " triangle " << t / 3;
      }
    }
    // The caps lie at +-depth/2 and the outline spans the glyph's box.
    EXPECT_LT(mesh.min_x, mesh.max_x);
    EXPECT_LE(mesh.max_y - mesh.min_y, 1.3f * size) << what;
  }
  EXPECT_TRUE(ExtrudeOutline(face.Outline(face.GlyphIndex(' '), 0.01), true, size, depth).Empty());
}

TEST(GlyphMesh, CurvesStayBoundedAtAnySizeAndBadFontsSaySo) {
  REQUIRE_FONT();
  FontFace face(kFont);
  const uint32_t o = face.GlyphIndex('O');
  const size_t coarse = face.Outline(o, 0.35 / 8)[0].size(), fine = face.Outline(o, 0.35 / 512)[0].size();
  EXPECT_LT(coarse, fine) << "a bigger size flattens the curves finer";
  EXPECT_EQ(face.Outline(o, 1e-9)[0].size(), face.Outline(o, 1e-12)[0].size()) << "up to the per-curve limit";

  EXPECT_FALSE(FontFace("/no/such/font.ttf").Ok());
  EXPECT_NE(FontFace("/no/such/font.ttf").Error().find("cannot open"), std::string::npos);
  EXPECT_FALSE(FontFace("").Ok());
  const fs::path junk = fs::temp_directory_path() / ("text3d_junk_" + std::to_string(::getpid()) + ".ttf");
  {
    std::mt19937 random(7);
    std::ofstream out(junk, std::ios::binary);
    for (int i = 0; i < 4096; ++i) out.put(char(random()));
  }
  FontFace bad(junk.string());
  fs::remove(junk);
  EXPECT_FALSE(bad.Ok());
  EXPECT_NE(bad.Error().find("not a font file"), std::string::npos) << bad.Error();
  EXPECT_EQ(bad.GlyphIndex('A'), 0u);
  EXPECT_TRUE(bad.Outline(1, 0.01).empty());
}

TEST(Layout, KerningSkippedGlyphsLinesAndTheCache) {
  REQUIRE_FONT();
  GlyphCache cache;
  std::string error;
  GlyphSet* set = cache.Select(kFont, 64, 16, &error);
  ASSERT_NE(set, nullptr) << error;
  const FontFace& face = set->Face();
  const uint32_t a = face.GlyphIndex('A'), v = face.GlyphIndex('V');
  // DejaVu Sans: 1401 and 2025 font units of 2048 to the em.
  EXPECT_DOUBLE_EQ(face.Advance(a), 1401.0 / 2048);
  EXPECT_DOUBLE_EQ(face.Advance(face.GlyphIndex('W')), 2025.0 / 2048);
  EXPECT_EQ(face.Advance(0xFFFFFFu), 0.0) << "no such glyph";
  const double kern = face.Kerning(a, v);
  EXPECT_LT(kern, 0) << "DejaVu Sans pulls A and V together";

  TextBlock av = LayOut(*set, DecodeUtf8("AV", 10));
  ASSERT_EQ(av.letters.size(), 2u);
  EXPECT_NEAR(av.letters[1].x - av.letters[0].x, 64 * (face.Advance(a) + kern), 1e-3);
  EXPECT_NEAR(av.width, 64 * (face.Advance(a) + kern + face.Advance(v)), 1e-3);
  EXPECT_NEAR(av.letters[0].x, -av.width / 2, 1e-3) << "the line is centred";
  EXPECT_EQ(av.letters[0].mesh, set->Mesh(a)) << "one mesh per glyph, shared";

  // A character the font lacks (a private-use code) takes no room; blanks
  // advance but make no letter.
  TextBlock skipped = LayOut(*set, DecodeUtf8("A\xF3\xB0\x80\x80V", 10));
  ASSERT_EQ(skipped.letters.size(), 2u);
  EXPECT_NEAR(skipped.width, av.width, 1e-3);
  EXPECT_TRUE(LayOut(*set, DecodeUtf8("  \t ", 10)).letters.empty());
  TextBlock spaced = LayOut(*set, DecodeUtf8("A V", 10));
  EXPECT_GT(spaced.width, av.width);

  TextBlock two = LayOut(*set, DecodeUtf8("A\nV", 10));
  ASSERT_EQ(two.letters.size(), 2u);
  EXPECT_NEAR(two.letters[0].y - two.letters[1].y, 64 * face.LineHeight(), 1e-3);
  EXPECT_GT(two.height, av.height);

  // The cache: the same font, size and depth is the same set; a bad font
  // is an error, and the good one still comes back.
  const size_t built = set->BuiltCount();
  EXPECT_EQ(cache.Select(kFont, 64, 16, &error), set);
  EXPECT_EQ(set->BuiltCount(), built);
  EXPECT_NE(cache.Select(kFont, 32, 16, &error), set);
  EXPECT_EQ(cache.Select("/no/such.ttf", 64, 16, &error), nullptr);
  EXPECT_FALSE(error.empty());
  EXPECT_EQ(cache.Select(kFont, 64, 16, &error), set);
}

TEST(Animation, PlacementsOfWaveSpinAndFlyIn) {
  GlyphMesh mesh;
  mesh.min_x = 0, mesh.max_x = 10, mesh.min_y = 0, mesh.max_y = 20;
  const Letter letter{&mesh, 100, -5, 0};
  auto apply = [](const Placement& p, const float q[3], float out[3]) {
    for (int r = 0; r < 3; ++r) out[r] = p.r[r * 3] * q[0] + p.r[r * 3 + 1] * q[1] + p.r[r * 3 + 2] * q[2] + p.t[r];
  };
  Animation still;
  still.wave_height = 0;
  Placement p = PlaceLetter(letter, 3, 10, still, 64);
  const float origin[3] = {0, 0, 0}, centre[3] = {5, 10, 0};
  float out[3];
  apply(p, origin, out);
  EXPECT_TRUE(p.visible);
  EXPECT_FLOAT_EQ(out[0], 100);
  EXPECT_FLOAT_EQ(out[1], -5);
  EXPECT_FLOAT_EQ(out[2], 0);

  Animation spin = still;
  spin.spin_speed = 0.25f, spin.time = 1;  // a quarter turn, plus the letter's offset
  p = PlaceLetter(letter, 0, 10, spin, 64);
  apply(p, centre, out);
  EXPECT_NEAR(out[0], 105, 1e-4) << "the letter turns about its own middle";
  const float corner[3] = {10, 0, 0};
  apply(p, corner, out);
  EXPECT_NEAR(out[2], -5, 1e-4) << "a quarter turn about y";

  Animation wave = still;
  wave.wave_height = 0.5f, wave.wave_speed = 1, wave.time = 0.25f;
  apply(PlaceLetter(letter, 0, 10, wave, 64), origin, out);
  EXPECT_NEAR(out[1], -5 + 32, 1e-3) << "the top of the wave";
  apply(PlaceLetter(letter, 1, 10, wave, 64), origin, out);
  EXPECT_LT(out[1], -5 + 32 - 1) << "the next letter follows behind";

  Animation fly = still;
  fly.fly_in = 0;
  for (size_t i = 0; i < 10; ++i) EXPECT_FALSE(PlaceLetter(letter, i, 10, fly, 64).visible);
  fly.fly_in = 0.2f;
  EXPECT_TRUE(PlaceLetter(letter, 0, 10, fly, 64).visible);
  EXPECT_FALSE(PlaceLetter(letter, 9, 10, fly, 64).visible) << "the last letters come last";
  apply(PlaceLetter(letter, 0, 10, fly, 64), origin, out);
  EXPECT_GT(out[2], 1) << "arriving from in front";

  float m[16];
  PlacementMatrix(PlaceLetter(letter, 0, 10, spin, 64), m);
  const Placement q = PlaceLetter(letter, 0, 10, spin, 64);
  apply(q, corner, out);
  for (int c = 0; c < 3; ++c)
    EXPECT_NEAR(corner[0] * m[c] + corner[1] * m[4 + c] + corner[2] * m[8 + c] + m[12 + c], out[c], 1e-4);
}

// ---- the effect through the engine -------------------------------------------------
class Text3DTest : public ::testing::Test {
 protected:
  Text3DTest() : bin(NIMBO_BIN_DIR) {
    nimbo::ForgetReportedEngineFailure();
    dir = fs::temp_directory_path() / ("text3d_test_" + std::to_string(::getpid()));
    fs::create_directories(dir);
  }
  ~Text3DTest() override { fs::remove_all(dir); }

  std::unique_ptr<orrery::Effect> Make(const std::vector<std::pair<const char*, std::string>>& strings,
                                       const std::vector<std::pair<const char*, int>>& ints = {}) {
    host.store.BeginWriting();
    host.store.SetInt("!", 1);
    for (const auto& [key, value] : strings) host.store.SetString(key, value.c_str());
    for (const auto& [key, value] : ints) host.store.SetInt(key, value);
    auto effect = nimbo::testing::MakeEffect("Text3D", &host);
    if (effect) effect->UpdateConfig();
    return effect;
  }
  std::vector<uint32_t> Frame(orrery::Effect& effect, int64_t ms) {
    host.time_ms = ms;
    std::vector<uint32_t> pixels(size_t(kW) * kH), blue(pixels.size(), kBlue);
    orrery::Screen out{kW, kH, pixels.data()}, background{kW, kH, blue.data()};
    EXPECT_EQ(nimbo::testing::RenderOnce(effect, {&background}, &out), 1);
    return pixels;
  }
  static size_t Drawn(const std::vector<uint32_t>& pixels) {
    return size_t(std::count_if(pixels.begin(), pixels.end(), [](uint32_t p) { return p != kBlue; }));
  }
  static constexpr uint32_t kBlue = 0xFF0000FFu;
  static constexpr int32_t kW = 160, kH = 120;
  BinPathOverride bin;
  TestHost host{kW, kH};
  nimbo::testing::MessageCapture capture;
  fs::path dir;
};

TEST_F(Text3DTest, DrawsWavingLettersAndExportsOneMeshPerLetter) {
  REQUIRE_FONT();
  auto effect = Make({{"text", "Hé, AV!"}}, {{"bgtype", 1}, {"size", 200}});
  ASSERT_TRUE(effect);
  for (const char* name : {"Text speed", "Wave height", "Wave speed", "Spin speed", "Fly-in", "Camera: orbit angle"})
    EXPECT_NE(host.FindDynVar(name), nullptr) << name;
  std::string message;
  EXPECT_EQ(orrery::RunEffectAction(effect.get(), "save-3ds", (dir / "early.3ds").c_str(), &message), 0);
  EXPECT_EQ(message, "Rendering must be enabled");
  ASSERT_EQ(effect->Initialize(), 1);
  const std::vector<uint32_t> first = Frame(*effect, 0);
  EXPECT_GT(Drawn(first), first.size() / 30) << "the letters cover part of the picture";
  EXPECT_LT(Drawn(first), first.size() / 2);
  EXPECT_NE(Frame(*effect, 700), first) << "the wave moves the letters";

  const fs::path path = dir / "text.3ds";
  ASSERT_EQ(orrery::RunEffectAction(effect.get(), "save-3ds", path.c_str(), &message), 1) << message;
  std::ifstream in(path, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(in)), {});
  EXPECT_NE(bytes.find("textmat"), std::string::npos);
  // "Hé,AV!" has six letters with outlines (the blank has none), in order.
  size_t at = 0;
  for (int i = 0; i < 6; ++i) {
    const size_t found = bytes.find("Letter" + std::to_string(i) + '\0', at);
    ASSERT_NE(found, std::string::npos) << i;
    at = found;
  }
  EXPECT_EQ(bytes.find("Letter6"), std::string::npos);

#if NIMBO_HAVE_LIB3DS
  Lib3dsFile* file = lib3ds_file_load(path.c_str());
  ASSERT_NE(file, nullptr);
  int meshes = 0;
  for (Lib3dsMesh* m = file->meshes; m; m = m->next) ++meshes;
  EXPECT_EQ(meshes, 6);
  for (int i = 0; i < 6; ++i) {
    Lib3dsMesh* m = lib3ds_file_mesh_by_name(file, ("Letter" + std::to_string(i)).c_str());
    ASSERT_NE(m, nullptr) << i;
    EXPECT_GT(m->faces, 10u);
    EXPECT_EQ(m->texels, m->points);
  }
  lib3ds_file_free(file);
#endif
  if (std::system("command -v assimp >/dev/null 2>&1") == 0) {
    // `assimp info` ends with the node hierarchy: one node per mesh.
    std::string info;
    if (FILE* p = popen(("assimp info '" + path.string() + "' 2>&1").c_str(), "r")) {
      char buf[4096];
      for (size_t n; (n = fread(buf, 1, sizeof buf, p)) > 0;) info.append(buf, n);
      pclose(p);
    }
    EXPECT_NE(info.find("Meshes:             6\n"), std::string::npos) << info;
    EXPECT_NE(info.find("'textmat'"), std::string::npos);
    std::vector<std::string> nodes, want;
    for (size_t at = info.find("Node hierarchy"); at != std::string::npos && (at = info.find("Letter", at)) != std::string::npos;) {
      const size_t end = info.find(' ', at);
      nodes.push_back(info.substr(at, end - at));
      EXPECT_EQ(info.compare(end, 6, " (mesh"), 0) << nodes.back() << " is a mesh";
      at = end;
    }
    for (int i = 0; i < 6; ++i) want.push_back("Letter" + std::to_string(i));
    EXPECT_EQ(nodes, want) << "assimp reads one mesh per letter, in order";
  }
}

TEST_F(Text3DTest, HostileSettingsGiveAPictureOrAClearError) {
  REQUIRE_FONT();
  const fs::path junk = dir / "junk.ttf";
  {
    std::mt19937 random(11);
    std::ofstream out(junk, std::ios::binary);
    for (int i = 0; i < 20000; ++i) out.put(char(random()));
  }
  struct Case {
    std::string text, font;
    int size;
    bool drawn, error, exported;
  };
  const std::string huge(100000, 'W');
  // Sizes below 1 draw at 1 (too small to cover a pixel here, but the
  // letters exist and export); sizes above 1024 draw at 1024.
  const Case cases[] = {{"", kFont, 64, false, false, false},
                        {"   ", kFont, 64, false, false, false},
                        {huge, kFont, 64, true, false, true},
                        {"Font", "/no/such/font.ttf", 64, false, true, false},
                        {"Font", junk.string(), 64, false, true, false},
                        {"Zero", kFont, 0, false, false, true},
                        {"Big", kFont, 100000, true, false, true},
                        {"Neg", kFont, -5, false, false, true}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.font + " size " + std::to_string(c.size) + " text of " + std::to_string(c.text.size()));
    capture.messages.clear();
    auto effect = Make({{"text", c.text}, {"font", c.font}}, {{"bgtype", 1}, {"size", c.size}});
    ASSERT_TRUE(effect);
    ASSERT_EQ(effect->Initialize(), 1);
    const std::vector<uint32_t> picture = Frame(*effect, 0);
    Frame(*effect, 40);
    EXPECT_EQ(Drawn(picture) > 0, c.drawn);
    EXPECT_EQ(capture.messages.size(), c.error ? 1u : 0u) << "one message, not one per frame";
    if (c.error && !capture.messages.empty()) {
      EXPECT_NE(capture.messages[0].text.find(c.font), std::string::npos) << capture.messages[0].text;
    }

    // Nothing to draw: the export holds no mesh.
    std::string message;
    const fs::path path = dir / "out.3ds";
    ASSERT_EQ(orrery::RunEffectAction(effect.get(), "save-3ds", path.c_str(), &message), 1) << message;
    std::ifstream in(path, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), {});
    EXPECT_EQ(bytes.find("Letter0") != std::string::npos, c.exported);
  }
}

}  // namespace
