#include "color_tracker_search.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "color_tracker_overlay.h"
#include "shared/overlay_font.h"

namespace nimbo {
namespace {

constexpr uint32_t kChosenWindowColor = 0xFFFF0000;
constexpr uint32_t kFirstWindowColor = 0xFFA00000;
constexpr uint32_t kAxis1Color = 0xFF00FF00;
constexpr uint32_t kAxis2Color = 0xFF00A000;
constexpr uint32_t kTextColor = 0xFFFFFFFF;
constexpr uint32_t kRescanTextColor = 0xFFFF0000;

// Text grows with the frame so the readout stays legible on HD frames; at
// twice the size the two text lines (y = 20 and y = 40) still do not touch.
int32_t TextScale(int32_t height) { return height >= 540 ? 2 : 1; }

// A double clamped into int32 range first, so the conversion is defined for
// any clock or velocity a host may produce.
int32_t ClampToInt(double v, double lo, double hi) {
  if (std::isnan(v)) return int32_t(lo);
  return int32_t(std::clamp(v, lo, hi));
}

}  // namespace

CTracker::CTracker(int32_t width, int32_t height)
    : width_(std::max(width, 1)), height_(std::max(height, 1)), match_span_(MatchSpanKernel()),
      row_sums_(RowSumsKernel()) {
  size_t count = size_t(width_) * size_t(height_);
  stamps_.assign(count, 0);
  scores_.assign(count, 0);
  params_ = ComputeMatchParams(0x0000FF, 30.0f);
}

void CTracker::SetObject(uint32_t object_rgb, float tolerance_degrees, int32_t rescan_limit) {
  params_ = ComputeMatchParams(object_rgb, tolerance_degrees);
  rescan_limit_ = rescan_limit;
  AdvanceStamp();  // cached scores were for the old colour
}

void CTracker::AdvanceStamp() {
  if (++stamp_ == 0) {
    // After 2^32 frames the stamp would meet stamps written long ago.
    std::fill(stamps_.begin(), stamps_.end(), 0u);
    stamp_ = 1;
  }
}

void CTracker::EnsureScores(const uint32_t* pixels, int32_t x0, int32_t y0, int32_t w, int32_t h) {
  for (int32_t y = y0; y < y0 + h; ++y) {
    size_t at = size_t(y) * size_t(width_) + size_t(x0);
    match_span_(pixels + at, stamps_.data() + at, scores_.data() + at, w, stamp_, params_);
  }
}

SearchResult CTracker::Search(uint32_t* pixels, int32_t cx, int32_t cy, int32_t w, int32_t h) {
  int32_t pass_count = 0;
  int32_t x0 = cx - w / 2, y0 = cy - h / 2;
  int32_t ox = w / 2, oy = h / 2;  // the last centroid, in the last window's coordinates
  while (pass_count < kMaxPasses) {
    x0 += ox - w / 2;
    y0 += oy - h / 2;
    if (x0 < 0) {
      w += x0;
      x0 = 0;
    }
    if (y0 < 0) {
      h += y0;
      y0 = 0;
    }
    if (x0 + int64_t(w) > width_) w = width_ - x0;
    if (y0 + int64_t(h) > height_) h = height_ - y0;
    if (w < 4 || h < 4) break;

    EnsureScores(pixels, x0, y0, w, h);
    Pass& pass = passes_[pass_count++];
    pass = {x0, y0, w, h,
            ComputeWindowMoments(scores_.data() + size_t(y0) * size_t(width_) + size_t(x0), width_, w, h, row_sums_)};
    ox = pass.moments.cx;
    oy = pass.moments.cy;

    // The next window has half the area, with the object's aspect. The
    // aspect comes from the axes' extents along x and along y. The axes are
    // built mirrored in the diagonal, so an axis's y component is its extent
    // along x. Both axes vanish together only for an empty window; one
    // vanishes for an object aligned with the frame, and then the spreads
    // √mxx and √myy, which equal those extents there, give the aspect. A
    // floor of one pixel keeps thin or empty windows shrinking in area.
    const Axes& axes = pass.moments.axes;
    double sx = std::abs(axes.axis1.y) + std::abs(axes.axis2.y);
    double sy = std::abs(axes.axis1.x) + std::abs(axes.axis2.x);
    if (sx < 1.0 || sy < 1.0) {
      sx = std::sqrt(double(std::max<int64_t>(pass.moments.mxx, 0)));
      sy = std::sqrt(double(std::max<int64_t>(pass.moments.myy, 0)));
    }
    sx = std::max(sx, 1.0);
    sy = std::max(sy, 1.0);
    double k = std::sqrt((double(w) * double(h) * 0.5) / (sx * sy));
    w = ClampToInt(sx * k, 0, 2.0 * width_);
    h = ClampToInt(sy * k, 0, 2.0 * height_);
  }

  SearchResult result;
  if (pass_count == 0) {
    AdvanceStamp();
    return result;  // nothing searched: all zero, sizes 1 x 1
  }
  const int32_t last = pass_count - 1;
  result.score = passes_[last].moments.mean;
  // The latest pass whose density is at most half the innermost one's: the
  // larger window around the whole object gives the position.
  int32_t chosen = 0;
  for (int32_t i = last; i >= 1; --i) {
    if (passes_[i].moments.mean <= result.score / 2) {
      chosen = i;
      break;
    }
  }
  const Pass& p = passes_[chosen];
  result.x = float(p.x0 + p.moments.cx) / float(width_);
  result.y = float(p.y0 + p.moments.cy) / float(height_);
  result.axis1 = p.moments.axes.axis1;
  result.axis2 = p.moments.axes.axis2;
  result.length1 = float(std::sqrt(double(std::max<int64_t>(p.moments.axes.lambda1, 0))));
  result.length2 = float(std::sqrt(double(std::max<int64_t>(p.moments.axes.lambda2, 0))));
  result.window_w = p.w;
  result.window_h = p.h;
  result.passes = pass_count;

  if (debug_) DrawSearchOverlay(pixels, p, passes_[0], result.score);
  AdvanceStamp();
  return result;
}

void CTracker::DrawSearchOverlay(uint32_t* pixels, const Pass& chosen, const Pass& first, int32_t score) const {
  for (int32_t y = chosen.y0; y < chosen.y0 + chosen.h; ++y) {
    for (int32_t x = chosen.x0; x < chosen.x0 + chosen.w; ++x) {
      uint32_t s = scores_[size_t(y) * size_t(width_) + size_t(x)];
      pixels[size_t(y) * size_t(width_) + size_t(x)] = 0xFF000000u | (s << 16) | (s << 8) | s;
    }
  }
  DrawRectOutline(pixels, width_, height_, chosen.x0, chosen.y0, chosen.w, chosen.h, kChosenWindowColor);
  DrawRectOutline(pixels, width_, height_, first.x0, first.y0, first.w, first.h, kFirstWindowColor);
  // The axes are drawn unmirrored (x and y swapped back) so they lie along
  // the object on screen.
  const int32_t cx = chosen.x0 + chosen.moments.cx, cy = chosen.y0 + chosen.moments.cy;
  const Axis& a1 = chosen.moments.axes.axis1;
  const Axis& a2 = chosen.moments.axes.axis2;
  DrawLine(pixels, width_, height_, cx - a1.y, cy - a1.x, cx + a1.y, cy + a1.x, kAxis1Color);
  DrawLine(pixels, width_, height_, cx - a2.y, cy - a2.x, cx + a2.y, cy + a2.x, kAxis2Color);
  char text[48];
  std::snprintf(text, sizeof text, "match score=%i%%", int(score * 100 / 255));
  DrawText(pixels, width_, height_, 20, 20, text, kTextColor, TextScale(height_));
}

SearchResult CTracker::ScanWholeScreen(uint32_t* pixels) {
  history_count_ = 0;
  SearchResult result = Search(pixels, width_ / 2, height_ / 2, width_, height_);
  if (debug_) DrawText(pixels, width_, height_, 20, 40, "RE-SCANNING WHOLE SCREEN", kRescanTextColor, TextScale(height_));
  return result;
}

Prediction CTracker::Predict(double now) const {
  const HistoryEntry& newest = history_[newest_];
  double vx = 0.0, vy = 0.0;
  if (history_count_ > 2) {
    const HistoryEntry& before = history_[(newest_ + kHistorySize - 1) % kHistorySize];
    double dt = newest.time - before.time;
    if (!(dt > 0.0)) dt = 0.1;
    vx = (double(newest.x) - before.x) / dt;
    vy = (double(newest.y) - before.y) / dt;
  }
  // e is not positive: the centre moves against the velocity, and the
  // window grows with the time since the newest entry and with the speed.
  double e = newest.time - now;
  double r = std::max(newest.length1, newest.length2);
  double growth = e * e / 2.0 * 100.0;
  Prediction p;
  p.w = ClampToInt(std::trunc((growth + std::abs(vx)) * width_) + 2.0 * r, 0, 4.0 * width_);
  p.h = ClampToInt(std::trunc((growth + std::abs(vy)) * height_) + 2.0 * r, 0, 4.0 * height_);
  p.cx = ClampToInt((newest.x + vx * e) * width_, -4.0 * width_, 5.0 * width_);
  p.cy = ClampToInt((newest.y + vy * e) * height_, -4.0 * height_, 5.0 * height_);
  return p;
}

void CTracker::AppendHistory(const HistoryEntry& entry) {
  newest_ = (newest_ + 1) % kHistorySize;
  history_[newest_] = entry;
  if (history_count_ < 0x7FFFFFFF) ++history_count_;
  ever_tracked_ = true;
}

TrackResult CTracker::Track(uint32_t* pixels, double now) {
  TrackResult result;
  if (history_count_ == 0) {
    result.scanned = true;
    static_cast<SearchResult&>(result) = ScanWholeScreen(pixels);
  } else {
    Prediction p = Predict(now);
    static_cast<SearchResult&>(result) = Search(pixels, p.cx, p.cy, p.w, p.h);
  }

  if (result.score * 100 / 255 < rescan_limit_) {
    // Lost: keep answering the last known position (and shape) and scan the
    // whole screen next frame. A poor match never enters the history.
    result.lost = true;
    if (ever_tracked_) {
      const HistoryEntry& newest = history_[newest_];
      result.x = newest.x;
      result.y = newest.y;
      result.length1 = newest.length1;
      result.length2 = newest.length2;
      result.axis1 = last_axis1_;
      result.axis2 = last_axis2_;
      result.window_w = 2 * width_;
      result.window_h = 2 * height_;
    }
    history_count_ = 0;
    return result;
  }
  AppendHistory({result.x, result.y, result.window_w, result.window_h, now, result.length1, result.length2});
  last_axis1_ = result.axis1;
  last_axis2_ = result.axis2;
  return result;
}

}  // namespace nimbo
