// ChromaKeyPRO: the kernel against a straightforward 64-bit computation of
// the keying arithmetic, SIMD against scalar, the key table, and the effect
// (default key, settings, pick mode, dynamic variables, dialog rules).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "chroma_key_kernel.h"
#include "chroma_key_math.h"
#include "orrery/services.h"
#include "test_host.h"

namespace {

using namespace nimbo;
using nimbo::testing::MessageCapture;
using nimbo::testing::OwnedScreen;
using nimbo::testing::RenderOnce;
using nimbo::testing::TestHost;

constexpr char kChromaKey[] = "ChromaKeyPRO";

// ---- an independent computation of one keyed pixel ---------------------------------
// 64-bit arithmetic throughout, floor division for the arithmetic shifts, and
// the one 32-bit product (|Z| * tan_factor) reduced modulo 2^32 explicitly.
int64_t FloorDiv256(int64_t v) { return v >= 0 ? v / 256 : -((-v + 255) / 256); }
uint32_t Clamp255(int64_t v) { return uint32_t(v < 0 ? 0 : v > 255 ? 255 : v); }

struct Projection {
  int64_t c[3], x = 0, z = 0, t = 0;
  int alpha_index = -1;  // the LUT index a keyed pixel looks up, -1 for foreground
};

Projection Project(uint32_t p, const ChromaKeyParams& k) {
  Projection q{{(p >> 16) & 0xFF, (p >> 8) & 0xFF, p & 0xFF}};
  for (int i = 0; i < 3; ++i) {
    q.x += int64_t(k.cx[i]) * q.c[i];
    q.z += int64_t(k.cz[i]) * q.c[i];
  }
  q.x = FloorDiv256(q.x);
  q.z = FloorDiv256(q.z);
  q.t = int64_t(((uint64_t(q.z < 0 ? -q.z : q.z) * uint64_t(uint32_t(k.tan_factor))) & 0xFFFFFFFFu) >> 8);
  if (q.x - q.t > 0) q.alpha_index = int(std::min<uint64_t>(255, (uint64_t(uint32_t(k.inv_mag)) * uint64_t(q.x - q.t)) >> 8));
  return q;
}

uint32_t ReferencePixel(uint32_t p, uint32_t back, bool null_colour, const ChromaKeyParams& k) {
  const Projection q = Project(p, k);
  const int64_t* c = q.c;
  if (q.alpha_index < 0) {
    if (!k.colortrafo) return p;
    uint32_t out = 0;
    for (int row = 0; row < 3; ++row) {
      int64_t sum = 0;
      for (int i = 0; i < 3; ++i) sum += int64_t(k.matrix.m[row][i]) * c[i];
      out |= Clamp255(FloorDiv256(sum)) << (16 - 8 * row);
    }
    return out;
  }
  int64_t alpha = k.lut[q.alpha_index];
  if (k.noise_sq != 0 && q.z * q.z + (q.x - k.k_mag) * (q.x - k.k_mag) < k.noise_sq) alpha = 255;
  const int64_t luma_left = FloorDiv256((255 - alpha) * FloorDiv256(65 * c[0] + 129 * c[1] + 25 * c[2]));
  const uint32_t bg_rgb = null_colour ? k.null_rgb : back;
  uint32_t out = null_colour ? uint32_t(alpha) << 24 : 0;
  for (int ch = 0; ch < 3; ++ch) {
    const int64_t g = (bg_rgb >> (16 - 8 * ch)) & 0xFF;
    out |= Clamp255(FloorDiv256(g * alpha + k.rec.l * luma_left + k.rec.z[ch] * q.z + k.rec.t[ch] * q.t))
           << (16 - 8 * ch);
  }
  return out;
}

AlphaLut RandomLut(std::mt19937& rng) {
  AlphaLut lut;
  for (uint8_t& v : lut) v = uint8_t(rng());
  return lut;
}

// A key drawn to reach every branch: pure primaries, grey-ish keys (large
// inv_mag), black and white, or any colour.
uint32_t RandomKey(std::mt19937& rng) {
  const uint32_t keys[] = {0x0000FF, 0x00FF00, 0x808081, 0x7F7F80, 0x000000, 0xFFFFFF, 0x10E020, 0x1830D0};
  return rng() % 3 == 0 ? keys[rng() % 8] : rng() & 0xFFFFFF;
}

// Settings drawn to reach every branch: colour transform, alpha maps and
// tables (random, identity, constant), noise, cone angles near 0 and past 90
// degrees, and the LUT looked up from X' or from the index.
ChromaKeyParams RandomParams(std::mt19937& rng, uint32_t key) {
  ChromaKeyInputs in;
  in.key_rgb = key;
  const float angles[] = {50.0f, 0.0f, 0.1f, 1.0f, 89.9f, 90.0f, 120.0f, -30.0f};
  in.angle = rng() % 2 ? angles[rng() % 8] : float(rng() % 9000) / 100.0f;
  in.noise_level = rng() % 3 == 0 ? float(rng() % 200) : 0.0f;
  in.colortrafo_used = rng() % 2;
  in.colortrafo = {float(int(rng() % 1300) - 650) / 100.0f, float(rng() % 500) / 100.0f,
                   float(rng() % 500) / 100.0f};
  in.null_rgb = rng();
  std::vector<AlphaPoint> map;
  if (rng() % 2) map = {{0.0f, 0.2f}, {0.25f, 0.05f}, {0.6f, 0.9f}, {0.8f, 1.0f}};
  ChromaKeyParams params = MakeChromaKeyParams(in, BuildAlphaLut(map));
  AlphaLut lut = RandomLut(rng);
  if (rng() % 6 == 0) lut.fill(200);
  if (rng() % 3 == 0) SetAlphaLut(params, lut);
  if (rng() % 3 == 0) params.cone_rows_usable = false;
  return params;
}

// Runs of 1..max_run pixels, each run either near `near` or random colours.
std::vector<uint32_t> RandomPixels(std::mt19937& rng, size_t count, uint32_t near, size_t max_run = 1) {
  std::vector<uint32_t> px(count);
  for (size_t i = 0; i < count;) {
    const size_t end = std::min(count, i + 1 + rng() % max_run);
    const bool keyed = rng() % 2;
    for (; i < end; ++i) px[i] = keyed ? (rng() & 0xFF000000u) | ((near & 0xFFFFFF) ^ (rng() & 0x1F3F1F)) : rng();
  }
  return px;
}

// Keys dst = src from `offset` on, over a background, the null colour and the
// frame itself: the scalar version must give the independent computation's
// bytes, every SIMD version the CPU has the scalar ones. Counts keyed pixels.
void CheckKernels(const std::vector<uint32_t>& src, const std::vector<uint32_t>& back, size_t offset,
                  const ChromaKeyParams& params, size_t& keyed) {
  std::vector<ChromaKeyFn> versions = {ChromaKeySse2};
  if (__builtin_cpu_supports("avx2")) versions.push_back(ChromaKeyAvx2);
  if (CpuHasKeyAvx512()) versions.push_back(ChromaKeyAvx512);
  for (int mode = 0; mode < 3; ++mode) {
    auto run = [&](ChromaKeyFn fn) {
      std::vector<uint32_t> out = src;
      const uint32_t* bg = mode == 0 ? back.data() + offset : mode == 1 ? nullptr : out.data() + offset;
      fn(out.data() + offset, bg, src.size() - offset, params);
      return out;
    };
    const std::vector<uint32_t> want = run(ChromaKeyScalar);
    for (size_t i = 0; i < src.size(); ++i) {
      const uint32_t ref = i < offset ? src[i] : ReferencePixel(src[i], mode ? src[i] : back[i], mode == 1, params);
      ASSERT_EQ(want[i], ref) << "mode " << mode << " pixel " << i << " " << std::hex << src[i];
      keyed += ref != src[i];
    }
    for (size_t v = 0; v < versions.size(); ++v) ASSERT_EQ(run(versions[v]), want) << "version " << v << " mode " << mode;
  }
}

// At odd widths and unaligned starts: short pictures; runs of foreground and
// keyed pixels, so whole 32- and 64-pixel blocks are foreground (left alone
// or only recoloured), keyed, or mixed; frames several rows long, so the
// AVX-512 version's blocks run far enough to ask for memory ahead of
// themselves, in every loop it has (noise radius, colour transform,
// tan_factor and inv_mag inside or outside the 16-bit multiply); and pictures
// sorted by the alpha LUT index they look up. The SIMD versions look the LUT
// up for blocks at once (on AVX2 by byte shuffles walking only the half of
// the table a block needs), so every entry must come out right in blocks
// whose indices lie in the lower half, the upper half, or both; one key
// reaches only some entries (the index grows in steps of inv_mag / 256), so
// many keys are used.
TEST(ChromaKeyKernel, MatchesTheIndependentComputationAndSimdTheScalarBytes) {
  struct Case {
    const char* name;
    int trials;
    size_t min_count, spread, max_run;
  };
  const Case cases[] = {{"short", 400, 0, 70, 1},
                        {"runs", 200, 0, 400, 160},
                        {"long", 100, 4 * 1920, 64, 200},
                        {"sorted by LUT index", 200, 1 << 14, 8, 0}};
  std::mt19937 rng(11);
  size_t keyed = 0, total = 0, cone_trials = 0;
  size_t blocks[2][3] = {};   // per block length 32 / 64: foreground, keyed, mixed
  bool loops_seen[8] = {};    // noise | recolour << 1 | madd16 << 2, on long frames
  std::vector<bool> seen(257);  // LUT index + 1, on sorted pictures
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    for (int trial = 0; trial < c.trials; ++trial) {
      const uint32_t key = RandomKey(rng);
      const ChromaKeyParams params = RandomParams(rng, key);
      const size_t offset = rng() % 8, count = c.min_count + rng() % c.spread;
      std::vector<uint32_t> src = RandomPixels(rng, offset + count, rng() % 4 ? key : rng(), c.max_run + 1);
      auto index = [&](uint32_t p) { return Project(p, params).alpha_index; };
      if (c.max_run == 0) {
        std::sort(src.begin(), src.end(), [&](uint32_t a, uint32_t b) { return index(a) < index(b); });
        for (uint32_t p : src) seen[size_t(index(p) + 1)] = true;
        cone_trials += params.cone_rows_usable;
      }
      const bool madd16 = params.tan_factor >= 0 && params.tan_factor <= 0x7FFF && params.inv_mag >= 0 &&
                          params.inv_mag <= 0x7FFF;
      if (c.min_count == 4 * 1920) loops_seen[(params.noise_sq != 0) | params.colortrafo << 1 | madd16 << 2] = true;
      for (size_t kind = 0; kind < 2 && c.max_run > 1; ++kind) {
        const size_t length = 32 << kind;
        for (size_t b = offset; b + length <= src.size(); b += length) {
          size_t keyed_here = 0;
          for (size_t j = b; j < b + length; ++j) keyed_here += index(src[j]) >= 0;
          ++blocks[kind][keyed_here == 0 ? 0 : keyed_here == length ? 1 : 2];
        }
      }
      SCOPED_TRACE(trial);
      ASSERT_NO_FATAL_FAILURE(CheckKernels(src, RandomPixels(rng, src.size(), rng()), offset, params, keyed));
      total += 3 * src.size();
    }
  }
  // Both branches were exercised in earnest, and every kind of block.
  EXPECT_GT(keyed, total / 5);
  EXPECT_LT(keyed, total * 4 / 5);
  EXPECT_GT(*std::min_element(&blocks[0][0], &blocks[0][0] + 6), 50u);
  EXPECT_EQ(std::count(std::begin(loops_seen), std::end(loops_seen), true), 8);
  // The sorted pictures reached every entry a keyed pixel can: X' >= 1 and
  // inv_mag >= 512 (no chroma magnitude reaches 128) put the index at 2 or more.
  EXPECT_EQ(std::count(seen.begin() + 3, seen.end(), true), 254);
  EXPECT_GT(cone_trials, 100u);
  EXPECT_EQ(ChromaKeyKernel() == &ChromaKeyAvx512, CpuHasKeyAvx512());  // chosen where the CPU has it
}

TEST(ChromaKeyMath, CoefficientsAndAlphaLut) {
  // The neutral colour matrix truncates to 255 / 256 / 255 on its diagonal;
  // saturation 0 leaves the same grey row for every channel.
  const ColorMatrix identity = ComputeColorMatrix({}), grey = ComputeColorMatrix({1.0f, 0.0f, 1.0f});
  const int16_t expected[3][3] = {{255, 0, 0}, {0, 256, 0}, {0, 0, 255}};
  EXPECT_EQ(std::memcmp(identity.m, expected, sizeof(expected)), 0);
  EXPECT_TRUE(std::equal(grey.m[0], grey.m[0] + 3, grey.m[1]) && std::equal(grey.m[0], grey.m[0] + 3, grey.m[2]));
  // Out-of-range coefficients keep their low 16 bits.
  EXPECT_EQ(TruncToInt16(70000.9), int16_t(70000 - 65536));
  EXPECT_EQ(TruncToInt16(-1.9), -1);
  EXPECT_EQ(TruncToInt32(1e30), INT32_MAX);
  EXPECT_EQ(TruncToInt32(std::nan("")), 0);
  // The default blue key: 256 / tan(50 degrees), 65536 / sqrt(12859).
  const ChromaKeyParams blue = MakeChromaKeyParams({}, BuildAlphaLut({}));
  EXPECT_TRUE(blue.tan_factor == 214 && blue.inv_mag == 577 && blue.k_mag == 113);

  // Alpha curve: empty map and the default two points are the identity;
  // before the first point its y, after the last the last y, linear between.
  AlphaLut ramp_lut;
  std::iota(ramp_lut.begin(), ramp_lut.end(), 0);
  EXPECT_EQ(BuildAlphaLut({}), ramp_lut);
  EXPECT_EQ(BuildAlphaLut(std::vector<AlphaPoint>{{0, 0}, {1, 1}}), ramp_lut);
  const std::vector<AlphaPoint> ramp = {{0.2f, 0.1f}, {0.6f, 0.5f}, {0.8f, 2.0f}};
  EXPECT_FLOAT_EQ(AlphaCurve(ramp, 0.1f), 0.1f);
  EXPECT_FLOAT_EQ(AlphaCurve(ramp, 0.4f), 0.3f);
  EXPECT_FLOAT_EQ(AlphaCurve(ramp, 0.9f), 2.0f);
  EXPECT_EQ(BuildAlphaLut(ramp)[255], 255);  // 2.0 clamps
  EXPECT_EQ(BuildAlphaLut(ramp)[0], 25);     // 0.1 * 255
}

// Every apply version against the kernel's answer for the pixel's 7-bit
// colour on black, plus the background weighted by the same transparency.
TEST(KeyTable, BuildExpandsTheKernelAndApplyStaysWithinSevenBits) {
  std::mt19937 rng(5);
  std::vector<uint32_t> table(kKeyTableWords), table_scalar(kKeyTableWords);
  std::vector<KeyTableApplyFn> versions = {ApplyKeyTableScalar, ApplyKeyTableSse2};
  if (__builtin_cpu_supports("avx2")) versions.push_back(ApplyKeyTableAvx2);
  for (int trial = 0; trial < 3; ++trial) {
    ChromaKeyParams params = RandomParams(rng, RandomKey(rng)), black = params;
    black.null_rgb = 0;
    BuildKeyTable(table.data(), params, ChromaKeyKernel());
    BuildKeyTable(table_scalar.data(), params, ChromaKeyScalar);
    ASSERT_EQ(table, table_scalar);
    const std::vector<uint32_t> src = RandomPixels(rng, 4099, 0x0000FF), back = RandomPixels(rng, 4099, rng());
    for (size_t v = 0; v < 2 * versions.size(); ++v) {
      SCOPED_TRACE(v);
      const bool null_colour = v % 2;
      std::vector<uint32_t> out = src;
      versions[v / 2](out.data(), null_colour ? nullptr : back.data(), out.size(), table.data(), params.null_rgb);
      for (size_t i = 0; i < out.size(); ++i) {
        const uint32_t direct = ReferencePixel(src[i] & 0x00FEFEFE, 0, true, black), a = direct >> 24;
        const uint32_t b = null_colour ? 0xFF000000u | params.null_rgb : back[i];
        for (int s = 0; s < 32; s += 8) {
          const uint32_t expect = std::min(255u, ((direct & 0x00FFFFFF) >> s & 0xFF) + ((b >> s & 0xFF) * a >> 8));
          ASSERT_EQ(out[i] >> s & 0xFF, expect) << i;
        }
      }
    }
  }
}

// ---- the effect --------------------------------------------------------------------------
std::string Data(const std::string& key, const char* type, const std::string& value) {
  return "<data name=\"" + key + "\" type=\"" + type + "\">" + value + "</data>";
}

struct Rig {
  explicit Rig(const std::string& data = "") : host(16, 8), effect(nimbo::testing::MakeEffect(kChromaKey, &host)) {
    EXPECT_TRUE(data.empty() || host.store.Load("<Settings><ConfigData>" + data + "</ConfigData></Settings>"));
    effect->UpdateConfig();
    effect->Initialize();
  }
  // What the effect would store now, written to a fresh store.
  std::string Stored() {
    TestHost fresh;
    effect->SetHostContext(&fresh);
    effect->UpdateConfig();
    effect->SetHostContext(&host);
    return fresh.store.Text();
  }
  bool Stores(const std::string& key, const char* type, const std::string& value) {
    return Stored().find(Data(key, type, value)) != std::string::npos;
  }
  TestHost host;
  std::unique_ptr<orrery::Effect> effect;
};

int MaxChannelDiff(uint32_t a, uint32_t b) {
  int d = 0;
  for (int s = 0; s < 24; s += 8) d = std::max(d, std::abs(int(a >> s & 0xFF) - int(b >> s & 0xFF)));
  return d;
}

TEST(ChromaKeyPRO, DefaultsKeyBlueToTheBackgroundAndLeaveRed) {
  for (int use_table : {0, 1}) {
    Rig rig(Data("use_table", "int", std::to_string(use_table)));
    OwnedScreen frame(16, 8, 0xFF0000FF), back(16, 8, 0xFF406080), out(16, 8);
    frame.At(3, 2) = 0xFFFF0000;
    ASSERT_EQ(RenderOnce(*rig.effect, {&frame.screen, &back.screen}, &out.screen), 1);
    // Red is foreground: untouched by the kernel, 7-bit precise through the table.
    EXPECT_EQ(out.At(3, 2), use_table ? 0x00FE0000u : 0xFFFF0000u) << std::hex << out.At(3, 2);
    // The key's own colour gets a = 252 of 255: the background within 4 steps.
    EXPECT_LE(MaxChannelDiff(out.At(0, 0), 0x406080), 4) << std::hex << out.At(0, 0);
    // Without the second input the frame is its own background.
    ASSERT_EQ(RenderOnce(*rig.effect, {&frame.screen}, &out.screen), 1);
    EXPECT_LE(MaxChannelDiff(out.At(3, 2), 0xFF0000), 1);
    EXPECT_LE(MaxChannelDiff(out.At(0, 0), 0x0000FF), 4);
  }
}

// The acceptance angle narrows the cone from a half-plane (90 degrees) down
// to the key's own direction (0 degrees), on both paths: cyan lies about 62
// degrees from blue in the chroma plane, a lighter blue on the key's axis.
TEST(ChromaKeyPRO, TheConeNarrowsWithTheAngleDownToTheKeysOwnDirection) {
  EXPECT_EQ(ComputeKeyParams(0x0000FF, 0.0f).tan_factor, INT32_MAX);
  for (int use_table : {0, 1}) {
    for (const char* angle : {"0", "0.5", "50", "90"}) {
      Rig rig(Data("use_table", "int", std::to_string(use_table)) + Data("angle", "float", angle));
      OwnedScreen frame(16, 8, 0xFF0000FF), back(16, 8, 0xFF406080), out(16, 8);
      frame.At(1, 0) = 0xFF00FFFF;
      frame.At(2, 0) = 0xFF8080FF;
      ASSERT_EQ(RenderOnce(*rig.effect, {&frame.screen, &back.screen}, &out.screen), 1);
      const bool half_plane = std::string(angle) == "90";
      EXPECT_EQ(MaxChannelDiff(out.At(1, 0), 0x00FFFF) > 1, half_plane) << "angle " << angle << " table " << use_table;
      EXPECT_LE(MaxChannelDiff(out.At(0, 0), 0x406080), 4) << "angle " << angle << " table " << use_table;
      EXPECT_GT(MaxChannelDiff(out.At(2, 0), 0x8080FF), 1) << "angle " << angle << " table " << use_table;
    }
  }
}

// Before Initialize the output size is unknown: nothing is drawn, and the
// frame still counts as a success.
TEST(ChromaKeyPRO, RenderReportsSuccessEvenBeforeInitialize) {
  TestHost host(16, 8);
  auto effect = nimbo::testing::MakeEffect(kChromaKey, &host);
  effect->UpdateConfig();
  OwnedScreen frame(16, 8, 0xFF0000FF), back(16, 8, 0xFF406080), out(16, 8, 0x12345678);
  EXPECT_EQ(RenderOnce(*effect, {&frame.screen, &back.screen}, &out.screen), 1);
  EXPECT_EQ(out.At(0, 0), 0x12345678u);
}

TEST(ChromaKeyPRO, WritesEveryKeyInOrderAndClampsTheAlphaMapLength) {
  Rig rig;
  const std::string text = rig.host.store.Text();
  const char* order[] = {"mode", "chroma_rgb", "pick_x", "pick_y", "outmode", "nullcolor", "use_table",
                         "use_dynvars", "angle", "noise_level", "colortrafo_used", "colortrafo_hue",
                         "colortrafo_sat", "colortrafo_bright", "alphamaplen", "alphamap_0_x", "alphamap_0_y",
                         "alphamap_1_x", "alphamap_1_y"};
  size_t at = 0;
  for (const char* key : order) {
    at = text.find(std::string("name=\"") + key + "\"", at);
    ASSERT_NE(at, std::string::npos) << key << " in " << text;
  }
  EXPECT_EQ(text.find("alphamap_2_x"), std::string::npos);
  EXPECT_TRUE(rig.Stores("chroma_rgb", "int", "255") && rig.Stores("angle", "float", "50.000000")) << text;

  // A stored length above 300 reads as 300.
  std::string data = Data("alphamaplen", "int", "500");
  for (int i = 0; i < 500; ++i) {
    data += Data("alphamap_" + std::to_string(i) + "_x", "float", "0.5");
    data += Data("alphamap_" + std::to_string(i) + "_y", "float", "0.5");
  }
  Rig big(data);
  const std::string stored = big.Stored();
  EXPECT_TRUE(big.Stores("alphamaplen", "int", "300"));
  EXPECT_NE(stored.find("alphamap_299_y"), std::string::npos);
  EXPECT_EQ(stored.find("alphamap_300_x"), std::string::npos);
}

TEST(ChromaKeyPRO, PickModeReadsTheClampedPointAndKeysDirectly) {
  // Pick at x = 1.0, y = 1.0: the last column and row. The table stays on,
  // but pick mode always keys directly.
  Rig rig(Data("mode", "int", "0") + Data("pick_x", "float", "1.0") + Data("pick_y", "float", "1.0"));
  OwnedScreen frame(16, 8), back(16, 8), out(16, 8);
  nimbo::testing::FillRandom(frame, 3);
  nimbo::testing::FillRandom(back, 4);
  frame.At(15, 7) = 0xFF20C040;
  for (int x = 0; x < 8; ++x) frame.At(x, 0) = 0xFF20C040 ^ uint32_t(x * 0x030201);
  RenderOnce(*rig.effect, {&frame.screen, &back.screen}, &out.screen);
  ChromaKeyInputs in;
  in.key_rgb = 0x20C040;
  std::vector<uint32_t> want = frame.pixels;
  ChromaKeyScalar(want.data(), back.pixels.data(), want.size(), MakeChromaKeyParams(in, BuildAlphaLut({})));
  EXPECT_EQ(out.pixels, want);
  EXPECT_NE(out.At(2, 0), frame.At(2, 0));  // near the picked colour: keyed
}

TEST(ChromaKeyPRO, DynamicVariablesSetKeyAndAngleAndOverwriteTheStoredKey) {
  Rig rig(Data("use_dynvars", "int", "1"));
  // Declared in this order, with these ranges and defaults.
  const char* names[] = {"Keycolor", "Transparency", "Tolerance"};
  const float init[] = {0.0f, 0.9f, 0.8f};
  orrery::DynVar* v = rig.host.dynvars;
  for (int i = 0; i < 3; ++i, v = v->next) {
    ASSERT_NE(v, nullptr);
    EXPECT_STREQ(v->name, names[i]);
    EXPECT_FLOAT_EQ(v->varinit, init[i]);
  }
  EXPECT_FLOAT_EQ(rig.host.FindDynVar("Keycolor")->varmin, -1.0f);
  EXPECT_FLOAT_EQ(rig.host.FindDynVar("Tolerance")->varmax, 0.99f);

  // Keycolor 0, Transparency 0.75: u = 0.25, v = 0 -> R 127, G 115, B 246;
  // Tolerance 0.5 -> 45 degrees.
  rig.host.FindDynVar("Transparency")->value = 0.75f;
  rig.host.FindDynVar("Tolerance")->value = 0.5f;
  OwnedScreen frame(16, 8, 0xFF0000FF), back(16, 8, 0xFF102030), out(16, 8);
  frame.At(1, 1) = 0xFFFF0000;
  RenderOnce(*rig.effect, {&frame.screen, &back.screen}, &out.screen);
  EXPECT_EQ(out.At(1, 1), 0x00FE0000u);  // foreground through the table: 7-bit red
  // The key the table was built for follows the dynamic variables: the table
  // path gives the 7-bit blue keyed on black plus the weighted background.
  ChromaKeyInputs in;
  in.key_rgb = 0x7F73F6;
  in.angle = 45.0f;
  const uint32_t q = ReferencePixel(0xFE, 0, true, MakeChromaKeyParams(in, BuildAlphaLut({})));
  ASSERT_NE(q, 0xFEu);  // blue lies inside the cone of that bluish key
  uint32_t expect = 0;
  for (int s = 0; s < 32; s += 8)
    expect |= std::min(255u, ((q & 0xFFFFFF) >> s & 0xFF) + ((0xFF102030u >> s & 0xFF) * (q >> 24) >> 8)) << s;
  EXPECT_EQ(out.At(0, 0), expect) << std::hex << out.At(0, 0) << " " << expect;
  EXPECT_TRUE(rig.Stores("chroma_rgb", "int", std::to_string(0x7F73F6)) && rig.Stores("angle", "float", "45.000000"))
      << rig.Stored();

  // Off again: no dynamic variables are declared.
  EXPECT_EQ(Rig().host.FindDynVar("Keycolor"), nullptr);
}

// A dialog host that edits the fields by label, then answers OK or Cancel,
// and can render frames while it is open (the render thread goes on).
struct ScriptedDialog final : orrery::DialogService {
  ScriptedDialog() { orrery::SetDialogService(this); }
  ~ScriptedDialog() { orrery::SetDialogService(nullptr); }
  int32_t RunModal(const orrery::DialogModel& model) override {
    for (int32_t i = 0; i < model.count; ++i) {
      const orrery::DialogField& f = model.fields[i];
      if (ints.count(f.label)) *static_cast<int32_t*>(f.value) = ints[f.label];
      if (texts.count(f.label)) *static_cast<std::string*>(f.value) = texts[f.label];
      labels.push_back(f.label);
    }
    if (while_open) while_open();
    return answer;
  }
  int32_t answer = 1;
  std::map<std::string, int32_t> ints;
  std::map<std::string, std::string> texts;
  std::vector<std::string> labels;
  std::function<void()> while_open;
};

TEST(ChromaKeyPRO, DialogBypassesTheTableAndFollowsTheOkAndCancelRules) {
  MessageCapture messages;
  ScriptedDialog dialog;
  Rig rig;
  const int32_t with_table = rig.effect->GetMemoryUsage();
  EXPECT_GE(with_table, int32_t(kKeyTableBytes));

  // A dark pixel with odd bits: the table path quantises it to 7 bits, the
  // direct kernel leaves it. While the dialog is open the kernel is direct
  // and a snapshot of the frame size exists.
  OwnedScreen frame(16, 8, 0xFF070503), back(16, 8), out(16, 8);
  auto render = [&] {
    RenderOnce(*rig.effect, {&frame.screen, &back.screen}, &out.screen);
    return out.At(0, 0);
  };
  EXPECT_EQ(render(), 0x00060402u);
  uint32_t during = 0;
  int32_t memory_during = 0;
  dialog.while_open = [&] {
    during = render();
    memory_during = rig.effect->GetMemoryUsage();
  };
  // Cancel: edits are dropped.
  dialog.answer = 0;
  dialog.ints = {{"Background", 1}, {"Key colour", 0x00FF00}};
  EXPECT_EQ(rig.effect->SetupDialog(), 0);
  EXPECT_EQ(during, 0xFF070503u);
  EXPECT_EQ(memory_during, with_table + 16 * 8 * 4);
  EXPECT_EQ(rig.effect->GetMemoryUsage(), with_table);
  EXPECT_TRUE(rig.Stores("chroma_rgb", "int", "255"));
  EXPECT_TRUE(messages.messages.empty());
  EXPECT_EQ(render(), 0x00060402u);  // bypass cleared

  // OK switching to the null colour: the warning, and the new settings.
  dialog.answer = 1;
  dialog.texts = {{"Alpha map", "0,0 0.5,1 1,1"}};
  EXPECT_EQ(rig.effect->SetupDialog(), 1);
  ASSERT_EQ(messages.messages.size(), 1u);
  EXPECT_EQ(messages.messages[0].text, "Warning!\nPlugin may need a second input to operate correctly!");
  EXPECT_EQ(messages.messages[0].icon, orrery::kIconWarning);
  EXPECT_TRUE(rig.Stores("outmode", "int", "1") && rig.Stores("chroma_rgb", "int", "65280") &&
              rig.Stores("alphamaplen", "int", "3") && rig.Stores("alphamap_1_x", "float", "0.500000"));
  EXPECT_EQ(rig.host.notifications.size(), 2u);  // 259/1 and 259/0 around Initialize

  // OK again with outmode staying 1: no second warning. Pick mode turns the
  // table off; a bad alpha map is refused with a message and the old map kept.
  dialog.ints = {{"Key colour from", 0}};
  dialog.texts = {{"Alpha map", "0,0 1"}};
  EXPECT_EQ(rig.effect->SetupDialog(), 1);
  ASSERT_EQ(messages.messages.size(), 2u);
  EXPECT_EQ(messages.messages[1].icon, orrery::kIconError);
  EXPECT_LT(rig.effect->GetMemoryUsage(), int32_t(kKeyTableBytes));
  EXPECT_TRUE(rig.Stores("use_table", "int", "0") && rig.Stores("alphamaplen", "int", "3"));
  // The hints are part of the dialog.
  EXPECT_NE(std::find(dialog.labels.begin(), dialog.labels.end(),
                      "Hint: use the XtractAlpha plugin to get the alpha of the output"),
            dialog.labels.end());
}

}  // namespace
