// Distorter: field-morphing maps, ease, sequence mixing, per-frame sampling
// (scalar against SIMD and against a separate computation of the fixed
// point), sizes, and the settings keys.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <tuple>

#include "distorter_editing.h"
#include "distorter_map.h"
#include "distorter_sample.h"
#include "core/cpu.h"
#include "test_host.h"

namespace {

using namespace nimbo::distorter;
using nimbo::testing::OwnedScreen;
using nimbo::testing::TestHost;

constexpr char kDistorter[] = "Distorter";

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
  return {{{ux(rng), uy(rng)}, {ux(rng), uy(rng)}}, {{ux(rng), uy(rng)}, {ux(rng), uy(rng)}}};  // in order
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
  // Bilinear: per byte, the four pixels weighted in 64ths, rounded down.
  const int fx = x3 % 8, fy = y3 % 8;
  uint32_t out = 0;
  for (int b = 0; b < 32; b += 8) {
    auto c = [&](int dx, int dy) { return int((at(dx, dy) >> b) & 0xFF); };
    out |= uint32_t(
               ((8 - fx) * (8 - fy) * c(0, 0) + fx * (8 - fy) * c(1, 0) + (8 - fx) * fy * c(0, 1) + fx * fy * c(1, 1)) /
               64)
           << b;
  }
  return out;
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

// Every pixel of `out` against the separate computation: maps of `a` and
// `b` over the output grid, blended by `weight` and sampled from `in`.
void ExpectFrame(const OwnedScreen& out, const std::vector<LinePair>& a, const std::vector<LinePair>& b, int weight,
                 const OwnedScreen& in, bool filter) {
  const int w = out.screen.width, h = out.screen.height, iw = in.screen.width, ih = in.screen.height;
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      ASSERT_EQ(out.pixels[size_t(y * w + x)],
                ReferenceSample(ReferenceEntry(a, x, y, w, h, iw, ih), ReferenceEntry(b, x, y, w, h, iw, ih), weight,
                                in.pixels.data(), iw, ih, filter))
          << "at " << x << "," << y;
    }
  }
}

// An effect for a `w` x `h` output. Configure reads the store, or, given
// `keys`, an empty store holding just those; Load also hands over `morphs` as
// the setup dialog does; Render draws one frame at host value `v`.
struct Rig {
  Rig(int32_t w, int32_t h) : host(w, h) { effect = nimbo::testing::MakeEffect(kDistorter, &host); }
  void Configure(std::initializer_list<std::pair<const char*, int>> keys = {}) {
    if (keys.size() > 0) {
      host.store.Clear();
      host.store.BeginWriting();
      host.store.SetInt("!", 1);
      for (auto [key, value] : keys) host.store.SetInt(key, value);
    }
    effect->UpdateConfig();
    effect->Initialize();
  }
  void Load(const std::vector<Morph>& morphs, int filtering) {
    Configure({{"use_filtering", filtering}});
    AsMorphEditing(effect.get())->EditMorphs([&](MorphSet& set, int32_t, int32_t) { set.Assign(morphs); });
  }
  int32_t Render(float v, const OwnedScreen& in, OwnedScreen& out) {
    *const_cast<float*>(host.FindSlider("Sequence mixing progress")->value) = v;
    return nimbo::testing::RenderOnce(*effect, {&in.screen}, &out.screen);
  }
  TestHost host;
  std::unique_ptr<orrery::Effect> effect;
};

// ---- tests ---------------------------------------------------------------------

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
                << pairs << " pairs " << iw << "x" << ih << " at " << x << "," << y << " kernel " << int(kernel);
          }
        }
      }
    }
  }
}

TEST(DistorterTest, DegenerateAndNonFiniteLinesStayInsideTheInput) {
  // A destination of length 0 gives no weight (identity at (5, 2)); a
  // source of length 0 draws everything near it to it; non-finite numbers.
  const int gw = 16, gh = 12;
  for (auto [p, at_5_2] : {std::pair{LinePair{{{4, 4}, {4, 4}}, {{0, 0}, {9, 9}}}, (5u * 16 << 16) + 2u * 16},
                           std::pair{LinePair{{{0, 0}, {10, 0}}, {{6, 6}, {6, 6}}}, (6u * 16 << 16) + 6u * 16},
                           std::pair{LinePair{{{NAN, 0}, {10, INFINITY}}, {{0, 0}, {1e30f, -1e30f}}}, 0u}}) {
    std::vector<uint32_t> map(size_t(gw * gh));
    BuildMorphMap(std::vector{p}, gw, gh, gw, gh, map.data());
    for (uint32_t e : map) {  // at most size - 1.125: 16 * (size - 1) - 2 sixteenths
      EXPECT_LE(e >> 16, uint32_t(16 * (gw - 1) - 2));
      EXPECT_LE(e & 0xFFFF, uint32_t(16 * (gh - 1) - 2));
    }
    if (at_5_2) {
      EXPECT_EQ(map[size_t(2 * gw + 5)], at_5_2);
    }
  }
}

TEST(DistorterTest, EaseCurve) {
  // (0.75, 0.75) is normalised to (0.5, 0.5); (0, 0) is the identity.
  for (auto [ef, et] : {std::pair{0.0f, 0.0f}, std::pair{0.2f, 0.3f}, std::pair{0.75f, 0.75f}, std::pair{0.5f, 0.5f}}) {
    for (float t = 0; t < 1; t += 0.0625f)
      EXPECT_NEAR(Ease(t, ef, et), ReferenceEase(t, ef, et), 1e-6) << ef << " " << t;
  }
  EXPECT_FLOAT_EQ(Ease(0.25f, 0.5f, 0.5f), 0.125f);  // k = 1: 2 t^2
  EXPECT_EQ(Ease(1.0f, 0.3f, 0.0f), 1.0f);           // et = 0 at t = 1 arrives at 1, not NaN
  EXPECT_FALSE(std::isnan(Ease(0.5f, NAN, -3.0f)));
}

TEST(DistorterTest, SequenceAdvancesOncePerCrossingAndFlipsDirection) {
  // Held at +-0.9 or beyond: one advance. After +0.9 coming back down runs
  // forward (0.9 -> progress 0, -0.9 -> 1); after -0.9 the other way.
  struct Frame {
    float v, progress;
    int index, direction;
  };
  SequenceState s;
  for (const Frame& f : {Frame{0.0f, 0.5f, 0, 1}, Frame{0.9f, 0, 1, -1}, Frame{0.95f, 0, 1, -1}, Frame{0.9f, 0, 1, -1},
                         Frame{0.45f, 0.25f, 1, -1}, Frame{-0.8f, 1.7f / 1.8f, 1, -1}, Frame{-1.0f, 0, 2, 1},
                         Frame{-0.95f, 0, 2, 1}, Frame{-0.45f, 0.25f, 2, 1}, Frame{1.0f, 0, 0, -1}}) {  // wraps
    EXPECT_NEAR(SequenceStep(s, f.v, 3), f.progress, 1e-6) << f.v;
    EXPECT_EQ(s.index, f.index) << f.v;
    EXPECT_EQ(s.direction, f.direction) << f.v;
  }
  // A single morph stays at 0; NaN neither advances nor counts as a value.
  SequenceState one;
  SequenceStep(one, 1.0f, 1);
  EXPECT_EQ(one.index, 0);
  SequenceState nan;
  nan.previous = 0.95f;
  EXPECT_EQ(SequenceStep(nan, NAN, 2), 0.0f);
  SequenceStep(nan, 0.95f, 2);
  EXPECT_EQ(nan.index, 0);

  // In the effect: morph 0 is the identity, morph 1 pulls from the top-left.
  Morph corner;
  corner.lines = {LinePair{{{0, 0}, {15, 0}}, {{0, 0}, {0.5f, 0}}}};
  Rig rig(16, 12);
  rig.Load({Morph{}, corner}, 0);
  OwnedScreen in(16, 12), out(16, 12);
  nimbo::testing::FillRandom(in, 3);
  ASSERT_EQ(rig.Render(-1.0f, in, out), 1);  // crossing -0.9 advances to morph 1, progress 0
  ExpectFrame(out, corner.lines, {}, 0, in, false);
  for (int i = 0; i < 4; ++i) {  // held at 0.9: one advance, back to morph 0 at progress 0
    rig.Render(0.9f, in, out);
    ExpectFrame(out, {}, corner.lines, 0, in, false);
  }
}

TEST(DistorterTest, RenderMatchesIndependentComputation) {
  // Two random morphs with eases, then one without lines. The latter shows
  // the input exactly except on the last column (row), which the edge rule
  // moves to 1/8 before it: nearest shows the pixel before, bilinear 7/8 of
  // the way to the last. Axes of 1 and 2 pixels are the rule's edge cases.
  std::mt19937 rng(5);
  for (auto [w, h] :
       {std::pair{41, 29}, std::pair{1, 9}, std::pair{9, 1}, std::pair{2, 5}, std::pair{5, 2}, std::pair{1, 1}}) {
    Morph a, b;
    a.ease_from = 0.3f;
    b.ease_to = 0.4f;
    a.lines = {RandomPair(rng, w, h), RandomPair(rng, w, h), RandomPair(rng, w, h)};
    b.lines = {RandomPair(rng, w, h), RandomPair(rng, w, h)};
    for (int filtering : {0, 1}) {
      for (float v : {-0.5f, 0.1f, 0.77f}) {
        SCOPED_TRACE(testing::Message() << w << "x" << h << " filtering " << filtering << " v " << v);
        Rig rig(w, h);
        rig.Load({a, b}, filtering);
        OwnedScreen in(w, h), out(w, h);
        nimbo::testing::FillRandom(in, 100 + filtering);
        ASSERT_EQ(rig.Render(v, in, out), 1);
        const float q = ReferenceEase((v + 0.9f) / 1.8f, a.ease_from, b.ease_to);
        ExpectFrame(out, a.lines, b.lines, int(q * 32768.0f), in, filtering);
        rig.Load({Morph{}}, filtering);
        ASSERT_EQ(rig.Render(v, in, out), 1);
        ExpectFrame(out, {}, {}, 0, in, filtering);
        for (int y = 0; y < h - 1; ++y) {
          for (int x = 0; x < w - 1; ++x) ASSERT_EQ(out.At(x, y), in.At(x, y)) << x << "," << y;
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
      for (uint32_t* m : {ma.data(), mb.data()}) {
        for (int i = 0; i < n + 8; ++i) m[i] = raw ? uint32_t(rng()) : PackMapEntry(ux(rng), uy(rng), sw, sh);
      }
      for (int weight : {0, 1, 12345, 16384, 32767, 32768}) {
        const SampleParams p{src.data(), sw, sh, weight};
        for (int start : {0, 1, 3}) {
          for (int count : {0, 1, 7, 8, 9, 31, 255}) {
            for (bool filter : {false, true}) {
              SCOPED_TRACE(testing::Message() << sw << "x" << sh << " raw " << raw << " weight " << weight << " start "
                                              << start << " count " << count << " filter " << filter);
              auto run = [&](const SampleKernels& k) {
                std::vector<uint32_t> got(n + 8, 0xDEADBEEF);
                (filter ? k.bilinear : k.nearest)(&ma[start], &mb[start], &got[start], count, p);
                return got;
              };
              const std::vector<uint32_t> want = run(scalar);
              for (const SampleKernels& k : simd) ASSERT_EQ(run(k), want);
              for (int i = 0; i < count; ++i) {
                ASSERT_EQ(want[start + i],
                          ReferenceSample(ma[start + i], mb[start + i], weight, src.data(), sw, sh, filter))
                    << "at " << i;
              }
            }
          }
        }
      }
    }
  }
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
  for (auto [src, sw, ok] : {std::tuple{&pixel, 1, true}, std::tuple{&pixel, 0, false},
                             std::tuple{&pixel, kMaxInputSide + 1, false}, std::tuple{(uint32_t*)nullptr, 1, false}}) {
    EXPECT_EQ(SampleFrame(scalar, &entry, &entry, &out, 1, 1, SampleParams{src, sw, 1, 0}, true), ok) << sw;
  }
}

TEST(DistorterTest, MapsAreBuiltOnlyWhenTheMorphPairOrSizeChanges) {
  MorphSet set;
  set.AddMorph();
  set.AddMorph();
  MorphMapCache cache;
  struct Step {
    int a, b, in_w, builds;
    bool edit_first;  // any change of the set
  };
  for (const Step& s :
       {Step{0, 1, 20, 2, false}, Step{0, 1, 20, 2, false}, Step{1, 2, 20, 3, false},    // old second reused
        Step{1, 2, 30, 5, false}, Step{1, 2, 30, 7, true}, Step{0, 0, 30, 8, false}}) {  // one morph: one map
    SCOPED_TRACE(testing::Message() << s.a << "," << s.b << " in_w " << s.in_w);
    if (s.edit_first) set.Edit(2).ease_to = 0.5f;
    ASSERT_TRUE(cache.Prepare(set, s.a, s.b, 20, 10, s.in_w, 10));
    EXPECT_EQ(cache.BuildCount(), s.builds);
  }
  EXPECT_EQ(cache.First(), cache.Second());
  EXPECT_FALSE(cache.Prepare(set, 0, 1, 20, 10, kMaxInputSide + 1, 10));
  EXPECT_FALSE(cache.Prepare(set, 0, 5, 20, 10, 20, 10));
}

TEST(DistorterTest, InputResolutionMustFitOrTheFrameIsLeft) {
  Rig rig(40, 30);
  rig.Configure({{"use_filtering", 0}, {"input_res", 1}, {"input_w", 32}, {"input_h", 16}});
  EXPECT_EQ(rig.effect->GetInputScreenRes(0, 40, 30), (orrery::Size{32, 16}));
  OwnedScreen wrong(40, 30), right(32, 16), out(40, 30, 7);
  nimbo::testing::FillRandom(right, 2);
  EXPECT_EQ(rig.Render(0, wrong, out), 1);
  EXPECT_EQ(nimbo::testing::RenderOnce(*rig.effect, {}, &out.screen), 1);
  EXPECT_EQ(out.pixels, std::vector<uint32_t>(40 * 30, 7u));
  ASSERT_EQ(rig.Render(0, right, out), 1);
  ExpectFrame(out, {}, {}, 0, right, false);
  // Off again: the input must have the output's size.
  rig.Configure({{"input_res", 0}});
  std::fill(out.pixels.begin(), out.pixels.end(), 7u);
  EXPECT_EQ(rig.Render(0, right, out), 1);
  EXPECT_EQ(out.pixels, std::vector<uint32_t>(40 * 30, 7u));
}

TEST(DistorterTest, SettingsKeysRoundTripThroughTheStore) {
  Rig rig(100, 50);
  rig.Configure();  // empty store: defaults written
  AsMorphEditing(rig.effect.get())->EditMorphs([](MorphSet& set, int32_t gw, int32_t gh) {
    int m = set.AddMorph();
    EXPECT_EQ(set.At(m).name, "New 1");
    EXPECT_TRUE(set.AddLinePair(m, {{0.1f, 0.2f}, {0.3f, 0.4f}}, {{0.5f, 0.6f}, {0.7f, 0.8f}}, gw, gh));
    EXPECT_TRUE(set.AddLinePair(m, {{0, 0}, {1, 1}}, {{1, 0}, {0, 1}}, gw, gh));
    const LinePair& l = set.At(m).lines[0];  // scaled to the 100 x 50 grid
    EXPECT_EQ(std::tuple(l.l1.p1.x, l.l1.p2.y, l.l2.p2.x, l.a), std::tuple(10.0f, 20.0f, 70.0f, 0.1f));
    for (int i = 0; i < kMaxLinePairs; ++i) EXPECT_TRUE(set.AddLinePair(0, {}, {{0, 0}, {1, 1}}, gw, gh));
    EXPECT_FALSE(set.AddLinePair(0, {}, {}, gw, gh));  // the 1001st is ignored
    MorphSet full;
    for (int32_t next = full.Count(); next < kMaxMorphs; ++next) ASSERT_EQ(full.AddMorph(), next);
    EXPECT_EQ(full.AddMorph(), -1);  // more would not survive a save and reload
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

  // Read back, the effect writes the same text.
  Rig copy(100, 50);
  ASSERT_TRUE(copy.host.store.Load(saved));
  copy.Configure();
  copy.host.store.Clear();
  copy.effect->UpdateConfig();
  EXPECT_EQ(copy.host.store.Text(), saved);
  // Counts in a hand-edited store are bounded, not trusted.
  copy.Configure({{"n_morphs", -4}});
  OwnedScreen in(100, 50), out(100, 50, 9);
  EXPECT_EQ(copy.Render(0, in, out), 1);  // no morphs: nothing drawn
  EXPECT_EQ(out.pixels[0], 9u);
}

}  // namespace
