// ChromaKeyPRO: the kernel against a straightforward 64-bit computation of
// the keying arithmetic, SIMD against scalar, the key table, and the effect
// (default key, settings, pick mode, dynamic variables, dialog rules).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "filters/chroma_key_kernel.h"
#include "filters/chroma_key_math.h"
#include "orrery/services.h"
#include "support/test_host.h"

namespace {

using namespace nimbo;
using nimbo::testing::MessageCapture;
using nimbo::testing::OwnedScreen;
using nimbo::testing::TestHost;

constexpr int32_t kChromaKeyIndex = 16;

// ---- an independent computation of one keyed pixel ---------------------------------
// 64-bit arithmetic throughout, floor division for the arithmetic shifts, and
// the one 32-bit product (|Z| * tan_factor) reduced modulo 2^32 explicitly.
int64_t FloorDiv256(int64_t v) { return v >= 0 ? v / 256 : -((-v + 255) / 256); }
uint32_t Clamp255(int64_t v) { return uint32_t(v < 0 ? 0 : v > 255 ? 255 : v); }

uint32_t ReferencePixel(uint32_t p, uint32_t back, bool null_colour, const ChromaKeyParams& k) {
  const int64_t c[3] = {(p >> 16) & 0xFF, (p >> 8) & 0xFF, p & 0xFF};
  int64_t x = 0, z = 0;
  for (int i = 0; i < 3; ++i) {
    x += int64_t(k.cx[i]) * c[i];
    z += int64_t(k.cz[i]) * c[i];
  }
  x = FloorDiv256(x);
  z = FloorDiv256(z);
  const int64_t luma = FloorDiv256(65 * c[0] + 129 * c[1] + 25 * c[2]);
  const uint64_t product = (uint64_t(z < 0 ? -z : z) * uint64_t(uint32_t(k.tan_factor))) & 0xFFFFFFFFu;
  const int64_t t = int64_t(product >> 8);
  if (x - t <= 0) {
    if (!k.colortrafo) return p;
    uint32_t out = 0;
    for (int row = 0; row < 3; ++row) {
      int64_t sum = 0;
      for (int i = 0; i < 3; ++i) sum += int64_t(k.matrix.m[row][i]) * c[i];
      out |= Clamp255(FloorDiv256(sum)) << (16 - 8 * row);
    }
    return out;
  }
  uint64_t a = (uint64_t(uint32_t(k.inv_mag)) * uint64_t(x - t)) >> 8;
  if (a >= 255) a = 255;
  int64_t alpha = k.lut[a];
  if (k.noise_sq != 0 && z * z + (x - k.k_mag) * (x - k.k_mag) < k.noise_sq) alpha = 255;
  const int64_t luma_left = FloorDiv256((255 - alpha) * luma);
  const uint32_t bg_rgb = null_colour ? k.null_rgb : back;
  uint32_t out = null_colour ? uint32_t(alpha) << 24 : 0;
  for (int ch = 0; ch < 3; ++ch) {
    const int64_t g = (bg_rgb >> (16 - 8 * ch)) & 0xFF;
    out |= Clamp255(FloorDiv256(g * alpha + k.rec.l * luma_left + k.rec.z[ch] * z + k.rec.t[ch] * t)) << (16 - 8 * ch);
  }
  return out;
}

AlphaLut RandomLut(std::mt19937& rng) {
  AlphaLut lut;
  for (uint8_t& v : lut) v = uint8_t(rng());
  return lut;
}

// The LUT index a keyed pixel looks up, or -1 for a foreground pixel.
int RawAlphaIndex(uint32_t p, const ChromaKeyParams& k) {
  const int64_t c[3] = {(p >> 16) & 0xFF, (p >> 8) & 0xFF, p & 0xFF};
  int64_t x = 0, z = 0;
  for (int i = 0; i < 3; ++i) {
    x += int64_t(k.cx[i]) * c[i];
    z += int64_t(k.cz[i]) * c[i];
  }
  x = FloorDiv256(x);
  z = FloorDiv256(z);
  const int64_t t = int64_t(((uint64_t(z < 0 ? -z : z) * uint64_t(uint32_t(k.tan_factor))) & 0xFFFFFFFFu) >> 8);
  if (x - t <= 0) return -1;
  return int(std::min<uint64_t>(255, (uint64_t(uint32_t(k.inv_mag)) * uint64_t(x - t)) >> 8));
}

// Settings drawn to reach every branch: colour transform, alpha maps, noise,
// grey-ish keys (large inv_mag), cone angles near 0 and past 90 degrees.
ChromaKeyParams RandomParams(std::mt19937& rng) {
  ChromaKeyInputs in;
  const uint32_t keys[] = {0x0000FF, 0x00FF00, 0x808081, 0x7F7F80, 0x000000, 0xFFFFFF, 0x10E020};
  in.key_rgb = rng() % 3 == 0 ? keys[rng() % 7] : rng() & 0xFFFFFF;
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
  if (rng() % 4 == 0) SetAlphaLut(params, RandomLut(rng));
  return params;
}

// Pixels of which a good share lies near the key (so inside the cone).
std::vector<uint32_t> RandomPixels(std::mt19937& rng, size_t count, uint32_t near) {
  std::vector<uint32_t> px(count);
  for (uint32_t& p : px) {
    p = rng();
    if (rng() % 2) p = (p & 0xFF000000u) | ((near & 0xFFFFFF) ^ (rng() & 0x1F3F1F));
  }
  return px;
}

TEST(ChromaKeyKernel, MatchesTheIndependentComputationOnRandomPictures) {
  std::mt19937 rng(7);
  size_t keyed = 0, total = 0;
  for (int trial = 0; trial < 300; ++trial) {
    const ChromaKeyParams params = RandomParams(rng);
    const uint32_t near = rng() % 2 ? 0x0000FF : rng();
    const std::vector<uint32_t> src = RandomPixels(rng, 512, near);
    const std::vector<uint32_t> back = RandomPixels(rng, 512, rng());
    for (bool null_colour : {false, true}) {
      std::vector<uint32_t> out = src;
      ChromaKeyScalar(out.data(), null_colour ? nullptr : back.data(), out.size(), params);
      for (size_t i = 0; i < src.size(); ++i) {
        const uint32_t want = ReferencePixel(src[i], back[i], null_colour, params);
        ASSERT_EQ(out[i], want) << "trial " << trial << " pixel " << std::hex << src[i];
        keyed += want != src[i];
        ++total;
      }
    }
  }
  // Both branches were exercised in earnest.
  EXPECT_GT(keyed, total / 5);
  EXPECT_LT(keyed, total * 4 / 5);
}

TEST(ChromaKeyKernel, SimdVersionsGiveTheScalarBytesAtAnyWidthAndOffset) {
  std::mt19937 rng(11);
  const bool avx2 = __builtin_cpu_supports("avx2"), avx512 = CpuHasKeyAvx512();
  for (int trial = 0; trial < 400; ++trial) {
    const ChromaKeyParams params = RandomParams(rng);
    const size_t offset = rng() % 8, count = rng() % 70;
    const std::vector<uint32_t> src = RandomPixels(rng, offset + count, rng() % 2 ? 0x0000FF : rng());
    const std::vector<uint32_t> back = RandomPixels(rng, offset + count, rng());
    for (int mode = 0; mode < 3; ++mode) {  // background, null colour, the frame over itself
      auto run = [&](ChromaKeyFn fn) {
        std::vector<uint32_t> out = src;
        const uint32_t* bg = mode == 0 ? back.data() + offset : mode == 1 ? nullptr : out.data() + offset;
        fn(out.data() + offset, bg, count, params);
        return out;
      };
      const std::vector<uint32_t> want = run(ChromaKeyScalar);
      ASSERT_EQ(run(ChromaKeySse2), want) << "trial " << trial << " mode " << mode;
      if (avx2) {
        ASSERT_EQ(run(ChromaKeyAvx2), want) << "trial " << trial << " mode " << mode;
      }
      if (avx512) {
        ASSERT_EQ(run(ChromaKeyAvx512), want) << "trial " << trial << " mode " << mode;
      }
    }
  }
}

// The SIMD versions look the alpha LUT up for blocks of pixels at once: on
// AVX2 by byte shuffles, either from X' (coloured keys) or from the LUT
// index, walking only the half of the table a block needs. Every entry must
// come out right, in blocks whose indices lie all in the lower half, all in
// the upper half, or both. One key reaches only some entries (the index
// grows in steps of inv_mag / 256), so many keys are used.
TEST(ChromaKeyKernel, SimdAlphaLookupsReachEveryEntry) {
  std::mt19937 rng(13);
  const bool avx2 = __builtin_cpu_supports("avx2"), avx512 = CpuHasKeyAvx512();
  std::vector<bool> seen(256);
  std::vector<uint32_t> keys = {0x1830D0u, 0x0000FFu, 0x20E030u, 0xC02040u, 0x808081u};
  while (keys.size() < 40) keys.push_back(rng() & 0xFFFFFF);
  int cone_keys = 0;
  for (uint32_t key : keys) {
    ChromaKeyInputs in;
    in.key_rgb = key;
    ChromaKeyParams params = MakeChromaKeyParams(in, BuildAlphaLut({}));
    cone_keys += params.cone_rows_usable;
    // Random colours, sorted by the index they look up so that whole blocks
    // share a half of the table; foreground pixels go first.
    std::vector<std::pair<int, uint32_t>> by_index(1 << 14);
    for (auto& [index, p] : by_index) {
      p = rng() % 2 ? rng() : (key ^ (rng() & 0x3F7F7F)) | (rng() & 0xFF000000u);
      index = RawAlphaIndex(p, params);
    }
    std::sort(by_index.begin(), by_index.end());
    std::vector<uint32_t> src(by_index.size()), back(by_index.size());
    for (size_t i = 0; i < src.size(); ++i) {
      src[i] = by_index[i].second;
      back[i] = rng();
      if (by_index[i].first >= 0) seen[size_t(by_index[i].first)] = true;
    }
    for (int trial = 0; trial < 8; ++trial) {
      // Random tables, the identity, a constant one; from X' and from the index.
      AlphaLut lut = RandomLut(rng);
      if (trial % 4 == 1) lut = BuildAlphaLut({});
      if (trial % 4 == 2) lut.fill(200);
      SetAlphaLut(params, lut);
      EXPECT_EQ(params.lut_identity, trial % 4 == 1);
      if (trial >= 4) params.cone_rows_usable = false;
      const size_t offset = trial % 2 ? 5 : 0, count = src.size() - offset;
      std::vector<uint32_t> want(src.begin() + offset, src.end());
      ChromaKeyScalar(want.data(), back.data(), count, params);
      for (size_t i = 0; i < count; i += 37) {
        ASSERT_EQ(want[i], ReferencePixel(src[offset + i], back[i], false, params)) << i;
      }
      std::vector<uint32_t> out(src.begin() + offset, src.end());
      ChromaKeySse2(out.data(), back.data(), count, params);
      ASSERT_EQ(out, want) << "key " << std::hex << key << " trial " << trial;
      if (avx2) {
        out.assign(src.begin() + offset, src.end());
        ChromaKeyAvx2(out.data(), back.data(), count, params);
        ASSERT_EQ(out, want) << "key " << std::hex << key << " trial " << trial;
      }
      if (avx512) {
        out.assign(src.begin() + offset, src.end());
        ChromaKeyAvx512(out.data(), back.data(), count, params);
        ASSERT_EQ(out, want) << "key " << std::hex << key << " trial " << trial;
      }
    }
  }
  // The pictures reached every entry a keyed pixel can: X' >= 1 and
  // inv_mag >= 512 (no chroma magnitude reaches 128) put the index at 2 or more.
  EXPECT_EQ(std::count(seen.begin() + 2, seen.end(), true), 254);
  EXPECT_GT(cone_keys, 35);  // not the grey key
}

// Pictures of runs of foreground and of keyed pixels, so that whole blocks
// are foreground (left alone, or only recoloured), whole blocks keyed, and
// blocks mixed, at odd widths and unaligned starts.
TEST(ChromaKeyKernel, SimdVersionsHandleForegroundKeyedAndMixedBlocks) {
  std::mt19937 rng(17);
  const bool avx2 = __builtin_cpu_supports("avx2"), avx512 = CpuHasKeyAvx512();
  // Per block length (32 pixels for AVX2, 64 for AVX-512): foreground,
  // keyed and mixed blocks seen.
  size_t fore_blocks[2] = {}, keyed_blocks[2] = {}, mixed_blocks[2] = {};
  for (int trial = 0; trial < 200; ++trial) {
    ChromaKeyInputs in;
    in.key_rgb = trial % 2 ? 0x1830D0 : 0x20E030;
    in.colortrafo_used = trial % 3 == 0;
    in.colortrafo = {0.4f, 1.2f, 0.9f};
    in.noise_level = trial % 5 == 0 ? 20.0f : 0.0f;
    in.null_rgb = rng();
    std::vector<AlphaPoint> map;
    if (trial % 4 >= 2) map = {{0.0f, 0.0f}, {0.3f, 1.0f}};
    ChromaKeyParams params = MakeChromaKeyParams(in, BuildAlphaLut(map));
    if (trial % 7 == 0) SetAlphaLut(params, RandomLut(rng));

    const size_t offset = rng() % 8, count = rng() % 400;
    std::vector<uint32_t> src(offset + count);
    const uint32_t subject[] = {0xFFC08050, 0xFF302010, 0xFFFFFFFF, 0x00E04020};
    for (size_t i = 0; i < src.size();) {
      const size_t run = 1 + rng() % (rng() % 2 ? 8 : 160);
      const bool keyed = rng() % 2;
      for (size_t j = i; j < std::min(src.size(), i + run); ++j) {
        src[j] = keyed ? (in.key_rgb ^ (rng() & 0x0F0F0F)) | (rng() & 0xFF000000u) : subject[rng() % 4];
      }
      i += run;
    }
    // Count the blocks of each kind.
    for (size_t kind = 0; kind < 2; ++kind) {
      const size_t length = 32 << kind;
      for (size_t b = offset; b + length <= src.size(); b += length) {
        size_t keyed = 0;
        for (size_t j = b; j < b + length; ++j) keyed += RawAlphaIndex(src[j], params) >= 0;
        (keyed == 0 ? fore_blocks : keyed == length ? keyed_blocks : mixed_blocks)[kind] += 1;
      }
    }
    const std::vector<uint32_t> back = RandomPixels(rng, src.size(), rng());
    for (int mode = 0; mode < 3; ++mode) {  // background, null colour, the frame over itself
      auto run = [&](ChromaKeyFn fn) {
        std::vector<uint32_t> out = src;
        const uint32_t* bg = mode == 0 ? back.data() + offset : mode == 1 ? nullptr : out.data() + offset;
        fn(out.data() + offset, bg, count, params);
        return out;
      };
      const std::vector<uint32_t> want = run(ChromaKeyScalar);
      ASSERT_EQ(run(ChromaKeySse2), want) << "trial " << trial << " mode " << mode;
      if (avx2) {
        ASSERT_EQ(run(ChromaKeyAvx2), want) << "trial " << trial << " mode " << mode;
      }
      if (avx512) {
        ASSERT_EQ(run(ChromaKeyAvx512), want) << "trial " << trial << " mode " << mode;
      }
    }
  }
  for (size_t kind = 0; kind < 2; ++kind) {
    EXPECT_GT(fore_blocks[kind], 50u) << kind;
    EXPECT_GT(keyed_blocks[kind], 50u) << kind;
    EXPECT_GT(mixed_blocks[kind], 50u) << kind;
  }
}

// Frames several rows long, so the AVX-512 version's 64-pixel blocks run far
// enough to ask for memory ahead of themselves, in every loop it has: with a
// background, the null colour or the frame over itself; with and without
// the noise radius and the colour transform; with tan_factor and inv_mag
// inside and outside the 16-bit multiply.
TEST(ChromaKeyKernel, Avx512VersionGivesTheScalarBytesOnLongFramesInEveryLoop) {
  if (!CpuHasKeyAvx512()) GTEST_SKIP() << "the CPU lacks AVX-512 F, BW, DQ or VBMI";
  std::mt19937 rng(19);
  bool loops_seen[8] = {};  // noise | recolour << 1 | madd16 << 2
  for (int trial = 0; trial < 60; ++trial) {
    const ChromaKeyParams params = RandomParams(rng);
    const bool madd16 =
        params.tan_factor >= 0 && params.tan_factor <= 0x7FFF && params.inv_mag >= 0 && params.inv_mag <= 0x7FFF;
    loops_seen[size_t(params.noise_sq != 0) | size_t(params.colortrafo) << 1 | size_t(madd16) << 2] = true;
    const size_t offset = rng() % 8, count = 4 * 1920 + rng() % 64;
    // Runs of pixels near the key and far from it, so blocks of each kind.
    std::vector<uint32_t> src = RandomPixels(rng, offset + count, rng());
    const uint32_t key = rng() % 2 ? 0x0000FF : rng();
    for (size_t i = 0; i < src.size(); i += 64 + rng() % 200) {
      for (size_t j = i; j < std::min(src.size(), i + 100); ++j) src[j] = (key ^ (rng() & 0x0F0F0F)) | 0xFF000000u;
    }
    const std::vector<uint32_t> back = RandomPixels(rng, offset + count, rng());
    for (int mode = 0; mode < 3; ++mode) {  // background, null colour, the frame over itself
      auto run = [&](ChromaKeyFn fn) {
        std::vector<uint32_t> out = src;
        const uint32_t* bg = mode == 0 ? back.data() + offset : mode == 1 ? nullptr : out.data() + offset;
        fn(out.data() + offset, bg, count, params);
        return out;
      };
      ASSERT_EQ(run(ChromaKeyAvx512), run(ChromaKeyScalar)) << "trial " << trial << " mode " << mode;
    }
  }
  EXPECT_EQ(std::count(std::begin(loops_seen), std::end(loops_seen), true), 8);
  EXPECT_EQ(ChromaKeyKernel(), &ChromaKeyAvx512);  // chosen where the CPU has it
}

TEST(ChromaKeyMath, CoefficientsAndAlphaLut) {
  // The neutral colour matrix truncates to 255 / 256 / 255 on its diagonal.
  const ColorMatrix identity = ComputeColorMatrix({});
  const int16_t expected[3][3] = {{255, 0, 0}, {0, 256, 0}, {0, 0, 255}};
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c) EXPECT_EQ(identity.m[r][c], expected[r][c]) << r << "," << c;
  // Saturation 0 leaves the same grey row for every channel.
  const ColorMatrix grey = ComputeColorMatrix({1.0f, 0.0f, 1.0f});
  for (int r = 1; r < 3; ++r)
    for (int c = 0; c < 3; ++c) EXPECT_EQ(grey.m[r][c], grey.m[0][c]);
  // Luma weight, and 16-bit truncation of out-of-range coefficients.
  EXPECT_EQ(ComputeReconstruction(251, -40, {}).l, 297);
  EXPECT_EQ(TruncToInt16(70000.9), int16_t(70000 - 65536));
  EXPECT_EQ(TruncToInt16(-1.9), -1);
  EXPECT_EQ(TruncToInt32(1e30), INT32_MAX);
  EXPECT_EQ(TruncToInt32(std::nan("")), 0);

  // The default blue key.
  const ChromaKeyParams blue = MakeChromaKeyParams({}, BuildAlphaLut({}));
  EXPECT_EQ(blue.tan_factor, 214);  // 256 / tan(50 degrees)
  EXPECT_EQ(blue.inv_mag, 577);     // 65536 / sqrt(12859)
  EXPECT_EQ(blue.k_mag, 113);
  EXPECT_EQ(blue.noise_sq, 0);
  EXPECT_TRUE(blue.lut_identity);

  // Alpha curve: empty map and the default two points are the identity;
  // before the first point its y, after the last the last y, linear between.
  const AlphaLut empty = BuildAlphaLut({});
  const std::vector<AlphaPoint> two = {{0, 0}, {1, 1}};
  const AlphaLut diagonal = BuildAlphaLut(two);
  for (int k = 0; k < 256; ++k) {
    EXPECT_EQ(empty[size_t(k)], k);
    EXPECT_EQ(diagonal[size_t(k)], k);
  }
  const std::vector<AlphaPoint> ramp = {{0.2f, 0.1f}, {0.6f, 0.5f}, {0.8f, 2.0f}};
  EXPECT_FLOAT_EQ(AlphaCurve(ramp, 0.1f), 0.1f);
  EXPECT_FLOAT_EQ(AlphaCurve(ramp, 0.4f), 0.3f);
  EXPECT_FLOAT_EQ(AlphaCurve(ramp, 0.9f), 2.0f);
  const AlphaLut clamped = BuildAlphaLut(ramp);
  EXPECT_EQ(clamped[255], 255);  // 2.0 clamps
  EXPECT_EQ(clamped[0], 25);     // 0.1 * 255
}

TEST(KeyTable, BuildExpandsTheKernelAndApplyStaysWithinSevenBits) {
  std::mt19937 rng(5);
  std::vector<uint32_t> table(kKeyTableWords), table_scalar(kKeyTableWords);
  for (int trial = 0; trial < 3; ++trial) {
    const ChromaKeyParams params = RandomParams(rng);
    BuildKeyTable(table.data(), params, ChromaKeyKernel());
    BuildKeyTable(table_scalar.data(), params, ChromaKeyScalar);
    ASSERT_EQ(table, table_scalar);

    // Every entry is the kernel's answer for its 7-bit colour on black.
    ChromaKeyParams black = params;
    black.null_rgb = 0;
    for (int probe = 0; probe < 20000; ++probe) {
      const size_t n = rng() % kKeyTableEntries;
      uint32_t colour = uint32_t(n >> 14) << 17 | uint32_t((n >> 7) & 0x7F) << 9 | uint32_t(n & 0x7F) << 1;
      ASSERT_EQ(KeyTableIndex(colour), n);
      ChromaKeyScalar(&colour, nullptr, 1, black);
      ASSERT_EQ(table[2 * n], colour & 0x00FFFFFF);
      ASSERT_EQ(table[2 * n + 1], (colour >> 24) * 0x01010101u);
    }

    // Applying: SIMD equals scalar; a foreground colour comes back within one
    // step of 7-bit precision; a keyed one is its 7-bit colour's key plus the
    // background weighted by the same transparency.
    const size_t count = 4099;
    const std::vector<uint32_t> src = RandomPixels(rng, count, 0x0000FF);
    const std::vector<uint32_t> back = RandomPixels(rng, count, rng());
    for (bool null_colour : {false, true}) {
      const uint32_t* bg = null_colour ? nullptr : back.data();
      std::vector<uint32_t> want = src, sse2 = src, avx2 = src;
      ApplyKeyTableScalar(want.data(), bg, count, table.data(), params.null_rgb);
      ApplyKeyTableSse2(sse2.data(), bg, count, table.data(), params.null_rgb);
      ASSERT_EQ(sse2, want);
      if (__builtin_cpu_supports("avx2")) {
        ApplyKeyTableAvx2(avx2.data(), bg, count, table.data(), params.null_rgb);
        ASSERT_EQ(avx2, want);
      }
      for (size_t i = 0; i < count; ++i) {
        const uint32_t q = src[i] & 0x00FEFEFE;
        uint32_t direct = q;
        ChromaKeyScalar(&direct, nullptr, 1, black);
        const uint32_t a = direct >> 24;
        const uint32_t b = bg ? back[i] : 0xFF000000u | params.null_rgb;
        for (int s = 0; s < 32; s += 8) {
          const uint32_t expect = std::min(255u, ((direct & 0x00FFFFFF) >> s & 0xFF) + ((b >> s & 0xFF) * a >> 8));
          ASSERT_EQ(want[i] >> s & 0xFF, expect) << i;
          if (a == 0 && s < 24 && !params.colortrafo && direct == q) {
            ASSERT_LE(int(src[i] >> s & 0xFF) - int(want[i] >> s & 0xFF), 1);
          }
        }
      }
    }
  }
}

// ---- the effect --------------------------------------------------------------------------
struct Rig {
  explicit Rig(int32_t w = 16, int32_t h = 8) : host(w, h), effect(nimbo::testing::MakeEffect(kChromaKeyIndex, &host)) {}
  void Load(const std::string& data) {
    ASSERT_TRUE(host.store.Load("<Settings><ConfigData>" + data + "</ConfigData></Settings>"));
  }
  void Start() {
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
  TestHost host;
  std::unique_ptr<orrery::Effect> effect;
};

std::string Data(const char* key, const char* type, const std::string& value) {
  return std::string("<data name=\"") + key + "\" type=\"" + type + "\">" + value + "</data>";
}

int MaxChannelDiff(uint32_t a, uint32_t b) {
  int d = 0;
  for (int s = 0; s < 24; s += 8) d = std::max(d, std::abs(int(a >> s & 0xFF) - int(b >> s & 0xFF)));
  return d;
}

TEST(ChromaKeyPRO, DefaultsKeyBlueToTheBackgroundAndLeaveRed) {
  for (int use_table : {0, 1}) {
    Rig rig;
    rig.Load(Data("use_table", "int", std::to_string(use_table)));
    rig.Start();
    OwnedScreen frame(16, 8, 0xFF0000FF), back(16, 8, 0xFF406080), out(16, 8);
    frame.At(3, 2) = 0xFFFF0000;
    ASSERT_EQ(nimbo::testing::RenderOnce(*rig.effect, {&frame.screen, &back.screen}, &out.screen), 1);
    // Red is foreground: untouched by the kernel, 7-bit precise through the table.
    EXPECT_EQ(out.At(3, 2), use_table ? 0x00FE0000u : 0xFFFF0000u) << std::hex << out.At(3, 2);
    // The key's own colour gets a = 252 of 255: the background within 4 steps.
    EXPECT_LE(MaxChannelDiff(out.At(0, 0), 0x406080), 4) << std::hex << out.At(0, 0);
    // Without the second input the frame is its own background.
    ASSERT_EQ(nimbo::testing::RenderOnce(*rig.effect, {&frame.screen}, &out.screen), 1);
    EXPECT_LE(MaxChannelDiff(out.At(3, 2), 0xFF0000), 1);
    EXPECT_LE(MaxChannelDiff(out.At(0, 0), 0x0000FF), 4);
  }
}

TEST(ChromaKeyPRO, WritesEveryKeyInOrderAndClampsTheAlphaMapLength) {
  Rig rig;
  rig.Start();
  const std::string text = rig.host.store.Text();
  const char* order[] = {"mode", "chroma_rgb", "pick_x", "pick_y", "outmode", "nullcolor", "use_table",
                         "use_dynvars", "angle", "noise_level", "colortrafo_used", "colortrafo_hue",
                         "colortrafo_sat", "colortrafo_bright", "alphamaplen", "alphamap_0_x", "alphamap_0_y",
                         "alphamap_1_x", "alphamap_1_y"};
  size_t at = 0;
  for (const char* key : order) {
    const size_t found = text.find(std::string("name=\"") + key + "\"", at);
    ASSERT_NE(found, std::string::npos) << key << " in " << text;
    at = found;
  }
  EXPECT_EQ(text.find("alphamap_2_x"), std::string::npos);
  EXPECT_NE(text.find("name=\"chroma_rgb\" type=\"int\">255<"), std::string::npos) << text;
  EXPECT_NE(text.find("name=\"angle\" type=\"float\">50.000000<"), std::string::npos) << text;

  // A stored length above 300 reads as 300.
  Rig big;
  std::string data = Data("alphamaplen", "int", "500");
  for (int i = 0; i < 500; ++i) {
    data += Data(("alphamap_" + std::to_string(i) + "_x").c_str(), "float", "0.5");
    data += Data(("alphamap_" + std::to_string(i) + "_y").c_str(), "float", "0.5");
  }
  big.Load(data);
  big.Start();
  const std::string stored = big.Stored();
  EXPECT_NE(stored.find("name=\"alphamaplen\" type=\"int\">300<"), std::string::npos);
  EXPECT_NE(stored.find("alphamap_299_y"), std::string::npos);
  EXPECT_EQ(stored.find("alphamap_300_x"), std::string::npos);
}

TEST(ChromaKeyPRO, PickModeReadsTheClampedPointAndKeysDirectly) {
  Rig rig;
  // Pick at x = 1.0, y = 1.0: the last column and row. The table stays on,
  // but pick mode always keys directly.
  rig.Load(Data("mode", "int", "0") + Data("pick_x", "float", "1.0") + Data("pick_y", "float", "1.0"));
  rig.Start();
  OwnedScreen frame(16, 8), back(16, 8), out(16, 8);
  nimbo::testing::FillRandom(frame, 3);
  nimbo::testing::FillRandom(back, 4);
  frame.At(15, 7) = 0xFF20C040;
  for (int x = 0; x < 8; ++x) frame.At(x, 0) = 0xFF20C040 ^ uint32_t(x * 0x030201);
  nimbo::testing::RenderOnce(*rig.effect, {&frame.screen, &back.screen}, &out.screen);
  ChromaKeyInputs in;
  in.key_rgb = 0x20C040;
  std::vector<uint32_t> want = frame.pixels;
  ChromaKeyScalar(want.data(), back.pixels.data(), want.size(), MakeChromaKeyParams(in, BuildAlphaLut({})));
  EXPECT_EQ(out.pixels, want);
  EXPECT_NE(out.At(2, 0), frame.At(2, 0));  // near the picked colour: keyed
}

TEST(ChromaKeyPRO, DynamicVariablesSetKeyAndAngleAndOverwriteTheStoredKey) {
  Rig rig;
  rig.Load(Data("use_dynvars", "int", "1"));
  rig.Start();
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

  // Keycolor 0, Transparency 0.75: u = 0.25, v = 0 -> R 127, G 115, B 246.
  rig.host.FindDynVar("Transparency")->value = 0.75f;
  rig.host.FindDynVar("Tolerance")->value = 0.5f;
  OwnedScreen frame(16, 8, 0xFF0000FF), back(16, 8, 0xFF102030), out(16, 8);
  frame.At(1, 1) = 0xFFFF0000;
  nimbo::testing::RenderOnce(*rig.effect, {&frame.screen, &back.screen}, &out.screen);
  EXPECT_EQ(out.At(1, 1), 0x00FE0000u);  // foreground through the table: 7-bit red
  EXPECT_NE(out.At(0, 0), 0xFF0000FFu);  // blue lies inside the cone of that bluish key

  // The key the table was built for follows the dynamic variables too: the
  // table path gives the 7-bit version of the direct kernel's answer.
  ChromaKeyInputs in;
  in.key_rgb = 0x7F73F6;
  in.angle = 45.0f;
  const ChromaKeyParams p = MakeChromaKeyParams(in, BuildAlphaLut({}));
  uint32_t q = 0x000000FE;
  ChromaKeyScalar(&q, nullptr, 1, p);
  uint32_t expect = (q & 0xFFFFFF) | 0;
  for (int s = 0; s < 32; s += 8) {
    expect = (expect & ~(0xFFu << s)) |
             std::min(255u, ((q & 0xFFFFFF) >> s & 0xFF) + ((0xFF102030u >> s & 0xFF) * (q >> 24) >> 8)) << s;
  }
  EXPECT_EQ(out.At(0, 0), expect) << std::hex << out.At(0, 0) << " " << expect;

  const std::string stored = rig.Stored();
  EXPECT_NE(stored.find("name=\"chroma_rgb\" type=\"int\">" + std::to_string(0x7F73F6) + "<"), std::string::npos)
      << stored;
  EXPECT_NE(stored.find("name=\"angle\" type=\"float\">45.000000<"), std::string::npos);

  // Off again: no dynamic variables are declared.
  Rig plain;
  plain.Start();
  EXPECT_EQ(plain.host.FindDynVar("Keycolor"), nullptr);
}

// A dialog host that edits the fields by label, then answers OK or Cancel,
// and can render frames while it is open (the render thread goes on).
class ScriptedDialog final : public orrery::DialogService {
 public:
  ScriptedDialog() { orrery::SetDialogService(this); }
  ~ScriptedDialog() { orrery::SetDialogService(nullptr); }
  int32_t RunModal(const orrery::DialogModel& model) override {
    for (int32_t i = 0; i < model.count; ++i) {
      const orrery::DialogField& f = model.fields[i];
      for (auto& [label, value] : ints)
        if (label == f.label) *static_cast<int32_t*>(f.value) = value;
      for (auto& [label, value] : texts)
        if (label == f.label) *static_cast<std::string*>(f.value) = value;
      labels.push_back(f.label);
    }
    if (while_open) while_open();
    return answer;
  }
  int32_t answer = 1;
  std::vector<std::pair<std::string, int32_t>> ints;
  std::vector<std::pair<std::string, std::string>> texts;
  std::vector<std::string> labels;
  std::function<void()> while_open;
};

TEST(ChromaKeyPRO, DialogBypassesTheTableAndFollowsTheOkAndCancelRules) {
  MessageCapture messages;
  ScriptedDialog dialog;
  Rig rig;
  rig.Start();
  const int32_t with_table = rig.effect->GetMemoryUsage();
  EXPECT_GE(with_table, int32_t(kKeyTableBytes));

  // A dark pixel with odd bits: the table path quantises it to 7 bits, the
  // direct kernel leaves it. While the dialog is open the kernel is direct
  // and a snapshot of the frame size exists.
  OwnedScreen frame(16, 8, 0xFF070503), back(16, 8), out(16, 8);
  nimbo::testing::RenderOnce(*rig.effect, {&frame.screen, &back.screen}, &out.screen);
  EXPECT_EQ(out.At(0, 0), 0x00060402u);
  uint32_t during = 0;
  int32_t memory_during = 0;
  dialog.while_open = [&] {
    nimbo::testing::RenderOnce(*rig.effect, {&frame.screen, &back.screen}, &out.screen);
    during = out.At(0, 0);
    memory_during = rig.effect->GetMemoryUsage();
  };
  // Cancel: edits are dropped.
  dialog.answer = 0;
  dialog.ints = {{"Use second input as background", 0}, {"Key colour", 0x00FF00}};
  EXPECT_EQ(rig.effect->SetupDialog(), 0);
  EXPECT_EQ(during, 0xFF070503u);
  EXPECT_EQ(memory_during, with_table + 16 * 8 * 4);
  EXPECT_EQ(rig.effect->GetMemoryUsage(), with_table);
  EXPECT_NE(rig.Stored().find("name=\"chroma_rgb\" type=\"int\">255<"), std::string::npos);
  EXPECT_TRUE(messages.messages.empty());
  nimbo::testing::RenderOnce(*rig.effect, {&frame.screen, &back.screen}, &out.screen);
  EXPECT_EQ(out.At(0, 0), 0x00060402u);  // bypass cleared

  // OK switching to the null colour: the warning, and the new settings.
  dialog.answer = 1;
  dialog.texts = {{"Alpha map", "0,0 0.5,1 1,1"}};
  EXPECT_EQ(rig.effect->SetupDialog(), 1);
  ASSERT_EQ(messages.messages.size(), 1u);
  EXPECT_EQ(messages.messages[0].text, "Warning!\nPlugin may need a second input to operate correctly!");
  EXPECT_EQ(messages.messages[0].icon, orrery::kIconWarning);
  std::string stored = rig.Stored();
  EXPECT_NE(stored.find("name=\"outmode\" type=\"int\">1<"), std::string::npos);
  EXPECT_NE(stored.find("name=\"chroma_rgb\" type=\"int\">65280<"), std::string::npos);
  EXPECT_NE(stored.find("name=\"alphamaplen\" type=\"int\">3<"), std::string::npos);
  EXPECT_NE(stored.find("name=\"alphamap_1_x\" type=\"float\">0.500000<"), std::string::npos);
  EXPECT_EQ(rig.host.notifications.size(), 2u);  // 259/1 and 259/0 around Initialize

  // OK again with outmode staying 1: no second warning. Pick mode turns the
  // table off; a bad alpha map is refused with a message and the old map kept.
  dialog.ints = {{"Key colour from", 0}};
  dialog.texts = {{"Alpha map", "0,0 1"}};
  EXPECT_EQ(rig.effect->SetupDialog(), 1);
  ASSERT_EQ(messages.messages.size(), 2u);
  EXPECT_EQ(messages.messages[1].icon, orrery::kIconError);
  EXPECT_LT(rig.effect->GetMemoryUsage(), int32_t(kKeyTableBytes));
  stored = rig.Stored();
  EXPECT_NE(stored.find("name=\"use_table\" type=\"int\">0<"), std::string::npos);
  EXPECT_NE(stored.find("name=\"alphamaplen\" type=\"int\">3<"), std::string::npos);
  // The hints are part of the dialog.
  EXPECT_NE(std::find(dialog.labels.begin(), dialog.labels.end(),
                      "Hint: use the XtractAlpha plugin to get the alpha of the output"),
            dialog.labels.end());
}

}  // namespace
