// ColorTracker: the match score, the window moments and axes, the search and
// its prediction, the tracking step's re-scan rule, the smoothing filter and
// the effect's published outputs.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <map>
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include "color_tracker_match.h"
#include "color_tracker_moments.h"
#include "color_tracker_search.h"
#include "shared/smoothing_filter.h"
#include "orrery/services.h"
#include "core/cpu.h"
#include "test_host.h"

namespace {

using nimbo::CTracker;
using nimbo::testing::OwnedScreen;
using nimbo::testing::RenderOnce;
using nimbo::testing::TestHost;

constexpr char kColorTracker[] = "ColorTracker";
constexpr uint32_t kObject = 0x2040E0;  // a saturated blue

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

// A low-chroma texture (greys and browns, the same for the same seed) with a
// disc of the object's colour when radius > 0.
OwnedScreen Scene(int32_t w, int32_t h, uint32_t seed, double cx = 0, double cy = 0, double radius = 0) {
  OwnedScreen s(w, h);
  std::mt19937 rng(seed);
  for (uint32_t& p : s.pixels) {
    uint32_t v = 60 + rng() % 120;
    uint32_t r = v + rng() % 20, g = v + rng() % 12, b = v - std::min<uint32_t>(v, rng() % 20);
    p = 0xFF000000u | (r << 16) | (g << 8) | b;
  }
  if (radius > 0) PaintEllipse(s, cx, cy, radius, radius, 0, kObject);
  return s;
}

// The score computed independently from the colour-space definitions, in
// doubles wherever the definition does not truncate.
int32_t IndependentScore(uint32_t object, uint32_t pixel, double tolerance) {
  double r0 = (object >> 16) & 0xFF, g0 = (object >> 8) & 0xFF, b0 = object & 0xFF;
  double cb = -0.148 * r0 - 0.291 * g0 + 0.439 * b0, cr = 0.439 * r0 - 0.368 * g0 - 0.071 * b0;
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
  int32_t t = (std::abs((zr * r + zg * g + zb * b) >> 8) * tan_factor) >> 8;
  if (x < t) return 0;
  int64_t m = std::min<int64_t>((int64_t(x - t) * 65536) / divisor, 255);
  return int32_t((m * m) >> 8);
}

TEST(ColorTrackerMatch, ScoreAgreesWithAnIndependentComputationAndToleranceIsClamped) {
  // Every 7th colour of the cube, through the direct formula and the table-driven kernel.
  std::vector<uint32_t> pixels;
  for (uint32_t c = 0; c < 0x1000000; c += 7) pixels.push_back(0xFF000000u | c);
  for (uint32_t object : {0x0000FFu, kObject, 0xFF0000u, 0x20C040u, 0xE0E020u}) {
    // NaN takes the default 30 degrees: 256 / tan(30 * 3.1415925 / 180) = 443.4 -> 443.
    EXPECT_EQ(nimbo::ComputeMatchParams(object, std::nanf("")).tan_factor, 443);
    // {asked, effective}: out-of-range tolerances clamp, NaN takes the default.
    for (auto [asked, tolerance] : {std::pair{0.0f, nimbo::kMinTolerance}, {10.0f, 10.0f}, {60.0f, 60.0f},
                                    {170.0f, nimbo::kMaxTolerance}}) {
      SCOPED_TRACE(testing::Message() << std::hex << object << std::dec << " at " << asked);
      nimbo::MatchParams p = nimbo::ComputeMatchParams(object, asked);
      std::vector<uint32_t> stamps(pixels.size());
      std::vector<uint8_t> scores(pixels.size());
      nimbo::MatchSpanScalar(pixels.data(), stamps.data(), scores.data(), int32_t(pixels.size()), 1, p);
      int mismatches = 0;
      for (size_t i = 0; i < pixels.size(); ++i) {
        int32_t expected = IndependentScore(object, pixels[i], tolerance);
        mismatches += nimbo::MatchScoreDirect(pixels[i], p) != expected || scores[i] != expected;
      }
      EXPECT_EQ(mismatches, 0);
      // The object's own colour matches strongly (in a cone wider than its
      // rounding); its opposite and grey do not.
      EXPECT_TRUE(asked < 10.0f || nimbo::MatchScoreDirect(object, p) >= 200);
      EXPECT_EQ(nimbo::MatchScoreDirect(0xFFFFFF ^ object, p), 0);
      EXPECT_EQ(nimbo::MatchScoreDirect(0x808080, p), 0);
    }
  }
}

TEST(ColorTrackerMatch, SimdKernelsEqualTheScalarOneAndKeepStampedScores) {
  std::mt19937 rng(7);
  std::vector<nimbo::MatchSpanFn> kernels = {nimbo::MatchSpanScalar, nimbo::MatchSpanSse2};
  if (nimbo::CpuHasAvx2()) kernels.push_back(nimbo::MatchSpanAvx2);
  for (float tolerance : {nimbo::kMinTolerance, 30.0f, nimbo::kMaxTolerance}) {
    nimbo::MatchParams p = nimbo::ComputeMatchParams(kObject, tolerance);
    for (int32_t count : {1, 3, 7, 8, 9, 31, 64, 257, 1001}) {
      for (int32_t offset : {0, 1, 3}) {
        SCOPED_TRACE(testing::Message() << tolerance << ": " << count << "+" << offset);
        std::vector<uint32_t> pixels(count + offset), stamps(count + offset);
        std::vector<uint8_t> scores(count + offset);
        for (size_t i = 0; i < pixels.size(); ++i) {
          // Half the pixels near the object colour so both outcomes occur;
          // some already stamped for frame 5, which keep their score byte.
          pixels[i] = (rng() & 1) ? (kObject ^ (rng() & 0x1F1F1F)) : rng();
          stamps[i] = (rng() % 3 == 0) ? 5u : 4u;
          scores[i] = uint8_t(rng());
        }
        std::vector<std::pair<std::vector<uint32_t>, std::vector<uint8_t>>> out(kernels.size(), {stamps, scores});
        for (size_t k = 0; k < kernels.size(); ++k) {
          kernels[k](pixels.data() + offset, out[k].first.data() + offset, out[k].second.data() + offset, count, 5, p);
          EXPECT_EQ(out[k], out[0]) << "kernel " << k;  // kernel 0 is the scalar one
        }
      }
    }
  }
}

// The moments as defined: running prefix sums per row for the centroid, then
// a second pass about the truncated centroid.
std::array<int64_t, 7> MomentsByDefinition(const std::vector<uint8_t>& s, int32_t w, int32_t h) {
  int64_t mass = 0, sx = 0, sy = 0;  // sx: the row prefix sums, summed
  for (int32_t i = 0; i < w * h; ++i) {
    mass += s[i];
    sx += int64_t(s[i]) * (w - i % w);
    sy += int64_t(s[i]) * (i / w);
  }
  if (mass == 0) return {};
  int32_t cx = int32_t(w - double(sx) / double(mass)), cy = int32_t(sy / mass);
  int64_t mxx = 0, mxy = 0, myy = 0, n = 0;
  for (int32_t i = 0; i < w * h; ++i) {
    int64_t s2 = int64_t(s[i]) * s[i], dx = i % w - cx, dy = i / w - cy;
    mxx += dx * dx * s2;
    mxy += dx * dy * s2;
    myy += dy * dy * s2;
    n += s2;
  }
  return {mass, cx, cy, mass / (int64_t(w) * h), mxx / n, mxy / n, myy / n};
}

TEST(ColorTrackerMoments, OnePassSumsEqualTheDefinitionAndTheSimdRowsEqualTheScalarOnes) {
  std::mt19937 rng(11);
  for (int trial = 0; trial < 40; ++trial) {
    int32_t w = 1 + rng() % 150, h = 1 + rng() % 40;
    SCOPED_TRACE(testing::Message() << w << "x" << h);
    std::vector<uint8_t> s(size_t(w) * h, 0);
    // A blob plus sparse noise, with long zero runs between.
    int32_t bx = rng() % w, by = rng() % h;
    for (int32_t i = 0; i < w * h; ++i) {
      if (std::abs(i % w - bx) < 9 && std::abs(i / w - by) < 6) s[i] = uint8_t(150 + rng() % 106);
      else if (rng() % 50 == 0) s[i] = uint8_t(rng());
    }
    for (nimbo::RowSumsFn fn : {nimbo::RowSumsScalar, nimbo::RowSumsKernel()}) {
      nimbo::WindowMoments m = nimbo::ComputeWindowMoments(s.data(), w, w, h, fn);
      EXPECT_EQ((std::array<int64_t, 7>{m.mass, m.cx, m.cy, m.mean, m.mxx, m.mxy, m.myy}),
                MomentsByDefinition(s, w, h));
    }
  }
  if (!nimbo::CpuHasAvx2()) return;
  // Rows at odd widths around the vector sizes and a full HD row, dense and sparse.
  for (int32_t w : {1, 7, 31, 32, 33, 63, 64, 65, 100, 199, 1920, 4001}) {
    for (int density : {1, 4, 100}) {
      std::vector<uint8_t> row(w);
      for (uint8_t& v : row) v = (rng() % density == 0) ? uint8_t(rng()) : 0;
      EXPECT_EQ(nimbo::RowSumsAvx2(row.data(), w), nimbo::RowSumsScalar(row.data(), w)) << w;
    }
  }
}

TEST(ColorTrackerMoments, DiscAndEllipseGiveTheirCentreSpreadAndAxes) {
  // Semi-axes a and b at theta (clockwise on screen); √λ is half the semi-axis.
  struct Shape { double a, b, theta; };
  for (Shape shape : {Shape{20, 20, 0}, Shape{40, 12, std::numbers::pi / 6}}) {
    SCOPED_TRACE(testing::Message() << shape.a << "x" << shape.b);
    OwnedScreen blob(160, 120, 0xFF000000);
    PaintEllipse(blob, 80, 60, shape.a, shape.b, shape.theta, 0xFFFFFF);
    std::vector<uint8_t> s(blob.pixels.size());
    for (size_t i = 0; i < s.size(); ++i) s[i] = (blob.pixels[i] & 0xFF) ? 200 : 0;
    nimbo::WindowMoments m = nimbo::ComputeWindowMoments(s.data(), 160, 160, 120, nimbo::RowSumsScalar);
    EXPECT_NEAR(m.cx, 80, 1);
    EXPECT_NEAR(m.cy, 60, 1);
    EXPECT_NEAR(std::sqrt(double(m.axes.lambda1)), shape.a / 2, 0.5);
    EXPECT_NEAR(std::sqrt(double(m.axes.lambda2)), shape.b / 2, 0.5);
    if (shape.a == shape.b) {  // a disc: no cross moment, so no defined axes
      EXPECT_EQ(m.mxy, 0);
      continue;
    }
    const nimbo::Axis a1 = m.axes.axis1, a2 = m.axes.axis2;
    double len1 = std::hypot(a1.x, a1.y), len2 = std::hypot(a2.x, a2.y);
    EXPECT_NEAR(len1, shape.a / 2, 1.5);
    EXPECT_NEAR(len2, shape.b / 2, 1.5);
    // Axis 1 is the major axis mirrored in the diagonal: along (sin, cos).
    const double c = std::cos(shape.theta), sn = std::sin(shape.theta);
    EXPECT_NEAR(std::fabs((a1.x * sn + a1.y * c) / len1), 1.0, 0.01);
    EXPECT_NEAR(std::fabs((a2.x * c - a2.y * sn) / len2), 1.0, 0.05);
  }
}

TEST(ColorTrackerMoments, AxesOfAlignedDiagonalAndEmptyMoments) {
  // Aligned with the frame: mxx - λ1 and mxy are both 0, so axis 1 is (0, 0).
  // At 45 degrees both branches meet: (1, 1) and (1, -1) scaled.
  struct Case { int64_t mxx, mxy, myy, l1, l2; int32_t a1x, a1y, a2x, a2y; };
  for (Case k : {Case{900, 0, 100, 900, 100, 0, 0, 10, 0}, Case{250, 150, 250, 400, 100, 14, 14, 7, -7}}) {
    SCOPED_TRACE(k.mxy);
    nimbo::Axes a = nimbo::ComputeAxes(k.mxx, k.mxy, k.myy);
    EXPECT_EQ((std::array<int64_t, 2>{a.lambda1, a.lambda2}), (std::array<int64_t, 2>{k.l1, k.l2}));
    EXPECT_EQ((std::array<int32_t, 4>{a.axis1.x, a.axis1.y, a.axis2.x, a.axis2.y}),
              (std::array<int32_t, 4>{k.a1x, k.a1y, k.a2x, k.a2y}));
  }
  std::vector<uint8_t> zeros(64, 0);
  nimbo::WindowMoments empty = nimbo::ComputeWindowMoments(zeros.data(), 8, 8, 8, nimbo::RowSumsScalar);
  EXPECT_EQ(empty.cx + empty.cy + empty.mean, 0);
}

TEST(ColorTrackerSearch, FindsADiscFromAWideWindowAndFromTheWholeScreen) {
  OwnedScreen frame = Scene(320, 240, 3, 211, 87, 18);
  CTracker tracker(320, 240);
  tracker.SetObject(kObject, 30.0f, 20);
  for (bool whole : {true, false}) {
    SCOPED_TRACE(whole);
    nimbo::SearchResult r = whole ? tracker.ScanWholeScreen(frame.pixels.data())
                                  : tracker.Search(frame.pixels.data(), 180, 110, 150, 120);
    EXPECT_NEAR(r.x * 320, 211, 1.0);
    EXPECT_NEAR(r.y * 240, 87, 1.0);
    EXPECT_GT(r.score * 100 / 255, 80);
    // The chosen window holds the whole disc: about two to four disc areas.
    double area = double(r.window_w) * r.window_h, disc = std::numbers::pi * 18 * 18;
    EXPECT_GE(area, 1.5 * disc);
    EXPECT_LE(area, 4.5 * disc);
    EXPECT_NEAR(r.length1, 9, 1.0);
  }
  // A window that has shrunk away to nothing reports all zeros and 1 x 1.
  nimbo::SearchResult none = tracker.Search(frame.pixels.data(), -50, -50, 20, 20);
  EXPECT_EQ((std::array<int32_t, 4>{none.passes, none.score, none.window_w, none.window_h}),
            (std::array<int32_t, 4>{0, 0, 1, 1}));
}

TEST(ColorTrackerSearch, PredictionUsesTheLastTwoEntriesAndATenthOfASecondForNoTime) {
  CTracker tracker(200, 100);
  tracker.AppendHistory({0.25f, 0.50f, 10, 10, 1.0, 5.0f, 3.0f});
  // One or two entries: no velocity; the window grows with the time gone:
  // e = -0.25 s, e²/2·100 = 3.125 screens, plus twice the longer axis.
  nimbo::Prediction one = tracker.Predict(1.25);
  EXPECT_EQ((std::array<int32_t, 4>{one.cx, one.cy, one.w, one.h}), (std::array<int32_t, 4>{50, 50, 635, 322}));
  tracker.AppendHistory({0.30f, 0.50f, 10, 10, 1.5, 5.0f, 3.0f});
  EXPECT_EQ(tracker.Predict(1.5).cx, 60);
  // Three entries, the last two at the same time: dt is taken as 0.1 s, so
  // v = (0.40 - 0.30) / 0.1 = 1 screen per second along x; e = -0.1 takes the
  // centre back against the velocity by 0.1 screens.
  tracker.AppendHistory({0.40f, 0.50f, 10, 10, 1.5, 5.0f, 3.0f});
  nimbo::Prediction p = tracker.Predict(1.6);
  EXPECT_NEAR(p.cx, 0.30 * 200, 1);
  EXPECT_EQ(p.cy, 50);
  EXPECT_NEAR(p.w, (0.5 + 1.0) * 200 + 10, 1);
  EXPECT_NEAR(p.h, 0.5 * 100 + 10, 1);
  // A clock far ahead gives a huge window, clamped, not undefined.
  int32_t far_w = tracker.Predict(1e12).w;
  EXPECT_TRUE(far_w > 200 && far_w <= 800) << far_w;
}

TEST(ColorTrackerStep, AFrameWithoutTheColourKeepsThePositionAndReScansUnlessTheLimitIsZero) {
  CTracker tracker(160, 120);
  tracker.SetObject(kObject, 30.0f, 20);
  double now = 0;
  nimbo::TrackResult r;
  for (int i = 0; i < 6; ++i, now += 0.04) {
    r = tracker.Track(Scene(160, 120, 5, 40 + 4 * i, 60, 10).pixels.data(), now);
    EXPECT_EQ(r.scanned, i == 0) << i;
    EXPECT_FALSE(r.lost) << i;
    // From the third entry on the prediction has a velocity; before it the
    // window is small on so small a frame and may cut the disc.
    EXPECT_NEAR(r.x * 160, 40 + 4 * i, i < 3 ? 10.0 : 1.0) << i;
  }
  EXPECT_EQ(tracker.HistoryCount(), 6);
  const float last_x = r.x, last_y = r.y;
  // Every frame without the colour is a poor match: it answers the last known
  // position and empties the history, so each next frame scans the whole screen.
  for (int i = 0; i < 3; ++i, now += 0.04) {
    r = tracker.Track(Scene(160, 120, 5).pixels.data(), now);
    EXPECT_TRUE(r.lost) << i;
    EXPECT_EQ(r.scanned, i > 0) << i;
    EXPECT_TRUE(r.x == last_x && r.y == last_y) << i;
    EXPECT_EQ(r.window_w, 320);
    EXPECT_EQ(tracker.HistoryCount(), 0);
  }
  // The object comes back elsewhere: the scan finds it at once.
  r = tracker.Track(Scene(160, 120, 5, 120, 30, 10).pixels.data(), now);
  EXPECT_TRUE(r.scanned && !r.lost);
  EXPECT_NEAR(r.x * 160, 120, 1.0);
  EXPECT_NEAR(r.y * 120, 30, 1.0);

  // With a rescan limit of 0 nothing is ever lost and the history keeps growing.
  tracker.SetObject(kObject, 30.0f, 0);
  tracker.ResetHistory();
  for (int i = 0; i < 6; ++i) {
    r = tracker.Track(Scene(160, 120, 9).pixels.data(), 0.04 * i);
    EXPECT_FALSE(r.lost) << i;
    EXPECT_EQ(r.scanned, i == 0) << i;
    EXPECT_EQ(tracker.HistoryCount(), i + 1);
  }
}

TEST(ColorTrackerStep, DebugOverlayShowsTheMatchMapWindowAndTexts) {
  OwnedScreen frame(320, 240, 0xFF000000);
  PaintEllipse(frame, 200, 150, 30, 12, 0.5, 0x0000FF);
  CTracker tracker(320, 240);
  tracker.SetObject(0x0000FF, 30.0f, 20);
  tracker.SetDebug(true);
  ASSERT_FALSE(tracker.Track(frame.pixels.data(), 0.0).lost);
  // The score text, "RE-SCANNING WHOLE SCREEN", the grey match map (score 250),
  // the first (whole-screen) window's outline and axis 1: at least `least` pixels each.
  struct Mark { int32_t x0, y0, x1, y1; uint32_t color; int least; };
  for (Mark m : {Mark{20, 20, 200, 28, 0xFFFFFFFF, 40}, Mark{20, 40, 200, 48, 0xFFFF0000, 60},
                 Mark{170, 120, 230, 180, 0xFFFAFAFA, 900}, Mark{0, 0, 320, 240, 0xFFA00000, 100},
                 Mark{0, 0, 320, 240, 0xFF00FF00, 5}}) {
    int n = 0;
    for (int32_t y = m.y0; y < m.y1; ++y)
      for (int32_t x = m.x0; x < m.x1; ++x) n += frame.At(x, y) == m.color;
    EXPECT_GT(n, m.least) << std::hex << m.color;
  }
}

TEST(ColorTrackerSmoothing, PassesStillsQuietlyFollowsMotionAndWrapsOrientation) {
  // Weight 0 passes samples through. A still value with one-step quantisation
  // noise is calmed; a ramp of 8 pixels per frame on a 1920-wide screen lags
  // under a pixel; a jump (re-acquired elsewhere) is taken within a few frames.
  nimbo::SmoothingFilter none(0.0), still(1.0), ramp(1.0), jump(1.0);
  EXPECT_TRUE(none.Push(0.3) == 0.3 && none.Push(0.7) == 0.7);
  double spread = 0, lag = 0, after = 0;
  for (int i = 0; i < 200; ++i) {
    double v = still.Push(0.5 + ((i % 2) ? 0.0005 : 0.0));
    if (i > 50) spread = std::max(spread, std::fabs(v - 0.50025));
    if (i < 100) lag = i * 8.0 / 1920 - ramp.Push(i * 8.0 / 1920);
    if (i < 23) after = jump.Push(i < 20 ? 0.2 : 0.7);
  }
  EXPECT_LT(spread, 0.0002);
  EXPECT_TRUE(lag >= 0.0 && lag * 1920 < 1.0) << lag * 1920;
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

std::map<std::string, float> Outputs(const orrery::Effect* fx) {
  std::map<std::string, float> values;
  orrery::VisitOutputValues(
      fx, [](void* user, const char* name, const char* description, float value) {
        (*static_cast<std::map<std::string, float>*>(user))[std::string(name) + ": " + description] = value;
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
  auto fx = nimbo::testing::MakeEffect(kColorTracker, &host);
  ASSERT_TRUE(fx);
  fx->UpdateConfig();
  const std::string text = host.store.Text();
  size_t at = 0;
  for (const char* key :
       {"object_color", "tolerance", "smooth", "pick_x", "pick_y", "debuginfo", "rescanlimit", "attach_mouse"}) {
    size_t found = text.find(std::string("name=\"") + key + "\"");
    EXPECT_TRUE(found != std::string::npos && found > at) << key;
    at = found;
  }
  EXPECT_EQ(host.store.GetInt("object_color", -1), 0x0000FF);
  EXPECT_EQ(host.store.GetInt("rescanlimit", -1), 20);
  std::vector<std::string> names;
  for (const auto& [name, value] : Outputs(fx.get())) names.push_back(name);
  EXPECT_EQ(names, (std::vector<std::string>{"orientation: orientation of tracked object",
                                             "track x: x coordinate of tracked point",
                                             "track y: y coordinate of tracked point"}));
  const orrery::Effect* gone = fx.get();
  fx.reset();
  EXPECT_TRUE(Outputs(gone).empty());
}

TEST(ColorTrackerEffect, PublishedValuesFollowAMovingDiscHoldWhenLostAndTheCursorFollows) {
  RecordingDesktop desktop;
  TestHost host(240, 160);
  host.store.Load(
      "<Settings><ConfigData><data name=\"object_color\" type=\"int\">2113760</data>"
      "<data name=\"attach_mouse\" type=\"int\">1</data></ConfigData></Settings>");
  auto fx = nimbo::testing::MakeEffect(kColorTracker, &host);
  fx->UpdateConfig();
  fx->Initialize();
  // Frames of four pixels or less on a side, mismatched sizes and no input fail.
  for (auto [w, h] : {std::pair{4, 4}, {4, 100}, {100, 4}, {240, 160}}) {
    OwnedScreen in(w, h), out(w == 240 ? 120 : w, h);
    EXPECT_EQ(RenderOnce(*fx, {&in.screen}, &out.screen), 0) << w << "x" << h;
    EXPECT_EQ(RenderOnce(*fx, {}, &out.screen), 0);
  }
  OwnedScreen out(240, 160);
  auto x_of = [](auto& v) { return (v["track x: x coordinate of tracked point"] + 1) / 2; };
  auto y_of = [](auto& v) { return (1 - v["track y: y coordinate of tracked point"]) / 2; };  // +1 at the top
  double worst = 0;
  std::map<std::string, float> values;
  for (int i = 0; i < 45; ++i) {  // 40 frames of a moving disc, then 5 without it where it was last
    host.time_ms = 40 * i;
    double cx = 40 + 4 * std::min(i, 39), cy = 50 + 1.5 * std::min(i, 39);
    OwnedScreen in = Scene(240, 160, 21, cx, cy, i < 40 ? 12 : 0);
    ASSERT_EQ(RenderOnce(*fx, {&in.screen}, &out.screen), 1);
    EXPECT_TRUE(out.pixels == in.pixels);  // the picture passes through
    values = Outputs(fx.get());
    if (i >= 3) worst = std::max(worst, std::hypot(x_of(values) * 240 - cx, y_of(values) * 160 - cy));
    float o = values["orientation: orientation of tracked object"];
    EXPECT_TRUE(o >= -1.0f && o <= 1.0f) << o;
  }
  EXPECT_LT(worst, 2.0);
  // The cursor goes to the smoothed point, the same place on the desktop:
  // (1000·x, 500·y), y counted from the top like the picture's rows.
  ASSERT_EQ(desktop.moves.size(), 45u);
  EXPECT_EQ(desktop.moves.back().first, int32_t(1000 * x_of(values)));
  EXPECT_NEAR(desktop.moves.back().second, y_of(values) * 500, 1);
}

// Upwards in the picture is upwards everywhere: an object rising from the
// bottom towards the top makes "track y" rise from near -1 towards +1 and
// moves the cursor up the desktop; a bar leaning like "/" points up and to
// the right, a positive orientation below one half.
TEST(ColorTrackerEffect, AnObjectMovingUpRaisesTrackYAndTheCursor) {
  RecordingDesktop desktop;
  TestHost host(200, 200);
  host.store.Load(
      "<Settings><ConfigData><data name=\"object_color\" type=\"int\">2113760</data>"
      "<data name=\"smooth\" type=\"int\">0</data>"
      "<data name=\"attach_mouse\" type=\"int\">1</data></ConfigData></Settings>");
  auto fx = nimbo::testing::MakeEffect(kColorTracker, &host);
  fx->UpdateConfig();
  fx->Initialize();
  OwnedScreen out(200, 200);
  std::vector<float> ys;
  float orientation = 0;
  for (int i = 0; i < 8; ++i) {
    host.time_ms = 40 * i;
    OwnedScreen in = Scene(200, 200, 9);
    // A bar 40 x 8 leaning 45 degrees up to the right (theta is measured
    // with y down), from y = 170 up to y = 30.
    PaintEllipse(in, 100, 170 - 20 * i, 20, 4, -std::numbers::pi / 4, kObject);
    ASSERT_EQ(RenderOnce(*fx, {&in.screen}, &out.screen), 1);
    auto values = Outputs(fx.get());
    ys.push_back(values["track y: y coordinate of tracked point"]);
    orientation = values["orientation: orientation of tracked object"];
  }
  EXPECT_LT(ys.front(), -0.5f);
  EXPECT_GT(ys.back(), 0.5f);
  for (size_t i = 1; i < ys.size(); ++i) EXPECT_GT(ys[i], ys[i - 1]) << "frame " << i;
  ASSERT_EQ(desktop.moves.size(), 8u);
  EXPECT_GT(desktop.moves.front().second, 400);  // near the bottom of the 500-pixel desktop
  EXPECT_LT(desktop.moves.back().second, 100);   // near the top
  for (size_t i = 1; i < desktop.moves.size(); ++i) EXPECT_LT(desktop.moves[i].second, desktop.moves[i - 1].second);
  // Pointing up-right (+1/4 of a half turn) or down-left (-3/4): the same axis.
  EXPECT_TRUE(std::fabs(orientation - 0.25f) < 0.05f || std::fabs(orientation + 0.75f) < 0.05f) << orientation;
}

}  // namespace
