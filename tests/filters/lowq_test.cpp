#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>

#include "filters/lowq_ops.h"
#include "package/platform.h"
#include "support/test_host.h"

namespace {

using nimbo::testing::OwnedScreen;
using nimbo::testing::TestHost;

constexpr int32_t kLowQ = 23;

const char* const kNames[] = {
    "Number of operations per frame",   "global black/white: probability", "global color reduce: probability",
    "global darken: probability",       "global darken: max. darkness",    "block darken: probability",
    "block darken: max. darkness",      "block darken: max. size",         "block add: probability",
    "block add: max. size",             "block move: probability",         "block move: max. distance",
    "block move: max. size"};
const float kDefaults[] = {5.0f, 0.2f, 0.3f, 0.2f, 30.0f, 0.4f, 60.0f, 0.03f, 0.2f, 0.1f, 0.3f, 0.1f, 0.2f};

// ---- an independent model of one frame, written plainly from the rules ----

struct Generator {  // the classic 15-bit generator
  uint32_t seed;
  int32_t Next() {
    seed = seed * 214013u + 2531011u;
    return int32_t((seed >> 16) & 0x7fff);
  }
  double R01() { return (Next() % 10000) / 10000.0; }
  int64_t Big() {
    int64_t low = Next();
    int64_t high = Next() % 32768;
    return low + high * 65536;
  }
};

uint8_t* Bytes(std::vector<uint32_t>& px, int64_t i) { return reinterpret_cast<uint8_t*>(&px[size_t(i)]); }

void ModelFrame(std::vector<uint32_t>& px, int64_t w, int64_t h, const float* v, Generator& g) {
  const int64_t n = w * h;
  // A probability of 0 never fires, even on a draw of 0.
  auto global = [&](float p) {
    double r = g.R01();
    return p > 0 && r <= p;
  };
  if (global(v[1])) {
    for (int64_t i = 0; i < n; ++i) {
      uint8_t* b = Bytes(px, i);
      int32_t grey = ((b[2] + b[0]) / 2 + b[1]) / 2;
      b[0] = b[1] = b[2] = uint8_t(grey);
    }
  }
  if (global(v[3])) {
    int64_t max_dark = int64_t(v[4]);
    if (max_dark > 0) {
      int32_t amount = std::min<int32_t>(255, int32_t(g.Next() % max_dark));
      for (int64_t i = 0; i < n; ++i) {
        for (int32_t k = 0; k < 4; ++k) Bytes(px, i)[k] = uint8_t(std::max(0, Bytes(px, i)[k] - amount));
      }
    }
  }
  if (global(v[2])) {
    int32_t level = g.Next() % 12 + 10;
    int32_t q = level / 3;
    uint32_t blue = (0xFFu << q) << (level % 3 > 1 ? 1 : 0);
    uint32_t green = 0xFFu << q;
    uint32_t red = 0xFFu << q;
    uint32_t mask = (blue & 0xFF) | (green & 0xFF) << 8 | (red & 0xFF) << 16;
    for (int64_t i = 0; i + 1 < n; i += 2) {
      px[size_t(i)] = (px[size_t(i)] & mask) | ~mask;
      px[size_t(i + 1)] = (px[size_t(i + 1)] & mask) | ~mask;
    }
  }
  for (int32_t k = 0; k < v[0]; ++k) {
    if (g.R01() < v[5]) {  // block darken
      int64_t big = g.Big();
      int64_t max_dark = int64_t(v[6]);
      int64_t max_len = int64_t(float(n) * v[7]);
      if (n > 100) {
        int64_t start = big % (n - 100);
        if (max_dark > 0 && max_len > 0) {
          int64_t limit = std::min(max_len, n - start - 1);
          int64_t len = g.Big() % limit;
          len -= len % 2;
          if (len > 0) {
            int32_t amount = std::min<int32_t>(255, int32_t(g.Next() % max_dark));
            for (int64_t i = start; i < start + len; ++i) {
              for (int32_t c = 0; c < 4; ++c) Bytes(px, i)[c] = uint8_t(std::max(0, Bytes(px, i)[c] - amount));
            }
          }
        }
      }
    }
    if (g.R01() < v[8]) {  // block add
      int64_t m = int64_t(float(h) * v[9]);
      int64_t dx = g.Next() % w - w / 2;
      int64_t dy = g.Next() % h;
      m = std::min(m, h - 10);
      if (m > 0) {
        int64_t start;
        do start = g.Big() % n;
        while (start / w > h - m - 1);
        int64_t rows = g.Next() % m;
        if (rows > 0) {
          int64_t cols = g.Next() % w;
          if (cols > 0) {
            cols = cols - 2 - 2 * (g.Next() % 2);
            for (int64_t r = 0; r < rows; ++r) {
              for (int64_t c = 0; c < cols; ++c) {
                int64_t dst = start + r * w + c;
                int64_t src = (((dst + dy * w + dx) % n) + n) % n;
                for (int32_t b = 0; b < 4; ++b) {
                  Bytes(px, dst)[b] = uint8_t(std::min(255, Bytes(px, dst)[b] + Bytes(px, src)[b]));
                }
              }
            }
          }
        }
      }
    }
    if (g.R01() < v[10]) {  // block move
      int64_t max_dist = int64_t(float(n) * v[11]);
      int64_t max_len = int64_t(float(n) * v[12]);
      int64_t start = g.Big() % n;
      int64_t len = max_len > 0 ? g.Next() % max_len : 0;
      int64_t dist = max_dist > 0 ? g.Next() % max_dist : 0;
      if (start + len + dist > n - 10) len = n - 10 - (start + dist);
      if (dist > 0 && len > 0) {
        for (int64_t i = 0; i < len; ++i) px[size_t(start + i)] = px[size_t(start + dist + i)];
      }
    }
  }
}

// ---- helpers ----

struct LowQFixture {
  explicit LowQFixture(int32_t w = 64, int32_t h = 48) : host(w, h) {
    fx = nimbo::testing::MakeEffect(kLowQ, &host);
    EXPECT_STREQ(fx->GetName(), "nimbo one\\LowQ");
    fx->UpdateConfig();
    fx->Initialize();
  }
  void Set(const float* values) {
    for (int32_t i = 0; i < 13; ++i) host.FindDynVar(kNames[i])->value = values[i];
  }
  TestHost host;
  std::unique_ptr<orrery::Effect> fx;
};

void ExpectLikeModel(int32_t w, int32_t h, const float* values, uint32_t seed, int32_t frames) {
  LowQFixture f(w, h);
  f.Set(values);
  nimbo::platform::SeedRand(seed);
  Generator g{seed};
  for (int32_t frame = 0; frame < frames; ++frame) {
    OwnedScreen in(w, h), out(w, h);
    nimbo::testing::FillRandom(in, seed * 31 + frame);
    ASSERT_EQ(nimbo::testing::RenderOnce(*f.fx, {&in.screen}, &out.screen), 1);
    std::vector<uint32_t> expected = in.pixels;
    ModelFrame(expected, w, h, values, g);
    ASSERT_EQ(out.pixels, expected) << w << "x" << h << " seed " << seed << " frame " << frame;
  }
  // Both consumed the same number of draws.
  EXPECT_EQ(nimbo::platform::Rand(), g.Next());
}

// ---- tests ----

TEST(LowQ, DeclaresThirteenVariablesInOrderWithDefaults) {
  LowQFixture f;
  int32_t i = 0;
  for (orrery::DynVar* v = f.host.dynvars; v; v = v->next, ++i) {
    ASSERT_LT(i, 13);
    EXPECT_STREQ(v->name, kNames[i]);
    EXPECT_EQ(v->value, kDefaults[i]) << kNames[i];
    EXPECT_EQ(v->type, orrery::kDynVarFloat);
    EXPECT_LE(v->varmin, v->varinit);
    EXPECT_GE(v->varmax, v->varinit);
  }
  EXPECT_EQ(i, 13);
  // A second exchange declares the same nodes again at their defaults.
  orrery::DynVar* first = f.host.dynvars;
  first->value = 9.0f;
  f.fx->UpdateConfig();
  EXPECT_EQ(f.host.dynvars, first);
  EXPECT_EQ(first->value, 5.0f);
}

TEST(LowQ, NoProbabilityMeansNoDamage) {
  float values[13];
  std::copy(std::begin(kDefaults), std::end(kDefaults), values);
  for (int32_t i : {1, 2, 3, 5, 8, 10}) values[i] = 0.0f;
  // Include a seed whose first draw is exactly 0: a probability of 0 still
  // must not fire.
  uint32_t zero_seed = 1;
  while (Generator{zero_seed}.Next() % 10000 != 0) ++zero_seed;
  for (uint32_t seed : {1u, 2u, 77u, zero_seed}) {
    LowQFixture f(33, 17);
    f.Set(values);
    nimbo::platform::SeedRand(seed);
    OwnedScreen in(33, 17), out(33, 17);
    nimbo::testing::FillRandom(in, seed);
    ASSERT_EQ(nimbo::testing::RenderOnce(*f.fx, {&in.screen}, &out.screen), 1);
    EXPECT_EQ(out.pixels, in.pixels);
  }
}

TEST(LowQ, PassesPerFrameAreTheIntegersBelowTheSetting) {
  // With every test failing, a frame draws 3 + 3 x passes numbers.
  for (auto [operations, passes] : {std::pair{0.0f, 0}, std::pair{2.5f, 3}, std::pair{3.0f, 3}, std::pair{-4.0f, 0}}) {
    float values[13] = {operations};
    LowQFixture f(16, 16);
    f.Set(values);
    nimbo::platform::SeedRand(5);
    OwnedScreen in(16, 16), out(16, 16);
    nimbo::testing::RenderOnce(*f.fx, {&in.screen}, &out.screen);
    Generator g{5};
    for (int32_t i = 0; i < 3 + 3 * passes; ++i) g.Next();
    EXPECT_EQ(nimbo::platform::Rand(), g.Next()) << operations;
  }
}

TEST(LowQ, MatchesTheModelOnRandomPictures) {
  ExpectLikeModel(64, 48, kDefaults, 1, 20);
  ExpectLikeModel(97, 31, kDefaults, 12345, 10);
  // Everything on, large blocks.
  const float heavy[13] = {20.0f, 0.5f, 0.5f, 0.5f, 200.0f, 1.0f, 255.0f, 0.5f, 1.0f, 0.9f, 1.0f, 0.5f, 0.9f};
  ExpectLikeModel(50, 40, heavy, 3, 10);
  // Tiny and thin frames: every block operation must stay inside.
  const float maxed[13] = {30.0f, 1.0f, 1.0f, 1.0f, 255.0f, 1.0f, 255.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f};
  for (auto [w, h] : {std::pair{1, 1}, std::pair{1, 57}, std::pair{57, 1}, std::pair{11, 11}, std::pair{5, 20},
                      std::pair{100, 1}, std::pair{9, 12}}) {
    ExpectLikeModel(w, h, maxed, 17, 3);
  }
}

TEST(LowQOps, SimdMatchesScalar) {
  std::mt19937 rng(3);
  for (size_t count : {1u, 2u, 3u, 7u, 8u, 129u}) {
    std::vector<uint32_t> src(count + 1);
    for (auto& v : src) v = rng();
    for (size_t offset : {0u, 1u}) {
      auto a = src, b = src;
      nimbo::LowQGreyScalar(a.data() + offset, count);
      nimbo::LowQGreySse2(b.data() + offset, count);
      EXPECT_EQ(a, b);
      a = b = src;
      nimbo::LowQSubtractScalar(a.data() + offset, count, 77);
      nimbo::LowQSubtractSse2(b.data() + offset, count, 77);
      EXPECT_EQ(a, b);
      a = b = src;
      const uint32_t mask = nimbo::LowQReduceMask(int32_t(rng() % 12 + 10));
      nimbo::LowQMaskScalar(a.data() + offset, count, mask);
      nimbo::LowQMaskSse2(b.data() + offset, count, mask);
      EXPECT_EQ(a, b);
      // Pairs only: an odd last pixel keeps its value.
      if (count % 2) {
        EXPECT_EQ(b[offset + count - 1], src[offset + count - 1]);
      }
    }
  }
}

TEST(LowQOps, ColourReductionMasksAndGrey) {
  EXPECT_EQ(nimbo::LowQReduceMask(10), 0xF8F8F8u);  // q 3
  EXPECT_EQ(nimbo::LowQReduceMask(11), 0xF8F8F0u);  // q 3, blue once more
  EXPECT_EQ(nimbo::LowQReduceMask(12), 0xF0F0F0u);  // q 4
  EXPECT_EQ(nimbo::LowQReduceMask(21), 0x808080u);  // q 7
  uint32_t p[3] = {0x12345678, 0xFF000000, 0x80FFFFFF};
  nimbo::LowQMaskScalar(p, 3, nimbo::LowQReduceMask(10));
  EXPECT_EQ(p[0], 0xFF37577Fu);  // low bits set, alpha 0xFF
  EXPECT_EQ(p[2], 0x80FFFFFFu);
  uint32_t g[2] = {0x11FF0000, 0x2200FF00};
  nimbo::LowQGreyScalar(g, 2);
  EXPECT_EQ(g[0], 0x113F3F3Fu);  // ((255 + 0) / 2 + 0) / 2 = 63
  EXPECT_EQ(g[1], 0x227F7F7Fu);  // (0 + 255) / 2 = 127
}

}  // namespace
