// CTracker: ColorTracker's search, free of host details.
//
// One frame's tracking step:
//   - with no history, scan the whole screen; otherwise predict a window from
//     the last positions and search there;
//   - the search is an iterative shrinking window: each pass centres the
//     window on the last centroid, measures the window's match moments and
//     halves the window's area, shaped by the object's spread; the position
//     comes from the latest pass whose mean score is at most half of the last
//     (innermost) pass's: a window about twice the object's size;
//   - a mean score under the rescan limit means the object is lost: the last
//     known position is returned and the next frame scans the whole screen.
// Positions are fractions 0..1 of the screen (x from the left, y from the
// top). Times are in seconds.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "color_tracker_match.h"
#include "color_tracker_moments.h"

namespace nimbo {

struct SearchResult {
  float x = 0.0f;  // 0..1 of the screen
  float y = 0.0f;
  int32_t score = 0;  // S: the mean score of the last pass, 0..255
  Axis axis1;         // of the chosen pass, in pixels
  Axis axis2;
  float length1 = 0.0f;  // √λ1 and √λ2 of the chosen pass, in pixels
  float length2 = 0.0f;
  int32_t window_w = 1;  // the chosen pass's window
  int32_t window_h = 1;
  int32_t passes = 0;
};

struct TrackResult : SearchResult {
  bool scanned = false;  // this frame scanned the whole screen
  bool lost = false;     // the match was under the rescan limit
};

struct HistoryEntry {
  float x = 0.0f;
  float y = 0.0f;
  int32_t window_w = 0;
  int32_t window_h = 0;
  double time = 0.0;
  float length1 = 0.0f;
  float length2 = 0.0f;
};

// Where the next search looks, in pixels.
struct Prediction {
  int32_t cx = 0;
  int32_t cy = 0;
  int32_t w = 0;
  int32_t h = 0;
};

class CTracker {
 public:
  static constexpr int32_t kHistorySize = 16;
  static constexpr int32_t kMaxPasses = 64;

  // The match cache needs 5 bytes per pixel; throws std::bad_alloc when that
  // cannot be had.
  CTracker(int32_t width, int32_t height);

  // Object colour 0xRRGGBB, cone half-angle in degrees, rescan limit in
  // percent of the full score. Invalidates the match cache.
  void SetObject(uint32_t object_rgb, float tolerance_degrees, int32_t rescan_limit);
  void SetDebug(bool on) { debug_ = on; }

  // The tracking step on a width x height screen at time `now`. With the
  // debug flag it draws its overlay into `pixels`.
  TrackResult Track(uint32_t* pixels, double now);

  // The pieces of the step, public for tests and the setup dialog.
  SearchResult Search(uint32_t* pixels, int32_t cx, int32_t cy, int32_t w, int32_t h);
  SearchResult ScanWholeScreen(uint32_t* pixels);
  Prediction Predict(double now) const;  // needs HistoryCount() > 0
  void ResetHistory() { history_count_ = 0; }
  int32_t HistoryCount() const { return history_count_; }
  const HistoryEntry& Newest() const { return history_[newest_]; }
  void AppendHistory(const HistoryEntry& entry);

  int32_t Width() const { return width_; }
  int32_t Height() const { return height_; }
  const MatchParams& Params() const { return params_; }
  int32_t RescanLimit() const { return rescan_limit_; }

 private:
  struct Pass {
    int32_t x0, y0, w, h;
    WindowMoments moments;
  };

  void EnsureScores(const uint32_t* pixels, int32_t x0, int32_t y0, int32_t w, int32_t h);
  void AdvanceStamp();
  void DrawSearchOverlay(uint32_t* pixels, const Pass& chosen, const Pass& first, int32_t score) const;

  int32_t width_;
  int32_t height_;
  MatchParams params_;
  int32_t rescan_limit_ = 20;
  bool debug_ = false;

  MatchSpanFn match_span_;
  RowSumsFn row_sums_;
  std::vector<uint32_t> stamps_;
  std::vector<uint8_t> scores_;
  uint32_t stamp_ = 1;

  std::array<HistoryEntry, kHistorySize> history_{};
  int32_t newest_ = 0;
  int32_t history_count_ = 0;  // entries written since the last reset
  bool ever_tracked_ = false;  // the ring holds a last known position
  Axis last_axis1_, last_axis2_;

  std::array<Pass, kMaxPasses> passes_{};
};

}  // namespace nimbo
