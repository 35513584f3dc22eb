#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>
#include <vector>

#include "lowq_ops.h"
#include "core/platform.h"
#include "test_host.h"

namespace {

const char* const kNames[] = {
    "Number of operations per frame", "global black/white: probability", "global color reduce: probability",
    "global darken: probability",     "global darken: max. darkness",    "block darken: probability",
    "block darken: max. darkness",    "block darken: max. size",         "block add: probability",
    "block add: max. size",           "block move: probability",         "block move: max. distance",
    "block move: max. size"};
const float kDefaults[] = {5.0f, 0.2f, 0.3f, 0.2f, 30.0f, 0.4f, 60.0f, 0.03f, 0.2f, 0.1f, 0.3f, 0.1f, 0.2f};

// ---- an independent model of one frame, written plainly from the rules ----

struct Generator {  // the classic 15-bit generator
  uint32_t seed;
  int32_t Next() { return int32_t(((seed = seed * 214013u + 2531011u) >> 16) & 0x7fff); }
  double R01() { return (Next() % 10000) / 10000.0; }
  int64_t Big() { return WithHigh(Next()); }  // the first draw is the low half
  int64_t WithHigh(int64_t low) { return low + int64_t(Next() % 32768) * 65536; }
};

// Byte k (B, G, R, A) of pixel i.
uint8_t& Byte(std::vector<uint32_t>& px, int64_t i, int64_t k) { return reinterpret_cast<uint8_t*>(&px[size_t(i)])[k]; }

// Every byte of pixels [from, to) minus `amount`, down to 0.
void Darken(std::vector<uint32_t>& px, int64_t from, int64_t to, int32_t amount) {
  for (int64_t i = from * 4; i < to * 4; ++i)
    Byte(px, i / 4, i % 4) = uint8_t(std::max(0, Byte(px, i / 4, i % 4) - amount));
}

void ModelFrame(std::vector<uint32_t>& px, int64_t w, int64_t h, const float* v, Generator& g) {
  const int64_t n = w * h;
  // The draw is always taken; a probability of 0 never fires, even on a draw of 0.
  auto global = [&](float p) { return g.R01() <= p && p > 0; };
  if (global(v[1])) {
    for (int64_t i = 0; i < n; ++i) {
      uint8_t* b = &Byte(px, i, 0);
      b[0] = b[1] = b[2] = uint8_t(((b[2] + b[0]) / 2 + b[1]) / 2);
    }
  }
  if (global(v[3]) && int64_t(v[4]) > 0) Darken(px, 0, n, std::min<int32_t>(255, g.Next() % int64_t(v[4])));
  if (global(v[2])) {
    int32_t level = g.Next() % 12 + 10, q = level / 3;
    uint32_t blue = ((0xFFu << q) << (level % 3 > 1 ? 1 : 0)) & 0xFF, green_red = (0xFFu << q) & 0xFF;
    uint32_t mask = blue | green_red << 8 | green_red << 16;
    for (int64_t i = 0; i < n - n % 2; ++i) px[size_t(i)] = (px[size_t(i)] & mask) | ~mask;  // whole pairs
  }
  for (int32_t k = 0; k < v[0]; ++k) {
    if (g.R01() < v[5]) {  // block darken
      int64_t big = g.Big(), max_dark = int64_t(v[6]), max_len = int64_t(float(n) * v[7]);
      if (n > 100 && max_dark > 0 && max_len > 0) {
        int64_t start = big % (n - 100), len = g.Big() % std::min(max_len, n - start - 1);
        len -= len % 2;
        if (len > 0) Darken(px, start, start + len, std::min<int32_t>(255, g.Next() % max_dark));
      }
    }
    if (g.R01() < v[8]) {  // block add
      int64_t dx = g.Next() % w - w / 2, dy = g.Next() % h;
      int64_t m = std::min(int64_t(float(h) * v[9]), h - 10), start = 0, rows = 0, cols = 0;
      if (m > 0) {
        do start = g.Big() % n;
        while (start / w > h - m - 1);
        if ((rows = g.Next() % m) > 0 && (cols = g.Next() % w) > 0) {
          cols = cols - 2 - 2 * (g.Next() % 2);
          for (int64_t i = 0; i < rows * cols; ++i) {
            int64_t dst = start + i / cols * w + i % cols, src = (((dst + dy * w + dx) % n) + n) % n;
            for (int32_t b = 0; b < 4; ++b)
              Byte(px, dst, b) = uint8_t(std::min(255, Byte(px, dst, b) + Byte(px, src, b)));
          }
        }
      }
    }
    if (g.R01() < v[10]) {  // block move
      int64_t max_dist = int64_t(float(n) * v[11]), max_len = int64_t(float(n) * v[12]);
      int64_t start = g.Big() % n, len = max_len > 0 ? g.Next() % max_len : 0;
      int64_t dist = max_dist > 0 ? g.Next() % max_dist : 0;
      if (start + len + dist > n - 10) len = n - 10 - (start + dist);
      for (int64_t i = 0; dist > 0 && i < len; ++i) px[size_t(start + i)] = px[size_t(start + dist + i)];
    }
  }
}

// Runs `frames` random pictures of w x h through a fresh LowQ with the thirteen
// controls at `values`, the generator seeded with `seed`, and compares each
// output with the model's frame, or with `untouched`, with the input itself.
void ExpectLikeModel(int32_t w, int32_t h, const float* values, uint32_t seed, int32_t frames, bool untouched = false) {
  SCOPED_TRACE(::testing::Message() << w << "x" << h << ", operations " << values[0] << ", seed " << seed);
  nimbo::testing::TestHost host(w, h);
  auto fx = nimbo::testing::MakeEffect("LowQ", &host);
  fx->UpdateConfig();
  fx->Initialize();
  for (int32_t i = 0; i < 13; ++i) host.FindDynVar(kNames[i])->value = values[i];
  nimbo::platform::SeedRand(seed);
  Generator g{seed};
  for (int32_t frame = 0; frame < frames; ++frame) {
    nimbo::testing::OwnedScreen in(w, h), out(w, h);
    nimbo::testing::FillRandom(in, seed * 31 + frame);
    ASSERT_EQ(nimbo::testing::RenderOnce(*fx, {&in.screen}, &out.screen), 1);
    std::vector<uint32_t> expected = in.pixels;
    ModelFrame(expected, w, h, values, g);
    ASSERT_EQ(out.pixels, untouched ? in.pixels : expected) << "frame " << frame;
  }
  EXPECT_EQ(nimbo::platform::Rand(), g.Next()) << "both took as many draws";
}

TEST(LowQ, DeclaresThirteenVariablesInOrderWithDefaults) {
  nimbo::testing::TestHost host;
  auto fx = nimbo::testing::MakeEffect("LowQ", &host);
  fx->UpdateConfig();
  int32_t i = 0;
  for (orrery::DynVar* v = host.dynvars; v; v = v->next, ++i) {
    ASSERT_LT(i, 13);
    EXPECT_STREQ(v->name, kNames[i]);
    EXPECT_EQ(v->value, kDefaults[i]) << kNames[i];
  }
  EXPECT_EQ(i, 13);
  host.dynvars->value = 9.0f;
  fx->UpdateConfig();  // a second exchange declares the variables again at their defaults
  EXPECT_EQ(host.dynvars->value, 5.0f);
}

// With every probability 0 the output is the input, even after a first draw of exactly 0.
TEST(LowQ, NoProbabilityMeansNoDamage) {
  const float values[13] = {5.0f, 0.0f, 0.0f, 0.0f, 30.0f, 0.0f, 60.0f, 0.03f, 0.0f, 0.1f, 0.0f, 0.1f, 0.2f};
  uint32_t zero_seed = 1;
  while (Generator{zero_seed}.Next() % 10000 != 0) ++zero_seed;
  for (uint32_t seed : {1u, 2u, 77u, zero_seed}) ExpectLikeModel(33, 17, values, seed, 3, true);
}

// Defaults; everything on with large blocks; everything at its maximum on tiny
// and thin frames, where every block must stay inside; and the number of
// passes (the integers below the setting) with nothing else drawn.
TEST(LowQ, MatchesTheModel) {
  ExpectLikeModel(97, 31, kDefaults, 12345, 20);
  const float heavy[13] = {20.0f, 0.5f, 0.5f, 0.5f, 200.0f, 1.0f, 255.0f, 0.5f, 1.0f, 0.9f, 1.0f, 0.5f, 0.9f};
  ExpectLikeModel(50, 40, heavy, 3, 10);
  const float maxed[13] = {30.0f, 1.0f, 1.0f, 1.0f, 255.0f, 1.0f, 255.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f, 1.0f};
  for (auto [w, h] : {std::pair{1, 1}, std::pair{1, 57}, std::pair{57, 1}, std::pair{11, 11}, std::pair{5, 20},
                      std::pair{100, 1}, std::pair{9, 12}})
    ExpectLikeModel(w, h, maxed, 17, 3);
  for (float operations : {2.5f, 3.0f, 0.0f, -4.0f})
    ExpectLikeModel(16, 16, std::array<float, 13>{operations}.data(), 5, 2);
}

TEST(LowQOps, SimdMatchesScalarAtOddWidthsAndOffsets) {
  std::mt19937 rng(3);
  for (size_t count : {1u, 2u, 3u, 7u, 8u, 129u}) {
    std::vector<uint32_t> src(count + 1);
    for (auto& v : src) v = rng();
    const uint32_t mask = nimbo::LowQReduceMask(int32_t(rng() % 12 + 10));
    for (size_t offset : {0u, 1u}) {
      SCOPED_TRACE(::testing::Message() << count << " pixels at " << offset);
      auto a = src, b = src;
      nimbo::LowQGreyScalar(a.data() + offset, count);
      nimbo::LowQGreySse2(b.data() + offset, count);
      EXPECT_EQ(a, b);
      nimbo::LowQSubtractScalar(a.data() + offset, count, 77);
      nimbo::LowQSubtractSse2(b.data() + offset, count, 77);
      EXPECT_EQ(a, b);
      nimbo::LowQMaskScalar(a.data() + offset, count, mask);
      nimbo::LowQMaskSse2(b.data() + offset, count, mask);
      EXPECT_EQ(a, b);
    }
  }
}

}  // namespace
