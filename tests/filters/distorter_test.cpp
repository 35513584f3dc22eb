// Distorter: field-morphing maps, ease, sequence mixing, per-frame sampling
// (scalar against SIMD and against a separate computation of the fixed
// point), sizes, and the settings keys.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <initializer_list>
#include <random>
#include <string>

#include "filters/distorter_editing.h"
#include "filters/distorter_map.h"
#include "filters/distorter_sample.h"
#include "package/cpu.h"
#include "support/test_host.h"

namespace {

using namespace nimbo::distorter;
using nimbo::testing::OwnedScreen;
using nimbo::testing::TestHost;

constexpr int32_t kDistorterIndex = 21;

// ---- a separate computation of the field morph, written from the formulas ----

struct Ref {
  double x, y;
};

Ref ReferenceSource(const std::vector<LinePair>& lines, int x, int y) {
  double dxs = 0, dys = 0, s = 0;
  for (const LinePair& l : lines) {
    Ref P{l.l1.p1.x, l.l1.p1.y}, Q{l.l1.p2.x, l.l1.p2.y}, Ps{l.l2.p1.x, l.l2.p1.y}, Qs{l.l2.p2.x, l.l2.p2.y};
    Ref d{Q.x - P.x, Q.y - P.y}, ds{Qs.x - Ps.x, Qs.y - Ps.y};
    double len = std::sqrt(d.x * d.x + d.y * d.y), lens = std::sqrt(ds.x * ds.x + ds.y * ds.y);
    double u = ((x - P.x) * d.x + (y - P.y) * d.y) / (len * len);
    double v = ((P.x - Q.x) * (y - P.y) + d.y * (x - P.x)) / len;
    double xs = Ps.x + u * ds.x + v * ds.y / lens;
    double ys = Ps.y + u * ds.y + v * (Ps.x - Qs.x) / lens;
    double dist = u < 0   ? std::sqrt((x - P.x) * (x - P.x) + (y - P.y) * (y - P.y))
                  : u > 1 ? std::sqrt((x - Q.x) * (x - Q.x) + (y - Q.y) * (y - Q.y))
                          : std::fabs(v);
    double w = len / ((dist + l.a) * (dist + l.a));
    dxs += (xs - x) * w;
    dys += (ys - y) * w;
    s += w;
  }
  return s > 0 ? Ref{x + dxs / s, y + dys / s} : Ref{double(x), double(y)};
}

// Scaled to the input as source * Wi / W (the formula's source / W * Wi with
// one rounding less), held at 0 below, and moved to size - 1.125 at or past
// the last pixel (kept at 0 on an axis 1 pixel long).
double ReferenceEdge(double s, int size) {
  if (!(s >= 0)) return 0;
  if (s >= size - 1) return size >= 2 ? size - 1.125 : 0.0;
  return s;
}

uint32_t ReferenceEntry(const std::vector<LinePair>& lines, int x, int y, int gw, int gh, int iw, int ih) {
  Ref r = ReferenceSource(lines, x, y);
  double sx = ReferenceEdge(r.x * iw / gw, iw), sy = ReferenceEdge(r.y * ih / gh, ih);
  return (uint32_t(int(sx * 16)) << 16) + uint32_t(int(sy * 16));
}

LinePair RandomPair(std::mt19937& rng, float w, float h) {
  std::uniform_real_distribution<float> ux(0, w), uy(0, h);
  LinePair p;
  p.l1 = {{ux(rng), uy(rng)}, {ux(rng), uy(rng)}};
  p.l2 = {{ux(rng), uy(rng)}, {ux(rng), uy(rng)}};
  return p;
}

// Per byte, the sum of pixel * weight over weights summing to 64, divided by
// 64 and rounded down: the bilinear sample.
uint32_t Weighted(std::initializer_list<std::pair<uint32_t, int>> terms) {
  uint32_t out = 0;
  for (int shift = 0; shift < 32; shift += 8) {
    int sum = 0, total = 0;
    for (auto [pixel, weight] : terms) {
      sum += int((pixel >> shift) & 0xFF) * weight;
      total += weight;
    }
    EXPECT_EQ(total, 64);
    out |= uint32_t(sum / 64) << shift;
  }
  return out;
}

// The fixed point of the per-frame sampling, computed from its description:
// blended position limited to 8 * (size - 1) - 1 eighths (0 on an axis 1
// pixel long); right and lower neighbours clamped to the last pixel.
uint32_t ReferenceSample(uint32_t a, uint32_t b, int w, const uint32_t* src, int sw, int sh, bool filter) {
  auto blend = [w](int pa, int pb) { return (pa * (32768 - w) + pb * w) / 32768; };  // non-negative: / == >>
  int x3 = std::min(blend(int(a >> 16) / 2, int(b >> 16) / 2), sw >= 2 ? 8 * (sw - 1) - 1 : 0);
  int y3 = std::min(blend(int(a & 0xFFFF) / 2, int(b & 0xFFFF) / 2), sh >= 2 ? 8 * (sh - 1) - 1 : 0);
  int x = x3 / 8, y = y3 / 8;
  auto at = [&](int dx, int dy) { return src[std::min(y + dy, sh - 1) * sw + std::min(x + dx, sw - 1)]; };
  if (!filter) return at(0, 0);
  int fx = x3 % 8, fy = y3 % 8;
  return Weighted(
      {{at(0, 0), (8 - fx) * (8 - fy)}, {at(1, 0), fx * (8 - fy)}, {at(0, 1), (8 - fx) * fy}, {at(1, 1), fx * fy}});
}

float ReferenceEase(float t, float ef, float et) {
  if (ef + et == 0) return t;
  if (ef + et > 1) {
    float s = ef + et;
    ef /= s;
    et /= s;
  }
  float k = 1 / (2 - ef - et);
  if (t < ef) return k / ef * t * t;
  if (t < 1 - et) return k * (2 * t - ef);
  return 1 - (k / et) * (1 - t) * (1 - t);
}

// An effect with its store filled by `setup` (after "!"), configured for
// `w` x `h`.
struct Rig {
  explicit Rig(int32_t w, int32_t h) : host(w, h) { effect = nimbo::testing::MakeEffect(kDistorterIndex, &host); }
  void Configure() {
    effect->UpdateConfig();
    effect->Initialize();
  }
  float* Slider() { return const_cast<float*>(host.FindSlider("Sequence mixing progress")->value); }
  TestHost host;
  std::unique_ptr<orrery::Effect> effect;
};

// An empty store with only the marker, for a test to add its keys.
void Restart(nimbo::SettingsDocument& store) {
  store.Clear();
  store.BeginWriting();
  store.SetInt("!", 1);
}

void WriteMorphs(nimbo::SettingsDocument& store, const std::vector<Morph>& morphs, int filtering) {
  Restart(store);
  store.SetInt("use_filtering", filtering);
  store.SetInt("n_morphs", int(morphs.size()));
  const char* names[8] = {"l1_p1_x", "l1_p1_y", "l1_p2_x", "l1_p2_y", "l2_p1_x", "l2_p1_y", "l2_p2_x", "l2_p2_y"};
  for (size_t i = 0; i < morphs.size(); ++i) {
    std::string m = "morph" + std::to_string(i);
    store.SetString((m + "name").c_str(), morphs[i].name.c_str());
    store.SetFloat((m + "efrom").c_str(), morphs[i].ease_from);
    store.SetFloat((m + "eto").c_str(), morphs[i].ease_to);
    store.SetInt((m + "n_lines").c_str(), int(morphs[i].lines.size()));
    for (size_t j = 0; j < morphs[i].lines.size(); ++j) {
      const LinePair& l = morphs[i].lines[j];
      float v[8] = {l.l1.p1.x, l.l1.p1.y, l.l1.p2.x, l.l1.p2.y, l.l2.p1.x, l.l2.p1.y, l.l2.p2.x, l.l2.p2.y};
      for (int k = 0; k < 8; ++k) store.SetFloat((m + "line" + std::to_string(j) + "_" + names[k]).c_str(), v[k]);
    }
  }
}

// Line coordinates as the store keeps them (six decimals), so the reference
// sees exactly what the effect reads back.
LinePair Stored(LinePair p) {
  for (float* v : {&p.l1.p1.x, &p.l1.p1.y, &p.l1.p2.x, &p.l1.p2.y, &p.l2.p1.x, &p.l2.p1.y, &p.l2.p2.x, &p.l2.p2.y}) {
    *v = std::strtof(std::to_string(*v).c_str(), nullptr);
  }
  return p;
}

// ---- tests ---------------------------------------------------------------------

TEST(DistorterTest, MorphWithoutLinesReproducesItsInputExceptTheLastColumnAndRow) {
  // The edge rule moves positions on the last column (row) to 1/8 before
  // it: nearest shows the pixel before, bilinear 7/8 of the way to the last.
  // Everything else is the input exactly, for every host value. Sizes of 1
  // and 2 pixels on an axis are the edge cases of the rule.
  for (auto [w, h] :
       {std::pair{37, 23}, std::pair{1, 9}, std::pair{9, 1}, std::pair{2, 5}, std::pair{5, 2}, std::pair{1, 1}}) {
    for (int filtering : {0, 1}) {
      Rig rig(w, h);
      rig.Configure();
      Restart(rig.host.store);  // the filtering flag under test
      rig.host.store.SetInt("use_filtering", filtering);
      rig.effect->UpdateConfig();
      OwnedScreen in(w, h), out(w, h);
      nimbo::testing::FillRandom(in, 7);
      // An axis longer than 1 pixel samples its last pixel at 1/8 before
      // it: integer part size - 2, fraction 7 eighths.
      auto place = [](int i, int size) { return (i == size - 1 && size > 1) ? std::pair{i - 1, 7} : std::pair{i, 0}; };
      for (float v : {0.0f, 0.5f, 0.95f, -0.3f, -1.0f}) {
        *rig.Slider() = v;
        ASSERT_EQ(nimbo::testing::RenderOnce(*rig.effect, {&in.screen}, &out.screen), 1);
        for (int y = 0; y < h; ++y) {
          for (int x = 0; x < w; ++x) {
            auto [x0, fx] = place(x, w);
            auto [y0, fy] = place(y, h);
            const int x1 = std::min(x0 + 1, w - 1), y1 = std::min(y0 + 1, h - 1);
            const uint32_t want = !filtering ? in.At(x0, y0)
                                             : Weighted({{in.At(x0, y0), (8 - fx) * (8 - fy)},
                                                         {in.At(x1, y0), fx * (8 - fy)},
                                                         {in.At(x0, y1), (8 - fx) * fy},
                                                         {in.At(x1, y1), fx * fy}});
            if (x < w - 1 && y < h - 1) {
              EXPECT_EQ(want, in.At(x, y));  // the interior is the input itself
            }
            ASSERT_EQ(out.At(x, y), want)
                << w << "x" << h << " filtering " << filtering << " v " << v << " at " << x << "," << y;
          }
        }
      }
    }
  }
}

TEST(DistorterTest, MapsMatchFieldMorphingFormulas) {
  std::mt19937 rng(11);
  const int gw = 53, gh = 31;
  for (int pairs : {1, 1, 2, 5}) {
    std::vector<LinePair> lines;
    for (int i = 0; i < pairs; ++i) lines.push_back(RandomPair(rng, gw, gh));
    for (auto [iw, ih] : {std::pair{gw, gh}, std::pair{80, 17}, std::pair{1, 17}, std::pair{80, 1}, std::pair{2, 2}}) {
      // The scalar field kernel and the best one (AVX2 here) alike.
      for (MapKernel kernel : {MapKernel::kScalar, MapKernel::kBest}) {
        std::vector<uint32_t> map(size_t(gw * gh));
        ASSERT_TRUE(BuildMorphMap(lines, gw, gh, iw, ih, map.data(), kernel));
        for (int y = 0; y < gh; ++y) {
          for (int x = 0; x < gw; ++x) {
            ASSERT_EQ(map[size_t(y * gw + x)], ReferenceEntry(lines, x, y, gw, gh, iw, ih))
                << pairs << " pairs at " << x << "," << y << " kernel " << int(kernel);
          }
        }
      }
    }
  }
  // A pair whose lines coincide maps every pixel to itself; one that
  // shifts its line 3 pixels right moves every pixel by the same 3 pixels.
  LinePair same;
  same.l1 = same.l2 = {{5, 5}, {20, 9}};
  LinePair shift = same;
  shift.l2 = {{8, 5}, {23, 9}};
  double sx, sy;
  FieldMorphPoint(std::vector{same}, 30, 2, &sx, &sy);
  EXPECT_NEAR(sx, 30, 1e-9);
  EXPECT_NEAR(sy, 2, 1e-9);
  FieldMorphPoint(std::vector{shift}, 30, 2, &sx, &sy);
  EXPECT_NEAR(sx, 33, 1e-9);
  EXPECT_NEAR(sy, 2, 1e-9);
}

TEST(DistorterTest, DegenerateAndNonFiniteLinesStayInsideTheInput) {
  LinePair point_dst;  // destination of length 0: no weight
  point_dst.l1 = {{4, 4}, {4, 4}};
  point_dst.l2 = {{0, 0}, {9, 9}};
  LinePair point_src;  // source of length 0: everything near it maps to it
  point_src.l1 = {{0, 0}, {10, 0}};
  point_src.l2 = {{6, 6}, {6, 6}};
  LinePair nan_pair;
  nan_pair.l1 = {{NAN, 0}, {10, INFINITY}};
  nan_pair.l2 = {{0, 0}, {1e30f, -1e30f}};
  const int gw = 16, gh = 12;
  for (const LinePair& p : {point_dst, point_src, nan_pair}) {
    std::vector<uint32_t> map(size_t(gw * gh));
    BuildMorphMap(std::vector{p}, gw, gh, gw, gh, map.data());
    for (uint32_t e : map) {  // at most size - 1.125: 16 * (size - 1) - 2 sixteenths
      EXPECT_LE(e >> 16, uint32_t(16 * (gw - 1) - 2));
      EXPECT_LE(e & 0xFFFF, uint32_t(16 * (gh - 1) - 2));
    }
  }
  std::vector<uint32_t> map(size_t(gw * gh));
  BuildMorphMap(std::vector{point_dst}, gw, gh, gw, gh, map.data());
  EXPECT_EQ(map[size_t(2 * gw + 5)], (5u * 16 << 16) + 2u * 16);  // identity
  BuildMorphMap(std::vector{point_src}, gw, gh, gw, gh, map.data());
  EXPECT_EQ(map[size_t(2 * gw + 5)], (6u * 16 << 16) + 6u * 16);
}

TEST(DistorterTest, EaseCurve) {
  for (float t : {0.0f, 0.1f, 0.5f, 0.93f}) EXPECT_EQ(Ease(t, 0, 0), t);
  for (float t = 0; t < 1; t += 0.0625f) {
    EXPECT_EQ(Ease(t, 0.75f, 0.75f), Ease(t, 0.5f, 0.5f)) << t;
    EXPECT_EQ(Ease(t, 0.2f, 0.3f), ReferenceEase(t, 0.2f, 0.3f)) << t;
  }
  EXPECT_FLOAT_EQ(Ease(0.25f, 0.5f, 0.5f), 0.125f);  // k = 1: 2 t^2
  EXPECT_FLOAT_EQ(Ease(0.75f, 0.5f, 0.5f), 0.875f);
  EXPECT_FLOAT_EQ(Ease(0.5f, 0.25f, 0.25f), 0.5f);
  // Ends and continuity at the joins; et = 0 at t = 1 arrives at 1, not NaN.
  EXPECT_EQ(Ease(1.0f, 0.3f, 0.0f), 1.0f);
  EXPECT_NEAR(Ease(0.3f - 1e-6f, 0.3f, 0.2f), Ease(0.3f, 0.3f, 0.2f), 1e-5);
  EXPECT_NEAR(Ease(0.8f - 1e-6f, 0.3f, 0.2f), Ease(0.8f, 0.3f, 0.2f), 1e-5);
  EXPECT_FALSE(std::isnan(Ease(0.5f, NAN, -3.0f)));
}

TEST(DistorterTest, SequenceAdvancesOncePerCrossingAndFlipsDirection) {
  SequenceState s;
  EXPECT_FLOAT_EQ(SequenceStep(s, 0.0f, 3), 0.5f);
  for (int frame = 0; frame < 5; ++frame) EXPECT_EQ(SequenceStep(s, 0.9f, 3), 0.0f);
  EXPECT_EQ(s.index, 1);  // held at 0.9: one advance
  EXPECT_EQ(s.direction, -1);
  // Coming back down now runs forward: 0.9 -> progress 0, -0.9 -> 1.
  EXPECT_NEAR(SequenceStep(s, 0.45f, 3), (0.45f * -1 + 0.9f) / 1.8f, 1e-7);
  EXPECT_NEAR(SequenceStep(s, -0.8f, 3), (0.8f + 0.9f) / 1.8f, 1e-7);
  SequenceStep(s, -1.0f, 3);
  SequenceStep(s, -0.95f, 3);
  EXPECT_EQ(s.index, 2);
  EXPECT_EQ(s.direction, 1);
  SequenceStep(s, 1.0f, 3);
  EXPECT_EQ(s.index, 0);  // wraps
  // A single morph stays at 0; NaN neither advances nor counts as a value.
  SequenceState one;
  SequenceStep(one, 1.0f, 1);
  EXPECT_EQ(one.index, 0);
  SequenceState nan;
  nan.previous = 0.95f;
  EXPECT_EQ(SequenceStep(nan, NAN, 2), 0.0f);
  SequenceStep(nan, 0.95f, 2);
  EXPECT_EQ(nan.index, 0);
}

TEST(DistorterTest, HostValueHeldAt09AdvancesTheEffectOnce) {
  // Morph 0 is the identity; morph 1 pulls everything from the top-left.
  Morph identity;
  Morph corner;
  corner.name = "corner";
  LinePair pull;
  pull.l1 = {{0, 0}, {15, 0}};
  pull.l2 = {{0, 0}, {0.5f, 0}};
  corner.lines = {pull};
  Rig rig(16, 12);
  WriteMorphs(rig.host.store, {identity, corner}, 0);
  rig.Configure();
  OwnedScreen in(16, 12), out(16, 12);
  nimbo::testing::FillRandom(in, 3);
  *rig.Slider() = -1.0f;  // at rest on morph 0 (advances once, direction +1)
  ASSERT_EQ(nimbo::testing::RenderOnce(*rig.effect, {&in.screen}, &out.screen), 1);
  const std::vector<uint32_t> first = out.pixels;
  *rig.Slider() = 0.9f;
  std::vector<std::vector<uint32_t>> frames;
  for (int i = 0; i < 4; ++i) {
    nimbo::testing::RenderOnce(*rig.effect, {&in.screen}, &out.screen);
    frames.push_back(out.pixels);
  }
  // Every frame held at 0.9 shows the same morph (progress 0 of one index).
  for (const auto& f : frames) EXPECT_EQ(f, frames[0]);
  EXPECT_NE(frames[0], first);
}

TEST(DistorterTest, RenderMatchesIndependentComputationOnRandomPictures) {
  std::mt19937 rng(5);
  const int w = 41, h = 29;
  Morph a, b;
  a.ease_from = 0.3f;
  b.ease_to = 0.4f;
  for (int i = 0; i < 3; ++i) a.lines.push_back(Stored(RandomPair(rng, w, h)));
  for (int i = 0; i < 2; ++i) b.lines.push_back(Stored(RandomPair(rng, w, h)));
  for (int filtering : {0, 1}) {
    for (float v : {-0.5f, 0.1f, 0.77f}) {
      Rig rig(w, h);
      WriteMorphs(rig.host.store, {a, b}, filtering);
      rig.Configure();
      *rig.Slider() = v;
      OwnedScreen in(w, h), out(w, h);
      nimbo::testing::FillRandom(in, 100 + filtering);
      ASSERT_EQ(nimbo::testing::RenderOnce(*rig.effect, {&in.screen}, &out.screen), 1);
      const float q = ReferenceEase((v + 0.9f) / 1.8f, a.ease_from, b.ease_to);
      const int weight = int(q * 32768.0f);
      for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
          uint32_t ea = ReferenceEntry(a.lines, x, y, w, h, w, h), eb = ReferenceEntry(b.lines, x, y, w, h, w, h);
          ASSERT_EQ(out.At(x, y), ReferenceSample(ea, eb, weight, in.pixels.data(), w, h, filtering))
              << x << "," << y << " filtering " << filtering << " v " << v;
        }
      }
    }
  }
}

TEST(DistorterTest, SimdSamplingEqualsScalarAndStaysInsideTheInput) {
  // Inputs sized exactly (a sanitizer build catches any read past them),
  // maps from the map build's edge rule and maps of arbitrary words, which
  // the sampler's own guard must keep inside the input.
  std::mt19937 rng(9);
  std::vector<SampleKernels> simd = {Sse2SampleKernels()};
  if (nimbo::CpuHasAvx2()) simd.push_back(Avx2SampleKernels());
  const SampleKernels scalar = ScalarSampleKernels();
  const int n = 300;
  for (auto [sw, sh] : {std::pair{67, 45}, std::pair{1, 13}, std::pair{13, 1}, std::pair{2, 2}, std::pair{1, 1}}) {
    std::vector<uint32_t> src(size_t(sw * sh));
    for (uint32_t& p : src) p = rng();
    for (bool raw : {false, true}) {
      std::uniform_real_distribution<double> ux(-2, sw + 2), uy(-2, sh + 2);
      std::vector<uint32_t> ma(n + 8), mb(n + 8);
      for (size_t i = 0; i < ma.size(); ++i) {
        ma[i] = raw ? uint32_t(rng()) : PackMapEntry(ux(rng), uy(rng), sw, sh);
        mb[i] = raw ? uint32_t(rng()) : PackMapEntry(ux(rng), uy(rng), sw, sh);
      }
      for (int weight : {0, 1, 12345, 16384, 32767, 32768}) {
        const SampleParams p{src.data(), sw, sh, weight};
        for (int start : {0, 1, 3}) {
          for (int count : {0, 1, 7, 8, 9, 31, 255}) {
            for (bool filter : {false, true}) {
              std::vector<uint32_t> want(n + 8, 0xDEADBEEF), got(n + 8, 0xDEADBEEF);
              (filter ? scalar.bilinear : scalar.nearest)(&ma[start], &mb[start], &want[start], count, p);
              for (const SampleKernels& k : simd) {
                std::fill(got.begin(), got.end(), 0xDEADBEEF);
                (filter ? k.bilinear : k.nearest)(&ma[start], &mb[start], &got[start], count, p);
                ASSERT_EQ(got, want) << sw << "x" << sh << " raw " << raw << " weight " << weight << " start " << start
                                     << " count " << count << " filter " << filter;
              }
              for (int i = 0; i < count; ++i) {
                ASSERT_EQ(want[start + i],
                          ReferenceSample(ma[start + i], mb[start + i], weight, src.data(), sw, sh, filter))
                    << sw << "x" << sh << " raw " << raw << " at " << i;
              }
            }
          }
        }
      }
    }
  }
  EXPECT_EQ(BlendWeight(0.0f), 0);
  EXPECT_EQ(BlendWeight(1.0f), 32768);
  EXPECT_EQ(BlendWeight(0.5f), 16384);
  EXPECT_EQ(BlendWeight(NAN), 0);
  EXPECT_EQ(BlendWeight(7.0f), 32768);

  // The edge rule itself, in sixteenths: the last pixel and beyond become
  // size - 1.125, below 0 becomes 0, an axis 1 pixel long stays at 0.
  EXPECT_EQ(PackMapEntry(9.0, 4.0, 10, 5), (uint32_t(16 * 9 - 2) << 16) + uint32_t(16 * 4 - 2));
  EXPECT_EQ(PackMapEntry(8.99, 3.5, 10, 5), (uint32_t(143) << 16) + 56u);  // just before the last: kept
  EXPECT_EQ(PackMapEntry(1e9, -3.0, 10, 5), uint32_t(16 * 9 - 2) << 16);
  EXPECT_EQ(PackMapEntry(0.7, 0.7, 1, 1), 0u);
  EXPECT_EQ(PackMapEntry(NAN, 1.0, 2, 2), uint32_t(16 - 2));

  // A whole frame refuses input sizes it cannot address.
  uint32_t pixel = 0, entry = 0, out = 0;
  EXPECT_FALSE(SampleFrame(scalar, &entry, &entry, &out, 1, 1, SampleParams{&pixel, 0, 1, 0}, true));
  EXPECT_FALSE(SampleFrame(scalar, &entry, &entry, &out, 1, 1, SampleParams{&pixel, kMaxInputSide + 1, 1, 0}, true));
  EXPECT_FALSE(SampleFrame(scalar, &entry, &entry, &out, 1, 1, SampleParams{nullptr, 1, 1, 0}, true));
  EXPECT_TRUE(SampleFrame(scalar, &entry, &entry, &out, 1, 1, SampleParams{&pixel, 1, 1, 0}, true));
}

TEST(DistorterTest, MapsAreBuiltOnlyWhenTheMorphPairOrSizeChanges) {
  MorphSet set;
  set.AddMorph();
  set.AddMorph();
  MorphMapCache cache;
  ASSERT_TRUE(cache.Prepare(set, 0, 1, 20, 10, 20, 10));
  EXPECT_EQ(cache.BuildCount(), 2);
  ASSERT_TRUE(cache.Prepare(set, 0, 1, 20, 10, 20, 10));
  EXPECT_EQ(cache.BuildCount(), 2);
  ASSERT_TRUE(cache.Prepare(set, 1, 2, 20, 10, 20, 10));  // old second becomes first
  EXPECT_EQ(cache.BuildCount(), 3);
  ASSERT_TRUE(cache.Prepare(set, 1, 2, 20, 10, 30, 10));  // input size
  EXPECT_EQ(cache.BuildCount(), 5);
  set.Edit(2).ease_to = 0.5f;  // any change of the set
  ASSERT_TRUE(cache.Prepare(set, 1, 2, 20, 10, 30, 10));
  EXPECT_EQ(cache.BuildCount(), 7);
  ASSERT_TRUE(cache.Prepare(set, 0, 0, 20, 10, 30, 10));  // one morph: one map
  EXPECT_EQ(cache.BuildCount(), 8);
  EXPECT_EQ(cache.First(), cache.Second());
  EXPECT_FALSE(cache.Prepare(set, 0, 1, 20, 10, kMaxInputSide + 1, 10));
  EXPECT_FALSE(cache.Prepare(set, 0, 5, 20, 10, 20, 10));
}

TEST(DistorterTest, InputResolutionMustFitOrTheFrameIsLeft) {
  Rig rig(40, 30);
  rig.Configure();
  Restart(rig.host.store);
  rig.host.store.SetInt("use_filtering", 0);
  rig.host.store.SetInt("input_res", 1);
  rig.host.store.SetInt("input_w", 32);
  rig.host.store.SetInt("input_h", 16);
  rig.Configure();
  EXPECT_EQ(rig.effect->GetInputScreenRes(0, 40, 30), (orrery::Size{32, 16}));
  EXPECT_EQ(rig.effect->GetInputScreenRes(0, -1, -1), (orrery::Size{-1, -1}));
  OwnedScreen wrong(40, 30), right(32, 16), out(40, 30, 0x12345678);
  nimbo::testing::FillRandom(wrong, 1);
  nimbo::testing::FillRandom(right, 2);
  EXPECT_EQ(nimbo::testing::RenderOnce(*rig.effect, {&wrong.screen}, &out.screen), 1);
  EXPECT_EQ(out.pixels, std::vector<uint32_t>(40 * 30, 0x12345678));
  EXPECT_EQ(nimbo::testing::RenderOnce(*rig.effect, {}, &out.screen), 1);
  EXPECT_EQ(out.pixels, std::vector<uint32_t>(40 * 30, 0x12345678));
  ASSERT_EQ(nimbo::testing::RenderOnce(*rig.effect, {&right.screen}, &out.screen), 1);
  for (int y = 0; y < 30; ++y) {
    for (int x = 0; x < 40; ++x) {
      ASSERT_EQ(out.At(x, y),
                ReferenceSample(ReferenceEntry({}, x, y, 40, 30, 32, 16), ReferenceEntry({}, x, y, 40, 30, 32, 16), 0,
                                right.pixels.data(), 32, 16, false));
    }
  }
  // Off again: the input must have the output's size.
  Restart(rig.host.store);
  rig.host.store.SetInt("input_res", 0);
  rig.Configure();
  std::fill(out.pixels.begin(), out.pixels.end(), 7u);
  EXPECT_EQ(nimbo::testing::RenderOnce(*rig.effect, {&right.screen}, &out.screen), 1);
  EXPECT_EQ(out.pixels, std::vector<uint32_t>(40 * 30, 7u));
}

TEST(DistorterTest, SettingsKeysRoundTripThroughTheStore) {
  Rig rig(100, 50);
  rig.Configure();  // empty store: defaults written
  const std::string fresh = rig.host.store.Text();
  EXPECT_NE(fresh.find("name=\"n_morphs\""), std::string::npos);
  EXPECT_NE(fresh.find(">Default<"), std::string::npos);
  auto* editing = AsMorphEditing(rig.effect.get());
  ASSERT_NE(editing, nullptr);
  editing->EditMorphs([](MorphSet& set, int32_t gw, int32_t gh) {
    EXPECT_EQ(gw, 100);
    EXPECT_EQ(gh, 50);
    int m = set.AddMorph();
    EXPECT_EQ(set.At(m).name, "New 1");
    EXPECT_TRUE(set.AddLinePair(m, {{0.1f, 0.2f}, {0.3f, 0.4f}}, {{0.5f, 0.6f}, {0.7f, 0.8f}}, gw, gh));
    EXPECT_TRUE(set.AddLinePair(m, {{0, 0}, {1, 1}}, {{1, 0}, {0, 1}}, gw, gh));
    for (int i = 0; i < kMaxLinePairs; ++i) EXPECT_TRUE(set.AddLinePair(0, {}, {{0, 0}, {1, 1}}, gw, gh));
    EXPECT_FALSE(set.AddLinePair(0, {}, {}, gw, gh));  // the 1001st is ignored
    EXPECT_EQ(set.At(0).lines.size(), size_t(kMaxLinePairs));
    EXPECT_TRUE(set.RemoveLinePair(0, 0));
    EXPECT_TRUE(set.RemoveMorph(0));
    set.Edit(0).ease_from = 0.125f;
  });
  // Write the edited state into a fresh store and read it into a new effect.
  rig.host.store.Clear();
  rig.effect->UpdateConfig();
  const std::string saved = rig.host.store.Text();
  for (const char* key : {"use_filtering", "n_morphs", "morph0name", "morph0efrom", "morph0eto", "morph0n_lines",
                          "morph0line1_l2_p2_y", "input_res", "input_w", "input_h"}) {
    EXPECT_NE(saved.find("name=\"" + std::string(key) + "\""), std::string::npos) << key;
  }
  EXPECT_NE(saved.find(">New 1<"), std::string::npos);
  EXPECT_LT(saved.find("\"use_filtering\""), saved.find("\"n_morphs\""));
  EXPECT_LT(saved.find("\"morph0line1_l2_p2_y\""), saved.find("\"input_res\""));

  TestHost other(100, 50);
  ASSERT_TRUE(other.store.Load(saved));
  auto copy = nimbo::testing::MakeEffect(kDistorterIndex, &other);
  copy->UpdateConfig();
  copy->Initialize();
  AsMorphEditing(copy.get())->EditMorphs([](MorphSet& set, int32_t, int32_t) {
    ASSERT_EQ(set.Count(), 1);
    EXPECT_EQ(set.At(0).name, "New 1");
    EXPECT_EQ(set.At(0).ease_from, 0.125f);
    ASSERT_EQ(set.At(0).lines.size(), 2u);
    EXPECT_FLOAT_EQ(set.At(0).lines[0].l1.p1.x, 10.0f);
    EXPECT_FLOAT_EQ(set.At(0).lines[0].l1.p2.y, 20.0f);
    EXPECT_FLOAT_EQ(set.At(0).lines[0].l2.p2.x, 70.0f);
    EXPECT_FLOAT_EQ(set.At(0).lines[1].l2.p1.x, 100.0f);
    EXPECT_FLOAT_EQ(set.At(0).lines[0].a, 0.1f);
  });
  // Counts in a hand-edited store are bounded, not trusted.
  Restart(other.store);
  other.store.SetInt("n_morphs", -4);
  copy->UpdateConfig();
  OwnedScreen in(100, 50), out(100, 50, 9);
  EXPECT_EQ(nimbo::testing::RenderOnce(*copy, {&in.screen}, &out.screen), 1);  // no morphs: nothing drawn
  EXPECT_EQ(out.pixels[0], 9u);
  const orrery::SliderDesc* slider = other.FindSlider("Sequence mixing progress");
  ASSERT_NE(slider, nullptr);
  EXPECT_EQ(slider->minimum, -1.0f);
  EXPECT_EQ(slider->maximum, 1.0f);
  EXPECT_EQ(slider->p1, 100.0f);
  EXPECT_EQ(slider->p2, 20000.0f);
  EXPECT_EQ(slider->p3, 2000.0f);
}

}  // namespace
