#include "bridge_clock.h"

#include <algorithm>
#include <cmath>

namespace nimbo::frei0r {
namespace {

constexpr double kJumpPeriods = 2.5;
// Host times carry the rounding of pts * time base (k * 0.04 * 1000 may be
// 119.99999999); nimbo's frame time is exact, so round within this much.
constexpr double kMsSlack = 1e-6;
// A time further from 0 than this (in the host's unit: 31 years in
// milliseconds) is no usable time, like NaN: the effect's clock stays far
// inside int64_t, whatever an effect adds to it.
constexpr double kMaxTime = 1e12;
// Frame numbers are clamped here: a period of a few femtoseconds would count
// more frames than an integer holds.
constexpr double kMaxFrame = 1e15;

}  // namespace

HostClock::Tick HostClock::Advance(double time) {
  Tick tick;
  if (!(std::fabs(time) <= kMaxTime)) {
    // No usable time. With a known period the frame counts on by one;
    // before that it teaches nothing (a guessed step would fix the unit and
    // the period wrongly for the whole run): the clock holds.
    if (period_ == 0) return last_tick_;
    time = last_ + period_;
  }
  if (started_) {
    const double step = time - last_;
    if (step <= 0) {
      tick.jumped = true;
    } else if (period_ == 0) {
      period_ = step;
      milliseconds_ = step >= 1.0;
      // The first frame's time was read as seconds; in milliseconds the
      // effect's clock would run back (or leap) here, so it starts over.
      tick.jumped = milliseconds_ && last_ != 0;
    } else if (step > kJumpPeriods * period_) {
      tick.jumped = true;
    }
  }
  started_ = true;
  last_ = time;
  tick.seconds = milliseconds_ ? time / 1000.0 : time;
  tick.ms = int64_t(std::floor(tick.seconds * 1000.0 + kMsSlack));
  const double period_seconds = milliseconds_ ? period_ / 1000.0 : period_;
  if (period_seconds > 0) {
    tick.frame = int64_t(std::llround(std::clamp(tick.seconds / period_seconds, -kMaxFrame, kMaxFrame)));
  }
  last_tick_ = tick;
  last_tick_.jumped = false;
  return tick;
}

}  // namespace nimbo::frei0r
