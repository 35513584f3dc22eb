// ColorTracker: the match score, the window moments and axes, the search and
// its prediction, the tracking step's re-scan rule, the smoothing filter and
// the effect's published outputs.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <map>
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include "filters/color_tracker_match.h"
#include "filters/color_tracker_moments.h"
#include "filters/color_tracker_search.h"
#include "filters/smoothing_filter.h"
#include "orrery/services.h"
#include "package/cpu.h"
#include "support/test_host.h"

namespace {

using nimbo::CTracker;
using nimbo::testing::OwnedScreen;
using nimbo::testing::TestHost;

constexpr int32_t kColorTrackerIndex = 19;
constexpr uint32_t kObject = 0x2040E0;  // a saturated blue

// ---- scenes ---------------------------------------------------------------------
// A low-chroma texture (greys and browns) that the blue object stands out from.
void FillBackground(OwnedScreen& s, uint32_t seed) {
  std::mt19937 rng(seed);
  for (uint32_t& p : s.pixels) {
    uint32_t v = 60 + rng() % 120;
    uint32_t r = v + rng() % 20, g = v + rng() % 12, b = v - std::min<uint32_t>(v, rng() % 20);
    p = 0xFF000000u | (r << 16) | (g << 8) | b;
  }
}

void PaintDisc(OwnedScreen& s, double cx, double cy, double radius, uint32_t rgb) {
  for (int32_t y = 0; y < s.screen.height; ++y) {
    for (int32_t x = 0; x < s.screen.width; ++x) {
      if ((x - cx) * (x - cx) + (y - cy) * (y - cy) <= radius * radius) s.At(x, y) = 0xFF000000u | rgb;
    }
  }
}

// An ellipse with semi-axes a (along angle theta, y down) and b.
void PaintEllipse(OwnedScreen& s, double cx, double cy, double a, double b, double theta, uint32_t rgb) {
  const double c = std::cos(theta), sn = std::sin(theta);
  for (int32_t y = 0; y < s.screen.height; ++y) {
    for (int32_t x = 0; x < s.screen.width; ++x) {
      double u = (x - cx) * c + (y - cy) * sn, v = -(x - cx) * sn + (y - cy) * c;
      if ((u * u) / (a * a) + (v * v) / (b * b) <= 1.0) s.At(x, y) = 0xFF000000u | rgb;
    }
  }
}

// OwnedScreen's copy would keep pointing at the original's pixels.
OwnedScreen Copy(const OwnedScreen& from) {
  OwnedScreen to(from.screen.width, from.screen.height);
  to.pixels = from.pixels;
  to.screen.pixels = to.pixels.data();
  return to;
}

// ---- the match score ----------------------------------------------------------------
// The score computed independently from the colour-space definitions, in
// doubles wherever the definition does not truncate.
int32_t IndependentScore(uint32_t object, uint32_t pixel, double tolerance) {
  auto chroma = [](uint32_t c, double& cb, double& cr) {
    double r = (c >> 16) & 0xFF, g = (c >> 8) & 0xFF, b = c & 0xFF;
    cb = -0.148 * r - 0.291 * g + 0.439 * b;
    cr = 0.439 * r - 0.368 * g - 0.071 * b;
  };
  double cb, cr;
  chroma(object, cb, cr);
  float sum = float(cb * cb + cr * cr);
  double mag = std::sqrt(double(int64_t(sum)));
  int32_t kx = int32_t(float(cb) / float(mag) * 255.0f), ky = int32_t(float(cr) / float(mag) * 255.0f);
  int32_t xr = int32_t(-0.148 * kx + 0.439 * ky), xg = int32_t(-0.291 * kx - 0.368 * ky),
          xb = int32_t(0.439 * kx - 0.071 * ky);
  int32_t zr = int32_t(0.439 * kx + 0.148 * ky), zg = int32_t(-0.368 * kx + 0.291 * ky),
          zb = int32_t(-0.071 * kx - 0.439 * ky);
  int32_t tan_factor = int32_t(256.0 / std::tan(tolerance * 3.1415925 / 180.0));
  int64_t divisor = int64_t(std::max(std::trunc(mag), 1.0) * 256.0);
  int32_t r = (pixel >> 16) & 0xFF, g = (pixel >> 8) & 0xFF, b = pixel & 0xFF;
  int32_t x = (xr * r + xg * g + xb * b) >> 8;
  int32_t z = std::abs((zr * r + zg * g + zb * b) >> 8);
  int32_t t = (z * tan_factor) >> 8;
  if (x < t) return 0;
  int64_t m = std::min<int64_t>((int64_t(x - t) * 65536) / divisor, 255);
  return int32_t((m * m) >> 8);
}

TEST(ColorTrackerMatch, ScoreAgreesWithAnIndependentComputation) {
  for (uint32_t object : {0x0000FFu, kObject, 0xFF0000u, 0x20C040u, 0xE0E020u}) {
    for (float tolerance : {10.0f, 30.0f, 60.0f}) {
      nimbo::MatchParams p = nimbo::ComputeMatchParams(object, tolerance);
      // Every 7th colour of the cube, through the direct formula and the
      // table-driven kernel.
      std::vector<uint32_t> pixels;
      for (uint32_t c = 0; c < 0x1000000; c += 7) pixels.push_back(0xFF000000u | c);
      std::vector<uint32_t> stamps(pixels.size(), 0);
      std::vector<uint8_t> scores(pixels.size(), 0);
      nimbo::UpdateMatchSpanScalar(pixels.data(), stamps.data(), scores.data(), int32_t(pixels.size()), 1, p);
      int mismatches = 0;
      for (size_t i = 0; i < pixels.size(); ++i) {
        int32_t expected = IndependentScore(object, pixels[i], tolerance);
        if (nimbo::MatchScoreDirect(pixels[i], p) != expected || scores[i] != expected) ++mismatches;
      }
      EXPECT_EQ(mismatches, 0) << std::hex << object << " at " << std::dec << tolerance;
      // The object's own colour matches strongly; its opposite and grey do not.
      EXPECT_GE(nimbo::MatchScoreDirect(object, p), 200);
      EXPECT_EQ(nimbo::MatchScoreDirect(0xFFFFFF ^ object, p), 0);
      EXPECT_EQ(nimbo::MatchScoreDirect(0x808080, p), 0);
    }
  }
}

TEST(ColorTrackerMatch, ToleranceOutsideTheConeRangeIsClamped) {
  nimbo::MatchParams narrow = nimbo::ComputeMatchParams(0x0000FF, 0.0f);
  nimbo::MatchParams wide = nimbo::ComputeMatchParams(0x0000FF, 170.0f);
  nimbo::MatchParams nan = nimbo::ComputeMatchParams(0x0000FF, std::nanf(""));
  EXPECT_EQ(narrow.tan_factor, nimbo::ComputeMatchParams(0x0000FF, nimbo::kMinTolerance).tan_factor);
  EXPECT_EQ(wide.tan_factor, nimbo::ComputeMatchParams(0x0000FF, nimbo::kMaxTolerance).tan_factor);
  EXPECT_EQ(nan.tan_factor, nimbo::ComputeMatchParams(0x0000FF, 30.0f).tan_factor);
  EXPECT_GT(wide.tan_factor, 0);
  EXPECT_LT(narrow.tan_factor, 32768);  // the SIMD kernels multiply it as 16 bits
}

TEST(ColorTrackerMatch, SimdKernelsEqualTheScalarOneAndKeepStampedScores) {
  std::mt19937 rng(7);
  std::vector<nimbo::MatchSpanFn> kernels = {nimbo::UpdateMatchSpanSse2};
  if (nimbo::CpuHasAvx2()) kernels.push_back(nimbo::UpdateMatchSpanAvx2);
  for (float tolerance : {nimbo::kMinTolerance, 30.0f, nimbo::kMaxTolerance}) {
    nimbo::MatchParams p = nimbo::ComputeMatchParams(kObject, tolerance);
    for (int32_t count : {1, 3, 7, 8, 9, 31, 64, 257, 1001}) {
      for (int32_t offset : {0, 1, 3}) {
        std::vector<uint32_t> pixels(count + offset), stamps(count + offset);
        std::vector<uint8_t> scores(count + offset);
        for (size_t i = 0; i < pixels.size(); ++i) {
          // Half the pixels near the object colour so both outcomes occur.
          uint32_t noise = rng() & 0x1F1F1F;
          pixels[i] = (rng() & 1) ? (kObject ^ noise) : rng();
          stamps[i] = (rng() % 3 == 0) ? 5u : 4u;  // some already stamped for frame 5
          scores[i] = uint8_t(rng());              // stamped ones keep this byte
        }
        std::vector<uint32_t> ref_stamps = stamps;
        std::vector<uint8_t> ref_scores = scores;
        nimbo::UpdateMatchSpanScalar(pixels.data() + offset, ref_stamps.data() + offset, ref_scores.data() + offset,
                                     count, 5, p);
        for (nimbo::MatchSpanFn kernel : kernels) {
          std::vector<uint32_t> st = stamps;
          std::vector<uint8_t> sc = scores;
          kernel(pixels.data() + offset, st.data() + offset, sc.data() + offset, count, 5, p);
          EXPECT_EQ(st, ref_stamps) << count << "+" << offset;
          EXPECT_EQ(sc, ref_scores) << count << "+" << offset;
        }
      }
    }
  }
}

// ---- moments ----------------------------------------------------------------------------
// The moments as defined: running prefix sums per row for the centroid, then
// a second pass about the truncated centroid.
nimbo::WindowMoments MomentsByDefinition(const std::vector<uint8_t>& s, int32_t w, int32_t h) {
  nimbo::WindowMoments m;
  int64_t mass = 0, sx = 0, sy = 0;
  for (int32_t y = 0; y < h; ++y) {
    int64_t prefix = 0, row = 0;
    for (int32_t x = 0; x < w; ++x) {
      prefix += s[y * w + x];
      sx += prefix;
      row += s[y * w + x];
    }
    mass += row;
    sy += int64_t(y) * row;
  }
  if (mass == 0) return m;
  m.mass = mass;
  m.cy = int32_t(sy / mass);
  m.mean = int32_t(mass / (int64_t(w) * h));
  m.cx = int32_t(w - double(sx) / double(mass));
  int64_t mxx = 0, mxy = 0, myy = 0, n = 0;
  for (int32_t y = 0; y < h; ++y) {
    for (int32_t x = 0; x < w; ++x) {
      int64_t s2 = int64_t(s[y * w + x]) * s[y * w + x];
      mxx += int64_t(x - m.cx) * (x - m.cx) * s2;
      mxy += int64_t(x - m.cx) * (y - m.cy) * s2;
      myy += int64_t(y - m.cy) * (y - m.cy) * s2;
      n += s2;
    }
  }
  m.mxx = mxx / n;
  m.mxy = mxy / n;
  m.myy = myy / n;
  return m;
}

TEST(ColorTrackerMoments, OnePassSumsEqualTheDefinitionAndTheSimdRowsEqualTheScalarOnes) {
  std::mt19937 rng(11);
  for (int trial = 0; trial < 40; ++trial) {
    int32_t w = 1 + rng() % 150, h = 1 + rng() % 40;
    std::vector<uint8_t> s(size_t(w) * h, 0);
    // A blob plus sparse noise, with long zero runs between.
    int32_t bx = rng() % w, by = rng() % h;
    for (int32_t y = 0; y < h; ++y) {
      for (int32_t x = 0; x < w; ++x) {
        if (std::abs(x - bx) < 9 && std::abs(y - by) < 6) s[y * w + x] = uint8_t(150 + rng() % 106);
        else if (rng() % 50 == 0) s[y * w + x] = uint8_t(rng());
      }
    }
    nimbo::WindowMoments want = MomentsByDefinition(s, w, h);
    for (nimbo::RowSumsFn fn : {nimbo::AccumulateRowScalar, nimbo::SelectRowSums()}) {
      nimbo::WindowMoments got = nimbo::ComputeWindowMoments(s.data(), w, w, h, fn);
      EXPECT_EQ(got.mass, want.mass);
      EXPECT_EQ(got.cx, want.cx);
      EXPECT_EQ(got.cy, want.cy);
      EXPECT_EQ(got.mean, want.mean);
      EXPECT_EQ(got.mxx, want.mxx);
      EXPECT_EQ(got.mxy, want.mxy);
      EXPECT_EQ(got.myy, want.myy);
    }
  }
  if (nimbo::CpuHasAvx2()) {
    // Rows at every width to 200 and a full HD row, dense and sparse.
    for (int32_t w : {1, 7, 31, 32, 33, 63, 64, 65, 100, 199, 1920, 4001}) {
      for (int density : {1, 4, 100}) {
        std::vector<uint8_t> row(w);
        for (uint8_t& v : row) v = (rng() % density == 0) ? uint8_t(rng()) : 0;
        EXPECT_EQ(nimbo::AccumulateRowAvx2(row.data(), w), nimbo::AccumulateRowScalar(row.data(), w)) << w;
      }
    }
  }
}

TEST(ColorTrackerMoments, DiscAndEllipseGiveTheirCentreSpreadAndAxes) {
  const int32_t w = 160, h = 120;
  std::vector<uint8_t> s(size_t(w) * h, 0);
  auto blob = [&](auto inside) {
    std::fill(s.begin(), s.end(), 0);
    for (int32_t y = 0; y < h; ++y)
      for (int32_t x = 0; x < w; ++x)
        if (inside(x - 80.0, y - 60.0)) s[y * w + x] = 200;
    return nimbo::ComputeWindowMoments(s.data(), w, w, h, nimbo::AccumulateRowScalar);
  };
  // A disc of radius 20: variance R²/4 along every direction.
  nimbo::WindowMoments disc = blob([](double x, double y) { return x * x + y * y <= 400; });
  EXPECT_EQ(disc.cx, 80);
  EXPECT_EQ(disc.cy, 60);
  EXPECT_EQ(disc.mean, int32_t(disc.mass / (w * h)));
  EXPECT_NEAR(disc.mxx, 100, 3);
  EXPECT_NEAR(disc.myy, 100, 3);
  EXPECT_EQ(disc.mxy, 0);
  EXPECT_NEAR(std::sqrt(double(disc.axes.lambda1)), 10, 0.3);
  EXPECT_NEAR(std::sqrt(double(disc.axes.lambda2)), 10, 0.3);

  // An ellipse with semi-axes 40 and 12 at 30 degrees (clockwise on screen).
  const double theta = std::numbers::pi / 6, c = std::cos(theta), sn = std::sin(theta);
  nimbo::WindowMoments ellipse = blob([&](double x, double y) {
    double u = x * c + y * sn, v = -x * sn + y * c;
    return u * u / 1600 + v * v / 144 <= 1.0;
  });
  EXPECT_NEAR(ellipse.cx, 80, 1);
  EXPECT_NEAR(ellipse.cy, 60, 1);
  EXPECT_NEAR(std::sqrt(double(ellipse.axes.lambda1)), 20, 0.5);
  EXPECT_NEAR(std::sqrt(double(ellipse.axes.lambda2)), 6, 0.5);
  // Axis 1 is the major axis mirrored in the diagonal: along (sin, cos).
  const nimbo::Axis a1 = ellipse.axes.axis1, a2 = ellipse.axes.axis2;
  double len1 = std::hypot(a1.x, a1.y);
  EXPECT_NEAR(len1, 20, 1.5);
  EXPECT_NEAR(std::fabs((a1.x * sn + a1.y * c) / len1), 1.0, 0.01);
  double len2 = std::hypot(a2.x, a2.y);
  EXPECT_NEAR(len2, 6, 1.5);
  EXPECT_NEAR(std::fabs((a2.x * c - a2.y * sn) / len2), 1.0, 0.05);
}

TEST(ColorTrackerMoments, AxesOfAlignedAndEmptyMoments) {
  // Aligned with the frame: mxx - λ1 and mxy are both 0, so axis 1 is (0, 0);
  // axis 2 is (√λ2, 0).
  nimbo::Axes aligned = nimbo::ComputeAxes(900, 0, 100);
  EXPECT_EQ(aligned.lambda1, 900);
  EXPECT_EQ(aligned.lambda2, 100);
  EXPECT_EQ(aligned.axis1.x, 0);
  EXPECT_EQ(aligned.axis1.y, 0);
  EXPECT_EQ(aligned.axis2.x, 10);
  EXPECT_EQ(aligned.axis2.y, 0);
  // At 45 degrees both branches meet: (1, 1) and (1, -1) scaled.
  nimbo::Axes diagonal = nimbo::ComputeAxes(250, 150, 250);
  EXPECT_EQ(diagonal.lambda1, 400);
  EXPECT_EQ(diagonal.lambda2, 100);
  EXPECT_EQ(diagonal.axis1.x, 14);
  EXPECT_EQ(diagonal.axis1.y, 14);
  EXPECT_EQ(diagonal.axis2.x, 7);
  EXPECT_EQ(diagonal.axis2.y, -7);
  nimbo::WindowMoments empty = nimbo::ComputeWindowMoments(std::vector<uint8_t>(64, 0).data(), 8, 8, 8,
                                                           nimbo::AccumulateRowScalar);
  EXPECT_EQ(empty.cx, 0);
  EXPECT_EQ(empty.cy, 0);
  EXPECT_EQ(empty.mean, 0);
}

// ---- search, prediction, tracking step -------------------------------------------------
TEST(ColorTrackerSearch, FindsADiscFromAWideWindowAndFromTheWholeScreen) {
  OwnedScreen frame(320, 240);
  FillBackground(frame, 3);
  PaintDisc(frame, 211, 87, 18, kObject);
  CTracker tracker(320, 240);
  tracker.SetObject(kObject, 30.0f, 20);
  for (bool whole : {true, false}) {
    nimbo::SearchResult r = whole ? tracker.ScanWholeScreen(frame.pixels.data())
                                  : tracker.Search(frame.pixels.data(), 180, 110, 150, 120);
    EXPECT_NEAR(r.x * 320, 211, 1.0);
    EXPECT_NEAR(r.y * 240, 87, 1.0);
    EXPECT_GT(r.score * 100 / 255, 80);
    EXPECT_GT(r.passes, 3);
    // The chosen window holds the whole disc: about two to four disc areas.
    double area = double(r.window_w) * r.window_h, disc = std::numbers::pi * 18 * 18;
    EXPECT_GE(area, 1.5 * disc);
    EXPECT_LE(area, 4.5 * disc);
    EXPECT_NEAR(r.length1, 9, 1.0);
  }
  // A window that has shrunk away to nothing reports all zeros and 1 x 1.
  nimbo::SearchResult none = tracker.Search(frame.pixels.data(), -50, -50, 20, 20);
  EXPECT_EQ(none.passes, 0);
  EXPECT_EQ(none.score, 0);
  EXPECT_EQ(none.window_w, 1);
  EXPECT_EQ(none.window_h, 1);
}

TEST(ColorTrackerSearch, PredictionUsesTheLastTwoEntriesAndATenthOfASecondForNoTime) {
  CTracker tracker(200, 100);
  tracker.AppendHistory({0.25f, 0.50f, 10, 10, 1.0, 5.0f, 3.0f});
  // One or two entries: no velocity; the window grows with the time gone:
  // e = -0.25 s, e²/2·100 = 3.125 screens, plus twice the longer axis.
  nimbo::Prediction one = tracker.Predict(1.25);
  EXPECT_EQ(one.cx, 50);
  EXPECT_EQ(one.cy, 50);
  EXPECT_EQ(one.w, 625 + 10);
  EXPECT_EQ(one.h, 312 + 10);
  tracker.AppendHistory({0.30f, 0.50f, 10, 10, 1.5, 5.0f, 3.0f});
  EXPECT_EQ(tracker.Predict(1.5).cx, 60);  // two entries: still no velocity

  // Three entries, the last two at the same time: dt is taken as 0.1 s, so
  // v = (0.40 - 0.30) / 0.1 = 1 screen per second along x.
  tracker.AppendHistory({0.40f, 0.50f, 10, 10, 1.5, 5.0f, 3.0f});
  nimbo::Prediction p = tracker.Predict(1.6);
  // e = -0.1: the centre goes back against the velocity, by 0.1 screens.
  EXPECT_NEAR(p.cx, 0.30 * 200, 1);
  EXPECT_EQ(p.cy, 50);
  EXPECT_NEAR(p.w, (0.5 + 1.0) * 200 + 10, 1);
  EXPECT_NEAR(p.h, 0.5 * 100 + 10, 1);

  // A clock far ahead gives a huge window, clamped, not undefined.
  nimbo::Prediction far = tracker.Predict(1e12);
  EXPECT_GT(far.w, 200);
  EXPECT_LE(far.w, 800);
}

TEST(ColorTrackerStep, AFrameWithoutTheColourKeepsThePositionAndReScans) {
  OwnedScreen with(160, 120), without(160, 120);
  FillBackground(with, 5);
  FillBackground(without, 5);
  CTracker tracker(160, 120);
  tracker.SetObject(kObject, 30.0f, 20);
  double now = 0;
  nimbo::TrackResult r;
  for (int i = 0; i < 6; ++i, now += 0.04) {
    OwnedScreen frame = Copy(with);
    PaintDisc(frame, 40 + 4 * i, 60, 10, kObject);
    r = tracker.Track(frame.pixels.data(), now);
    EXPECT_EQ(r.scanned, i == 0);
    EXPECT_FALSE(r.lost);
    // From the third entry on the prediction has a velocity; before it the
    // window is small on so small a frame and may cut the disc.
    EXPECT_NEAR(r.x * 160, 40 + 4 * i, i < 3 ? 10.0 : 1.0) << i;
  }
  EXPECT_EQ(tracker.HistoryCount(), 6);
  const float last_x = r.x, last_y = r.y;
  // Every frame without the colour is a poor match: it answers the last
  // known position and leaves the history empty, so each next frame scans the
  // whole screen again.
  for (int i = 0; i < 3; ++i, now += 0.04) {
    OwnedScreen frame = Copy(without);
    r = tracker.Track(frame.pixels.data(), now);
    EXPECT_TRUE(r.lost);
    EXPECT_EQ(r.scanned, i > 0);
    EXPECT_EQ(r.x, last_x);
    EXPECT_EQ(r.y, last_y);
    EXPECT_EQ(r.window_w, 320);
    EXPECT_EQ(tracker.HistoryCount(), 0);
  }
  // The object comes back elsewhere: the scan finds it at once.
  OwnedScreen frame = Copy(with);
  PaintDisc(frame, 120, 30, 10, kObject);
  r = tracker.Track(frame.pixels.data(), now);
  EXPECT_TRUE(r.scanned);
  EXPECT_FALSE(r.lost);
  EXPECT_NEAR(r.x * 160, 120, 1.0);
  EXPECT_NEAR(r.y * 120, 30, 1.0);
}

TEST(ColorTrackerStep, RescanLimitZeroNeverForcesAReScan) {
  OwnedScreen empty(96, 64);
  FillBackground(empty, 9);
  CTracker tracker(96, 64);
  tracker.SetObject(kObject, 30.0f, 0);
  for (int i = 0; i < 6; ++i) {
    OwnedScreen frame = Copy(empty);
    nimbo::TrackResult r = tracker.Track(frame.pixels.data(), 0.04 * i);
    EXPECT_FALSE(r.lost);
    EXPECT_EQ(r.scanned, i == 0);
    EXPECT_EQ(tracker.HistoryCount(), i + 1);
  }
}

TEST(ColorTrackerStep, DebugOverlayShowsTheMatchMapWindowAndTexts) {
  OwnedScreen frame(320, 240, 0xFF000000);
  PaintEllipse(frame, 200, 150, 30, 12, 0.5, 0x0000FF);
  CTracker tracker(320, 240);
  tracker.SetObject(0x0000FF, 30.0f, 20);
  tracker.SetDebug(true);
  nimbo::TrackResult r = tracker.Track(frame.pixels.data(), 0.0);
  ASSERT_FALSE(r.lost);
  auto count = [&](int32_t x0, int32_t y0, int32_t x1, int32_t y1, uint32_t color) {
    int n = 0;
    for (int32_t y = y0; y < y1; ++y)
      for (int32_t x = x0; x < x1; ++x) n += frame.At(x, y) == color;
    return n;
  };
  EXPECT_GT(count(20, 20, 200, 28, 0xFFFFFFFF), 40);   // "match score=..%"
  EXPECT_GT(count(20, 40, 200, 48, 0xFFFF0000), 60);   // "RE-SCANNING WHOLE SCREEN"
  EXPECT_GT(count(170, 120, 230, 180, 0xFFFAFAFA), 900);  // the grey match map (score 250)
  EXPECT_GT(count(0, 0, 320, 240, 0xFFA00000), 100);  // the first (whole-screen) window's outline
  EXPECT_GT(count(0, 0, 320, 240, 0xFF00FF00), 5);    // axis 1
}

// ---- smoothing ---------------------------------------------------------------------------
TEST(ColorTrackerSmoothing, PassesStillsQuietlyFollowsMotionAndWrapsOrientation) {
  nimbo::SmoothingFilter none(0.0);
  EXPECT_EQ(none.Push(0.3), 0.3);
  EXPECT_EQ(none.Push(0.7), 0.7);

  // A still value with one-step quantisation noise is calmed.
  nimbo::SmoothingFilter still(1.0);
  double spread = 0;
  for (int i = 0; i < 200; ++i) {
    double v = still.Push(0.5 + ((i % 2) ? 0.0005 : 0.0));
    if (i > 50) spread = std::max(spread, std::fabs(v - 0.50025));
  }
  EXPECT_LT(spread, 0.0002);

  // A ramp of 8 pixels per frame on a 1920-wide screen lags under a pixel.
  nimbo::SmoothingFilter ramp(1.0);
  double lag = 0;
  for (int i = 0; i < 100; ++i) lag = i * 8.0 / 1920 - ramp.Push(i * 8.0 / 1920);
  EXPECT_LT(lag * 1920, 1.0);
  EXPECT_GE(lag, 0.0);

  // A jump (re-acquired elsewhere) is taken within a few frames.
  nimbo::SmoothingFilter jump(1.0);
  for (int i = 0; i < 20; ++i) jump.Push(0.2);
  double after = 0;
  for (int i = 0; i < 3; ++i) after = jump.Push(0.7);
  EXPECT_NEAR(after, 0.7, 0.001);

  // Orientation is circular: from 0.95 to 0.05 goes forward through 0.
  nimbo::SmoothingFilter turn(1.0, 1.0);
  turn.Push(0.95);
  double o = turn.Push(0.05);
  EXPECT_TRUE(o > 0.95 || o <= 0.05) << o;
  for (int i = 0; i < 50; ++i) o = turn.Push(0.05);
  EXPECT_NEAR(o, 0.05, 1e-3);
  EXPECT_EQ(turn.Push(std::nan("")), o);  // a NaN sample is ignored
}

// ---- the effect -----------------------------------------------------------------------------
std::map<std::string, float> Outputs(const orrery::Effect* fx) {
  std::map<std::string, float> values;
  orrery::VisitOutputValues(
      fx, [](void* user, const char* name, const char*, float value) {
        (*static_cast<std::map<std::string, float>*>(user))[name] = value;
      },
      &values);
  return values;
}

class RecordingDesktop final : public orrery::DesktopService {
 public:
  RecordingDesktop() { orrery::SetDesktopService(this); }
  ~RecordingDesktop() { orrery::SetDesktopService(nullptr); }
  int32_t ScreenWidth() override { return 1000; }
  int32_t ScreenHeight() override { return 500; }
  void MoveCursor(int32_t x, int32_t y) override { moves.push_back({x, y}); }
  std::vector<std::pair<int32_t, int32_t>> moves;
};

TEST(ColorTrackerEffect, SettingsAndOutputsAreDeclaredInOrder) {
  TestHost host(64, 48);
  auto fx = nimbo::testing::MakeEffect(kColorTrackerIndex, &host);
  ASSERT_TRUE(fx);
  EXPECT_STREQ(fx->GetName(), "nimbo one\\ColorTracker");
  fx->UpdateConfig();
  const std::string text = host.store.Text();
  size_t at = 0;
  for (const char* key :
       {"object_color", "tolerance", "smooth", "pick_x", "pick_y", "debuginfo", "rescanlimit", "attach_mouse"}) {
    size_t found = text.find(std::string("name=\"") + key + "\"");
    ASSERT_NE(found, std::string::npos) << key;
    EXPECT_GT(found, at) << key;
    at = found;
  }
  EXPECT_EQ(host.store.GetInt("object_color", -1), 0x0000FF);
  EXPECT_EQ(host.store.GetInt("rescanlimit", -1), 20);

  struct Seen {
    std::vector<std::string> names, descriptions;
  } seen;
  orrery::VisitOutputValues(
      fx.get(), [](void* user, const char* name, const char* description, float) {
        static_cast<Seen*>(user)->names.push_back(name);
        static_cast<Seen*>(user)->descriptions.push_back(description);
      },
      &seen);
  EXPECT_EQ(seen.names, (std::vector<std::string>{"track x", "track y", "orientation"}));
  EXPECT_EQ(seen.descriptions[0], "x coordinate of tracked point");
  EXPECT_EQ(seen.descriptions[2], "orientation of tracked object");
  const orrery::Effect* gone = fx.get();
  fx.reset();
  EXPECT_TRUE(Outputs(gone).empty());
}

TEST(ColorTrackerEffect, PublishedValuesFollowAMovingDiscAndTheCursorFollows) {
  RecordingDesktop desktop;
  TestHost host(240, 160);
  host.store.Load(
      "<Settings><ConfigData><data name=\"object_color\" type=\"int\">2113760</data>"
      "<data name=\"attach_mouse\" type=\"int\">1</data></ConfigData></Settings>");
  auto fx = nimbo::testing::MakeEffect(kColorTrackerIndex, &host);
  fx->UpdateConfig();
  fx->Initialize();
  OwnedScreen background(240, 160), out(240, 160);
  FillBackground(background, 21);
  double worst = 0;
  for (int i = 0; i < 40; ++i) {
    host.time_ms = 40 * i;
    double cx = 40 + 4 * i, cy = 50 + 1.5 * i;
    OwnedScreen in = Copy(background);
    PaintDisc(in, cx, cy, 12, kObject);
    ASSERT_EQ(nimbo::testing::RenderOnce(*fx, {&in.screen}, &out.screen), 1);
    EXPECT_TRUE(out.pixels == in.pixels);  // the picture passes through
    auto values = Outputs(fx.get());
    double px = (values["track x"] + 1) / 2 * 240, py = (values["track y"] + 1) / 2 * 160;
    if (i >= 3) worst = std::max(worst, std::hypot(px - cx, py - cy));
    EXPECT_GE(values["orientation"], -1.0f);
    EXPECT_LE(values["orientation"], 1.0f);
  }
  EXPECT_LT(worst, 2.0);
  // The cursor goes to the smoothed point, y mirrored: (1000·x, (1 - y)·500).
  ASSERT_EQ(desktop.moves.size(), 40u);
  auto values = Outputs(fx.get());
  EXPECT_EQ(desktop.moves.back().first, int32_t(1000 * ((values["track x"] + 1) / 2)));
  EXPECT_NEAR(desktop.moves.back().second, (1 - (values["track y"] + 1) / 2) * 500, 1);
}

TEST(ColorTrackerEffect, FramesOfFourPixelsOrLessFailAndALostObjectHoldsItsPlace) {
  TestHost host(64, 48);
  auto fx = nimbo::testing::MakeEffect(kColorTrackerIndex, &host);
  fx->UpdateConfig();
  fx->Initialize();
  for (auto [w, h] : {std::pair{4, 4}, {4, 100}, {100, 4}}) {
    OwnedScreen in(w, h), out(w, h);
    EXPECT_EQ(nimbo::testing::RenderOnce(*fx, {&in.screen}, &out.screen), 0) << w << "x" << h;
  }
  OwnedScreen in(64, 48, 0xFF000000), out(64, 48), small_out(32, 24);
  EXPECT_EQ(nimbo::testing::RenderOnce(*fx, {&in.screen}, &small_out.screen), 0);  // sizes differ
  EXPECT_EQ(nimbo::testing::RenderOnce(*fx, {}, &out.screen), 0);                   // no input

  PaintDisc(in, 20, 30, 6, 0x0000FF);
  for (int i = 0; i < 5; ++i) {
    host.time_ms = 40 * i;
    ASSERT_EQ(nimbo::testing::RenderOnce(*fx, {&in.screen}, &out.screen), 1);
  }
  auto seen = Outputs(fx.get());
  EXPECT_NEAR((seen["track x"] + 1) / 2 * 64, 20, 1.0);
  OwnedScreen blank(64, 48, 0xFF000000);
  for (int i = 5; i < 10; ++i) {
    host.time_ms = 40 * i;
    ASSERT_EQ(nimbo::testing::RenderOnce(*fx, {&blank.screen}, &out.screen), 1);
    auto now = Outputs(fx.get());
    EXPECT_NEAR(now["track x"], seen["track x"], 1e-4);
    EXPECT_NEAR(now["track y"], seen["track y"], 1e-4);
  }
}

}  // namespace
