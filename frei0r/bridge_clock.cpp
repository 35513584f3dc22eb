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
    } else if (step > kJumpPeriods * period_) {
      tick.jumped = true;
    }
  }
  // Until the period tells the unit, times are taken for milliseconds:
  // ffmpeg's first frame then gets its exact clock, whatever its stream's
  // start, and a seconds host's clock can only leap forward at its second
  // frame, except from a time before 0.
  const bool in_ms = period_ > 0 ? milliseconds_ : true;
  tick.seconds = in_ms ? time / 1000.0 : time;
  tick.ms = int64_t(std::floor(tick.seconds * 1000.0 + kMsSlack));
  // The effect's clock never runs back without the effect starting over.
  if (started_ && tick.ms < last_tick_.ms) tick.jumped = true;
  started_ = true;
  last_ = time;
  const double period_seconds = milliseconds_ ? period_ / 1000.0 : period_;
  if (period_seconds > 0) {
    tick.frame = int64_t(std::llround(std::clamp(tick.seconds / period_seconds, -kMaxFrame, kMaxFrame)));
  }
  last_tick_ = tick;
  last_tick_.jumped = false;
  return tick;
}

}  // namespace nimbo::frei0r
