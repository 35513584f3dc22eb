#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

#include "fast_hblur_kernel.h"
#include "core/cpu.h"
#include "test_host.h"

namespace {

using nimbo::testing::OwnedScreen;
using nimbo::testing::TestHost;

constexpr char kFastHBlur[] = "Fast h-Blur";

std::unique_ptr<orrery::Effect> MakeBlur(TestHost& host, int32_t radius, int32_t passes) {
  if (radius >= 0) {
    const std::string doc = "<Settings><ConfigData><data name=\"radius\" type=\"int\">" + std::to_string(radius) +
                            "</data><data name=\"passes\" type=\"int\">" + std::to_string(passes) +
                            "</data></ConfigData></Settings>";
    EXPECT_TRUE(host.store.Load(doc));
  }
  auto fx = nimbo::testing::MakeEffect(kFastHBlur, &host);
  EXPECT_STREQ(fx->GetName(), "nimbo one\\Fast h-Blur");
  fx->UpdateConfig();
  fx->Initialize();
  return fx;
}

// One pass, straight from the definition: the rounded mean over 2r + 1
// pixels, positions outside the row taking the nearest edge pixel.
std::vector<uint32_t> NaivePass(const std::vector<uint32_t>& px, int32_t w, int32_t h, int32_t r) {
  std::vector<uint32_t> out(px.size());
  const int32_t d = 2 * r + 1;
  for (int32_t y = 0; y < h; ++y) {
    for (int32_t x = 0; x < w; ++x) {
      uint32_t result = 0;
      for (int32_t k = 0; k < 4; ++k) {
        int32_t sum = 0;
        for (int32_t j = x - r; j <= x + r; ++j) {
          sum += (px[size_t(y) * w + std::clamp(j, 0, w - 1)] >> (8 * k)) & 0xFF;
        }
        result |= uint32_t((sum + r) / d) << (8 * k);
      }
      out[size_t(y) * w + x] = result;
    }
  }
  return out;
}

std::vector<nimbo::BoxBlurSpanFn> SpanVersions() {
  std::vector<nimbo::BoxBlurSpanFn> spans = {nimbo::BoxBlurSpanScalar, nimbo::BoxBlurSpanSse2};
  if (nimbo::CpuHasAvx2()) spans.push_back(nimbo::BoxBlurSpanAvx2);
  return spans;
}

// Blurs one row, or two at once, with every kernel version, each row one
// pixel off alignment, and compares with the definition.
void ExpectRowsMatchDefinition(const std::vector<uint32_t> (&rows)[2], int32_t radius) {
  const size_t count = rows[0].size();
  const nimbo::BoxBlurParams params = nimbo::MakeBoxBlurParams(radius);
  std::vector<uint32_t> src[2], expected[2], scratch[2];
  for (int32_t i = 0; i < 2; ++i) {
    src[i] = {0};
    src[i].insert(src[i].end(), rows[i].begin(), rows[i].end());
    expected[i] = NaivePass(rows[i], int32_t(count), 1, radius);
    expected[i].insert(expected[i].begin(), 0);
    scratch[i].assign(nimbo::BoxBlurScratchSize(count, radius) + 1, 0);
  }
  const std::vector<nimbo::BoxBlurSpanFn> spans = SpanVersions();
  for (size_t version = 0; version < spans.size(); ++version) {
    for (int32_t row_count : {1, 2}) {
      std::vector<uint32_t> out[2] = {std::vector<uint32_t>(count + 1), std::vector<uint32_t>(count + 1)};
      const uint32_t* in[2] = {src[0].data() + 1, src[1].data() + 1};
      uint32_t* const dst[2] = {out[0].data() + 1, out[1].data() + 1};
      uint32_t* const buffers[2] = {scratch[0].data() + 1, scratch[1].data() + 1};
      nimbo::BoxBlurRows(in, dst, buffers, row_count, count, params, spans[version]);
      for (int32_t i = 0; i < row_count; ++i) {
        ASSERT_EQ(out[i], expected[i]) << "radius " << radius << " count " << count << " rows " << row_count
                                       << " row " << i << " version " << version;
      }
    }
  }
}

// Every radius, with row lengths on both sides of where the row stops being
// blurred from a padded copy (about two windows) and of the four-pixel steps.
TEST(BoxBlurKernel, EveryVersionMatchesTheDefinitionAtEveryRadius) {
  std::mt19937 rng(8);
  for (int32_t radius = 0; radius <= nimbo::kBoxBlurMaxRadius; radius += (radius < 20 ? 1 : 17)) {
    const size_t edge = ((size_t(radius) + 3) & ~size_t(3)) + size_t(radius);
    for (size_t count : {size_t(1), size_t(2), size_t(7), edge, edge + 1, edge + 2, edge + 5, edge + 11}) {
      std::vector<uint32_t> rows[2];
      for (auto& row : rows) {
        // Runs of equal pixels hit sums that are exact multiples of d.
        row.resize(count);
        for (auto& v : row) v = rng() % 4 == 0 ? 0xFFFFFFFF : rng() % 2 ? rng() : 0x80808080;
      }
      ExpectRowsMatchDefinition(rows, radius);
      if (::testing::Test::HasFatalFailure()) return;
    }
  }
}

// The multiply-high must equal the division for every word below 2^15 at
// every radius, and up to 255 d + r where the word is the plain sum; the
// rebase offset must leave room for the largest fall between rebases.
TEST(BoxBlurKernel, WordReciprocalIsExactOverTheWholeWordRange) {
  EXPECT_EQ(nimbo::MakeBoxBlurParams(0).multiplier, 0);
  for (int32_t r = 1; r <= nimbo::kBoxBlurMaxRadius; ++r) {
    const nimbo::BoxBlurParams params = nimbo::MakeBoxBlurParams(r);
    const uint32_t d = uint32_t(2 * r + 1);
    const bool plain = r <= nimbo::kBoxBlurPlainMaxRadius;
    ASSERT_EQ(params.rebase_offset == 0, plain) << "radius " << r;
    const uint32_t largest = plain ? std::max(255 * d + uint32_t(r), 32767u) : 32767u;
    ASSERT_LT(largest, 65536u);
    for (uint32_t w = 0; w <= largest; ++w) {
      ASSERT_EQ((w * params.multiplier) >> 16 >> params.shift, w / d) << "radius " << r << " word " << w;
    }
    if (!plain) {
      const uint32_t fall = nimbo::kBoxBlurRebaseSpan * 255;
      EXPECT_GE(uint32_t(params.rebase_offset) * d, fall) << "radius " << r;
      EXPECT_LE((uint32_t(params.rebase_offset) + 1) * d + fall, 32768u) << "radius " << r;
    }
  }
}

// Long rows of extreme bytes keep the running sums near their top (and, past
// the plain radii, swing the word across many rebases) for thousands of
// steps; odd lengths leave tails.
TEST(BoxBlurKernel, WordPathMatchesTheDefinitionOnLongRows) {
  std::mt19937 rng(21);
  for (int32_t radius : {1, 2, 7, 64, 99, 100, 101, 128, 200, 255}) {
    for (size_t count : {1001u, 1923u}) {
      std::vector<uint32_t> rows[2];
      for (auto& row : rows) {
        row.resize(count);
        for (size_t x = 0; x < count; ++x) row[x] = (x / 300) % 2 ? 0xFFFFFFFF : rng() % 3 ? rng() : 0;
      }
      ExpectRowsMatchDefinition(rows, radius);
      if (::testing::Test::HasFatalFailure()) return;
    }
  }
}

TEST(FastHBlur, MatchesTheDefinitionForEachPassCount) {
  for (auto [w, h, r, passes] : {std::tuple{37, 5, 3, 1}, std::tuple{38, 4, 3, 2}, std::tuple{16, 3, 9, 3},
                                 std::tuple{5, 4, 40, 1}, std::tuple{1, 6, 2, 2}, std::tuple{64, 2, 0, 3}}) {
    TestHost host(w, h);
    auto fx = MakeBlur(host, r, passes);
    OwnedScreen in(w, h), out(w, h);
    nimbo::testing::FillRandom(in, uint32_t(w * 100 + r));
    ASSERT_EQ(nimbo::testing::RenderOnce(*fx, {&in.screen}, &out.screen), 1);
    std::vector<uint32_t> expected = in.pixels;
    for (int32_t p = 0; p < passes; ++p) expected = NaivePass(expected, w, h, r);
    EXPECT_EQ(out.pixels, expected) << w << "x" << h << " r " << r << " passes " << passes;
  }
}

TEST(FastHBlur, RadiusVariableAndSettings) {
  TestHost host(20, 2);
  auto fx = MakeBlur(host, -1, 0);
  const std::string text = host.store.Text();
  const size_t radius = text.find("<data name=\"radius\" type=\"int\">4</data>");
  const size_t passes = text.find("<data name=\"passes\" type=\"int\">1</data>");
  ASSERT_NE(radius, std::string::npos) << text;
  EXPECT_LT(radius, passes);

  orrery::DynVar* var = host.FindDynVar("Radius");
  ASSERT_NE(var, nullptr);
  EXPECT_EQ(var->value, 4.0f);
  // The host moves the variable: the blur follows, truncating.
  var->value = 2.7f;
  OwnedScreen in(20, 2), out(20, 2);
  nimbo::testing::FillRandom(in, 1);
  nimbo::testing::RenderOnce(*fx, {&in.screen}, &out.screen);
  EXPECT_EQ(out.pixels, NaivePass(in.pixels, 20, 2, 2));
  // Absurd values stay in range.
  var->value = -5.0f;
  nimbo::testing::RenderOnce(*fx, {&in.screen}, &out.screen);
  EXPECT_EQ(out.pixels, in.pixels);
  var->value = 1e9f;
  nimbo::testing::RenderOnce(*fx, {&in.screen}, &out.screen);
  EXPECT_EQ(out.pixels, NaivePass(in.pixels, 20, 2, nimbo::kBoxBlurMaxRadius));

  // Stored values out of range are held to 0..255 and 1..3.
  TestHost loaded(20, 2);
  auto fx2 = MakeBlur(loaded, 9999, 7);
  EXPECT_EQ(loaded.FindDynVar("Radius")->value, float(nimbo::kBoxBlurMaxRadius));
  nimbo::testing::RenderOnce(*fx2, {&in.screen}, &out.screen);
  std::vector<uint32_t> expected = in.pixels;
  for (int32_t p = 0; p < 3; ++p) expected = NaivePass(expected, 20, 2, nimbo::kBoxBlurMaxRadius);
  EXPECT_EQ(out.pixels, expected);
}

}  // namespace
